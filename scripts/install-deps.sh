#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests and the demo need, if any are
# missing: CMake, Ninja, g++, clang (for ThreadSanitizer and fuzzing), Qt 5 development files,
# GoogleTest, Google Benchmark, pkg-config, nlohmann-json (the end-to-end tests read the reference
# host's JSON lines with it), libpcap (both tools write captures with it) and tshark (the tests
# decode those captures with the Lua dissector). Packages named as arguments are installed too
# (the benchmarks add their peer and their tools).
set -euo pipefail
source "$(dirname "$0")/common.sh"

install_missing cmake ninja-build g++ clang-14 libclang-rt-14-dev qtbase5-dev libgtest-dev \
    libgmock-dev libbenchmark-dev pkg-config nlohmann-json3-dev libpcap-dev tshark "$@"
