# Shared by the scripts that run a row of tests: steps with their times, and the summary at the end. Sourced behind lib.sh,
# never run.
# shellcheck shell=bash

summary=()
closing=() # closing lines of the test programs, for the end
failures=0

# note STATUS SECONDS NAME: a line of the summary. Returns the status.
note()
{
    local word=ok
    if [ "$1" -ne 0 ]; then
        word=FAILED
        failures=$((failures + 1))
    fi
    summary+=("$(printf '%-6s  %4d s  %s' $word "$2" "$3")")
    return "$1"
}

# step NAME COMMAND...: runs it, notes how it ended and how long it took.
step()
{
    local name=$1 began=$SECONDS
    shift
    say "$name"
    "$@"
    note $? $((SECONDS - began)) "$name"
}

# Shows the closing lines and the summary. False when a step failed.
print_summary()
{
    printf '\n'
    say "closing lines"
    printf '%s\n' "${closing[@]}"
    printf '\n'
    say "summary"
    printf '%s\n' "${summary[@]}"
    if [ $failures -eq 0 ]; then
        printf 'all passed in %d min %02d s\n' $((SECONDS / 60)) $((SECONDS % 60))
    else
        printf '%d of %d steps FAILED in %d min %02d s\n' $failures ${#summary[@]} $((SECONDS / 60)) $((SECONDS % 60))
    fi
    [ $failures -eq 0 ]
}
