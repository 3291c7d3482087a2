#!/usr/bin/env bash
# Sets up a Debian 12 machine for Panelwright (installs the packages it lacks),
# then configures, builds and runs the whole test suite (docs/testing.md says how and why).
#   bash scripts/test.sh            # debug, asan (with the seeded fuzz runs), tsan, and as root
#                                   # the package's install test (scripts/install-test.sh)
#   bash scripts/test.sh debug      # any presets from CMakePresets.json, or "package"
# A failing stage does not stop the later ones; the closing line counts every stage and the
# exit status is non-zero when anything failed.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh || exit 1

# The compiler cache lives outside the checkout, so it survives a fresh clone; the base
# directory makes a clone at another path hit it too. Nothing depends on it: without
# ccache, or with CCACHE_DISABLE=1, the same run compiles everything.
if command -v ccache >/dev/null; then
  export CCACHE_DIR="${CCACHE_DIR:-${XDG_CACHE_HOME:-${HOME}/.cache}/ccache}"
  export CCACHE_BASEDIR="${CCACHE_BASEDIR:-${PWD}}"
  export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
  export CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS:-pch_defines,time_macros,include_file_mtime,include_file_ctime}"
  export CCACHE_MAXSIZE="${CCACHE_MAXSIZE:-5G}"
fi

presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then
  presets=(debug asan tsan)
  # The install test makes a chroot, which takes root (CI runs as root).
  if [ "$(id -u)" -eq 0 ]; then presets+=(package); else echo "== package: skipped (not root)"; fi
fi
jobs=$(nproc 2>/dev/null || echo 2)
passed=0
failed=0
summary=()
report=$(mktemp)
trap 'rm -f "${report}"' EXIT

# Adds the counts of ctest's closing line ("N% tests passed, F tests failed out of T").
count_ctest() {
  local line total fails
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "${report}" | tail -n 1)
  if [ -z "${line}" ]; then
    failed=$((failed + 1)) # ctest itself failed (no tests, a broken configuration)
    return
  fi
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"${line}")
  fails=$(sed -E 's/.*, ([0-9]+) tests? failed.*/\1/' <<<"${line}")
  passed=$((passed + total - fails))
  failed=$((failed + fails))
}

# A short, seeded libFuzzer run of every target from its committed corpus: catches a parser
# that crashes on something near the known inputs, in a fixed number of runs. The targets
# are independent, so they run side by side, one per core.
fuzz_runs() {
  local fuzzer name results
  results=$(mktemp -d)
  for fuzzer in "build/$1/fuzz/fuzz_"*; do
    [ -x "${fuzzer}" ] || continue
    name=$(basename "${fuzzer}"); name=${name#fuzz_}
    (
      scratch=$(mktemp -d)
      if "${fuzzer}" -seed=1 -runs=5000 -print_final_stats=0 "${scratch}" \
           "fuzz/corpus/${name}" >"${results}/${name}.log" 2>&1; then
        touch "${results}/${name}.passed"
      fi
      rm -rf "${scratch}"
    ) &
    while [ "$(jobs -rp | wc -l)" -ge "${jobs}" ]; do wait -n; done
  done
  wait
  for log in "${results}"/*.log; do
    [ -e "${log}" ] || continue
    name=$(basename "${log}" .log)
    if [ -e "${results}/${name}.passed" ]; then
      echo "== fuzz: ${name}: $(tail -n 1 "${log}")"
      passed=$((passed + 1))
    else
      cat "${log}"
      echo "== fuzz: ${name}: FAILED"
      failed=$((failed + 1))
    fi
  done
  rm -rf "${results}"
}

# Scratch files of tests and fuzz runs in memory where the machine has a tmpfs: the settings
# stores sync every write, and on a busy disk that waiting was most of the tests' time.
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then
  TMPDIR=$(mktemp -d -p /dev/shm pw-test.XXXXXX)
  export TMPDIR
  trap 'rm -f "${report}"; rm -rf "${TMPDIR}"' EXIT
fi

# CPU seconds (user + system) of everything this script has waited for so far: with two
# cores, a stage takes about half of its CPU time on an otherwise idle machine.
# (`times` must run in this shell, not in a $(...) subshell, which has waited for nothing.)
cpu_mark() { times >"${report}"; }
cpu_read() {
  awk 'NR == 2 { split($1, u, /[ms]/); split($2, s, /[ms]/)
                 printf "%d", u[1] * 60 + u[2] + s[1] * 60 + s[2] }' "${report}"
}

for preset in "${presets[@]}"; do
  start=${SECONDS}
  if [ "${preset}" = package ]; then
    if bash scripts/install-test.sh; then passed=$((passed + 1)); state=passed
    else failed=$((failed + 1)); state=FAILED; fi
    summary+=("package: ${state}; $((SECONDS - start)) s (docs/packaging.md)")
    continue
  fi
  cpu_mark; cpu_start=$(cpu_read)
  before=${failed}
  echo "== ${preset}: configure"
  if ! cmake --preset "${preset}" >"${report}" 2>&1; then
    cat "${report}"; echo "== ${preset}: configure FAILED"
    failed=$((failed + 1)); summary+=("${preset}: configure failed"); continue
  fi
  echo "== ${preset}: build"
  if ! cmake --build --preset "${preset}" -j "${jobs}"; then
    echo "== ${preset}: build FAILED"
    failed=$((failed + 1)); summary+=("${preset}: build failed"); continue
  fi
  built=$((SECONDS - start))
  cpu_mark; cpu_built=$(cpu_read)
  echo "== ${preset}: test"
  ctest --preset "${preset}" -j "${jobs}" 2>&1 | tee "${report}"
  count_ctest
  if [ -n "$(compgen -G "build/${preset}/fuzz/fuzz_*")" ]; then
    fuzz_runs "${preset}"
  fi
  state=passed
  [ "${failed}" -gt "${before}" ] && state="FAILED ($((failed - before)))"
  cpu_mark; cpu_end=$(cpu_read)
  summary+=("${preset}: ${state}; build ${built} s (CPU $((cpu_built - cpu_start)) s),\
 tests $((SECONDS - start - built)) s (CPU $((cpu_end - cpu_built)) s)")
done

for line in "${summary[@]}"; do echo "== ${line}"; done
echo "tests: ${passed} passed, ${failed} failed"
[ "${failed}" -eq 0 ]
