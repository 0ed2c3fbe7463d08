// SPDX-License-Identifier: MIT
// Times the windows from the call that fills them to their first drawn frame, and beside each, in turn with it, bare
// GTK widgets of the same classes, in the same shape and with the same texts, but without stylesheet, classes and work
// on strings. Then watches the memory of a window that loads again and again.
//
//   bench_windows [ROUNDS]      on a display, such as that of tests/gui/with-display; 15 rounds by default
#include "bare.h"
#include "changes_window.cpp"
#include "frames.h"
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
