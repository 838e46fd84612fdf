// Opening a file the user named as input: it must be a regular file. A directory would read as
// empty, /dev/zero would never end and a FIFO would block the open until a writer came.
#ifndef KORVAN_TOOLS_INPUT_FILE_H
#define KORVAN_TOOLS_INPUT_FILE_H

#include <fstream>
#include <string>

namespace tools {

// Throws std::runtime_error naming the file when it is missing, unreadable or not a regular file.
std::ifstream openInputFile(const std::string& path, std::ios::openmode mode = std::ios::in);

// Throws std::runtime_error naming the file when `in` met a read error (not the end of the file).
void checkReadToEnd(const std::ifstream& in, const std::string& path);

}  // namespace tools

#endif
