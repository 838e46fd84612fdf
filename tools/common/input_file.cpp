#include "input_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace tools {

namespace {

std::runtime_error cannotRead(const std::string& path, int error) {
    return std::runtime_error("cannot read " + path + ": " + std::strerror(error));
}

}  // namespace

std::ifstream openInputFile(const std::string& path, std::ios::openmode mode) {
    // Looked at before it is opened: opening a FIFO for reading waits for a writer.
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw cannotRead(path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path + " is not a regular file");
    }
    std::ifstream in(path, mode);
    if (!in) {
        throw cannotRead(path, errno);
    }
    return in;
}

void checkReadToEnd(const std::ifstream& in, const std::string& path) {
    if (in.bad()) {
        throw std::runtime_error("cannot read " + path + " to its end");
    }
}

}  // namespace tools
