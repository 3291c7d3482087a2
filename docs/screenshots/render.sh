#!/bin/sh
# Renders the pictures of this folder with the app's own --screenshot, offscreen: every
# window at 1x and 2x, under a light and a dark palette.
#   sh docs/screenshots/render.sh [build/debug/src/ui/panelwright]
set -e
app=${1:-build/debug/src/ui/panelwright}
out=$(dirname "$0")
scenario=scenarios/two-monitors-and-builtin.json
for scheme in light dark; do
    for scale in 1 2; do
        suffix=""
        [ "$scheme" = dark ] && suffix="$suffix-dark"
        [ "$scale" = 2 ] && suffix="$suffix@2x"
        for kind in popover settings settings-displays about indicator; do
            HOME=$(mktemp -d) QT_QPA_PLATFORM=offscreen QT_SCALE_FACTOR=$scale \
            PANELWRIGHT_SCREENSHOT_SCHEME=$scheme \
                "$app" --simulate "$scenario" --screenshot "$kind" "$out/$kind$suffix.png" >/dev/null 2>&1
        done
    done
done
# Three states of the popover, light 1x: no monitor, a desktop without gamma tables, and a
# monitor that does not answer.
echo '{"description": "No external monitor.", "displays": []}' > "${TMPDIR:-/tmp}/pw-no-monitor.json"
for pair in "popover-empty ${TMPDIR:-/tmp}/pw-no-monitor.json" \
            "popover-no-dimming scenarios/no-software-dimming.json" \
            "popover-silent scenarios/dead-monitor.json"; do
    set -- $pair
    HOME=$(mktemp -d) QT_QPA_PLATFORM=offscreen \
        "$app" --simulate "$2" --screenshot popover "$out/$1.png" >/dev/null 2>&1
done
