#!/usr/bin/env bash
# The popover opened and closed many times on a private X server, on the two-monitor
# simulated machine: private dirty memory after a warm-up and at the end, printed as the
# growth per 100 openings. Each opening asks the running app through its socket (as a
# second start does) and Escape closes it. Prints; asserts nothing.
# Usage: bench/popover_openings.sh [build folder, default build/release] [openings, default 250]
#   PW_WRAP="heaptrack -o FILE" runs the app under a tool.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
openings=${2:-250}
warmup=50
app=$build/src/ui/panelwright
[ -x "$app" ] || { echo "build first: cmake --build $build --target panelwright" >&2; exit 2; }
scenario=$PWD/scenarios/two-monitors-and-builtin.json

appPid=
before_cleanup='[ -n "$appPid" ] && kill ${PW_KILL:-} "$appPid" 2>/dev/null && sleep 2'
source bench/private-session.sh

dirty() { # private dirty memory in KiB
  awk '/^Private_Dirty:/{d=$2} END{print d}' "/proc/$1/smaps_rollup"
}
visible() { xdotool search --onlyvisible --name '^Panelwright$' >/dev/null 2>&1; }
wait_until() { for _ in $(seq 1 200); do "$@" && return 0; sleep 0.02; done; return 1; }
hidden() { ! visible; }
show() {
  python3 -c 'import socket,sys; s=socket.socket(socket.AF_UNIX); s.connect(sys.argv[1]); s.sendall(b"show\n"); s.recv(16)' \
    "$XDG_RUNTIME_DIR/panelwright.socket"
}

${PW_WRAP:-} "$app" --simulate "$scenario" >/dev/null 2>&1 & pids+=($!)
# The app itself (a wrapper's child when one is used).
for _ in $(seq 1 300); do
  appPid=$(pgrep -n -f "^$app --simulate" || true)
  [ -n "$appPid" ] && [ -S "$XDG_RUNTIME_DIR/panelwright.socket" ] && break; sleep 0.1
done
wait_until visible
sleep 1

cycle() {
  xdotool key Escape; wait_until hidden
  show; wait_until visible
  sleep 0.15 # the opening's refresh reads land
}
for _ in $(seq 1 $warmup); do cycle; done
first=$(dirty "$appPid")
for i in $(seq 1 $((openings - warmup))); do
  cycle
  [ -n "${PW_TRACE:-}" ] && [ $((i % 50)) = 0 ] && echo "  after $((warmup + i)): $(dirty "$appPid") KiB"
done
last=$(dirty "$appPid")
echo "private dirty after $warmup openings: $((first / 1024)) MiB ($first KiB), after $openings: $((last / 1024)) MiB ($last KiB)"
echo "growth per 100 openings: $(( (last - first) * 100 / (openings - warmup) )) KiB"
