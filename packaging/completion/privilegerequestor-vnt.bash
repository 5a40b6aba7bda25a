# Completion for privilegerequestor-vnt.

_privilegerequestor_vnt() {
  local cur prev words cword
  _init_completion || return

  local global='--socket --authorization-socket --prompt --icon --json --quiet --no-feedback
    --no-interaction --version -h --help'
  local commands='delete execute delete-files preferences nop discard-auth may version debug
    operations install uninstall doctor help'

  # The first word that is neither an option nor the value of one.
  local command= i
  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in
      --socket | --authorization-socket | --prompt | --icon) ((i++)) ;;
      -*) ;;
      *)
        command=${words[i]}
        break
        ;;
    esac
  done

  case $prev in
    --socket | --authorization-socket | --icon | --files-from)
      _filedir
      return
      ;;
    --application)
      _filedir -d
      return
      ;;
    --prompt) return ;;
  esac

  local -A options=(
    [delete]='-r --recursive -f --force --stop-on-first-error --files-from -0 --null'
    [execute]='--application'
    [preferences]='--app --global --user --root --any-user --host --any-host'
    [uninstall]='--force'
  )
  if [[ $cur == -* ]]; then
    local offered="${command:+${options[$command]} -h --help}"
    [[ $command ]] || offered=$global
    [[ $command != preferences || " ${words[*]} " != *' set '* ]] ||
      offered+=' --bool --int --float --date --data --plist'
    COMPREPLY=($(compgen -W "$offered" -- "$cur"))
    return
  fi
  case $command in
    '') COMPREPLY=($(compgen -W "$commands" -- "$cur")) ;;
    delete | delete-files) _filedir ;;
    may)
      COMPREPLY=($(compgen -W 'delete-fileobjects modify-preferences execute-utility
        perform-uninstall prepare-uninstall delete-files discard-auth nop' -- "$cur"))
      ;;
    preferences)
      case $prev in
        preferences) COMPREPLY=($(compgen -W 'set remove get' -- "$cur")) ;;
        --user) COMPREPLY=($(compgen -u -- "$cur")) ;;
        --bool) COMPREPLY=($(compgen -W 'yes no' -- "$cur")) ;;
        --plist) _filedir ;;
      esac
      ;;
    execute) [[ $prev != execute ]] || COMPREPLY=($(compgen -W 'launchctl lipo' -- "$cur")) ;;
    help)
      [[ $prev != help ]] || COMPREPLY=($(compgen -W "$commands" -- "$cur"))
      [[ $prev != preferences ]] || COMPREPLY=($(compgen -W 'set remove get' -- "$cur"))
      ;;
    debug) COMPREPLY=($(compgen -W 'on off' -- "$cur")) ;;
  esac
} &&
  complete -F _privilegerequestor_vnt privilegerequestor-vnt
