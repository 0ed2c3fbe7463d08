// SPDX-License-Identifier: MIT
/* Lets a test look into the program's windows and use them, whatever display they are on. Preloaded into veldrin, it
 * listens on the socket that WINDOW_PROBE names, from the start of the main loop on. A connection brings one request
 * and takes one answer, records that end in RS, of fields that US parts:
 *
 *   dump                 window, frames drawn, scale, width, height, title; below it label, classes, text; box,
 *                        classes; row, cells
 *   select NUMBER        selects that row of the table
 *   page NUMBER          turns to that page of the notebook
 *   filter TEXT          types into the first entry that can be written to
 *   click LABEL          presses a button
 *   expand               opens every expander
 *   scroll               scrolls everything to its far end
 *   choose ID            chooses in the first selector
 *   draw TITLE           has a window drawn once more
 *   close TITLE          closes a window as the window manager does
 *
 * The answer to all but the first is "done" or "none". */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <glib-unix.h>
#include <gtk/gtk.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#define US "\x1f"
#define RS "\x1e"

typedef void (*visit_t)(GtkWidget *widget, void *data);

struct visit {
    visit_t visit;
    void *data;
};

static void walk(GtkWidget *widget, void *data) {
    const struct visit *visit = data;
    visit->visit(widget, visit->data);
    if (GTK_IS_CONTAINER(widget)) gtk_container_forall(GTK_CONTAINER(widget), walk, data);
}

static void for_each_window(GtkCallback visit, void *data) {
    GList *windows = gtk_window_list_toplevels();
    for (GList *window = windows; window; window = window->next) {
        const int top = gtk_window_get_window_type(GTK_WINDOW(window->data)) == GTK_WINDOW_TOPLEVEL;
        if (top && gtk_widget_get_mapped(GTK_WIDGET(window->data))) visit(GTK_WIDGET(window->data), data);
    }
    g_list_free(windows);
}

/* ---- What there is to see ---- */

static void append_classes(GtkWidget *widget, GString *out) {
    GList *classes = gtk_style_context_list_classes(gtk_widget_get_style_context(widget));
    for (GList *class = classes; class; class = class->next) {
        g_string_append_printf(out, "%s%s", class == classes ? "" : " ", (const char *)class->data);
    }
    g_list_free(classes);
}

static gboolean append_row(GtkTreeModel *model, GtkTreePath *path, GtkTreeIter *row, void *data) {
    (void)path;
    GString *out = data;
    g_string_append(out, "row");
    for (int column = 0; column < gtk_tree_model_get_n_columns(model); ++column) {
        if (gtk_tree_model_get_column_type(model, column) != G_TYPE_STRING) continue;
        char *text = NULL;
        gtk_tree_model_get(model, row, column, &text, -1);
        g_string_append_printf(out, US "%s", text ? text : "");
        g_free(text);
    }
    g_string_append(out, RS);
    return FALSE;
}

static void append_widget(GtkWidget *widget, void *data) {
    GString *out = data;
    if (!gtk_widget_get_visible(widget)) return;
    if (GTK_IS_LABEL(widget)) {
        g_string_append(out, "label" US);
        append_classes(widget, out);
        g_string_append_printf(out, US "%s" RS, gtk_label_get_text(GTK_LABEL(widget)));
    } else if (GTK_IS_ENTRY(widget)) {
        g_string_append_printf(out, "entry" US US "%s" RS, gtk_entry_get_text(GTK_ENTRY(widget)));
    } else if (GTK_IS_BOX(widget)) {
        g_string_append(out, "box" US);
        append_classes(widget, out);
        g_string_append(out, RS);
    } else if (GTK_IS_TREE_VIEW(widget)) {
        gtk_tree_model_foreach(gtk_tree_view_get_model(GTK_TREE_VIEW(widget)), append_row, out);
    }
}

static void append_window(GtkWidget *window, void *data) {
    GString *out = data;
    const char *title = gtk_window_get_title(GTK_WINDOW(window));
    /* The clock counts from -1 on. */
    const gint64 frames = gdk_frame_clock_get_frame_counter(gtk_widget_get_frame_clock(window)) + 1;
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(window), &width, &height);
    g_string_append_printf(out, "window" US "%" G_GINT64_FORMAT US "%d" US "%d" US "%d" US "%s" RS, frames,
                           gtk_widget_get_scale_factor(window), width, height, title ? title : "");
    struct visit visit = {append_widget, out};
    walk(window, &visit);
}

/* ---- What can be done ---- */

struct action {
    const char *name;
    const char *argument;
    gboolean done; /* and that was all */
    gboolean some; /* and there may be more to do it on */
};

