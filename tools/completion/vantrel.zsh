#compdef vantrel
# SPDX-License-Identifier: LGPL-2.1-or-later
# Completion for zsh: commands, their options as --help lists them, files.
_vantrel() {
  local -a found
  if (( CURRENT == 2 )); then
    found=(${(f)"$(_call_program commands $words[1] --help 2>/dev/null |
      sed -n 's/^  \([a-z-]*\)  *\(.*\)/\1:\2/p')"})
    _describe command found
  elif [[ $words[CURRENT] == -* ]]; then
    found=(${(f)"$(_call_program options $words[1] $words[2] --help 2>/dev/null |
      sed -nE 's/^  (-., )?(--[a-z-]+)(=[^ ]+)?  *(.*)/\2:\4/p')"})
    _describe -o option found
  else
    _files
  fi
}
_vantrel "$@"
