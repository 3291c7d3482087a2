#!/usr/bin/env bash
# Whole-process time of `getvcp brightness` on a simulated monitor (reply delay 40 ms):
# start, enumeration with its one probe read, the answer, exit. Prints; asserts nothing.
# Usage: bench/cli_getvcp.sh [path/to/panelwright-cli] [runs]
set -euo pipefail
cd "$(dirname "$0")/.."

cli=${1:-}
if [ -z "$cli" ]; then
  for candidate in build/release/cli/panelwright-cli build/debug/cli/panelwright-cli; do
    [ -x "$candidate" ] && { cli=$candidate; break; }
  done
fi
[ -n "$cli" ] && [ -x "$cli" ] || { echo "build panelwright-cli first (cmake --build --preset release --target panelwright-cli)" >&2; exit 2; }
runs=${2:-15}

state=$(mktemp -d)
trap 'rm -rf "$state"' EXIT
export XDG_STATE_HOME="$state" XDG_CONFIG_HOME="$state"

times=()
for _ in $(seq "$runs"); do
  start=$(date +%s%N)
  "$cli" --simulate scenarios/one-monitor.json getvcp brightness >/dev/null
  end=$(date +%s%N)
  times+=($(( (end - start) / 1000 )))
done
median=$(printf '%s\n' "${times[@]}" | sort -n | sed -n "$(( (runs + 1) / 2 ))p")
printf 'getvcp brightness, whole process, median of %d runs: %d.%03d ms (%s)\n' \
  "$runs" $((median / 1000)) $((median % 1000)) "$cli"
echo "floor: 50 ms, the wait a read gives the monitor before fetching its reply; aim: under 70 ms"
