// SPDX-License-Identifier: MIT
// The look that the windows share: one stylesheet, and the small widgets that are made of it. Owns the stylesheet's
// provider. Main thread only; knows nothing of kernels but the names of the channels.
#pragma once

#include <gtk/gtk.h>

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
