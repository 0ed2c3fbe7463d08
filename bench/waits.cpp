// SPDX-License-Identifier: MIT
// Times what a user waits for: from the click on Refresh until the frame with the commits is painted, the site asked by
// the real wget. Beside it, in turn with it, the same two wgets behind a window of bare widgets that does the same with
// the same texts, and the two alone. bench/waits sets the site up and runs this.
//
//   bench_waits VERSION ROUNDS      prints the milliseconds of each round: ours, the bare window's, the wgets' alone
#include "bare.h"
#include "changes_window.cpp"
#include "frames.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

/// Reads all that a command line prints, as the program does.
size_t read_command(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) std::exit(1);
    std::string text;
    char part[65536];
    while (const size_t count = fread(part, 1, sizeof part, pipe)) text.append(part, count);
    pclose(pipe);
    return text.size();
}

/// The same addresses as the program asks.
void read_site(const std::string& version) {
    const std::string major = version.substr(0, version.find('.'));
    const std::string wget = "wget -qO- --timeout=15 '";
    const std::string index = wget + VELDRIN_RELEASE_SITE "releases.json' 2>/dev/null";
    const std::string text =
        wget + VELDRIN_RELEASE_CDN "pub/linux/kernel/v" + major + ".x/ChangeLog-" + version + "' 2>/dev/null";
    if (read_command(index) > 0 && read_command(text) > 0) return;
    std::fprintf(stderr, "the site does not answer\n");
    std::exit(1);
}

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

void empty(GtkWidget* list) {
    gtk_container_foreach(
        GTK_CONTAINER(list), [](GtkWidget* child, gpointer) { gtk_widget_destroy(child); }, nullptr);
}

void show_loading(const BareChanges& bare) {
    gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  loading …");
    empty(bare.list);
    gtk_widget_set_sensitive(bare.refresh, FALSE);
    gtk_widget_set_sensitive(bare.combo, FALSE);
    gtk_widget_hide(bare.link);
    gtk_label_set_text(GTK_LABEL(bare.status), "Contacting Kernhaven …");
    gtk_box_pack_start(GTK_BOX(bare.list), bare_loading(), FALSE, FALSE, 0);
    gtk_widget_show_all(bare.list);
}

void show_loaded(const BareChanges& bare, const std::vector<CardTexts>& cards) {
    empty(bare.list);
    gtk_widget_set_sensitive(bare.refresh, TRUE);
    gtk_widget_set_sensitive(bare.combo, TRUE);
    for (const CardTexts& card : cards) gtk_box_pack_start(GTK_BOX(bare.list), bare_card(card), FALSE, FALSE, 0);
    gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  7.2.4  ·  released 2026-09-11");
    gtk_label_set_text(GTK_LABEL(bare.status), "400 changes");
    gtk_widget_show(bare.link);
    gtk_widget_show_all(bare.list);
}

double time_bare(const std::string& version, const std::vector<CardTexts>& cards) {
    const BareChanges bare = bare_changes();
    gtk_widget_show_all(bare.window);
    show_loaded(bare, cards);
    settle();

    const Clock::time_point start = Clock::now();
    show_loading(bare);
    bool loaded = false;
    std::thread load([&version, &loaded] {
        read_site(version);
        const auto on_loaded = +[](gpointer done) -> gboolean {
            *static_cast<bool*>(done) = true;
            return G_SOURCE_REMOVE;
        };
        g_idle_add(on_loaded, &loaded);
    });
    run_until([&loaded] { return loaded; });
    show_loaded(bare, cards);
    wait_for_frame(bare.window);
    const double time = since(start);

    load.join();
    gtk_widget_destroy(bare.window);
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
    const ChangeLog log = fetch_changelog("stable", state.stable);
    std::vector<CardTexts> cards;
    std::vector<std::string> metas(log.entries.size());
    for (size_t i = 0; i < log.entries.size(); ++i) {
        const ChangeEntry& e = log.entries[i];
        metas[i] = author_name(e.author) + "  ·  " + e.date;
        cards.push_back({"net", e.subject.c_str(), e.body.c_str(), metas[i].c_str(), e.id.c_str()});
    }
    show_changes_window(state);
    wait_for_load();
    for (int round = 0; round < std::atoi(argv[2]); ++round) {
        settle();
        const double ours = time_refresh();
        std::printf("%.2f %.2f %.2f\n", ours, time_bare(state.stable, cards), time_alone(state.stable));
    }
    return log.success ? 0 : 1;
}
