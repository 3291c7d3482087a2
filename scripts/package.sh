#!/usr/bin/env bash
# Builds the Debian package: a release build of the programs (no tests, no benchmarks) in
# build/package, then cpack. Prints the .deb's path on the last line.
#   bash scripts/package.sh && sudo apt install ./build/package/panelwright_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# The same compiler cache as scripts/test.sh.
if command -v ccache >/dev/null; then
  export CCACHE_DIR="${CCACHE_DIR:-${XDG_CACHE_HOME:-${HOME}/.cache}/ccache}"
  export CCACHE_BASEDIR="${CCACHE_BASEDIR:-${PWD}}" CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
  export CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS:-pch_defines,time_macros,include_file_mtime,include_file_ctime}"
fi
build=build/package
cmake -S . -B "${build}" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPW_BUILD_TESTS=OFF \
  -DPW_BUILD_BENCH=OFF >/dev/null
cmake --build "${build}" -j "$(nproc)" >/dev/null
rm -f "${build}"/panelwright_*.deb
(cd "${build}" && cpack -G DEB >/dev/null)
ls "${PWD}/${build}"/panelwright_*.deb
