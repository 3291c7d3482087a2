#!/usr/bin/env bash
# Sets up a Debian 12 machine for Panelwright (installs the packages it lacks),
# then configures, builds and runs the whole test suite.
#   bash scripts/test.sh            # debug, then the asan and tsan presets
#   bash scripts/test.sh debug      # any presets from CMakePresets.json
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(debug asan tsan)
jobs=$(nproc 2>/dev/null || echo 2)

for preset in "${presets[@]}"; do
  echo "== ${preset}: configure"
  cmake --preset "${preset}" >/dev/null
  echo "== ${preset}: build"
  cmake --build --preset "${preset}" -j "${jobs}"
  echo "== ${preset}: test"
  ctest --preset "${preset}" -j "${jobs}"
done
