#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests and the demo need, if any are
# missing: CMake, Ninja, g++, clang (for ThreadSanitizer), Qt 5 development files, GoogleTest,
# Google Benchmark. Packages named as arguments are installed too (the benchmarks add their
# peer and their tools). Uses sudo when not run as root.
set -euo pipefail

packages=(cmake ninja-build g++ clang-14 libclang-rt-14-dev qtbase5-dev libgtest-dev libgmock-dev
    libbenchmark-dev "$@")
missing=()
for p in "${packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
    echo "== installing: ${missing[*]}"
    as_root=()
    if ((EUID != 0)); then
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
