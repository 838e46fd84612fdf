# The panel: 32-bit ARM Linux, hard-float (Debian's armhf).
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KORVAN_TRIPLET arm-linux-gnueabihf)
set(KORVAN_TARGET armhf)
set(KORVAN_QEMU qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
