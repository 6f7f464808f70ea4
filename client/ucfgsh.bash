# Completion of ucfgsh for bash.

_ucfgsh() {
    local cur prev
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}

    case $prev in
        -s | --socket | -f | --file | --password-file)
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            compopt -o filenames 2>/dev/null
            return
            ;;
        -u | --user)
            mapfile -t COMPREPLY < <(compgen -u -- "$cur")
            return
            ;;
        -H | --host)
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur")
            return
            ;;
        --perms)
            mapfile -t COMPREPLY < <(compgen -W "read write exec read,write read,write,exec" -- "$cur")
            return
            ;;
        -p | --port | --session | --timeout | --diff-node)
            return
            ;;
    esac

    # The options that lead to the daemon are handed on; the rest of the line is for ucfgsh.
    local -a connection=() words=()
    local i word
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if ((${#words[@]})); then
            words+=("$word")
            continue
        fi
        case $word in
            -s | --socket | -H | --host | -p | --port | -u | --user | --password-file)
                connection+=("$word" "${COMP_WORDS[++i]}")
                ;;
            -f | --file | --perms | --session | --timeout | --diff-node)
                ((i++))
                ;;
            -*) ;;
            *) words+=("$word") ;;
        esac
    done

    if ((${#words[@]} == 0)) && [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--socket --host --port --timeout --user
            --password-file --perms --force --session --keep --file --continue --commit --check
            --diff-node --json --quiet --plain --color --help --version" -- "$cur")
        return
    fi

    case ${words[0]-} in
        load | save | source)
            if ((${#words[@]} == 1)) && [[ $cur != -* ]]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
                compopt -o filenames 2>/dev/null
                return
            fi
            ;;
    esac

    # A quote that was opened for the shell is not part of the word.
    local quote=
    case $cur in
        \'* | \"*)
            quote=${cur:0:1}
            cur=${cur:1}
            ;;
    esac
    local line="${words[*]}"
    [[ -n $line ]] && line+=" "
    mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" "${connection[@]}" --complete "$line$cur" 2>/dev/null)
    if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *. ]]; then
        compopt -o nospace 2>/dev/null
    fi
    if [[ -z $quote ]]; then
        for i in "${!COMPREPLY[@]}"; do
            printf -v "COMPREPLY[i]" '%q' "${COMPREPLY[i]}"
        done
    fi
}

complete -F _ucfgsh ucfgsh
