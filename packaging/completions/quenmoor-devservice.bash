# Completion of quenmoor-devservice for bash. The options are those of
# devservice/service_options.cpp, the faults those of devservice/faults.cpp;
# scripts/check-packages compares this file with the help text.
_quenmoor_devservice() {
  local cur prev words cword
  _init_completion -n = || return
  case $prev in
    --root | --page | --state)
      _filedir -d
      return
      ;;
    --bind)
      _ip_addresses
      return
      ;;
    --fault)
      mapfile -t COMPREPLY < <(compgen -W 'refuse-rendezvous never-answer answer-late=
        garbage-response cut-off-response drop-after= stop-reading= slow-reading= garbage-closing
        no-closing-document smaller-final-size larger-final-size' -- "$cur")
      [[ ${COMPREPLY[0]-} == *= ]] && compopt -o nospace
      return
      ;;
    --port | --token | --fault-count | --page-port | --newest-version | --update-url | \
      --token-lifetime)
      return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '--root --port --bind --token --fault --fault-count
    --page-port --page --state --newest-version --update-url --token-lifetime --auto --help' \
    -- "$cur")
} &&
  complete -F _quenmoor_devservice quenmoor-devservice
