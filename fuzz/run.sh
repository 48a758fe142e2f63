#!/usr/bin/env bash
# Builds the fuzz targets with clang (in build-fuzz, or $Q9DB_FUZZ_BUILD) and
# runs them; see fuzz/README.md.
#
#   fuzz/run.sh [SECONDS_PER_TARGET] [TARGET...]
#       The bounded run: each target (all by default) for SECONDS (40) on a
#       scratch copy of its seed corpus. Fails on any crash, leak, timeout or
#       broken contract, naming the input that did it.
#   fuzz/run.sh --campaign TARGET SECONDS
#       A long run whose corpus stays in build-fuzz/campaign/TARGET, so that
#       several runs add up; the seeds are its start.
#   fuzz/run.sh --minimise TARGET
#       Merges the seeds and the campaign's corpus into a small set that
#       reaches every edge they reach and puts it in fuzz/corpus/TARGET.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$PWD
build=${Q9DB_FUZZ_BUILD:-build-fuzz}
all_targets=(dbc_reader ldf_reader dbc_engine ldf_engine dbc_roundtrip decoder bit_field log_line)

die() { echo "fuzz/run.sh: $*" >&2; exit 2; }

known() {
  local t
  for t in "${all_targets[@]}"; do [[ $t == "$1" ]] && return 0; done
  die "unknown target '$1' (targets: ${all_targets[*]})"
}

build_targets() {
  command -v clang++ > /dev/null || die "clang++ is needed"
  echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' > /tmp/q9db_fuzz_probe_$$.cpp
  if ! clang++ -fsanitize=fuzzer /tmp/q9db_fuzz_probe_$$.cpp -o /tmp/q9db_fuzz_probe_$$ 2> /dev/null; then
    rm -f /tmp/q9db_fuzz_probe_$$*
    die "clang can't link libFuzzer programs: install the package libclang-rt-14-dev"
  fi
  rm -f /tmp/q9db_fuzz_probe_$$*
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DQ9DB_BUILD_FUZZ=ON -DQ9DB_BUILD_TESTS=OFF > /dev/null
  cmake --build "$build" -j2 --target q9db_fuzz_targets
}

# Keyword lists for the text formats.
dictionary() {
  case $1 in
    dbc_reader|dbc_engine|dbc_roundtrip) echo "-dict=$source_dir/fuzz/dbc.dict" ;;
    ldf_reader|ldf_engine) echo "-dict=$source_dir/fuzz/ldf.dict" ;;
    log_line) echo "-dict=$source_dir/fuzz/log_line.dict" ;;
  esac
}

# run TARGET CORPUS_DIR ARTIFACT_DIR SECONDS LOG: the fuzzer's status.
run_target() {
  local target=$1 corpus=$2 artifacts=$3 seconds=$4 log=$5
  mkdir -p "$corpus" "$artifacts"
  # -timeout: one input may take this long (the filter host runs scripts);
  # leaks are found at exit of each input's run by libFuzzer itself.
  UBSAN_OPTIONS=print_stacktrace=1 "$build/bin/fuzz_$target" "$corpus" $(dictionary "$target") \
    -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2560 -max_len=16384 -print_final_stats=1 \
    -artifact_prefix="$artifacts/" > "$log" 2>&1
}

executions() { sed -n 's/^stat::number_of_executed_units: *//p' "$1" | tail -1; }

