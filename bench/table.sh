#!/usr/bin/env bash
# Prints the benchmark table (Markdown) from the "key value" figures bench/run.sh collects.
# Exits non-zero when a figure is missing, so that a broken measurement cannot pass unseen.
#
#   bench/table.sh FIGURES SMOKE
set -euo pipefail

awk -v smoke="$2" '
function need(key) {
    if (!(key in v)) {
        missing = missing " " key
        return 0
    }
    return v[key]
}
# Integers with thousands separators; others with the given decimals.
function num(x, decimals,    s, out) {
    if (decimals > 0) {
        return sprintf("%." decimals "f", x)
    }
    s = sprintf("%.0f", x)
    out = ""
    while (length(s) > 3) {
        out = "," substr(s, length(s) - 2) out
        s = substr(s, 1, length(s) - 3)
    }
    return s out
}
# A figure measured with the processes placed by the kernel, then on one CPU.
function both(key, decimals) {
    return num(need(key), decimals) " / " num(need(key "_one_cpu"), decimals)
}
function ms(key) { return num(need(key) / 1e6, need(key) < 1e6 ? 2 : 1) }
function yes(ok) { return ok ? "yes" : "**no**" }
function row(measure, ours, peer, ratio, target, met) {
    printf "| %s | %s | %s | %s | %s | %s |\n", measure, ours, peer, ratio, target, met
}
# Instructions per exchange, those outside CalCRC, and time.
function exchange(label, op) {
    row("exchange: " label, num(need("ir." op)) " instr (" \
            num(need("ir." op) - need("crc." op)) " outside `CalCRC`), " \
            num(need("ns.exchange/" op)) " ns", "", "", "", "")
}

# text: the whole of a line after its key, for the figures that are words.
{ v[$1] = $2; text[$1] = substr($0, length($1) + 2) }

