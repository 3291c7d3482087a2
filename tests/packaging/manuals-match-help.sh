#!/usr/bin/env bash
# Each manual page lists exactly the options (and, for panelwright-cli, the commands) that
# the program's --help prints: an option added to or dropped from one shows here.
#   manuals-match-help.sh MAN_DIR PROGRAM...
set -uo pipefail
man_dir=$1; shift
failed=0
for program in "$@"; do
  name=$(basename "${program}")
  page="${man_dir}/${name}.1"
  help=$(HOME=$(mktemp -d) "${program}" --help 2>/dev/null)
  # Options: the long names at the start of --help's option lines.
  from_help=$(grep -E '^ +-' <<<"${help}" | grep -oE -- '--[a-z][a-z-]*' | sort -u)
  # In the page: the long names of the .TP items of OPTIONS ("\-\-name" in roff).
  from_page=$(sed -n '/^\.SH OPTIONS/,/^\.SH /p' "${page}" | grep -A1 '^\.TP' |
              sed 's/\\-/-/g' | grep -oE -- '--[a-z][a-z-]*' | sort -u)
  # Commands: the lines under "Subcommands:" in --help, the bold .TP items of COMMANDS.
  cmds_help=$(sed -n '/^Subcommands:/,/^$/p' <<<"${help}" | awk 'NR > 1 && NF { print $1 }' | sort -u)
  cmds_page=$(sed -n '/^\.SH COMMANDS/,/^\.SH /p' "${page}" | grep -A1 '^\.TP' |
              awk '/^\.B/ { print $2 }' | sort -u)
  for kind in options commands; do
    if [ "${kind}" = options ]; then a=${from_help} b=${from_page}; else a=${cmds_help} b=${cmds_page}; fi
    missing=$(comm -23 <(echo "${a}") <(echo "${b}") | grep . )
    extra=$(comm -13 <(echo "${a}") <(echo "${b}") | grep . )
    if [ -n "${missing}" ]; then
      echo "${page}: ${kind} in --help but not in the page: ${missing//$'\n'/ }"; failed=1
    fi
    if [ -n "${extra}" ]; then
      echo "${page}: ${kind} in the page but not in --help: ${extra//$'\n'/ }"; failed=1
    fi
  done
  [ -n "${from_help}" ] || { echo "${name} --help printed no options"; failed=1; }
done
[ "${failed}" -eq 0 ] && echo "ok: the manual pages list what --help lists"
exit "${failed}"
