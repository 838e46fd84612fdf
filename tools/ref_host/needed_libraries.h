// What a shared library needs loaded beside it, read from its file before it is loaded: a host
// must not load a driver built against another Qt major than its own, whose QString and
// QByteArray would be taken for its own.
#ifndef KORVAN_TOOLS_NEEDED_LIBRARIES_H
#define KORVAN_TOOLS_NEEDED_LIBRARIES_H

#include <istream>
#include <string>
#include <vector>

namespace refhost {

// The DT_NEEDED names of an ELF shared library (32- or 64-bit, little-endian), read from its
// headers alone. Empty when the file is not such a library: loading it will then say what is
// wrong.
std::vector<std::string> neededLibraries(std::istream& file);

// The Qt major whose core library one of `needed` names (libQtCore.so.4, libQt5Core.so.5,
// libQt6Core.so.6); 0 for none.
int qtMajorOf(const std::vector<std::string>& needed);

}  // namespace refhost

#endif
