# Completion of jxpack for bash.
_jxpack() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  case $previous in
    show | verify | --key | --cert | -o | --output)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --certs)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --name | --version | --description | --exclude | --remove) return ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--name --version --description --exclude --remove --allow-private-keys --key --cert --certs -o --output \
      --force --tool-version -h --help' -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  fi
}
complete -o filenames -F _jxpack jxpack
