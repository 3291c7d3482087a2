#!/usr/bin/env bash
# Whole-process time of `panelwright-cli getvcp brightness` and `setvcp brightness` over the
# real Linux backend (sysfs reader, open/flock/ioctl) against a fake root whose /dev/i2c-5
# is answered by the test suite's fake i2c-dev driver (preloaded), with a monitor that
# needs 40 ms to prepare a reply. Median of several runs, beside the floor. Prints; asserts
# nothing.
# Usage: bench/cli_linux.sh [build folder] [runs]
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-}
if [ -z "$build" ]; then
  for candidate in build/release build/debug; do
    [ -x "$candidate/cli/panelwright-cli" ] && [ -f "$candidate/tests/platform/linux/libpw_fake_i2c.so" ] && { build=$candidate; break; }
  done
fi
cli=$build/cli/panelwright-cli
shim=$build/tests/platform/linux/libpw_fake_i2c.so
[ -n "$build" ] && [ -x "$cli" ] && [ -f "$shim" ] || {
  echo "build panelwright-cli and pw_fake_i2c first (cmake --build --preset release --target panelwright-cli pw_fake_i2c)" >&2
  exit 2
}
runs=${3:-${2:-15}}

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
gpu=$root/sys/devices/pci0000:00/0000:00:02.0
mkdir -p "$gpu/drm/card0/card0-HDMI-A-1" "$gpu/i2c-5" "$root/sys/class/drm" "$root/sys/bus/i2c/devices" "$root/dev"
echo 0x8086 > "$gpu/vendor"
echo 0x030000 > "$gpu/class"
echo "i915 gmbus dpb" > "$gpu/i2c-5/name"
ln -s "$gpu/drm/card0" "$root/sys/class/drm/card0"
ln -s "$gpu/drm/card0/card0-HDMI-A-1" "$root/sys/class/drm/card0-HDMI-A-1"
ln -s "$gpu/i2c-5" "$root/sys/bus/i2c/devices/i2c-5"
ln -s "$gpu/i2c-5" "$gpu/drm/card0/card0-HDMI-A-1/ddc"
echo connected > "$gpu/drm/card0/card0-HDMI-A-1/status"
echo enabled > "$gpu/drm/card0/card0-HDMI-A-1/enabled"
echo 95 > "$gpu/drm/card0/card0-HDMI-A-1/connector_id"
: > "$gpu/drm/card0/card0-HDMI-A-1/edid"
printf 'reply_delay_ms 40\nfeature 10 50 100\n' > "$root/dev/i2c-5"

export XDG_STATE_HOME="$root/state" XDG_CONFIG_HOME="$root/config"
export PANELWRIGHT_ROOT="$root" LD_PRELOAD="$(realpath "$shim")"

measure() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s%N)
    "$cli" "$@" >/dev/null
    end=$(date +%s%N)
    times+=($(( (end - start) / 1000 )))
  done
  local median
  median=$(printf '%s\n' "${times[@]}" | sort -n | sed -n "$(( (runs + 1) / 2 ))p")
  printf '%-28s whole process, median of %d runs: %d.%03d ms\n' "$*" "$runs" $((median / 1000)) $((median % 1000))
}

echo "real Linux backend, fake root, monitor answers after 40 ms ($cli)"
measure --version # the process alone: start, no machine, exit
measure getvcp brightness
measure setvcp brightness 70
echo "floor: --version plus 50 ms, the wait a read gives the monitor before fetching its reply"
echo "(getvcp is answered by the enumeration's probe read through the cache; setvcp adds the write)"
