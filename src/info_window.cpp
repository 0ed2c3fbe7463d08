#include "info_window.h"

#include "kernel_checker.h"
#include "sites.h"
#include "theme.h"

#include <gtk/gtk.h>
#include <string>

namespace {

constexpr const char* CHANNEL_IDS[] = {"mainline", "stable", "longterm"};
constexpr const char* CHANNEL_NAMES[] = {"Mainline", "Stable", "Longterm"};
constexpr size_t CHANNELS = 3;

constexpr char CONTEXT_KEY[] = "channel-ctx";
constexpr char BADGE_KEY[] = "panel-badge";

/// What the channel's selector works on; belongs to the selector.
struct ChannelCtx {
    AppState* state;
    void (*on_channel_changed)();
    GtkWidget* rows[CHANNELS];  ///< Each channel's row in the release card, borrowed.
};

GtkWidget* info_win = nullptr;
GtkWidget* info_header = nullptr;

GtkWidget* left_label(const char* text, const char* css_class) {
    GtkWidget* label = gtk_label_new(text);
    gtk_label_set_xalign(GTK_LABEL(label), 0.0);
    theme_add_class(label, css_class);
    return label;
}

GtkWidget* key_label(const char* key) {
    GtkWidget* label = left_label(key, "key");
    gtk_widget_set_size_request(label, 100, -1);
    return label;
}

GtkWidget* card_with_title(const char* title) {
    GtkWidget* card = theme_card();
    gtk_box_pack_start(GTK_BOX(card), left_label(title, "section"), FALSE, FALSE, 0);
    return card;
}

GtkWidget* kv_row(const char* key, const std::string& value, const char* value_class) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* name = key_label(key);
    gtk_box_pack_start(GTK_BOX(row), name, FALSE, FALSE, 0);
    GtkWidget* text = left_label("", value_class);
    // A version may come from a damaged state file.
    gchar* valid = g_utf8_make_valid(value.data(), static_cast<gssize>(value.size()));
    theme_show_excerpt(GTK_LABEL(text), valid);
    g_free(valid);
    gtk_label_set_selectable(GTK_LABEL(text), TRUE);
    // So a screen reader says whose value it reads.
    gtk_label_set_mnemonic_widget(GTK_LABEL(name), text);
    gtk_box_pack_start(GTK_BOX(row), text, TRUE, TRUE, 0);
    return row;
}

/// Shows the badge on the chosen channel's row alone; on none for what is no channel.
void mark_active_channel(ChannelCtx* ctx) {
    for (size_t i = 0; i < CHANNELS; ++i) {
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
    for (size_t i = 0; i < CHANNELS; ++i) {
        gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), CHANNEL_IDS[i], CHANNEL_NAMES[i]);
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
    gtk_box_pack_start(GTK_BOX(row), key, FALSE, FALSE, 0);
    GtkWidget* combo = channel_combo(ctx);
    gtk_box_pack_start(GTK_BOX(row), combo, TRUE, TRUE, 0);
    // So a screen reader says what the selector is for.
    gtk_label_set_mnemonic_widget(GTK_LABEL(key), combo);
    gtk_box_pack_start(GTK_BOX(card), row, FALSE, FALSE, 0);

    GtkWidget* hint =
        left_label("This channel's version is what the tray shows, and it is preselected in Latest Changes.", "note");
    gtk_label_set_line_wrap(GTK_LABEL(hint), TRUE);
    gtk_box_pack_start(GTK_BOX(card), hint, FALSE, FALSE, 0);
    return card;
}

GtkWidget* system_card(const std::string& running) {
    GtkWidget* card = card_with_title("YOUR SYSTEM");
    gtk_box_pack_start(GTK_BOX(card), kv_row("Running", running, "val-strong"), FALSE, FALSE, 0);
    return card;
}

GtkWidget* version_row(const char* channel_name, const std::string& version) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    gtk_box_pack_start(GTK_BOX(row), kv_row(channel_name, version.empty() ? "…" : version, "val"), TRUE, TRUE, 0);
    GtkWidget* badge = theme_badge("panel", "badge-green");
    gtk_widget_set_no_show_all(badge, TRUE);
    gtk_box_pack_end(GTK_BOX(row), badge, FALSE, FALSE, 0);
    g_object_set_data(G_OBJECT(row), BADGE_KEY, badge);
    return row;
}

GtkWidget* releases_card(ChannelCtx* ctx) {
    GtkWidget* card = card_with_title("KERNHAVEN");
    const std::string* versions[] = {&ctx->state->mainline, &ctx->state->stable, &ctx->state->longterm};
    for (size_t i = 0; i < CHANNELS; ++i) {
        ctx->rows[i] = version_row(CHANNEL_NAMES[i], *versions[i]);
        gtk_box_pack_start(GTK_BOX(card), ctx->rows[i], FALSE, FALSE, 0);
    }
    GtkWidget* link =
        gtk_link_button_new_with_label(VELDRIN_RELEASE_SITE, std::string(host_of(VELDRIN_RELEASE_SITE)).c_str());
    gtk_widget_set_halign(link, GTK_ALIGN_START);
    gtk_box_pack_start(GTK_BOX(card), link, FALSE, FALSE, 0);
    return card;
}

GtkWidget* buttons(GtkWidget* window) {
    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_widget_set_margin_start(btn_box, 16);
    gtk_widget_set_margin_end(btn_box, 16);
    gtk_widget_set_margin_bottom(btn_box, 12);
    GtkWidget* close = gtk_button_new_with_label("Close");
    g_signal_connect_swapped(close, "clicked", G_CALLBACK(gtk_widget_destroy), window);
    gtk_box_pack_end(GTK_BOX(btn_box), close, FALSE, FALSE, 0);
    return btn_box;
}

gboolean on_delete(GtkWidget* window, GdkEvent*, gpointer) {
    gtk_widget_destroy(window);
    return TRUE;
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
    gtk_box_pack_start(GTK_BOX(vbox), info_header, FALSE, FALSE, 0);

    GtkWidget* col = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    gtk_widget_set_margin_start(col, 16);
    gtk_widget_set_margin_end(col, 16);
    gtk_widget_set_margin_top(col, 14);
    gtk_widget_set_margin_bottom(col, 8);
    gtk_box_pack_start(GTK_BOX(vbox), col, FALSE, FALSE, 0);

    auto* ctx = new ChannelCtx{&state, on_channel_changed, {}};
    gtk_box_pack_start(GTK_BOX(col), panel_card(ctx), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(col), system_card(running), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(col), releases_card(ctx), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(vbox), buttons(window), FALSE, FALSE, 0);

    g_signal_connect(window, "delete-event", G_CALLBACK(on_delete), nullptr);
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
