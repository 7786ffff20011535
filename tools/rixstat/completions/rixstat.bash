# bash completion for rixstat: commands, options and their values, named gateways, and the ids of the gateway that the
# command line names, if it answers within a second.

# Offers those of the arguments that begin with the current word. They may come from a gateway: they are compared and
# quoted as they are, and nothing in them is ever expanded (as compgen -W would do).
_rixstat_offer() {
    local offer quoted
    for offer; do
        # Ids that the viewer had to escape cannot be typed in this form.
        [[ $offer == "$current"* && $offer != *\\* ]] || continue
        printf -v quoted %q "${offer#"$before"}"
        COMPREPLY+=("$quoted")
    done
}

_rixstat() {
    local commands='groups ids get watch ping doctor dump version'
    local options='--host --port --timeout --trace --trace-file --output --columns --sort --no-headers --help --version'
    local words current previous command='' word i gateway=()
    COMPREPLY=()

    # bash breaks words at @ and = as well, which are parts of words here.
    read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
    [[ ${COMP_LINE:0:COMP_POINT} == *[[:blank:]] ]] && words+=('')
    current=${words[-1]#[\'\"]} previous=${words[-2]}
    local before=${current%"${2#[\'\"]}"} # bash has it already, and completes what comes after it

    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        word=${words[i]}
        case $word in
            --host | --port) gateway+=("$word" "${words[++i]}") ;;
            --host=* | --port=* | @*) gateway+=("$word") ;;
            -o | --output | --timeout | --trace | --trace-file | --columns | --sort) ((++i)) ;;
            -i | --interval | -n | --count | --top | --by) ((++i)) ;;
            -*) ;;
            *) [[ -n $command ]] || command=$word ;;
        esac
    done

    if [[ $current == --*=* ]]; then
        previous=${current%%=*} before='' current=$2
    fi
    case $previous in
        -o | --output) _rixstat_offer table wide json ndjson csv tsv prom name ;;
        --by) _rixstat_offer rate delta value ;;
        --trace) _rixstat_offer 0 1 2 3 4 5 ;;
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
    local offers=() kinds kind
    if [[ $current == -* ]]; then
        read -ra offers <<<"$options"
    elif [[ $current == @* ]]; then
        local file=${XDG_CONFIG_HOME:-$HOME/.config}/rixstat/config.toml
        mapfile -t offers < <(sed -n 's/^ *\[ *gateways *\. *\([A-Za-z0-9_-]*\) *\].*/@\1/p' "$file" 2>/dev/null)
    elif [[ -z $command ]]; then
        read -ra offers <<<"$commands"
    else
        case $command in
            ids) kinds=(groups) ;;
            get | watch | dump) kinds=(groups ids) ;;
            *) return ;;
        esac
        for kind in "${kinds[@]}"; do
            mapfile -t -O "${#offers[@]}" offers < <(
                "${words[0]}" "${gateway[@]}" --timeout 1 --output name "$kind" 2>/dev/null)
            ((${#offers[@]})) || break # one wait is enough
        done
    fi
    _rixstat_offer "${offers[@]}"
}

complete -F _rixstat rixstat
