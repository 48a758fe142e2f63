#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and benchmarks with.
set -euo pipefail
packages=(
  cmake make g++ clang pkg-config binutils
  # libFuzzer and clang's sanitizer runtimes, which clang only recommends
  libclang-rt-14-dev
  liblua5.3-dev lua5.3
  libxml2-dev libxslt1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  valgrind graphviz
  libcli11-dev
  # compressed capture logs
  zlib1g-dev liblzma-dev
  # the Python package: bindings, logs into DataFrames, plots, buses, scale-out, tests
  pybind11-dev python3-dev python3-numpy python3-pandas python3-matplotlib python3-can
  python3-dask python3-distributed python3-pytest
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