bounded() {
  local seconds=$1
  shift
  local targets=("$@")
  [[ ${#targets[@]} -gt 0 ]] || targets=("${all_targets[@]}")
  for t in "${targets[@]}"; do known "$t"; done
  build_targets
  local work=$build/fuzz-run failed=0 summary=()
  rm -rf "$work"
  for t in "${targets[@]}"; do
    mkdir -p "$work/$t/corpus"
    cp "$source_dir/fuzz/corpus/$t/." "$work/$t/corpus/" -R
    echo "fuzz_$t: ${seconds}s ..."
    if run_target "$t" "$work/$t/corpus" "$work/$t/artifacts" "$seconds" "$work/$t/log"; then
      summary+=("$(printf '%-12s ok      %10s executions, corpus %s inputs' "$t" "$(executions "$work/$t/log")" \
        "$(ls "$work/$t/corpus" | wc -l)")")
    else
      failed=1
      summary+=("$(printf '%-12s FAILED  %10s executions; log %s' "$t" "$(executions "$work/$t/log")" "$work/$t/log")")
      grep -E -A30 '^==[0-9]+==ERROR|runtime error|contract violated|ERROR: libFuzzer' "$work/$t/log" | head -60 >&2 || tail -40 "$work/$t/log" >&2
      ls "$work/$t/artifacts"/* 2> /dev/null | sed 's/^/  input: /' >&2
    fi
  done
  printf '%s\n' "${summary[@]}"
  return $failed
}

campaign() {
  local t=$1 seconds=$2
  known "$t"
  build_targets
  local dir=$build/campaign/$t
  if [[ ! -d $dir/corpus ]]; then
    mkdir -p "$dir/corpus"
    cp "$source_dir/fuzz/corpus/$t/." "$dir/corpus/" -R
  fi
  echo "fuzz_$t: ${seconds}s in $dir (log $dir/log)"
  local status=0
  run_target "$t" "$dir/corpus" "$dir/artifacts" "$seconds" "$dir/log" || status=$?
  local total=$(( $(cat "$dir/seconds" 2> /dev/null || echo 0) + seconds ))
  echo "$total" > "$dir/seconds"
  echo "fuzz_$t: $(executions "$dir/log") executions, corpus $(ls "$dir/corpus" | wc -l) inputs, ${total}s in all"
  if [[ $status -ne 0 ]]; then
    grep -E -A30 '^==[0-9]+==ERROR|runtime error|contract violated|ERROR: libFuzzer' "$dir/log" | head -60 >&2 || true
    ls "$dir/artifacts"/* 2> /dev/null | sed 's/^/  input: /' >&2
  fi
  return $status
}

minimise() {
  local t=$1
  known "$t"
  build_targets
  local merged=$build/merged/$t
  rm -rf "$merged"
  mkdir -p "$merged"
  local sources=("$source_dir/fuzz/corpus/$t")
  [[ -d $build/campaign/$t/corpus ]] && sources+=("$build/campaign/$t/corpus")
  # Edges only (-use_counters=0): hit counts would keep several times as
  # many inputs, too many to keep in the repository.
  "$build/bin/fuzz_$t" -merge=1 -use_counters=0 -timeout=20 -rss_limit_mb=2560 -max_len=16384 "$merged" "${sources[@]}" \
    > "$build/merged/$t.log" 2>&1 || { tail -20 "$build/merged/$t.log" >&2; die "merge failed"; }
  rm -rf "$source_dir/fuzz/corpus/$t"
  mv "$merged" "$source_dir/fuzz/corpus/$t"
  echo "fuzz/corpus/$t: $(ls "$source_dir/fuzz/corpus/$t" | wc -l) inputs, $(du -s --apparent-size -k "$source_dir/fuzz/corpus/$t" | cut -f1) KB"
}

case ${1:-} in
  --campaign) [[ $# -eq 3 ]] || die "usage: fuzz/run.sh --campaign TARGET SECONDS"; campaign "$2" "$3" ;;
  --minimise) [[ $# -eq 2 ]] || die "usage: fuzz/run.sh --minimise TARGET"; minimise "$2" ;;
  ''|[0-9]*) seconds=${1:-40}; shift || true; bounded "$seconds" "$@" ;;
  *) die "usage: fuzz/run.sh [SECONDS_PER_TARGET] [TARGET...] | --campaign TARGET SECONDS | --minimise TARGET" ;;
esac
