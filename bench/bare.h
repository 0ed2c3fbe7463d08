// SPDX-License-Identifier: MIT
// Bare GTK widgets in the shape of the windows: the same classes, packing, texts and wrapping, but no stylesheet, no
// style classes and no work on strings. What the benchmarks hold the windows against. Main thread only.
#pragma once

#include "sites.h"
#include "widgets.h"

#include <gtk/gtk.h>

struct CardTexts {
    const char* tag;
    const char* subject;
    const char* body;
    const char* meta;
    const char* hash;
};

inline GtkWidget* bare_label(const char* text, bool left, bool wrap) {
    GtkWidget* label = gtk_label_new(text);
    if (left) gtk_label_set_xalign(GTK_LABEL(label), 0.0);
    if (wrap) gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    return label;
}

inline GtkWidget* bare_card(const CardTexts& texts) {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    set_margins(card, 14, 14, 4, 4);

    GtkWidget* title = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* tag = bare_label(texts.tag, false, false);
    gtk_widget_set_valign(tag, GTK_ALIGN_START);
    gtk_widget_set_margin_top(tag, 2);
    gtk_box_pack_start(GTK_BOX(title), tag, FALSE, FALSE, 0);
    GtkWidget* exp = gtk_expander_new(nullptr);
    gtk_expander_set_label_widget(GTK_EXPANDER(exp), bare_label(texts.subject, true, true));
    GtkWidget* body = bare_label(texts.body, true, true);
    gtk_label_set_selectable(GTK_LABEL(body), TRUE);
    set_margins(body, 6, 0, 6, 2);
    gtk_container_add(GTK_CONTAINER(exp), body);
    gtk_box_pack_start(GTK_BOX(title), exp, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(card), title, FALSE, FALSE, 0);

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* meta = bare_label(texts.meta, true, false);
    gtk_label_set_ellipsize(GTK_LABEL(meta), PANGO_ELLIPSIZE_END);
    gtk_box_pack_start(GTK_BOX(row), meta, TRUE, TRUE, 0);
    GtkWidget* hash = bare_label(texts.hash, false, false);
    gtk_widget_set_valign(hash, GTK_ALIGN_CENTER);
    gtk_box_pack_end(GTK_BOX(row), hash, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(card), row, FALSE, FALSE, 0);
    return card;
}

/// What stands in the list while a load runs.
inline GtkWidget* bare_loading() {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 10);
    gtk_widget_set_halign(row, GTK_ALIGN_CENTER);
    GtkWidget* spinner = gtk_spinner_new();
    gtk_spinner_start(GTK_SPINNER(spinner));
    gtk_box_pack_start(GTK_BOX(row), spinner, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(row), bare_label("Loading changes …", false, false), FALSE, FALSE, 0);
    return row;
}

/// A changes window of bare widgets: header, toolbar, list and buttons, the list empty.
struct BareChanges {
    GtkWidget* window;
    GtkWidget* subtitle;
    GtkWidget* status;
    GtkWidget* combo;
    GtkWidget* refresh;
    GtkWidget* list;
    GtkWidget* link;
};

inline GtkWidget* bare_header(const char* title, const char* subtitle, GtkWidget** subtitle_label) {
    GtkWidget* hdr = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 14);
    GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 48, 56);
    gdk_pixbuf_fill(pixbuf, 0x00000080);
    gtk_box_pack_start(GTK_BOX(hdr), gtk_image_new_from_pixbuf(pixbuf), FALSE, FALSE, 0);
    g_object_unref(pixbuf);
    GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    gtk_widget_set_valign(texts, GTK_ALIGN_CENTER);
    gtk_box_pack_start(GTK_BOX(texts), bare_label(title, true, false), FALSE, FALSE, 0);
    *subtitle_label = bare_label(subtitle, true, true);
    gtk_box_pack_start(GTK_BOX(texts), *subtitle_label, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(hdr), texts, TRUE, TRUE, 0);
    return hdr;
}

inline GtkWidget* bare_combo() {
    GtkWidget* combo = gtk_combo_box_text_new();
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "mainline", "Mainline");
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "stable", "Stable");
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "longterm", "Longterm");
    gtk_combo_box_set_active_id(GTK_COMBO_BOX(combo), "stable");
    return combo;
}

