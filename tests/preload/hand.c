// SPDX-License-Identifier: MIT
/* A user's hand inside the program, for runs that open and close its windows thousands of times: closes windows as a
 * window manager does, presses buttons, and tells what the heap holds. Preloaded into veldrin, it takes one-line
 * commands from the pipe HAND_ASKED and writes one line for each to the pipe HAND_ANSWERS:
 *
 *   close            asks every shown window to close; answers how many there were
 *   windows          how many windows are shown
 *   press LABEL      presses the first button that reads so; 0 where none can be pressed
 *   shows TEXT       how many labels of shown windows hold the text
 *   memory           the bytes that the heap has handed out, after what is free went back to the system
 *   left             how many filters of tables are alive
 *   drop             gives up the references with which closed windows leave their filters and stores behind; how many
 *
 * HAND_MODULES names what the program reads in place of /proc/modules: not every machine has modules. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <gtk/gtk.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { LONGEST_COMMAND = 200 };

static int asked = -1;
static int answers = -1;
static const char *modules;
static GList *filters;

/* ISO C knows no cast from an object pointer to a function's. */
static void find(const char *name, void *function) {
    void *symbol = dlsym(RTLD_NEXT, name);
    memcpy(function, &symbol, sizeof symbol);
}

static FILE *open_instead(const char *function, const char *path, const char *mode) {
    FILE *(*real)(const char *, const char *);
    find(function, &real);
    return real(modules && strcmp(path, "/proc/modules") == 0 ? modules : path, mode);
}

FILE *fopen(const char *path, const char *mode) {
    return open_instead("fopen", path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
    return open_instead("fopen64", path, mode);
}

static void forget_filter(gpointer data, GObject *gone) {
    (void)data;
    filters = g_list_remove(filters, gone);
}

GtkTreeModel *gtk_tree_model_filter_new(GtkTreeModel *child, GtkTreePath *root) {
    GtkTreeModel *(*real)(GtkTreeModel *, GtkTreePath *);
    find("gtk_tree_model_filter_new", &real);
    GtkTreeModel *filter = real(child, root);
    g_object_weak_ref(G_OBJECT(filter), forget_filter, NULL);
    filters = g_list_prepend(filters, filter);
    return filter;
}

/* A filter that no table shows has one reference left, the one that its window left behind, as its store has besides
 * the filter's own. */
static long drop_left_behind(void) {
    long dropped = 0;
    GList *every = g_list_copy(filters);
    for (GList *each = every; each; each = each->next) {
        GObject *filter = each->data;
        if (filter->ref_count != 1) continue;
        GObject *store = G_OBJECT(gtk_tree_model_filter_get_model(GTK_TREE_MODEL_FILTER(filter)));
        if (store->ref_count != 2) continue;
        g_object_unref(filter);
        g_object_unref(store);
        ++dropped;
    }
    g_list_free(every);
    return dropped;
}

static long each_shown_window(void (*visit)(GtkWidget *, gpointer), gpointer data) {
    long count = 0;
    GList *every = gtk_window_list_toplevels();
    for (GList *each = every; each; each = each->next) {
        GtkWidget *window = each->data;
        /* The menu's, which the panel shows, is no window of the user's. */
        if (gtk_window_get_window_type(GTK_WINDOW(window)) != GTK_WINDOW_TOPLEVEL || !gtk_widget_get_visible(window)) {
            continue;
        }
        ++count;
        if (visit) visit(window, data);
    }
    g_list_free(every);
    return count;
}

static void close_window(GtkWidget *window, gpointer data) {
    (void)data;
    gtk_window_close(GTK_WINDOW(window));
}

struct search {
    const char *text;
    GtkWidget *button;
    long labels;
};

static void look_at(GtkWidget *widget, gpointer data) {
    struct search *search = data;
    if (GTK_IS_BUTTON(widget) && !search->button && gtk_widget_is_sensitive(widget)) {
        const char *label = gtk_button_get_label(GTK_BUTTON(widget));
        if (label && strcmp(label, search->text) == 0) search->button = widget;
    }
    if (GTK_IS_LABEL(widget) && strstr(gtk_label_get_text(GTK_LABEL(widget)), search->text)) ++search->labels;
    if (GTK_IS_CONTAINER(widget)) gtk_container_forall(GTK_CONTAINER(widget), look_at, data);
}

static long long heap_in_use(void) {
    malloc_trim(0);
    const struct mallinfo2 heap = mallinfo2();
    return (long long)(heap.uordblks + heap.hblkhd);
}

static long long obey(const char *command) {
    struct search search = {strchr(command, ' '), NULL, 0};
    if (search.text) ++search.text;
    if (strcmp(command, "close") == 0) return each_shown_window(close_window, NULL);
    if (strcmp(command, "windows") == 0) return each_shown_window(NULL, NULL);
    if (strcmp(command, "memory") == 0) return heap_in_use();
    if (strcmp(command, "left") == 0) return g_list_length(filters);
    if (strcmp(command, "drop") == 0) return drop_left_behind();
    if (!search.text) return -1;
    each_shown_window(look_at, &search);
    if (g_str_has_prefix(command, "shows ")) return search.labels;
    if (search.button) gtk_button_clicked(GTK_BUTTON(search.button));
    return search.button != NULL;
}

static gboolean on_asked(gint file, GIOCondition condition, gpointer data) {
    (void)condition;
    (void)data;
    static char command[LONGEST_COMMAND];
    static size_t length;
    char letter;
    while (read(file, &letter, 1) == 1) {
        if (letter != '\n') {
            if (length == sizeof command - 1) abort();
            command[length++] = letter;
            continue;
        }
        command[length] = '\0';
        length = 0;
        if (dprintf(answers, "%lld\n", obey(command)) < 0) abort();
    }
    return G_SOURCE_CONTINUE;
}

__attribute__((constructor)) static void set_up(void) {
    /* On the way to the program lie launchers. */
    const char *path = getenv("HAND_ASKED");
    if (!path || strcmp(program_invocation_short_name, "veldrin") != 0) return;
    modules = getenv("HAND_MODULES");
    /* Open in both directions, neither end of a pipe waits for the other. */
    asked = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    answers = open(getenv("HAND_ANSWERS"), O_RDWR | O_CLOEXEC);
    if (asked < 0 || answers < 0) abort();
    g_unix_fd_add(asked, G_IO_IN, on_asked, NULL);
}
