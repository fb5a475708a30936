# Debian's cross compiler with the arm64 packages of the libraries beside amd64's (dpkg --add-architecture arm64), as in the
# root that script/clean-root makes. What is built can be run there: the tests go through qemu, called by name.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
find_program(TESSARY_QEMU qemu-aarch64-static)
if(TESSARY_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TESSARY_QEMU})
endif()
