// SPDX-License-Identifier: MIT
// A load of the changes in a window of bare widgets: the same two wgets as the program's, and the same texts, which are
// made beforehand. Main thread only, but for the reading of the site.
#pragma once

#include "bare.h"
#include "kernel_checker.h"
#include "sites.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

/// What the cards show. They point into the rest.
struct BareTexts {
    ChangeLog log;
    std::vector<std::string> metas;
    std::vector<CardTexts> cards;
};

/// Asks the site for the texts of its stable release `version`, whose subjects all begin with "net/route: ".
inline BareTexts texts_of(const std::string& version) {
    BareTexts texts;
    texts.log = fetch_changelog("stable", version);
    for (const ChangeEntry& e : texts.log.entries) {
        texts.metas.push_back(e.author.substr(0, e.author.find(" <")) + "  ·  " + e.date);
    }
    for (size_t i = 0; i < texts.metas.size(); ++i) {
        const ChangeEntry& e = texts.log.entries[i];
        const char* subject = e.subject.c_str() + e.subject.find(' ') + 1;
        texts.cards.push_back({"net/route", subject, e.body.c_str(), texts.metas[i].c_str(), e.id.c_str()});
    }
    return texts;
}

/// Reads all that a command line prints, as the program does. Returns how much that is.
inline size_t read_command(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) std::exit(1);
    std::string text;
    char part[65536];
    while (const size_t count = fread(part, 1, sizeof part, pipe)) text.append(part, count);
    pclose(pipe);
    return text.size();
}

/// Asks for the same addresses as the program.
inline void read_site(const std::string& version) {
    const std::string major = version.substr(0, version.find('.'));
    const std::string wget = "wget -qO- --timeout=15 '";
    const std::string index = wget + VELDRIN_RELEASE_SITE "releases.json' 2>/dev/null";
    const std::string text =
        wget + VELDRIN_RELEASE_CDN "pub/linux/kernel/v" + major + ".x/ChangeLog-" + version + "' 2>/dev/null";
    if (read_command(index) > 0 && read_command(text) > 0) return;
    std::fprintf(stderr, "the site does not answer\n");
    std::exit(1);
}

inline void empty(GtkWidget* list) {
    gtk_container_foreach(
        GTK_CONTAINER(list), [](GtkWidget* child, gpointer) { gtk_widget_destroy(child); }, nullptr);
}

inline void show_loading(const BareChanges& bare) {
    gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  loading …");
    empty(bare.list);
    gtk_widget_set_sensitive(bare.refresh, FALSE);
    gtk_widget_set_sensitive(bare.combo, FALSE);
    gtk_widget_hide(bare.link);
    gtk_label_set_text(GTK_LABEL(bare.status), "Contacting Kernhaven …");
    gtk_box_pack_start(GTK_BOX(bare.list), bare_loading(), FALSE, FALSE, 0);
    gtk_widget_show_all(bare.list);
}

inline void show_loaded(const BareChanges& bare, const BareTexts& texts) {
    empty(bare.list);
    gtk_widget_set_sensitive(bare.refresh, TRUE);
    gtk_widget_set_sensitive(bare.combo, TRUE);
    for (const CardTexts& card : texts.cards) gtk_box_pack_start(GTK_BOX(bare.list), bare_card(card), FALSE, FALSE, 0);
    gtk_label_set_text(GTK_LABEL(bare.subtitle), "stable  ·  7.2.4  ·  released 2026-09-11");
    gtk_label_set_text(GTK_LABEL(bare.status), "400 changes");
    gtk_widget_show(bare.link);
    gtk_widget_show_all(bare.list);
}

struct BareLoad {
    BareChanges bare;
    const BareTexts* texts;
    bool shown;
};

/// Loads `load.texts` into `load.bare`, and then sets `load.shown`. The load must live until then.
inline void start_bare_load(BareLoad& load) {
    show_loading(load.bare);
    load.shown = false;
    std::thread([&load] {
        read_site(load.texts->log.version);
        const auto on_loaded = +[](gpointer data) -> gboolean {
            auto* loaded = static_cast<BareLoad*>(data);
            show_loaded(loaded->bare, *loaded->texts);
            loaded->shown = true;
            return G_SOURCE_REMOVE;
        };
        g_idle_add(on_loaded, &load);
    }).detach();
}
