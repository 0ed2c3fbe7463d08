// SPDX-License-Identifier: MIT
// When a frame is painted, by the clock on the wall, for the benchmarks. Main thread only.
#pragma once

#include <gtk/gtk.h>

#include <time.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using Clock = std::chrono::steady_clock;

inline double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// Returns the milliseconds that this thread has worked. What other programs do shows in it only little.
inline double worked() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

/// Runs the main loop until `done`, or ends the process when that takes a minute.
inline void run_until(const std::function<bool()>& done) {
    const auto give_up = +[](gpointer) -> gboolean {
        std::fprintf(stderr, "nothing is drawn\n");
        std::exit(1);
    };
    const guint patience = g_timeout_add_seconds(60, give_up, nullptr);
    while (!done()) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(patience);
}

/// Runs the main loop until it has nothing left to do for a while.
inline void settle() {
    for (Clock::time_point idle = Clock::now(); since(idle) < 60;) {
        if (g_main_context_iteration(nullptr, FALSE)) idle = Clock::now();
    }
}

inline gboolean on_draw(GtkWidget*, cairo_t*, gpointer drawn) {
    *static_cast<bool*>(drawn) = true;
    return FALSE;
}

/// Runs the main loop until the frame in which `window` is drawn is painted.
inline void wait_for_frame(GtkWidget* window) {
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

inline double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// The fastest round is the one that other programs disturbed least.
inline double least(const std::vector<double>& values) {
    return *std::ranges::min_element(values);
}

inline const char* verdict(bool met) {
    return met ? "met" : "MISSED";
}
