#!/usr/bin/env bash
# Compares the dynamic symbols a shared library defines with the functions
# its public headers declare, the concept headers in Q9Db/ included. Both
# lists must match exactly.
set -euo pipefail
lib=$1
headers=("$2"/*.h "$2"/Q9Db/*.h)
exported=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TW]$/ {print $3}' | sort -u)
declared=$(grep -hoE '^Q9DB_API[^(]*\(' "${headers[@]}" | sed -E 's/.*[ *]([A-Za-z_0-9]+)\($/\1/' | sort -u)
extra=$(comm -23 <(echo "$exported") <(echo "$declared"))
missing=$(comm -13 <(echo "$exported") <(echo "$declared"))
status=0
if [ -n "$extra" ]; then echo "exported but not declared:"; echo "$extra"; status=1; fi
if [ -n "$missing" ]; then echo "declared but not exported:"; echo "$missing"; status=1; fi
others=$(nm -D --defined-only "$lib" | awk '$2 !~ /^[TWUw]$/ && $3 != "" {print $3}' | grep -v '^Q9DB_' || true)
if [ -n "$others" ]; then echo "unexpected data symbols:"; echo "$others"; status=1; fi
count=$(echo "$exported" | grep -c . || true)
echo "$count exported functions checked"
exit $status
