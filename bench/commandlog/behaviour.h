// What a recorded program shall do instead of, or before, the real thing: the fault a test wants to see
// handled.
#pragma once

/**
 * Read from the folder /run/commandlog/behaviour/<program>, one small file a matter, each of them optional:
 * "delay_ms" waits first; "stdout" and "stderr" are written as they stand; "status" ends the program with
 * that exit status, the real one is then not run; "times" limits all of it to so many calls, after which the
 * folder counts as absent; with "when" only calls with that argument count.
 */
struct behaviour
{
    int stands_in; /**< do not run the real program */
    int status; /**< exit status when standing in */
};

/** Waits and prints as the folder for `program` says, and tells how to go on. Without a folder: {0, 0}. */
struct behaviour behaviour_apply(const char* program, char** argv);
