# Completion of ivra-virtual for fish.

# The words before the cursor without options: command, rack, accelerator, ...
function __ivra_virtual_words
    set -l words (commandline -opc)
    argparse -i h/help count= dump= -- $words[2..] 2>/dev/null
    and printf '%s\n' $argv
end

function __ivra_virtual_is
    set -l words (__ivra_virtual_words)
    and test "$words[1]" = "$argv[1]"
end

function __ivra_virtual_wants_command
    set -l words (__ivra_virtual_words)
    contains -- "$words" '' help
end

function __ivra_virtual_next
    set -l words (__ivra_virtual_words)
    set -l rack (string replace -r '^~/' ~/ -- $words[2])
    switch "$(count $words):$words[1]"
        case '*:check'
            __ivra_virtual_files
        case '*:new'
            __ivra_virtual_names models
        case 1:schema
            printf '%s\n' faults rack
        case '*:run'
            __ivra_virtual_run $rack
        case 1:bmc 1:change 1:expand 1:play 1:reset 1:show
            __ivra_virtual_racks
        case 2:bmc 2:change
            ivra-virtual expand -- $rack 2>/dev/null | sed -n 's/^      "name": "\([^"\\\\]\{1,\}\)",$/\1/p'
        case 2:play
            __fish_complete_path (commandline -ct)
        case '*:change'
            __ivra_virtual_change $words[4..]
    end
end

function __ivra_virtual_change
    switch "$(count $argv):$argv[1]"
        case 0:
            printf '%s\n' boot-image configured-from fpga-temperature module plug power-good ready reset sensor silent unplug
        case 1:boot-image 1:configured-from
            printf '%s\n' backup none primary
        case 1:power-good
            printf '%s\n' bad good
        case 1:ready
            echo after
        case 2:ready
            echo never
        case 1:silent
            printf '%s\n' off on
        case 2:module
            printf '%s\n' rx_power temperature tx_bias tx_power vcc
        case 3:module
            printf '%s\n' high_alarm high_warning low_alarm low_warning
        case 2:plug
            printf '%s\n' empty silent
            __ivra_virtual_names modules
    end
end

# What stands behind "--" is a command of its own, on simulated boards.
function __ivra_virtual_run -a rack
    set -l words (commandline -opc)
    if set -l end (contains -i -- -- $words)
        test $end = 3
        and set rack (__ivra_virtual_folder)/showcase.json
        set -lx IVRA_VIRTUAL_RACK $rack
        complete -C "$(string escape -- $words[(math $end + 1)..] | string join ' ') $(commandline -ct)"
    else if test (count $words) = 2
        __ivra_virtual_racks
    end
end

function __ivra_virtual_folder
    path resolve (command -s ivra-virtual)/../../share/ivra/racks
end

# Files here, and racks that come with the platform.
function __ivra_virtual_racks
    __ivra_virtual_files
    set -l racks (__ivra_virtual_folder)/*.json
    string match -v '*.schema.json' -- $racks
end

function __ivra_virtual_files
    __fish_complete_suffix .json | string match -r '.*(?:\.json|/)$'
end

# The names of models or modules.
function __ivra_virtual_names -a folder
    set -l files (__ivra_virtual_folder)/$folder/*.json
    path basename -- $files | path change-extension ''
end

complete -c ivra-virtual -f
complete -c ivra-virtual -n 'not contains -- -- (commandline -opc)' -s h -l help -d 'Show help'
complete -c ivra-virtual -n '__ivra_virtual_is ""' -s V -l version -d 'Show the version'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a bmc -d 'Let IPMI programs talk to the BMC of a board'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a change -d 'Change a board while it is used'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a check -d 'Say whether racks and fault plans are good'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a expand -d 'Print the rack with every default filled in'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a help -d 'Show the help, or that of a command'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a new -d 'Print a rack to start from'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a play -d 'Change boards at times that a file says'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a reset -d 'Make the boards of a rack, or all, forget'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a run -d 'Run a command, or a shell, on simulated boards'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a schema -d 'Print the JSON Schema of racks or fault plans'
complete -c ivra-virtual -n __ivra_virtual_wants_command -a show -d 'Show what is plugged where, and its state now'
complete -c ivra-virtual -n '__fish_seen_subcommand_from new' -l count -x -d 'Number of boards'
complete -c ivra-virtual -n '__fish_seen_subcommand_from new' -l dump -r -F -d 'Dump of a module'
complete -c ivra-virtual -n 'not __ivra_virtual_is ""' -a '(__ivra_virtual_next)'
