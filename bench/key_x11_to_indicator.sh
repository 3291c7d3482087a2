#!/usr/bin/env bash
# A brightness key typed through XTest on a private X server, to the level indicator window
# mapped: the app runs on the two-monitor simulated machine and takes its keys from that X
# server (an X11 session, no desktop services on its private bus), so a key crosses the X
# grab, the key source's thread, the main queue, the monitor's key worker and the DDC write
# before the indicator is shown. The time starts before xdotool is started (a few ms of
# process start are in the figure) and ends when the X server reports the indicator's
# window mapped. Prints; asserts nothing.
# Usage: bench/key_x11_to_indicator.sh [build folder, default build/release] [presses, default 10]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
presses=${2:-10}
app=$build/src/ui/panelwright
[ -x "$app" ] || { echo "build first: cmake --build $build --target panelwright" >&2; exit 2; }
scenario=$PWD/scenarios/two-monitors-and-builtin.json

source bench/private-session.sh
export XDG_SESSION_TYPE=x11

"$app" --simulate "$scenario" 2>"$work/stderr.txt" & pids+=($!)
log=$work/state/panelwright/Panelwright.log
for _ in $(seq 1 600); do grep -q "Startup complete" "$log" 2>/dev/null && break; sleep 0.05; done
grep -q "Startup complete" "$log" || { echo "the app did not start" >&2; exit 1; }
grep -q "Media keys through X key grabs" "$work/stderr.txt" "$log" ||
  echo "note: no line says the keys come through X key grabs" >&2
sleep 1

# Windows mapped on the screen, one line each, as the X server reports them.
coproc XEV { stdbuf -oL xev -root -event substructure 2>/dev/null; }
pids+=($XEV_PID)
sleep 0.5
now() { date +%s%N; }
times=()
for i in $(seq 1 "$presses"); do
  key=XF86MonBrightnessUp; ((i % 2 == 0)) && key=XF86MonBrightnessDown
  while read -r -t 0.01 -u "${XEV[0]}" _; do :; done # what came before the press
  start=$(now)
  xdotool key "$key"
  mapped=""
  while read -r -t 5 -u "${XEV[0]}" line; do
    case $line in MapNotify*) mapped=$(now); break ;; esac
  done
  [ -n "$mapped" ] || { echo "press $i: no indicator within 5 s" >&2; continue; }
  times+=($(( (mapped - start) / 1000 )))
  sleep 2.2 # the indicator hides 1.5 s after the last key: the next press maps it again
done
[ ${#times[@]} -gt 0 ] || exit 1
printf '%s\n' "${times[@]}" | sort -n | awk -v n="$presses" '
  { t[NR] = $1 / 1000; sum += t[NR] }
  END { printf "XTest key to indicator mapped (Xvfb, %d of %d presses): median %.1f ms  mean %.1f  min %.1f  max %.1f\n",
        NR, n, t[int((NR + 1) / 2)], sum / NR, t[1], t[NR] }'
