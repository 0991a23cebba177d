# SPDX-License-Identifier: Apache-2.0
# bash completion for nuvclassify: options from its --help, operations
# from `nuvclassify list`, so both follow the program that is installed.
_nuvclassify()
{
    local cur prev words cword
    _init_completion || return

    case $prev in
        --plugin | --embedded | --script)
            _filedir
            return
            ;;
        --transport-dir)
            _filedir -d
            return
            ;;
        --broker | --user | --password | --archive | --admin | --full-name)
            return
            ;;
    esac

    # After the operation come its arguments; `help` takes an operation.
    local i operation=""
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            --plugin | --embedded | --script | --transport-dir | --broker | --user | \
                --password | --archive | --admin | --full-name)
                ((i++)) ;;
            -*) ;;
            *)
                operation=${words[i]}
                break
                ;;
        esac
    done

    local operations
    if [[ -z $operation || $operation == help ]]; then
        if [[ $cur == -* && -z $operation ]]; then
            COMPREPLY=($(compgen -W '$(_parse_help "${words[0]}")' -- "$cur"))
            return
        fi
        operations=$("${words[0]}" list 2>/dev/null | awk '{ print $2 }' | sort -u)
        [[ -z $operation ]] && operations+=" list help init"
        COMPREPLY=($(compgen -W "$operations" -- "$cur"))
        return
    fi
    [[ $operation == init && $cur == -* ]] &&
        COMPREPLY=($(compgen -W '--embedded --admin --full-name' -- "$cur"))
} &&
    complete -F _nuvclassify nuvclassify
