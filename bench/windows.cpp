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
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <tuple>
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
constexpr double LIST_GOAL = 1.1;
constexpr double OVERVIEW_GOAL = 1.3;

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

/// The milliseconds of one opening or filling: the thread's work until the call was back and until the first frame was
/// painted, and the time until then by the clock on the wall.
struct Timed {
    double made;
    double painted;
    double waited;
};

/// What each round took.
struct Comparison {
    std::vector<Timed> ours;
    std::vector<Timed> bare;
};

double median_of(const std::vector<Timed>& rounds, double Timed::*figure) {
    std::vector<double> values;
    for (const Timed& round : rounds) values.push_back(round.*figure);
    return median(values);
}

/// Prints a row for each figure. Returns whether both of the thread's work meet the goal.
bool print(const char* what, const Comparison& comparison, double goal) {
    bool all_met = true;
    for (const auto& [figure, name, has_goal] : {std::tuple{&Timed::made, "widgets made", true},
                                                 {&Timed::painted, "first frame painted", true},
                                                 {&Timed::waited, "the same by the clock", false}}) {
        const double ours = median_of(comparison.ours, figure);
        const double bare = median_of(comparison.bare, figure);
        std::printf("%-11s%-25s%8.1f ms %8.1f ms %6.2f", what, name, ours, bare, ours / bare);
        if (has_goal) {
            const bool met = ours / bare <= goal;
            std::printf("  %.1f at most: %s", goal, verdict(met));
            all_met &= met;
        }
        std::printf("\n");
    }
    return all_met;
}

// ---- The measurements -----------------------------------------------------------------------------------------------

/// Times `make`, which returns the window that it makes or fills.
Timed time_window(const std::function<GtkWidget*()>& make) {
    const Clock::time_point start = Clock::now();
    const double before = worked();
    GtkWidget* window = make();
    const double made = worked() - before;
    wait_for_frame(window);
    return {made, worked() - before, since(start)};
}

Timed time_list(const ChangeLog& log) {
    auto result = std::make_unique<LoadResult>(LoadResult{g_request, log});
    return time_window([&result] {
        apply_result(result.release());
        return changes_win;
    });
}

Timed time_bare_list(BareChanges& bare, const std::vector<CardTexts>& texts) {
    return time_window([&bare, &texts] {
        for (const CardTexts& card : texts) gtk_box_pack_start(GTK_BOX(bare.list), bare_card(card), FALSE, FALSE, 0);
        gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  7.2.4  ·  released 2026-09-11");
        gtk_label_set_text(GTK_LABEL(bare.status), "400 changes");
        gtk_widget_show(bare.link);
        gtk_widget_show_all(bare.list);
        return bare.window;
    });
}

bool compare_lists(int rounds, const AppState& state) {
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

    Comparison lists;
    for (int round = 0; round < rounds; ++round) {
        show_changes_window(state);
        settle();
        const Timed ours = time_list(log);
        close_changes_window();
        settle();

        BareChanges bare = bare_changes();
        gtk_widget_show_all(bare.window);
        settle();
        lists.ours.push_back(ours);
        lists.bare.push_back(time_bare_list(bare, texts));
        gtk_widget_destroy(bare.window);
        settle();
    }
    return print("400 cards", lists, LIST_GOAL);
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

bool compare_overviews(int rounds, AppState& state) {
    Comparison overviews;
    for (int round = 0; round < rounds; ++round) {
        const Timed ours = time_window([&state] {
            show_info_window(state, nullptr);
            return newest_window();
        });
        close_info_window();
        settle();

        GtkWidget* window = nullptr;
        const Timed bare = time_window([&window] {
            window = show_bare_overview();
            return window;
        });
        gtk_widget_destroy(window);
        settle();
        overviews.ours.push_back(ours);
        overviews.bare.push_back(bare);
    }
    return print("overview", overviews, OVERVIEW_GOAL);
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

    std::printf("%-36s%11s %11s %6s\n", "", "Veldrin", "bare GTK", "times");
    const bool lists_met = compare_lists(rounds, state);
    const bool overviews_met = compare_overviews(rounds, state);
    watch_memory(state);
    return lists_met && overviews_met ? 0 : 1;
}
