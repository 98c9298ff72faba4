#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for a bounded time.
# QF_FUZZ_SECONDS sets the time per target (default 60); two targets run at once.
# Inputs that once crashed live in fuzz/regressions/<target>/ and are replayed first; a new crash
# leaves its input in build/fuzz/findings/ — copy it there (and into a regular test) once fixed.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
seconds=${QF_FUZZ_SECONDS:-60}
build=build/fuzz
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp" QUILLFERN_LOG_QUIET=1

echo "=== fuzz: configure and build"
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQF_FUZZ=ON \
    -DQF_BUILD_UI=OFF -DQF_BUILD_TESTS=OFF -DQF_BUILD_BENCH=OFF >/dev/null || exit 1
cmake --build "$build" -j"$(nproc)" || exit 1

results="$build/results"
rm -rf "$results" "$build/findings"
mkdir -p "$results" "$build/findings"

run_target() { # name
    local name=$1 exe="$build/fuzz/fuzz_$1" corpus="$build/corpus/$1" out="$results/$1.status"
    mkdir -p "$corpus"
    # Seeds: the committed ones, and the sample logs for the targets that read log text.
    [ -d "fuzz/seeds/$name" ] && cp -n fuzz/seeds/"$name"/* "$corpus"/ 2>/dev/null
    case $name in log_*) cp -n tests/data/*.log "$corpus"/ 2>/dev/null ;; esac
    if [ -d "fuzz/regressions/$name" ] && ! "$exe" -runs=0 fuzz/regressions/"$name"/* >"$results/$name.replay" 2>&1; then
        echo "FAIL fuzz_$name: a past crash is back (see $results/$name.replay)" >"$out"
        return
    fi
    if "$exe" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$build/findings/$name-" \
        "$corpus" >"$results/$name.log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$results/$name.log")
        echo "ok   fuzz_$name: ${runs:-?} executions in ${seconds}s, nothing found" >"$out"
    else
        echo "FAIL fuzz_$name: $(grep -m1 -E 'ERROR|SUMMARY|deadly' "$results/$name.log") (input in $build/findings/)" >"$out"
    fi
}

echo "=== fuzz: ${seconds}s per target"
targets=()
for exe in "$build"/fuzz/fuzz_*; do [ -f "$exe" ] && [ -x "$exe" ] && targets+=("${exe##*/fuzz_}"); done
for ((i = 0; i < ${#targets[@]}; i += 2)); do
    run_target "${targets[i]}" &
    ((i + 1 < ${#targets[@]})) && run_target "${targets[i + 1]}" &
    wait
done
cat "$results"/*.status
! grep -q '^FAIL' "$results"/*.status
