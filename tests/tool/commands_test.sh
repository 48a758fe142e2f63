#!/usr/bin/env bash
# q9db run as a user runs it, on the bundled examples: output, messages on
# standard error, exit codes.
# Usage: commands_test.sh PATH/TO/q9db SOURCE_DIR
set -u
q9db=$1
examples=$2/examples
dbc=$examples/vehicle.dbc
ldf=$examples/seats.ldf
capture=$examples/vehicle.log
unusable=$2/tests/filters/data/unusable.dbc
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# run NAME EXPECTED_STATUS COMMAND...: runs, keeps stdout/stderr in $out/$err.
run() {
  local name=$1 expected=$2
  shift 2
  "$@" >"$scratch/out" 2>"$scratch/err"
  local status=$?
  out=$(cat "$scratch/out")
  err=$(cat "$scratch/err")
  [ "$status" -eq "$expected" ] || fail "$name: status $status, expected $expected; stderr: $err"
  current=$name
}
# has out|err TEXT: the last run's stream holds TEXT.
has() {
  local text
  if [ "$1" = out ]; then text=$out; else text=$err; fi
  case "$text" in *"$2"*) ;; *) fail "$current: '$2' not in std$1: $(head -c 600 <<<"$text")" ;; esac
}
lacks() {
  local text
  if [ "$1" = out ]; then text=$out; else text=$err; fi
  case "$text" in *"$2"*) fail "$current: '$2' unexpected in std$1" ;; esac
}

# Usage errors: status 2; help: status 0.
while IFS='|' read -r name args; do
  # shellcheck disable=SC2086  # the table's arguments are words
  run "usage: $name" 2 "$q9db" $args
