# The panel as a person and a monitoring system meet it: its page in a headless Chromium, against a stand-in for the panel's
# server (standin.py) and with the panel on a virtual instrument (root); Prometheus that watches two of them (root). They need
# the packages of the group panel in script/packages and are skipped without them. They are part of every run of script/test.
function(tessary_panel_test NAME PROGRAM)
    add_test(NAME panel.${NAME} COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/${PROGRAM} ${ARGN} -v)
    set_tests_properties(panel.${NAME} PROPERTIES LABELS "panel;essential" TIMEOUT 1800 SKIP_RETURN_CODE 77)
endfunction()
tessary_panel_test(Page page_test.py)
tessary_panel_test(Session session_test.py ${CMAKE_BINARY_DIR})
tessary_panel_test(Prometheus prometheus_test.py ${CMAKE_BINARY_DIR})
set_tests_properties(panel.Session panel.Prometheus PROPERTIES ENVIRONMENT "PYTHONPATH=${CMAKE_BINARY_DIR}/python"
    RESOURCE_LOCK virtual-instrument FIXTURES_REQUIRED streams)
