# bash completion for rixstat: commands, options and their values, named gateways, and the ids of the gateway that the
# command line names, if it answers within a second.

# Takes the text apart as the shell will, but expands nothing: sets words, without quotes and escapes; raw, the last one as
# it is typed; and quote, the one that is still open in it.
_rixstat_split() {
    local text=$1 word='' char i
    words=() raw='' quote=''
    for ((i = 0; i < ${#text}; ++i)); do
        char=${text:i:1}
        if [[ -z $quote && $char == [[:blank:]] ]]; then
            [[ -z $raw ]] || words+=("$word")
            word='' raw=''
            continue
        fi
        raw+=$char
        if [[ $quote$char == \\ || $quote${text:i:2} == \"\\[\\\"\$\`] ]]; then
            ((++i))
            raw+=${text:i:1} word+=${text:i:1}
        elif [[ $char == "$quote" ]]; then
            quote=''
        elif [[ -z $quote && $char == [\'\"] ]]; then
            quote=$char
        else
            word+=$char
        fi
    done
    words+=("$word")
}

# Offers those of the arguments that begin with the current value. They may come from a gateway: they are compared and
# quoted as they are, and nothing in them is ever expanded (as compgen -W would do).
_rixstat_offer() {
    local offer char
    for offer; do
        # Ids that the viewer had to escape cannot be typed in this form.
        [[ $offer == "$value"* && $offer != *\\* ]] || continue
        offer=$option$offer
        offer=${offer#"$before"}
        case $open in
            \') offer=${offer//\'/"'\\''"} ;;
            \")
                [[ $offer != *!* ]] || continue # which the shell would take for a piece of its history
                for char in '"' '$' '`'; do
                    offer=${offer//"$char"/"\\$char"}
                done
                ;;
            *) printf -v offer %q "$offer" ;;
        esac
        COMPREPLY+=("$offer")
    done
}

# Offers the files whose path begins with the current value, directories with the slash to go on behind.
_rixstat_offer_files() {
    local file files home=''
    # The shell expands it, but not in quotes, and not behind --trace-file=.
    [[ -z $option && -z $open && $value == \~/* ]] && home=$HOME
    mapfile -d '' -t files < <(
        shopt -s nullglob
        shopt -u failglob
        set +f
        for file in "${home:-${value:0:1}}${value:1}"*; do
            [[ ! -d $file ]] || file+=/
            printf '%s\0' "${home:+"~"}${file#"$home"}"
        done
    )
    _rixstat_offer "${files[@]}"
    [[ ${#COMPREPLY[@]} -ne 1 || ${files[0]} != */ ]] || compopt -o nospace 2>/dev/null
    [[ -z $home ]] || COMPREPLY=("${COMPREPLY[@]/#\\~/"~"}") # quoted, it would not be expanded
}

_rixstat() {
    local commands='groups ids get watch ping doctor dump version'
    local options='--host --port --timeout --trace --trace-file --output --columns --sort --no-headers --help --version'
    local words raw quote before typed open value option='' previous command='' word i gateway=() offers
    COMPREPLY=()

    # bash breaks words at @ and = as well, which are parts of words here. It has what is before the break already, and
    # completes what comes after it: $2.
    _rixstat_split "${COMP_LINE:0:COMP_POINT}"
    typed=("${words[@]}") open=$quote
    _rixstat_split "${raw%"$2"}"
    before=${words[-1]} words=("${typed[@]}")
    value=${words[-1]} previous=${words[-2]}

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

    if [[ $value == --*=* ]]; then
        previous=${value%%=*} option=${value%%=*}= value=${value#*=}
    fi
    case $previous in
        -o | --output) _rixstat_offer table wide json ndjson csv tsv prom name ;;
        --by) _rixstat_offer rate delta value ;;
        --trace) _rixstat_offer 0 1 2 3 4 5 ;;
        --trace-file) _rixstat_offer_files ;;
        --host)
            mapfile -t offers < <(compgen -A hostname)
            _rixstat_offer "${offers[@]}"
            ;;
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
    if [[ $value == -* ]]; then
        read -ra offers <<<"$options"
    elif [[ $value == @* ]]; then
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
                "${words[0]/#\~\//"$HOME/"}" "${gateway[@]}" --timeout 1 --output name "$kind" 2>/dev/null)
            ((${#offers[@]})) || break # one wait is enough
        done
    fi
    _rixstat_offer "${offers[@]}"
}

complete -F _rixstat rixstat
