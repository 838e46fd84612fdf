#!/usr/bin/env bash
# The reference host and the simulator of a cross build, both under qemu user emulation: the
# simulator on a new pseudo-terminal, the host loading the build's driver library and polling it
# for two scans. Fails unless the host read the simulator's values.
#   scripts/emulated-exchange.sh BUILD_DIR QEMU SYSROOT
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=$1 qemu=$2 sysroot=$3
run() { "$qemu" -L "$sysroot" "$@"; }

work=$(mktemp -d)
sim_pid=
cleanup() {
    [[ -z $sim_pid ]] || kill "$sim_pid" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# Started directly, not through run(), so that $! is the emulator itself and the cleanup's kill
# ends it; its output goes to files, so that it holds no pipe of the caller's open.
"$qemu" -L "$sysroot" "$build/korvan_plc_sim" --pty --stations 1 --fill ramp >"$work/sim.out" \
    2>"$work/sim.err" &
sim_pid=$!
device=$(simulator_endpoint "$work/sim.out")
# Every word holds its own address: words 100 and 101 read as 100 and 101.
run "$build/korvan_ref_host" --device "$device" --turnaround 1000 --scans 2 --format csv \
    14:100:2 >"$work/host.out"
cat "$work/host.out"
grep -q ',100 101,ok$' "$work/host.out" || {
    echo "emulated exchange: the host did not read words 100 and 101" >&2
    exit 1
}
echo "== emulated exchange: host and driver under $qemu read the simulator"
