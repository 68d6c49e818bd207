# SPDX-License-Identifier: MIT
# bash completion for vexadm: commands, options, and tables and keys of the store that the line names.
# Needs nothing but bash; installed where the package bash-completion looks for it.
# shellcheck shell=bash

# _vexadm_plain WORD: as a program would get it, for what people type; nothing is run or expanded.
_vexadm_plain() {
  local word=$1
  case "$word" in
    \'*) word=${word#\'} word=${word%\'} ;;
    \"*) word=${word#\"} word=${word%\"} ;;
    *) word=${word//\\/} ;;
  esac
  printf '%s' "$word"
}

# _vexadm_offer LINE...: those that begin with what is typed, so that the shell reads them as one word. Not
# by compgen -W, which would run what a name in a damaged store says.
_vexadm_offer() {
  local line plain
  plain=$(_vexadm_plain "$typed")
  for line in "$@"; do
    [[ $line == "$plain"* ]] || continue
    case "$typed" in
      [\"\']*) case "$line" in *[\"\'\$\`\\!]*) ;; *) COMPREPLY+=("$line") ;; esac ;;
      *) COMPREPLY+=("$(printf '%q' "$line")") ;;
    esac
  done
}

# _vexadm_ask WORD...: what the program knows.
_vexadm_ask() {
  local lines
  mapfile -t lines < <("$program" "${store[@]}" --quiet __words "$@" 2> /dev/null < /dev/null)
  _vexadm_offer "${lines[@]}"
}

# _vexadm_paths -d|-f: directories or files.
_vexadm_paths() {
  compopt -o filenames 2> /dev/null || true  # outside of a completion there is nothing to set
  local lines
  mapfile -t lines < <(compgen "$1" -- "$(_vexadm_plain "$typed")" | sort)
  COMPREPLY+=("${lines[@]}")
}

_vexadm_interfaces() {
  local paths=(/sys/class/net/*)
  _vexadm_offer "${paths[@]##*/}"
}

_vexadm_value() {
  case "$1" in
    --root | --store | --backup-store) _vexadm_paths -d ;;
    --from) _vexadm_paths -f ;;
    --type) _vexadm_offer u8 u16 u32 u32alt text bytes ;;
    --file)
      _vexadm_offer primary backup factory defaults
      _vexadm_paths -f
      ;;
  esac
}

_vexadm_argument() {
  case "$command:$count" in
    :*) _vexadm_ask commands ;;
    help:0) _vexadm_ask commands ;;
    list:0 | defaults:0 | get:0 | set:0 | empty:0 | watch:0 | kv:0) _vexadm_ask tables ;;
    get:1 | set:1 | empty:1 | watch:1 | kv:1) _vexadm_ask keys -- "$first" ;;
    load:0 | diff:[01]) _vexadm_paths -f ;;
    gateway:0 | wait-ip:0) _vexadm_interfaces ;;
  esac
}

_vexadm() {
  local program=${COMP_WORDS[0]} typed=${COMP_WORDS[COMP_CWORD]} command='' first='' waiting='' words_only=''
  local count=0 i word store=()
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=$(_vexadm_plain "${COMP_WORDS[i]}")
    if [ -n "$waiting" ]; then
      [ "$word" != = ] || continue  # --root=DIR comes as three words
      case "$waiting" in --root | --store | --backup-store) store+=("$waiting" "$word") ;; esac
      waiting=''
      continue
    fi
    case "$words_only$word" in
      --root | --store | --backup-store | --file | --type | --id | --from | --interval | --count) waiting=$word ;;
      --) words_only=' ' ;;
      -*) ;;
      *)
        if [ -z "$command" ]; then
          command=$word
        else
          [ "$count" -gt 0 ] || first=$word
          count=$((count + 1))
        fi
        ;;
    esac
  done
  [ "$typed" != = ] || typed=''
  if [ -n "$waiting" ]; then
    _vexadm_value "$waiting"
  elif [ -z "$words_only" ] && [ "${typed#-}" != "$typed" ]; then
    _vexadm_ask options ${command:+"$command"}
  else
    _vexadm_argument
  fi
}

complete -F _vexadm vexadm
