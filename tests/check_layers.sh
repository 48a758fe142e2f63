#!/bin/bash
# The layers see what the picture in src/CMakeLists.txt says and nothing
# more. Headers: with each layer's own include paths, as the build compiles
# it, a header of every layer it names is found, and a header of every other
# layer is not. Calls: a function a layer's objects call but don't define is
# defined by a layer it names, or by none (libraries outside), never by
# another; exports are reached through the public header, so only this
# catches a call up the stack. A dependency added or dropped in the build
# without a change of the picture fails here.
#
# usage: check_layers.sh COMPILER NM LAYER=DIR:DIR...=OBJECT:OBJECT... ...
set -u
compiler=$1
nm=$2
shift 2

# What each layer may include, besides its own headers.
declare -A sees=(
  [platform]=""
  [store]="platform"
  [inspect]="store platform"
  [codec]="store inspect platform"
  [encoder]="codec store platform"
  [import]="store platform"
  [lua]="import encoder codec inspect store platform"
)
# A header of each layer that includes headers of the layers below it.
declare -A probe=(
  [platform]=platform/LexerInput.h
  [store]=store/Database.h
  [inspect]=inspect/NodeLabel.h
  [codec]=codec/DecodePlan.h
  [encoder]=encoder/Encoder.h
  [import]=import/DbcNetwork.h
  [lua]=lua/Binding.h
)

failures=0
checked=0
declare -A objects
for argument in "$@"; do
  IFS='=' read -r layer includes layerObjects <<<"$argument"
  objects[$layer]=$layerObjects
  flags=()
  IFS=: read -ra directories <<<"$includes"
  for directory in "${directories[@]}"; do
    [ -n "$directory" ] && flags+=("-I$directory")
  done
  [ -n "${sees[$layer]+set}" ] || { echo "FAIL: $layer is not in the picture"; failures=$((failures + 1)); continue; }
  for other in "${!probe[@]}"; do
    [ "$other" = "$layer" ] && continue
    allowed=no
    for seen in ${sees[$layer]}; do [ "$seen" = "$other" ] && allowed=yes; done
    output=$(echo "#include \"${probe[$other]}\"" | "$compiler" -std=c++17 -E -x c++ "${flags[@]}" - 2>&1 >/dev/null)
    found=$?
    checked=$((checked + 1))
    if [ $allowed = yes ] && [ $found -ne 0 ]; then
      echo "FAIL: $layer should see ${probe[$other]}: $output"
      failures=$((failures + 1))
    elif [ $allowed = no ] && [ $found -eq 0 ]; then
      echo "FAIL: $layer sees ${probe[$other]}, a layer it doesn't name"
      failures=$((failures + 1))
    elif [ $allowed = no ] && [[ $output != *"No such file"* ]]; then
      echo "FAIL: $layer including ${probe[$other]} failed for another reason: $output"
      failures=$((failures + 1))
    fi
  done
done

# Calls: strong definitions only; inline functions and template instances
# are weak copies in every layer that uses them.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for layer in "${!objects[@]}"; do
  IFS=: read -ra files <<<"${objects[$layer]}"
  "$nm" --defined-only "${files[@]}" | awk '$2 ~ /^[TDBR]$/ { print $3 }' | sort -u >"$scratch/$layer.defined"
  "$nm" --undefined-only "${files[@]}" | awk '$1 == "U" { print $2 }' | sort -u >"$scratch/$layer.called"
done
calls=0
for layer in "${!objects[@]}"; do
  for other in "${!objects[@]}"; do
    [ "$other" = "$layer" ] && continue
    allowed=no
    for seen in ${sees[$layer]}; do [ "$seen" = "$other" ] && allowed=yes; done
    crossing=$(comm -12 "$scratch/$layer.called" "$scratch/$other.defined")
    [ -n "$crossing" ] && calls=$((calls + 1))
    if [ $allowed = no ] && [ -n "$crossing" ]; then
      echo "FAIL: $layer calls into $other, a layer it doesn't name:"
      head -5 <<<"$crossing" | sed 's/^/  /'
      failures=$((failures + 1))
    fi
  done
done
[ $checked -gt 0 ] && [ $calls -gt 0 ] || { echo "FAIL: no layer was checked"; exit 1; }
echo "$checked layer pairs checked for headers, $calls calls between layers; $failures failures"
[ $failures -eq 0 ]
