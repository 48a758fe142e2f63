#!/usr/bin/env bash
# Builds the benchmarks (optimised) and prints every figure: each Google
# Benchmark program with five repetitions (compare medians), then q9db decode
# end to end. Extra arguments go to every benchmark program, e.g.
# --benchmark_filter=Decode.
# Usage: bench/run.sh [BUILD_DIR] [BENCHMARK_ARGS...]   (default: build-bench)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
shift || true
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DQ9DB_BUILD_BENCH=ON -DQ9DB_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 >/dev/null
for program in "$build"/bin/q9db_*Bench; do
  "$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true "$@"
done
"$root/bench/decode_capture.sh" "$build"
# The Python package, when the build made it.
if [ -d "$build/python/q9db" ]; then /usr/bin/python3 "$root/bench/python_read_log.py" "$build"; fi
