// SPDX-License-Identifier: MIT
// Times the windows from the call that fills them to their first drawn frame, and beside each, in turn with it, bare
// GTK widgets of the same classes, in the same shape and with the same texts, but without stylesheet, classes and work
// on strings. Then watches the memory of a window that loads again and again.
//
//   bench_windows [ROUNDS]      on a display, such as that of tests/gui/with-display; 15 rounds by default
#include "changes_window.cpp"
#include "info_window.h"

#include <malloc.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

ChangeLog fetch_changelog(const std::string&, const std::string&) {
    return {};
}

std::string get_running_kernel() {
    return "7.2.4-bench";
}

namespace {

constexpr int CARDS = 400;
constexpr int BODY_LINES = 20;
constexpr int LOADS = 100;
constexpr int WARM_UP = 10;

ChangeLog long_changelog() {
    ChangeLog log;
    log.channel = "stable";
    log.version = "7.2.4";
    log.released = "2026-09-11";
    log.web_url = VELDRIN_RELEASE_SITE;
    log.success = true;
    for (int i = 0; i < CARDS; ++i) {
        ChangeEntry e;
        const std::string number = std::to_string(100000 + i);
        e.id = "0123456" + number.substr(1);
        e.author = "Ada Quill <ada@quill.example>";
        e.date = "Fri Sep 11 15:04:00 2026 +0200";
        e.subject = "net/route" + std::to_string(i % 40) + ": fix use-after-free in path " + number;
        for (int line = 0; line < BODY_LINES; ++line) {
            if (line) e.body += '\n';
            e.body += "The count is read before the lock is taken, so that two callers can see " + number;
        }
        log.entries.push_back(std::move(e));
    }
    log.total_found = CARDS;
    return log;
}

// ---- The reference: bare widgets in the shape of the windows --------------------------------------------------------

struct CardTexts {
    const char* tag;
    const char* subject;
    const char* body;
    const char* meta;
    const char* hash;
};

GtkWidget* bare_label(const char* text, bool left, bool wrap) {
    GtkWidget* label = gtk_label_new(text);
    if (left) gtk_label_set_xalign(GTK_LABEL(label), 0.0);
    if (wrap) gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    return label;
}

GtkWidget* bare_card(const CardTexts& texts) {
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

/// A changes window of bare widgets: header, toolbar, list and buttons, the list empty.
struct BareChanges {
    GtkWidget* window;
    GtkWidget* subtitle;
    GtkWidget* status;
    GtkWidget* list;
    GtkWidget* link;
};

GtkWidget* bare_header(const char* title, const char* subtitle, GtkWidget** subtitle_label) {
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

GtkWidget* bare_combo() {
    GtkWidget* combo = gtk_combo_box_text_new();
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "mainline", "Mainline");
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "stable", "Stable");
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(combo), "longterm", "Longterm");
    gtk_combo_box_set_active_id(GTK_COMBO_BOX(combo), "stable");
    return combo;
}

BareChanges bare_changes() {
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
    gtk_box_pack_end(GTK_BOX(bar), gtk_button_new_with_label("Refresh"), FALSE, FALSE, 0);
    gtk_box_pack_end(GTK_BOX(bar), bare_combo(), FALSE, FALSE, 0);
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

GtkWidget* bare_row(const char* key, GtkWidget* value) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* label = bare_label(key, true, false);
    gtk_widget_set_size_request(label, 100, -1);
    gtk_box_pack_start(GTK_BOX(row), label, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(row), value, TRUE, TRUE, 0);
    return row;
}

GtkWidget* bare_value(const char* text) {
    GtkWidget* label = bare_label(text, true, false);
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    return label;
}

GtkWidget* bare_titled_card(GtkWidget* col, const char* title) {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_box_pack_start(GTK_BOX(card), bare_label(title, true, false), FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(col), card, FALSE, FALSE, 0);
    return card;
}

