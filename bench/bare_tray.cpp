// SPDX-License-Identifier: MIT
// A tray icon whose menu opens a window of bare widgets in the shape of Settings: what bench/waits holds the program's
// first window against.
//
//   bench_bare_tray ICON      the icon as a path without extension
#include "bare.h"

#include <glib-unix.h>
#include <libayatana-appindicator/app-indicator.h>
#include <csignal>

namespace {

gboolean on_signal(gpointer) {
    show_bare_overview();
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    if (argc != 2) return 2;
    AppIndicator* indicator = app_indicator_new("bench-bare", argv[1], APP_INDICATOR_CATEGORY_SYSTEM_SERVICES);
    app_indicator_set_status(indicator, APP_INDICATOR_STATUS_ACTIVE);
    GtkWidget* menu = gtk_menu_new();
    GtkWidget* item = gtk_menu_item_new_with_label("Settings");
    g_signal_connect(item, "activate", G_CALLBACK(show_bare_overview), nullptr);
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
    gtk_widget_show_all(menu);
    app_indicator_set_menu(indicator, GTK_MENU(menu));
    g_unix_signal_add(SIGUSR1, on_signal, nullptr);
    gtk_main();
    return 0;
}
