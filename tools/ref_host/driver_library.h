// The driver as a panel runtime reaches it: the library loaded with dlopen and its entry points
// looked up by their exported names. Nothing of the driver is linked in.
#ifndef KORVAN_TOOLS_DRIVER_LIBRARY_H
#define KORVAN_TOOLS_DRIVER_LIBRARY_H

#include <string>

#include "korvan_qa_qb_series_port.h"

namespace refhost {

// The entry points the host calls.
struct DriverApi {
    decltype(&SetComInfo) setComInfo = nullptr;
    decltype(&RegistCallBackFuncIntf) registerCallbacks = nullptr;
    decltype(&EnCommStation) enableStation = nullptr;
    decltype(&PLCAddressChangeIntef) addressOf = nullptr;
    decltype(&ReCreatReadVarList) planReads = nullptr;
    decltype(&ComCommunication) nextRequest = nullptr;
    decltype(&DataCom) handReply = nullptr;
    decltype(&GetRegisterData) readImage = nullptr;
    decltype(&SetRegisterData) write = nullptr;
};

class DriverLibrary {
public:
    // Loads the library; throws std::runtime_error when it or an entry point is missing.
    explicit DriverLibrary(const std::string& path);
    ~DriverLibrary();
    DriverLibrary(const DriverLibrary&) = delete;
    DriverLibrary& operator=(const DriverLibrary&) = delete;

    const DriverApi& api() const { return api_; }

private:
    template <typename T>
    void resolve(T& entry, const char* name);

    void* handle_;
    std::string path_;
    DriverApi api_;
};

// A file in the directory of the running program: where the driver library and the simulator
// are built.
std::string besideThisProgram(const std::string& name);

}  // namespace refhost

#endif
