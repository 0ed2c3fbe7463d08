// SPDX-License-Identifier: MIT
/* Writes down each process that veldrin starts: the name of the C library's function and, where there is one, the
 * command or the program, a line for each in the file STARTED_PROCESSES. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int record = -1;

__attribute__((constructor)) static void set_up(void) {
    /* On the way to the program lie launchers, which start processes of their own. */
    const char *path = getenv("STARTED_PROCESSES");
    if (!path || strcmp(program_invocation_short_name, "veldrin") != 0) return;
    record = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (record < 0) abort();
}

static void note(const char *function, const char *what) {
    if (record >= 0 && dprintf(record, "%s %s\n", function, what) < 0) abort();
}

/* ISO C knows no cast from an object pointer to a function's. */
static void find(const char *name, void *function) {
    void *symbol = dlsym(RTLD_NEXT, name);
    memcpy(function, &symbol, sizeof symbol);
}

FILE *popen(const char *command, const char *mode) {
    FILE *(*real)(const char *, const char *);
    find("popen", &real);
    note("popen", command);
    return real(command, mode);
}

int system(const char *command) {
    int (*real)(const char *);
    find("system", &real);
    note("system", command ? command : "");
    return real(command);
}

pid_t fork(void) {
    pid_t (*real)(void);
    find("fork", &real);
    note("fork", "");
    return real();
}

/* A child of this one may run on before its parent, but shares nothing with it. */
pid_t vfork(void) {
    pid_t (*real)(void);
    find("fork", &real);
    note("vfork", "");
    return real();
}

int posix_spawn(pid_t *pid, const char *path, const posix_spawn_file_actions_t *actions, const posix_spawnattr_t *attr,
                char *const argv[], char *const envp[]) {
    int (*real)(pid_t *, const char *, const posix_spawn_file_actions_t *, const posix_spawnattr_t *, char *const[],
                char *const[]);
    find("posix_spawn", &real);
    note("posix_spawn", path);
    return real(pid, path, actions, attr, argv, envp);
}

int posix_spawnp(pid_t *pid, const char *file, const posix_spawn_file_actions_t *actions, const posix_spawnattr_t *attr,
                 char *const argv[], char *const envp[]) {
    int (*real)(pid_t *, const char *, const posix_spawn_file_actions_t *, const posix_spawnattr_t *, char *const[],
                char *const[]);
    find("posix_spawnp", &real);
    note("posix_spawnp", file);
    return real(pid, file, actions, attr, argv, envp);
}
