// SPDX-License-Identifier: MIT
// A tray icon whose menu opens windows of bare widgets in the shape of Settings and Latest Changes: what bench/waits
// holds the program's first window against. Before the icon comes, it asks the site for the texts that it will show.
//
//   bench_bare_tray ICON VERSION      the icon as a path without extension
#include "bare_load.h"

#include <glib-unix.h>
#include <libayatana-appindicator/app-indicator.h>
#include <csignal>

namespace {

BareTexts g_texts;
BareLoad g_load;

void open_overview() {
    show_bare_overview();
}

gboolean on_signal(gpointer) {
    open_overview();
    return G_SOURCE_CONTINUE;
}

void open_changes() {
    g_load = {bare_changes(), &g_texts, false};
    gtk_widget_show_all(g_load.bare.window);
    start_bare_load(g_load);
}

void add_item(GtkWidget* menu, const char* label, void (*open)()) {
    GtkWidget* item = gtk_menu_item_new_with_label(label);
    g_signal_connect(item, "activate", G_CALLBACK(open), nullptr);
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    if (argc != 3) return 2;
    g_texts = texts_of(argv[2]);
    AppIndicator* indicator = app_indicator_new("bench-bare", argv[1], APP_INDICATOR_CATEGORY_SYSTEM_SERVICES);
    app_indicator_set_status(indicator, APP_INDICATOR_STATUS_ACTIVE);
    GtkWidget* menu = gtk_menu_new();
    add_item(menu, "Settings", open_overview);
    add_item(menu, "Latest Changes", open_changes);
    gtk_widget_show_all(menu);
    app_indicator_set_menu(indicator, GTK_MENU(menu));
    g_unix_signal_add(SIGUSR1, on_signal, nullptr);
    gtk_main();
    return g_texts.log.success ? 0 : 1;
}
