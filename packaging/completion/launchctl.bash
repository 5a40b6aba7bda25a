# Completion for launchctl.

_launchctl() {
  local cur prev words cword
  _init_completion || return

  if ((cword == 1)); then
    COMPREPLY=($(compgen -W 'list print start stop kickstart enable disable remove version help' \
      -- "$cur"))
  elif [[ ${words[1]} == kickstart && $cur == -* ]]; then
    COMPREPLY=($(compgen -W '-k -p' -- "$cur"))
  elif [[ ${words[1]} == @(list|print|start|stop|kickstart|enable|disable|remove) ]]; then
    COMPREPLY=($(compgen -W "$(launchctl list 2>/dev/null | awk 'NR > 1 { print $3 }')" -- "$cur"))
  fi
} &&
  complete -F _launchctl launchctl
