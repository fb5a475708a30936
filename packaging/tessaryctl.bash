# Completion of tessaryctl for bash. The tool itself knows what can stand where; file names complete otherwise.
# shellcheck shell=bash
_tessaryctl()
{
    COMPREPLY=()
    local before=${COMP_WORDS[COMP_CWORD-1]} word=${COMP_WORDS[COMP_CWORD]} line=${COMP_LINE:0:COMP_POINT}
    case $before in
        -p | --port | --png | --svg | -o | --out | --output | --html | update | report)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            compopt -o filenames
            [ "$before" = update ] || [ "$before" = report ] || return
            ;;
    esac
    # Bash parts words at colons and equals signs, the tool does not: an address is one word.
    local words=() part rest=
    read -r -a words <<<"$line"
    [[ $line != *[[:blank:]] ]] || words+=("")
    part=${words[${#words[@]}-1]}
    [ "$part" = "$word" ] || rest=${part%"$word"}
    local found
    while IFS= read -r found; do
        printf -v found %q "${found#"$rest"}"
        COMPREPLY+=("$found")
    done < <("${words[0]}" __complete "${words[@]:1}" 2>/dev/null)
}
complete -F _tessaryctl tessaryctl
