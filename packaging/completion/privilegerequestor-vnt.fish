# Completion for privilegerequestor-vnt.

set -l tool privilegerequestor-vnt
complete -c $tool -f

complete -c $tool -n __fish_use_subcommand -s h -l help -d 'Help'
complete -c $tool -n __fish_use_subcommand -l socket -rF -d 'Where the helper listens'
complete -c $tool -n __fish_use_subcommand -l authorization-socket -rF -d 'Where authorizations are issued'
complete -c $tool -n __fish_use_subcommand -l prompt -x -d 'What the authorization dialog shows'
complete -c $tool -n __fish_use_subcommand -l icon -rF -d 'The icon of the authorization dialog'
complete -c $tool -n __fish_use_subcommand -l json -d 'Print one JSON object'
complete -c $tool -n __fish_use_subcommand -l quiet -d 'Show no progress'
complete -c $tool -n __fish_use_subcommand -l no-feedback -d 'Ask for no progress and no output'
complete -c $tool -n __fish_use_subcommand -l no-interaction -d 'Ask nobody'

complete -c $tool -n __fish_use_subcommand -l version -d 'Print the version of this program'

complete -c $tool -n __fish_use_subcommand -a delete -d 'Delete files and folders'
complete -c $tool -n __fish_use_subcommand -a execute -d 'Run a system utility as root'
complete -c $tool -n __fish_use_subcommand -a delete-files -d 'Delete single objects'
complete -c $tool -n __fish_use_subcommand -a preferences -d 'Set, remove or read a preference'
complete -c $tool -n __fish_use_subcommand -a nop -d 'Contact the helper and do nothing'
complete -c $tool -n __fish_use_subcommand -a discard-auth -d 'Make the system ask again'
complete -c $tool -n __fish_use_subcommand -a may -d 'Tell whether an operation would be allowed'
complete -c $tool -n __fish_use_subcommand -a version -d 'Print the helper\'s version'
complete -c $tool -n __fish_use_subcommand -a debug -d 'Switch the helper\'s debug messages'
complete -c $tool -n __fish_use_subcommand -a operations -d 'List what the helper can do'
complete -c $tool -n __fish_use_subcommand -a install -d 'Put the helper in place'
complete -c $tool -n __fish_use_subcommand -a uninstall -d 'Have the helper remove itself'
complete -c $tool -n __fish_use_subcommand -a doctor -d 'Look for what stands in the way'
complete -c $tool -n __fish_use_subcommand -a help -d 'List the options and commands'

for command in delete execute delete-files preferences nop discard-auth may version debug operations \
    install uninstall doctor help
    complete -c $tool -n "__fish_seen_subcommand_from $command" -s h -l help -d 'Help'
end

set -l seen '__fish_seen_subcommand_from delete'
complete -c $tool -n $seen -F
complete -c $tool -n $seen -s r -l recursive -d 'Delete folders with their contents'
complete -c $tool -n $seen -s f -l force -d 'Say nothing about paths where nothing is'
complete -c $tool -n $seen -l stop-on-first-error -d 'Stop at the first that cannot be deleted'
complete -c $tool -n $seen -l files-from -rF -d 'Delete what this file lists'
complete -c $tool -n $seen -s 0 -l null -d 'Paths of the list end with a zero byte'

complete -c $tool -n '__fish_seen_subcommand_from delete-files' -F

set -l seen '__fish_seen_subcommand_from execute'
complete -c $tool -n $seen -l application -xa '(__fish_complete_directories)' -d 'The bundle of an application'
complete -c $tool -n $seen -a 'launchctl lipo'

complete -c $tool -n '__fish_seen_subcommand_from may' -a 'delete-fileobjects modify-preferences
    execute-utility perform-uninstall prepare-uninstall delete-files discard-auth nop'

set -l seen '__fish_seen_subcommand_from preferences'
complete -c $tool -n "$seen; and not __fish_seen_subcommand_from set remove get" -a 'set remove get'
complete -c $tool -n $seen -l app -x -d 'Of this application'
complete -c $tool -n $seen -l global -d 'Of all applications'
complete -c $tool -n $seen -l user -xa '(__fish_complete_users)' -d 'Of this user'
complete -c $tool -n $seen -l root -d 'Of root'
complete -c $tool -n $seen -l any-user -d 'Of all users'
complete -c $tool -n $seen -l host -x -d 'On this machine'
complete -c $tool -n $seen -l any-host -d 'On all machines'
set -l setting "$seen; and __fish_seen_subcommand_from set"
complete -c $tool -n $setting -l bool -xa 'yes no' -d 'true or false'
complete -c $tool -n $setting -l int -x -d 'A whole number'
complete -c $tool -n $setting -l float -x -d 'A number'
complete -c $tool -n $setting -l date -x -d 'A date'
complete -c $tool -n $setting -l data -x -d 'Bytes in hexadecimal digits'
complete -c $tool -n $setting -l plist -rF -d 'A property list in a file'

complete -c $tool -n '__fish_seen_subcommand_from uninstall' -l force -d 'Remove it without its help'
complete -c $tool -n '__fish_seen_subcommand_from debug' -a 'on off'
