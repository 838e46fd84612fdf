#include "needed_libraries.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace refhost {

namespace {

// A record of type T at `offset` of `image`, copied out (the file's bytes have no alignment);
// false when it would reach past the end.
template <typename T>
bool readAt(const std::string& image, std::size_t offset, T& out) {
    if (offset > image.size() || image.size() - offset < sizeof(T)) {
        return false;
    }
    std::memcpy(&out, image.data() + offset, sizeof(T));
    return true;
}

// The dynamic section's DT_NEEDED entries, with their names in the string table it links to.
template <typename Ehdr, typename Shdr, typename Dyn>
std::vector<std::string> neededIn(const std::string& image) {
    std::vector<std::string> needed;
    Ehdr header;
    if (!readAt(image, 0, header) || header.e_shentsize != sizeof(Shdr)) {
        return needed;
    }
    auto section = [&](std::size_t index, Shdr& out) {
        return index < header.e_shnum && readAt(image, header.e_shoff + index * sizeof(Shdr), out);
    };
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        Shdr dynamic;
        Shdr strings;
        if (!section(i, dynamic) || dynamic.sh_type != SHT_DYNAMIC ||
            !section(dynamic.sh_link, strings) || strings.sh_offset > image.size()) {
            continue;
        }
        const std::size_t stringsEnd =
            strings.sh_offset +
            std::min<std::size_t>(strings.sh_size, image.size() - strings.sh_offset);
        for (std::size_t at = dynamic.sh_offset;
             at + sizeof(Dyn) <= dynamic.sh_offset + dynamic.sh_size; at += sizeof(Dyn)) {
            Dyn entry;
            if (!readAt(image, at, entry) || entry.d_tag == DT_NULL) {
                break;
            }
            const std::size_t name = strings.sh_offset + entry.d_un.d_val;
            if (entry.d_tag == DT_NEEDED && name < stringsEnd) {
                const char* text = image.data() + name;
                needed.emplace_back(text, strnlen(text, stringsEnd - name));
            }
        }
    }
    return needed;
}

}  // namespace

std::vector<std::string> neededLibraries(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string image{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (image.size() < EI_NIDENT || std::memcmp(image.data(), ELFMAG, SELFMAG) != 0 ||
        image[EI_DATA] != ELFDATA2LSB) {
        return {};
    }
    switch (image[EI_CLASS]) {
        case ELFCLASS32:
            return neededIn<Elf32_Ehdr, Elf32_Shdr, Elf32_Dyn>(image);
        case ELFCLASS64:
            return neededIn<Elf64_Ehdr, Elf64_Shdr, Elf64_Dyn>(image);
        default:
            return {};
    }
}

int qtMajorOf(const std::vector<std::string>& needed) {
    static constexpr struct {
        const char* soname;
        int major;
    } kQtCores[] = {{"libQtCore.so.4", 4}, {"libQt5Core.so.5", 5}, {"libQt6Core.so.6", 6}};
    for (const std::string& name : needed) {
        for (const auto& core : kQtCores) {
            if (name == core.soname) {
                return core.major;
            }
        }
    }
    return 0;
}

}  // namespace refhost
