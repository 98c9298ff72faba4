#!/usr/bin/env bash
# Builds and starts Quillfern. Starts the ADB server (port 5037) when it is not running; when no real
# device is attached, a simulated one (quillfern-devsim) is connected for as long as Quillfern runs.
# Arguments are passed to Quillfern (e.g. a log file to open). Safe to run again.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
bash scripts/setup.sh

export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
build="$root/build/normal"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target quillfern quillfern-devsim -j"$(nproc)"

adb_port=5037
adb -P "$adb_port" start-server

# Real devices: listed as "device" and not one of our simulators (product sim_phone).
real_devices=$(adb -P "$adb_port" devices -l | awk 'NR > 1 && $2 == "device" && !/product:sim_phone/' | wc -l)

devsim_pid=""
devsim_serial=""
cleanup() {
    if [ -n "$devsim_pid" ]; then
        kill "$devsim_pid" 2>/dev/null || true
        wait "$devsim_pid" 2>/dev/null || true
        # Otherwise the server lists the simulator as offline for a minute.
        [ -n "$devsim_serial" ] && adb -P "$adb_port" disconnect "$devsim_serial" >/dev/null 2>&1 || true
    fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# A log file on the command line opens instead of the live log: no simulator then.
if [ "$real_devices" -eq 0 ] && [ $# -eq 0 ]; then
    devsim_log="$build/devsim.log"
    "$build/tools/quillfern-devsim" --connect --rate 20 --adb-port "$adb_port" >"$devsim_log" 2>&1 &
    devsim_pid=$!
    for _ in $(seq 50); do
        port=$(sed -n 's/^listening on \([0-9]*\)$/\1/p' "$devsim_log")
        [ -n "$port" ] && break
        sleep 0.1
    done
    if [ -n "${port:-}" ]; then
        devsim_serial="127.0.0.1:$port"
        echo "No device attached: simulated device $devsim_serial (log: $devsim_log)"
        # Quillfern looks for devices once at start: wait until the server lists it.
        for _ in $(seq 100); do
            adb -P "$adb_port" devices | grep -q "^$devsim_serial[[:space:]]device" && break
            sleep 0.1
        done
    else
        echo "The device simulator did not start; see $devsim_log" >&2
    fi
fi

"$build/src/quillfern" "$@"
