# The pairs of the comparison on a pseudo-terminal, for the bench/wire_*.sh scripts to source.
#
#   ours   korvan_ref_host reading 2 words of area 14 from korvan_plc_sim
#   host   korvan_ref_host against the floor's responder, whose reply is a good one: the host
#          and the driver where the floor has its master, with the same other end
#   peer   a libmodbus master reading 2 holding registers from a libmodbus slave
#   floor  a master writing a fixed 10-byte request and reading a fixed 9-byte reply, against a
#          responder that answers without looking (no protocol on either side)
#
# The sourcing script sets `build` (the build tree) and `work` (a scratch folder), and may set
# `pin` to a command that places both processes (taskset). Each function below uses them.

pairs=(ours host peer floor)
variable=14:100:2
pin=()
responder_pid=
device=

# Sets `responder` and `master`, the commands of a pair whose master runs for `seconds=S` or
# `exchanges=N`; DEVICE in `master` stands for the pseudo-terminal, which callers fill in with
# "${master[@]/DEVICE/$device}".
pair_commands() {
    local pair=$1 what=$2 wire=$build/bench/wire
    local host_limit=(--scans "${what#exchanges=}")
    [[ $what == seconds=* ]] && host_limit=(--seconds "${what#seconds=}")
    case $pair in
        ours | host)
            responder=("$build/korvan_plc_sim" --pty)
            [[ $pair == host ]] && responder=("$wire/korvan_canned_responder")
            master=("$build/korvan_ref_host" --device DEVICE "${host_limit[@]}" "$variable")
            ;;
        peer)
            responder=("$wire/korvan_modbus_slave")
            master=("$wire/korvan_modbus_master" DEVICE "$what")
            ;;
        floor)
            responder=("$wire/korvan_canned_responder")
            master=("$wire/korvan_canned_master" DEVICE "$what")
            ;;
    esac
}

# The function callgrind collects in for a pair's master.
counted_function() {
    case $1 in
        ours | host) echo 'refhost::Poller::run*' ;;
        *) echo korvan_master_loop ;;
    esac
}

# Starts the pair's responder and sets `device` to the pseudo-terminal it announces.
start_responder() {
    local announced=$work/responder.out
    rm -f "$announced"
    "${pin[@]}" "${responder[@]}" >"$announced" 2>"$work/responder.err" &
    responder_pid=$!
    for _ in $(seq 100); do
        [[ -s $announced ]] && break
        sleep 0.05
    done
    read -r _ device <"$announced"
}

stop_responder() {
    if [[ -n $responder_pid ]]; then
        kill "$responder_pid" 2>/dev/null || true
        wait "$responder_pid" 2>/dev/null || true
        responder_pid=
    fi
}

# Exchanges a master's output reports (the host's statistics, or the masters' own line).
exchanges_in() {
    awk '/^statistics:/ || /^exchanges / {print $2}' "$1"
}

median() {
    sort -g | awk '{v[NR] = $1} END {print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'
}
