# Completion of cloudproxyd for bash.
_cloudproxyd() {
  local current=${COMP_WORDS[COMP_CWORD]}
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --list-format) mapfile -t COMPREPLY < <(compgen -W 'new old both' -- "$current") ;;
    --device-type) mapfile -t COMPREPLY < <(compgen -W 'prod' -- "$current") ;;
    --gateway) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current") ;;
    --ca-file | --state)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    --env) ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '--list-format --no-info --device-type --env --gateway --ca-file --state --version
        --help -h' -- "$current")
      ;;
  esac
}
complete -F _cloudproxyd cloudproxyd
