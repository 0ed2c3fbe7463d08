// SPDX-License-Identifier: MIT
/* Writes down which lines the program has reached each time its main loop goes to sleep, and when a crash's report is
 * written: most tests end the program by a signal, and otherwise only an orderly end writes it. Linked into the program
 * in the build that records its coverage, where it stands in front of the C library's functions. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <string.h>

void __gcov_dump(void);
void __gcov_reset(void);

static void write_down(void) {
    /* A fatal signal may come in the middle of it, and the record's lock is held then. */
    static _Thread_local volatile sig_atomic_t writing;
    if (writing) return;
    writing = 1;
    __gcov_dump();
    __gcov_reset();
    writing = 0;
}

/* ISO C knows no cast from an object pointer to a function's. */
static void find(const char *name, void *function) {
    void *symbol = dlsym(RTLD_NEXT, name);
    memcpy(function, &symbol, sizeof symbol);
}

int ppoll(struct pollfd *files, nfds_t count, const struct timespec *timeout, const sigset_t *mask) {
    static int (*real)(struct pollfd *, nfds_t, const struct timespec *, const sigset_t *);
    if (!real) find("ppoll", &real);
    write_down();
    return real(files, count, timeout, mask);
}

int raise(int number) {
    int (*real)(int);
    find("raise", &real);
    write_down();
    return real(number);
}
