#!/usr/bin/env bash
# Installs the Debian 12 packages Panelwright builds with, when they are missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libcli11-dev
  libsystemd-dev libudev-dev
  clang-14 libclang-rt-14-dev
  # the application: Qt Quick for the views, Widgets for the tray and its menu
  qt6-base-dev qt6-declarative-dev qt6-svg-dev qt6-qpa-plugins
  qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-templates
  qml6-module-qtquick-layouts qml6-module-qtquick-window qml6-module-qtqml
  qml6-module-qtqml-workerscript qml6-module-qttest
  adwaita-icon-theme fonts-dejavu-core
  # its end-to-end tests: a private X server, a private session bus, a pointer
  xvfb xauth dbus-daemon dbus-bin libgl1-mesa-dri xdotool
  # a real window manager, tray host and compositor for the desktop checks; xwd to grab,
  # xprop to see the window manager take over
  openbox trayer xcompmgr x11-apps x11-utils
  # the Linux desktop: gamma ramps, key grabs and screens through X; XTest drives its tests
  libx11-dev libxrandr-dev libxtst-dev
  libwayland-dev libwayland-bin
  # the package and its install test: a clean Debian root, Debian's checker, the desktop's
  # validators, the picture comparison, zsh for its completion's test (docs/packaging.md)
  mmdebstrap lintian desktop-file-utils appstream python3 zsh
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
