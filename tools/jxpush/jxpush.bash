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
    --to)
      mapfile -t COMPREPLY < <(compgen -W 'serial:' -- "$current")
      compopt -o nospace 2>/dev/null
      return
      ;;
    --progress)
      mapfile -t COMPREPLY < <(compgen -W 'auto tty plain json none' -- "$current")
      return
      ;;
    --wait) return ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--to --progress --wait --json --dry-run --help --version -h' -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -F _jxpush jxpush
