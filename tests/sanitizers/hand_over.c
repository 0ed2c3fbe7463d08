// SPDX-License-Identifier: MIT
/* Tells the thread sanitizer of the one hand-over between threads that it can't see: what g_idle_add is given was
 * written before its callback reads it. GLib orders the two by locks of its own. Linked into what is built with that
 * sanitizer, where it stands in front of GLib's function. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <glib.h>
#include <stdlib.h>
#include <string.h>

void __tsan_acquire(void *address);
void __tsan_release(void *address);

typedef guint (*g_idle_add_t)(GSourceFunc, gpointer);

struct hand_over {
    GSourceFunc callback;
    gpointer data;
};

static gboolean receive(gpointer parcel) {
    __tsan_acquire(parcel);
    const struct hand_over hand_over = *(struct hand_over *)parcel;
    if (hand_over.callback(hand_over.data)) return G_SOURCE_CONTINUE;
    free(parcel);
    return G_SOURCE_REMOVE;
}

guint g_idle_add(GSourceFunc callback, gpointer data) {
    /* ISO C knows no cast from an object pointer to a function's. */
    void *symbol = dlsym(RTLD_NEXT, "g_idle_add");
    g_idle_add_t real;
    memcpy(&real, &symbol, sizeof symbol);

    struct hand_over *parcel = malloc(sizeof *parcel);
    if (!parcel) abort();
    *parcel = (struct hand_over){callback, data};
    __tsan_release(parcel);
    return real(receive, parcel);
}
