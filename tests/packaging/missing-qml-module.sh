#!/usr/bin/env bash
# The app on a machine that lacks a QML module its views import (QtQuick.Layouts, which the
# popover uses): it must say in one line which module and which package, and exit 4, not
# crash. The module is hidden with a qt.conf beside a copy of the binary that points Qt at a
# QML folder of links to every installed module but that one.
#   missing-qml-module.sh PANELWRIGHT QT_PREFIX QML_DIR PLUGIN_DIR SCENARIO
set -uo pipefail
app=$1 prefix=$2 qml=$3 plugins=$4 scenario=$5
work=$(mktemp -d)
trap 'rm -rf "${work}"' EXIT
mkdir -p "${work}/bin" "${work}/qml/QtQuick"
cp "${app}" "${work}/bin/panelwright"
for entry in "${qml}"/*; do
  [ "$(basename "${entry}")" = QtQuick ] || ln -s "${entry}" "${work}/qml/"
done
for entry in "${qml}"/QtQuick/*; do
  [ "$(basename "${entry}")" = Layouts ] || ln -s "${entry}" "${work}/qml/QtQuick/"
done
printf '[Paths]\nPrefix=%s\nPlugins=%s\nQmlImports=%s\n' "${prefix}" "${plugins}" "${work}/qml" \
  >"${work}/bin/qt.conf"

QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="${work}" HOME="${work}" \
  "${work}/bin/panelwright" --simulate "${scenario}" --screenshot popover "${work}/out.png" \
  >"${work}/out" 2>"${work}/err"
status=$?
lines=$(grep -c '^panelwright: ' "${work}/err")
if [ "${status}" -eq 4 ] && [ "${lines}" -eq 1 ] &&
   grep -q 'QtQuick.Layouts is not installed.*apt install qml6-module-qtquick-layouts' "${work}/err" &&
   [ ! -e "${work}/out.png" ]; then
  echo "ok: $(grep '^panelwright: ' "${work}/err")"
  exit 0
fi
echo "FAILED: exit ${status} (want 4), ${lines} 'panelwright:' line(s) (want 1 naming QtQuick.Layouts"
echo "and qml6-module-qtquick-layouts), picture written: $([ -e "${work}/out.png" ] && echo yes || echo no)"
cat "${work}/err"
exit 1
