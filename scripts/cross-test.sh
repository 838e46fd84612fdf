#!/usr/bin/env bash
# Cross-builds the library, its tests and tools for an ARM Linux panel and runs the test suite
# under qemu user emulation, then builds the Debian package for that architecture.
#
#   scripts/cross-test.sh armhf     32-bit ARM, hard-float (arm-linux-gnueabihf): the panel
#   scripts/cross-test.sh aarch64   64-bit ARM (aarch64-linux-gnu)
#
# The target's libraries come from a sysroot made of Debian's own packages for that
# architecture, fetched with a private apt configuration and unpacked into
# build/sysroot-<target>; it is made once and reused while its package list is unchanged.
# The build tree is build/cross-<target>.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

target=${1:-}
case "$target" in
armhf) triplet=arm-linux-gnueabihf deb_arch=armhf qemu=qemu-arm-static ;;
aarch64) triplet=aarch64-linux-gnu deb_arch=arm64 qemu=qemu-aarch64-static ;;
*)
    echo "usage: $0 armhf|aarch64" >&2
    exit 2
    ;;
esac

# qtbase5-dev-tools: the host's moc and rcc, linked into the sysroot (below).
install_missing cmake ninja-build "g++-$triplet" qemu-user-static qtbase5-dev-tools

sysroot=$PWD/build/sysroot-$target
apt_dir=$PWD/build/apt-$target
# Resolved with their dependencies: what the library, the tests and their runtime need.
packages=(libc6-dev libstdc++-12-dev libqt5core5a libgtest-dev)
# Taken alone: Qt's headers, CMake files and mkspecs, without Qt's other modules and tools.
alone=(qtbase5-dev qt5-qmake)
# The security archive is left out: its armhf index does not download from this machine's
# mirror, and the point release holds the same Qt as the host.
suites=(bookworm bookworm-updates)
stamp=$sysroot/.korvan-packages
wanted="${packages[*]} / ${alone[*]} / ${suites[*]}"

make_sysroot() {
    echo "== sysroot for $deb_arch: $sysroot"
    rm -rf "$sysroot" "$apt_dir"
    mkdir -p "$apt_dir"/{lists/partial,archives/partial,sources.list.d,preferences.d} "$sysroot"
    : >"$apt_dir/status"
    local suite
    for suite in "${suites[@]}"; do
        echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]" \
            "http://deb.debian.org/debian $suite main"
    done >"$apt_dir/sources.list"
    # Everything apt reads or writes is in $apt_dir; nothing touches the host's package state.
    local apt_options=(
        -o "APT::Architecture=$deb_arch" -o "APT::Architectures::=$deb_arch"
        -o "Dir::Etc::SourceList=$apt_dir/sources.list"
        -o "Dir::Etc::SourceParts=$apt_dir/sources.list.d"
        -o "Dir::Etc::Preferences=$apt_dir/preferences"
        -o "Dir::Etc::PreferencesParts=$apt_dir/preferences.d"
        -o "Dir::State=$apt_dir" -o "Dir::State::Lists=$apt_dir/lists"
        -o "Dir::State::status=$apt_dir/status"
        -o "Dir::Cache=$apt_dir" -o "Dir::Cache::Archives=$apt_dir/archives"
        -o "APT::Sandbox::User=$(id -un)"
    )
    apt-get -qq "${apt_options[@]}" update
    apt-get -qq "${apt_options[@]}" install --download-only --no-install-recommends -y \
        "${packages[@]}" >/dev/null
    (cd "$apt_dir/archives" && apt-get -qq "${apt_options[@]}" download "${alone[@]}")

    local deb
    for deb in "$apt_dir"/archives/*.deb; do
        dpkg-deb -x "$deb" "$sysroot"
    done
    # Absolute links (libm.so -> /lib/...) would point into the host; keep them in the sysroot.
    local link
    while IFS= read -r -d '' link; do
        ln -sfr "$sysroot$(readlink "$link")" "$link"
    done < <(find "$sysroot" -type l -lname '/*' -print0)
    # Qt's CMake files want its code generators here, and the target's would not run: use the
    # host's, of the same Qt release.
    mkdir -p "$sysroot/usr/lib/qt5/bin"
    local tool
    for tool in moc rcc; do
        ln -sfn "/usr/lib/qt5/bin/$tool" "$sysroot/usr/lib/qt5/bin/$tool"
    done
    echo "$wanted" >"$stamp"
}

started=$SECONDS
if [[ -f $stamp && $(cat "$stamp") == "$wanted" ]]; then
    echo "== sysroot for $deb_arch: reusing $sysroot"
else
    make_sysroot
    echo "== sysroot ready in $((SECONDS - started)) s"
fi

build_dir=build/cross-$target
echo "== cross-$target: configure and build"
started=$SECONDS
# Optimised as the native build, but without debug information: it takes the cross compiler a
# third of its time, and the package is stripped anyway.
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="cmake/$triplet.cmake" \
    -DCMAKE_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DKORVAN_WERROR=ON -DKORVAN_BUILD_BENCH=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
echo "== cross-$target: built in $((SECONDS - started)) s; test under $qemu"
started=$SECONDS
# Serial: two tests share the fixed debug log file.
ctest --test-dir "$build_dir" --output-on-failure
echo "== cross-$target: tests ran in $((SECONDS - started)) s"
make_package "$build_dir"
