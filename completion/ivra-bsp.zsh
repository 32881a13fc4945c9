#compdef ivra-bsp ivra-bsp-board ivra-bsp-readings ivra-bsp-exporter
# Completion of ivra-bsp and its commands for zsh. No board is opened for it.

_ivra-bsp() {
    local curcontext=$curcontext state line ret=1
    local -A opt_args
    local -a help=('(- *)'{-h,--help}'[show help]') version=('(- *)--version[show the version]')
    local -a color=('(-c --color)'{-c+,--color=}'[use colors]:when:(always auto never)')
    local -a reading=(
        '--parts=[what to read]:part:_sequence compadd - identity flash boot-image sensors modules'
        '--jobs=[how many boards are read side by side]:number'
        '--limits=[file with limits for sensors whose device has none]:file:_files'
    )

    case $service in
        ivra-bsp)
            _arguments -C -A '-*' $help '(- *)'{-V,--version}'[show the version]' '1: :->command' '*:: :->words' && ret=0
            case $state in
                command) _ivra-bsp-commands help:'show the manual of a command' && ret=0 ;;
                words)
                    if [[ $words[1] != help ]]; then
                        service=ivra-bsp-$words[1]
                        _ivra-bsp && ret=0
                    elif ((CURRENT == 2)); then
                        _ivra-bsp-commands && ret=0
                    fi
                    ;;
            esac
            ;;
        ivra-bsp-board)
            _arguments -C $help $color '(-j --json)'{-j,--json}'[print one JSON document]' \
                '(-a --accelerator)'{-a+,--accelerator=}'[the accelerator to use]:accelerator: _ivra-bsp-boards name' \
                '*: :->words' && ret=0
            [[ $state != words ]] || _ivra-bsp-board && ret=0
            ;;
        ivra-bsp-readings)
            _arguments $help $version $color $reading \
                '(- *)--schema[show the JSON Schema of the documents]' \
                '*'{-a+,--accelerator=}'[read this board]:board: _ivra-bsp-boards name' \
                '*--skip=[leave this board out]:uid: _ivra-bsp-boards uid' \
                '--timeout=[what a board may take]:seconds' \
                '(--json --lines --text --check)'{'--json[print one JSON document]','--lines[print JSON Lines]','--text[print a screen]'} \
                '(--json --lines --text --check)--check[print the line of a monitoring plugin]' \
                '--announce[with --lines, say first which boards will be read]' \
                '--verbose[show the log of the platform]' && ret=0
            ;;
        ivra-bsp-exporter)
            _arguments $help $version $reading \
                '(- *)--metrics[show the table of metrics]' \
                '(--textfile)--listen=[where to listen]:address and port' \
                '(--textfile)--max-age=[how old a collection may be that answers once more]:seconds' \
                '(--listen --max-age)--textfile=[collect once, write the metrics to a file, and end]:file:_files' && ret=0
            ;;
    esac
    return ret
}

_ivra-bsp-board() {
    case "$line[1,-2]" in
        '')
            local -a known=(
                list:'every accelerator of this host'
                show:'show information about one'
                set:'set a parameter of one'
                setup:'write the MAC addresses from the vendor of the board, and use them'
            )
            _describe -t commands command known
            ;;
        show) _values info info boot-image flash sensors transceivers all ;;
        set) _values parameter boot-image transceiver-speed qsfp-power-mode ;;
        'set boot-image') _values image primary backup ;;
        'set transceiver-speed'*) _values speed 1G 10G ;;
        'set qsfp-power-mode') _values mode high low ;;
        *) return 1 ;;
    esac
}

# _ivra-bsp-commands WORD:TEXT...: the commands that are installed, and these words.
_ivra-bsp-commands() {
    local -a found=("$@")
    (($+commands[ivra-bsp-board])) && found+=(board:'show and manage the boards of this host')
    (($+commands[ivra-bsp-readings])) && found+=(readings:'read all boards')
    (($+commands[ivra-bsp-exporter])) && found+=(exporter:'serve the readings to Prometheus')
    _describe -t commands command found
}

# _ivra-bsp-boards MEMBER: the "name" or "uid" of each board of the rack in use, as its file says it. Real boards would have
# to be asked.
_ivra-bsp-boards() {
    local -a boards expl
    [[ -n $IVRA_VIRTUAL_RACK ]] || return
    boards=(${(f)"$(ivra-virtual expand -- $IVRA_VIRTUAL_RACK 2>/dev/null |
        sed -n 's/^      "'$1'": "\([^"\\]\{1,\}\)",$/\1/p')"})
    _wanted boards expl board compadd -a boards
}

_ivra-bsp "$@"
