# Completion of quenmoor-devservice for fish. The options are those of
# devservice/service_options.cpp, the faults those of devservice/faults.cpp;
# scripts/check-packages compares this file with the help text.
complete -c quenmoor-devservice -f
complete -c quenmoor-devservice -l root -x -a '(__fish_complete_directories)' -d 'Folder for the uploads'
complete -c quenmoor-devservice -l port -x -d 'UDP port of the transfer server'
complete -c quenmoor-devservice -l bind -x -d 'IPv4 address to listen on'
complete -c quenmoor-devservice -l token -x -d 'Upload token to accept'
complete -c quenmoor-devservice -l fault -x -d 'Fault to inject' -a 'refuse-rendezvous never-answer answer-late= garbage-response cut-off-response drop-after= stop-reading= slow-reading= garbage-closing no-closing-document smaller-final-size larger-final-size'
complete -c quenmoor-devservice -l fault-count -x -d 'Number of attempts with faults'
complete -c quenmoor-devservice -l page-port -x -d 'TCP port of the page'
complete -c quenmoor-devservice -l page -x -a '(__fish_complete_directories)' -d 'Folder of another page to serve'
complete -c quenmoor-devservice -l state -x -a '(__fish_complete_directories)' -d 'Folder for the certificate'
complete -c quenmoor-devservice -l newest-version -x -d 'Client version to publish'
complete -c quenmoor-devservice -l update-url -x -d 'Where the newest client is found'
complete -c quenmoor-devservice -l token-lifetime -x -d 'Lifetime of the tokens of the page'
complete -c quenmoor-devservice -l auto -d 'Issue the token for every file without a click'
complete -c quenmoor-devservice -s h -l help -d 'Show the help text'
