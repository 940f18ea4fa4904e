// Runs a program to its end, as a shell would, for the process-level floors and
// the fresh host processes of the cold start.
#ifndef BENCH_SPAWN_H
#define BENCH_SPAWN_H

// Starts argv[0] (looked up in PATH) with its standard output on `stdoutFd`
// and waits for it; its exit status, or -1 when it could not be started or
// did not exit normally.
int RunToExit(const char* const argv[], int stdoutFd);

#endif
