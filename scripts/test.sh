#!/usr/bin/env bash
# Installs what the build needs (Debian packages), then builds and runs every test:
#   1. the normal build, warnings as errors, with the export-list and install tests; then its
#      Debian package;
#   2. the same suite under AddressSanitizer and UndefinedBehaviorSanitizer;
#   3. the concurrency tests under ThreadSanitizer;
#   4. the panel's build: armhf, cross-compiled, every test under qemu (scripts/cross-test.sh),
#      and its Debian package.
# Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

install_missing cmake ninja-build g++ clang-14 libclang-rt-14-dev qtbase5-dev libgtest-dev \
    libgmock-dev libbenchmark-dev pkg-config

jobs=$(nproc)

run_suite() {
    local name=$1
    shift
    echo "== $name: configure and build"
    cmake -S . -B "build/$name" -G Ninja -DKORVAN_WERROR=ON "$@" >/dev/null
    cmake --build "build/$name" -j "$jobs"
    echo "== $name: test"
    # Serial: two tests share the fixed debug log file.
    ctest --test-dir "build/$name" --output-on-failure
}

run_suite default -DCMAKE_BUILD_TYPE=RelWithDebInfo
make_package build/default

ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite asan-ubsan -DCMAKE_BUILD_TYPE=Debug -DKORVAN_BUILD_BENCH=OFF \
    -DKORVAN_SANITIZE=address,undefined

# ThreadSanitizer needs clang's runtime; it runs the tests that exercise threads.
echo "== tsan: configure and build"
CC=clang-14 CXX=clang++-14 cmake -S . -B build/tsan -G Ninja -DKORVAN_WERROR=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_BUILD_BENCH=OFF -DKORVAN_SANITIZE=thread >/dev/null
cmake --build build/tsan -j "$jobs"
echo "== tsan: test"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build/tsan --output-on-failure -R Concurrency

scripts/cross-test.sh armhf
