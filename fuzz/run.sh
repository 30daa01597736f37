#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the fuzz targets and lets them look for faults. Exit code 1: they found some.
#
#   fuzz/run.sh MINUTES [TARGET ...]   every target so long, two at a time; all targets without one
#   fuzz/run.sh --smoke [TARGET ...]   the seeds and a few seconds more, for CI
#
# They are part of the sanitizer build (preset asan). What they learn stays in build/fuzz/corpus, what
# they find in build/fuzz/findings. To look into a finding: build/asan/bin/fuzz_TARGET FILE
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
    --smoke) seconds=3 ;;
    [1-9]*) seconds=$(($1 * 60)) ;;
    *)
        sed -n '5,6s/^#  *//p' "$0" >&2
        exit 2
        ;;
esac
shift
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    mapfile -t targets < <(sed -n 's/^nyxus_fuzz_target(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
fi

packaging/install-packages.sh build run asan
programs=$PWD/build/asan/bin
build=$PWD/build/fuzz
mkdir -p "$build"
if ! { cmake --preset asan && cmake --build --preset asan --target fuzz_targets; } >"$build/build.log" 2>&1; then
    tail -n 40 "$build/build.log" >&2
    echo "The fuzz targets could not be built; the end of the log is above." >&2
    exit 1
fi

# fuzz_one TARGET: prints the line about it; 1 when it found something.
fuzz_one() {
    local target=$1 corpus=$build/corpus/$1 findings=$build/findings/$1 log=$build/$1.log
    local -a dictionary=()
    mkdir -p "$corpus" "$findings" "$build/run/$target"
    [ ! -f "fuzz/$target.dict" ] || dictionary=(-dict="$PWD/fuzz/$target.dict")
    # Only the first folder is written to.
    local seeds=$PWD/fuzz/corpus/$target status=0
    [ "$target" != camera_file ] || seeds=$PWD/simulator/cameras
    # The sessions of cameras leave libuvc's memory behind, so leaks are told by the other targets.
    local leaks=1
    case $target in hostile_camera | hostile_probe) leaks=0 ;; esac
    # What the library writes goes nowhere; files that it writes go to the target's own folder.
    (
        cd "$build/run/$target"
        ASAN_OPTIONS=detect_leaks=$leaks:fast_unwind_on_malloc=1 UBSAN_OPTIONS=print_stacktrace=1 \
            "$programs/fuzz_$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
            -detect_leaks=$leaks -close_fd_mask=3 -max_len=8192 -print_final_stats=1 \
            -artifact_prefix="$findings/" "${dictionary[@]}" "$corpus" "$seeds" >"$log" 2>&1
    ) || status=1
    local runs edges found
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    edges=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
    found=$(find "$findings" -type f | wc -l)
    printf '%-16s %10s executions %6s edges %3d findings\n' "$target" "${runs:-?}" "${edges:-?}" "$found"
    if [ "$status" -ne 0 ]; then
        grep -hE 'ERROR:|runtime error:|SUMMARY:' "$log" | sed 's/^/    /'
        echo "    $log"
    fi
    [ "$status" -eq 0 ] && [ "$found" -eq 0 ]
}

failed=0
running=0
for target in "${targets[@]}"; do
    if [ "$running" -eq 2 ]; then
        wait -n || failed=1
        running=1
    fi
    fuzz_one "$target" &
    running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done
exit "$failed"
