// SPDX-License-Identifier: MIT
// The cards of a release's commits and how a result is shown, then how a load starts, and last the window around them.
#include "changes_window.h"

#include "kernel_checker.h"
#include "sites.h"
#include "theme.h"
#include "widgets.h"

#include <gtk/gtk.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace {

constexpr char FOCUS_KEY[] = "focus";

GtkWidget* changes_win = nullptr;
GtkWidget* changes_header = nullptr;
GtkWidget* changes_body = nullptr;
GtkWidget* changes_status = nullptr;
GtkWidget* changes_combo = nullptr;
GtkWidget* changes_refresh = nullptr;
GtkWidget* changes_link = nullptr;

/// The stamp of the newest load. A result with an older one is stale.
std::atomic<unsigned int> g_request{0};

struct ChannelVersions {
    std::string mainline;
    std::string stable;
    std::string longterm;
};

/// The versions that the caller knew when the window was last asked for.
ChannelVersions g_known;

/// The members of ChannelVersions in the order of CHANNELS.
constexpr auto KNOWN_VERSIONS =
    std::to_array({&ChannelVersions::mainline, &ChannelVersions::stable, &ChannelVersions::longterm});
static_assert(KNOWN_VERSIONS.size() == CHANNELS.size(), "every channel has its known version");

/// What a load thread hands to the main loop.
struct LoadResult {
    unsigned int request;
    ChangeLog log;
};

std::string known_for(const std::string& channel) {
    return g_known.*KNOWN_VERSIONS[channel_index(channel)];
}

// ---- A release's commits --------------------------------------------------------------------------------------------

/// Returns the class of a commit's kind, a static text, or null for a commit like any other.
const char* card_kind_class(const ChangeEntry& e) {
    if (e.subject.starts_with("Linux ")) return "is-release";
    if (e.subject.starts_with("Merge ")) return "is-merge";
    // ASCII alone: in a Turkish locale, "I" is not the capital of "i".
    std::string lower = e.subject;
    std::ranges::transform(lower, lower.begin(), g_ascii_tolower);
    const bool mends = lower.find("fix") != std::string::npos || lower.find("revert") != std::string::npos;
    return mends ? "is-fix" : nullptr;
}

/// Splits the name of a subsystem, one word before a colon and a blank, off a subject. Without one, `tag` is empty and
/// `rest` all of the subject.
void split_subject(const std::string& subject, std::string& tag, std::string& rest) {
    constexpr size_t LONGEST_TAG = 28;
    tag.clear();
    rest = subject;
    const size_t colon = subject.find(": ");
    if (colon == std::string::npos || colon == 0 || colon > LONGEST_TAG) return;
    const std::string candidate = subject.substr(0, colon);
    if (candidate.find(' ') != std::string::npos) return;
    tag = candidate;
    rest = subject.substr(colon + 2);
}

/// Returns the name in an author's line, without the address.
std::string author_name(const std::string& author) {
    return author.substr(0, author.find(" <"));
}

/// Returns the head of a commit's card: the subject, as the head of an expander where there is a body to expand to.
GtkWidget* subject_or_expander(const std::string& subject, const std::string& text) {
    GtkWidget* subj = wrapped_label(subject, "subject");
    if (text.empty()) return subj;

    GtkWidget* exp = gtk_expander_new(nullptr);
    gtk_expander_set_label_widget(GTK_EXPANDER(exp), subj);
    GtkWidget* body = wrapped_label(text, "mono");
    gtk_label_set_selectable(GTK_LABEL(body), TRUE);
    set_margins(body, 6, 0, 6, 2);
    gtk_container_add(GTK_CONTAINER(exp), body);
    gtk_expander_set_expanded(GTK_EXPANDER(exp), FALSE);
    // Without this, the keyboard gets into what a closed expander hides.
    g_object_bind_property(exp, "expanded", body, "can-focus", G_BINDING_SYNC_CREATE);
    return exp;
}

GtkWidget* title_row(const ChangeEntry& e) {
    std::string tag;
    std::string rest;
    split_subject(e.subject, tag, rest);

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    if (!tag.empty()) {
        GtkWidget* t = styled_label(tag, "tag");
        theme_add_class(t, theme_tag_class(tag));
        gtk_widget_set_valign(t, GTK_ALIGN_START);
        gtk_widget_set_margin_top(t, 2);
        pack(row, t);
    }
    pack_filling(row, subject_or_expander(rest, e.body));
    return row;
}

