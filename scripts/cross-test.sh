#!/usr/bin/env bash
# Cross-builds the library, its tests and tools for an ARM Linux panel and runs the test suite
# under qemu user emulation, then builds the Debian package for that architecture.
#
#   scripts/cross-test.sh armhf     32-bit ARM, hard-float (arm-linux-gnueabihf): the panel
#   scripts/cross-test.sh aarch64   64-bit ARM (aarch64-linux-gnu)
#
# The target's libraries come from a sysroot made of Debian's own packages for that
# architecture, fetched with a private apt configuration and unpacked into
# build/sysroot-<target>; it is made once and reused while its package list is unchanged (see
# cross_sysroot in scripts/common.sh). The build tree is build/cross-<target>.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

if ! cross_target "${1:-}"; then
    echo "usage: $0 armhf|aarch64" >&2
    exit 2
fi
cross_sysroot

build_dir=build/cross-$cross
echo "== cross-$cross: configure and build"
started=$SECONDS
cross_configure "$build_dir" -DKORVAN_WERROR=ON -DKORVAN_BUILD_BENCH=OFF
cmake --build "$build_dir" -j "$(nproc)"
echo "== cross-$cross: built in $((SECONDS - started)) s; test under $qemu"
started=$SECONDS
# Serial: two tests share the fixed debug log file.
ctest --test-dir "$build_dir" --output-on-failure
echo "== cross-$cross: tests ran in $((SECONDS - started)) s"
make_package "$build_dir"
