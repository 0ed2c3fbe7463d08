// SPDX-License-Identifier: MIT
// What the lists of the system window cost, against their length over three decades: the loaded modules, the installed
// kernels, the parameters of a module. Ends with 1 where a cost grows faster than the list, or where the longest list
// that a machine has makes a user wait.
//
//   bench_growth [ROUNDS]      on a display, such as that of tests/gui/with-display; 7 rounds by default
#include "frames.h"
#include "machine.h"
#include "system_window.cpp"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr double WINDOW_GOAL = 200;  // milliseconds
constexpr double KEY_GOAL = 16;
/// An entry of the longest list costs at most so many times what one of the last but one costs. What is linear stays
/// below one, since all have the window itself in them.
constexpr double GROWTH_GOAL = 1.2;
/// GTK's sorted model looks for each row that a filter changes one by one, so that a key is not linear.
constexpr double KEY_GROWTH_GOAL = 2;
constexpr size_t SIZES[] = {1, 10, 100, 1000};

int g_rounds = 7;

void show_modules() {
    gtk_notebook_set_current_page(GTK_NOTEBOOK(gtk_widget_get_ancestor(g_mod_pane, GTK_TYPE_NOTEBOOK)), 1);
}

double open_window() {
    const double start = worked();
    show_system_window();
    wait_for_frame(system_win);
    return worked() - start;
}

void close_window() {
    settle();
    close_system_window();
    settle();
}

/// The window with so many modules, until it is painted with their table.
double open_with_modules(size_t count) {
    g_loaded = many_modules(count);
    const double start = worked();
    show_system_window();
    show_modules();
    wait_for_frame(system_win);
    const double time = worked() - start;
    close_window();
    return time;
}

/// One letter in the filter over so many modules, which a third of them lose by.
double filter_modules(size_t count) {
    g_loaded = many_modules(count);
    open_window();
    show_modules();
    wait_for_frame(system_win);
    settle();
    int at = 0;
    const double start = worked();
    gtk_editable_insert_text(GTK_EDITABLE(g_search), "r", 1, &at);
    const double time = worked() - start;
    close_window();
    return time;
}

double open_with_kernels(size_t count) {
    g_loaded = many_modules(3);
    const std::vector<InstalledKernel> usual = g_installed;
    g_installed.clear();
    for (size_t i = 0; i < count; ++i) g_installed.push_back({"7.2." + std::to_string(i), i == 0, true, true});
    const double time = open_window();
    close_window();
    g_installed = usual;
    return time;
}

/// The choice of a module that has so many parameters, until they are painted.
double choose_with_parameters(size_t count) {
    g_loaded = many_modules(3);
    g_parameters.clear();
    for (size_t i = 0; i < count; ++i) g_parameters.emplace_back("parameter_" + std::to_string(i), "Y");
    open_window();
    show_modules();
    wait_for_frame(system_win);
    settle();
    GtkTreePath* first = gtk_tree_path_new_first();
    const double start = worked();
    gtk_tree_selection_select_path(g_selection, first);
    wait_for_frame(system_win);
    const double time = worked() - start;
    gtk_tree_path_free(first);
    close_window();
    return time;
}

struct Growth {
    const char* name;
    std::function<double(size_t)> time;
    size_t real;  ///< At least the length of the longest that a machine has.
    double goal;  ///< How long that one may take, in milliseconds.
    double growth_goal = GROWTH_GOAL;
};

bool measure(const Growth& growth) {
    bool met = true;
    std::vector<double> each;
    growth.time(SIZES[0]);  // fonts and themes
    for (const size_t size : SIZES) {
        std::vector<double> times;
        for (int round = 0; round < g_rounds; ++round) times.push_back(growth.time(size));
        const double time = least(times);
        each.push_back(time / static_cast<double>(size));
        std::printf("%-34s %7zu %9.2f ms %9.1f us", growth.name, size, time, each.back() * 1000);
        if (size == growth.real) {
            met = time <= growth.goal;
            std::printf("  %.0f ms at most: %s", growth.goal, verdict(met));
        }
        std::printf("\n");
    }
    const double ratio = each.back() / each[each.size() - 2];
    const bool linear = ratio <= growth.growth_goal;
    std::printf("%-34s an entry of the longest to one of the last but one %.2f, %.1f at most: %s\n", "", ratio,
                growth.growth_goal, verdict(linear));
    return met && linear;
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    if (argc > 1) g_rounds = std::atoi(argv[1]);
    if (g_rounds < 1) return 2;
    std::printf("%-34s %7s %12s %12s\n", "", "entries", "time", "an entry");
    const Growth everything[] = {
        {"modules: the window", open_with_modules, 1000, WINDOW_GOAL},
        {"modules: a key in the filter", filter_modules, 1000, KEY_GOAL, KEY_GROWTH_GOAL},
        {"installed kernels: the window", open_with_kernels, 100, WINDOW_GOAL},
        {"parameters: the choice of a module", choose_with_parameters, 1000, WINDOW_GOAL},
    };
    bool met = true;
    for (const Growth& growth : everything) met &= measure(growth);
    return met ? 0 : 1;
}
