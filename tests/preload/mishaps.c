// SPDX-License-Identifier: MIT
/* Brings mishaps upon the program at a test's word. MISHAPS names a file of two 64-bit numbers: how many seconds the
 * wall clock is off, and whether the system has no room for another thread or process (not 0). */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

struct mishaps {
    int64_t seconds_off;
    int64_t crowded;
};

static const volatile struct mishaps *mishaps;

__attribute__((constructor)) static void set_up(void) {
    if (strcmp(program_invocation_short_name, "veldrin") != 0) return;
    const int file = open(getenv("MISHAPS"), O_RDONLY | O_CLOEXEC);
    if (file < 0) abort();
    void *shared = mmap(NULL, sizeof *mishaps, PROT_READ, MAP_SHARED, file, 0);
    if (shared == MAP_FAILED) abort();
    close(file);
    mishaps = shared;
}

static time_t seconds_off(void) {
    return mishaps ? (time_t)mishaps->seconds_off : 0;
}

static int crowded(void) {
    return mishaps && mishaps->crowded;
}

/* ISO C knows no cast from an object pointer to a function's. */
#define FIND_REAL(name, pointer)                    \
    do {                                            \
        void *symbol = dlsym(RTLD_NEXT, name);      \
        memcpy(&(pointer), &symbol, sizeof symbol); \
    } while (0)

/* ---- The wall clock ---- */

int clock_gettime(clockid_t clock, struct timespec *now) {
    static int (*real)(clockid_t, struct timespec *);
    if (!real) FIND_REAL("clock_gettime", real);
    const int result = real(clock, now);
    if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += seconds_off();
    return result;
}

time_t time(time_t *out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out) *out = now.tv_sec;
    return now.tv_sec;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone) {
    (void)zone;
    struct timespec precise;
    clock_gettime(CLOCK_REALTIME, &precise);
    now->tv_sec = precise.tv_sec;
    now->tv_usec = precise.tv_nsec / 1000;
    return 0;
}

/* ---- Threads and processes ---- */

FILE *popen(const char *command, const char *mode) {
    static FILE *(*real)(const char *, const char *);
    if (!real) FIND_REAL("popen", real);
    if (!crowded()) return real(command, mode);
    errno = EAGAIN;
    return NULL;
}

int pthread_create(pthread_t *restrict thread, const pthread_attr_t *restrict attributes, void *(*run)(void *),
                   void *restrict data) {
    static int (*real)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    if (!real) FIND_REAL("pthread_create", real);
    return crowded() ? EAGAIN : real(thread, attributes, run, data);
}

pid_t fork(void) {
    static pid_t (*real)(void);
    if (!real) FIND_REAL("fork", real);
    if (!crowded()) return real();
    errno = EAGAIN;
    return -1;
}
