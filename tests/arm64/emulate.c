/* emulate PROGRAM [ARGUMENT...]: runs an arm64 program by qemu-aarch64-static, as CMake's emulator and as the
   virtual instrument's.

   qemu-user 7.2 hands waitid(P_PIDFD, ...) to the kernel but refuses clone(CLONE_PIDFD): Qt concludes from
   the first that it may use the second, and no QProcess starts. Here waitid of a pidfd fails with EINVAL as
   on Linux before 5.4, for the program and all that it starts, and Qt takes its other way.

   The process is named after the program, as it is without an emulator: the virtual instrument's command log
   goes by that. */
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define EMULATOR "/usr/bin/qemu-aarch64-static"
#define NAMED "/run/emulated" /* links to the emulator */

enum { idtypePidfd = 3 }; /* P_PIDFD of waitid(2) */

static int hidePidfds(void)
{
    struct sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_waitid, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, idtypePidfd, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    struct sock_fprog filter = {.len = sizeof program / sizeof program[0], .filter = program};
    /* Root needs nothing more; others must give up gaining rights (by set-user-ID programs) first. */
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0)
        return 0;
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 ? prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter)
                                                       : -1;
}

/* A process is named after the path that is executed. Without the right to make the link it has the
 * emulator's name. */
static void runNamed(char** argv)
{
    const char* const slash = strrchr(argv[1], '/');
    char link[256];
    const int length = snprintf(link, sizeof link, NAMED "/%s", slash != NULL ? slash + 1 : argv[1]);
    if (length < 0 || (size_t)length >= sizeof link || (mkdir(NAMED, 0755) != 0 && errno != EEXIST))
        return;
    if (symlink(EMULATOR, link) == 0 || errno == EEXIST)
        execv(link, argv);
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fputs("usage: emulate PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    if (hidePidfds() != 0) {
        fprintf(stderr, "emulate: seccomp: %s; this kernel has no system call filter\n", strerror(errno));
        return 126;
    }
    argv[0] = EMULATOR;
    runNamed(argv);
    execv(EMULATOR, argv);
    fprintf(stderr, "emulate: %s: %s; install qemu-user-static\n", EMULATOR, strerror(errno));
    return 127;
}
