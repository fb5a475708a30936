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

# From "N% tests passed" to the end of a ctest log, the skipped tests left out.
closing_lines()
{
    sed -n '/tests passed,/,$p' "$1" | sed -E '/^[[:space:]]*$/d; /^The following tests did not run:/d; /\((Skipped|Disabled)\)$/d'
}

# skipped_tests LOG RECORD: "REASON<tab>TEST" for each skipped test of a ctest run, and for each skipped case of one that
# passed. LOG is what ctest printed, RECORD its own Testing/Temporary/LastTest.log.
skipped_tests()
{
    awk '
        function tell(reason, name) { print reason "\t" name; told = 1 }
        function plain(name) { sub(/ +# GetParam\(\).*/, "", name); return name }
        # A case by the name of its test where that says it, too: "unit.Suite.Case".
        function full(name, part) {
            part = name
            sub(/\/[^\/]*$/, "", part) # the number of a parameter
            return index(test, part) ? plain(test) : plain(test) ", " name
        }
        FNR == NR {
            if (sub(/^\t *[0-9]+ - /, "") && sub(/ \(Skipped\)$/, "")) left[$0]
            next
        }
        /^[0-9]+\/[0-9]+ Test: / { test = $0; sub(/^[^:]*: /, "", test); reason = "no reason told"; told = 0; next }
        /^[^ ]+:[0-9]+: Skipped$/ { getline reason; next } # googletest
        /^\[  SKIPPED \] .* \([0-9]+ ms\)$/ { tell(reason, full($4)); next }
        match($0, / \.\.\. skipped ./) { # unittest, with -v
            reason = substr($0, RSTART + RLENGTH)
            tell(substr(reason, 1, length(reason) - 1), plain(test) ", " $1)
            next
        }
        /^<end of output>$/ && (test in left) && !told { tell(last, plain(test)) } # by its exit status
        NF { last = $0 }' "$1" "$2" | sort -u
}

# tell_skipped LOG RECORD: the skipped tests by their reasons, for the summary; their names at the end of LOG as well. Without
# root they are hundreds, all for want of it: then the summary only counts them.
tell_skipped()
{
    local found
    found=$(skipped_tests "$1" "$2")
    [ -n "$found" ] || return 0
    awk -F '\t' -v file="$1" -v all="$(! can_be_root || echo yes)" '
        { tests[$1] = tests[$1] "\n     " $2; count[$1]++ }
        END {
            for (reason in count) {
                said = "   skipped, " count[reason] ": " reason
                print said tests[reason] >>file
                print said (all == "yes" ? tests[reason] : " (the log names them)")
            }
        }' <<<"$found"
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
