#!/usr/bin/env bash
# The installed tree as another project meets it: the installed q9db imports
# a DBC with the scripts beside the installed library, and the example
# client builds and runs through pkg-config and through find_package.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR C_COMPILER [CLIENT_FLAGS]
set -u
build=$1
source=$2
cc=$3
flags=${4:-}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" 2>&1 || {
  cat "$scratch/install.log"
  echo "FAIL: cmake --install"
  exit 1
}

pc=$(find "$prefix" -name q9db.pc)
config=$(find "$prefix" -name Q9DbConfig.cmake)
library=$(find "$prefix" -name libQ9Db.so)
folder=$(dirname "$library")
for file in "$pc" "$config" "$(dirname "$config")/Q9DbConfigVersion.cmake" "$library" "$folder/init.lua" \
  "$folder/q9filters/dbc.lua" "$folder/q9filters/ldf.lua" "$folder/Q9Db.so" "$prefix/include/Q9Db.h" \
  "$prefix/include/Q9DbImport.h" "$prefix/bin/q9db"; do
  [ -e "$file" ] || fail "not installed: ${file#"$prefix"/}"
done
# The Lua module's name and the run-time name (the soname) lead to the
# library's file; the link for linking is only for clients' builds.
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = libQ9Db.so.0 ] || fail "the library's soname is '$soname', not libQ9Db.so.0"
[ "$(readlink "$folder/Q9Db.so")" = "$soname" ] || fail "Q9Db.so is no link to $soname"

# The installed tool runs on the installed library and its scripts.
loaded=$(ldd "$prefix/bin/q9db" | awk '/libQ9Db\.so/ { print $3 }')
[ "$(realpath "$loaded")" = "$(realpath "$library")" ] || fail "installed q9db loads $loaded, not the installed library"
readelf -d "$library" "$prefix/bin/q9db" | grep -q "$build" && fail "a build path is left in a run path"
info=$("$prefix/bin/q9db" info "$source/examples/vehicle.dbc" 2>&1) || fail "installed q9db info: $info"
case "$info" in *"DemoVehicle: 7 ECUs, 10 frames, 55 signals"*) ;; *) fail "installed q9db info: $info" ;; esac

line=(0C8 F91180E70F148200)
expected="EngineTorque = -12.5 Nm"
check_client() {  # check_client HOW PROGRAM
  local output
  output=$("$2" "$source/examples/vehicle.dbc" "${line[@]}" 2>&1) || fail "$1 client: $output"
  case "$output" in *"$expected"*) ;; *) fail "$1 client: '$expected' not in: $output" ;; esac
}

# shellcheck disable=SC2046,SC2086  # pkg-config's answer and the flags are words
"$cc" -std=c11 $flags "$source/examples/decode_frame.c" $(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs q9db) \
  -o "$scratch/by_pkg_config" 2>"$scratch/cc.log" || fail "pkg-config build: $(cat "$scratch/cc.log")"
[ -x "$scratch/by_pkg_config" ] && check_client pkg-config "$scratch/by_pkg_config"

# The Lua module from the installed folder; the stock interpreter can't
# load an instrumented library.
if [ -z "$flags" ] && command -v lua5.3 >/dev/null; then
  output=$(LUA_CPATH="$folder/?.so" lua5.3 "$source/examples/decode_frame.lua" "$source/examples/vehicle.dbc" "${line[@]}" 2>&1)
  case "$output" in *"EngineTorque"*"-12.5"*) ;; *) fail "Lua module: $output" ;; esac
fi

mkdir -p "$scratch/consumer"
cat >"$scratch/consumer/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(Q9Db 0.1 REQUIRED)
add_executable(decode_frame "$source/examples/decode_frame.c")
target_link_libraries(decode_frame PRIVATE Q9Db::Q9Db)
EOF
if cmake -S "$scratch/consumer" -B "$scratch/consumer/build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$flags" >"$scratch/consumer.log" 2>&1 &&
  cmake --build "$scratch/consumer/build" >>"$scratch/consumer.log" 2>&1; then
  check_client find_package "$scratch/consumer/build/decode_frame"
else
  fail "find_package build: $(tail -n 20 "$scratch/consumer.log")"
fi

[ "$failures" -eq 0 ] && echo "install checks passed"
exit $((failures > 0))
