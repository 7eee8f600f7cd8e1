# Completion of quarvel-bundle for fish; see the script of quarvel for bash for the shape that all of them share.

function __quarvel_bundle_on
    set -l words (commandline -opc)
    test (count $words) -ge 2; and contains -- $words[2] $argv
end

complete -c quarvel-bundle -f -n __fish_use_subcommand -l help -d 'Help'
complete -c quarvel-bundle -f -n __fish_use_subcommand -l version -d 'Version'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a init -d 'Write an update.xml to start from'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a pack -d 'Sign files, make a bundle and verify it'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a digest -d 'Write what is to be signed elsewhere'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a attach -d 'Make a bundle with signatures made elsewhere'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a mutate -d 'Make broken bundles from a good one'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a info -d 'Show groups, packages and signers'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a verify -d "Check every file's signature"
complete -c quarvel-bundle -f -n __fish_use_subcommand -a lint -d 'Find what the formats let pass in silence'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a plan -d 'Tell what an install would do to a pen'
complete -c quarvel-bundle -f -n __fish_use_subcommand -a diff -d 'Show what changed between two bundles'

complete -c quarvel-bundle -n '__quarvel_bundle_on init pack digest attach mutate info verify lint plan diff' -l help -d 'Help'
complete -c quarvel-bundle -n '__quarvel_bundle_on init' -x -l pen-types -d 'Types of the pens, as 1,3'
complete -c quarvel-bundle -n '__quarvel_bundle_on init' -l force -d 'Replace an update.xml that is there'
complete -c quarvel-bundle -n '__quarvel_bundle_on pack digest attach mutate' -r -F -s o -l output -d 'Where to write'
complete -c quarvel-bundle -n '__quarvel_bundle_on pack mutate' -r -F -l key -d "Signer's private key"
complete -c quarvel-bundle -n '__quarvel_bundle_on pack attach mutate info verify lint' -r -F -l cert -d 'A certificate'
complete -c quarvel-bundle -n '__quarvel_bundle_on pack mutate' -r -F -l passphrase-file -d "The key's passphrase"
complete -c quarvel-bundle -n '__quarvel_bundle_on pack attach' -l despite-errors -d 'Whatever lint finds'
complete -c quarvel-bundle -n '__quarvel_bundle_on attach' -r -F -l signatures -d 'Folder with the signatures'
complete -c quarvel-bundle -n '__quarvel_bundle_on info verify lint plan diff' -l json -d 'Write JSON'
complete -c quarvel-bundle -n '__quarvel_bundle_on lint' -l strict -d 'Let warnings count as errors'
complete -c quarvel-bundle -n '__quarvel_bundle_on lint' -x -l ignore -d 'Leave out findings of this name'
complete -c quarvel-bundle -n '__quarvel_bundle_on plan' -r -F -l pen -d 'What quarvel pens --json printed'