END {
    print "| measure | ours | peer | ratio | target | met |"
    print "|---|---|---|---|---|---|"

    # The target: the two calls of the driver for a 2-word read whose reply carries new values,
    # with canned replies, against the library call of the peer on the pseudo-terminal (its CRC
    # included).
    peer = need("wire.peer.library_instructions")
    total = need("driver.changing/2")
    outside = total - need("crc.changing/2")
    row("2-word read, every reply carrying new values: driver instructions per exchange, (a) in total / (b) outside `CalCRC` (`ComCommunication` + `DataCom`, canned replies; peer: libmodbus `modbus_read_registers` over a pty, its own CRC included)",
        num(total) " / " num(outside), num(peer), num(total / peer, 2) " / " num(outside / peer, 2),
        "(b) ≤ 1.00", yes(outside <= peer))
    # Side by side, in one run, on a pseudo-terminal. The simulator answers with the same values
    # every time, which costs the driver as much as new values: it keeps no check values.
    rounds = need("wire.rounds") " rounds of " need("wire.seconds") " s"
    ours = need("wire.ours.driver_instructions")
    row("2-word read, driver instructions per exchange, values repeating (ref host over a pty, " \
            num(ours - need("wire.ours.crc_instructions")) " outside `CalCRC`; peer: libmodbus `modbus_read_registers`)",
        num(ours), num(peer), num(ours / peer, 2), "", "")
    row("2-word read, master-side instructions per exchange, whole loop (no-protocol floor: " \
            num(need("wire.floor.instructions")) ")",
        num(need("wire.ours.instructions")), num(need("wire.peer.instructions")),
        num(need("wire.ours.instructions") / need("wire.peer.instructions"), 2), "", "")
    # Both placements of the processes: by the kernel / both on one CPU.
    placed = " (median of " rounds "; processes placed by the kernel / on one CPU)"
    row("exchanges/s over a pty, ref host + simulator vs libmodbus pair" placed,
        both("wire.ours.rate", 0), both("wire.peer.rate", 0), both("wire.ours_per_peer", 2), "",
        "")
    ratio = need("wire.host_per_floor")
    ratio1 = need("wire.host_per_floor_one_cpu")
    row("exchanges/s, ref host + driver against the floor, both against the no-protocol responder (peer column: floor)" placed,
        both("wire.host.rate", 0), both("wire.floor.rate", 0), both("wire.host_per_floor", 2),
        "≥ 0.90", yes(ratio >= 0.9 && ratio1 >= 0.9))
    row("exchanges/s, ref host + simulator against the floor (peer column: floor)" placed,
        both("wire.ours.rate", 0), both("wire.floor.rate", 0), both("wire.ours_per_floor", 2), "",
        "")

    # Several ports, each against its own simulator on a pseudo-terminal.
    row("several ports polled at once, 2-word reads back to back: exchanges/s of all ports, 1 / 2 / 4 / 8 ports (processor time of the host polling threads per exchange)",
        num(need("ports.1.rate")) " / " num(need("ports.2.rate")) " / " num(need("ports.4.rate")) \
            " / " num(need("ports.8.rate")) " (" num(need("ports.1.cpu_us"), 1) " / " \
            num(need("ports.2.cpu_us"), 1) " / " num(need("ports.4.cpu_us"), 1) " / " \
            num(need("ports.8.cpu_us"), 1) " us)", "", "", "", "")
    worst = need("ports.line.worst_ms") / need("ports.line.min_ms")
    row("8 ports at " num(need("ports.line.baud")) " baud, the simulators holding each reply for its line time, 300 words a scan in 3 blocks: mean scan time of the slowest port against the line-time minimum",
        need("ports.line.worst_ms") " ms / " need("ports.line.min_ms") " ms", "", num(worst, 3),
        "≤ 1.05", yes(worst <= 1.05))
    row("the same 8 ports: processor time of the host, share of one core",
        need("ports.line.cpu_percent") "%", "", "", "< 5%", yes(need("ports.line.cpu_percent") < 5))

    # The driver alone, with canned replies.
    exchange("2-word cyclic read", "read/2")
    exchange("50-word cyclic read", "read/50")
    exchange("100-word cyclic read", "read/100")
    exchange("2-word cyclic read, new values in every reply", "changing/2")
    exchange("100-word cyclic read, new values in every reply", "changing/100")
    exchange("word write", "write")
    exchange("bit-in-word write", "bit_in_word")
    exchange("remote read", "remote_read")
    exchange("cyclic read in a 1,000-variable panel (" need("blocks.panel/1000") \
            " blocks read in turn), the values of each block repeating", "panel/1000")
    exchange("cyclic read in a 1,000-variable panel, new values in every reply",
        "panel_changing/1000")

    planned = need("ns.plan/100000")
    row("plan 1,000 / 10,000 / 100,000 variables", ms("ns.plan/1000") " / " ms("ns.plan/10000") \
            " / " ms("ns.plan/100000") " ms", "", "", "100,000 < 100 ms", yes(planned < 100e6))
    growth = planned / need("ns.plan/10000")
    row("planning growth 10,000 → 100,000 (instructions in brackets)",
        num(growth, 1) "× (" (smoke ? "not counted" : num(need("ir.plan/100000") / need("ir.plan/10000"), 1) "×") ")", "", "",
        "≤ 12.5× (n log n)", yes(growth <= 12.5))

    read1 = need("ns.host/read/words:1/polling:0")
    row("GetRegisterData, 1 word", num(read1) " ns, " num(need("ir.host_read/1")) " instr", "", "",
        "< 150 ns", yes(read1 < 150))
    row("GetRegisterData, 100 words; 1 and 100 words while another thread polls",
        num(need("ns.host/read/words:100/polling:0")) " ns; " \
            num(need("ns.host/read/words:1/polling:1")) " / " \
            num(need("ns.host/read/words:100/polling:1")) " ns", "", "", "", "")
    row("SetRegisterData, 1 word; while another thread polls",
        num(need("ns.host/write/polling:0")) " ns; " num(need("ns.host/write/polling:1")) " ns",
        "", "", "", "")
    bound = need("lat.read_alone_p99") + need("lat.exchange100_p99")
    waited = need("lat.read_polling_p99")
    row("1-word host read while 100-word reads are polled: p99 (p99.9, max)",
        num(waited) " ns (" num(need("lat.read_polling_p99.9")) ", " \
            num(need("lat.read_polling_max")) ")", "", "",
        "≤ read alone + one exchange, p99: " num(bound) " ns", yes(waited <= bound))

    words = need("mem.image_words")
    row("register image, bytes per word, x86-64 (" num(need("mem.variables")) " variables, " \
            num(words) " words)", num(need("mem.image_word_bytes"), 1), "", "", "≤ 48",
        yes(need("mem.image_word_bytes") <= 48))
    row("planned read list, bytes per entry, x86-64 (" num(need("mem.read_entries")) " entries)",
        num(need("mem.read_entry_bytes"), 1), "", "", "", "")
    # The architecture of the panel, in the full run only; when not measured (no sysroot, say), why.
    arm = "32-bit ARM (armhf, under qemu"
    if (!smoke && "armhf.not_measured" in v) {
        why = "not measured: " text["armhf.not_measured"] " (see armhf.log)"
        row("register image, bytes per word, " arm ")", why, "", "", "≤ 48", "unknown")
        row("planned read list, bytes per entry, " arm ")", why, "", "", "", "")
    } else if (!smoke) {
        row("register image, bytes per word, " arm "; " num(need("armhf.variables")) \
                " variables, " num(need("armhf.image_words")) " words)",
            num(need("armhf.image_word_bytes"), 1), "", "", "≤ 48",
            yes(need("armhf.image_word_bytes") <= 48))
        row("planned read list, bytes per entry, " arm "; " num(need("armhf.read_entries")) \
                " entries)", num(need("armhf.read_entry_bytes"), 1), "", "", "", "")
    }

    if (smoke) {
        print "\n(smoke run: every measurement ran once and briefly; the figures mean nothing;" \
            " the armhf memory rows are measured in the full run only)"
    }
    if (missing != "") {
        print "missing figures:" missing > "/dev/stderr"
        exit 1
    }
}' "$1"
