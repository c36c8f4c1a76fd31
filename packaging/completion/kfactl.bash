# Completion of kfactl for bash: the program says what a word can become; names of files are the shell's.
_kfactl() {
  local cur words cword
  _get_comp_words_by_ref -n '=:' cur words cword
  local line
  COMPREPLY=()
  while IFS=$'\t' read -r line _; do
    COMPREPLY+=("$line")
  done < <("${words[0]}" complete -- "${words[@]:1:cword}" 2>/dev/null)
  if [ "${#COMPREPLY[@]}" = 1 ] && [[ ${COMPREPLY[0]} == *= ]]; then
    compopt -o nospace
  fi
  __ltrim_colon_completions "$cur"
  if [[ $cur == *=* ]]; then
    COMPREPLY=("${COMPREPLY[@]#"${cur%%=*}="}")
  fi
  compopt -o default
}
complete -F _kfactl kfactl
