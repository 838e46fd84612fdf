#!/usr/bin/env bash
# Runs the example panel host for three scans against the simulator, over a pseudo-terminal or
# TCP, and checks what it printed: the PLC's values in every scan, the write done before the
# second scan, and the written value read back from the PLC in the later ones.
#   check_against_simulator.sh Pty|Tcp [--emulator "COMMAND WORDS"] SIMULATOR HOST
set -euo pipefail
transport=$1
shift
emulator=()
if [[ $1 == --emulator ]]; then
    emulator=(--emulator "$2")
    shift 2
fi
simulator=$1 host=$2
case $transport in
Pty) line=(--pty) host_line=(--device @ENDPOINT@) ;;
Tcp) line=(--tcp 127.0.0.1:0) host_line=(--tcp @ENDPOINT@) ;;
*) exit 2 ;;
esac

# Every word holds its own address, but word 100 counts up every 100 ms. Word 110 is 0x6E, bits
# 0-3 0111; the 1234 written is 0x4D2, bits 0-3 0100.
out=$(bash "$(dirname "$0")/../../scripts/with-simulator.sh" "${emulator[@]}" "$simulator" \
    "${line[@]}" --fill ramp --counter 14:100 -- \
    "$host" "${host_line[@]}" --scans 3 --write setpoint=1234)
echo "$out"
expected="scan 1: counter=N setpoint=110 flags=0111 ramp=300,301
write setpoint=1234 done
scan 2: counter=N setpoint=1234 flags=0100 ramp=300,301
scan 3: counter=N setpoint=1234 flags=0100 ramp=300,301"
[[ $(sed 's/counter=[0-9]*/counter=N/' <<<"$out") == "$expected" ]] || {
    echo "panel host check: expected (N: any number)"$'\n'"$expected" >&2
    exit 1
}
# Scans start 200 ms apart at least: the counter moved between the first and the last.
[[ $(grep -o 'counter=[0-9]*' <<<"$out" | sed -n '1p;3p' | uniq | wc -l) == 2 ]] || {
    echo "panel host check: the counter did not move between scans 1 and 3" >&2
    exit 1
}
