// SPDX-License-Identifier: MIT
// The rows and cards from the top of the window to its bottom, with the channel's selector among them, and last the
// window around them.
#include "info_window.h"

#include "kernel_checker.h"
#include "sites.h"
#include "theme.h"
#include "widgets.h"

#include <gtk/gtk.h>
#include <array>
#include <string>

namespace {

constexpr auto CHANNEL_IDS = [] {
    std::array<const char*, CHANNELS.size()> ids{};
    for (size_t i = 0; i < ids.size(); ++i) ids[i] = CHANNELS[i].id;
    return ids;
}();

constexpr char CONTEXT_KEY[] = "channel-ctx";
constexpr char BADGE_KEY[] = "panel-badge";

/// What the channel's selector needs when it changes. The selector owns it.
struct ChannelCtx {
    AppState* state;
    void (*on_channel_changed)();
    GtkWidget* rows[CHANNELS.size()];  ///< Each channel's row in the release card, borrowed.
};

GtkWidget* info_win = nullptr;
GtkWidget* info_header = nullptr;

GtkWidget* key_label(const char* key) {
    GtkWidget* label = left_label(key, "key");
    gtk_widget_set_size_request(label, 100, -1);
    return label;
}

GtkWidget* card_with_title(const char* title) {
    GtkWidget* card = theme_card();
    pack(card, left_label(title, "section"));
    return card;
}

GtkWidget* kv_row(const char* key, const std::string& value, const char* value_class) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* name = key_label(key);
    pack(row, name);
    GtkWidget* text = left_label("", value_class);
    // A version may come from a damaged state file.
    show_excerpt(GTK_LABEL(text), valid_utf8(value).get());
    gtk_label_set_selectable(GTK_LABEL(text), TRUE);
    // So a screen reader says whose value it reads.
    gtk_label_set_mnemonic_widget(GTK_LABEL(name), text);
    pack_filling(row, text);
    return row;
}

/// Shows the badge on the chosen channel's row alone; on none for what is no channel.
void mark_active_channel(ChannelCtx* ctx) {
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
        if (!ctx->rows[i]) continue;
        auto* badge = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(ctx->rows[i]), BADGE_KEY));
        if (badge) gtk_widget_set_visible(badge, ctx->state->channel == CHANNEL_IDS[i]);
    }
}

void on_channel_combo_changed(GtkComboBox* combo, gpointer data) {
    auto* ctx = static_cast<ChannelCtx*>(data);
    const gchar* id = gtk_combo_box_get_active_id(combo);
    if (!id) return;
    ctx->state->channel = id;
    if (info_header) theme_header_set_accent(info_header, theme_channel_class(id));
    mark_active_channel(ctx);
    if (ctx->on_channel_changed) ctx->on_channel_changed();
}

GtkWidget* channel_combo(ChannelCtx* ctx) {
    GtkWidget* combo = gtk_combo_box_text_new();
    for (const Channel& channel : CHANNELS) {
        gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), channel.id, channel.name);
    }
    gtk_combo_box_set_active_id(GTK_COMBO_BOX(combo), ctx->state->channel.c_str());
    g_object_set_data_full(G_OBJECT(combo), CONTEXT_KEY, ctx,
                           [](gpointer owned) { delete static_cast<ChannelCtx*>(owned); });
    g_signal_connect(combo, "changed", G_CALLBACK(on_channel_combo_changed), ctx);
    return combo;
}

GtkWidget* panel_card(ChannelCtx* ctx) {
    GtkWidget* card = card_with_title("SHOWN IN PANEL");
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* key = key_label("Channel");
    pack(row, key);
    GtkWidget* combo = channel_combo(ctx);
    pack_filling(row, combo);
    // So a screen reader says what the selector is for.
    gtk_label_set_mnemonic_widget(GTK_LABEL(key), combo);
    pack(card, row);

    pack(card, wrapped_label("This channel's version is what the tray shows, and it is preselected in Latest Changes.",
                             "note"));
    return card;
}

GtkWidget* system_card(const std::string& running) {
    GtkWidget* card = card_with_title("YOUR SYSTEM");
    pack(card, kv_row("Running", running, "val-strong"));
    return card;
}

GtkWidget* version_row(const char* channel_name, const std::string& version) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    pack_filling(row, kv_row(channel_name, version.empty() ? "…" : version, "val"));
    GtkWidget* badge = theme_badge("panel", "badge-green");
    gtk_widget_set_no_show_all(badge, TRUE);
    pack_at_end(row, badge);
    g_object_set_data(G_OBJECT(row), BADGE_KEY, badge);
    return row;
}

GtkWidget* releases_card(ChannelCtx* ctx) {
    GtkWidget* card = card_with_title("KERNHAVEN");
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
        ctx->rows[i] = version_row(CHANNELS[i].name, ctx->state->*CHANNELS[i].version);
        pack(card, ctx->rows[i]);
    }
    GtkWidget* link =
        gtk_link_button_new_with_label(VELDRIN_RELEASE_SITE, std::string(host_of(VELDRIN_RELEASE_SITE)).c_str());
    gtk_widget_set_halign(link, GTK_ALIGN_START);
    pack(card, link);
    return card;
}

GtkWidget* buttons(GtkWidget* window) {
    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 16, 16, 0, 12);
    pack_at_end(btn_box, close_button(window));
    return btn_box;
}

void on_destroy(GtkWidget*, gpointer) {
    info_win = nullptr;
    info_header = nullptr;
}

}  // namespace

void show_info_window(AppState& state, void (*on_channel_changed)()) {
    if (info_win) {
        gtk_window_present(GTK_WINDOW(info_win));
        return;
    }
    const std::string running = get_running_kernel();

    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "Settings");
    gtk_window_set_default_size(GTK_WINDOW(window), 470, -1);
    gtk_window_set_resizable(GTK_WINDOW(window), FALSE);
    gtk_window_set_position(GTK_WINDOW(window), GTK_WIN_POS_CENTER);
    gtk_window_set_type_hint(GTK_WINDOW(window), GDK_WINDOW_TYPE_HINT_DIALOG);
    theme_apply(window);

    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(window), vbox);
    info_header = theme_header("Veldrin", "Linux kernel overview", theme_channel_class(state.channel));
    pack(vbox, info_header);

    GtkWidget* col = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    set_margins(col, 16, 16, 14, 8);
    pack(vbox, col);

    auto* ctx = new ChannelCtx{&state, on_channel_changed, {}};
    pack(col, panel_card(ctx));
    pack(col, system_card(running));
    pack(col, releases_card(ctx));
    pack(vbox, buttons(window));

    g_signal_connect(window, "delete-event", G_CALLBACK(destroy_on_delete), nullptr);
    g_signal_connect(window, "destroy", G_CALLBACK(on_destroy), nullptr);
    gtk_widget_show_all(window);
    mark_active_channel(ctx);
    info_win = window;
}

void close_info_window() {
    if (!info_win) return;
    gtk_widget_destroy(info_win);
    info_win = nullptr;
}
