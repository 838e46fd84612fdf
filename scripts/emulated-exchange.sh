#!/usr/bin/env bash
# The reference host and the simulator of a cross build, both under qemu user emulation: the
# simulator on a new pseudo-terminal, the host loading the build's driver library and polling it
# for two scans. Fails unless the host read the simulator's values.
#   scripts/emulated-exchange.sh BUILD_DIR QEMU SYSROOT
set -euo pipefail
build=$1 qemu=$2 sysroot=$3
out=$(mktemp)
trap 'rm -f "$out"' EXIT

# Every word holds its own address: words 100 and 101 read as 100 and 101.
"$(dirname "$0")/with-simulator.sh" --emulator "$qemu -L $sysroot" \
    "$build/korvan_plc_sim" --pty --stations 1 --fill ramp -- \
    "$build/korvan_ref_host" --device @ENDPOINT@ --turnaround 1000 --scans 2 --format csv \
    14:100:2 >"$out"
cat "$out"
grep -q ',100 101,ok$' "$out" || {
    echo "emulated exchange: the host did not read words 100 and 101" >&2
    exit 1
}
echo "== emulated exchange: host and driver under $qemu read the simulator"
