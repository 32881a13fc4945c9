# Completion of ivra-virtual for bash.

_ivra_virtual() {
    local cur prev words cword split at arguments=() folder
    folder=$(readlink -f "$(type -P ivra-virtual)")
    folder=${folder%/*/*}/share/ivra/racks
    _init_completion -s -n : || return
    for ((at = 1; at < cword; ++at)); do
        case ${words[at]} in
            --) [[ ${arguments[0]-} != run ]] || break ;;
            --count | --dump) ((++at)) ;;
            -*) ;;
            *) arguments+=("${words[at]}") ;;
        esac
    done
    local command=${arguments[0]-} count=${#arguments[@]} rack=${arguments[1]-}
    rack=${rack/#~\//~/}
    rack=${rack//[\\\'\"]/}

    if ((at < cword)); then
        _ivra_virtual_run
        return
    fi
    case $prev in
        --dump) _filedir ;;
        --count) ;;
        *) $split || _ivra_virtual_no_value ;;
    esac
    __ltrim_colon_completions "$cur"
}

_ivra_virtual_no_value() {
    case $command:$cur in
        :-*) _ivra_virtual_words -h --help -V --version ;;
        new:-*) _ivra_virtual_words -h --help --count --dump ;;
        *:-*) _ivra_virtual_words -h --help ;;
        :* | help:*)
            ((count > 1)) || _ivra_virtual_words bmc change check expand help new play reset run schema show
            ;;
        check:*) _filedir json ;;
        new:*) _ivra_virtual_files models ;;
        schema:*) ((count > 1)) || _ivra_virtual_words faults rack ;;
        *)
            case $count:$command in
                1:*) _ivra_virtual_racks ;;
                2:change | 2:bmc) _ivra_virtual_boards ;;
                2:play) _filedir ;;
                *:change) _ivra_virtual_change ;;
            esac
            ;;
    esac
}

_ivra_virtual_change() {
    case $count:${arguments[3]-} in
        3:)
            _ivra_virtual_words boot-image configured-from fpga-temperature module plug power-good ready reset sensor \
                silent unplug
            ;;
        4:boot-image | 4:configured-from) _ivra_virtual_words backup none primary ;;
        4:power-good) _ivra_virtual_words bad good ;;
        4:ready) _ivra_virtual_words after ;;
        5:ready) _ivra_virtual_words never ;;
        4:silent) _ivra_virtual_words off on ;;
        5:module) _ivra_virtual_words rx_power temperature tx_bias tx_power vcc ;;
        6:module) _ivra_virtual_words high_alarm high_warning low_alarm low_warning ;;
        5:plug) _ivra_virtual_files modules empty silent ;;
    esac
}

# What stands behind "--" is a command of its own, on simulated boards.
_ivra_virtual_run() {
    local IVRA_VIRTUAL_RACK=${rack:-$folder/showcase.json}
    for at in "${!COMP_WORDS[@]}"; do
        [[ ${COMP_WORDS[at]} != -- ]] || break
    done
    _command_offset $((at + 1))
}

# Files here, and racks that come with the platform.
_ivra_virtual_racks() {
    local file
    _filedir json
    for file in "$folder"/*.json; do
        [[ ${file##*/} != "$cur"* || $file == *.schema.json ]] || COMPREPLY+=("$file")
    done
    compopt -o filenames
}

# _ivra_virtual_files FOLDER WORD...: the names of models or modules, and these words.
_ivra_virtual_files() {
    local file
    for file in "$folder/$1"/*.json; do
        file=${file##*/}
        set -- "$@" "${file%.json}"
    done
    _ivra_virtual_words "${@:2}"
}

_ivra_virtual_boards() {
    local name
    while IFS= read -r name; do
        printf -v name %q "$name" # a name is no part of a shell's command
        [[ $name != "$cur"* ]] || COMPREPLY+=("$name")
    done < <(ivra-virtual expand -- "$rack" 2>/dev/null | sed -n 's/^      "name": "\([^"\\]\{1,\}\)",$/\1/p')
}

# Each word as it is: compgen would run what one has between "$(" and ")".
_ivra_virtual_words() {
    mapfile -t COMPREPLY < <(compgen -W "${*@Q}" -- "$cur")
}

complete -F _ivra_virtual ivra-virtual
