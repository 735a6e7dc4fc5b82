# Completion of jxpush for bash.
_jxpush() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  # A colon separates words: "serial:/dev/x" comes as three of them.
  if [[ $previous == : && ${COMP_WORDS[COMP_CWORD - 2]} == serial ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  if [[ $current == : && $previous == serial ]]; then
    mapfile -t COMPREPLY < <(compgen -G '/dev/tty[A-Z]*')
    return
  fi
  case $previous in
    --to | -t)
      mapfile -t COMPREPLY < <(compgen -W 'serial: http://' -- "$current")
      compopt -o nospace 2>/dev/null
      return
      ;;
    --progress)
      mapfile -t COMPREPLY < <(compgen -W 'auto tty plain json none' -- "$current")
      return
      ;;
    --targets)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --wait | --timeout | --jobs | --retry) return ;;
  esac
  # A host's name is not known here.
  [[ $previous == : && ${COMP_WORDS[COMP_CWORD - 2]} == http || $current == : && $previous == http ]] && return
  if [[ $current == -* && ${COMP_WORDS[1]} == status ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--to --wait --timeout --json --help --version -h -t' -- "$current")
  elif [[ ${COMP_WORDS[1]} == status && $COMP_CWORD -gt 1 ]]; then
    return
  elif [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--to --targets --jobs --retry --progress
      --quiet --verbose --wait --timeout --json --dry-run --help --version -h -n -q -t -v' -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    [[ $COMP_CWORD -eq 1 && status == "$current"* ]] && COMPREPLY+=(status)
  fi
}
complete -o filenames -F _jxpush jxpush
