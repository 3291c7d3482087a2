#!/usr/bin/env bash
# See it work in one go: installs what is missing and builds. On a desktop session it starts
# the tray app: on this machine's own monitors when Panelwright can reach one, otherwise on a
# shipped simulated machine, saying why. Without a display it runs the command line on a
# simulated laptop with two monitors (find them, read the brightness, change it, read it
# back) and renders the popover to a picture.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset debug >/dev/null
scenario=scenarios/two-monitors-and-builtin.json
app=build/debug/src/ui/panelwright
cli=build/debug/cli/panelwright-cli

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  cmake --build --preset debug --target panelwright panelwright-cli
  echo
  if why=$("$cli" detect 2>&1 >/dev/null); then
    echo "Panelwright reaches a monitor on this machine: the tray app drives it."
    echo "Look for the display icon in your panel's tray (without a tray the popover opens"
    echo "by itself); quit from its menu or its footer."
    exec "$app"
  fi
  echo "No monitor can be reached from this machine (${why#panelwright-cli: }),"
  echo "so the tray app runs on the simulated machine $scenario."
  echo "Look for the display icon in your panel's tray (without a tray the popover opens"
  echo "by itself); quit from its menu or its footer."
  exec "$app" --simulate "$scenario"
fi

cmake --build --preset debug --target panelwright-cli panelwright
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

picture="$PWD/build/debug/popover.png"
echo
echo "No display here, so the tray app draws its popover for the same machine offscreen:"
# Qt's offscreen plugin talks about itself, and without a journal the app's own system-log
# lines come to the terminal: both are kept in a file and shown only if the picture fails.
appLog="$PWD/build/debug/demo-screenshot.log"
if ! QT_LOGGING_RULES="qt.qpa.*=false" \
    "$app" --simulate "$scenario" --screenshot popover "$picture" >/dev/null 2>"$appLog"; then
  cat "$appLog" >&2
  echo "The picture could not be made (the lines above say why)." >&2
  exit 1
fi
echo "  $picture"
echo
echo "Next: $cli --help, or on a desktop: $app --simulate $scenario"
