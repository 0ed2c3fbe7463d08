// SPDX-License-Identifier: MIT
/* Turns memory into rubbish when it is freed, and never hands it out again: what is used after its end is found, each
 * time. Preloaded into veldrin, for short runs, since nothing is given back. */
#include <malloc.h>
#include <stddef.h>
#include <string.h>

enum { RUBBISH = 0xa5 };

void free(void *memory) {
    if (memory != NULL) memset(memory, RUBBISH, malloc_usable_size(memory));
}
