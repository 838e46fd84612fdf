#!/usr/bin/env bash
# Measures the driver's memory on the panel's own architecture: builds korvan_memory_use for
# 32-bit ARM (armhf) against the sysroot of scripts/cross-test.sh, in build/cross-armhf-bench,
# and runs it under qemu user emulation. The heap there is the target's glibc, with its 32-bit
# pointers and chunk headers, so the bytes per word and per entry are the panel's.
#
#   bench/armhf_memory.sh VARIABLES   prints korvan_memory_use's "key value" lines; the build's
#                                     output goes to stderr. On failure the last line on stderr
#                                     says which step failed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

variables=$1
step=
trap '(($? == 0)) || echo "armhf: $step failed" >&2' EXIT

step="installing the cross tools or fetching the sysroot"
cross_target armhf
cross_sysroot >&2

step="the cross build"
build_dir=build/cross-armhf-bench
started=$SECONDS
# A tree of its own: the test tree (build/cross-armhf) is built without the benchmarks, and this
# one builds only the program needed here.
cross_configure "$build_dir" -DKORVAN_BUILD_TESTS=OFF -DKORVAN_BUILD_BENCH=ON >&2
cmake --build "$build_dir" -j "$(nproc)" --target korvan_memory_use >&2
echo "== cross-armhf-bench: built in $((SECONDS - started)) s" >&2

step="the run under $qemu"
"$qemu" -L "$sysroot" "$build_dir/bench/korvan_memory_use" "$variables"
