#!/usr/bin/env bash
# The bash completion of panelwright-cli, asked as bash asks it: commands, feature names,
# input sources after "setvcp inputSource", and the ids `detect --json` reports for
# --display on the simulated machine named by --simulate. Then the zsh completion's display
# ids, with zsh's completion helpers stood in for (where zsh is installed).
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
zsh_file="$(dirname "$1")/_panelwright-cli"
if command -v zsh >/dev/null; then
  got=$(zsh -fc '_arguments() { :; }; _describe() { print -r -- ${(P)4}; }
                 source "$1"
                 words=(panelwright-cli --simulate "$2" --display ""); CURRENT=4
                 _panelwright_cli_displays' zsh "${zsh_file}" "$3")
  [ "${got}" = "2 3" ] || { echo "FAILED: zsh --display ids: got '${got}', want '2 3'"; failed=1; }
fi
[ "${failed}" -eq 0 ] && echo "ok: bash and zsh completion"
exit "${failed}"
