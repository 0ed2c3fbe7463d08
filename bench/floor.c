// SPDX-License-Identifier: MIT
/* The floor below any applet of this kind: a tray icon with a label and the same menu, and nothing behind it. What
 * Veldrin takes beyond this is its own.
 *
 *   bench_floor ICON      the icon as a path without extension */
#include <gtk/gtk.h>
#include <libayatana-appindicator/app-indicator.h>

static GtkWidget *menu_of(const char *const labels[], int count) {
    GtkWidget *menu = gtk_menu_new();
    for (int i = 0; i < count; ++i) {
        GtkWidget *item = labels[i] ? gtk_menu_item_new_with_label(labels[i]) : gtk_separator_menu_item_new();
        gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
    }
    gtk_widget_show_all(menu);
    return menu;
}

int main(int argc, char **argv) {
    static const char *const LABELS[] = {
        "Settings", "Latest Changes", "System & Modules", NULL, "Acknowledge Update", "About", NULL, "Quit"};
    gtk_init(&argc, &argv);
    if (argc != 2) return 2;
    AppIndicator *indicator = app_indicator_new("bench-floor", argv[1], APP_INDICATOR_CATEGORY_SYSTEM_SERVICES);
    app_indicator_set_status(indicator, APP_INDICATOR_STATUS_ACTIVE);
    app_indicator_set_menu(indicator, GTK_MENU(menu_of(LABELS, 8)));
    app_indicator_set_label(indicator, "7.2.4", "7.2.4");
    gtk_main();
    return 0;
}
