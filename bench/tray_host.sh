#!/usr/bin/env bash
# The tray app under a real window manager and XEmbed tray host (openbox and trayer on a
# private X server and session bus), on the two-monitor simulated machine: memory with the
# tray item only (the popover never opened), whether pointing at the item shows its tooltip,
# the time from a click on the item to the popover's first frame (its first opening makes
# it) and the memory then, and what the window manager offers on the About window. Prints;
# asserts nothing.
# Usage: bench/tray_host.sh [build folder, default build/release]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
app=$build/src/ui/panelwright
[ -x "$app" ] || { echo "build first: cmake --build $build --target panelwright" >&2; exit 2; }
for tool in Xvfb openbox trayer xdotool xprop; do
  command -v $tool >/dev/null || { echo "needs $tool (scripts/setup.sh installs it)" >&2; exit 2; }
done
scenario=$PWD/scenarios/two-monitors-and-builtin.json

source bench/private-session.sh
export XDG_SESSION_TYPE=x11
openbox >/dev/null 2>&1 & pids+=($!)
trayer --edge top --align right --widthtype request --height 24 >/dev/null 2>&1 & pids+=($!)
for _ in $(seq 1 100); do xdotool search --onlyvisible --class trayer >/dev/null && break; sleep 0.1; done

windows() { xdotool search --onlyvisible --pid "$1" 2>/dev/null || true; }

export PANELWRIGHT_ITEM_MAP=$work/items.tsv
"$app" --simulate "$scenario" 2>/dev/null & appPid=$!; pids+=($appPid)
log=$work/state/panelwright/Panelwright.log
for _ in $(seq 1 600); do grep -q "Startup complete" "$log" 2>/dev/null && break; sleep 0.05; done
sleep 2
echo "panelwright, tray item only:   $(memory $appPid)"
item=$(windows $appPid | head -1)
eval "$(xdotool getwindowgeometry --shell "$item")"
echo "tray item:                     ${WIDTH}x${HEIGHT} at $X,$Y"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2 + 1)) sleep 0.2 mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
sleep 1.5
for w in $(windows $appPid); do
  if xprop -id "$w" _NET_WM_WINDOW_TYPE | grep -q TOOLTIP; then
    echo "tooltip:                       shown, $(xdotool getwindowgeometry "$w" | sed -n 3p | tr -s ' ')"
  fi
done
echo "after the tooltip:             $(memory $appPid)"
for opening in first second; do
  rm -f "$work/items.tsv"
  asked=$(date +%s.%N)
  xdotool click 1
  for _ in $(seq 1 400); do grep -q "section#1" "$work/items.tsv" 2>/dev/null && break; sleep 0.01; done
  printf 'click to %-6s opening frame:  %.0f ms (includes xdotool starting)\n' "$opening" \
    "$(echo "($(stat -c %.Y "$work/items.tsv") - $asked) * 1000" | bc)"
  sleep 1.5
  [ $opening = first ] && echo "popover shown:                 $(memory $appPid)"
  xdotool key Escape
  sleep 0.8
done
# The About panel from the item's menu: right click, then its first entry.
xdotool click 3 sleep 0.8 key Down Return
sleep 1.5
about=$(xdotool search --onlyvisible --name '^About Panelwright$' | head -1)
echo "About, window manager offers:  $(xprop -id "$about" _NET_WM_ALLOWED_ACTIONS | sed 's/.*= //; s/_NET_WM_ACTION_//g')"
echo "About, asks for (Motif):       $(xprop -id "$about" _MOTIF_WM_HINTS | sed 's/.*= //') (functions 0x26: resize, move, close)"
