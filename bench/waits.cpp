// SPDX-License-Identifier: MIT
// Times what a user waits for: from the click on Refresh until the frame with the commits is painted, the site asked by
// the real wget. Beside it, in turn with it, the same two wgets behind a window of bare widgets that does the same with
// the same texts, and the two alone. bench/waits sets the site up and runs this.
//
//   bench_waits VERSION ROUNDS      prints the milliseconds of each round: ours, the bare window's, the wgets' alone
#include "bare_load.h"
#include "changes_window.cpp"
#include "frames.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void wait_for_load() {
    while (!gtk_widget_get_sensitive(changes_refresh)) g_main_context_iteration(nullptr, TRUE);
    wait_for_frame(changes_win);
}

double time_refresh() {
    const Clock::time_point start = Clock::now();
    gtk_button_clicked(GTK_BUTTON(changes_refresh));
    wait_for_load();
    return since(start);
}

double time_bare(const BareTexts& texts) {
    BareLoad load{bare_changes(), &texts, false};
    GtkWidget* window = load.bare.window;
    gtk_widget_show_all(window);
    show_loaded(load.bare, texts);
    settle();

    const Clock::time_point start = Clock::now();
    start_bare_load(load);
    run_until([&load] { return load.shown; });
    wait_for_frame(window);
    const double time = since(start);

    gtk_widget_destroy(window);
    settle();
    return time;
}

double time_alone(const std::string& version) {
    const Clock::time_point start = Clock::now();
    read_site(version);
    return since(start);
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    if (argc != 3) return 2;
    AppState state;
    state.channel = "stable";
    state.stable = argv[1];
    const BareTexts texts = texts_of(state.stable);
    show_changes_window(state);
    wait_for_load();
    for (int round = 0; round < std::atoi(argv[2]); ++round) {
        settle();
        const double ours = time_refresh();
        std::printf("%.2f %.2f %.2f\n", ours, time_bare(texts), time_alone(state.stable));
    }
    return texts.log.success ? 0 : 1;
}
