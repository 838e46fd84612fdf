# Shared part of the ARM Linux toolchain files: Debian's cross compilers for KORVAN_TRIPLET,
# the target's libraries from a sysroot of Debian packages (scripts/cross-test.sh makes it),
# and the target's programs run under qemu user emulation, so that CTest runs the tests.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KORVAN_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KORVAN_TRIPLET}-g++)
# GCC notes that the ARM parameter passing of some types changed in GCC 7.1; everything here is
# built by one compiler, so the note says nothing about this code.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT CMAKE_SYSROOT)
    set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${KORVAN_TARGET})
endif()
# Normalised: CMake re-roots package paths that do not start with the sysroot's exact text, and
# Qt's CMake files would then not find each other.
get_filename_component(CMAKE_SYSROOT ${CMAKE_SYSROOT} ABSOLUTE)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
    message(FATAL_ERROR "no sysroot at ${CMAKE_SYSROOT}: run scripts/cross-test.sh ${KORVAN_TARGET}")
endif()

# pkg-config (the host's program) reads the target's .pc files only, and prefixes their paths
# with the sysroot; otherwise it would hand the host's libraries to the cross linker.
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_SYSROOT}/usr/lib/${KORVAN_TRIPLET}/pkgconfig:\
${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# Programs (moc, the emulator) are the host's; libraries, headers and packages the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -L makes qemu take the dynamic loader and every shared library from the sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR ${KORVAN_QEMU} -L ${CMAKE_SYSROOT})
