#!/usr/bin/env bash
# Several ports polled at once by the reference host, each against a simulator of its own on a
# pseudo-terminal, started apart from the host:
#   - 1, 2, 4 and 8 ports polled back to back (2-word reads): the exchanges per second of all
#     ports together, and the host's processor time (user and system) per exchange;
#   - 8 ports whose simulators hold each reply for its line time at 115,200 baud 8N1
#     (--baud-delay), each port reading 300 words in blocks of 100: every port's mean scan time
#     against its line-time minimum, and the host's processor time as a share of one core.
#
#   bench/ports.sh BUILD_DIR WORK_DIR SECONDS   prints "key value" lines
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

build=$1
work=$2
seconds=$3
baud=115200
sims=()
trap 'for pid in "${sims[@]}"; do kill "$pid" 2>/dev/null || true; done' EXIT

# Starts N simulators with the options given; their pseudo-terminals go to $work/devices.
start_simulators() {
    local n=$1 i
    shift
    sims=()
    : >"$work/devices"
    for ((i = 0; i < n; ++i)); do
        "$build/korvan_plc_sim" --pty --fill ramp "$@" >"$work/sim$i.out" 2>/dev/null &
        sims+=($!)
        simulator_endpoint "$work/sim$i.out" >>"$work/devices"
    done
}

stop_simulators() {
    kill "${sims[@]}" 2>/dev/null || true
    wait "${sims[@]}" 2>/dev/null || true
    sims=()
}

# Runs the host over every device of $work/devices with the port options given; its JSON lines
# go to $work/host.json. Each port's statistics carry its polling thread's processor time, so
# the host's start (loading Qt and the driver's copies) is not counted.
run_host() {
    local args=(--format json --seconds "$seconds") i=0 device
    while read -r device; do
        args+=(--port "p$i" --device "$device" "$@")
        i=$((i + 1))
    done <"$work/devices"
    "$build/korvan_ref_host" "${args[@]}" >"$work/host.json" 2>"$work/host.err"
}

# The sum of one statistic over the ports.
total() {
    grep -o "\"$1\":[0-9.]*" "$work/host.json" | cut -d: -f2 | awk '{s += $1} END {print s + 0}'
}

for n in 1 2 4 8; do
    start_simulators "$n"
    run_host 14:0:2
    stop_simulators
    exchanges=$(total exchanges)
    echo "ports.$n.rate $(awk -v e="$exchanges" -v s="$seconds" 'BEGIN {printf "%.0f", e / s}')"
    echo "ports.$n.cpu_us $(awk -v c="$(total cpu_ms)" -v e="$exchanges" \
        'BEGIN {printf "%.1f", c * 1e3 / e}')"
done

# At the line's pace: three 100-word blocks a scan, each a 10-byte request and a 205-byte reply.
start_simulators 8 --baud "$baud" --baud-delay
run_host --baud "$baud" --block-length 100 14:0:300
stop_simulators
line_ms=$(awk -v b="$baud" 'BEGIN {printf "%.3f", 3 * (10 + 205) * 10 * 1000 / b}')
echo "ports.line.baud $baud"
echo "ports.line.min_ms $line_ms"
echo "ports.line.worst_ms $(grep -o '"scan_ms_mean":[0-9.]*' "$work/host.json" | cut -d: -f2 |
    sort -g | tail -1)"
echo "ports.line.exchanges $(total exchanges)"
echo "ports.line.cpu_percent $(awk -v c="$(total cpu_ms)" -v s="$seconds" \
    'BEGIN {printf "%.2f", c / s / 10}')"
