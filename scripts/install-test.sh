#!/usr/bin/env bash
# The package as a person installs it: builds the .deb (release, without tests or
# benchmarks), checks it with lintian, makes a clean minimal Debian 12 root (cached), installs
# the .deb there with apt so that its Depends are resolved, and inside it runs
# panelwright-cli and a popover picture, compared loosely with the one in the tree. Then
# reinstalls (the maintainer scripts run twice) and purges (the package's files must go).
# Needs root (chroot) and Debian's package mirror. docs/packaging.md says why each step.
#   bash scripts/install-test.sh          # prints "== package: passed" or FAILED, exit status
set -uo pipefail
cd "$(dirname "$0")/.."
source=$PWD
start=${SECONDS}

if [ "$(id -u)" -ne 0 ]; then
  echo "== package: needs root (it makes a chroot); run it with sudo"; exit 1
fi
for tool in mmdebstrap lintian dpkg-shlibdeps unshare python3; do
  command -v "${tool}" >/dev/null || { echo "== package: ${tool} is missing (bash scripts/setup.sh)"; exit 1; }
done

build=build/package
cache="${XDG_CACHE_HOME:-${HOME}/.cache}/panelwright"
mkdir -p "${cache}/apt-archives/partial"
log=$(mktemp)
# The root is thrown away at the end: in memory where the machine has a tmpfs, and dpkg
# inside it skips its fsyncs (--force-unsafe-io). On a shared disk those two were most of the
# install's time, and removing the root took a minute.
scratch="${cache}"
if [ -d /dev/shm ] && [ -w /dev/shm ]; then scratch=/dev/shm; fi
root=$(mktemp -d -p "${scratch}" pw-root.XXXXXX)
trap 'rm -rf "${root}" "${log}"' EXIT
fail() { echo "== package: FAILED: $*"; exit 1; }
step() { echo "== package: $* ($((SECONDS - start)) s)"; }

# The .deb: a release build of what it holds, nothing else (scripts/package.sh).
step "build"
bash scripts/package.sh >"${log}" 2>&1 || { tail -40 "${log}"; fail "building the package"; }
deb=$(tail -n 1 "${log}")
echo "   $(basename "${deb}"), $(du -k "${deb}" | cut -f1) KiB"
dpkg-deb -f "${deb}" Depends Recommends | sed 's/^/   /'

step "lintian"
lintian "${deb}" >"${build}/lintian.txt" 2>&1
sed 's/^/   /' "${build}/lintian.txt"
if grep -q '^E: ' "${build}/lintian.txt"; then fail "lintian reports errors"; fi
# Every warning must be explained in docs/packaging.md (by its tag).
for tag in $(sed -n 's/^W: [^:]*: \([a-z0-9-]*\).*/\1/p' "${build}/lintian.txt" | sort -u); do
  grep -q "${tag}" docs/packaging.md || fail "lintian warning ${tag} is not explained in docs/packaging.md"
done

# A clean minimal Debian 12 (essential packages and apt), made once and kept as a tarball;
# a week old, it is made again so that its packages stay near the mirror's.
tarball="${cache}/bookworm-apt.tar"
if [ -n "$(find "${tarball}" -mtime +7 2>/dev/null)" ]; then rm -f "${tarball}"; fi
if [ ! -s "${tarball}" ]; then
  step "making the clean root"
  mmdebstrap --variant=apt --mode=root bookworm "${tarball%.tar}.new.tar" \
    "deb http://deb.debian.org/debian bookworm main" \
    "deb http://deb.debian.org/debian bookworm-updates main" \
    "deb http://deb.debian.org/debian-security bookworm-security main" >"${log}" 2>&1 ||
    { tail -30 "${log}"; rm -f "${tarball%.tar}.new.tar"; fail "mmdebstrap"; }
  mv "${tarball%.tar}.new.tar" "${tarball}"
fi
tar -C "${root}" -xf "${tarball}" || fail "unpacking the clean root"
cp "${deb}" "${root}/tmp/panelwright.deb"
cp /etc/resolv.conf "${root}/etc/resolv.conf" 2>/dev/null || true
echo force-unsafe-io >"${root}/etc/dpkg/dpkg.cfg.d/unsafe-io"
cp tests/packaging/compare-picture.py "${root}/tmp/" 2>/dev/null || true

# Runs a script in the root with /proc, /dev and the shared apt download cache mounted, in
# a mount namespace of its own: the mounts end with it.
in_root() {
  unshare --mount --propagation private --fork sh -c '
    root=$1; shift
    mount -t proc proc "$root/proc" && mount --rbind /dev "$root/dev" &&
    mount --bind "$0" "$root/var/cache/apt/archives" &&
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
      DEBIAN_FRONTEND=noninteractive sh -ec "$*"' "${cache}/apt-archives" "${root}" "$@"
}

step "apt install ./panelwright.deb"
installed=${SECONDS}
in_root 'apt-get update -qq && apt-get install -y -qq --no-install-recommends /tmp/panelwright.deb' \
  >"${log}" 2>&1 || { tail -40 "${log}"; fail "apt could not install the package"; }
echo "   installed in $((SECONDS - installed)) s; $(in_root 'dpkg-query -W -f=. | wc -c') packages in the root"

step "panelwright-cli detect"
in_root 'panelwright-cli --simulate /usr/share/panelwright/scenarios/one-monitor.json detect' \
  >"${log}" 2>&1 || { cat "${log}"; fail "panelwright-cli detect"; }
sed 's/^/   /' "${log}"
grep -q '^Display 1: DELL U2723QE' "${log}" || fail "detect did not list the simulated monitor"

step "panelwright --screenshot popover"
in_root 'cd /tmp && HOME=/tmp PANELWRIGHT_ITEM_MAP=/tmp/items.txt QT_QPA_PLATFORM=offscreen \
  panelwright --simulate /usr/share/panelwright/scenarios/two-monitors-and-builtin.json \
  --screenshot popover /tmp/popover.png' >"${log}" 2>&1 || { cat "${log}"; fail "the popover picture"; }
cp "${root}/tmp/popover.png" "${build}/installed-popover.png"
sections=$(grep -c '^section#[0-9]*	' "${root}/tmp/items.txt" 2>/dev/null)
echo "   ${sections} monitor sections in the popover"
[ "${sections}" = 2 ] || fail "the popover shows ${sections:-no} monitor sections, not 2"
python3 tests/packaging/compare-picture.py "${build}/installed-popover.png" docs/screenshots/popover.png |
  sed 's/^/   /'
[ "${PIPESTATUS[0]}" -eq 0 ] || fail "the installed popover ${build}/installed-popover.png is not like docs/screenshots/popover.png"

step "reinstall and purge"
in_root 'apt-get install -y -qq --reinstall /tmp/panelwright.deb && apt-get purge -y -qq panelwright &&
  ! dpkg-query -W -f="\${Status}" panelwright 2>/dev/null | grep -q installed &&
  ! ls /usr/lib/udev/rules.d/60-panelwright-i2c.rules /usr/lib/modules-load.d/panelwright.conf \
       /usr/bin/panelwright /usr/share/applications/panelwright.desktop 2>/dev/null &&
  ! find /etc /usr /var/lib -name "*panelwright*" ! -path "/var/lib/dpkg/*" | grep .' \
  >"${log}" 2>&1 || { tail -20 "${log}"; fail "reinstall or purge left something behind"; }

step "passed"
