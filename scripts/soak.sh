#!/usr/bin/env bash
# Fault soak: the reference host against the simulated PLC for a bounded time, reading and
# writing every scan, while the PLC drops, damages, mis-addresses and delays replies during the
# first two thirds of the run. Then it checks that
#   - every write got exactly one result (done or failed): none unanswered, none twice;
#   - the host's register image equals the PLC's memory for every polled word;
#   - the host's memory did not grow after warming up;
#   - faults really happened (otherwise the run proves nothing).
#
#   scripts/soak.sh [--seconds N] [--build-dir DIR] [--seed N]
#
# The test suite runs a short form; `scripts/soak.sh --seconds 600` is the long one.
set -euo pipefail

seconds=15
build=build/default
seed=1
while (($#)); do
    case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --build-dir) build=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    *) echo "usage: $0 [--seconds N] [--build-dir DIR] [--seed N]" >&2; exit 2 ;;
    esac
done
max_rss_growth_kb=512

work=$(mktemp -d)
sim_pid=
cleanup() {
    [[ -n $sim_pid ]] && kill "$sim_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

"$build/korvan_plc_sim" --tcp 0 --stations 1,2 --fill ramp --seed "$seed" \
    --drop 0.05 --corrupt 0.05 --misaddress 0.05 --delay 1 \
    --faults-seconds $((seconds * 2 / 3 > 0 ? seconds * 2 / 3 : 1)) \
    --dump "$work/plc.txt" >"$work/sim.out" 2>"$work/sim.err" &
sim_pid=$!
for _ in $(seq 100); do
    grep -q '^tcp ' "$work/sim.out" && break
    sleep 0.1
done
endpoint=$(awk '/^tcp /{print $2}' "$work/sim.out")
[[ -n $endpoint ]] || { echo "soak: the simulator did not start" >&2; cat "$work/sim.err" >&2; exit 1; }

"$build/korvan_ref_host" --tcp "$endpoint" --turnaround 20 --per-var-station --block-length 8 \
    --seconds "$seconds" --format json --write-every-scan --image-dump "$work/host.txt" \
    --write 14:10@1=100,200,300 --write 29:40.3@1=1 --write 2:35@2=1,0,1 --write 14:5@2=7 \
    14:0:20@1 14:40:2@1 2:32:8@2 14:5@2 >"$work/host.json" 2>"$work/host.err" || {
    echo "soak: the host failed" >&2
    tail -n 20 "$work/host.err" >&2
    exit 1
}
kill -INT "$sim_pid"
wait "$sim_pid" || true
sim_pid=

stats=$(grep '^{"stats"' "$work/host.json")
field() { grep -o "\"$1\":[0-9.]*" <<<"$stats" | cut -d: -f2; }
issued=$(field writes_issued)
done_=$(field writes_done)
failed=$(field writes_failed)
unanswered=$(field writes_unanswered)
repeated=$(field writes_repeated)
rss_warm=$(field rss_kb_warm)
rss_end=$(field rss_kb_end)
retries=$(field retries)
exchanges=$(field exchanges)

problems=()
((issued > 0)) || problems+=("no write was issued")
((issued == done_ + failed)) || problems+=("$issued writes issued, $done_ done + $failed failed")
((unanswered == 0)) || problems+=("$unanswered writes never got a result")
((repeated == 0)) || problems+=("$repeated results beyond the first for one write")
((retries > 0)) || problems+=("no fault was seen: the run proves nothing")
((rss_warm > 0 && rss_end - rss_warm <= max_rss_growth_kb)) ||
    problems+=("host memory grew from $rss_warm kB to $rss_end kB")
mismatched=$(grep -v '^#' "$work/host.txt" | sort | comm -23 - <(grep -v '^#' "$work/plc.txt" | sort))
[[ -z $mismatched ]] || problems+=("image differs from the PLC: $(head -n 3 <<<"$mismatched" | tr '\n' ';')")

echo "soak: ${seconds}s, $exchanges exchanges, $retries retries, abandoned $(grep -o '"abandoned":{[^}]*}' <<<"$stats" | cut -d: -f2-)"
echo "soak: writes $issued issued, $done_ done, $failed failed, $unanswered unanswered, $repeated twice; memory $rss_warm -> $rss_end kB"
if ((${#problems[@]})); then
    printf 'soak: FAILED: %s\n' "${problems[@]}" >&2
    exit 1
fi
echo "soak: image equals the PLC's memory for all $(grep -vc '^#' "$work/host.txt") polled words"
