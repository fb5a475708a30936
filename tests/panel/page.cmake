# The page in a headless Chromium: against a stand-in for the panel's server (standin.py), and with the panel on a virtual
# instrument (root). They need the packages of the group panel in script/packages and are skipped without them.
add_test(NAME panel.Page COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/page_test.py -v)
add_test(NAME panel.Session COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/session_test.py ${CMAKE_BINARY_DIR} -v)
set_tests_properties(panel.Page panel.Session PROPERTIES LABELS panel TIMEOUT 1800 SKIP_RETURN_CODE 77)
