# Completion of jxdownloader for bash.
_jxdownloader() {
  [[ $COMP_CWORD -eq 1 ]] && mapfile -t COMPREPLY < <(compgen -W '--http' -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _jxdownloader jxdownloader
