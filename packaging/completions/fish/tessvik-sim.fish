# Completion of tessvik-sim for fish; see the script of quarvel for bash for the shape that all of them share.

function __tessvik_sim_on
    set -l words (commandline -opc)
    test (count $words) -ge 2; and contains -- $words[2] $argv
end

function __tessvik_sim_pens
    tessvik-sim list --json 2>/dev/null | string match -rg '^    "id": "(0x[0-9a-f]*)"'
end

complete -c tessvik-sim -f -n __fish_use_subcommand -l help -d 'Help'
complete -c tessvik-sim -f -n __fish_use_subcommand -a add -d 'Make a pen and plug it in'
complete -c tessvik-sim -f -n __fish_use_subcommand -a list -d 'List the pens'
complete -c tessvik-sim -f -n __fish_use_subcommand -a show -d 'Show one pen'
complete -c tessvik-sim -f -n __fish_use_subcommand -a remove -d 'Throw a pen away'
complete -c tessvik-sim -f -n __fish_use_subcommand -a plug -d 'Put a pen on the bus'
complete -c tessvik-sim -f -n __fish_use_subcommand -a unplug -d 'Take a pen off the bus'
complete -c tessvik-sim -f -n __fish_use_subcommand -a set -d 'Change how a pen behaves'
complete -c tessvik-sim -f -n __fish_use_subcommand -a fault -d 'Let a pen function fail'
complete -c tessvik-sim -f -n __fish_use_subcommand -a trace -d 'Write every call to a file'
complete -c tessvik-sim -f -n __fish_use_subcommand -a replay -d 'Make the calls of a trace again'

complete -c tessvik-sim -n '__tessvik_sim_on add list show remove plug unplug set fault trace replay' -l help -d 'Help'
complete -c tessvik-sim -f -n '__tessvik_sim_on show remove plug unplug set' -a '(__tessvik_sim_pens)' -d 'A pen'
complete -c tessvik-sim -f -n '__tessvik_sim_on add list show fault replay' -l json -d 'JSON on standard output'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l id -d 'Its id'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l type -d 'Its type'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l name -d 'Its name'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l firmware -d 'Its firmware version'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l penlet -d 'An application on it'
complete -c tessvik-sim -x -n '__tessvik_sim_on add' -l set -d 'A setting'
complete -c tessvik-sim -x -n '__tessvik_sim_on fault' -l call -d 'Only this call'
complete -c tessvik-sim -x -n '__tessvik_sim_on fault' -l error -d 'The number to fail with'
complete -c tessvik-sim -x -n '__tessvik_sim_on fault' -l pen -a '(__tessvik_sim_pens)' -d 'Only for this pen'
complete -c tessvik-sim -f -n '__tessvik_sim_on fault' -l clear -d 'Forget all faults'
complete -c tessvik-sim -f -n '__tessvik_sim_on trace' -l stop -d 'Stop writing'
complete -c tessvik-sim -f -n '__tessvik_sim_on replay' -l strict -d 'Give the pens no failures'
complete -c tessvik-sim -x -n '__tessvik_sim_on replay' -l fault -d 'Fail a call'
