// SPDX-License-Identifier: MIT
// The small pieces that the windows share beside those of the theme: labels for texts of any length and any bytes,
// boxes and margins, the way in which a window is closed. Inline functions that own nothing. Main thread only; knows
// nothing of what the windows show.
#pragma once

#include <gtk/gtk.h>

#include <algorithm>
#include <memory>
#include <string>

// ---- Texts from outside ---------------------------------------------------------------------------------------------

struct FreeText {
    void operator()(gchar* text) const { g_free(text); }
};
/// A text that GLib made.
using Text = std::unique_ptr<gchar, FreeText>;

/// Returns `text` as GTK can show it, whatever its bytes are: an old author's name may be in any encoding.
inline Text valid_utf8(const std::string& text) {
    return Text(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

/// Returns `text`, which is UTF-8, or its start with dots behind it if it has a second line or is far longer than any
/// version or name. A window that grows with such a text could become larger than a display can take, which ends the
/// program.
inline std::string excerpt_of(const char* text) {
    constexpr glong LONGEST = 500;
    const auto ends_line = [](gunichar c) {
        const GUnicodeBreakType type = g_unichar_break_type(c);
        return type == G_UNICODE_BREAK_LINE_FEED || type == G_UNICODE_BREAK_CARRIAGE_RETURN ||
               type == G_UNICODE_BREAK_NEXT_LINE || type == G_UNICODE_BREAK_MANDATORY;
    };
    const char* end = text;
    while (*end && !ends_line(g_utf8_get_char(end))) end = g_utf8_next_char(end);
    const glong length = g_utf8_strlen(text, end - text);
    if (!*end && length <= LONGEST) return text;
    end = g_utf8_offset_to_pointer(text, std::min(length, LONGEST - 1));
    return std::string(text, end) + "…";
}

/// Shows the excerpt of `text`, which is UTF-8, in a label that has its style already. One that is still too wide for a
/// window ends in dots, and a label that wraps breaks words first.
inline void show_excerpt(GtkLabel* label, const char* text) {
    constexpr int WIDEST = 750;
    constexpr int LINES = 10;
    const std::string excerpt = excerpt_of(text);
    gtk_label_set_text(label, excerpt.c_str());
    gtk_label_set_ellipsize(label, PANGO_ELLIPSIZE_NONE);

    PangoLayout* layout = gtk_widget_create_pango_layout(GTK_WIDGET(label), excerpt.c_str());
    int width = 0;
    pango_layout_get_pixel_size(layout, &width, nullptr);
    g_object_unref(layout);
    if (width <= WIDEST) return;
    gtk_label_set_ellipsize(label, PANGO_ELLIPSIZE_END);
    gtk_label_set_line_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
    gtk_label_set_lines(label, gtk_label_get_line_wrap(label) ? LINES : 1);
}

// ---- Labels ---------------------------------------------------------------------------------------------------------

/// Returns a new label of the style class `css_class` that shows `text`, whatever its bytes are.
inline GtkWidget* styled_label(const std::string& text, const char* css_class) {
    GtkWidget* label = gtk_label_new(valid_utf8(text).get());
    gtk_style_context_add_class(gtk_widget_get_style_context(label), css_class);
    return label;
}

/// Returns the same at the left of the space that it gets.
inline GtkWidget* left_label(const std::string& text, const char* css_class) {
    GtkWidget* label = styled_label(text, css_class);
    gtk_label_set_xalign(GTK_LABEL(label), 0.0);
    return label;
}

/// Returns the same with lines that wrap.
inline GtkWidget* wrapped_label(const std::string& text, const char* css_class) {
    GtkWidget* label = left_label(text, css_class);
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    return label;
}

// ---- Places ---------------------------------------------------------------------------------------------------------

/// Sets the space around a widget, in pixels.
inline void set_margins(GtkWidget* widget, int start, int end, int top, int bottom) {
    gtk_widget_set_margin_start(widget, start);
    gtk_widget_set_margin_end(widget, end);
    gtk_widget_set_margin_top(widget, top);
    gtk_widget_set_margin_bottom(widget, bottom);
}

/// Packs `child` at the start of `box`, in its natural size.
inline void pack(GtkWidget* box, GtkWidget* child) {
    gtk_box_pack_start(GTK_BOX(box), child, FALSE, FALSE, 0);
}

/// Packs `child` at the start of `box`, in all the space that is left.
inline void pack_filling(GtkWidget* box, GtkWidget* child) {
    gtk_box_pack_start(GTK_BOX(box), child, TRUE, TRUE, 0);
}

/// Packs `child` at the end of `box`, in its natural size.
inline void pack_at_end(GtkWidget* box, GtkWidget* child) {
    gtk_box_pack_end(GTK_BOX(box), child, FALSE, FALSE, 0);
}

/// Returns a new scrolled window around `content`.
inline GtkWidget* scrolled(GtkWidget* content) {
    GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroll), GTK_POLICY_AUTOMATIC, GTK_POLICY_AUTOMATIC);
    gtk_container_add(GTK_CONTAINER(scroll), content);
    return scroll;
}

// ---- The end of a window --------------------------------------------------------------------------------------------

/// Returns a new button "Close", which destroys `window`.
inline GtkWidget* close_button(GtkWidget* window) {
    GtkWidget* button = gtk_button_new_with_label("Close");
    g_signal_connect_swapped(button, "clicked", G_CALLBACK(gtk_widget_destroy), window);
    return button;
}

/// The handler of a window's "delete-event": what the window manager asks to close is destroyed.
inline gboolean destroy_on_delete(GtkWidget* window, GdkEvent*, gpointer) {
    gtk_widget_destroy(window);
    return TRUE;
}
