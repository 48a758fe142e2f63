#!/usr/bin/env bash
# Compiles every public header on its own, as C11 and as C++17, with
# warnings as errors: a header that leans on another being included first,
# or that breaks a strict C client, fails here before a client meets it.
# Each header is included twice, which also proves its include guard.
# Usage: check_headers.sh INCLUDE_DIR C_COMPILER CXX_COMPILER
set -u
include=$(cd "$1" && pwd)
cc=$2
cxx=$3
failures=0
checked=0
for header in "$include"/*.h "$include"/*/*.h; do
  [ -e "$header" ] || continue
  unit=$(printf '#include "%s"\n#include "%s"\n' "$header" "$header")
  # No -I: a header must find its companions relative to itself, as it
  # does in an installed tree.
  if ! log=$(echo "$unit" | "$cc" -x c -std=c11 -pedantic -Wall -Wextra -Werror -fsyntax-only - 2>&1); then
    echo "FAIL as C11: ${header#"$include"/}"; echo "$log"; failures=$((failures + 1))
  fi
  if ! log=$(echo "$unit" | "$cxx" -x c++ -std=c++17 -pedantic -Wall -Wextra -Werror -fsyntax-only - 2>&1); then
    echo "FAIL as C++17: ${header#"$include"/}"; echo "$log"; failures=$((failures + 1))
  fi
  checked=$((checked + 1))
done
echo "$checked headers checked"
[ "$checked" -gt 0 ] && [ "$failures" -eq 0 ]
