# Completion of ivra-bsp and its commands for bash. No board is opened for it.

_ivra_bsp() {
    local cur prev words cword split program=${1##*/} first=1
    _init_completion -s -n : || return
    if [[ $program == ivra-bsp ]] && ((cword > 1)); then
        program=ivra-bsp-${words[1]}
        first=2
    fi
    case $prev in
        -c | --color) _ivra_bsp_words always auto never ;;
        -a | --accelerator) _ivra_bsp_boards name ;;
        --skip) _ivra_bsp_boards uid ;;
        --parts) _ivra_bsp_parts ;;
        --limits | --textfile) _filedir ;;
        --jobs | --timeout | --listen | --max-age) ;;
        *) $split || _ivra_bsp_no_value ;;
    esac
    __ltrim_colon_completions "$cur"
}

_ivra_bsp_no_value() {
    case $program:$cur in
        ivra-bsp:-*) _ivra_bsp_words -h --help -V --version ;;
        ivra-bsp:*) _ivra_bsp_commands help ;;
        ivra-bsp-help:*) ((cword > 2)) || _ivra_bsp_commands ;;
        ivra-bsp-board:-*) _ivra_bsp_words -h --help -c --color -j --json -a --accelerator ;;
        ivra-bsp-board:*) _ivra_bsp_board ;;
        ivra-bsp-readings:-*)
            _ivra_bsp_words -h --help --version --schema -a --accelerator --skip --parts --jobs --limits --timeout --json \
                --lines --announce --text --check -c --color --verbose
            ;;
        ivra-bsp-exporter:-*)
            _ivra_bsp_words -h --help --version --metrics --listen --jobs --parts --limits --max-age --textfile
            ;;
    esac
}

_ivra_bsp_board() {
    local at arguments=()
    for ((at = first; at < cword; ++at)); do
        case ${words[at]} in
            -a | --accelerator | -c | --color) ((++at)) ;;
            -*) ;;
            *) arguments+=("${words[at]}") ;;
        esac
    done
    case ${arguments[*]} in
        "") _ivra_bsp_words list show set setup ;;
        show) _ivra_bsp_words info boot-image flash sensors transceivers all ;;
        set) _ivra_bsp_words boot-image transceiver-speed qsfp-power-mode ;;
        "set boot-image") _ivra_bsp_words primary backup ;;
        "set transceiver-speed"*) _ivra_bsp_words 1G 10G ;;
        "set qsfp-power-mode") _ivra_bsp_words high low ;;
    esac
}

# _ivra_bsp_commands WORD...: the commands that are installed, and these words.
_ivra_bsp_commands() {
    local command
    for command in board readings exporter; do
        ! type -P "ivra-bsp-$command" >/dev/null || set -- "$command" "$@"
    done
    _ivra_bsp_words "$@"
}

_ivra_bsp_parts() {
    local part before=""
    [[ $cur != *[\(\`]* ]] || return # a command in the word: readline begins another word in it
    [[ $cur != *,* ]] || before=${cur%,*},
    before=${before#[\"\']}
    for part in identity flash boot-image sensors modules; do
        [[ ,$before == *,$part,* ]] || set -- "$@" "$before$part"
    done
    _ivra_bsp_words "$@"
    compopt -o nospace
}

# _ivra_bsp_boards MEMBER: the "name" or "uid" of each board of the rack in use, as its file says it. Real boards would have
# to be asked.
_ivra_bsp_boards() {
    local text
    [[ ${IVRA_VIRTUAL_RACK-} ]] || return
    while IFS= read -r text; do
        printf -v text %q "$text" # a name is no part of a shell's command
        [[ $text != "$cur"* ]] || COMPREPLY+=("$text")
    done < <(ivra-virtual expand -- "$IVRA_VIRTUAL_RACK" 2>/dev/null |
        sed -n 's/^      "'"$1"'": "\([^"\\]\{1,\}\)",$/\1/p')
}

# Each word as it is: compgen would run what one has between "$(" and ")".
_ivra_bsp_words() {
    mapfile -t COMPREPLY < <(compgen -W "${*@Q}" -- "$cur")
}

complete -F _ivra_bsp ivra-bsp ivra-bsp-board ivra-bsp-readings ivra-bsp-exporter
