#include "Spawn.h"

#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

int RunToExit(const char* const argv[], int stdoutFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, stdoutFd, 1);
    pid_t child = -1;
    const int failed =
        posix_spawnp(&child, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (failed != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}
