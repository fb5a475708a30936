# Completion of tessaryctl for fish. The tool itself knows what can stand where; file names complete otherwise.
function __tessaryctl_complete
    set -l given (commandline -opc)
    switch $given[-1]
        case -p --port --png --svg -o --out --output --html update report
            __fish_complete_path (commandline -ct)
    end
    set -l words $given[2..-1]
    $given[1] __complete $words (commandline -ct | string unescape) 2>/dev/null
end
complete -c tessaryctl -k -f -a '(__tessaryctl_complete)'
