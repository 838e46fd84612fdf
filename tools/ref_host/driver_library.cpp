#include "driver_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "input_file.h"
#include "needed_libraries.h"

namespace refhost {

namespace {

constexpr int kOwnQtMajor = QT_VERSION >> 16;

// dlopen looks a name without a slash up on the loader's path, while the file checked below is
// the one in the current directory. So that both are the same file, the name is taken as a file
// in the current directory, as every other file the tools are given is.
std::string asFilePath(const std::string& path) {
    return path.find('/') == std::string::npos ? "./" + path : path;
}

// The records the host and the driver share hold Qt's QString, QByteArray and QList, whose
// private data differ between Qt majors: a driver of another major would crash the host on the
// first record it touched, so it is refused before it is loaded.
const std::string& ofOwnQtMajor(const std::string& path) {
    std::ifstream file = tools::openInputFile(path, std::ios::binary);
    const int major = qtMajorOf(neededLibraries(file));
    if (major != 0 && major != kOwnQtMajor) {
        throw std::runtime_error(path + " is built against Qt " + std::to_string(major) +
                                 " and this host against Qt " + std::to_string(kOwnQtMajor) +
                                 ": a host and the driver must share one Qt major");
    }
    return path;
}

}  // namespace

DriverLibrary::DriverLibrary(const std::string& path)
    : path_(asFilePath(path)), handle_(dlopen(ofOwnQtMajor(path_).c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        throw std::runtime_error(std::string("cannot load the driver library: ") + dlerror());
    }
    resolve(api_.setComInfo, "SetComInfo");
    resolve(api_.registerCallbacks, "RegistCallBackFuncIntf");
    resolve(api_.enableStation, "EnCommStation");
    resolve(api_.addressOf, "PLCAddressChangeIntef");
    resolve(api_.planReads, "ReCreatReadVarList");
    resolve(api_.nextRequest, "ComCommunication");
    resolve(api_.handReply, "DataCom");
    resolve(api_.readImage, "GetRegisterData");
    resolve(api_.write, "SetRegisterData");
}

DriverLibrary::~DriverLibrary() {
    dlclose(handle_);
}

template <typename T>
void DriverLibrary::resolve(T& entry, const char* name) {
    entry = reinterpret_cast<T>(dlsym(handle_, name));
    if (entry == nullptr) {
        dlclose(handle_);
        throw std::runtime_error(path_ + " does not export " + name);
    }
}

LibraryCopies::LibraryCopies(std::string library) : library_(std::move(library)) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/korvan_ref_host.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder for the driver's copies: " +
                                 std::string(std::strerror(errno)));
    }
    folder_ = pattern;
}

LibraryCopies::~LibraryCopies() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

// The copy keeps the library's file name, so that it reads as the same library.
std::string LibraryCopies::copyFor(const std::string& port) const {
    const std::filesystem::path folder = std::filesystem::path(folder_) / port;
    const std::filesystem::path copy = folder / std::filesystem::path(library_).filename();
    std::error_code failed;
    std::filesystem::create_directory(folder, failed);
    if (!failed) {
        std::filesystem::copy_file(library_, copy, failed);
    }
    if (failed) {
        throw std::runtime_error("cannot copy " + library_ + " for port " + port + ": " +
                                 failed.message());
    }
    return copy.string();
}

std::string besideThisProgram(const std::string& name) {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) {
        return name;
    }
    std::string self(path, static_cast<std::size_t>(n));
    return self.substr(0, self.rfind('/') + 1) + name;
}

}  // namespace refhost
