// The look that the windows share: one stylesheet, and the small widgets that are made of it. Owns the stylesheet's
// provider. Main thread only; knows nothing of kernels but the names of the channels.
#pragma once

#include <gtk/gtk.h>

#include <algorithm>
#include <string>

/// Makes the stylesheet active on the screen of `window`, a GtkWindow. Once for each window that opens, before its
/// children are built.
void theme_apply(GtkWidget* window);

/// Adds the style class `cls` to `w`. Neither may be null.
void theme_add_class(GtkWidget* w, const char* cls);

/// Returns the accent class of a channel, a static text; what is no channel has that of stable.
const char* theme_channel_class(const std::string& channel);

/// Returns the colour class of a subsystem's tag, a static text, always the same for the same bytes.
const char* theme_tag_class(const std::string& subsystem);

/// Returns `text`, which is UTF-8, or the start of one that has more than a line or is far longer than a version or a
/// name ever is: a window that grows with its texts would become larger than a display can take, which ends the program.
inline std::string theme_excerpt(const char* text) {
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

/// Shows the excerpt of `text`, which is UTF-8, in a label that has its style already. Where even that is wider than a
/// window should become by it, the label gives way: it ends in dots, one that wraps after breaking words, too.
inline void theme_show_excerpt(GtkLabel* label, const char* text) {
    constexpr int WIDEST = 750;
    constexpr int LINES = 10;
    const std::string excerpt = theme_excerpt(text);
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

/// Returns a new vertical box that looks like a card.
GtkWidget* theme_card();

/// Returns a new pill-shaped label. `css_class` gives its colour; null leaves it neutral.
GtkWidget* theme_badge(const std::string& text, const char* css_class);

/// Returns a new header band with the penguin. `title` and `accent_class` must not be null; a null `subtitle` is empty.
GtkWidget* theme_header(const char* title, const char* subtitle, const char* accent_class);

/// Changes the subtitle of a header band; null empties it. Another widget is left alone.
void theme_header_set_subtitle(GtkWidget* header, const char* subtitle);

/// Changes the colour of a header band to that of `accent_class`.
void theme_header_set_accent(GtkWidget* header, const char* accent_class);
