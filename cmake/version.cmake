# The version stands in one place: the newest entry of the packages' changelog, which a package build has in debian/.
set(changelog ${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/changelog)
if(NOT EXISTS ${changelog})
    set(changelog ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog)
endif()
file(STRINGS ${changelog} newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^tessary \\(([0-9]+\\.[0-9]+)")
    message(FATAL_ERROR "${changelog}: no version in its first line, \"${newest}\"")
endif()
set(TESSARY_VERSION ${CMAKE_MATCH_1})
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changelog})

# tessary_man_page(FILE): installs packaging/FILE with the version in its head.
function(tessary_man_page FILE)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/${FILE} ${PROJECT_BINARY_DIR}/man/${FILE} @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/man/${FILE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