inline BareChanges bare_changes() {
    BareChanges bare{};
    bare.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(bare.window), 780, 660);
    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(bare.window), vbox);
    gtk_box_pack_start(GTK_BOX(vbox), bare_header("Latest Kernel Changes", "stable", &bare.subtitle), FALSE, FALSE, 0);

    GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    bare.status = bare_label("", true, false);
    gtk_label_set_ellipsize(GTK_LABEL(bare.status), PANGO_ELLIPSIZE_END);
    gtk_box_pack_start(GTK_BOX(bar), bare.status, TRUE, TRUE, 0);
    bare.refresh = gtk_button_new_with_label("Refresh");
    gtk_box_pack_end(GTK_BOX(bar), bare.refresh, FALSE, FALSE, 0);
    bare.combo = bare_combo();
    gtk_box_pack_end(GTK_BOX(bar), bare.combo, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(vbox), bar, FALSE, FALSE, 0);

    GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
    bare.list = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    set_margins(bare.list, 0, 0, 6, 6);
    gtk_container_add(GTK_CONTAINER(scroll), bare.list);
    gtk_box_pack_start(GTK_BOX(vbox), scroll, TRUE, TRUE, 0);

    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 14, 14, 8, 10);
    bare.link = gtk_link_button_new_with_label(VELDRIN_RELEASE_SITE, "Open the full changelog on Kernhaven");
    gtk_widget_set_halign(bare.link, GTK_ALIGN_START);
    gtk_widget_set_no_show_all(bare.link, TRUE);
    gtk_box_pack_start(GTK_BOX(btn_box), bare.link, FALSE, FALSE, 0);
    gtk_box_pack_end(GTK_BOX(btn_box), gtk_button_new_with_label("Close"), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(vbox), btn_box, FALSE, FALSE, 0);
    return bare;
}

inline GtkWidget* bare_row(const char* key, GtkWidget* value) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* label = bare_label(key, true, false);
    gtk_widget_set_size_request(label, 100, -1);
    gtk_box_pack_start(GTK_BOX(row), label, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(row), value, TRUE, TRUE, 0);
    return row;
}

inline GtkWidget* bare_value(const char* text) {
    GtkWidget* label = bare_label(text, true, false);
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    return label;
}

inline GtkWidget* bare_titled_card(GtkWidget* col, const char* title) {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_box_pack_start(GTK_BOX(card), bare_label(title, true, false), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(col), card, FALSE, FALSE, 0);
    return card;
}

/// Shows a new overview window of bare widgets. As in ours, the chosen channel's badge comes last.
inline GtkWidget* show_bare_overview() {
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window), 470, -1);
    gtk_window_set_resizable(GTK_WINDOW(window), FALSE);
    gtk_window_set_type_hint(GTK_WINDOW(window), GDK_WINDOW_TYPE_HINT_DIALOG);
    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(window), vbox);
    GtkWidget* subtitle = nullptr;
    gtk_box_pack_start(GTK_BOX(vbox), bare_header("Veldrin", "Linux kernel overview", &subtitle), FALSE, FALSE, 0);
    GtkWidget* col = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    set_margins(col, 16, 16, 14, 8);
    gtk_box_pack_start(GTK_BOX(vbox), col, FALSE, FALSE, 0);

    GtkWidget* card = bare_titled_card(col, "SHOWN IN PANEL");
    gtk_box_pack_start(GTK_BOX(card), bare_row("Channel", bare_combo()), FALSE, FALSE, 0);
    const char* hint = "This channel's version is what the tray shows, and it is preselected in Latest Changes.";
    gtk_box_pack_start(GTK_BOX(card), bare_label(hint, true, true), FALSE, FALSE, 0);

    card = bare_titled_card(col, "YOUR SYSTEM");
    gtk_box_pack_start(GTK_BOX(card), bare_row("Running", bare_value("7.2.4-bench")), FALSE, FALSE, 0);

    card = bare_titled_card(col, "KERNHAVEN");
    GtkWidget* chosen = nullptr;
    for (const char* channel : {"Mainline", "Stable", "Longterm"}) {
        GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
        gtk_box_pack_start(GTK_BOX(row), bare_row(channel, bare_value("7.2.4")), TRUE, TRUE, 0);
        GtkWidget* badge = bare_label("panel", false, false);
        gtk_widget_set_valign(badge, GTK_ALIGN_CENTER);
        gtk_widget_set_no_show_all(badge, TRUE);
        if (std::string_view(channel) == "Stable") chosen = badge;
        gtk_box_pack_end(GTK_BOX(row), badge, FALSE, FALSE, 0);
        gtk_box_pack_start(GTK_BOX(card), row, FALSE, FALSE, 0);
    }
    GtkWidget* link = gtk_link_button_new_with_label(VELDRIN_RELEASE_SITE, "www.kernel.org");
    gtk_widget_set_halign(link, GTK_ALIGN_START);
    gtk_box_pack_start(GTK_BOX(card), link, FALSE, FALSE, 0);

    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 16, 16, 0, 12);
    gtk_box_pack_end(GTK_BOX(btn_box), gtk_button_new_with_label("Close"), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(vbox), btn_box, FALSE, FALSE, 0);
    gtk_widget_show_all(window);
    gtk_widget_show(chosen);
    return window;
}
