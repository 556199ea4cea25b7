#include "decoder/HiddenLibraries.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace glintmark::decoder {

namespace {

// By the beginnings of their names.
constexpr std::array<std::string_view, 6> unusedLibraries = {
    "libaom.so", "libgav1.so", "libabsl_", "librav1e.so", "libSvtAv1Enc.so", "libseccomp.so"};

bool isUnused(std::string_view path) {
    const std::string_view name = path.substr(path.find_last_of('/') + 1);
    return std::ranges::any_of(unusedLibraries,
                               [&](std::string_view prefix) { return name.starts_with(prefix); });
}

std::uintptr_t pageSize() { return static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE)); }

void hide(std::uintptr_t begin, std::uintptr_t end) {
    const std::uintptr_t first = begin / pageSize() * pageSize();
    if (first < end) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader describes memory by numbers
        madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTFORK);
    }
}

// The loader looks for symbols in all libraries, even in a child. It reads their first segment and
// what it has made read-only after relocation (elf(5): PT_GNU_RELRO), so these stay.
int hideIfUnused(dl_phdr_info* library, std::size_t /*size*/, void* /*data*/) {
    if (!isUnused(library->dlpi_name)) {
        return 0;
    }
    const std::span segments(library->dlpi_phdr, library->dlpi_phnum);
    const auto endOf = [library](const ElfW(Phdr) & segment) {
        return library->dlpi_addr + segment.p_vaddr + segment.p_memsz;
    };
    const auto relro = std::ranges::find(segments, PT_GNU_RELRO, &ElfW(Phdr)::p_type);
    bool isFirst = true;
    for (const ElfW(Phdr) & segment : segments) {
        if (segment.p_type != PT_LOAD) {
            continue;
        }
        std::uintptr_t begin = library->dlpi_addr + segment.p_vaddr;
        if ((segment.p_flags & PF_W) != 0) {
            begin = relro != segments.end() ? std::max(begin, endOf(*relro) + pageSize() - 1)
                                            : endOf(segment);
        }
        if (!std::exchange(isFirst, false)) {
            hide(begin, endOf(segment));
        }
    }
    return 0;
}

}  // namespace

void hideUnusedLibraries() { dl_iterate_phdr(hideIfUnused, nullptr); }

}  // namespace glintmark::decoder
