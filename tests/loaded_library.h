// The built library loaded the way a host loads it: dlopen, then dlsym by exported name.
// Plain names for the extern "C" entry points, mangled names for the C++ ones.
#ifndef KORVAN_TESTS_LOADED_LIBRARY_H
#define KORVAN_TESTS_LOADED_LIBRARY_H

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

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
    static std::string error() {
        const char* e = dlerror();
        return e != nullptr ? e : "";
    }

    void* symbol(const char* name) const {
        return handle_ != nullptr ? dlsym(handle_, name) : nullptr;
    }

    // The symbol as a typed function or object pointer; fails the test when it is missing.
    template <typename T>
    T get(const char* name) const {
        void* p = symbol(name);
        EXPECT_NE(p, nullptr) << "missing export " << name;
        return reinterpret_cast<T>(p);
    }

private:
    void* handle_;
};

#endif
