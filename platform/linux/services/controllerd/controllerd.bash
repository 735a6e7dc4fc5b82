# Completion of controllerd for bash.
_controllerd() {
  [[ $COMP_CWORD -eq 1 ]] && mapfile -t COMPREPLY < <(compgen -W '--help --version' -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _controllerd controllerd