done <<TABLE
no command|
unknown command|frobnicate
decode without file|decode
simulate without duration|simulate $dbc
zero duration|simulate $dbc --duration 0
step of zero|simulate $dbc --duration 1 --step 0
interface with a blank|simulate $dbc --duration 1 --interface a(b
start that is no timestamp|simulate $dbc --duration 1 --start 12.5e3
convert without output|convert $dbc
TABLE
run "missing description file" 1 "$q9db" dump "$scratch/none.dbc"
has err "none.dbc: cannot open: No such file or directory"
run "bad --format" 2 "$q9db" decode "$dbc" --format xml
has err "--format: 'xml' is none of text, line, csv, json"
lacks err "->"
run "version" 0 "$q9db" --version
has out "q9db 0."
for command in "" decode simulate dump dot info convert; do
  # shellcheck disable=SC2086
  run "help of '$command'" 0 "$q9db" $command --help
  has out "Usage:"
done
run "help lists the commands" 0 "$q9db" --help
for command in decode simulate dump dot info convert; do has out "$command"; done
run "decode help" 0 "$q9db" decode --help
has out "123#DEADBEEF"
run "simulate help" 0 "$q9db" simulate --help
has out "FRAME.SIGNAL=VALUE"

# Unreadable inputs: status 1 with the file named.
echo "not a description" >"$scratch/junk.txt"
while IFS='|' read -r name message args; do
  # shellcheck disable=SC2086
  run "input: $name" 1 "$q9db" $args
  has err "$message"
  lacks err "status 0x"
done <<TABLE
unknown kind of file|junk.txt: not a file format this package reads|decode $scratch/junk.txt --log /dev/null
unusable DBC|q9db: $unusable:1:18: message size expected but found 'eight'|decode $unusable --log /dev/null
unusable DBC dumped|q9db: $unusable:1:18: message size expected|dump $unusable
unusable DBC simulated|q9db: $unusable:1:18: message size expected|simulate $unusable --duration 1
missing capture|none.log: cannot open: No such file or directory|decode $dbc --log $scratch/none.log
folder as capture|read error after line 0: Is a directory|decode $dbc --log $scratch
no CAN channel to decode on|no CAN bus is described in $ldf|decode $ldf --log $capture
no CAN frame to simulate|no CAN frame to send in $ldf|simulate $ldf --duration 1
info of an unknown kind of file|junk.txt: no filter reads this kind of file|info $scratch/junk.txt
dot into a missing folder|graph.dot: cannot write: No such file or directory|dot $dbc -o $scratch/no/graph.dot
TABLE

# The bundled capture is what its script makes, so it can be made again.
sh "$examples/make_capture.sh" "$q9db" "$scratch/again.log" 2>"$scratch/err" ||
  fail "make_capture.sh: $(cat "$scratch/err")"
cmp -s "$capture" "$scratch/again.log" ||
  fail "examples/vehicle.log differs from what make_capture.sh writes now (cmake --build build --target q9db_example_capture)"

# Decoding the capture: every line a frame, in each format.
run "decode text" 0 "$q9db" decode "$dbc" "$ldf" --log "$capture"
has out "1700000000.000000 can0 0C8 EngineStatus"
has out "  EngineTorque = -12.5 Nm"
has out "  GearPos = 1 (Reverse)"
has out "  CurrentGear = -1 (Reverse gear)"
has out "1700000000.000000 can0 18FEF117 BatteryStatus"
has out "  BatteryVoltage = 13.8 V"
has out "1700000000.000000 can0 500 ObjectList"
has out "  Object1Class = 4 (Pedestrian)"
has out "  DiagPage = 1 (Windows)"
frames=$(grep -c '^1700' <<<"$out")
[ "$frames" -eq "$(wc -l <"$capture")" ] || fail "decode text: $frames frames of $(wc -l <"$capture") lines"
text=$out
run "decode csv" 0 "$q9db" decode "$dbc" --log "$capture" --format csv
has out "timestamp,interface,identifier,frame,signal,value,unit,text"
has out "1700000000.000000,can0,18FEF117,BatteryStatus,ChargeState,2,,Discharging"
has out "1700000000.000000,can0,0C8,EngineStatus,EngineSpeed,1150.25,rpm,"
run "decode json" 0 "$q9db" decode "$dbc" --log "$capture" --format json
has out '{"timestamp":1700000000.000000,"interface":"can0","identifier":"500","extended":false,"fd":true,"frame":"ObjectList","signals":[{"name":"ObjectCount","value":1},'
has out '{"name":"Ignition","value":2,"text":"On"}'
if command -v python3 >/dev/null; then
  python3 -c 'import json,sys; [json.loads(l) for l in sys.stdin]' <<<"$out" || fail "decode json: lines don't parse"
fi
[ "$(wc -l <<<"$out")" -eq "$(wc -l <"$capture")" ] || fail "decode json: not one line per frame"

# Malformed lines: reported with file and line, skipped; the rest decodes.
cat >"$scratch/mixed.log" <<'LOG'
(1.000000) can0 0C8#F91180E70F148200
(1.000100) can0 0C8#R
this is no frame
(1.000200) can0 0C8#F9118
(1.000300 can0 0C8#00
(1.000400) can0 800#00
(1.000500) can0 0C8#00112233445566778899
(1.000600) can0 7FF#01
  can0  0C8   [8]  F9 11 80 E7 0F 14 82 00
LOG
run "decode with malformed lines" 1 "$q9db" decode "$dbc" --log "$scratch/mixed.log"
while IFS= read -r message; do has err "$message"; done <<'TABLE'
mixed.log:3: identifier must have 3 or 8 hex digits: this is no frame
mixed.log:7: classic CAN data is longer than 8 bytes
TABLE
lacks err ":2:"
lacks out "7FF"
[ "$(grep -c EngineStatus <<<"$out")" -eq 2 ] || fail "decode with malformed lines: the log and the live form decode: $out"
has out "1.000000 can0 0C8 EngineStatus"
run "unknown frames shown, from standard input" 1 "$q9db" decode "$dbc" --show-unknown <"$scratch/mixed.log"
has out "1.000600 can0 7FF (unknown) [1] 01"
has err "<stdin>:3:"

# simulate: what --set gives decodes back, value texts, signs, floats and
# multiplexed parts included.
settings=()
expected=()
while IFS='|' read -r setting decoded; do
  settings+=(--set "$setting")
  expected+=("$decoded")
done <<'TABLE'
EngineStatus.EngineSpeed=2500.75|EngineSpeed = 2500.75 rpm
EngineStatus.EngineTorque=-300.5|EngineTorque = -300.5 Nm
EngineStatus.EngineState=Stalled|EngineState = 3 (Stalled)
GearboxStatus.GearPos=Sport|GearPos = 4 (Sport)
GearboxStatus.CurrentGear=Reverse gear|CurrentGear = -1 (Reverse gear)
GearboxStatus.GearRatio=0.8125|GearRatio = 0.8125
WheelSpeeds.WheelSpeedRR=123.45|WheelSpeedRR = 123.45 km/h
BrakeStatus.YawRate=-327.68|YawRate = -327.68 deg/s
BodyStatus.OutsideTemp=-40|OutsideTemp = -40 degC
BodyDiag.SeatHeatDriver=High|SeatHeatDriver = 3 (High)
ClimateRequest.TargetTemp=29.5|TargetTemp = 29.5 degC
BatteryStatus.BatteryVoltage=11.95|BatteryVoltage = 11.95 V
ObjectList.LaneCurvature=-0.002|LaneCurvature = -0.002 1/m
ObjectList.Checksum=0xBEEF|Checksum = 48879
TABLE
"$q9db" simulate "$dbc" --duration 0.5 "${settings[@]}" >"$scratch/simulated.log" 2>"$scratch/err" ||
  fail "simulate with settings: $(cat "$scratch/err")"
run "simulated capture decodes" 0 "$q9db" decode "$dbc" --log "$scratch/simulated.log"
for decoded in "${expected[@]}"; do has out "  $decoded"; done
has out "  DiagPage = 2 (Seats)"
[ "$(grep -c 'can0 2F0 ClimateRequest' <<<"$out")" -eq 1 ] || fail "a frame without cycle is sent once, when set"
[ "$(grep -c 'can0 0C8 EngineStatus' <<<"$out")" -eq 50 ] || fail "a 10 ms frame is sent 50 times in 0.5 s"

run "simulate: clock, interface and start" 0 "$q9db" simulate "$dbc" -d 0.05 --step 10 -i vcan1 --start 5.25
has out "(5.250000) vcan1 0C8#"
has out "(5.250000) vcan1 18FEF117#"
has out "(5.250000) vcan1 500##1"
has out "(5.290000) vcan1 0C8#"
lacks out "(5.300000)"

while IFS='|' read -r setting message; do
  run "bad --set $setting" 1 "$q9db" simulate "$dbc" --duration 1 --set "$setting"
  has err "q9db: --set $setting: $message"
  [ -z "$out" ] || fail "bad --set $setting: frames written"
done <<'TABLE'
Wipers.Speed=1|no CAN frame is named Wipers
EngineStatus.OilLevel=1|frame EngineStatus has no signal named OilLevel
EngineStatus.EngineSpeed=16384|16384 is out of the signal's range 0 .. 16383.75
BodyStatus.OutsideTemp=-40.5|-40.5 is out of the signal's range -40 .. 63.5
ObjectList.Checksum=65536|65536 is beyond what the signal's bits carry (0 .. 65535)
GearboxStatus.GearPos=Sideways|'Sideways' is no number and none of the signal's value texts: Park, Reverse, Neutral, Drive, Sport, Manual
BatteryStatus.BatteryVoltage=high|'high' is no number, and the signal has no value texts
EngineStatus.=1|the signal name between '.' and '=' is missing
TABLE

# dump, dot, info, convert.
run "dump" 0 "$q9db" dump "$dbc" "$ldf"
while IFS= read -r line; do has out "$line"; done <<'TABLE'
Cluster DemoVehicle (CAN)
Frame EngineStatus  id 0xC8 std  8 bytes  sender EngineCtrl  cycle 10 ms
EngineTorque  bit 24  12 bits  little-endian  signed  scale 0.5 offset 0  unit Nm  range -1024 .. 1023.5  default 0
ThrottlePos  bit 47  10 bits  big-endian  unsigned  scale 0.1 offset 0  unit %  range 0 .. 100  default 0
GearRatio  bit 32  32 bits  little-endian  float  scale 1 offset 0  range -inf .. inf  default 3.5
values: 0 "Park", 1 "Reverse", 2 "Neutral", 3 "Drive", 4 "Sport", 5 "Manual"
values: 0 "No gear", -1 "Reverse gear"
Frame ClimateRequest  id 0x2F0 std  3 bytes  sender BodyCtrl
Multiplexed by the switch at bit 0, 8 bits, little-endian
[switch 2]
Frame BatteryStatus  id 0x18FEF117 ext  8 bytes  sender BatteryMgmt  cycle 100 ms
Frame ObjectList  id 0x500 std FD (bit rate switch)  64 bytes  sender DriverAssist  cycle 50 ms
Cluster SeatLin (LIN)
Frame MirrorStatus  id 0x22 enhanced checksum  1 byte  sender MirrorCtrl
DriverSeatTemp  bit 0  8 bits  little-endian  unsigned  scale 0.5 offset -20  unit degC  range -20 .. 105  default 255
ECUs: BatteryMgmt, BodyCtrl, BrakeCtrl, DriverAssist, EngineCtrl, GearboxCtrl, Instruments, BodyCtrlLin, MirrorCtrl, SeatDriver, SeatPassenger
TABLE
run "dot" 0 "$q9db" dot "$dbc" "$ldf" -o "$scratch/graph.dot"
head -n 1 "$scratch/graph.dot" | grep -q '^digraph' || fail "dot: no digraph written"
grep -q 'EngineStatus' "$scratch/graph.dot" || fail "dot: frames missing"
run "info of the DBC" 0 "$q9db" info "$dbc"
has out "database id: DemoVehicle"
has out "DemoVehicle: 7 ECUs, 10 frames, 55 signals"
run "info of the LDF" 0 "$q9db" info "$ldf"
has out "database id: SeatLin"
has out "schedule table Normal: 4 slots, 40 ms"
run "convert" 0 "$q9db" convert "$dbc" "$scratch/again.dbc"
"$q9db" decode "$dbc" --log "$capture" >"$scratch/first.txt"
"$q9db" decode "$scratch/again.dbc" --log "$capture" >"$scratch/second.txt"
cmp -s "$scratch/first.txt" "$scratch/second.txt" || fail "convert: the exported DBC decodes the capture differently"
run "convert to LDF" 0 "$q9db" convert "$ldf" "$scratch/again.ldf"
run "convert a CAN database to LDF" 1 "$q9db" convert "$dbc" "$scratch/none.ldf"
has err "the database holds no LIN cluster to export"

# Nothing passes in silence: a frame of a known identifier that doesn't fit
# its description says why, and every kind is counted at the end.
data=$2/tests/tool/data
run "frames that don't fit" 0 "$q9db" decode "$dbc" --log "$data/mismatches.log"
while IFS= read -r message; do has err "$message"; done <<'TABLE'
mismatches.log:1: 0C8 not decoded: 2 bytes, EngineStatus has 8
mismatches.log:2: 0C8 not decoded: logged as CAN FD, EngineStatus is a classic CAN frame
mismatches.log:3: 500 not decoded: logged as classic CAN, ObjectList is a CAN FD frame
mismatches.log:4: 000000C8 not decoded: an extended identifier, EngineStatus has a standard one
mismatches.log:6: 1A2 not decoded: 8 bytes, BrakeStatus has 6
mismatches.log: 2 frames of a known identifier but another length
mismatches.log: 2 frames of a known identifier in the other CAN form (FD or classic)
TABLE
[ "$(grep -c EngineStatus <<<"$out")" -eq 1 ] || fail "frames that don't fit: the fitting one decodes: $out"
run "frames that don't fit, quietly" 0 "$q9db" decode "$dbc" --log "$data/mismatches.log" -q
lacks err "not decoded"
has err "mismatches.log: 2 frames of a known identifier but another length"
has err "mismatches.log: 1 frame of a known identifier with the other identifier type"
run "frames that don't fit, one report of a kind" 0 "$q9db" decode "$dbc" --log "$data/mismatches.log" --max-reports 1
has err "further frames of a known identifier but another length are counted, not shown (--max-reports)"
lacks err "mismatches.log:6:"

# Import warnings: once, by every command that imports; --quiet hides them.
warned=$2/tests/import/data/tolerant/comment_without_keyword.dbc
warning="comment_without_keyword.dbc:8:5: comment names object 145 without BO_"
for command in "dump $warned" "decode $warned --log /dev/null" "simulate $warned -d 0.01" \
               "convert $warned $scratch/warned.dbc" "dot $warned -o $scratch/warned.dot"; do
  # shellcheck disable=SC2086
  run "import warning: $command" 0 "$q9db" $command
  [ "$(grep -c "warning: .*$warning" <<<"$err")" -eq 1 ] || fail "$current: the warning not shown once: $err"
  # shellcheck disable=SC2086
  run "import warning, quiet: $command" 0 "$q9db" $command --quiet
  lacks err "$warning"
done

# What the written format can't hold is reported by convert, unless quiet.
lost="quotation marks inside texts are written as apostrophes"
escaped=$2/tests/import/data/tolerant/escaped_strings.dbc
run "convert reports what the format loses" 0 "$q9db" convert "$escaped" "$scratch/escaped.dbc"
has err "warning: $scratch/escaped.dbc: 2 $lost"
run "convert reports what the format loses, quiet" 0 "$q9db" convert "$escaped" "$scratch/escaped.dbc" --quiet
lacks err "$lost"

# Output errors are input/output errors, on every command; a reader that
# goes away is none.
for command in "decode $dbc --log $capture" "dump $dbc" "dot $dbc -o -" "info $dbc" "simulate $dbc -d 1"; do
  # shellcheck disable=SC2086
  "$q9db" $command >/dev/full 2>"$scratch/err"
  status=$?
  [ "$status" -eq 1 ] || fail "full disk: $command: status $status"
  grep -q "No space left on device" "$scratch/err" || fail "full disk: $command: $(cat "$scratch/err")"
done 2>/dev/null
"$q9db" decode "$dbc" --log "$capture" 2>"$scratch/err" | head -n 1 >/dev/null
[ "${PIPESTATUS[0]}" -eq 0 ] || fail "decode into a closed pipe: status ${PIPESTATUS[0]}"

# Binding a description to a bus: can1's frames decode with body.dbc alone.
run "both files on every bus" 0 "$q9db" decode "$data/chassis.dbc" "$data/body.dbc" --log "$data/two_buses.log" -f line
has out "2.001000 can1 100 SteeringWheel: WheelAngle=102.5 deg"
has out "2.001000 can1 100 DoorLocks: LockState=1; DoorCount=4"
run "one file per bus" 0 "$q9db" decode -b can0="$data/chassis.dbc" --bus can1="$data/body.dbc" --log "$data/two_buses.log" -f line
has out "2.000000 can0 100 SteeringWheel: WheelAngle=100 deg"
has out "2.001000 can1 100 DoorLocks: LockState=1; DoorCount=4"
lacks out "can1 100 SteeringWheel"
has err "two_buses.log:3: can2: no description is bound to this bus; its frames are passed over"
has err "two_buses.log: 2 frames on buses that no description is bound to"
run "a bus for the rest" 0 "$q9db" decode "$data/chassis.dbc" -b can1="$data/body.dbc" --log "$data/two_buses.log" -f line
has out "2.002000 can2 100 SteeringWheel"
lacks out "can1 100 SteeringWheel"
# stats binds as decode does: each bus its own description, described
# frames missed on their own bus.
run "stats, one file per bus" 0 "$q9db" stats --bus can0="$data/chassis.dbc" --bus can1="$data/body.dbc" \
  --log "$data/two_buses.log" -f csv
has out "frame,can1,100,false,DoorLocks,1,"
has out "frame,can2,100,false,,2,"
has err "can2: no description is bound to this bus; its frames count as unknown"
run "stats, a bound frame missed" 0 "$q9db" stats --bus can1="$data/body.dbc" --bus can3="$data/chassis.dbc" \
  --log "$data/two_buses.log" -f csv
has out "not_seen,,100,false,SteeringWheel"
lacks out "not_seen,,100,false,DoorLocks"
run "stats without a description" 2 "$q9db" stats --log /dev/null

# Ctrl-C ends a live capture, and stats still prints what it read.
mkfifo "$scratch/live"
(cat "$data/stats.log"; sleep 6) >"$scratch/live" 2>/dev/null &
writer=$!
run "stats of a live capture ended by Ctrl-C" 0 timeout --foreground --preserve-status -s INT 3 "$q9db" stats "$dbc" --log "$scratch/live"
kill "$writer" 2>/dev/null; wait "$writer" 2>/dev/null
has out "described frames not seen:"
has err "interrupted after line 15; the statistics cover what was read"
run "bad binding" 2 "$q9db" decode -b can1 --log /dev/null
has err "'can1' is no binding: INTERFACE=FILE"
run "binding a file without CAN" 1 "$q9db" decode -b can1="$ldf" --log /dev/null
has err "no CAN bus is described in it, so it can't be bound to can1"

# Filters, the frame's bytes, one line per frame, timestamps, J1939.
while IFS='|' read -r name args expected unexpected; do
  # shellcheck disable=SC2086
  run "filter: $name" 0 "$q9db" decode "$dbc" --log "$capture" $args
  has out "$expected"
  [ -z "$unexpected" ] || lacks out "$unexpected"
done <<'TABLE'
identifier and mask|--id 0C8:7FF -f line|can0 0C8 EngineStatus:|GearboxStatus
identifier, inverted|--id 0C8~7FF -f line|can0 0D0 GearboxStatus:|EngineStatus
extended identifier|--id 18FEF117 -f line|BatteryStatus|EngineStatus
frame pattern|--frame Wheel* -f line|WheelSpeeds: WheelSpeedFL=|EngineStatus
signal|--signal EngineSpeed --signal Gear* -f line|EngineStatus: EngineSpeed=1150.25 rpm|CoolantTemp
signal in the text form|-s WindowFL|  WindowFL = 40 %|WindowFR
bytes in one line|-r -f line -t z|0.000000 can0 0C8 [8] |ZZZ
bytes beside values|--raw --id 180|can0 180 [8] |ZZZ
time from the frame before|-t d -f line --id 0C8|0.010000 can0 0C8 EngineStatus|1700000000.010000
TABLE
run "signal filter keeps frames with the signal" 0 "$q9db" decode "$dbc" --log "$capture" -s EngineSpeed -f line
[ "$(wc -l <<<"$out")" -eq "$(grep -c ' 0C8#' "$capture")" ] || fail "signal filter: one line per EngineStatus"
run "bad identifier filter" 2 "$q9db" decode "$dbc" --id 0C8:XYZ --log /dev/null
has err "'0C8:XYZ' is no identifier filter"
run "J1939 by parameter group" 0 "$q9db" decode "$dbc" --j1939 --log "$data/j1939.log" -f line
[ "$(grep -c BatteryStatus <<<"$out")" -eq 3 ] || fail "J1939: other source and priority decode: $out"
run "J1939 off" 0 "$q9db" decode "$dbc" --log "$data/j1939.log" -f line
[ "$(grep -c BatteryStatus <<<"$out")" -eq 1 ] || fail "J1939 off: only the described identifier decodes"
has err "j1939.log: 2 frames of identifiers no description knows passed over"
run "stats, J1939 by parameter group" 0 "$q9db" stats "$dbc" --j1939 --log "$data/j1939.log" -f csv
[ "$(grep -c '^frame,can0,.*,true,BatteryStatus,' <<<"$out")" -eq 3 ] || fail "$current: every source is the frame: $out"

# Compressed captures, from a file or a pipe; a cut one is an input error.
"$q9db" decode "$dbc" --log "$capture" >"$scratch/plain.txt"
gzip -c "$capture" >"$scratch/capture.log.gz"
xz -c "$capture" >"$scratch/capture.log.xz"
for compressed in "$scratch/capture.log.gz" "$scratch/capture.log.xz"; do
  "$q9db" decode "$dbc" --log "$compressed" >"$scratch/unpacked.txt" || fail "decode $compressed: status $?"
  cmp -s "$scratch/plain.txt" "$scratch/unpacked.txt" || fail "decode $compressed: not the plain capture's frames"
  "$q9db" decode "$dbc" <"$compressed" >"$scratch/unpacked.txt" || fail "decode $compressed from a pipe: status $?"
  cmp -s "$scratch/plain.txt" "$scratch/unpacked.txt" || fail "decode $compressed from a pipe differs"
done
head -c 2000 "$scratch/capture.log.gz" >"$scratch/cut.log.gz"
run "a cut gzip capture" 1 "$q9db" decode "$dbc" --log "$scratch/cut.log.gz"
has err "gzip: the data ends before the stream does"

# dump shows the positions of multiplexed signals in the frame, as the file does.
run "dump: multiplexed positions" 0 "$q9db" dump "$dbc" "$2/tests/import/data/tolerant/multiplexing_two_levels.dbc"
has out "CabinTemp  bit 8  8 bits"
has out "WindowFR  bit 16  7 bits"
has out "Multiplexed by the switch at bit 8, 4 bits"
has out "Deep  bit 16  8 bits"

# convert says which cause failed it.
while IFS='|' read -r name args message; do
  # shellcheck disable=SC2086
  run "convert: $name" 1 "$q9db" convert $args
  has err "$message"
  lacks err "status 0x"
done <<TABLE
no CAN bus for a DBC|$ldf $scratch/seats.dbc|seats.dbc: the database holds no CAN cluster to export
unknown extension|$dbc $scratch/vehicle.xyz|vehicle.xyz: no export filter writes files of this kind
unwritable path|$dbc $scratch/no/vehicle.dbc|vehicle.dbc: the file can't be written
TABLE
# stats: a capture with a cycle that jitters, a frame of the wrong length,
# an unknown identifier, a remote frame and a line without timestamp; can1
# holds three dominant frames of 53 bits each, 1 ms apart.
statslog=$2/tests/tool/data/stats.log
run "stats text" 0 "$q9db" stats "$dbc" --log "$statslog"
out=$(tr -s ' ' <<<"$out")
while IFS= read -r line; do has out "$line"; done <<'TABLE'
can0 0C8 EngineStatus 5 10.000 9.300 10.500 10 0.700 0.442 8 0 8
can0 0D0 GearboxStatus 1 - - - 20 - - 8 0 8
can0 1A2 BrakeStatus 2 50.000 50.000 50.000 50 0.000 0.000 6 1 6 (1), 8 (1)
can0 7FF (unknown) 2 10.000 10.000 10.000 - - 0.000 - - 1
can1 3 0.002000 15.90
unknown identifiers: 2 (5 frames)
described frames not seen: SteeringStatus (180), WheelSpeeds (1A0), ClimateRequest (2F0)
TABLE
has err "stats.log: frames without a timestamp: 1"
has err "stats.log: remote or error frames: 1"
run "stats csv" 0 "$q9db" stats "$dbc" --log "$statslog" --format csv
has out "frame,can0,1A2,false,BrakeStatus,2,50.000,50.000,50.000,50,0.000,0.000,6,false,1,\"6 (1), 8 (1)\",,,,"
has out "interface,can1,,,,3,,,,,,,,,,,0.002000,159,0,15.90"
has out "not_seen,,500,false,ObjectList,0,,,,50,,,64,true,,,,,,"
run "stats json" 0 "$q9db" stats "$dbc" --log "$statslog" --format json --bitrate 250000
/usr/bin/python3 -c '
import json, sys
d = json.load(sys.stdin)
engine = d["frames"][0]
assert (engine["frame"], engine["count"], engine["jitter_ms"], engine["period_ms"]["stddev"]) == ("EngineStatus", 5, 0.7, 0.442), engine
assert [f["mismatched"] for f in d["frames"]] == [0, 0, 1, None, None], d["frames"]
assert [b["load_percent"] for b in d["interfaces"]][1] == 31.8, d["interfaces"]
assert (d["unknown_identifiers"], d["untimed_frames"], d["skipped_frames"]) == (2, 1, 1), d
' <<<"$out" || fail "stats json: does not parse or holds other values: $(head -c 600 <<<"$out")"
run "stats of the bundled capture" 0 "$q9db" stats "$dbc" --log "$capture"
has out "described frames not seen: none"
lacks err "q9db"
while IFS='|' read -r name expected message args; do
  # shellcheck disable=SC2086
  run "stats: $name" "$expected" "$q9db" stats $args
  has err "$message"
done <<TABLE
bit rate out of range|2|--bitrate: Value 5000000 not in range|$dbc --bitrate 5000000
missing capture|1|none.log: cannot open|$dbc --log $scratch/none.log
malformed line|1|mixed.log:3: identifier must have 3 or 8 hex digits|$dbc --log $scratch/mixed.log
TABLE
"$q9db" stats "$dbc" --log "$statslog" >/dev/full 2>"$scratch/err" && fail "stats to /dev/full: status 0"
grep -q "standard output: No space left on device" "$scratch/err" || fail "stats to /dev/full: no message: $(cat "$scratch/err")"

# simulate --script: the example restbus script's counters roll 0..15 and
# wrap, and each steering frame's CRC-8 (SAE J1850) is computed here anew.
run "restbus script" 0 "$q9db" simulate "$dbc" --duration 0.5 --script "$examples/restbus.lua" \
  --set SteeringStatus.SteeringAngle=-35.5 --set SteeringStatus.SteeringRate=12
problem=$(/usr/bin/python3 - "$scratch/out" 2>&1 <<'PY'
import sys
def crc8(data):  # polynomial 0x1D, initial value 0xFF, final XOR 0xFF
    crc = 0xFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc << 1 ^ 0x1D) & 0xFF if crc & 0x80 else crc << 1 & 0xFF
    return crc ^ 0xFF
frames = {"180": [], "0C8": []}
for line in open(sys.argv[1]):
    identifier, data = line.split()[2].split("#", 1)
    if identifier in frames:
        frames[identifier].append(bytes.fromhex(data))
steering, engine = frames["180"], frames["0C8"]
assert len(steering) == len(engine) == 50, (len(steering), len(engine))
for i, data in enumerate(steering):
    assert data[0] == crc8(data[1:]), f"steering frame {i}: CRC {data.hex()}"
    assert data[1] & 0x0F == i % 16, f"steering frame {i}: counter {data.hex()}"
for i, data in enumerate(engine):
    assert data[7] >> 4 == i % 16, f"engine frame {i}: alive counter {data.hex()}"
PY
) || fail "restbus script: $problem"

# The frame object: its fields, values in and out by name and value text,
# a multiplexed part selected by its switch, bytes.
cat >"$scratch/api.lua" <<'LUA'
function setup(db) assert(db.tag == "Q9Db") end
function before_send(frame)
  assert(frame.node.tag == "Frame" and frame.node.shortname == frame.name)
  if frame.name == "BatteryStatus" then
    assert(frame.extended and not frame.fd and frame.identifier == 0x18FEF117 and frame.length == 8)
    assert(frame.signals.ChargeState == 2)
  elseif frame.name == "EngineStatus" then
    assert(math.abs(frame.signals.ThrottlePos - 8.2) < 1e-9)
    frame:set("EngineState", "Fault")
    assert(frame:get("EngineState") == 4 and frame.signals.EngineState == 2)
  elseif frame.name == "BodyDiag" then
    assert(frame.signals.WindowFL == 40 and frame:get("CabinTemp") == nil)
    assert(not pcall(frame.set, frame, "SeatHeatDriver", 1))
    frame:set("DiagPage", "Seats")
    frame:set("SeatHeatPassenger", "Medium")
  elseif frame.name == "ObjectList" then
    assert(frame.fd and frame.length == 64)
    frame:setbyte(64, frame:byte(64) + 1)
    assert(#frame:bytes() == 64 and not pcall(frame.byte, frame, 65))
  end
end
LUA
"$q9db" simulate "$dbc" --duration 0.01 --script "$scratch/api.lua" --set BatteryStatus.ChargeState=Discharging \
  --set EngineStatus.ThrottlePos=8.2 --set BodyDiag.WindowFL=40 >"$scratch/api.log" 2>"$scratch/err" ||
  fail "restbus frame object: $(cat "$scratch/err")"
run "restbus frame object decodes" 0 "$q9db" decode "$dbc" --log "$scratch/api.log"
has out "  EngineState = 4 (Fault)"
has out "  SeatHeatPassenger = 2 (Medium)"
has out "  Checksum = 256"

# A signal set in a nested part keeps its value where another part copies
# the same bits of the frame.
cat >"$scratch/nested.lua" <<'LUA'
function before_send(frame)
  frame:set("Service", 1)
  frame:set("Page", 2)
  frame:set("Pressure", 123.5)
end
LUA
nested=$2/python/tests/data/nested_switches.dbc
"$q9db" simulate "$nested" -d 0.001 --set Diag.Counter=7 --script "$scratch/nested.lua" >"$scratch/nested.log" 2>"$scratch/err" ||
  fail "restbus nested parts: $(cat "$scratch/err")"
run "restbus nested parts decode" 0 "$q9db" decode "$nested" --log "$scratch/nested.log" -f line
has out "Page=2; Pressure=123.5 kPa"

# Script errors stop the simulation, naming the script's line and the frame;
# the lines written before stay whole.
while IFS='|' read -r name body message; do
  printf '%b\n' "$body" >"$scratch/$name.lua"
  run "restbus error: $name" 1 "$q9db" simulate "$dbc" --duration 0.1 --script "$scratch/$name.lua"
  has err "$message"
  if [ -n "$out" ] && grep -qvE '^\([0-9]+\.[0-9]{6}\) can0 [0-9A-F]+##?[0-9A-F]+$' <<<"$out"; then
    fail "restbus error: $name: broken lines written"
  fi
done <<'TABLE'
raises|function before_send(f)\n  if f.name == "SteeringStatus" and f.count == 2 then error("no steering") end\nend|/raises.lua:2: no steering
syntax|function before_send(f) f:set("SteeringCounter" 1) end|/syntax.lua:1: ')' expected near '1'
setup|function setup(db) db:shutdown() end|/setup.lua:1: attempt to call a nil value (method 'shutdown')
unknown|function before_send(f) f:set("Wiper", 1) end|/unknown.lua:1: frame EngineStatus has no signal named Wiper
range|function before_send(f)\n  if f.name == "SteeringStatus" then f:set("SteeringCounter", 16) end\nend|/range.lua:2: SteeringStatus.SteeringCounter: 16 is out of the signal's range 0 .. 15
kept|local kept\nfunction before_send(f)\n  if kept then kept:setbyte(1, 0) end\n  kept = f\nend|/kept.lua:3: frame:setbyte: this frame was sent already
TABLE
run "restbus error: raises" 1 "$q9db" simulate "$dbc" --duration 0.1 --script "$scratch/raises.lua"
has err "q9db: sending SteeringStatus at 1700000000.020000: $scratch/raises.lua:2: no steering"
has out "(1700000000.010000) can0 180#"
lacks out "(1700000000.020000) can0 180#"

# os.exit in a script ends the simulation with its status, the capture so
# far flushed; io.write goes to standard error, as print does.
printf '%s\n' 'function before_send(f)' '  if f.name == "EngineStatus" and f.count == 2 then os.exit(3) end' \
  '  io.write("sending ", f.name, "\n")' 'end' >"$scratch/stops.lua"
run "restbus os.exit" 3 "$q9db" simulate "$dbc" --duration 1 --script "$scratch/stops.lua"
[ "$(grep -c ' 0C8#' <<<"$out")" -eq 2 ] || fail "$current: two EngineStatus frames before the exit: $out"
has err "sending EngineStatus"
lacks out "sending"
echo 'os.exit(true)' >"$scratch/early.lua"
run "restbus os.exit in the file" 0 "$q9db" simulate "$dbc" --duration 1 --script "$scratch/early.lua"
[ -z "$out" ] || fail "$current: frames sent after the script ended: $out"

# A long capture shows its progress on a terminal (script gives one), and
# only there.
if command -v script >/dev/null; then
  "$q9db" simulate "$dbc" -d 700 --step 10 >"$scratch/long.log"
  for command in decode stats; do
    script -qec "'$q9db' $command '$dbc' --log '$scratch/long.log' >/dev/null" /dev/null >"$scratch/tty" 2>&1
    grep -q "%  .* lines" "$scratch/tty" || fail "$command: no progress on a terminal"
    "$q9db" $command "$dbc" --log "$scratch/long.log" 2>"$scratch/err" >/dev/null
    grep -q "lines" "$scratch/err" && fail "$command: progress without a terminal"
  done
fi

[ "$failures" -eq 0 ] && echo "all command checks passed"
exit $((failures > 0))
