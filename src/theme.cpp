// SPDX-License-Identifier: MIT
// The stylesheet first, then the functions in the order of the header.
#include "theme.h"

#include "state.h"
#include "tux_rgba.h"
#include "widgets.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace {

// Of two rules of equal weight the later one wins: a badge's colour stands behind .badge, a card's kind behind
// .commit-card.
constexpr char APP_CSS[] = R"css(
@define-color acc_mainline #d97706;
@define-color acc_stable #15803d;
@define-color acc_longterm #1d4ed8;
@define-color acc_system #4f46e5;

/* header */
.hdr { padding: 14px 18px; }
.hdr.acc-mainline { background-image: linear-gradient(120deg, shade(@acc_mainline,0.85), @acc_mainline); }
.hdr.acc-stable { background-image: linear-gradient(120deg, shade(@acc_stable,0.85),   @acc_stable); }
.hdr.acc-longterm { background-image: linear-gradient(120deg, shade(@acc_longterm,0.85), @acc_longterm); }
.hdr.acc-system { background-image: linear-gradient(120deg, shade(@acc_system,0.85),   @acc_system); }
.hdr-title { color: #ffffff; font-size: 17px; font-weight: bold; }
.hdr-subtitle { color: alpha(#ffffff, 0.85); font-size: 12px; }

/* surfaces */
.card {
  background-color: alpha(@theme_fg_color, 0.05);
  border: 1px solid alpha(@theme_fg_color, 0.10);
  border-radius: 10px;
  padding: 12px 14px;
}
.commit-card {
  background-color: alpha(@theme_fg_color, 0.04);
  border-radius: 8px;
  border-left: 3px solid alpha(@theme_fg_color, 0.25);
  padding: 9px 12px;
}
.commit-card.is-merge { border-left-color: #7c3aed; }
.commit-card.is-fix { border-left-color: #dc2626; }
.commit-card.is-release { border-left-color: #15803d; }
.toolbar {
  background-color: alpha(@theme_fg_color, 0.03);
  border-bottom: 1px solid alpha(@theme_fg_color, 0.10);
  padding: 8px 14px;
}

/* text */
.section { font-size: 11px; font-weight: bold; letter-spacing: 1px; color: alpha(@theme_fg_color, 0.55); }
.key { font-size: 12px; color: alpha(@theme_fg_color, 0.62); }
.val { font-size: 12px; font-weight: bold; }
.val-strong { font-size: 14px; font-weight: bold; }
.note { font-size: 11px; font-style: italic; color: alpha(@theme_fg_color, 0.55); }
.mono { font-size: 11px; font-family: monospace; }
.subject { font-size: 13px; font-weight: bold; }
.meta { font-size: 11px; color: alpha(@theme_fg_color, 0.50); }
.status { font-size: 12px; color: alpha(@theme_fg_color, 0.70); }
.error-text { font-size: 12px; }

/* badges */
.badge {
  font-size: 10px; font-weight: bold;
  padding: 2px 8px; border-radius: 9px;
  color: #ffffff;
  background-color: alpha(@theme_fg_color, 0.45);
}
.badge-green { background-color: #15803d; }
.badge-blue { background-color: #1d4ed8; }
.badge-amber { background-color: #d97706; }
.badge-red { background-color: #dc2626; }
.badge-purple { background-color: #7c3aed; }
.badge-gray { background-color: alpha(@theme_fg_color, 0.38); }
.badge-hash {
  font-family: monospace; font-size: 10px;
  padding: 2px 7px; border-radius: 5px;
  color: alpha(@theme_fg_color, 0.75);
  background-color: alpha(@theme_fg_color, 0.10);
}
.tag { font-size: 10px; font-weight: bold; padding: 2px 8px; border-radius: 9px; color: #ffffff; }
.tag-0 { background-color: #0e7490; }
.tag-1 { background-color: #b45309; }
.tag-2 { background-color: #7c3aed; }
.tag-3 { background-color: #be185d; }
.tag-4 { background-color: #15803d; }
.tag-5 { background-color: #1d4ed8; }
.tag-6 { background-color: #a16207; }
.tag-7 { background-color: #0f766e; }

/* list */
treeview.view { font-size: 12px; }
treeview.view:selected { background-color: @acc_system; color: #ffffff; }
treeview header button { font-size: 11px; font-weight: bold; padding: 4px 6px; }
)css";

/// The accent of each channel's header, in the order of CHANNELS.
constexpr auto CHANNEL_ACCENTS = std::to_array({"acc-mainline", "acc-stable", "acc-longterm"});
static_assert(CHANNEL_ACCENTS.size() == CHANNELS.size(), "every channel has an accent");
static_assert(std::ranges::all_of(CHANNEL_ACCENTS,
                                  [](std::string_view accent) {
                                      return std::string_view(APP_CSS).find(accent) != std::string_view::npos;
                                  }),
              "every accent has a rule");
constexpr char SYSTEM_ACCENT[] = "acc-system";

constexpr char SUBTITLE_KEY[] = "subtitle-label";

/// Returns a new image of the seated penguin, or null.
GtkWidget* penguin() {
    GdkPixbuf* pixbuf = gdk_pixbuf_new_from_data(tux_info_rgba, GDK_COLORSPACE_RGB, TRUE, 8, TUX_INFO_W, TUX_INFO_H,
                                                 TUX_INFO_W * 4, nullptr, nullptr);
    if (!pixbuf) return nullptr;
    GtkWidget* image = gtk_image_new_from_pixbuf(pixbuf);
    g_object_unref(pixbuf);
    gtk_widget_set_valign(image, GTK_ALIGN_CENTER);
    return image;
}

/// Registers a stylesheet on a screen. GTK's default style from before there were stylesheets, which no widget here
/// reads, does not learn of it: GTK would compute that style twice for each window, a fifth of the window's opening.
void add_provider(GdkScreen* screen, GtkStyleProvider* provider) {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GtkStyle* old_style = gtk_widget_get_default_style();
    G_GNUC_END_IGNORE_DEPRECATIONS
    GtkStyleContext* context = nullptr;
    g_object_get(old_style, "context", &context, nullptr);

    g_signal_handlers_block_matched(context, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, old_style);
    gtk_style_context_add_provider_for_screen(screen, provider, GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_signal_handlers_unblock_matched(context, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, old_style);
    g_object_unref(context);
}

}  // namespace

void theme_apply(GtkWidget* window) {
    static GtkCssProvider* provider = nullptr;
    if (!provider) {
        provider = gtk_css_provider_new();
        gtk_css_provider_load_from_data(provider, APP_CSS, -1, nullptr);
    }
    add_provider(gtk_window_get_screen(GTK_WINDOW(window)), GTK_STYLE_PROVIDER(provider));
}

void theme_add_class(GtkWidget* w, const char* cls) {
    gtk_style_context_add_class(gtk_widget_get_style_context(w), cls);
}

const char* theme_channel_class(const std::string& channel) {
    return CHANNEL_ACCENTS[channel_index(channel)];
}

const char* theme_tag_class(const std::string& subsystem) {
    static constexpr const char* classes[] = {"tag-0", "tag-1", "tag-2", "tag-3", "tag-4", "tag-5", "tag-6", "tag-7"};
    // FNV-1a of 32 bits.
    std::uint32_t h = 0x811c9dc5;
    for (const char c : subsystem) h = (h ^ static_cast<unsigned char>(c)) * 0x1000193U;
    return classes[h & 7];
}

GtkWidget* theme_card() {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    theme_add_class(card, "card");
    return card;
}

GtkWidget* theme_badge(const std::string& text, const char* css_class) {
    GtkWidget* badge = gtk_label_new(text.c_str());
    theme_add_class(badge, "badge");
    if (css_class) theme_add_class(badge, css_class);
    gtk_widget_set_valign(badge, GTK_ALIGN_CENTER);
    gtk_widget_set_halign(badge, GTK_ALIGN_START);
    return badge;
}

GtkWidget* theme_header(const char* title, const char* subtitle, const char* accent_class) {
    GtkWidget* hdr = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 14);
    theme_add_class(hdr, "hdr");
    theme_add_class(hdr, accent_class);
    if (GtkWidget* image = penguin()) pack(hdr, image);

    GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    gtk_widget_set_valign(texts, GTK_ALIGN_CENTER);
    GtkWidget* t = left_label(title, "hdr-title");
    pack(texts, t);
    GtkWidget* s = left_label("", "hdr-subtitle");
    gtk_label_set_line_wrap(GTK_LABEL(s), TRUE);
    show_excerpt(GTK_LABEL(s), subtitle ? subtitle : "");
    pack(texts, s);
    pack_filling(hdr, texts);

    g_object_set_data(G_OBJECT(hdr), SUBTITLE_KEY, s);
    return hdr;
}

void theme_header_set_subtitle(GtkWidget* header, const char* subtitle) {
    auto* label = static_cast<GtkLabel*>(g_object_get_data(G_OBJECT(header), SUBTITLE_KEY));
    if (label) show_excerpt(label, subtitle ? subtitle : "");
}

void theme_header_set_accent(GtkWidget* header, const char* accent_class) {
    GtkStyleContext* context = gtk_widget_get_style_context(header);
    for (const char* accent : CHANNEL_ACCENTS) gtk_style_context_remove_class(context, accent);
    gtk_style_context_remove_class(context, SYSTEM_ACCENT);
    gtk_style_context_add_class(context, accent_class);
}
