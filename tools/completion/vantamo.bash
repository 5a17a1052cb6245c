# Completes the command line of vantamo in bash. The program itself says what may come next, so this
# file knows none of its commands and options.
#
#   source vantamo.bash     or install it as .../share/bash-completion/completions/vantamo

_vantamo() {
  # Bash gives "--drain=5" as three words; a value is looked for in the same way after a blank.
  local words=() word candidate
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ $word != "=" ]]; then words+=("$word"); fi
  done
  if [[ ${COMP_WORDS[COMP_CWORD]} == "=" ]]; then words+=(""); fi

  COMPREPLY=()
  while IFS= read -r candidate; do
    case $candidate in
      # Names of files are left to the shell, which knows quotes, blanks and ~.
      @FILE) compopt -o default ;;
      @FOLDER) compopt -o dirnames ;;
      *) COMPREPLY+=("$candidate") ;;
    esac
  done < <("${1/#\~/$HOME}" __complete "${words[@]}" 2>/dev/null)
}
complete -F _vantamo vantamo
