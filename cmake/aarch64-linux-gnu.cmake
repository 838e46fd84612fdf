# 64-bit ARM Linux (Debian's arm64).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KORVAN_TRIPLET aarch64-linux-gnu)
set(KORVAN_TARGET aarch64)
set(KORVAN_QEMU qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
