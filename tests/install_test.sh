#!/usr/bin/env bash
# Installs a build tree into a fresh prefix, checks what landed there, and builds and runs a
# tiny host against it both ways an integrator links: the CMake package and pkg-config.
#   install_test.sh <build dir> <scratch dir> <C++ compiler> <CMake generator> <lib dir> \
#       [<Qt 4 prefix>]
# A Qt 4 build names its Qt 4 prefix, whose QtCore.pc pkg-config must find and whose library the
# host must load.
set -euo pipefail
build=$1 scratch=$2 cxx=$3 generator=$4 libdir=$5 qt4=${6:-}
consumer=$(cd "$(dirname "$0")/consumer" && pwd)
prefix=$scratch/prefix
fail() {
    echo "install test: $*" >&2
    exit 1
}

rm -rf "$scratch"
cmake --install "$build" --prefix "$prefix" >/dev/null

# The soname chain: the link name for linkers, the soname for loaders, then the file.
lib=$prefix/$libdir/libkorvan_qa_qb_series_port.so
[[ $(readlink "$lib") == libkorvan_qa_qb_series_port.so.1 ]] || fail "bad link name $lib"
[[ $(readlink "$lib.1") == libkorvan_qa_qb_series_port.so.1.* && -f $lib.1 ]] ||
    fail "bad soname link $lib.1"
[[ -f $prefix/include/korvan_qa_qb_series_port.h ]] || fail "no public header"

echo "== CMake package"
cmake -S "$consumer" -B "$scratch/cmake-host" -G "$generator" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake-host" >/dev/null
"$scratch/cmake-host/korvan_consumer"

echo "== pkg-config"
pc_path=$prefix/$libdir/pkgconfig
rpath=$prefix/$libdir
if [[ -n $qt4 ]]; then
    pc_path+=:$qt4/lib/pkgconfig
    rpath+=:$qt4/lib
    [[ $(PKG_CONFIG_PATH=$pc_path pkg-config --print-requires korvan_qa_qb_series_port) == \
        "QtCore >= 4.8" ]] || fail "the pkg-config file does not require Qt 4's QtCore"
fi
flags=$(PKG_CONFIG_PATH=$pc_path pkg-config --cflags --libs korvan_qa_qb_series_port)
# shellcheck disable=SC2086 # the flags are separate words
"$cxx" -std=c++17 "$consumer/host.cpp" $flags -Wl,-rpath,"$rpath" -o "$scratch/pkg-config-host"
"$scratch/pkg-config-host"
