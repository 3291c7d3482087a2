# Sourced by the desktop benchmarks: a private X server and session bus in a throwaway home,
# torn down on exit (programs added to `pids` first, the server and bus last). A script may
# set `before_cleanup` to a command run first (e.g. to end the app gently).
work=$(mktemp -d)
pids=()
before_cleanup=${before_cleanup:-}
cleanup() {
  [ -n "$before_cleanup" ] && { eval "$before_cleanup" || true; }
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; sleep 0.2; done
  rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/run" && chmod 700 "$work/run"
export HOME=$work XDG_RUNTIME_DIR=$work/run XDG_STATE_HOME=$work/state XDG_CONFIG_HOME=$work/config
unset WAYLAND_DISPLAY QT_QUICK_BACKEND

exec 3< <(Xvfb -displayfd 1 -screen 0 1280x800x24 -nolisten tcp 2>/dev/null)
read -r -u 3 display
pids+=($!)
export DISPLAY=:$display QT_QPA_PLATFORM=xcb
exec 4< <(dbus-daemon --session --nofork --print-address=1 2>/dev/null)
read -r -u 4 DBUS_SESSION_BUS_ADDRESS
pids+=($!)
export DBUS_SESSION_BUS_ADDRESS

memory() { # RSS and PSS in MiB
  awk '/^Rss:/{r=$2} /^Pss:/{p=$2} END{printf "%5.1f MiB RSS  %5.1f MiB PSS", r/1024, p/1024}' \
    "/proc/$1/smaps_rollup"
}
