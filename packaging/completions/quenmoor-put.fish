# Completion of quenmoor-put for fish. The options are those of cli/put_options.cpp;
# scripts/check-packages compares this file with the help text.
complete -c quenmoor-put -l host -x -a '(__fish_print_hostnames)' -d 'Transfer server'
complete -c quenmoor-put -l token -x -d 'Upload token, once for each file'
complete -c quenmoor-put -l existing -x -a 'ask resume overwrite cancel' -d 'Answer when the server holds a copy'
complete -c quenmoor-put -l congestion -x -a 'library paced' -d 'Congestion control'
complete -c quenmoor-put -l json -d 'Write one JSON object per line'
complete -c quenmoor-put -l quiet -d 'Write only errors'
complete -c quenmoor-put -s v -l verbose -d 'Write diagnostics to standard error'
complete -c quenmoor-put -l version -d 'Show the version'
complete -c quenmoor-put -s h -l help -d 'Show the help text'
