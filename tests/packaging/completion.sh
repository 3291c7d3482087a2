#!/usr/bin/env bash
# The bash completion of panelwright-cli, asked as bash asks it: commands, feature names,
# input sources after "setvcp inputSource", and the ids `detect --json` reports for
# --display on the simulated machine named by --simulate.
#   completion.sh COMPLETION_FILE CLI_DIR SCENARIO
set -uo pipefail
source "$1"
export PATH="$2:${PATH}" HOME=$(mktemp -d)
trap 'rm -rf "${HOME}"' EXIT
failed=0
complete_line() { # the words typed, the last one being completed
  COMP_WORDS=(panelwright-cli "$@"); COMP_CWORD=$(($# )); COMPREPLY=()
  _panelwright_cli
  echo "${COMPREPLY[*]}"
}
expect() { # want, then the words
  local want=$1; shift
  local got; got=$(complete_line "$@")
  if [ "${got}" != "${want}" ]; then echo "FAILED: panelwright-cli $* <TAB>: got '${got}', want '${want}'"; failed=1; fi
}
expect "detect getvcp setvcp config" ""
expect "getvcp" get
expect "brightness blueGain" getvcp b
expect "hdmi1 hdmi2" setvcp inputSource hd
expect "--display" --disp
expect "2 3" --simulate "$3" --display ""
expect "ddcRetryCount ddcCacheTTL" config set ddc
[ "${failed}" -eq 0 ] && echo "ok: bash completion"
exit "${failed}"
