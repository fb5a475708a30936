# Shared by the scripts that run ctest: what its logs say, for the summary of steps.sh. Sourced behind that, never run.
# shellcheck shell=bash

# What failed tests said of it in a ctest log: googletest's failures, unittest's errors, a sanitizer's closing line.
failures()
{
    awk '
        /: Failure$/ { left = 5 }
        /^(FAIL|ERROR): / || /^[A-Za-z_.]+(Error|Exception)(:|$)/ || /^SUMMARY: [A-Za-z]+Sanitizer/ { left = left > 1 ? left : 1 }
        left-- > 0 { print "   " $0 }' "$1" | head -n 40
}

# From "N% tests passed" to the end of a ctest log, the skipped tests left out, and what the failed tests said.
closing_lines()
{
    failures "$1"
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

# run_ctest PRESET NAME BUILD JOBS ARGUMENT...: one ctest run in a build tree, its closing lines kept for the summary. As root
# where that can be had: most tests make a machine or a network of their own. System tests run the daemon that DAEMON names.
run_ctest()
{
    local preset=$1 name=$2 build=$TREE/build/$3 jobs=$4 root=() wrap status
    shift 4
    wrap_preset "$preset"
    local log="$TREE/build/$preset/ctest-$name.log"
    ! can_be_root || root=("${ROOT[@]}")
    "${root[@]}" "${wrap[@]}" env PYTHONDONTWRITEBYTECODE=1 ${DAEMON:+TESSARY_SYSTEM_DAEMON="$DAEMON"} \
        ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$jobs" "$@" </dev/null 2>&1 | tee "$log"
    status=${PIPESTATUS[0]}
    # The next run without root must be able to write what the tests and ctest have written; of Python they leave nothing.
    [ ${#root[@]} -eq 0 ] || as_root chown -R "$(id -u):$(id -g)" "$build"
    closing+=("-- $name tests, $preset (build/$preset/ctest-$name.log)")
    mapfile -t -O ${#closing[@]} closing < <(closing_lines "$log"; tell_skipped "$log" "$build/Testing/Temporary/LastTest.log")
    grep -q 'tests passed,' "$log" || closing+=("ctest ended without a count; its last lines:" "$(tail -n 2 "$log")")
    return "$status"
}
