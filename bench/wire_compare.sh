#!/usr/bin/env bash
# The comparison on a pseudo-terminal, four pairs in turn:
#   ours   korvan_ref_host reading 2 words of area 14 from korvan_plc_sim
#   peer   a libmodbus master reading 2 holding registers from a libmodbus slave
#   floor  a master writing a fixed 10-byte request and reading a fixed 9-byte reply, against a
#          responder that answers without looking (no protocol on either side)
#   host   korvan_ref_host against the floor's responder, whose reply is a good one: the host
#          and the driver against the floor with the same other end
# Each round runs every pair for SECONDS, first with the processes placed by the kernel, then
# with both processes of a pair on one CPU (taskset), where they differ only by their own work
# and not by where the scheduler puts them. Rates are exchanges per second; ratios are taken
# within a round (the load of a shared machine changes between rounds) and the median of the
# rounds is reported. Then each master runs EXCHANGES exchanges under callgrind.
#
#   bench/wire_compare.sh BUILD_DIR WORK_DIR ROUNDS SECONDS EXCHANGES   prints "key value" lines
set -euo pipefail

build=$1
work=$2
rounds=$3
seconds=$4
exchanges=$5
here=$(dirname "$0")
wire=$build/bench/wire
variable=14:100:2

responder_pid=
stop_responder() {
    if [[ -n $responder_pid ]]; then
        kill "$responder_pid" 2>/dev/null || true
        wait "$responder_pid" 2>/dev/null || true
        responder_pid=
    fi
}
trap stop_responder EXIT

# Starts a responder and sets `device` to the pseudo-terminal it announces.
start_responder() {
    local announced=$work/responder.out
    rm -f "$announced"
    "${pin[@]}" "$@" >"$announced" 2>"$work/responder.err" &
    responder_pid=$!
    for _ in $(seq 100); do
        [[ -s $announced ]] && break
        sleep 0.05
    done
    read -r _ device <"$announced"
}

# Exchanges per second of one pair for `seconds`.
rate() {
    local pair=$1
    case $pair in
        ours)
            start_responder "$build/korvan_plc_sim" --pty
            "${pin[@]}" "$build/korvan_ref_host" --device "$device" --seconds "$seconds" \
                "$variable" 2>&1 >/dev/null |
                awk -v s="$seconds" '/^statistics:/ {printf "%.0f\n", $2 / s}'
            ;;
        peer)
            start_responder "$wire/korvan_modbus_slave"
            "${pin[@]}" "$wire/korvan_modbus_master" "$device" "seconds=$seconds" |
                awk '{print $6}'
            ;;
        floor)
            start_responder "$wire/korvan_canned_responder"
            "${pin[@]}" "$wire/korvan_canned_master" "$device" "seconds=$seconds" |
                awk '{print $6}'
            ;;
        host)
            start_responder "$wire/korvan_canned_responder"
            "${pin[@]}" "$build/korvan_ref_host" --device "$device" --seconds "$seconds" \
                "$variable" 2>&1 >/dev/null |
                awk -v s="$seconds" '/^statistics:/ {printf "%.0f\n", $2 / s}'
            ;;
    esac
    stop_responder
}

median() {
    sort -g | awk '{v[NR] = $1} END {print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'
}

# Rounds with the processes placed as `pin` says; the figures' keys end in `suffix`.
compare() {
    local suffix=$1 rounds_file=$work/rounds$1
    : >"$rounds_file"
    for round in $(seq "$rounds"); do
        # Each pair goes first in turn, so that none always follows the same one.
        declare -A got=()
        local order=(ours peer floor host)
        for i in 0 1 2 3; do
            local pair=${order[$(((round + i) % 4))]}
            got[$pair]=$(rate "$pair")
        done
        echo "$round ${got[ours]} ${got[peer]} ${got[floor]} ${got[host]}" >>"$rounds_file"
    done
    for column in 2:ours 3:peer 4:floor 5:host; do
        local values
        values=$(cut -d' ' -f"${column%%:*}" "$rounds_file")
        echo "wire.${column#*:}.rate$suffix $(median <<<"$values")"
        echo "wire.${column#*:}.rate_min$suffix $(sort -g <<<"$values" | head -1)"
        echo "wire.${column#*:}.rate_max$suffix $(sort -g <<<"$values" | tail -1)"
    done
    echo "wire.ours_per_peer$suffix $(awk '{print $2 / $3}' "$rounds_file" | median)"
    echo "wire.ours_per_floor$suffix $(awk '{print $2 / $4}' "$rounds_file" | median)"
    echo "wire.host_per_floor$suffix $(awk '{print $5 / $4}' "$rounds_file" | median)"
}

pin=()
compare ""
pin=(taskset -c "$(($(nproc) - 1))")
compare _one_cpu
pin=()
echo "wire.rounds $rounds"
echo "wire.seconds $seconds"

# Master-side instructions per exchange. The host's count comes from its own statistics.
cg=$here/callgrind.sh
start_responder "$wire/korvan_modbus_slave"
total=$("$cg" run "$work/peer.cg" korvan_master_loop "$wire/korvan_modbus_master" "$device" \
    "exchanges=$exchanges")
stop_responder
echo "wire.peer.instructions $((total / exchanges))"
echo "wire.peer.library_instructions $(($("$cg" inclusive "$work/peer.cg" modbus_read_registers) / exchanges))"

start_responder "$wire/korvan_canned_responder"
total=$("$cg" run "$work/floor.cg" korvan_master_loop "$wire/korvan_canned_master" "$device" \
    "exchanges=$exchanges")
stop_responder
echo "wire.floor.instructions $((total / exchanges))"

start_responder "$build/korvan_plc_sim" --pty
total=$("$cg" run "$work/ours.cg" 'refhost::Poller::run*' "$build/korvan_ref_host" \
    --device "$device" --scans "$exchanges" "$variable")
stop_responder
done_exchanges=$(awk '/^statistics:/ {print $2}' "$work/ours.cg.log")
driver=$(($("$cg" inclusive "$work/ours.cg" ComCommunication) +
    $("$cg" inclusive "$work/ours.cg" DataCom)))
echo "wire.ours.instructions $((total / done_exchanges))"
echo "wire.ours.driver_instructions $((driver / done_exchanges))"
