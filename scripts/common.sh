# shellcheck shell=bash
# Helpers shared by the scripts in this folder; sourced, not run.

# Installs the Debian packages given that are not installed yet (through sudo when not root).
install_missing() {
    local missing=() p
    for p in "$@"; do
        dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
    done
    if ((${#missing[@]})); then
        echo "== installing: ${missing[*]}"
        local as_root=()
        ((EUID == 0)) || as_root=(sudo)
        "${as_root[@]}" apt-get update -qq
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

# Packages a configured build tree and lists what the package holds: a Debian package for a
# Qt 5 build, a .tar.gz of the installed tree for a Qt 4 build.
make_package() {
    local build_dir=$1
    echo "== $build_dir: package"
    rm -f "$build_dir"/*.deb "$build_dir"/*.tar.gz
    (cd "$build_dir" && cpack >/dev/null)
    local package
    for package in "$build_dir"/*.deb "$build_dir"/*.tar.gz; do
        [[ -e $package ]] || continue
        echo "$package"
        if [[ $package == *.deb ]]; then
            dpkg-deb --contents "$package" | awk '$6 !~ /\/$/ {print "    " $6, $7, $8}'
        else
            tar -tvzf "$package" | awk '$6 !~ /\/$/ {print "    " $6, $7, $8}'
        fi
    done
}

# The cross builds for an ARM Linux panel (scripts/cross-test.sh, bench/armhf_memory.sh).
#
# cross_target TARGET   armhf (32-bit, hard-float: the panel) or aarch64; sets triplet, deb_arch,
#                       qemu, sysroot and apt_dir. Returns non-zero for any other name.
# shellcheck disable=SC2034 # the variables are for the callers
cross_target() {
    cross=$1
    case "$cross" in
    armhf) triplet=arm-linux-gnueabihf deb_arch=armhf qemu=qemu-arm-static ;;
    aarch64) triplet=aarch64-linux-gnu deb_arch=arm64 qemu=qemu-aarch64-static ;;
    *) return 2 ;;
    esac
    sysroot=$PWD/build/sysroot-$cross
    apt_dir=$PWD/build/apt-$cross
}

# Installs the cross compiler and qemu, and makes the target's sysroot: Debian's own packages for
# that architecture, fetched with a private apt configuration and unpacked into $sysroot. It is
# made once and reused while its package list is unchanged.
cross_sysroot() {
    # qtbase5-dev-tools: the host's moc and rcc, linked into the sysroot (below).
    install_missing cmake ninja-build "g++-$triplet" qemu-user-static qtbase5-dev-tools

    # Resolved with their dependencies: what the library, the tests, the tools (libpcap, for
    # their captures; nlohmann-json, for the host's JSON lines) and their runtime need.
    local packages=(libc6-dev libstdc++-12-dev libqt5core5a libgtest-dev libpcap0.8-dev
        nlohmann-json3-dev)
    # Taken alone: Qt's headers, CMake files and mkspecs, without Qt's other modules and tools.
    local alone=(qtbase5-dev qt5-qmake)
    # The security archive is left out: its armhf index does not download from this machine's
    # mirror, and the point release holds the same Qt as the host.
    local suites=(bookworm bookworm-updates)
    local stamp=$sysroot/.korvan-packages
    local wanted="${packages[*]} / ${alone[*]} / ${suites[*]}"
    if [[ -f $stamp && $(cat "$stamp") == "$wanted" ]]; then
        echo "== sysroot for $deb_arch: reusing $sysroot"
        return
    fi

    local started=$SECONDS
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
    # Written last: a sysroot left half-made by a failure is made again next time.
    echo "$wanted" >"$stamp"
    echo "== sysroot ready in $((SECONDS - started)) s"
}

# Configures a cross build tree against $sysroot; the arguments after the folder go to CMake.
# Optimised as the native build, but without debug information: it takes the cross compiler a
# third of its time, and the package is stripped anyway.
cross_configure() {
    local build_dir=$1
    shift
    cmake -S . -B "$build_dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="cmake/$triplet.cmake" \
        -DCMAKE_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" "$@" >/dev/null
}

# The endpoint a simulator started in the background prints on its first line
# ("pty /dev/pts/3", "tcp 127.0.0.1:5020") into FILE, once it is there (at most 10 s).
simulator_endpoint() {
    local file=$1 _ endpoint
    for _ in $(seq 100); do
        [[ -s $file ]] && break
        sleep 0.1
    done
    read -r _ endpoint <"$file"
    echo "$endpoint"
}
