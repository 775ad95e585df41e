// process-time COMMAND [ARGUMENT...]: runs the command with its standard
// output and error sent to /dev/null and prints "WALL CPU", its wall-clock
// time and its processor time (user + system), in seconds. The command is
// started with posix_spawn, which shares the caller's memory until the exec,
// so the count holds the command and not the cost of copying a shell for it.
// Exits with the command's status, or 127 when it cannot be started.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char** environ;

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: process-time COMMAND [ARGUMENT...]\n");
        return 2;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);

    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[1], &actions, nullptr, argv + 1, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        std::fprintf(stderr, "process-time: cannot run '%s': %s\n", argv[1], std::strerror(error));
        return 127;
    }
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            std::perror("process-time: wait4");
            return 127;
        }
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    std::printf("%.6f %.6f\n", wall.count(), cpu);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
