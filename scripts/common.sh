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

# Builds the Debian package of a configured build tree and lists what it holds.
make_package() {
    local build_dir=$1
    echo "== $build_dir: package"
    (cd "$build_dir" && cpack -G DEB >/dev/null)
    local deb
    for deb in "$build_dir"/*.deb; do
        echo "$deb"
        dpkg-deb --contents "$deb" | awk '$6 !~ /\/$/ {print "    " $6, $7, $8}'
    done
}
