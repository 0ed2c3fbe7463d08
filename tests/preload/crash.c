// SPDX-License-Identifier: MIT
/* Lets something go wrong in the program at a place of the test's choice. Preloaded into veldrin, it takes over the
 * functions below; CRASH says what happens in which of them, a word for each: function=what or function=what:text, the
 * latter only where the function's first argument holds the text.
 *
 *   segv, bus, fpe, ill, abrt   the fault of that name, once
 *   overflow                    a recursion that exhausts the stack, once
 *   deep                        segv below many frames, once
 *   throw                       an exception that nobody catches, once
 *   double_free, free_chunk, top_chunk
 *                               damage in the heap that the allocator meets, once: a block given back twice, a free
 *                               block overwritten, the size of what was never given out overwritten
 *   hang                        it never returns
 *   fail                        it does nothing and says that it failed */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <limits.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

void gtk_init(int *argc, char ***argv);
void *gtk_window_new(int type);

static char plan[256];
static pid_t program;

/* ISO C knows no cast from an object pointer to a function's. */
#define FIND(real, name)                         \
    do {                                         \
        void *symbol = dlsym(RTLD_NEXT, (name)); \
        memcpy(&(real), &symbol, sizeof symbol); \
    } while (0)

__attribute__((constructor)) static void set_up(void) {
    /* On the way to the program lie launchers, which must stay as they are. */
    if (strcmp(program_invocation_short_name, "veldrin") != 0) return;
    program = getpid();
    const char *words = getenv("CRASH");
    if (!words) return;
    if (strlen(words) >= sizeof plan) abort();
    strcpy(plan, words);
}

/* Returns what is to happen in `function` as `what` and as the text behind it. */
static bool planned(const char *function, char *what, char *text) {
    char words[sizeof plan];
    strcpy(words, plan);
    char *rest = NULL;
    for (char *word = strtok_r(words, " ", &rest); word; word = strtok_r(NULL, " ", &rest)) {
        char *value = strchr(word, '=');
        if (!value || strncmp(word, function, (size_t)(value - word)) != 0 || function[value - word]) continue;
        char *colon = strchr(++value, ':');
        strcpy(text, colon ? colon + 1 : "");
        if (colon) *colon = '\0';
        strcpy(what, value);
        return true;
    }
    return false;
}

static int descend(volatile int *levels, void (*at_the_bottom)(void)) {
    volatile char frame[512];
    frame[0] = (char)*levels;
    if (*levels == 0) {
        at_the_bottom();
    } else {
        --*levels;
        descend(levels, at_the_bottom);
    }
    return frame[0];
}

static void fault_in_memory(void) {
    int *volatile nowhere = NULL;
    *nowhere = 1;
}

static void fault_behind_a_files_end(void) {
    FILE *empty = tmpfile();
    volatile char *page = mmap(NULL, 1, PROT_READ, MAP_SHARED, fileno(empty), 0);
    (void)page[0];
}

static void throw_an_exception(void) {
    void (*throw)(const char *);
    void *symbol = dlsym(RTLD_DEFAULT, "_ZSt20__throw_length_errorPKc");
    memcpy(&throw, &symbol, sizeof symbol);
    throw("thrown by a test");
}

static void divide_by_zero(void) {
#if defined(__x86_64__) || defined(__i386__)
    volatile int zero = 0;
    zero = 7 / zero;
#else
    raise(SIGFPE); /* elsewhere such a division has a result */
#endif
}

static void do_what_is_no_instruction(void) {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_trap();
#else
    raise(SIGILL); /* elsewhere a trap may be another signal */
#endif
}

/* A thread keeps no blocks of these sizes to itself: the allocator takes its lock for them. */
enum { SMALL = 2000, LARGE = 100000, HUGE = 64 << 20 };

static void give_back_twice(void) {
    char *volatile block = malloc(SMALL);
    free(block);
    free(block);
}

