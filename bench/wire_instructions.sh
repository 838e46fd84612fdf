#!/usr/bin/env bash
# Master-side user-space instructions per exchange of the pairs of bench/wire/pairs.sh, under
# callgrind: the whole polling loop of each master, the peer's library call alone, and the
# driver's two calls alone inside the reference host, with the CRC computations within them.
#
#   bench/wire_instructions.sh BUILD_DIR WORK_DIR EXCHANGES   prints "key value" lines
set -euo pipefail

build=$1
work=$2
exchanges=$3
source "$(dirname "$0")/wire/pairs.sh"
trap stop_responder EXIT
callgrind=$(dirname "$0")/callgrind.sh

for pair in ours peer floor; do
    pair_commands "$pair" "exchanges=$exchanges"
    start_responder
    total=$("$callgrind" run "$work/$pair.cg" "$(counted_function "$pair")" \
        "${master[@]/DEVICE/$device}")
    stop_responder
    done=$(exchanges_in "$work/$pair.cg.log")
    echo "wire.$pair.instructions $((total / done))"
done
echo "wire.peer.library_instructions $(($("$callgrind" inclusive "$work/peer.cg" \
    modbus_read_registers) / exchanges))"
costs=$("$callgrind" inclusive "$work/ours.cg" ComCommunication DataCom \
    'CalCRC(unsigned char*, unsigned short)')
{
    read -r communication
    read -r data
    read -r checks
} <<<"$costs"
done=$(exchanges_in "$work/ours.cg.log")
echo "wire.ours.driver_instructions $(((communication + data) / done))"
echo "wire.ours.crc_instructions $((checks / done))"
