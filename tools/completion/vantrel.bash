# SPDX-License-Identifier: LGPL-2.1-or-later
# Completion for bash: commands, their options as --help lists them, files.
_vantrel() {
  local word=${COMP_WORDS[COMP_CWORD]}
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "$(vantrel --help | sed -n 's/^  \([a-z-]*\) .*/\1/p')" -- "$word")
  elif [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(vantrel "${COMP_WORDS[1]}" --help | grep -o -- '--[a-z-]*')" -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -o filenames -F _vantrel vantrel
