#!/usr/bin/env bash
# The tray app on a private X server and session bus, on the two-monitor simulated machine:
# memory (RSS and PSS) beside a bare Qt tray item, time from start to "Startup complete",
# time from asking for the popover to its first frame, and DDC writes per 2-second slider
# drag at 60 Hz. Prints; asserts nothing.
# Usage: bench/app_desktop.sh [build folder, default build/release]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
app=$build/src/ui/panelwright
tray=$build/bench/bench_tray_only
[ -x "$app" ] && [ -x "$tray" ] || {
  echo "build first: cmake --build $build --target panelwright bench_tray_only" >&2; exit 2; }
scenario=$PWD/scenarios/two-monitors-and-builtin.json

source bench/private-session.sh

now() { date +%s.%N; }
wait_for() { # file pattern
  for _ in $(seq 1 600); do grep -q "$2" "$1" 2>/dev/null && return 0; sleep 0.05; done; return 1
}
settle() { # until the bus log stops growing
  local last=-1 size
  while :; do size=$(stat -c %s "$1" 2>/dev/null || echo 0); [ "$size" = "$last" ] && return; last=$size; sleep 0.4; done
}

"$tray" & trayPid=$!; pids+=($trayPid)
sleep 2
echo "bare Qt tray item, idle:           $(memory $trayPid)"

export PANELWRIGHT_ITEM_MAP=$work/items.tsv
start=$(now)
"$app" --simulate "$scenario" --bus-log "$work/bus.tsv" 2>/dev/null & appPid=$!; pids+=($appPid)
log=$work/state/panelwright/Panelwright.log
wait_for "$log" "Startup complete"
complete=$(grep "Startup complete" "$log" | sed 's/^\[\([^]]*\)\].*/\1/')
printf 'start to "Startup complete":       %.0f ms (process start to the log line)\n' \
  "$(echo "($(date -d "$complete" +%s.%N) - $start) * 1000" | bc)"
wait_for "$work/items.tsv" "section#1"
settle "$work/bus.tsv"
sleep 1
echo "panelwright, popover shown:        $(memory $appPid)"
xdotool key Escape
sleep 2
echo "panelwright, popover hidden again: $(memory $appPid)"

rm -f "$work/items.tsv"
asked=$(now)
"$app" --simulate "$scenario" 2>/dev/null  # a second start asks the first to open it
wait_for "$work/items.tsv" "section#1"
printf 'second start to first frame:      %.0f ms (includes starting the second process)\n' \
  "$(echo "($(stat -c %.Y "$work/items.tsv") - $asked) * 1000" | bc)"
settle "$work/bus.tsv"

track=$(grep -m1 'section#0/brightnessSlider#0/track#0' "$work/items.tsv" | cut -f2-5)
read -r x y w h <<<"$track"
cy=$((y + h / 2))
before=$(grep -c $'\twrite\tdisplay 2\t.*\t84 03 10 ' "$work/bus.tsv" || true)
moves=(mousemove $((x + 5)) $cy mousedown 1)
for i in $(seq 1 120); do  # 2 s at 60 Hz, back and forth along the track
  pos=$(( i <= 60 ? x + 5 + i * (w - 10) / 60 : x + w - 5 - (i - 60) * (w - 10) / 60 ))
  moves+=(sleep 0.0167 mousemove $pos $cy)
done
moves+=(mouseup 1)
xdotool "${moves[@]}"
sleep 1
after=$(grep -c $'\twrite\tdisplay 2\t.*\t84 03 10 ' "$work/bus.tsv" || true)
echo "DDC brightness writes for a 2 s drag at 60 Hz: $((after - before)) (120 moves)"
echo "memory after the drag:             $(memory $appPid)"
