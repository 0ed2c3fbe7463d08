// SPDX-License-Identifier: MIT
/* Puts the program's clock in a test's hands. Preloaded into veldrin, it takes over the sleeps of exactly one second
 * (the steps of the pause between two checks) and of exactly three (the delay of the first check); all others stay.
 *
 * QUICK_SLEEP_CLOCK names a file of four 64-bit counters: long sleeps allowed, long sleeps begun, steps allowed, steps
 * begun. A sleep then ends as soon as its number is allowed, be that at once or never.
 * Without it the sleeps are only shortened: to QUICK_SLEEP_STEP seconds (0.001) and QUICK_SLEEP_DELAY seconds
 * (0.03). */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

typedef int (*clock_nanosleep_t)(clockid_t, int, const struct timespec *, struct timespec *);

struct sleeps {
    _Atomic uint64_t allowed;
    _Atomic uint64_t begun;
};

struct test_clock {
    struct sleeps delays;
    struct sleeps steps;
};

static const time_t STEP = 1;
static const time_t DELAY = 3;

static clock_nanosleep_t real_sleep;
static int in_program;
static struct test_clock *test_clock;
static struct timespec short_step;
static struct timespec short_delay;

static struct timespec from_environment(const char *variable, double seconds) {
    const char *text = getenv(variable);
    if (text) seconds = strtod(text, NULL);
    struct timespec length;
    length.tv_sec = (time_t)seconds;
    length.tv_nsec = (long)((seconds - (double)length.tv_sec) * 1e9);
    return length;
}

static struct test_clock *map_clock(const char *path) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) abort();
    void *counters = mmap(NULL, sizeof(struct test_clock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (counters == MAP_FAILED) abort();
    close(file);
    return counters;
}

__attribute__((constructor)) static void set_up(void) {
    /* ISO C knows no cast from an object pointer to a function's. */
    void *symbol = dlsym(RTLD_NEXT, "clock_nanosleep");
    memcpy(&real_sleep, &symbol, sizeof symbol);

    /* On the way to the program lie launchers, which must pass the library on and otherwise stay as they are. */
    in_program = strcmp(program_invocation_short_name, "veldrin") == 0;
    if (!in_program) return;
    unsetenv("LD_PRELOAD");

    short_step = from_environment("QUICK_SLEEP_STEP", 0.001);
    short_delay = from_environment("QUICK_SLEEP_DELAY", 0.03);
    const char *path = getenv("QUICK_SLEEP_CLOCK");
    if (path) test_clock = map_clock(path);
}

static void pass(struct sleeps *sleeps, const struct timespec *shortened) {
    if (!test_clock) {
        real_sleep(CLOCK_MONOTONIC, 0, shortened, NULL);
        return;
    }
    const struct timespec until_next_look = {0, 1000000};
    const uint64_t number = atomic_fetch_add(&sleeps->begun, 1) + 1;
    while (atomic_load(&sleeps->allowed) < number) real_sleep(CLOCK_MONOTONIC, 0, &until_next_look, NULL);
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *length, struct timespec *rest) {
    const int whole_seconds = in_program && flags == 0 && length->tv_nsec == 0;
    if (whole_seconds && length->tv_sec == STEP) {
        pass(test_clock ? &test_clock->steps : NULL, &short_step);
    } else if (whole_seconds && length->tv_sec == DELAY) {
        pass(test_clock ? &test_clock->delays : NULL, &short_delay);
    } else {
        return real_sleep(clock, flags, length, rest);
    }
    return 0;
}

int nanosleep(const struct timespec *length, struct timespec *rest) {
    const int error = clock_nanosleep(CLOCK_REALTIME, 0, length, rest);
    if (error) errno = error;
    return error ? -1 : 0;
}
