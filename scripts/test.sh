#!/usr/bin/env bash
# Installs what the build needs (Debian packages), then builds and runs every test:
#   1. the normal build (Qt 5), warnings as errors, with the export-list and install tests; then
#      its Debian package, and a smoke run of the benchmarks;
#   2. the same suite under AddressSanitizer and UndefinedBehaviorSanitizer;
#   3. the concurrency tests under ThreadSanitizer;
#   4. the panel's Qt, natively: QtCore 4.8.7 built from source, the whole suite against it, and
#      its .tar.gz package;
#   5. the panel's whole configuration: armhf against that Qt 4, cross-compiled, every library
#      test under qemu, the reference host and the simulator exchanging under qemu, and its
#      package (scripts/cross-test.sh);
#   6. a short run of every fuzz target.
# Steps 4 and 5 need the Qt 4 source script (../shared/qt4/build-qtcore4.sh, or the copy that
# KORVAN_QT4_SOURCE names); without it they say so and are skipped.
# Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

scripts/install-deps.sh

jobs=$(nproc)
summary=$(mktemp)
trap 'rm -f "$summary"' EXIT

run_suite() {
    local name=$1
    shift
    echo "== $name: configure and build"
    cmake -S . -B "build/$name" -G Ninja -DKORVAN_WERROR=ON "$@" >/dev/null
    cmake --build "build/$name" -j "$jobs"
    echo "== $name: test"
    ctest --test-dir "build/$name" -j "$jobs" --output-on-failure | tee -a "$summary"
}

# QtCore 4.8.7 for native or armhf, built once into build/qt4-<target> and kept while the
# script and its source are unchanged.
build_qt4() {
    echo "== qt4-$1: QtCore 4.8.7"
    bash "$qt4_script" "$1" "build/qt4-$1"
}

run_suite default -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_BUILD_BENCH=ON
make_package build/default

# Every benchmark once and briefly, in the tree just built: the whole measuring chain must run.
# The full set is bench/run.sh, by hand.
echo "== bench: smoke"
bench/run.sh --smoke build/default

ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite asan-ubsan -DCMAKE_BUILD_TYPE=Debug -DKORVAN_BUILD_BENCH=OFF \
    -DKORVAN_SANITIZE=address,undefined

# ThreadSanitizer needs clang's runtime; it runs the tests that exercise threads.
echo "== tsan: configure and build"
CC=clang-14 CXX=clang++-14 cmake -S . -B build/tsan -G Ninja -DKORVAN_WERROR=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_BUILD_BENCH=OFF -DKORVAN_SANITIZE=thread >/dev/null
cmake --build build/tsan -j "$jobs"
echo "== tsan: test"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build/tsan --output-on-failure -R Concurrency |
    tee -a "$summary"

# The panel's Qt. The Qt 5 armhf build is not repeated here (the panel runs Qt 4; it stays
# scripts/cross-test.sh armhf): what it would check beyond the Qt 4 armhf step is Debian's Qt.
qt4_script=${KORVAN_QT4_SOURCE:-../shared/qt4/build-qtcore4.sh}
if [[ -f $qt4_script ]]; then
    install_missing make perl xz-utils g++-arm-linux-gnueabihf
    build_qt4 native
    # No build type, as the build by hand in docs/testing.md: the export list must hold unoptimised
    # too.
    run_suite qt4 -DCMAKE_BUILD_TYPE= -DKORVAN_BUILD_BENCH=OFF \
        -DKORVAN_QT_MAJOR=4 -DKORVAN_QT4_PREFIX="$PWD/build/qt4-native"
    make_package build/qt4
    build_qt4 armhf
    scripts/cross-test.sh armhf --qt4 build/qt4-armhf | tee -a "$summary"
else
    echo "== qt4: skipped: no Qt 4 source script at $qt4_script (set KORVAN_QT4_SOURCE to one)"
fi

# A short run of every fuzz target from its seed corpus (new inputs go to a scratch folder).
echo "== fuzz: configure and build"
CC=clang-14 CXX=clang++-14 cmake -S . -B build/fuzz -G Ninja -DKORVAN_WERROR=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_FUZZ=ON -DKORVAN_SANITIZE=address,undefined \
    -DKORVAN_BUILD_TESTS=OFF -DKORVAN_BUILD_BENCH=OFF >/dev/null
cmake --build build/fuzz -j "$jobs"
for target in fuzz_reply fuzz_address fuzz_rebuild fuzz_session fuzz_line_tap; do
    echo "== fuzz: $target"
    scratch=$(mktemp -d)
    if ! "build/fuzz/fuzz/$target" -max_total_time="${FUZZ_SECONDS:-15}" -print_final_stats=1 \
        -artifact_prefix="build/fuzz/$target-" "$scratch" "fuzz/corpus/$target" \
        >"build/fuzz/$target.log" 2>&1; then
        tail -n 40 "build/fuzz/$target.log"
        rm -rf "$scratch"
        echo "fuzz target $target found a problem; the input is in build/fuzz/"
        exit 1
    fi
    grep -E 'stat::number_of_executed_units' "build/fuzz/$target.log" || true
    rm -rf "$scratch"
done

# One closing line over every suite run above.
awk '/tests passed, .* tests failed out of/ {total += $NF; failed += $4}
     END {printf "summary: %d passed, %d failed\n", total - failed, failed}' "$summary"
