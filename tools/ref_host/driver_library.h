// The driver as a panel runtime reaches it: the library loaded with dlopen and its entry points
// looked up by their exported names. Nothing of the driver is linked in.
#ifndef KORVAN_TOOLS_DRIVER_LIBRARY_H
#define KORVAN_TOOLS_DRIVER_LIBRARY_H

#include <string>

#include "korvan_qa_qb_series_port.h"

namespace refhost {

// What this host puts in every port record it hands a driver: its variables are all on the port
// the record describes, and each port's callbacks run on that port's own polling thread, so the
// tag need not tell ports apart.
constexpr int kHostPortId = 1;
constexpr int kHostTag = 1;

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
    // Loads the library file `path` (a name without a slash: the file in the current directory,
    // not one on the loader's search path); throws std::runtime_error when it is not a regular
    // file, is built against another Qt major, or it or an entry point is missing.
    explicit DriverLibrary(const std::string& path);
    ~DriverLibrary();
    DriverLibrary(const DriverLibrary&) = delete;
    DriverLibrary& operator=(const DriverLibrary&) = delete;

    const DriverApi& api() const { return api_; }

private:
    template <typename T>
    void resolve(T& entry, const char* name);

    std::string path_;
    void* handle_;
    DriverApi api_;
};

// Private copies of the driver library, one per port, in a folder of this run that is removed
// with it. All the driver's state is one global object, so one loaded library serves one port;
// and dlopen hands out the library it has loaded already for the same file (by its path, a link
// to it, or its soname), so each port loads a file of its own.
class LibraryCopies {
public:
    // Makes the folder; throws std::runtime_error.
    explicit LibraryCopies(std::string library);
    ~LibraryCopies();
    LibraryCopies(const LibraryCopies&) = delete;
    LibraryCopies& operator=(const LibraryCopies&) = delete;

    // Copies the library for the port and returns the copy's path.
    std::string copyFor(const std::string& port) const;

private:
    std::string library_;
    std::string folder_;
};

// A file in the directory of the running program: where the driver library and the simulator
// are built.
std::string besideThisProgram(const std::string& name);

}  // namespace refhost

#endif
