# Completion of tessaryctl for bash. The tool itself knows what can stand where; file names complete otherwise.
# shellcheck shell=bash
_tessaryctl()
{
    COMPREPLY=()
    local before=${COMP_WORDS[COMP_CWORD-1]}
    case $before in
        -p | --port | --png | --svg | -o | --out | --output | --html | update | report)
            mapfile -t COMPREPLY < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}")
            compopt -o filenames
            [ "$before" = update ] || [ "$before" = report ] || return
            ;;
    esac
    local words
    mapfile -t words < <("${COMP_WORDS[0]}" __complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    COMPREPLY+=("${words[@]}")
}
complete -F _tessaryctl tessaryctl
