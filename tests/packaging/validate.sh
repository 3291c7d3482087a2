#!/usr/bin/env bash
# The desktop entry and the AppStream data as the desktop's own tools read them.
#   validate.sh PACKAGING_DIR        (exit 77: a validator is not installed)
set -uo pipefail
dir=$1
for tool in desktop-file-validate appstreamcli; do
  command -v "${tool}" >/dev/null || { echo "skipped: ${tool} is not installed (scripts/setup.sh)"; exit 77; }
done
failed=0
desktop-file-validate "${dir}/panelwright.desktop" || failed=1
appstreamcli validate --no-net --pedantic "${dir}/com.panelwright.app.metainfo.xml" || failed=1
[ "${failed}" -eq 0 ] && echo "ok: desktop entry and metainfo are valid"
exit "${failed}"
