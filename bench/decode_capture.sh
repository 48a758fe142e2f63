#!/usr/bin/env bash
# End-to-end speed of q9db decode: a capture of FRAMES lines (default
# 1,000,000), simulated from the demo vehicle of examples/, decoded to
# /dev/null as text, CSV and JSON, and as text again with the description
# bound to the bus and identifier, frame and signal filters in place (all
# passing, so that every frame still goes through them and is written).
# Prints the best of three runs per form in frames per second. Use an
# optimised build.
# Usage: bench/decode_capture.sh [BUILD_DIR [FRAMES]]   (default: build-bench)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
frames=${2:-1000000}
q9db=$build/bin/q9db
dbc=$root/examples/vehicle.dbc
[ -x "$q9db" ] || { echo "no $q9db: build it first" >&2; exit 2; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The demo vehicle sends about 260 frames a second; every cycle is a
# multiple of 10 ms, so the coarser clock step loses nothing.
seconds=$((frames / 250 + 1))
"$q9db" simulate "$dbc" --duration "$seconds" --step 10 \
  --set EngineStatus.EngineSpeed=2400.5 --set GearboxStatus.GearPos=Drive --set BatteryStatus.BatteryVoltage=13.9 |
  head -n "$frames" >"$scratch/capture.log"
count=$(wc -l <"$scratch/capture.log")
echo "$q9db, capture of $count frames ($(($(wc -c <"$scratch/capture.log") / 1024 / 1024)) MiB):"

now() { date +%s.%N; }
run() {  # NAME ARGS...: the best of three, in frames per second
  local name=$1 best= start end
  shift
  for _ in 1 2 3; do
    start=$(now)
    "$q9db" decode "$@" --log "$scratch/capture.log" >/dev/null
    end=$(now)
    best=$(awk -v a="$start" -v b="$end" -v best="$best" 'BEGIN { t = b - a; print (best == "" || t < best) ? t : best }')
  done
  awk -v f="$name" -v t="$best" -v n="$count" 'BEGIN { printf "%-9s %7.3f s  %10.0f frames/s\n", f, t, n / t }'
}
for format in text csv json; do run "$format" "$dbc" --format "$format"; done
run filtered --bus can0="$dbc" --id 0:0 --frame '*' --signal '*'
