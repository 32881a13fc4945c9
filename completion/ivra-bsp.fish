# Completion of ivra-bsp and its commands for fish. No board is opened for it.

# ivra-bsp COMMAND is completed as ivra-bsp-COMMAND.
function __ivra_bsp_rest
    set -l words (commandline -opc)[2..]
    command -q ivra-bsp-$words[1]
    and complete -C "ivra-bsp-$(string escape -- $words | string join ' ') $(commandline -ct)"
end

function __ivra_bsp_word
    test (count (commandline -opc)) = $argv[1]
end

# Whether the words before the cursor, but for options, are these.
function __ivra_bsp_board_at
    set -l wanted $argv
    set -l words (commandline -opc)
    argparse -i h/help j/json c/color= a/accelerator= -- $words[2..] 2>/dev/null
    and string match -q -- $wanted "$argv"
end

# The "name" or "uid" of each board of the rack in use, as its file says it. Real boards would have to be asked.
function __ivra_bsp_boards -a member
    test -n "$IVRA_VIRTUAL_RACK"
    and ivra-virtual expand -- $IVRA_VIRTUAL_RACK 2>/dev/null |
        sed -n 's/^      "'$member'": "\([^"\\\\]\{1,\}\)",$/\1/p'
end

complete -c ivra-bsp -f
complete -c ivra-bsp -n '__ivra_bsp_word 1' -s h -l help -d 'Show help'
complete -c ivra-bsp -n '__ivra_bsp_word 1' -s V -l version -d 'Show the version'
complete -c ivra-bsp -n '__ivra_bsp_word 1' -a help -d 'Show the manual of a command'
for place in '__ivra_bsp_word 1' '__fish_seen_subcommand_from help; and __ivra_bsp_word 2'
    complete -c ivra-bsp -n "$place; and command -q ivra-bsp-board" -a board -d 'Show and manage the boards of this host'
    complete -c ivra-bsp -n "$place; and command -q ivra-bsp-readings" -a readings -d 'Read all boards'
    complete -c ivra-bsp -n "$place; and command -q ivra-bsp-exporter" -a exporter -d 'Serve the readings to Prometheus'
end
complete -c ivra-bsp -n 'not __ivra_bsp_word 1; and not __fish_seen_subcommand_from help' -a '(__ivra_bsp_rest)'

complete -c ivra-bsp-board -f
complete -c ivra-bsp-board -s h -l help -d 'Show help'
complete -c ivra-bsp-board -s j -l json -d 'Print one JSON document'
complete -c ivra-bsp-board -s c -l color -x -a 'always auto never' -d 'Use colors'
complete -c ivra-bsp-board -s a -l accelerator -x -a '(__ivra_bsp_boards name)' -d 'The accelerator to use'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at ''" -a list -d 'Every accelerator of this host'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at ''" -a show -d 'Show information about one'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at ''" -a set -d 'Set a parameter of one'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at ''" -a setup -d 'Write the MAC addresses from the vendor of the board'
complete -c ivra-bsp-board -n '__ivra_bsp_board_at show' -a 'info boot-image flash sensors transceivers all'
complete -c ivra-bsp-board -n '__ivra_bsp_board_at set' -a 'boot-image transceiver-speed qsfp-power-mode'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at 'set boot-image'" -a 'primary backup'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at 'set transceiver-speed*'" -a '1G 10G'
complete -c ivra-bsp-board -n "__ivra_bsp_board_at 'set qsfp-power-mode'" -a 'high low'

for program in ivra-bsp-readings ivra-bsp-exporter
    complete -c $program -f
    complete -c $program -s h -l help -d 'Show help'
    complete -c $program -l version -d 'Show the version'
    complete -c $program -l jobs -x -d 'Boards that are read side by side'
    complete -c $program -l parts -x -a '(__fish_append , identity flash boot-image sensors modules)' -d 'What to read'
    complete -c $program -l limits -r -F -d 'File with limits for sensors whose device has none'
end
complete -c ivra-bsp-readings -l schema -d 'Show the JSON Schema of the documents'
complete -c ivra-bsp-readings -s a -l accelerator -x -a '(__ivra_bsp_boards name)' -d 'Read this board'
complete -c ivra-bsp-readings -l skip -x -a '(__ivra_bsp_boards uid)' -d 'Leave this board out'
complete -c ivra-bsp-readings -l timeout -x -d 'Seconds that a board may take'
complete -c ivra-bsp-readings -l json -d 'Print one JSON document'
complete -c ivra-bsp-readings -l lines -d 'Print JSON Lines'
complete -c ivra-bsp-readings -l announce -d 'With --lines, say first which boards will be read'
complete -c ivra-bsp-readings -l text -d 'Print a screen'
complete -c ivra-bsp-readings -l check -d 'Print the line of a monitoring plugin'
complete -c ivra-bsp-readings -s c -l color -x -a 'always auto never' -d 'Use colors'
complete -c ivra-bsp-readings -l verbose -d 'Show the log of the platform'
complete -c ivra-bsp-exporter -l metrics -d 'Show the table of metrics'
complete -c ivra-bsp-exporter -l listen -x -d 'Where to listen: address and port'
complete -c ivra-bsp-exporter -l max-age -x -d 'How old a collection may be that answers once more'
complete -c ivra-bsp-exporter -l textfile -r -F -d 'Collect once, write the metrics to a file, and end'
