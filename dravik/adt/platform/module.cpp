// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/platform/module.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace Quorvel::Dravik::Adt::Platform {
namespace {

/// What dladdr leaves out about the module that is mapped from `base` on.
struct Image {
    std::uintptr_t base = 0;
    std::uintptr_t byteSize = 0;
    bool isProgram = false;
};

/// For dl_iterate_phdr: fills the Image behind `data` and ends the walk when this is its module.
int measureImage(dl_phdr_info* info, std::size_t, void* data) {
    auto const pageByteSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    Image& image = *static_cast<Image*>(data);
    std::uintptr_t begin = UINTPTR_MAX;
    std::uintptr_t end = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        ElfW(Phdr) const& segment = info->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD) {
            begin = std::min<std::uintptr_t>(begin, info->dlpi_addr + segment.p_vaddr);
            end = std::max<std::uintptr_t>(end, info->dlpi_addr + segment.p_vaddr + segment.p_memsz);
        }
    }
    if (begin / pageByteSize * pageByteSize != image.base) {
        return 0;
    }
    image.byteSize = end - image.base;
    image.isProgram = *info->dlpi_name == '\0';
    return 1;
}

/// The program's own file, or where it was before somebody replaced it; empty where the system does not tell.
std::string const& programPath() {
    static std::string const& path = *new std::string([] {
        std::error_code error;
        std::string link = std::filesystem::read_symlink("/proc/self/exe", error).string();
        constexpr std::string_view kGone = " (deleted)";  // the kernel's addition, unless a file is called that
        if (link.ends_with(kGone) && !std::filesystem::exists(link, error)) {
            link.resize(link.size() - kGone.size());
        }
        return link;
    }());
    return path;
}

}  // namespace

std::optional<Module> moduleAt(void const* address) {
    Dl_info found = {};
    if (dladdr(address, &found) == 0) {
        return std::nullopt;
    }
    Image image{reinterpret_cast<std::uintptr_t>(found.dli_fbase)};
    dl_iterate_phdr(&measureImage, &image);
    // For the program itself the loader only knows the first argument, which may be anything.
    Module module{image.isProgram && !programPath().empty() ? programPath() : found.dli_fname, {}};
    std::uintptr_t const offset = reinterpret_cast<std::uintptr_t>(address) - image.base;
    if (offset < image.byteSize) {
        module.byteOffset = offset;
    }
    return module;
}

}  // namespace Quorvel::Dravik::Adt::Platform
