# Completion of quarvel for fish; see the script for bash for the shape that all of them share.

function __quarvel_on
    set -l words (commandline -opc)
    test (count $words) -ge 2; and contains -- $words[2] $argv
end

function __quarvel_pens
    quarvel pens --ids 2>/dev/null
end

complete -c quarvel -f -n __fish_use_subcommand -l help -d 'Help'
complete -c quarvel -f -n __fish_use_subcommand -l version -d 'Version'
complete -c quarvel -f -n __fish_use_subcommand -a pens -d 'List the connected pens and what they hold'
complete -c quarvel -f -n __fish_use_subcommand -a verify -d "Check a bundle's signatures, and that pens are ready"
complete -c quarvel -f -n __fish_use_subcommand -a install -d 'Install a bundle on one or more pens'
complete -c quarvel -f -n __fish_use_subcommand -a recover -d 'Get pens back on their feet'
complete -c quarvel -f -n __fish_use_subcommand -a remove -d 'Remove a group of applications from pens'
complete -c quarvel -f -n __fish_use_subcommand -a history -d 'List the runs that this machine has seen'
complete -c quarvel -f -n __fish_use_subcommand -a report -d "Gather versions, pens and the last run's traces"
complete -c quarvel -f -n __fish_use_subcommand -a version -d 'Tell the version of the library'

complete -c quarvel -n '__quarvel_on pens verify install recover remove history report version' -l help -d 'Help'
complete -c quarvel -n '__quarvel_on pens verify install recover remove history' -x -l pen -a '(__quarvel_pens)' -d 'A pen'
complete -c quarvel -n '__quarvel_on verify install remove' -l all -d 'Every connected pen'
complete -c quarvel -n '__quarvel_on verify install recover' -r -F -l cert -d 'A trusted certificate'
complete -c quarvel -n '__quarvel_on verify install recover remove' -r -F -l log -d 'Write the log here'
complete -c quarvel -n '__quarvel_on verify install recover remove' -r -F -l trace -d 'Record the calls of the pen library here'
complete -c quarvel -n '__quarvel_on pens verify install recover remove history version' -l json -d 'JSON on standard output'
complete -c quarvel -n '__quarvel_on verify install recover remove' -s q -l quiet -d 'Tell failures only'
complete -c quarvel -f -n '__quarvel_on pens' -l ids -d 'Only the ids'
complete -c quarvel -n '__quarvel_on install' -x -l group -d 'Only this group'
complete -c quarvel -n '__quarvel_on install' -l firmware -d 'Take firmware'
complete -c quarvel -n '__quarvel_on install' -l apps -d 'Take applications'
complete -c quarvel -n '__quarvel_on install' -l force -d 'Do not compare'
complete -c quarvel -n '__quarvel_on report' -l force -d 'Replace the file'
complete -c quarvel -n '__quarvel_on install' -x -l on-error -a 'stop skip ask' -d 'For a failing package'
complete -c quarvel -n '__quarvel_on install' -l plan -d 'Tell what would be done'
complete -c quarvel -n '__quarvel_on install' -s y -l yes -d 'Do not ask'
complete -c quarvel -n '__quarvel_on verify install' -l fresh -d 'Unpack anew'
complete -c quarvel -n '__quarvel_on recover' -x -l wait -d 'Seconds to wait'
complete -c quarvel -n '__quarvel_on install' -l fail-if-current -d 'Status 10 when nothing was to do'
complete -c quarvel -n '__quarvel_on report' -r -F -s o -l output -d 'The zip file'
complete -c quarvel -n '__quarvel_on report' -l full -d 'Leave pen ids as they are'
complete -c quarvel -f -n '__quarvel_on history' -a show -d 'All about one run'
complete -c quarvel -n '__quarvel_on history' -l lines -d 'With its lines of the log'
complete -c quarvel -n '__quarvel_on history' -l all -d 'Also runs that only looked'
complete -c quarvel -n '__quarvel_on history' -x -l since -d 'Runs since then'
complete -c quarvel -n '__quarvel_on history' -x -l limit -d 'As many at most'
complete -c quarvel -n '__quarvel_on history report' -l failed -d 'Of runs that failed'
complete -c quarvel -n '__quarvel_on report' -x -l run -d 'Of this run'
