// The library loaded and unloaded a hundred times with a little of everything in between. Each
// load must start from a freshly constructed driver, and the ASan suite's LeakSanitizer checks
// that unloading releases what the driver held.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "korvan_qa_qb_series_port.h"
#include "plc_model.h"

namespace {

// One load of the library, unloaded when it goes out of scope.
class LoadedLibrary {
public:
    LoadedLibrary() : handle_(dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL)) {}
    ~LoadedLibrary() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    bool loaded() const { return handle_ != nullptr; }

    template <typename T>
    T get(const char* name) const {
        void* p = dlsym(handle_, name);
        EXPECT_NE(p, nullptr) << "missing export " << name;
        return reinterpret_cast<T>(p);
    }

private:
    void* handle_;
};

}  // namespace

TEST(LoadUnload, HundredCyclesWithWorkInBetween) {
    plcsim::PlcModel plc({1});
    for (int cycle = 0; cycle < 100; ++cycle) {
        LoadedLibrary lib;
        ASSERT_TRUE(lib.loaded()) << dlerror();
        auto setComInfo = lib.get<void (*)(ComInfo*)>("SetComInfo");
        auto switchStation = lib.get<void (*)(int, int)>("EnCommStation");
        auto switchedOff = lib.get<int (*)(int)>("_Z16Ethernetcontainsi");
        auto rebuild = lib.get<int (*)(QList<HOSTVAR>*)>("ReCreatReadVarList");
        auto next = lib.get<Protocol* (*)()>("ComCommunication");
        auto dataCom = lib.get<RW_VAR* (*)(QByteArray*, int)>("DataCom");
        auto read =
            lib.get<int (*)(QString, int, QString, int, QByteArray*, int)>("GetRegisterData");
        auto write = lib.get<int (*)(QString, int, QString, int, QByteArray*, int, int, int)>(
            "SetRegisterData");

        EXPECT_EQ(switchedOff(3), 0) << "cycle " << cycle;  // nothing left from the last load
        QByteArray value;
        EXPECT_EQ(read(QString(), 14, QString::fromLatin1("7"), 1, &value, 1), 1);
        EXPECT_EQ(value, QByteArray(2, '\0')) << "cycle " << cycle;

        ComInfo info;
        info.maxUnits = 10;
        info.defaultStation = 1;
        info.portId = 1;
        info.writeMode = 2;
        setComInfo(&info);
        HOSTVAR tag;
        tag.area = 14;
        tag.addressText = QString::fromLatin1("0");
        tag.count = 8;
        QList<HOSTVAR> tags{tag};
        rebuild(&tags);
        value = QByteArray(2, static_cast<char>(cycle));
        write(QString(), 14, QString::fromLatin1("7"), 1, &value, 1, 1, cycle);
        switchStation(3, 0);
        for (int round = 0; round < 3; ++round) {
            Protocol* p = next();
            ASSERT_NE(p, nullptr);
            const plcsim::Reply r = plc.handle(plcsim::Bytes(p->frame.begin(), p->frame.end()));
            QByteArray reply(reinterpret_cast<const char*>(r.bytes.data()),
                             static_cast<int>(r.bytes.size()));
            EXPECT_EQ(dataCom(&reply, reply.size())->result, 1);
        }
        EXPECT_EQ(plc.word(1, 0x80, 7), (cycle & 0xFF) * 0x101);
        setComInfo(nullptr);
    }
}

// Unloading really releases the library: nothing else in this process holds it.
TEST(LoadUnload, UnloadingReleasesTheLibrary) {
    { LoadedLibrary lib; }
    EXPECT_EQ(dlopen(KORVAN_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
}
