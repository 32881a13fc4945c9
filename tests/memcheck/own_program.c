/* For programs that valgrind runs: there /proc/self/exe is valgrind, and only readlink() is told the program. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <limits.h>
#include <spawn.h>
#include <string.h>
#include <unistd.h>

typedef int spawn_t(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*, char* const*,
                    char* const*);

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment)
{
    char program[PATH_MAX] = {0};
    if (strcmp(path, "/proc/self/exe") == 0 && readlink(path, program, sizeof program - 1) > 0)
        path = program;
    return ((spawn_t*)dlsym(RTLD_NEXT, "posix_spawn"))(process, path, actions, attributes, words, environment);
}
