# fish completion for rixstat: commands, options and their values, named gateways, and the ids of the gateway that the
# command line names, if it answers within a second.

function __rixstat_ask
    set -l tokens (commandline -opc)
    set -l gateway
    for i in (seq 2 (count $tokens))
        switch $tokens[$i]
            case --host --port
                set -l next (math $i + 1)
                test $next -le (count $tokens); and set -a gateway $tokens[$i] $tokens[$next]
            case '--host=*' '--port=*' '@*'
                set -a gateway $tokens[$i]
        end
    end
    rixstat $gateway --timeout 1 --output name $argv[1] 2>/dev/null
end

function __rixstat_named
    set -l directory $XDG_CONFIG_HOME
    test -n "$directory"; or set directory $HOME/.config
    sed -n 's/^ *\[ *gateways *\. *\([A-Za-z0-9_-]*\) *\].*/@\1/p' $directory/rixstat/config.toml 2>/dev/null
end

set -l commands groups ids get watch ping doctor dump version
set -l none "not __fish_seen_subcommand_from $commands"

complete -c rixstat -f
complete -c rixstat -a '(__rixstat_named)'
complete -c rixstat -n $none -a groups -d 'Show the ids of all resource groups'
complete -c rixstat -n $none -a ids -d 'Show the ids of statistics'
complete -c rixstat -n $none -a get -d 'Show statistics with their values'
complete -c rixstat -n $none -a watch -d 'Show statistics again and again'
complete -c rixstat -n $none -a ping -d 'Time connecting and asking'
complete -c rixstat -n $none -a doctor -d 'Say what is wrong'
complete -c rixstat -n $none -a dump -d 'Write the state of the library, for support'
complete -c rixstat -n $none -a version -d 'Show versions'

complete -c rixstat -n '__fish_seen_subcommand_from ids' -a '(__rixstat_ask groups)'
complete -c rixstat -n '__fish_seen_subcommand_from get watch dump' -a '(__rixstat_ask groups; and __rixstat_ask ids)'

complete -c rixstat -l host -x -a '(__fish_print_hostnames)' -d 'Host name or address of the gateway'
complete -c rixstat -l port -x -d 'Statistics port of the gateway'
complete -c rixstat -l timeout -x -d 'Longest wait for each answer, in seconds'
complete -c rixstat -l trace -x -a '0 1 2 3 4 5' -d 'Trace level'
complete -c rixstat -l trace-file -r -F -d 'Append trace and dumps to a file'
complete -c rixstat -s o -l output -x -a 'table wide json ndjson csv tsv prom name' -d 'Output form'
complete -c rixstat -l columns -x -d 'Columns to show'
complete -c rixstat -l sort -x -d 'Column to sort by'
complete -c rixstat -l no-headers -d 'No header line'
complete -c rixstat -l help -d 'Show help'
complete -c rixstat -l version -d 'Show versions'
complete -c rixstat -n '__fish_seen_subcommand_from watch ping' -s i -l interval -x -d 'Seconds from one to the next'
complete -c rixstat -n '__fish_seen_subcommand_from watch ping' -s n -l count -x -d 'How many, then end'
complete -c rixstat -n '__fish_seen_subcommand_from watch' -l top -x -d 'Show the largest only'
complete -c rixstat -n '__fish_seen_subcommand_from watch' -l by -x -a 'rate delta value' -d 'What --top goes by'
