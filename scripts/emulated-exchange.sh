#!/usr/bin/env bash
# The reference host and the simulator of a cross build, both under qemu user emulation: the
# simulator on a new pseudo-terminal, the host loading the build's driver library and polling it
# for two scans. Fails unless the host read the simulator's values.
#   scripts/emulated-exchange.sh BUILD_DIR QEMU SYSROOT
set -euo pipefail
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

run "$build/korvan_plc_sim" --pty --stations 1 --fill ramp >"$work/sim.out" &
sim_pid=$!
for _ in $(seq 100); do
    [[ -s $work/sim.out ]] && break
    sleep 0.1
done
read -r _ device <"$work/sim.out"
# Every word holds its own address: words 100 and 101 read as 100 and 101.
run "$build/korvan_ref_host" --device "$device" --turnaround 1000 --scans 2 --format csv \
    14:100:2 >"$work/host.out"
cat "$work/host.out"
grep -q ',100 101,ok$' "$work/host.out" || {
    echo "emulated exchange: the host did not read words 100 and 101" >&2
    exit 1
}
echo "== emulated exchange: host and driver under $qemu read the simulator"
