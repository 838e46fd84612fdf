#!/usr/bin/env bash
# The one-copy stress under ThreadSanitizer for a long run: the polling thread and four host
# threads (writing, registering, rebuilding and switching stations, reading the image) against
# one loaded copy of the driver. It installs what is missing (as scripts/test.sh), builds the
# ThreadSanitizer tree (build/tsan, as scripts/test.sh does) and runs the stress for SECONDS
# (60); any race report, a broken invariant or a stalled thread fails it.
#
#   scripts/stress.sh [SECONDS]
#
# The test suites run the same test briefly: 5 s under ThreadSanitizer, 1 s otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
[[ $seconds =~ ^[0-9]+$ && $seconds -gt 0 ]] || { echo "usage: $0 [SECONDS]" >&2; exit 2; }

scripts/install-deps.sh

echo "== tsan: configure and build"
CC=clang-14 CXX=clang++-14 cmake -S . -B build/tsan -G Ninja -DKORVAN_WERROR=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_BUILD_BENCH=OFF -DKORVAN_SANITIZE=thread >/dev/null
cmake --build build/tsan -j "$(nproc)" --target korvan_host_abi_test
echo "== stress: ${seconds} s"
# A deadlock would stop the run: give up a minute after the stress should have ended.
KORVAN_STRESS_SECONDS=$seconds TSAN_OPTIONS=halt_on_error=1 timeout $((seconds + 60)) \
    build/tsan/tests/korvan_host_abi_test --gtest_filter='ConcurrencyStress.*'
