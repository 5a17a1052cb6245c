# Completes the command line of vantamo in bash. The program itself says what may come next, so this
# file knows none of its commands and options.
#
#   source vantamo.bash     or install it as .../share/bash-completion/completions/vantamo

_vantamo() {
  # Bash gives "--drain=5" as three words; a value is looked for in the same way after a blank.
  local words=() word candidate start
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ $word == "=" ]]; then continue; fi
    words+=("$word")
  done
  start=${COMP_WORDS[COMP_CWORD]}
  if [[ $start == "=" ]]; then
    start=
    words+=("")
  fi

  COMPREPLY=()
  while IFS= read -r candidate; do
    case $candidate in
      @FILE | @FOLDER)
        compopt -o filenames 2>/dev/null
        local kind=-f
        if [[ $candidate == @FOLDER ]]; then kind=-d; fi
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen "$kind" -- "$start")
        ;;
      *) COMPREPLY+=("$candidate") ;;
    esac
  done < <("${1/#\~/$HOME}" __complete "${words[@]}" 2>/dev/null)
}
complete -F _vantamo vantamo
