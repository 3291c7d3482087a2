#!/usr/bin/env bash
# Sets up a Debian 12 machine for Panelwright (installs the packages it lacks),
# then configures, builds and runs the whole test suite.
#   bash scripts/test.sh            # debug, asan and tsan suites, then a short fuzz run
#   bash scripts/test.sh debug      # any presets from CMakePresets.json
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(debug asan tsan fuzz)
jobs=$(nproc 2>/dev/null || echo 2)
passed=0
report=$(mktemp)
trap 'rm -f "${report}"' EXIT

for preset in "${presets[@]}"; do
  echo "== ${preset}: configure"
  cmake --preset "${preset}" >/dev/null
  echo "== ${preset}: build"
  cmake --build --preset "${preset}" -j "${jobs}"
  if [ "${preset}" = fuzz ]; then
    # A short, seeded libFuzzer run of every target from its committed corpus: catches a
    # parser that crashes on something near the known inputs, in a fixed number of runs.
    for fuzzer in build/fuzz/fuzz/fuzz_*; do
      name=$(basename "${fuzzer}"); name=${name#fuzz_}
      scratch=$(mktemp -d)
      echo "== fuzz: ${name}"
      "${fuzzer}" -seed=1 -runs=5000 -print_final_stats=0 "${scratch}" "fuzz/corpus/${name}" 2>&1 | tail -n 1
      rm -rf "${scratch}"
      passed=$((passed + 1))
    done
    continue
  fi
  echo "== ${preset}: test"
  ctest --preset "${preset}" -j "${jobs}" | tee "${report}"
  count=$(sed -n 's/.* tests passed, 0 tests failed out of \([0-9]*\).*/\1/p' "${report}" | tail -n 1)
  passed=$((passed + ${count:-0}))
done

# Every step above stops the script on a failure, so reaching here means nothing failed.
echo "tests: ${passed} passed, 0 failed"