static void to_far_end(GtkAdjustment *adjustment) {
    gtk_adjustment_set_value(adjustment, gtk_adjustment_get_upper(adjustment));
}

static void try_on(GtkWidget *widget, void *data) {
    struct action *action = data;
    if (action->done) return;
    if (GTK_IS_TREE_VIEW(widget) && strcmp(action->name, "select") == 0) {
        GtkTreePath *path = gtk_tree_path_new_from_string(action->argument);
        action->done = TRUE;
        gtk_tree_selection_select_path(gtk_tree_view_get_selection(GTK_TREE_VIEW(widget)), path);
        gtk_tree_path_free(path);
    } else if (GTK_IS_NOTEBOOK(widget) && strcmp(action->name, "page") == 0) {
        action->done = TRUE;
        gtk_notebook_set_current_page(GTK_NOTEBOOK(widget), atoi(action->argument));
    } else if (GTK_IS_ENTRY(widget) && strcmp(action->name, "filter") == 0) {
        if (!gtk_editable_get_editable(GTK_EDITABLE(widget))) return;
        action->done = TRUE;
        gtk_entry_set_text(GTK_ENTRY(widget), action->argument);
    } else if (GTK_IS_COMBO_BOX(widget) && strcmp(action->name, "choose") == 0) {
        action->done = gtk_combo_box_set_active_id(GTK_COMBO_BOX(widget), action->argument);
    } else if (GTK_IS_EXPANDER(widget) && strcmp(action->name, "expand") == 0) {
        action->some = TRUE;
        gtk_expander_set_expanded(GTK_EXPANDER(widget), TRUE);
    } else if (GTK_IS_SCROLLED_WINDOW(widget) && strcmp(action->name, "scroll") == 0) {
        action->some = TRUE;
        to_far_end(gtk_scrolled_window_get_hadjustment(GTK_SCROLLED_WINDOW(widget)));
        to_far_end(gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(widget)));
    } else if (GTK_IS_BUTTON(widget) && strcmp(action->name, "click") == 0) {
        const char *label = gtk_button_get_label(GTK_BUTTON(widget));
        if (!label || strcmp(label, action->argument) != 0) return;
        action->done = TRUE;
        gtk_button_clicked(GTK_BUTTON(widget));
    }
}

static void try_in(GtkWidget *window, void *data) {
    struct action *action = data;
    if (action->done) return;
    const int closes = strcmp(action->name, "close") == 0;
    if (closes || strcmp(action->name, "draw") == 0) {
        const char *title = gtk_window_get_title(GTK_WINDOW(window));
        action->done = title && strcmp(title, action->argument) == 0;
        if (!action->done) return;
        if (closes) {
            gtk_window_close(GTK_WINDOW(window));
        } else {
            gtk_widget_queue_draw(window);
        }
        return;
    }
    struct visit visit = {try_on, action};
    walk(window, &visit);
}

/* ---- The socket ---- */

static void answer(char *request, GString *out) {
    if (strcmp(request, "dump") == 0) {
        for_each_window(append_window, out);
        return;
    }
    char *blank = strchr(request, ' ');
    if (blank) *blank = '\0';
    struct action action = {request, blank ? blank + 1 : "", FALSE, FALSE};
    for_each_window(try_in, &action);
    g_string_append(out, action.done || action.some ? "done" RS : "none" RS);
}

static gboolean on_connection(int listener, GIOCondition condition, void *data) {
    (void)condition;
    (void)data;
    const int connection = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
    if (connection < 0) return G_SOURCE_CONTINUE;
    GString *request = g_string_new(NULL);
    char buffer[4096];
    for (ssize_t length; (length = read(connection, buffer, sizeof buffer)) > 0;) {
        g_string_append_len(request, buffer, length);
    }
    GString *out = g_string_new(NULL);
    answer(request->str, out);
    for (size_t sent = 0; sent < out->len;) {
        const ssize_t length = send(connection, out->str + sent, out->len - sent, MSG_NOSIGNAL);
        if (length <= 0) break;
        sent += (size_t)length;
    }
    close(connection);
    g_string_free(out, TRUE);
    g_string_free(request, TRUE);
    return G_SOURCE_CONTINUE;
}

void gtk_main(void) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    const char *path = getenv("WINDOW_PROBE");
    if (!path || strlen(path) >= sizeof address.sun_path) abort();
    strcpy(address.sun_path, path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 8) != 0) abort();
    g_unix_fd_add(listener, G_IO_IN, on_connection, NULL);

    /* ISO C knows no cast from an object pointer to a function's. */
    void *symbol = dlsym(RTLD_NEXT, "gtk_main");
    void (*real)(void);
    memcpy(&real, &symbol, sizeof symbol);
    real();
}
