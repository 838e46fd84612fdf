#!/usr/bin/env bash
# Exchanges per second of each pair of bench/wire/pairs.sh on a pseudo-terminal, in rounds:
# first with the processes placed by the kernel, then with both processes of a pair on one CPU
# (taskset), where the kernel's placement no longer differs between pairs. Within a round each
# pair runs for SECONDS, each going first in turn; ratios are taken within a round (the load of a
# shared machine changes between rounds) and the median over the rounds is reported.
#
#   bench/wire_rates.sh BUILD_DIR WORK_DIR ROUNDS SECONDS   prints "key value" lines
set -euo pipefail

build=$1
work=$2
rounds=$3
seconds=$4
source "$(dirname "$0")/wire/pairs.sh"
trap stop_responder EXIT

rate() {
    pair_commands "$1" "seconds=$seconds"
    start_responder
    "${pin[@]}" "${master[@]/DEVICE/$device}" >"$work/master.out" 2>&1
    stop_responder
    awk -v n="$(exchanges_in "$work/master.out")" -v s="$seconds" 'BEGIN {printf "%.0f\n", n / s}'
}

# Rounds with the processes placed as `pin` says; the figures' keys end in `suffix`.
compare() {
    local suffix=$1 table=$work/rates$1
    : >"$table"
    for round in $(seq "$rounds"); do
        declare -A got=()
        for i in "${!pairs[@]}"; do
            local pair=${pairs[$(((round + i) % ${#pairs[@]}))]}
            got[$pair]=$(rate "$pair")
        done
        echo "${got[ours]} ${got[host]} ${got[peer]} ${got[floor]}" >>"$table"
    done
    for i in "${!pairs[@]}"; do
        local values
        values=$(cut -d' ' -f$((i + 1)) "$table")
        echo "wire.${pairs[$i]}.rate$suffix $(median <<<"$values")"
        echo "wire.${pairs[$i]}.rate_min$suffix $(sort -g <<<"$values" | head -1)"
        echo "wire.${pairs[$i]}.rate_max$suffix $(sort -g <<<"$values" | tail -1)"
    done
    echo "wire.ours_per_peer$suffix $(awk '{print $1 / $3}' "$table" | median)"
    echo "wire.host_per_floor$suffix $(awk '{print $2 / $4}' "$table" | median)"
    echo "wire.ours_per_floor$suffix $(awk '{print $1 / $4}' "$table" | median)"
}

compare ""
pin=(taskset -c "$(($(nproc) - 1))")
compare _one_cpu
echo "wire.rounds $rounds"
echo "wire.seconds $seconds"
