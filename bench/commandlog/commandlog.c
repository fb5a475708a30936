// Notes each command the daemon runs inside the virtual instrument, then lets the real program do it.
//
// One binary, three uses, told apart by where the file lies that is being executed:
// - /usr/bin/sh (so /bin/sh): notes the command text if the daemon is the caller, then is /usr/bin/dash.
// - /opt/commandlog/bin/PROGRAM, first in the daemon's PATH: notes the call, then is the next PROGRAM in
// PATH.
// - Anywhere else a stand-in (systemctl, reboot, amixer...): notes the call and ends with status 0.
// The log is one JSON object a line in /run/commandlog/commands.log.
#define _GNU_SOURCE

#include "behaviour.h"
#include "json_line.h"

#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static const char logPath[] = "/run/commandlog/commands.log";
static const char daemonPath[] = "/usr/bin/tessary";
static const char daemonName[] = "tessary";
static const char emulatorPath[] = "/usr/bin/qemu-"; // and an architecture
static const char wrapperFolder[] = "/opt/commandlog/bin";
static const char shellPath[] = "/usr/bin/sh";
static const char realShell[] = "/usr/bin/dash";

/** Reads a small file of /proc; the text is cut at `size` and at the first line feed. 0, or -1. */
static int read_proc(pid_t pid, const char* name, char* text, size_t size)
{
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/%s", (int)pid, name);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    ssize_t count = read(fd, text, size - 1);
    close(fd);
    if (count < 0)
        return -1;
    text[count] = '\0';
    text[strcspn(text, "\n")] = '\0';
    return 0;
}

/** A daemon for another architecture is the emulator's process, which is named after the program that it
 * runs. */
static int is_named_as_daemon(pid_t pid)
{
    char comm[64] = "";
    read_proc(pid, "comm", comm, sizeof comm);
    return strcmp(comm, daemonName) == 0;
}

/** True when the process executes the daemon's file; also after a package replaced the file on disk. */
static int is_daemon(pid_t pid)
{
    char link[64];
    char target[PATH_MAX];
    snprintf(link, sizeof link, "/proc/%d/exe", (int)pid);
    ssize_t length = readlink(link, target, sizeof target - 1);
    if (length < 0)
        return 0;
    target[length] = '\0';
    if (strncmp(target, emulatorPath, sizeof emulatorPath - 1) == 0)
        return is_named_as_daemon(pid);
    size_t wanted = sizeof daemonPath - 1;
    return strncmp(target, daemonPath, wanted) == 0 && (target[wanted] == '\0' || target[wanted] == ' ');
}

/** Parent of a process (proc(5), "stat": the fourth field, after the command in parentheses), 0 if unknown.
 */
static pid_t parent_of(pid_t pid)
{
    char text[512];
    if (read_proc(pid, "stat", text, sizeof text) != 0)
        return 0;
    const char* end = strrchr(text, ')');
    int parent = 0;
    return end && sscanf(end + 1, " %*c %d", &parent) == 1 ? (pid_t)parent : 0;
}

static int descends_from_daemon(pid_t pid)
{
    for (int depth = 0; pid > 1 && depth < 64; ++depth, pid = parent_of(pid)) {
        if (is_daemon(pid))
            return 1;
    }
    return 0;
}

/** The program's name as the caller means it: some look programs up themselves and then name the wrapper's
 * path. */
static const char* as_called(const char* name)
{
    size_t length = sizeof wrapperFolder - 1;
    return strncmp(name, wrapperFolder, length) == 0 && name[length] == '/' ? name + length + 1 : name;
}

