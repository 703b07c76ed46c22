// Runs a command as the head of a test session and stays its children's
// reaper: whatever the session's programs leave behind is re-parented here
// (not to a first process that might never reap it), ended when the command
// has ended, and reaped. Exits with the command's status.
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

// Sends `sig` to every process whose parent is this one; the number sent to.
static int signalChildren(int sig)
{
    int count = 0;
    DIR *proc = opendir("/proc");
    if (!proc)
        return 0;
    struct dirent *entry;
    const pid_t self = getpid();
    while ((entry = readdir(proc))) {
        const pid_t pid = (pid_t)atoi(entry->d_name);
        if (pid <= 0)
            continue;
        char path[64], line[512];
        snprintf(path, sizeof path, "/proc/%d/stat", pid);
        FILE *stat = fopen(path, "r");
        if (!stat)
            continue;
        const size_t got = fread(line, 1, sizeof line - 1, stat);
        fclose(stat);
        line[got] = 0;
        // "pid (name) state ppid ...": the name may hold anything but ends at the last ')'.
        const char *close = strrchr(line, ')');
        char state;
        int parent;
        if (close && sscanf(close + 1, " %c %d", &state, &parent) == 2 && parent == self) {
            kill(pid, sig);
            ++count;
        }
    }
    closedir(proc);
    return count;
}

static void reapAll(void)
{
    while (waitpid(-1, NULL, WNOHANG) > 0) {
    }
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s command [argument...]\n", argv[0]);
        return 2;
    }
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        perror("PR_SET_CHILD_SUBREAPER");
        return 2;
    }
    const pid_t command = fork();
    if (command < 0) {
        perror("fork");
        return 2;
    }
    if (command == 0) {
        execvp(argv[1], argv + 1);
        perror(argv[1]);
        _exit(127);
    }
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(-1, &status, 0);
        if (ended == command)
            break;
        if (ended < 0 && errno != EINTR)
            return 2;
    }
    // The session's programs get a moment to end by themselves, then are
    // killed; every one of them is reaped.
    signalChildren(SIGTERM);
    for (int tries = 0; tries < 50; ++tries) {
        reapAll();
        if (signalChildren(0) == 0)
            break;
        const struct timespec pause = {0, 100 * 1000 * 1000};
        nanosleep(&pause, NULL);
    }
    signalChildren(SIGKILL);
    while (waitpid(-1, NULL, 0) > 0 || errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
