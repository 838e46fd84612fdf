#!/usr/bin/env bash
# Runs every benchmark of the driver and prints one table: our figure, the peer's where there is
# one, their ratio, the target and whether it is met. Also writes the table, the raw figures and
# a plot of planning time and per-exchange cost against the number of variables.
#
#   bench/run.sh                      the whole set in a Release build (build/release); a few
#                                     minutes after the build. Also the memory figures on the
#                                     panel's architecture: korvan_memory_use built for armhf
#                                     and run under qemu (bench/armhf_memory.sh)
#   bench/run.sh --smoke [BUILD_DIR]  every measurement once and briefly, in an existing build
#                                     tree (build/default): checks that all of it runs, for CI
#
# Installs what it needs (Debian packages): the peer libmodbus, valgrind, gnuplot; for the full
# run also the armhf cross compiler and qemu, and it fetches the armhf sysroot once. When the
# armhf figures cannot be had (no network for the sysroot, say), the table says so and why.
set -euo pipefail
cd "$(dirname "$0")/.."

smoke=0
build=build/release
if [[ ${1:-} == --smoke ]]; then
    smoke=1
    build=${2:-build/default}
fi

scripts/install-deps.sh libmodbus-dev pkg-config valgrind gnuplot-nox

if ((smoke)); then
    cmake -S . -B "$build" >/dev/null # the tree keeps its settings; libmodbus is found now
else
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKORVAN_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" -j "$(nproc)" --target korvan_ref_host korvan_plc_sim \
    korvan_exchange_bench korvan_read_planning_bench korvan_instruction_count korvan_memory_use \
    korvan_host_read_latency korvan_modbus_master korvan_modbus_slave korvan_canned_master \
    korvan_canned_responder >/dev/null

results=$build/bench-results
work=$results/work
rm -rf "$results"
mkdir -p "$work"
figures=$results/figures # "key value" lines

# Smoke: one round of everything, small; Google Benchmark's filters keep the slow cases out.
if ((smoke)); then
    min_time=0.01 counted=20 planned=1 wire=(1 0.2 50) variables=10000 samples=5000 port_seconds=0.5
    sizes=(100 1000)
    exchange_filter='^(exchange/(read|changing|write|bit|remote)|host)|/(100|1000)$'
else
    min_time=0.5 counted=2000 planned=3 wire=(15 0.5 2000) variables=100000 samples=200000
    port_seconds=5
    sizes=(100 300 1000 3000 10000 30000 100000)
    exchange_filter=
fi
echo "== load before: $(cut -d' ' -f1-3 /proc/loadavg) (nproc $(nproc))" | tee "$results/machine"
grep -m1 'model name' /proc/cpuinfo | sed 's/.*: /cpu /' >>"$results/machine"

echo "== time per operation (Google Benchmark)"
# Google Benchmark's JSON has one field per line; each result ends with its time unit.
gbench() {
    "$build/bench/$1" --benchmark_min_time="$min_time" --benchmark_format=json \
        ${2:+--benchmark_filter="$2"} 2>/dev/null |
        awk -F'"' '
            $2 == "name" { name = $4 }
            $2 == "real_time" || $2 == "cpu_time" { gsub(/[:, ]/, "", $3); t[$2] = $3 }
            $2 == "time_unit" {
                scale = $4 == "ms" ? 1e6 : $4 == "us" ? 1e3 : 1
                printf "ns.%s %.1f\nns_cpu.%s %.1f\n", name, t["real_time"] * scale, name,
                    t["cpu_time"] * scale
            }' >>"$figures"
}
gbench korvan_exchange_bench "$exchange_filter"
gbench korvan_read_planning_bench

echo "== instructions per operation (callgrind)"
operations=(read/2 read/50 read/100 changing/2 changing/100 write bit_in_word remote_read
    panel_changing/1000 host_read/1 host_read/100 host_write)
for n in "${sizes[@]}"; do
    operations+=("panel/$n")
done
plans=(plan/1000 plan/10000 plan/100000)
((smoke)) && plans=(plan/1000 plan/10000)
crc='CalCRC(unsigned char*, unsigned short)'
for op in "${operations[@]}" "${plans[@]}"; do
    count=$counted
    [[ $op == plan/* ]] && count=$planned
    profile=$work/${op//\//_}.cg
    total=$(bench/callgrind.sh run "$profile" korvan_counted_loop \
        "$build/bench/korvan_instruction_count" "$op" "$count")
    echo "ir.$op $((total / count))" >>"$figures"
    if [[ $op == panel* ]]; then
        echo "blocks.$op $(awk '$1 == "read_list" {print $2}' "$profile.log")" >>"$figures"
    fi
    [[ $op == plan/* || $op == host_* ]] && continue
    # Of the same profile: the driver's two calls (what the peer's figure is set against) and
    # the CRC computations within them.
    costs=$(bench/callgrind.sh inclusive "$profile" ComCommunication DataCom "$crc")
    {
        read -r communication
        read -r data
        read -r checks
    } <<<"$costs"
    echo "driver.$op $(((communication + data) / count))" >>"$figures"
    echo "crc.$op $((checks / count))" >>"$figures"
done
# Every exchange computes CRCs: none counted means the name was not found (inlined, renamed).
if ! awk '$1 == "crc.changing/2" && $2 > 0 {ok = 1} END {exit !ok}' "$figures"; then
    echo "no instructions of $crc in $work/changing_2.cg" >&2
    exit 1
fi

echo "== side by side on a pseudo-terminal"
bench/wire_rates.sh "$build" "$work" "${wire[0]}" "${wire[1]}" >>"$figures"
bench/wire_instructions.sh "$build" "$work" "${wire[2]}" >>"$figures"

echo "== several ports at once"
bench/ports.sh "$build" "$work" "$port_seconds" >>"$figures"

echo "== memory and host-read latency"
"$build/bench/korvan_memory_use" "$variables" | sed 's/^/mem./' >>"$figures"
"$build/bench/korvan_host_read_latency" "$samples" | sed 's/^/lat./' >>"$figures"
echo "== load after: $(cut -d' ' -f1-3 /proc/loadavg)" | tee -a "$results/machine"

# After the timings, whose load it would disturb; heap bytes do not depend on the load.
if ((!smoke)); then
    echo "== memory on 32-bit ARM (armhf, under qemu); log: $results/armhf.log"
    started=$SECONDS
    if bench/armhf_memory.sh "$variables" >"$work/armhf" 2>"$results/armhf.log"; then
        sed 's/^/armhf./' "$work/armhf" >>"$figures"
        echo "== armhf: $((SECONDS - started)) s"
    else
        reason=$(tail -n 1 "$results/armhf.log")
        reason=${reason#armhf: }
        echo "armhf.not_measured ${reason:-unknown failure}" >>"$figures"
        echo "== armhf: not measured: ${reason:-unknown failure}"
    fi
fi

bench/table.sh "$figures" "$smoke" | tee "$results/table.md"
bench/plot.sh "$figures" "$results/plot.png" "${sizes[@]}"
echo "== written: $results/table.md, $results/plot.png, $figures"
