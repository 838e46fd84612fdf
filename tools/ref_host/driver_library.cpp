#include "driver_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <stdexcept>

#include "needed_libraries.h"

namespace refhost {

namespace {

constexpr int kOwnQtMajor = QT_VERSION >> 16;

// The records the host and the driver share hold Qt's QString, QByteArray and QList, whose
// private data differ between Qt majors: a driver of another major would crash the host on the
// first record it touched, so it is refused before it is loaded.
const std::string& ofOwnQtMajor(const std::string& path) {
    const std::vector<std::string> needed = neededLibraries(path);
    const int major = qtMajorOf(needed);
    if (major != 0 && major != kOwnQtMajor) {
        throw std::runtime_error(path + " is built against Qt " + std::to_string(major) +
                                 " and this host against Qt " + std::to_string(kOwnQtMajor) +
                                 ": a host and the driver must share one Qt major");
    }
    return path;
}

}  // namespace

DriverLibrary::DriverLibrary(const std::string& path)
    : handle_(dlopen(ofOwnQtMajor(path).c_str(), RTLD_NOW | RTLD_LOCAL)), path_(path) {
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
