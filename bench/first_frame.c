// SPDX-License-Identifier: MIT
/* Says when a tray program's first window is painted. Preloaded into it, it writes the time into the file that
 * FIRST_FRAME names, in nanoseconds of the monotonic clock. FIRST_FRAME_WITH may name a widget's type: then the frame
 * counts in which the window first holds one. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <gtk/gtk.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static void on_painted(GdkFrameClock *frames, gpointer data) {
    (void)frames;
    (void)data;
    static gboolean told;
    if (told) return;
    told = TRUE;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    FILE *file = fopen(getenv("FIRST_FRAME"), "w");
    if (!file) abort();
    fprintf(file, "%lld\n", (long long)now.tv_sec * 1000000000 + now.tv_nsec);
    fclose(file);
}

static void look_for(GtkWidget *widget, gpointer found) {
    const char *wanted = getenv("FIRST_FRAME_WITH");
    if (!wanted || strcmp(G_OBJECT_TYPE_NAME(widget), wanted) == 0) *(gboolean *)found = TRUE;
    if (*(gboolean *)found || !GTK_IS_CONTAINER(widget)) return;
    gtk_container_forall(GTK_CONTAINER(widget), look_for, found);
}

/* In the frame that is painted now. */
static gboolean on_draw(GtkWidget *window, cairo_t *picture, gpointer data) {
    (void)picture;
    (void)data;
    gboolean found = FALSE;
    look_for(window, &found);
    if (!found) return FALSE;
    g_signal_connect(gtk_widget_get_frame_clock(window), "after-paint", G_CALLBACK(on_painted), NULL);
    return FALSE;
}

static gboolean on_map(GSignalInvocationHint *hint, guint count, const GValue *values, gpointer data) {
    (void)hint;
    (void)count;
    (void)data;
    GtkWidget *widget = g_value_get_object(values);
    if (!GTK_IS_WINDOW(widget)) return TRUE;
    g_signal_connect(widget, "draw", G_CALLBACK(on_draw), NULL);
    return FALSE;
}

void gtk_main(void) {
    g_type_class_ref(GTK_TYPE_WIDGET);
    g_signal_add_emission_hook(g_signal_lookup("map", GTK_TYPE_WIDGET), 0, on_map, NULL, NULL);

    /* ISO C knows no cast from an object pointer to a function's. */
    void *symbol = dlsym(RTLD_NEXT, "gtk_main");
    void (*real)(void);
    memcpy(&real, &symbol, sizeof symbol);
    real();
}
