#include "needed_libraries.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace refhost {

namespace {

// Longer than any library name the check looks for; a longer name is cut to this length.
constexpr std::size_t kLongestName = 256;

// A record of type T at `offset` of the file, copied out (the file's bytes have no alignment);
// false when it would reach past the end. Only the records asked for are read, so a file of
// any size costs a few small reads.
template <typename T>
bool readAt(std::istream& file, std::uint64_t offset, T& out) {
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::streamoff>::max())) {
        return false;
    }
    file.clear();
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char*>(&out), sizeof(T));
    return file.gcount() == static_cast<std::streamsize>(sizeof(T));
}

// The NUL-terminated text at `offset`, not reaching `end`.
std::string textAt(std::istream& file, std::uint64_t offset, std::uint64_t end) {
    char text[kLongestName] = {};
    if (offset >= end ||
        offset > static_cast<std::uint64_t>(std::numeric_limits<std::streamoff>::max())) {
        return {};
    }
    file.clear();
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(text,
              static_cast<std::streamsize>(std::min<std::uint64_t>(end - offset, kLongestName)));
    return std::string(text, strnlen(text, static_cast<std::size_t>(file.gcount())));
}

// The DT_NEEDED entries of the dynamic section, with their names in the string table it links to.
template <typename Ehdr, typename Shdr, typename Dyn>
std::vector<std::string> neededIn(std::istream& file) {
    std::vector<std::string> needed;
    Ehdr header;
    if (!readAt(file, 0, header) || header.e_shentsize != sizeof(Shdr)) {
        return needed;
    }
    auto section = [&](std::uint64_t index, Shdr& out) {
        return index < header.e_shnum && readAt(file, header.e_shoff + index * sizeof(Shdr), out);
    };
    for (std::uint64_t i = 0; i < header.e_shnum; ++i) {
        Shdr dynamic;
        Shdr strings;
        if (!section(i, dynamic) || dynamic.sh_type != SHT_DYNAMIC ||
            !section(dynamic.sh_link, strings)) {
            continue;
        }
        const std::uint64_t stringsEnd = strings.sh_offset + strings.sh_size;
        for (std::uint64_t at = dynamic.sh_offset;
             at + sizeof(Dyn) <= dynamic.sh_offset + dynamic.sh_size; at += sizeof(Dyn)) {
            Dyn entry;
            if (!readAt(file, at, entry) || entry.d_tag == DT_NULL) {
                break;
            }
            if (entry.d_tag == DT_NEEDED && entry.d_un.d_val < strings.sh_size) {
                needed.push_back(textAt(file, strings.sh_offset + entry.d_un.d_val, stringsEnd));
            }
        }
        return needed;  // a library has one dynamic section
    }
    return needed;
}

}  // namespace

std::vector<std::string> neededLibraries(std::istream& file) {
    unsigned char ident[EI_NIDENT];
    if (!readAt(file, 0, ident) || std::memcmp(ident, ELFMAG, SELFMAG) != 0 ||
        ident[EI_DATA] != ELFDATA2LSB) {
        return {};
    }
    switch (ident[EI_CLASS]) {
        case ELFCLASS32:
            return neededIn<Elf32_Ehdr, Elf32_Shdr, Elf32_Dyn>(file);
        case ELFCLASS64:
            return neededIn<Elf64_Ehdr, Elf64_Shdr, Elf64_Dyn>(file);
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
