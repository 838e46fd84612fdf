#!/usr/bin/env bash
# Shows the driver at work: installs what is missing (Debian packages), builds the driver and
# the two tools, starts a simulated PLC with two stations on a TCP port of this machine, and
# runs the reference host against it: live values, one write taking effect, the statistics.
# Every exchange is captured from both ends into build/demo/ for Wireshark, and the write's
# and the read-back's captures are shown as tshark decodes them with the dissector.
# Ends by itself a few seconds after the build.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

scripts/install-deps.sh

build=build/default
echo "== build"
cmake -S . -B "$build" -G Ninja -DKORVAN_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target korvan_ref_host

captures=build/demo
mkdir -p "$captures"
work=$(mktemp -d)
sim_pid=
cleanup() {
    if [[ -n $sim_pid ]]; then
        kill "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

# Every word holds its own address until written; word 0 of each station counts up.
"$build/korvan_plc_sim" --tcp 127.0.0.1:0 --stations 1,2 --fill ramp --counter 14:0@1 \
    --counter 14:0@2 --pcap "$captures/plc.pcap" >"$work/sim.out" &
sim_pid=$!
endpoint=$(simulator_endpoint "$work/sim.out")
echo "== simulated PLC: stations 1 and 2 on $endpoint"

host=("$build/korvan_ref_host" --tcp "$endpoint" --per-var-station)

echo
echo "== live values for 3 seconds, a scan every 100 ms (word 0 of each station counts up)"
"${host[@]}" --seconds 3 --cycle 100 --pcap "$captures/live.pcap" 14:0@1 14:100:4@1 29:10.3@1 \
    14:0@2 2:32:8@2 2>&1

echo
echo "== write 0x1234 (4660) to word 100 of station 1, with every frame traced"
"${host[@]}" --scans 1 --trace --pcap "$captures/write.pcap" --write 14:100@1=0x1234 \
    14:100:4@1 2>&1

echo
echo "== a new host reads it back from the PLC, in the remote frame family"
"${host[@]}" --scans 1 --format csv --remote-mode --pcap "$captures/read-back.pcap" \
    14:100:4@1 2>&1

echo
echo "== stop the simulated PLC"
kill "$sim_pid"
wait "$sim_pid" 2>&1
sim_pid=

# tshark warns on every run as root; nothing else of its is left out.
decode() {
    tshark -2 -X lua_script:tools/wireshark/korvan.lua -r "$1" 2>&1 | grep -v '^Running as user'
}
echo
echo "== the write and the read-back as tshark decodes them (tools/wireshark/korvan.lua)"
decode "$captures/write.pcap"
decode "$captures/read-back.pcap"
echo
echo "== every exchange, for Wireshark: the host's $captures/{live,write,read-back}.pcap," \
    "the PLC's $captures/plc.pcap"
