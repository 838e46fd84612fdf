#!/usr/bin/env bash
# Measures what the test suite catches: plants each single-line fault of scripts/planted-faults.txt
# in turn, rebuilds, runs the suite (stopping at its first failure), and puts the line back.
#
#   scripts/plant-faults.sh [--build-dir DIR] [--list FILE] [--only ID,ID...] [--jobs N]
#
# Prints one line per fault (caught, with the first failing test, or MISSED) and a closing count.
# The tree is restored even when interrupted. Exits 1 when a fault was missed or did not build.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/faults
list=scripts/planted-faults.txt
only=
jobs=$(nproc)
while [[ $# -gt 0 ]]; do
    case $1 in
        --build-dir) build=$2; shift 2 ;;
        --list) list=$2; shift 2 ;;
        --only) only=",$2,"; shift 2 ;;
        --jobs) jobs=$2; shift 2 ;;
        *) echo "usage: $0 [--build-dir DIR] [--list FILE] [--only ID,ID...] [--jobs N]" >&2; exit 2 ;;
    esac
done

planted=
backup=$(mktemp)
restore() {
    if [[ -n $planted ]]; then
        cp "$backup" "$planted"
        planted=
    fi
}
trap 'restore; rm -f "$backup"' EXIT
trap 'exit 130' INT TERM

run_suite() {
    ctest --test-dir "$build" -j "$jobs" --stop-on-failure --timeout 60 >"$build/faults.log" 2>&1
}

echo "== building $build and checking the suite passes without a fault"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVAN_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$jobs" >/dev/null

# The first test that fails with the fault planted, confirmed by failing again on its own: a
# test that failed only because the machine was busy does not count. Two tries of the suite.
caught_by() {
    local try name
    for try in 1 2; do
        if run_suite; then
            return 1
        fi
        name=$(awk '/tests FAILED:/ {getline; sub(/^[ \t]*[0-9]+ - /, ""); sub(/ \(.*/, ""); print; exit}' \
            "$build/faults.log")
        if ! ctest --test-dir "$build" -R "^${name//./\\.}\$" --timeout 60 >/dev/null 2>&1; then
            echo "$name"
            return 0
        fi
    done
    return 1
}

if failing=$(caught_by); then
    echo "the suite fails without a fault planted: $failing"
    exit 1
fi

# Each entry: "ID file what", "- original line", "+ replacement line".
caught=0 missed=0 broken=0 total=0
missed_ids=()
plant() {
    local id=$1 file=$2 what=$3 from=$4 to=$5
    [[ -z $only || $only == *",$id,"* ]] || return 0
    total=$((total + 1))
    local matches first
    matches=$(FROM=$from perl -ne '$n++ if $_ eq "$ENV{FROM}\n"; END { print $n + 0 }' "$file")
    if [[ $matches != 1 ]]; then
        echo "$id  NOT PLANTED: the line occurs $matches times in $file"
        broken=$((broken + 1))
        return 0
    fi
    cp "$file" "$backup"
    planted=$file
    FROM=$from TO=$to perl -i -pe '$_ = "$ENV{TO}\n" if $_ eq "$ENV{FROM}\n"' "$file"
    if ! cmake --build "$build" -j "$jobs" >"$build/faults.log" 2>&1; then
        echo "$id  DID NOT BUILD: $what"
        broken=$((broken + 1))
    elif first=$(caught_by); then
        echo "$id  caught  $what: $first"
        caught=$((caught + 1))
    else
        echo "$id  MISSED  $what ($file)"
        missed=$((missed + 1))
        missed_ids+=("$id")
    fi
    restore
}

id= file= what= from=
while IFS= read -r line || [[ -n $line ]]; do
    case $line in
        '#'* | '') ;;
        '- '*) from=${line:2} ;;
        '+ '*) plant "$id" "$file" "$what" "$from" "${line:2}" ;;
        *) read -r id file what <<<"$line" ;;
    esac
done <"$list"

# Leave the build as the tree is.
cmake --build "$build" -j "$jobs" >/dev/null
echo "caught $caught of $total; missed $missed${missed_ids[*]:+ (${missed_ids[*]})}; not planted or not built $broken"
[[ $missed -eq 0 && $broken -eq 0 ]]
