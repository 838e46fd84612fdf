#!/usr/bin/env bash
# Runs a host program against a PLC simulator it starts for the host's run, and stops the
# simulator afterwards. The simulator's endpoint (a pseudo-terminal's path, or HOST:PORT) replaces
# every @ENDPOINT@ in the host's arguments. Exits with the host's status.
#
#   scripts/with-simulator.sh [--emulator "COMMAND WORDS"] SIMULATOR [OPTIONS...] -- HOST [ARGS...]
#
# --emulator runs both programs through it: "qemu-arm-static -L SYSROOT" for a cross build.
set -euo pipefail
source "$(dirname "$0")/common.sh"

emulator=()
if [[ ${1:-} == --emulator ]]; then
    read -r -a emulator <<<"$2"
    shift 2
fi
simulator=()
while (($#)) && [[ $1 != -- ]]; do
    simulator+=("$1")
    shift
done
(($# >= 2)) || {
    echo "usage: $0 [--emulator COMMAND] SIMULATOR [OPTIONS...] -- HOST [ARGS...]" >&2
    exit 2
}
shift

work=$(mktemp -d)
sim_pid=
cleanup() {
    [[ -z $sim_pid ]] || kill "$sim_pid" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# Its output goes to files, so that it holds no pipe of the caller's open; $! is the emulator
# itself when there is one, so that the cleanup's kill ends it.
"${emulator[@]}" "${simulator[@]}" >"$work/sim.out" 2>"$work/sim.err" &
sim_pid=$!
endpoint=$(simulator_endpoint "$work/sim.out")
[[ -n $endpoint ]] || {
    echo "with-simulator: the simulator did not start" >&2
    cat "$work/sim.err" >&2
    exit 1
}
host=()
for arg in "$@"; do
    host+=("${arg//@ENDPOINT@/$endpoint}")
done
status=0
"${emulator[@]}" "${host[@]}" || status=$?
exit "$status"
