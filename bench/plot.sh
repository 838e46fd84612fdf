#!/usr/bin/env bash
# Draws planning time and per-exchange cost against the number of the panel's variables, from
# the figures bench/run.sh collects, into a PNG.
#
#   bench/plot.sh FIGURES PNG SIZE...
set -euo pipefail

figures=$1
png=$2
shift 2
data=$(mktemp)
trap 'rm -f "$data"' EXIT

# variables, planning ms, exchange ns, exchange instructions
for n in "$@"; do
    awk -v n="$n" '
        $1 == "ns.plan/" n { plan = $2 / 1e6 }
        $1 == "ns.exchange/panel/" n { ns = $2 }
        $1 == "ir.panel/" n { ir = $2 }
        END { print n, plan, ns, ir }' "$figures"
done >"$data"

gnuplot <<EOF
set terminal pngcairo size 1200,500 font ",10"
set output "$png"
set multiplot layout 1,2
set logscale xy
set grid
set key top left
set xlabel "variables in the panel"

set title "Read-list rebuild"
set ylabel "ms"
# n log n through the largest panel's point, for comparison.
stats "$data" using 1 nooutput
n0 = STATS_max
stats "$data" using 2 nooutput
t0 = STATS_max
plot "$data" using 1:2 with linespoints pt 7 title "rebuild time", \
     t0 * (x * log(x)) / (n0 * log(n0)) with lines dt 2 title "n log n"

set title "One cyclic read of the planned list (canned replies; denser panels read longer blocks)"
set ylabel "ns"
set y2label "instructions"
set ytics add (200, 500, 2000, 5000)
set y2tics add (2000, 3000, 5000)
set logscale y2
set ytics nomirror
plot "$data" using 1:3 with linespoints pt 7 axes x1y1 title "time (ns)", \
     "$data" using 1:4 with linespoints pt 5 axes x1y2 title "instructions"
unset multiplot
EOF
