#include "support/containment.h"

#include <cstdio>
#include <cstdlib>
#include <sanitizer/lsan_interface.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

/// Runs before the constructors of the libraries, whose allocations are theirs: GLib leaves its first table
/// of quarks behind when that grows.
void overlookConstructors(int, char**, char**)
{
    __lsan_disable();
}

__attribute__((section(".preinit_array"), used)) void (*const beforeConstructors)(
    int, char**, char**) = overlookConstructors;

} // namespace

/// The C library's resolver keeps its servers' addresses with each thread that has asked for a name, until
/// that ends: GLib's threads for the name of a receiver's group do so while leaks are looked for.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:__res_context_send\n";
}

extern "C" const char* __lsan_default_options()
{
    return "print_suppressions=0";
}

void requireContainment()
{
    __lsan_enable();
    struct statvfs root = {};
    const bool readOnly = statvfs("/", &root) == 0 && (root.f_flag & ST_RDONLY) != 0;
    if (geteuid() != 0 && readOnly)
        return;
    std::fputs("This program feeds made bytes to code that configures networks and installs packages.\n"
               "It runs shut off from the machine only: start it with script/fuzz.\n",
        stderr);
    std::_Exit(2);
}
