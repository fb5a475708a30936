# Shared by the scripts that run a row of tests: steps with their times, what runs beside them, and the summary at the end.
# Sourced behind lib.sh, never run.
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

# The tests wait more than they compute. What only computes runs beside them with idle priority (SCHED_IDLE), which takes
# nothing from a test: one thing after another, in the order in which `beside` was called, each with a log of its own.
ASIDE="$TREE/build/aside"
LANE=
queue=() # lines of shell

# beside NAME COMMAND...: to be run beside the steps, once start_beside is called.
beside() { queue+=("aside ${*@Q}"); }

# aside NAME COMMAND...: in the lane; leaves NAME.log and, at the end, NAME.ended with status and seconds.
aside()
{
    local file="$ASIDE/$1" began=$SECONDS status
    shift
    "$@" >"$file.log" 2>&1 </dev/null
    status=$?
    echo "$status $((SECONDS - began))" >"$file.ended"
}

# start_beside: begins with what is queued. It ends with the script.
start_beside()
{
    local line
    rm -rf "$ASIDE"
    mkdir -p "$ASIDE"
    set -m # a process group of its own, so that all of it ends with this script
    (
        chrt --idle --pid 0 "$BASHPID"
        for line in "${queue[@]}"; do eval "$line"; done
    ) &
    set +m
    LANE=$!
    trap 'kill -- -"$LANE" 2>/dev/null' EXIT
}

# family PID: the process and all that it started.
family()
{
    local child
    echo "$1"
    # shellcheck disable=SC2013 # it is words, in one line
    for child in $(cat /proc/"$1"/task/*/children 2>/dev/null); do family "$child"; done
}

# await NAME: waits for the lane to be done with it and notes it as a step; a failure shows the end of its log. What is waited
# for has idle priority no longer: on a machine that always has something else to do it would never end.
await()
{
    local status=1 seconds=0 pid
    say "$1 (beside the tests; build/aside/$1.log)"
    while [ ! -s "$ASIDE/$1.ended" ] && kill -0 "$LANE" 2>/dev/null; do
        for pid in $(family "$LANE"); do chrt --other --all-tasks --pid 0 "$pid" 2>/dev/null; done
        sleep 1
    done
    chrt --idle --pid 0 "$LANE" 2>/dev/null # and with it what it starts from here on
    [ ! -s "$ASIDE/$1.ended" ] || read -r status seconds <"$ASIDE/$1.ended"
    if [ "$status" -eq 0 ]; then tail -n 15 "$ASIDE/$1.log"; else tail -n 80 "$ASIDE/$1.log"; fi
    note "$status" "$seconds" "$1 (aside)"
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
