# shellcheck shell=bash
# Helpers shared by the scripts in this folder; sourced, not run.

# Installs the Debian packages given that are not installed yet.
install_missing() {
    local missing=() p
    for p in "$@"; do
        dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
    done
    if ((${#missing[@]})); then
        echo "== installing: ${missing[*]}"
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

