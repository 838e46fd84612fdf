#!/usr/bin/env bash
# User-space instruction counts with callgrind.
#
#   bench/callgrind.sh run OUT FUNCTION COMMAND...
#       runs COMMAND under callgrind, collecting only inside FUNCTION (and what it calls), writes
#       the profile to OUT and prints the instructions collected
#   bench/callgrind.sh inclusive OUT FUNCTION...
#       prints, one line each, the instructions spent in each FUNCTION and what it calls, from the
#       profile OUT (FUNCTION as the profile names it, e.g. DataCom, modbus_read_registers
#       or "CalCRC(unsigned char*, unsigned short)"); 0 for one the profile does not hold
set -euo pipefail

mode=$1
out=$2
function=$3
shift 3
case $mode in
    run)
        valgrind --tool=callgrind --collect-atstart=no "--toggle-collect=$function" \
            --callgrind-out-file="$out" "$@" >"$out.log" 2>&1 || {
            cat "$out.log" >&2
            exit 1
        }
        awk '/^(summary|totals):/ {print $2; exit}' "$out"
        ;;
    inclusive)
        # Read from the profile itself: callgrind_annotate splits a function's cost by source
        # file when there is debug information (inlined headers), and then no one of its lines
        # is the whole. A function's own cost lines and the costs of its calls to others (the
        # line after "calls=") add up to its inclusive cost, whatever the files.
        names=$(printf '%s\n' "$function" "$@")
        awk -v names="$names" '
            # "fn=(id) name" names an id, "fn=(id)" uses it again; cfn shares the ids.
            function named(text,    id) {
                if (match(text, /^\([0-9]+\)/)) {
                    id = substr(text, 1, RLENGTH)
                    if (RLENGTH < length(text)) {
                        known[id] = substr(text, RLENGTH + 2)
                    }
                    return known[id]
                }
                return text
            }
            BEGIN { positions = 1 }
            /^positions:/ { positions = NF - 1 }
            /^fn=/ { fn = named(substr($0, 4)); next }
            /^cfn=/ { cfn = named(substr($0, 5)); next }
            /^calls=/ { call = 1; next }
            /^[0-9+*-]/ {
                if (!call || cfn != fn) {
                    cost[fn] += $(positions + 1)
                }
                call = 0
            }
            END {
                n = split(names, name, "\n")
                for (i = 1; i <= n; ++i) {
                    printf "%.0f\n", cost[name[i]]
                }
            }' "$out"
        ;;
    *)
        echo "usage: $0 run OUT FUNCTION COMMAND... | inclusive OUT FUNCTION..." >&2
        exit 2
        ;;
esac