/// The overview window of bare widgets, not yet shown.
GtkWidget* bare_overview() {
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
    for (const char* channel : {"Mainline", "Stable", "Longterm"}) {
        GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
        gtk_box_pack_start(GTK_BOX(row), bare_row(channel, bare_value("7.2.4")), TRUE, TRUE, 0);
        GtkWidget* badge = bare_label("panel", false, false);
        gtk_widget_set_valign(badge, GTK_ALIGN_CENTER);
        gtk_widget_set_no_show_all(badge, TRUE);
        gtk_widget_set_visible(badge, std::string_view(channel) == "Stable");
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
    return window;
}

// ---- Clock and frames -----------------------------------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// Runs the main loop until `done`, or ends the process when that takes a minute.
void run_until(const std::function<bool()>& done) {
    const Clock::time_point start = Clock::now();
    while (!done()) {
        if (since(start) > 60'000) {
            std::fprintf(stderr, "bench_windows: nothing is drawn\n");
            std::exit(1);
        }
        g_main_context_iteration(nullptr, FALSE);
    }
}

/// Runs the main loop until it has nothing left to do for a while.
void settle() {
    for (Clock::time_point idle = Clock::now(); since(idle) < 60;) {
        if (g_main_context_iteration(nullptr, FALSE)) idle = Clock::now();
    }
}

gboolean on_draw(GtkWidget*, cairo_t*, gpointer drawn) {
    *static_cast<bool*>(drawn) = true;
    return FALSE;
}

/// Runs the main loop until the frame in which `window` is drawn is painted.
void wait_for_frame(GtkWidget* window) {
    bool drawn = false;
    bool painted = false;
    struct Both {
        bool* drawn;
        bool* painted;
    } both{&drawn, &painted};
    gtk_widget_realize(window);
    GdkFrameClock* frames = gtk_widget_get_frame_clock(window);
    const gulong draw = g_signal_connect_after(window, "draw", G_CALLBACK(on_draw), &drawn);
    const auto after_paint = +[](GdkFrameClock*, gpointer data) {
        auto* seen = static_cast<Both*>(data);
        *seen->painted = *seen->drawn;
    };
    const gulong paint = g_signal_connect(frames, "after-paint", G_CALLBACK(after_paint), &both);
    run_until([&] { return painted; });
    g_signal_handler_disconnect(window, draw);
    g_signal_handler_disconnect(frames, paint);
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

void print_row(const char* name, const std::vector<double>& ours, const std::vector<double>& reference) {
    std::printf("%-34s %8.1f ms %8.1f ms %6.2f\n", name, median(ours), median(reference),
                median(ours) / median(reference));
}

// ---- The measurements -----------------------------------------------------------------------------------------------

struct Timed {
    double built;  ///< until the call was back
    double drawn;  ///< until the frame was painted
};

Timed time_list(const ChangeLog& log) {
    auto result = std::make_unique<LoadResult>(LoadResult{g_request, log});
    const Clock::time_point start = Clock::now();
    apply_result(result.release());
    const double built = since(start);
    wait_for_frame(changes_win);
    return {built, since(start)};
}

Timed time_bare_list(BareChanges& bare, const std::vector<CardTexts>& texts) {
    const Clock::time_point start = Clock::now();
    for (const CardTexts& card : texts) gtk_box_pack_start(GTK_BOX(bare.list), bare_card(card), FALSE, FALSE, 0);
    gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  7.2.4  ·  released 2026-09-11");
    gtk_label_set_text(GTK_LABEL(bare.status), "400 changes");
    gtk_widget_show(bare.link);
    gtk_widget_show_all(bare.list);
    const double built = since(start);
    wait_for_frame(bare.window);
    return {built, since(start)};
}

void compare_lists(int rounds, const AppState& state) {
    const ChangeLog log = long_changelog();
    std::vector<std::string> strings;
    strings.reserve(log.entries.size() * 3);
    std::vector<CardTexts> texts;
    for (const ChangeEntry& e : log.entries) {
        std::string tag;
        std::string rest;
        split_subject(e.subject, tag, rest);
        const char* tag_text = strings.emplace_back(tag).c_str();
        const char* subject = strings.emplace_back(rest).c_str();
        const char* meta = strings.emplace_back(author_name(e.author) + "  ·  " + e.date).c_str();
        texts.push_back({tag_text, subject, e.body.c_str(), meta, e.id.c_str()});
    }

    std::vector<double> ours_built, ours_drawn, bare_built, bare_drawn;
    for (int round = 0; round < rounds; ++round) {
        show_changes_window(state);
        settle();
        const Timed ours = time_list(log);
        ours_built.push_back(ours.built);
        ours_drawn.push_back(ours.drawn);
        close_changes_window();
        settle();

        BareChanges bare = bare_changes();
        gtk_widget_show_all(bare.window);
        settle();
        const Timed reference = time_bare_list(bare, texts);
        bare_built.push_back(reference.built);
        bare_drawn.push_back(reference.drawn);
        gtk_widget_destroy(bare.window);
        settle();
    }
    print_row("400 cards, widgets made", ours_built, bare_built);
    print_row("400 cards, first frame drawn", ours_drawn, bare_drawn);
}

GtkWidget* newest_window() {
    GList* windows = gtk_window_list_toplevels();
    GtkWidget* found = nullptr;
    for (GList* at = windows; at; at = at->next) {
        if (gtk_widget_get_visible(GTK_WIDGET(at->data))) found = GTK_WIDGET(at->data);
    }
    g_list_free(windows);
    return found;
}

void compare_overviews(int rounds, AppState& state) {
    std::vector<double> ours_built, ours_drawn, bare_built, bare_drawn;
    for (int round = 0; round < rounds; ++round) {
        Clock::time_point start = Clock::now();
        show_info_window(state, nullptr);
        ours_built.push_back(since(start));
        wait_for_frame(newest_window());
        ours_drawn.push_back(since(start));
        close_info_window();
        settle();

        start = Clock::now();
        GtkWidget* bare = bare_overview();
        gtk_widget_show_all(bare);
        bare_built.push_back(since(start));
        wait_for_frame(bare);
        bare_drawn.push_back(since(start));
        gtk_widget_destroy(bare);
        settle();
    }
    print_row("overview, widgets made", ours_built, bare_built);
    print_row("overview, first frame drawn", ours_drawn, bare_drawn);
}

/// Bytes of this process that are in memory.
long resident() {
    std::ifstream statm("/proc/self/statm");
    long total = 0;
    long pages = 0;
    statm >> total >> pages;
    return pages * 4096;
}

void watch_memory(const AppState& state) {
    const ChangeLog log = long_changelog();
    show_changes_window(state);
    long resident_before = 0;
    size_t used_before = 0;
    for (int load = 1; load <= LOADS; ++load) {
        time_list(log);
        settle();
        if (load != WARM_UP && load != LOADS) continue;
        const size_t used = mallinfo2().uordblks + mallinfo2().hblkhd;
        const long now = resident();
        std::printf("load %3d: %7.1f MB resident, %7.1f MB allocated\n", load, static_cast<double>(now) / 1e6,
                    static_cast<double>(used) / 1e6);
        if (load == LOADS) {
            std::printf("growth:   %7.2f MB resident, %7.2f MB allocated\n",
                        static_cast<double>(now - resident_before) / 1e6,
                        (static_cast<double>(used) - static_cast<double>(used_before)) / 1e6);
        }
        resident_before = now;
        used_before = used;
    }
    close_changes_window();
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
    if (rounds < 1) return 2;
    AppState state;
    state.channel = "stable";
    state.mainline = state.stable = state.longterm = "7.2.4";

    std::printf("%-34s %11s %11s %6s\n", "", "Veldrin", "bare GTK", "times");
    compare_lists(rounds, state);
    compare_overviews(rounds, state);
    watch_memory(state);
    return 0;
}
