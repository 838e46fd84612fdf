#!/usr/bin/env bash
# Cross-builds the library, its tests and tools for an ARM Linux panel and runs the test suite
# under qemu user emulation, then packages the build.
#
#   scripts/cross-test.sh armhf                     32-bit ARM, hard-float: the panel's machine,
#                                                   against Debian's Qt 5
#   scripts/cross-test.sh armhf --qt4 PREFIX        the same against the Qt 4 in PREFIX (built
#                                                   for armhf): the panel's whole configuration
#   scripts/cross-test.sh aarch64                   64-bit ARM (aarch64-linux-gnu), Qt 5
#
# The target's libraries come from a sysroot made of Debian's own packages for that
# architecture, fetched with a private apt configuration and unpacked into
# build/sysroot-<target>; it is made once and reused while its package list is unchanged (see
# cross_sysroot in scripts/common.sh). A Qt 4 build takes only the C++ runtime and GoogleTest
# from it. The build tree is build/cross-<target>, or build/cross-<target>-qt4.
#
# For armhf the reference host then runs under qemu, loading the cross-built library, against
# the cross-built simulator on a pseudo-terminal: a panel's host and driver doing exchanges.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

usage() {
    echo "usage: $0 armhf|aarch64 [--qt4 PREFIX]" >&2
    exit 2
}
cross_target "${1:-}" || usage
qt_options=()
build_dir=build/cross-$cross
if (($# == 3)) && [[ $2 == --qt4 ]]; then
    qt_options=(-DKORVAN_QT_MAJOR=4 "-DKORVAN_QT4_PREFIX=$(cd "$3" && pwd)")
    build_dir+=-qt4
elif (($# != 1)); then
    usage
fi
cross_sysroot

name=${build_dir#build/}
echo "== $name: configure and build"
started=$SECONDS
cross_configure "$build_dir" -DKORVAN_WERROR=ON -DKORVAN_BUILD_BENCH=OFF "${qt_options[@]}"
cmake --build "$build_dir" -j "$(nproc)"
echo "== $name: built in $((SECONDS - started)) s; test under $qemu"
started=$SECONDS
ctest --test-dir "$build_dir" -j "$(nproc)" --output-on-failure
echo "== $name: tests ran in $((SECONDS - started)) s"
if [[ $cross == armhf ]]; then
    scripts/emulated-exchange.sh "$build_dir" "$qemu" "$sysroot"
fi
make_package "$build_dir"
