# The page in a headless Chromium, against a stand-in for the panel's server (standin.py). Needs the packages of the group
# panel in script/packages and is skipped without them.
add_test(NAME panel.Page COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/page_test.py -v)
set_tests_properties(panel.Page PROPERTIES LABELS panel TIMEOUT 1800 SKIP_RETURN_CODE 77)
