#compdef tessaryctl
# Completion of tessaryctl for zsh. The tool itself knows what can stand where; file names complete otherwise.
local -a found given
given=("${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}")
case ${words[CURRENT-1]} in
    -p|--port|--png|--svg|-o|--out|--output|--html|update|report) _files ;;
esac
found=("${(@f)$(${words[1]} __complete "${given[@]}" 2>/dev/null)}")
[[ -z ${found[*]} ]] || compadd -a found
