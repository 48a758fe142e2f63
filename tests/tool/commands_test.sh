#!/usr/bin/env bash
# q9db run as a user runs it: output, messages on standard error, exit codes.
# Usage: commands_test.sh PATH/TO/q9db SOURCE_DIR
set -u
q9db=$1
data=$2/tests/filters/data
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect_run NAME EXPECTED_STATUS COMMAND...: runs, keeps stdout/stderr in $out/$err.
expect_run() {
  local name=$1 expected=$2
  shift 2
  "$@" >"$scratch/out" 2>"$scratch/err"
  local status=$?
  out=$(cat "$scratch/out")
  err=$(cat "$scratch/err")
  [ "$status" -eq "$expected" ] || fail "$name: status $status, expected $expected; stderr: $err"
}
expect_in() {  # expect_in NAME TEXT HAYSTACK
  case "$3" in *"$2"*) ;; *) fail "$1: '$2' not found in: $3" ;; esac
}

# Usage errors: status 2; help: status 0.
expect_run "no command" 2 "$q9db"
expect_run "unknown command" 2 "$q9db" frobnicate
expect_run "decode without file" 2 "$q9db" decode
expect_run "decode of a missing file" 2 "$q9db" decode "$scratch/none.dbc"
expect_in "missing file named" "none.dbc" "$err"
expect_run "bad format" 2 "$q9db" decode "$data/powertrain.dbc" --format xml
expect_run "help" 0 "$q9db" --help
expect_in "help lists decode" "decode" "$out"
expect_run "decode help" 0 "$q9db" decode --help
expect_in "decode help shows the log form" "123#DEADBEEF" "$out"

# Unreadable inputs: status 1 with the file named.
echo "not a description" >"$scratch/junk.txt"
expect_run "import of an unknown kind of file" 1 "$q9db" decode "$scratch/junk.txt" --log /dev/null
expect_in "unknown file named" "junk.txt" "$err"
expect_run "broken DBC" 1 "$q9db" decode "$data/broken.dbc" --log /dev/null
expect_in "broken DBC named" "broken.dbc" "$err"
expect_run "missing log" 1 "$q9db" decode "$data/powertrain.dbc" --log "$scratch/none.log"
expect_in "missing log named" "none.log: cannot open" "$err"

# Decoding: frames by name with values, units and texts; malformed lines
# reported with their line number, the rest still decoded.
cat >"$scratch/capture.log" <<'LOG'
(1.000000) can0 100#0102030405060708
(1.000100) can0 123#R
(1.000200) can0 100#01020304
this is no frame
  can0  7FE   [2]  01 02
(1.000300) can0 100#0102030405060708
LOG
expect_run "decode with malformed lines" 1 "$q9db" decode "$data/powertrain.dbc" --log "$scratch/capture.log"
expect_in "frame name" "1.000000 can0 100 EngineData" "$out"
expect_in "scaled value with unit" "EngineSpeed = 128.25 rpm" "$out"
expect_in "value text" "EngineState = 0 (Off)" "$out"
expect_in "malformed line numbered" "capture.log:4: identifier must have 3 or 8 hex digits: this is no frame" "$err"
[ "$(grep -c EngineData <<<"$out")" -eq 2 ] || fail "two EngineData frames expected (a short one doesn't match): $out"
case "$out" in *7FE*) fail "unknown frame shown without --show-unknown" ;; esac
grep -q ':2:' <<<"$err" && fail "remote frame reported: $err"

expect_run "decode from stdin, unknown shown" 1 "$q9db" decode "$data/powertrain.dbc" --show-unknown <"$scratch/capture.log"
expect_in "unknown frame raw" "can0 7FE (unknown) [2] 01 02" "$out"
expect_in "stdin named" "<stdin>:4:" "$err"

grep -v 'no frame' "$scratch/capture.log" >"$scratch/clean.log"
expect_run "csv" 0 "$q9db" decode "$data/powertrain.dbc" --log "$scratch/clean.log" --format csv
expect_in "csv header" "timestamp,interface,identifier,frame,signal,value,unit,text" "$out"
expect_in "csv row" "1.000000,can0,100,EngineData,EngineSpeed,128.25,rpm," "$out"
expect_run "json" 0 "$q9db" decode "$data/powertrain.dbc" --log "$scratch/clean.log" --format json
if command -v python3 >/dev/null; then
  python3 -c 'import json,sys; [json.loads(l) for l in sys.stdin]' <<<"$out" || fail "json lines don't parse: $out"
fi
expect_in "json signal" '{"name":"EngineSpeed","value":128.25,"unit":"rpm"}' "$out"

# dump, dot, info, convert.
expect_run "dump" 0 "$q9db" dump "$data/powertrain.dbc"
expect_in "dump cluster" "Cluster Powertrain (CAN)" "$out"
expect_in "dump frame" "Frame GearboxStatus  id 0xCF004FE ext  8 bytes  sender Gearbox  cycle 100 ms" "$out"
expect_in "dump signal" "Torque  bit 27  13 bits  little-endian  signed  scale 0.5 offset -100  unit Nm  range -2148 .. 1947.5  default -100" "$out"
expect_in "dump value texts" 'values: 0 "Off", 1 "Cranking"' "$out"
expect_in "dump ECUs" "ECUs: Brakes, Dash, Engine, Gearbox" "$out"
expect_run "dump of a broken file" 1 "$q9db" dump "$data/broken.dbc"
expect_in "dump names the file" "broken.dbc" "$err"
expect_run "dot" 0 "$q9db" dot "$data/powertrain.dbc" -o "$scratch/graph.dot"
grep -q '^digraph' "$scratch/graph.dot" || fail "dot: no digraph written"
expect_run "dot into a missing folder" 1 "$q9db" dot "$data/powertrain.dbc" -o "$scratch/no/graph.dot"
expect_run "info" 0 "$q9db" info "$data/powertrain.dbc"
expect_in "info id" "database id: Powertrain" "$out"
expect_in "info summary" "4 ECUs, 6 frames, 17 signals" "$out"
expect_run "info of an unknown kind of file" 1 "$q9db" info "$scratch/junk.txt"
expect_run "convert" 0 "$q9db" convert "$data/powertrain.dbc" "$scratch/again.dbc"
expect_run "converted file decodes alike" 1 "$q9db" decode "$scratch/again.dbc" --log "$scratch/capture.log"
expect_in "converted decode" "EngineSpeed = 128.25 rpm" "$out"

[ "$failures" -eq 0 ] && echo "all command checks passed"
exit $((failures > 0))