/** Writes one line of the log. A log that can not be written does not keep the program from running. */
static void note(const char* kind, char** argv)
{
    struct timespec now;
    struct timespec wall;
    clock_gettime(CLOCK_MONOTONIC, &now);
    clock_gettime(CLOCK_REALTIME, &wall);
    pid_t parent = getppid();
    char comm[64] = "?";
    if (is_daemon(parent))
        snprintf(comm, sizeof comm, "%s", daemonName);
    else
        read_proc(parent, "comm", comm, sizeof comm);
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof cwd))
        snprintf(cwd, sizeof cwd, "?");

    struct json_line line = {0};
    json_line_format(&line, "{\"t\": %lld", (long long)now.tv_sec * 1000000000LL + now.tv_nsec);
    json_line_format(&line, ", \"wall\": %lld.%06ld", (long long)wall.tv_sec, wall.tv_nsec / 1000);
    json_line_format(&line, ", \"pid\": %d, \"ppid\": %d, \"parent\": ", (int)getpid(), (int)parent);
    json_line_string(&line, comm);
    json_line_raw(&line, descends_from_daemon(parent) ? ", \"by_daemon\": true" : ", \"by_daemon\": false");
    json_line_raw(&line, ", \"cwd\": ");
    json_line_string(&line, cwd);
    json_line_format(&line, ", \"kind\": \"%s\", \"argv\": [", kind);
    for (char** argument = argv; *argument; ++argument) {
        json_line_raw(&line, argument == argv ? "" : ", ");
        json_line_string(&line, argument == argv ? as_called(*argument) : *argument);
    }
    json_line_raw(&line, "]}");
    if (json_line_append_to(&line, logPath) != 0)
        fprintf(stderr, "commandlog: %s: %s\n", logPath, strerror(errno));
    json_line_free(&line);
}

/** Executes the first `name` in PATH that does not lie among the wrappers. Returns only when there is none.
 */
static void execute_next(const char* name, char** argv)
{
    const char* path = getenv("PATH");
    if (!path || !*path)
        path = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    int wrapperIsNamed = as_called(argv[0]) != argv[0];
    for (;; ++path) {
        size_t length = strcspn(path, ":");
        char candidate[PATH_MAX];
        int isWrapper = length == sizeof wrapperFolder - 1 && strncmp(path, wrapperFolder, length) == 0;
        if (!isWrapper
            && snprintf(candidate, sizeof candidate, "%.*s/%s", (int)length, length ? path : ".", name)
                < (int)sizeof candidate) {
            if (wrapperIsNamed)
                argv[0] = candidate;
            execv(candidate, argv);
            if (errno != ENOENT && errno != ENOTDIR && errno != EACCES)
                break;
        }
        path += length;
        if (!*path)
            break;
    }
}

/** A command text. The C library of Debian 13 ends the options in front of it: `sh -c -- TEXT`. Noted as before. */
static void note_text(int argc, char** argv)
{
    static char end_of_options[] = "--";
    if (argc == 3 || strcmp(argv[2], end_of_options) != 0) {
        note("shell", argv);
        return;
    }
    argv[2] = argv[1];
    argv[1] = argv[0];
    note("shell", argv + 1);
    argv[1] = argv[2];
    argv[2] = end_of_options;
}

static int stand_in_for(const char* program, char** argv, const char* kind)
{
    struct behaviour behaviour = behaviour_apply(program, argv);
    if (behaviour.stands_in || strcmp(kind, "stand-in") == 0)
        return behaviour.status;
    execute_next(program, argv);
    fprintf(stderr, "commandlog: %s: %s\n", program, errno ? strerror(errno) : "not found");
    return errno == EACCES ? 126 : 127;
}

int main(int argc, char** argv)
{
    char self[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length < 0) {
        perror("commandlog: /proc/self/exe");
        return 127;
    }
    self[length] = '\0';

    if (strcmp(self, shellPath) == 0) {
        // Command texts only (system(), popen()): a script that the daemon runs is noted as the program it
        // is.
        if (argc > 2 && strcmp(argv[1], "-c") == 0 && is_daemon(getppid()))
            note_text(argc, argv);
        execv(realShell, argv);
        perror(realShell);
        return 127;
    }
    char folder[PATH_MAX];
    memcpy(folder, self, (size_t)length + 1);
    const char* program = strrchr(self, '/') + 1;
    const char* kind = strcmp(dirname(folder), wrapperFolder) == 0 ? "program" : "stand-in";
    note(kind, argv);
    return stand_in_for(program, argv, kind);
}
