#!/usr/bin/env bash
# The main job in one go: installs what is missing, builds the command line and runs it on a
# simulated laptop with two monitors: find them, read the brightness, change it, read it back.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset debug >/dev/null
cmake --build --preset debug --target panelwright-cli

cli=build/debug/cli/panelwright-cli
scenario=scenarios/two-monitors-and-builtin.json
# The simulated monitors remember their values between runs; the demo starts from the
# scenario's own values each time by keeping its memory in the build folder.
export XDG_STATE_HOME="$PWD/build/debug/demo-state"
rm -rf "$XDG_STATE_HOME"

run() {
  echo
  echo "\$ panelwright-cli $*"
  "$cli" "$@"
}
run --simulate "$scenario" detect
run --simulate "$scenario" getvcp brightness
run --simulate "$scenario" setvcp brightness 70
run --simulate "$scenario" getvcp brightness
echo
echo "Next: $cli --help"
