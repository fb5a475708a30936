# TESSARY_SANITIZE=address builds with AddressSanitizer and UndefinedBehaviorSanitizer, =thread with ThreadSanitizer.
set(TESSARY_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, address (with undefined) or thread")
set_property(CACHE TESSARY_SANITIZE PROPERTY STRINGS "" address thread)
if(TESSARY_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_compile_options(-Wno-maybe-uninitialized) # GCC 12 sees uninitialised members in instrumented <regex>
    add_link_options(-fsanitize=address,undefined)
elseif(TESSARY_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT TESSARY_SANITIZE STREQUAL "")
    message(FATAL_ERROR "TESSARY_SANITIZE is '${TESSARY_SANITIZE}'; use 'address', 'thread' or leave it empty")
endif()
