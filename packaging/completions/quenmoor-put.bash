# Completion of quenmoor-put for bash. The options are those of cli/put_options.cpp;
# scripts/check-packages compares this file with the help text.
_quenmoor_put() {
  local cur prev words cword
  _init_completion || return
  case $prev in
    --host)
      _known_hosts_real -- "$cur"
      return
      ;;
    --token | --retries | --give-up-after | --limit-rate)
      return
      ;;
    --token-file | --files-from | --log-file)
      _filedir
      return
      ;;
    --existing)
      mapfile -t COMPREPLY < <(compgen -W 'ask resume overwrite cancel skip' -- "$cur")
      return
      ;;
    --congestion)
      mapfile -t COMPREPLY < <(compgen -W 'library paced' -- "$cur")
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--host --token --token-file --files-from --null --dry-run
      --existing --allow-changed --limit-rate --congestion --retries --give-up-after
      --keep-going --progress --json --quiet --log-file --verbose --version --help' -- "$cur")
    return
  fi
  if [[ $cword -eq 1 && -n $cur && check == "$cur"* ]]; then
    COMPREPLY=(check)
  fi
  _filedir
} &&
  complete -F _quenmoor_put quenmoor-put
