#!/usr/bin/env bash
# Builds Quillfern and runs every test: a normal build, then the same tests under
# AddressSanitizer + UndefinedBehaviorSanitizer, then the model tests under ThreadSanitizer, then
# every fuzz target for a bounded time (scripts/fuzz.sh). QF_QUICK=1 skips all but the normal build.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
bash scripts/setup.sh || exit 1

export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
results="$root/build/test-results"
rm -rf "$results" build/fuzz/results
mkdir -p "$results"
status=0

run_suite() { # name build-dir cmake-args... -- ctest-args...
    local name=$1 dir=$2; shift 2
    local cmake_args=() ctest_args=()
    while (($#)) && [ "$1" != "--" ]; do cmake_args+=("$1"); shift; done
    (($#)) && shift
    ctest_args=("$@")
    echo "=== $name: configure and build"
    cmake -S . -B "$dir" -G Ninja "${cmake_args[@]}" >/dev/null || { status=1; return; }
    cmake --build "$dir" -j"$(nproc)" || { status=1; return; }
    echo "=== $name: tests"
    mkdir -p "$results/$name"
    GTEST_OUTPUT="xml:$results/$name/" ctest --test-dir "$dir" -j"$(nproc)" --output-on-failure "${ctest_args[@]}" \
        || status=1
}

run_suite normal build/normal -DCMAKE_BUILD_TYPE=RelWithDebInfo
if [ "${QF_QUICK:-0}" != 1 ]; then
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp"
    run_suite asan build/asan -DCMAKE_BUILD_TYPE=Debug -DQF_SANITIZE=ON -DQF_BUILD_BENCH=OFF
    export TSAN_OPTIONS="halt_on_error=1:suppressions=$root/tests/tsan.supp"
    run_suite tsan build/tsan -DCMAKE_BUILD_TYPE=Debug -DQF_TSAN=ON -DQF_BUILD_BENCH=OFF -DQF_BUILD_UI=OFF \
        -- -R '^(core_tests|android_tests)$'
    unset TSAN_OPTIONS
    bash scripts/fuzz.sh || status=1
fi

# One closing line over every suite: test cases from the GoogleTest reports.
passed=0 failed=0
for f in $(find "$results" -name '*.xml'); do
    cases=$(grep -c '<testcase ' "$f" || true)
    bad=$(awk '/<testcase /{tc=1; name=$0} /<failure/{ if (tc) {n++; tc=0} } /<\/testcase>/{tc=0} END{print n+0}' "$f")
    skipped=$(grep -c 'result="skipped"' "$f" || true)
    passed=$((passed + cases - bad - skipped))
    failed=$((failed + bad))
done
# Each fuzz target counts as one case.
if [ -d build/fuzz/results ]; then
    passed=$((passed + $(cat build/fuzz/results/*.status 2>/dev/null | grep -c '^ok' || true)))
    failed=$((failed + $(cat build/fuzz/results/*.status 2>/dev/null | grep -c '^FAIL' || true)))
fi
# A program that crashed leaves no report; count it as a failure.
[ "$status" -ne 0 ] && [ "$failed" -eq 0 ] && failed=1
echo "$passed passed, $failed failed"
[ "$status" -eq 0 ] && [ "$failed" -eq 0 ]
