#include "boundcalls.h"

#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

namespace {

/// Path of the object that the address lies in; empty when there is none.
std::string objectOf(const void* address)
{
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fname : "";
}

/// What the dynamic section says about an object's references (ELF-64, relocations with addends, as on both
/// of our processors).
struct References
{
    const Elf64_Sym* symbols = nullptr;
    const char* names = nullptr;
    const Elf64_Rela* table[2] = {}; ///< of data and of calls
    std::size_t bytes[2] = {};
};

template <typename Pointer> Pointer pointerTo(Elf64_Addr address)
{
    return reinterpret_cast<Pointer>(address); // NOLINT(performance-no-int-to-ptr): the loader's own numbers
}

References referencesIn(const Elf64_Dyn* entry)
{
    References found;
    for (; entry->d_tag != DT_NULL; ++entry) {
        switch (entry->d_tag) {
        case DT_SYMTAB:
            found.symbols = pointerTo<const Elf64_Sym*>(entry->d_un.d_ptr);
            break;
        case DT_STRTAB:
            found.names = pointerTo<const char*>(entry->d_un.d_ptr);
            break;
        case DT_RELA:
            found.table[0] = pointerTo<const Elf64_Rela*>(entry->d_un.d_ptr);
            break;
        case DT_RELASZ:
            found.bytes[0] = entry->d_un.d_val;
            break;
        case DT_JMPREL:
            found.table[1] = pointerTo<const Elf64_Rela*>(entry->d_un.d_ptr);
            break;
        case DT_PLTRELSZ:
            found.bytes[1] = entry->d_un.d_val;
            break;
        default:
            break;
        }
    }
    return found;
}

struct Search
{
    const char* function;
    std::vector<boundcalls::Call> calls;
};

void searchReferences(const dl_phdr_info& object, const References& references, Search& search)
{
    if (!references.symbols || !references.names)
        return;
    for (int kind = 0; kind < 2; ++kind) {
        const Elf64_Rela* const table = references.table[kind];
        for (std::size_t i = 0; table && i < references.bytes[kind] / sizeof *table; ++i) {
            const Elf64_Sym& symbol = references.symbols[ELF64_R_SYM(table[i].r_info)];
            if (std::strcmp(references.names + symbol.st_name, search.function) != 0)
                continue;
            const auto* slot = pointerTo<void* const*>(object.dlpi_addr + table[i].r_offset);
            search.calls.push_back({objectOf(slot), objectOf(*slot)});
        }
    }
}

int searchObject(dl_phdr_info* object, std::size_t, void* search)
{
    if (object->dlpi_name == nullptr || std::strstr(object->dlpi_name, "vdso"))
        return 0; // the kernel's own is laid out differently
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const Elf64_Phdr& header = object->dlpi_phdr[i];
        if (header.p_type == PT_DYNAMIC) {
            const auto* entries = pointerTo<const Elf64_Dyn*>(object->dlpi_addr + header.p_vaddr);
            searchReferences(*object, referencesIn(entries), *static_cast<Search*>(search));
        }
    }
    return 0;
}

} // namespace

namespace boundcalls {

std::string program()
{
    return objectOf(reinterpret_cast<const void*>(&program));
}

std::string objectThatAnswers(const char* function)
{
    return objectOf(dlsym(RTLD_DEFAULT, function));
}

std::vector<Call> of(const char* function)
{
    Search search{function, {}};
    dl_iterate_phdr(searchObject, &search);
    return search.calls;
}

} // namespace boundcalls