/// Returns the line below: who and when on the left, the hash on the right.
GtkWidget* meta_row(const ChangeEntry& e) {
    std::string meta = author_name(e.author);
    if (!e.date.empty()) meta += (meta.empty() ? "" : "  ·  ") + e.date;

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    if (!meta.empty()) {
        GtkWidget* m = left_label(meta, "meta");
        gtk_label_set_ellipsize(GTK_LABEL(m), PANGO_ELLIPSIZE_END);
        pack_filling(row, m);
    }
    if (!e.id.empty()) {
        GtkWidget* h = styled_label(e.id, "badge-hash");
        gtk_widget_set_valign(h, GTK_ALIGN_CENTER);
        pack_at_end(row, h);
    }
    return row;
}

GtkWidget* build_entry_row(const ChangeEntry& e) {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    theme_add_class(card, "commit-card");
    if (const char* kind = card_kind_class(e)) theme_add_class(card, kind);
    set_margins(card, 14, 14, 4, 4);
    pack(card, title_row(e));
    pack(card, meta_row(e));
    return card;
}

GtkWidget* build_error_card(const std::string& error) {
    GtkWidget* card = theme_card();
    set_margins(card, 16, 16, 16, 0);
    pack(card, left_label("Could not load the changes", "val-strong"));
    GtkWidget* err = wrapped_label(error, "error-text");
    gtk_label_set_selectable(GTK_LABEL(err), TRUE);
    pack(card, err);
    return card;
}

void clear_body() {
    if (!changes_body) return;
    GList* children = gtk_container_get_children(GTK_CONTAINER(changes_body));
    for (GList* child = children; child; child = child->next) gtk_widget_destroy(GTK_WIDGET(child->data));
    g_list_free(children);
}

void show_changes(const ChangeLog& log) {
    for (const ChangeEntry& e : log.entries) {
        pack(changes_body, build_entry_row(e));
    }

    std::string sub = log.channel + "  ·  " + log.version;
    if (!log.released.empty()) sub += "  ·  released " + log.released;
    theme_header_set_subtitle(changes_header, valid_utf8(sub).get());

    std::string status = std::to_string(log.entries.size()) + " change";
    if (log.entries.size() != 1) status += 's';
    if (log.truncated) status += " shown of " + std::to_string(log.total_found) + " — list capped";
    gtk_label_set_text(GTK_LABEL(changes_status), status.c_str());

    if (log.web_url.empty()) {
        gtk_widget_hide(changes_link);
    } else {
        gtk_link_button_set_uri(GTK_LINK_BUTTON(changes_link), log.web_url.c_str());
        gtk_widget_show(changes_link);
    }
}

void show_failure(const ChangeLog& log) {
    pack(changes_body, build_error_card(log.error));
    gtk_label_set_text(GTK_LABEL(changes_status), "Nothing loaded.");
    theme_header_set_subtitle(changes_header, "no data");
    gtk_widget_hide(changes_link);
}

/// Gives the keyboard focus back to the control that had it when the load began, unless the user has moved it since.
void restore_focus() {
    auto* control = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(changes_win), FOCUS_KEY));
    if (!control || !gtk_widget_get_visible(control) || gtk_window_get_focus(GTK_WINDOW(changes_win))) return;
    gtk_widget_grab_focus(control);
}

/// Shows a load's result. `data` is a LoadResult on the heap, which is deleted here; a stale one is not shown.
gboolean apply_result(gpointer data) {
    const std::unique_ptr<LoadResult> res(static_cast<LoadResult*>(data));
    if (!changes_win || res->request != g_request) return G_SOURCE_REMOVE;

    clear_body();
    gtk_widget_set_sensitive(changes_refresh, TRUE);
    gtk_widget_set_sensitive(changes_combo, TRUE);
    if (res->log.success) {
        show_changes(res->log);
    } else {
        show_failure(res->log);
    }
    gtk_widget_show_all(changes_body);
    restore_focus();
    return G_SOURCE_REMOVE;
}

// ---- Loading --------------------------------------------------------------------------------------------------------

GtkWidget* loading_indicator() {
    GtkWidget* spinner_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 10);
    gtk_widget_set_halign(spinner_box, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_top(spinner_box, 40);
    GtkWidget* spinner = gtk_spinner_new();
    gtk_spinner_start(GTK_SPINNER(spinner));
    pack(spinner_box, spinner);
    pack(spinner_box, styled_label("Loading changes …", "status"));
    return spinner_box;
}

