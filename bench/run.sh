#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Measures what docs/performance.md tells, prints it, and writes the figures into that page. Installs
# and builds what is missing first. Leave the machine alone meanwhile: half an hour. The page stays as
# it is where the quartiles say that the machine was not quiet.
#
#   bench/run.sh                  all of it
#   bench/run.sh --quick          a try-out of a few minutes, whose figures stay in build/bench/results
#   bench/run.sh [--quick] rom    one topic, beside the results that are there: transfer null_bus rom
#                                 growth real streaming rates commands python kernel
set -euo pipefail
cd "$(dirname "$0")/.."

bin=$PWD/build/bench/bin
results=$PWD/build/bench/results
work=$(mktemp -d)
# Where dumps and marks are written: in memory, as a disk would be measured, too.
memory=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$work" "$memory"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

quick=
if [ "${1:-}" = --quick ]; then
    quick=yes
    export NYXUS_BENCH_QUICK=1
    shift
fi
if [ $# -eq 0 ]; then
    set -- transfer null_bus rom growth real streaming rates commands python kernel
    rm -rf "$results"
fi

quietly() {
    "$@" >"$work/log" 2>&1 || { tail -n 30 "$work/log" >&2; echo "'$*' failed." >&2; exit 1; }
}

# A Google Benchmark program of ours; what the library prints goes where it costs least.
in_process() { # TOPIC ARGUMENTS...
    local topic=$1
    shift
    (cd "$memory" && "$bin/bench_$topic" "--benchmark_out=$results/$topic.json" "$@" >/dev/null 2>said) || {
        cp "$memory/said" "$work/"
        return 1
    }
}

# Several runs of one, each with other arguments, become one file; a part may hold several, too.
merge() { # TOPIC
    /usr/bin/python3 - "$results/$1.json" "$work"/part.*.json <<'END'
import json, sys
parts, decoder = [], json.JSONDecoder()
for path in sys.argv[2:]:
    text = open(path).read().strip()
    while text:
        part, end = decoder.raw_decode(text)
        parts.append(part)
        text = text[end:].lstrip()
merged = {"context": parts[0]["context"], "benchmarks": sum((part["benchmarks"] for part in parts), [])}
json.dump(merged, open(sys.argv[1], "w"), indent=1)
END
    rm "$work"/part.*.json
}

part() { # NAME SPEED CAMERA PROGRAM ARGUMENTS...
    local name=$1 speed=$2 camera=$3 program=$4
    shift 4
    (cd "$memory" && "$bin/nyxus-sim" run --speed "$speed" --camera "$camera" -- "$bin/$program" \
        "--benchmark_out=$work/part.$name.json" "$@" >/dev/null 2>"$work/said")
}

transfer() { in_process transfer; }
null_bus() { in_process null_bus; }
rom() {
    mkdir -p "$results/recordings"
    in_process rom "$results/recordings"
}
growth() { in_process growth; }

real() {
    local model operation models=(rowan-spi cedar-spi larch-spi willow-eeprom)
    [ -z "$quick" ] || models=(rowan-spi)
    [ -d "$results/recordings" ] || rom
    for model in "${models[@]}"; do
        "$bin/nyxus-sim" image --model "$model" --version 0x0205 --size 32768 "$work/image"
        for operation in upgrade dump compare; do
            part "$model.$operation" real "$model" bench_client_rom "$model" "$operation" \
                "$work/image" "$results/recordings/$model.$operation"
        done
    done
    merge real
}

streaming() {
    local model picture way
    for model in rowan-spi rowan-iso; do
        for picture in 640x480 1280x720; do
            for way in published callback next; do
                part "$model.$picture.$way" fast "$model" bench_client_stream \
                    "streaming/$model/$picture/$way" "$way" "${picture%x*}" "${picture#*x}"
            done
        done
    done
    merge streaming
}

rates() { /usr/bin/python3 -B bench/rates.py "$bin" "$results/rates.json" 2>"$work/said"; }
python() { /usr/bin/python3 -B bench/python.py "$bin" "$results/python.json" 2>"$work/said"; }
commands() { /usr/bin/python3 bench/commands.py "$bin" "$results/commands.json" 2>"$work/said"; }
kernel() {
    tests/kernel/run.sh --bench >"$work/part.kernel.json" 2>"$work/said"
    merge kernel
}

packaging/install-packages.sh build run bench
[ -f build/bench/build.ninja ] || quietly cmake --preset bench
echo "Building preset 'bench'."
quietly cmake --build --preset bench
mkdir -p "$results"
for topic in "$@"; do
    printf '%4d s  %s\n' "$SECONDS" "$topic"
    rm -f "$results/$topic".{failed,json,quick}
    [ -z "$quick" ] || touch "$results/$topic.quick"
    set +e # in a condition, 'set -e' would not hold inside the function either
    (set -e; "$topic")
    code=$?
    set -e
    if [ $code -ne 0 ]; then
        { cp "$work/said" "$results/$topic.said" 2>/dev/null || true; }
        { grep -aiE 'fail|error|cannot' "$work/said" 2>/dev/null || tail -n 3 "$work/said" 2>/dev/null ||
            true; } | head -n 5 | grep . >"$results/$topic.failed" ||
            echo "the program failed without a word" >"$results/$topic.failed"
        rm -f "$results/$topic.json" "$work"/part.*.json
    fi
done

page=(docs/performance.md)
if [ -n "$quick" ]; then
    cp "${page[0]}" "$results/performance.md"
    page=("$results/performance.md" --try-out)
fi
/usr/bin/python3 bench/report.py "$results" "${page[@]}" "$@"
