# bash completion for rixstat: commands, options and their values, named gateways, and the ids of the gateway that the
# command line names, if it answers within a second.

_rixstat_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current")
}

_rixstat() {
    local commands='groups ids get watch ping doctor dump version'
    local options='--host --port --timeout --trace --trace-file --output --columns --sort --no-headers --help --version'
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' word i gateway=()

    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        case $word in
            --host | --port) gateway+=("$word" "${COMP_WORDS[++i]}") ;;
            --host=* | --port=* | @*) gateway+=("$word") ;;
            -o | --output | --timeout | --trace | --trace-file | --columns | --sort) ((++i)) ;;
            -i | --interval | -n | --count | --top | --by) ((++i)) ;;
            -*) ;;
            *) [[ -n $command ]] || command=$word ;;
        esac
    done

    case $previous in
        -o | --output) _rixstat_offer 'table wide json ndjson csv tsv prom name' ;;
        --by) _rixstat_offer 'rate delta value' ;;
        --trace) _rixstat_offer '0 1 2 3 4' ;;
        --trace-file) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
        --host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current") ;;
        --port | --timeout | --columns | --sort | -i | --interval | -n | --count | --top) ;;
        *) _rixstat_word ;;
    esac
}

# Completes a word that is not the value of an option; uses the variables of _rixstat.
_rixstat_word() {

    case $command in
        watch) options+=' --interval --count --top --by' ;;
        ping) options+=' --interval --count' ;;
    esac
    if [[ $current == -* ]]; then
        _rixstat_offer "$options"
    elif [[ $current == @* ]]; then
        local file=${XDG_CONFIG_HOME:-$HOME/.config}/rixstat/config.toml
        word=$(sed -n 's/^ *\[ *gateways *\. *\([A-Za-z0-9_-]*\) *\].*/@\1/p' "$file" 2>/dev/null)
        _rixstat_offer "$word"
    elif [[ -z $command ]]; then
        _rixstat_offer "$commands"
    else
        local ask=()
        case $command in
            ids) ask=(groups) ;;
            get | watch | dump) ask=(ids) ;;
            *) return ;;
        esac
        word=$("${COMP_WORDS[0]}" "${gateway[@]}" --timeout 1 --output name "${ask[@]}" 2>/dev/null)
        _rixstat_offer "$word"
    fi
}

complete -F _rixstat rixstat
