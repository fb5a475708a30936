#include "behaviour.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

static int open_matter(const char* program, const char* matter, int flags)
{
    char path[PATH_MAX];
    snprintf(path, sizeof path, "/run/commandlog/behaviour/%s/%s", program, matter);
    return open(path, flags | O_CLOEXEC);
}

/** The decimal number in the file, or `absent` without one. */
static long number_of(const char* program, const char* matter, long absent)
{
    int fd = open_matter(program, matter, O_RDONLY);
    if (fd < 0)
        return absent;
    char text[32] = "";
    ssize_t count = read(fd, text, sizeof text - 1);
    close(fd);
    return count > 0 ? strtol(text, NULL, 10) : absent;
}

/** False when "when" names an argument that this call does not have. */
static int is_meant(const char* program, char** argv)
{
    int fd = open_matter(program, "when", O_RDONLY);
    if (fd < 0)
        return 1;
    char wanted[256] = "";
    ssize_t count = read(fd, wanted, sizeof wanted - 1);
    close(fd);
    for (char** argument = argv + 1; count > 0 && *argument; ++argument) {
        if (strcmp(*argument, wanted) == 0)
            return 1;
    }
    return 0;
}

/** Counts one call off "times". False when the calls are used up; true without such a file. */
static int take_one_time(const char* program)
{
    int fd = open_matter(program, "times", O_RDWR);
    if (fd < 0)
        return 1;
    flock(fd, LOCK_EX); // programs may run at the same time; released by close
    char text[32] = "";
    long left = pread(fd, text, sizeof text - 1, 0) > 0 ? strtol(text, NULL, 10) : 0;
    if (left > 0 && ftruncate(fd, 0) == 0) {
        int length = snprintf(text, sizeof text, "%ld\n", left - 1);
        if (pwrite(fd, text, (size_t)length, 0) < 0)
            perror("commandlog: times");
    }
    close(fd);
    return left > 0;
}

static void copy_to(const char* program, const char* matter, int out)
{
    int fd = open_matter(program, matter, O_RDONLY);
    if (fd < 0)
        return;
    char bytes[4096];
    for (ssize_t count; (count = read(fd, bytes, sizeof bytes)) > 0;) {
        if (write(out, bytes, (size_t)count) != count)
            break;
    }
    close(fd);
}

struct behaviour behaviour_apply(const char* program, char** argv)
{
    struct behaviour result = {0, 0};
    int folder = open_matter(program, ".", O_RDONLY | O_DIRECTORY);
    if (folder < 0)
        return result;
    close(folder);
    if (!is_meant(program, argv) || !take_one_time(program))
        return result;
    long delay = number_of(program, "delay_ms", 0);
    if (delay > 0) {
        struct timespec pause = {delay / 1000, (delay % 1000) * 1000000L};
        while (nanosleep(&pause, &pause) != 0) { }
    }
    copy_to(program, "stdout", STDOUT_FILENO);
    copy_to(program, "stderr", STDERR_FILENO);
    long status = number_of(program, "status", -1);
    result.stands_in = status >= 0;
    result.status = (int)(status & 0xFF);
    return result;
}
