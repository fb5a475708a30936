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
    # Bash parts words at colons and equals signs, the tool does not: an address is one word. So is a name with blanks, in
    # quotes that may still be open or with backslashes.
    local words=() one='^[[:blank:]]*((\\.?|"[^"]*"?|'\''[^'\'']*'\''?|[^[:blank:]\\"'\''])+)(.*)$' left=$line part rest=
    while [[ $left =~ $one ]]; do
        words+=("${BASH_REMATCH[1]}")
        left=${BASH_REMATCH[3]}
    done
    [ -z "$left" ] || words+=("")
    part=${words[${#words[@]}-1]}
    [ "$part" = "$word" ] || rest=${part%"$word"}
    local found plain=("${words[@]//[\\\"\']/}")
    while IFS= read -r found; do
        found=${found#"${rest//[\\\"\']/}"}
        [[ $part == [\"\']* ]] || printf -v found %q "$found"
        COMPREPLY+=("$found")
    done < <("${plain[0]}" __complete "${plain[@]:1}" 2>/dev/null)
}
complete -F _tessaryctl tessaryctl
