#!/usr/bin/env bash
# User-space instruction counts with callgrind.
#
#   bench/callgrind.sh run OUT FUNCTION COMMAND...
#       runs COMMAND under callgrind, collecting only inside FUNCTION (and what it calls), writes
#       the profile to OUT and prints the instructions collected
#   bench/callgrind.sh inclusive OUT FUNCTION
#       prints the instructions spent in FUNCTION and what it calls, from the profile OUT
#       (FUNCTION as callgrind_annotate names it, e.g. DataCom or modbus_read_registers)
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
        callgrind_annotate --inclusive=yes --threshold=100 "$out" 2>/dev/null |
            awk -v name=":$function " '
                !found && index($0, name) { gsub(",", "", $1); found = $1 }
                END { print found ? found : 0 }'
        ;;
    *)
        echo "usage: $0 run|inclusive OUT FUNCTION [COMMAND...]" >&2
        exit 2
        ;;
esac