/// Starts a load of `channel` on a thread of its own, and shows that it runs.
void start_load(const std::string& channel, const std::string& known_version) {
    const unsigned int req = ++g_request;
    theme_header_set_accent(changes_header, theme_channel_class(channel));
    theme_header_set_subtitle(changes_header, valid_utf8(channel + "  ·  loading …").get());
    clear_body();
    // An insensitive control loses the focus for good: without this, every load would take it from the user.
    g_object_set_data(G_OBJECT(changes_win), FOCUS_KEY, gtk_window_get_focus(GTK_WINDOW(changes_win)));
    gtk_widget_set_sensitive(changes_refresh, FALSE);
    gtk_widget_set_sensitive(changes_combo, FALSE);
    gtk_widget_hide(changes_link);
    gtk_label_set_text(GTK_LABEL(changes_status), "Contacting Kernhaven …");
    pack(changes_body, loading_indicator());
    gtk_widget_show_all(changes_body);

    std::thread([req, channel, known_version] {
        g_idle_add(apply_result, new LoadResult{req, fetch_changelog(channel, known_version)});
    }).detach();
}

void load_selected(GtkComboBox* combo) {
    const gchar* id = gtk_combo_box_get_active_id(combo);
    if (id) start_load(id, known_for(id));
}

void on_combo_changed(GtkComboBox* combo, gpointer) {
    load_selected(combo);
}

void on_refresh(GtkButton*, gpointer) {
    load_selected(GTK_COMBO_BOX(changes_combo));
}

// ---- The window -----------------------------------------------------------------------------------------------------

/// Returns the strip with the status, the channel's selector and Refresh.
GtkWidget* toolbar() {
    GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    theme_add_class(bar, "toolbar");
    changes_status = left_label("", "status");
    gtk_label_set_ellipsize(GTK_LABEL(changes_status), PANGO_ELLIPSIZE_END);
    pack_filling(bar, changes_status);

    changes_refresh = gtk_button_new_with_label("Refresh");
    g_signal_connect(changes_refresh, "clicked", G_CALLBACK(on_refresh), nullptr);
    pack_at_end(bar, changes_refresh);

    changes_combo = gtk_combo_box_text_new();
    for (const auto& [id, name, version] : CHANNELS) {
        gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(changes_combo), id, name);
    }
    gtk_widget_set_tooltip_text(
        changes_combo,
        "Which channel to show. Preselected from Settings; changing it here does not change the panel label.");
    pack_at_end(bar, changes_combo);
    return bar;
}

GtkWidget* scrolled_body() {
    changes_body = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    set_margins(changes_body, 0, 0, 6, 6);
    return scrolled(changes_body);
}

/// Returns the row with the link to all of the changelog and Close.
GtkWidget* buttons(GtkWidget* window) {
    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 14, 14, 8, 10);
    changes_link = gtk_link_button_new_with_label(VELDRIN_RELEASE_SITE, "Open the full changelog on Kernhaven");
    gtk_widget_set_halign(changes_link, GTK_ALIGN_START);
    gtk_widget_set_no_show_all(changes_link, TRUE);
    pack(btn_box, changes_link);
    pack_at_end(btn_box, close_button(window));
    return btn_box;
}

void on_destroy(GtkWidget*, gpointer) {
    ++g_request;
    changes_win = nullptr;
    changes_header = nullptr;
    changes_body = nullptr;
    changes_status = nullptr;
    changes_combo = nullptr;
    changes_refresh = nullptr;
    changes_link = nullptr;
}

}  // namespace

void show_changes_window(const AppState& state) {
    for (size_t i = 0; i < CHANNELS.size(); ++i) g_known.*KNOWN_VERSIONS[i] = state.*CHANNELS[i].version;
    if (changes_win) {
        gtk_window_present(GTK_WINDOW(changes_win));
        return;
    }
    const std::string channel = state.channel.empty() ? "stable" : state.channel;

    GtkWidget* win = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(win), "Latest Kernel Changes");
    gtk_window_set_default_size(GTK_WINDOW(win), 780, 660);
    gtk_window_set_position(GTK_WINDOW(win), GTK_WIN_POS_CENTER);
    theme_apply(win);

    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(win), vbox);
    changes_header = theme_header("Latest Kernel Changes", "", theme_channel_class(channel));
    pack(vbox, changes_header);
    pack(vbox, toolbar());
    pack_filling(vbox, scrolled_body());
    pack(vbox, buttons(win));
    g_signal_connect(win, "delete-event", G_CALLBACK(destroy_on_delete), nullptr);
    g_signal_connect(win, "destroy", G_CALLBACK(on_destroy), nullptr);

    gtk_widget_show_all(win);
    changes_win = win;
    gtk_combo_box_set_active_id(GTK_COMBO_BOX(changes_combo), channel.c_str());
    g_signal_connect(changes_combo, "changed", G_CALLBACK(on_combo_changed), nullptr);
    start_load(channel, known_for(channel));
}

void close_changes_window() {
    if (!changes_win) return;
    gtk_widget_destroy(changes_win);
    changes_win = nullptr;
}
