# Warnings are errors in our own code; headers of the libraries are included as system headers.
add_library(tessary_warnings INTERFACE)
target_compile_options(tessary_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
