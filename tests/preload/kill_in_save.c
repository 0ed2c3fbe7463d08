// SPDX-License-Identifier: MIT
/* Kills veldrin within its first save of the state file. KILL_IN_SAVE says where: "opened" before any byte is written,
 * a number after so many bytes. The kernel hardly ever stops between two bytes of one write; a full disk or the loss of
 * power does. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char *place;
static int state_file = -1;

__attribute__((constructor)) static void set_up(void) {
    /* On the way to the program lie launchers. */
    if (strcmp(program_invocation_short_name, "veldrin") == 0) place = getenv("KILL_IN_SAVE");
}

/* ISO C knows no cast from an object pointer to a function's. */
static void find(const char *name, void *function) {
    void *symbol = dlsym(RTLD_NEXT, name);
    memcpy(function, &symbol, sizeof symbol);
}

static int open_like(const char *function, const char *path, int flags, mode_t mode) {
    int (*real)(const char *, int, ...);
    find(function, &real);
    const int file = real(path, flags, mode);
    const char *name = strrchr(path, '/');
    if (place && file >= 0 && name && strcmp(name, "/app_state.json") == 0 && (flags & O_ACCMODE) != O_RDONLY) {
        state_file = file;
        if (strcmp(place, "opened") == 0) raise(SIGKILL);
    }
    return file;
}

int open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return open_like("open", path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return open_like("open64", path, flags, mode);
}

ssize_t write(int file, const void *bytes, size_t length) {
    ssize_t (*real)(int, const void *, size_t);
    find("write", &real);
    if (place && file == state_file) {
        const size_t part = strtoul(place, NULL, 10);
        if (part <= length && real(file, bytes, part) == (ssize_t)part) raise(SIGKILL);
    }
    return real(file, bytes, length);
}
