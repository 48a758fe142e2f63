#!/usr/bin/env bash
# The installed Python package as a user meets it: installed into a scratch
# prefix, imported from outside the source and build trees, it loads the
# installed library (not the build's) and decodes with its scripts.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR PYTHON
set -u
build=$1
source=$2
python=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" 2>&1 || {
  cat "$scratch/install.log"
  echo "FAIL: cmake --install"
  exit 1
}
extension=$(find "$prefix" -name '_native*.so')
[ -n "$extension" ] || { echo "FAIL: the extension is not installed"; exit 1; }
site=$(dirname "$(dirname "$extension")")
library=$(find "$prefix" -name libQ9Db.so)
readelf -d "$extension" | grep -q "$build" && { echo "FAIL: a build path is left in the extension's run path"; exit 1; }

cp "$source/examples/vehicle.dbc" "$scratch/"
cd "$scratch" || exit 1
output=$(env -u PYTHONPATH PYTHONPATH="$site" "$python" - "$library" <<'PY' 2>&1
import os
import sys
import q9db
db = q9db.load("vehicle.dbc")
values = db.decode(0x0C8, bytes.fromhex("F91180E70F148200"))
assert values["EngineTorque"] == -12.5 and values["EngineState"] == "Running", values
maps = open("/proc/self/maps").read()
loaded = {line.split()[-1] for line in maps.splitlines() if "libQ9Db.so" in line}
assert loaded == {os.path.realpath(sys.argv[1])}, f"loaded {loaded}, not {sys.argv[1]}"
print("decoded", q9db.__file__)
PY
) || { echo "FAIL: the installed package: $output"; exit 1; }
case "$output" in "decoded $site/q9db/__init__.py") ;; *) echo "FAIL: $output"; exit 1 ;; esac
echo "installed package works from $site"