static void overwrite_a_free_block(void) {
    char *volatile block = malloc(LARGE);
    /* Keeps the block, when it is free, from becoming part of what was never given out. */
    char *volatile behind = malloc(LARGE);
    /* In search of so much, the allocator sorts what else is free: the block is the next that it looks at. */
    char *volatile search = malloc(HUGE);
    free(search);
    free(block);
    memset(block, 'A', 64);
    block = malloc(LARGE);
    free(behind);
}

static void overwrite_the_top(void) {
    char *volatile block = NULL;
    /* So many that what was free before is used up. */
    for (int i = 0; i < 64; ++i) block = malloc(LARGE);
    memset(block, 0xff, LARGE + 64);
    block = malloc(LARGE);
}

/* Does what is planned for `function`. Returns whether it is to fail. */
static bool go_wrong(const char *function, const char *argument, atomic_flag *done) {
    char what[sizeof plan];
    char text[sizeof plan];
    if (!planned(function, what, text) || !strstr(argument, text)) return false;
    if (strcmp(what, "fail") == 0) return true;
    if (strcmp(what, "hang") == 0) {
        for (;;) pause();
    }
    if (atomic_flag_test_and_set(done)) return false;
    if (strcmp(what, "segv") == 0) fault_in_memory();
    if (strcmp(what, "bus") == 0) fault_behind_a_files_end();
    if (strcmp(what, "fpe") == 0) divide_by_zero();
    if (strcmp(what, "ill") == 0) do_what_is_no_instruction();
    if (strcmp(what, "abrt") == 0) abort();
    if (strcmp(what, "throw") == 0) throw_an_exception();
    if (strcmp(what, "double_free") == 0) give_back_twice();
    if (strcmp(what, "free_chunk") == 0) overwrite_a_free_block();
    if (strcmp(what, "top_chunk") == 0) overwrite_the_top();
    volatile int levels = strcmp(what, "deep") == 0 ? 100 : INT_MAX;
    if (strcmp(what, "deep") == 0 || strcmp(what, "overflow") == 0) descend(&levels, fault_in_memory);
    _exit(99); /* no such fault */
}

int memfd_create(const char *name, unsigned int flags) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (go_wrong("memfd_create", name, &done)) return -1;
    int (*real)(const char *, unsigned int);
    FIND(real, "memfd_create");
    return real(name, flags);
}

void gtk_init(int *argc, char ***argv) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    go_wrong("gtk_init", "", &done);
    void (*real)(int *, char ***);
    FIND(real, "gtk_init");
    real(argc, argv);
}

void *gtk_window_new(int type) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    go_wrong("gtk_window_new", "", &done);
    void *(*real)(int);
    FIND(real, "gtk_window_new");
    return real(type);
}

FILE *popen(const char *command, const char *mode) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (go_wrong("popen", command, &done)) return NULL;
    FILE *(*real)(const char *, const char *);
    FIND(real, "popen");
    return real(command, mode);
}

FILE *fopen(const char *restrict path, const char *restrict mode) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (go_wrong("fopen", path, &done)) return NULL;
    FILE *(*real)(const char *, const char *);
    FIND(real, "fopen");
    return real(path, mode);
}

int uname(struct utsname *names) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (go_wrong("uname", "", &done)) return -1;
    int (*real)(struct utsname *);
    FIND(real, "uname");
    return real(names);
}

void backtrace_symbols_fd(void *const *frames, int count, int file) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    go_wrong("backtrace_symbols_fd", "", &done);
    void (*real)(void *const *, int, int);
    FIND(real, "backtrace_symbols_fd");
    real(frames, count, file);
}

pid_t fork(void) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (go_wrong("fork", "", &done)) {
        errno = EAGAIN;
        return -1;
    }
    pid_t (*real)(void);
    FIND(real, "fork");
    return real();
}

/* In a child of the program only. */
int setenv(const char *name, const char *value, int overwrite) {
    static atomic_flag done = ATOMIC_FLAG_INIT;
    if (program && getpid() != program && go_wrong("setenv", name, &done)) return -1;
    int (*real)(const char *, const char *, int);
    FIND(real, "setenv");
    return real(name, value, overwrite);
}
