#compdef ivra-virtual
# Completion of ivra-virtual for zsh.

_ivra-virtual() {
    local curcontext=$curcontext state line rack ret=1
    local -A opt_args
    local -a help=('(- *)'{-h,--help}'[show help]')
    local folder=${commands[ivra-virtual]:A:h:h}/share/ivra/racks
    local -a known=(
        bmc:'let IPMI programs talk to the BMC of a board'
        change:'change a board while it is used'
        check:'say whether racks and fault plans are good'
        expand:'print the rack with every default filled in'
        help:'show the help, or that of a command'
        new:'print a rack to start from'
        play:'change boards at times that a file says'
        reset:'make the boards of a rack, or all, forget'
        run:'run a command, or a shell, on simulated boards'
        schema:'print the JSON Schema of racks or fault plans'
        show:'show what is plugged where, and its state now'
    )

    _arguments -C -A '-*' $help '(- *)'{-V,--version}'[show the version]' '1: :->command' '*:: :->words' && ret=0
    if [[ $state == command ]]; then
        _describe -t commands command known && ret=0
    elif [[ $state == words ]]; then
        rack=${(Q)words[2]/#\~\//$HOME/}
        case $words[1] in
            bmc) _arguments $help '1:rack:_ivra-virtual-racks' '2:accelerator:_ivra-virtual-boards' && ret=0 ;;
            change)
                _arguments $help '1:rack:_ivra-virtual-racks' '2:accelerator:_ivra-virtual-boards' \
                    '*::: :_ivra-virtual-change' && ret=0
                ;;
            check) _arguments $help '*:file:_files -g "*.json"' && ret=0 ;;
            expand | reset | show) _arguments $help '1:rack:_ivra-virtual-racks' && ret=0 ;;
            help) _arguments $help '1:command: _describe -t commands command known' && ret=0 ;;
            new)
                _arguments $help '--count=[number of boards]:number' '--dump=[dump of a module]:file:_files' \
                    '*:model: _ivra-virtual-files models' && ret=0
                ;;
            play) _arguments $help '1:rack:_ivra-virtual-racks' '2:file:_files' && ret=0 ;;
            run) _ivra-virtual-run && ret=0 ;;
            schema) _arguments $help '1:schema:(faults rack)' && ret=0 ;;
        esac
    fi
    return ret
}

_ivra-virtual-change() {
    case $CURRENT:$words[1] in
        1:*)
            _values change boot-image configured-from fpga-temperature module plug power-good ready reset sensor silent \
                unplug
            ;;
        2:boot-image | 2:configured-from) _values image backup none primary ;;
        2:power-good) _values state bad good ;;
        2:ready) _values word after ;;
        3:ready) _values time never ;;
        2:silent) _values state off on ;;
        3:module) _values monitor rx_power temperature tx_bias tx_power vcc ;;
        4:module) _values limit high_alarm high_warning low_alarm low_warning ;;
        3:plug) _ivra-virtual-files modules empty silent ;;
        *) return 1 ;;
    esac
}

# What stands behind "--" is a command of its own, on simulated boards.
_ivra-virtual-run() {
    local end=$words[(i)--]
    if ((end >= CURRENT)); then
        _arguments $help '1:rack:_ivra-virtual-racks'
        return
    fi
    ((end > 2)) || rack=$folder/showcase.json
    local -x IVRA_VIRTUAL_RACK=$rack
    shift end words
    ((CURRENT -= end))
    _normal -p ivra-virtual
}

# Files here, and racks that come with the platform.
_ivra-virtual-racks() {
    local -a racks=($folder/*.json~*.schema.json(N))
    [[ $PREFIX != -* ]] && _alternative 'files:rack:_files -g "*.json"' 'racks:rack of the platform:compadd -M "l:|=*" -a racks'
}

# _ivra-virtual-files FOLDER WORD...: the names of models or modules, and these words.
_ivra-virtual-files() {
    local -a names=($folder/$1/*.json(N:t:r) $@[2,-1]) expl
    _wanted names expl name compadd -a names
}

_ivra-virtual-boards() {
    local -a boards expl
    boards=(${(f)"$(ivra-virtual expand -- $rack 2>/dev/null | sed -n 's/^      "name": "\([^"\]\{1,\}\)",$/\1/p')"})
    _wanted boards expl accelerator compadd -a boards
}

_ivra-virtual "$@"
