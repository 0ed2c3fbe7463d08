// SPDX-License-Identifier: MIT
// Times the opening of the system window with its 300 modules, and beside it, in turn with it, bare GTK widgets of the
// same classes, in the same shape and with the same texts, but without stylesheet, classes and work on strings. Then
// types a word into the filter over 1,000 modules, letter by letter, and deletes it again.
//
//   bench_system [ROUNDS]      on a display, such as that of tests/gui/with-display; 15 rounds by default
#include "frames.h"
#include "machine.h"
#include "system_window.cpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr size_t OPENED_WITH = 300;
constexpr size_t FILTERED = 1000;
constexpr char TYPED[] = "Route_07";
constexpr double KEYSTROKE_GOAL = 16.0;
constexpr double OPENING_GOAL = 1.3;

// ---- The reference: bare widgets in the shape of the window ---------------------------------------------------------

GtkWidget* bare_label(const char* text, bool left, bool wrap) {
    GtkWidget* label = gtk_label_new(text);
    if (left) gtk_label_set_xalign(GTK_LABEL(label), 0.0);
    if (wrap) gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    return label;
}

GtkWidget* bare_value(const char* text) {
    GtkWidget* label = bare_label(text, true, true);
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 58);
    return label;
}

GtkWidget* bare_row(GtkWidget* card, const char* key, const char* value) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GtkWidget* label = bare_label(key, true, false);
    gtk_widget_set_size_request(label, 110, -1);
    pack(row, label);
    if (value) pack_filling(row, bare_value(value));
    pack(card, row);
    return row;
}

GtkWidget* bare_card(GtkWidget* col, const char* title) {
    GtkWidget* card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    pack(card, bare_label(title, true, false));
    pack(col, card);
    return card;
}

GtkWidget* bare_header(const char* title, const char* subtitle) {
    GtkWidget* hdr = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 14);
    GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 48, 56);
    gdk_pixbuf_fill(pixbuf, 0x00000080);
    pack(hdr, gtk_image_new_from_pixbuf(pixbuf));
    g_object_unref(pixbuf);
    GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    pack(texts, bare_label(title, true, false));
    pack(texts, bare_label(subtitle, true, true));
    pack_filling(hdr, texts);
    return hdr;
}

GtkWidget* bare_kernel(const char* version, const char* state) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* name = bare_label(version, true, false);
    gtk_label_set_selectable(GTK_LABEL(name), TRUE);
    gtk_widget_set_size_request(name, 260, -1);
    pack(row, name);
    pack(row, bare_label(state, false, false));
    return row;
}

GtkWidget* bare_system_tab() {
    GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
    GtkWidget* col = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    set_margins(col, 16, 16, 14, 16);

    GtkWidget* card = bare_card(col, "RUNNING KERNEL");
    GtkWidget* top = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 10);
    GtkWidget* version = bare_label("7.2.4-bench", true, false);
    gtk_label_set_selectable(GTK_LABEL(version), TRUE);
    pack(top, version);
    for (const char* text : {"x86_64", "SMP", "PREEMPT"}) pack(top, bare_label(text, false, false));
    pack(card, top);
    bare_row(card, "Built", "Mon Mar  2 10:11:12 UTC 2026");
    bare_row(card, "Built by", "ada@forge");
    bare_row(card, "Compiler", "gcc (Example 14.1) 14.1.0");
    bare_row(card, "Boot line", "root=/dev/vda2 ro quiet");

    card = bare_card(col, "SYSTEM");
    bare_row(card, "Distribution", "Example Linux 9");
    bare_row(card, "Hostname", "heron");
    bare_row(card, "Uptime", "3 days, 4 h 5 min");
    GtkWidget* counts = bare_row(card, "Modules", nullptr);
    pack(counts, bare_label("300 loaded", false, false));
    pack(counts, bare_label("225 in use", false, false));

    card = bare_card(col, "INSTALLED KERNELS");
    pack(card, bare_kernel("7.2.4-bench", "running"));
    pack(card, bare_kernel("7.2.3", "image + modules"));
    GtkWidget* expander = gtk_expander_new("1 module tree without a kernel image");
    GtkWidget* leftovers = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    pack(leftovers, bare_kernel("6.18.2", "modules only"));
    gtk_container_add(GTK_CONTAINER(expander), leftovers);
    pack(card, expander);
    gtk_container_add(GTK_CONTAINER(scroll), col);
    return scroll;
}

/// The table's models and columns are as they are in the window: a list, a filter over it, an order over that.
struct BareTable {
    GtkListStore* store;
    GtkTreeModel* filter;
    GtkWidget* view;
};

BareTable bare_table() {
    BareTable table{};
    table.store = gtk_list_store_new(COLUMNS, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_UINT64, G_TYPE_INT, G_TYPE_STRING,
                                     G_TYPE_STRING, G_TYPE_INT);
    table.filter = gtk_tree_model_filter_new(GTK_TREE_MODEL(table.store), nullptr);
    GtkTreeModel* sorted = gtk_tree_model_sort_new_with_model(table.filter);
    table.view = gtk_tree_view_new_with_model(sorted);
    g_object_unref(sorted);
    for (const auto& [title, column, least] : {std::tuple{"Module", NAME, 170},
                                               {"Size", SIZE_TEXT, 80},
                                               {"Used", REFCOUNT, 55},
                                               {"Used by", USED_BY, 220}}) {
        GtkCellRenderer* renderer = gtk_cell_renderer_text_new();
        GtkTreeViewColumn* made =
            gtk_tree_view_column_new_with_attributes(title, renderer, "text", static_cast<int>(column), nullptr);
        if (column == REFCOUNT) gtk_tree_view_column_add_attribute(made, renderer, "foreground", USED_FG);
        gtk_tree_view_column_set_sort_column_id(made, column);
        gtk_tree_view_column_set_resizable(made, TRUE);
        gtk_tree_view_column_set_min_width(made, least);
        gtk_tree_view_append_column(GTK_TREE_VIEW(table.view), made);
    }
    return table;
}

GtkWidget* bare_scrolled(GtkWidget* content) {
    GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_container_add(GTK_CONTAINER(scroll), content);
    return scroll;
}

/// The texts of a row, made beforehand.
struct RowTexts {
    std::string name;
    std::string size;
    std::string used_by;
    guint64 bytes;
    int refcount;
};

/// The system window of bare widgets, shown and filled.
GtkWidget* bare_window(const std::vector<RowTexts>& rows) {
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window), 820, 720);
    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(window), vbox);
    pack(vbox, bare_header("System & Kernel Modules", "7.2.4-bench  ·  Example Linux 9"));
    GtkWidget* notebook = gtk_notebook_new();
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), bare_system_tab(), gtk_label_new("System"));

    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    pack_filling(bar, gtk_entry_new());
    pack(bar, gtk_button_new_with_label("Reload"));
    pack(box, bar);
    GtkWidget* status = bare_label("", true, false);
    pack(box, status);
    GtkWidget* error = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* error_card = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    for (const char* text : {"no access", "", ""}) pack(error_card, bare_label(text, false, true));
    pack(error, error_card);
    pack_filling(box, error);
    const BareTable table = bare_table();
    GtkWidget* pane = gtk_paned_new(GTK_ORIENTATION_VERTICAL);
    gtk_paned_pack1(GTK_PANED(pane), bare_scrolled(table.view), TRUE, FALSE);
    GtkWidget* holder = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* details = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    set_margins(details, 12, 12, 10, 10);
    pack(details, bare_label("Select a module to see its details.", true, false));
    pack(holder, details);
    gtk_paned_pack2(GTK_PANED(pane), bare_scrolled(holder), FALSE, FALSE);
    gtk_paned_set_position(GTK_PANED(pane), 250);
    pack_filling(box, pane);
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), box, gtk_label_new("Modules"));
    pack_filling(vbox, notebook);

    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 14, 14, 8, 10);
    gtk_box_pack_end(GTK_BOX(btn_box), gtk_button_new_with_label("Close"), FALSE, FALSE, 0);
    pack(vbox, btn_box);
    gtk_widget_show_all(window);

    for (const RowTexts& row : rows) {
        gtk_list_store_insert_with_values(table.store, nullptr, -1, NAME, row.name.c_str(), SIZE_TEXT, row.size.c_str(),
                                          SIZE, row.bytes, REFCOUNT, row.refcount, USED_BY, row.used_by.c_str(),
                                          USED_FG, row.refcount ? USED_FG_ACTIVE : USED_FG_IDLE, INDEX, 0, -1);
    }
    gtk_label_set_text(GTK_LABEL(status), "300 of 300 modules  ·  225 in use");
    gtk_widget_hide(error);
    g_object_unref(table.filter);
    g_object_unref(table.store);
    return window;
}

// ---- The measurements -----------------------------------------------------------------------------------------------

/// Prints a row. Returns whether the goal is met.
bool print_opening(const char* name, const std::vector<double>& ours, const std::vector<double>& reference) {
    const double ratio = least(ours) / least(reference);
    const bool met = ratio <= OPENING_GOAL;
    std::printf("%-34s %8.1f ms %8.1f ms %6.2f  %.1f at most: %s\n", name, least(ours), least(reference), ratio,
                OPENING_GOAL, verdict(met));
    return met;
}

bool compare_openings(int rounds) {
    std::vector<RowTexts> rows;
    for (const KernelModule& m : many_modules(OPENED_WITH)) {
        rows.push_back({m.name, format_size(m.size), m.used_by, m.size, m.refcount});
    }
    std::vector<double> ours_built, ours_drawn, bare_built, bare_drawn;
    // The first round of each loads fonts and themes, and does not count.
    for (int round = 0; round <= rounds; ++round) {
        g_loaded = many_modules(OPENED_WITH);
        double start = worked();
        show_system_window();
        const double built = worked() - start;
        wait_for_frame(system_win);
        const double drawn = worked() - start;
        settle();
        close_system_window();
        settle();

        start = worked();
        GtkWidget* bare = bare_window(rows);
        const double reference_built = worked() - start;
        wait_for_frame(bare);
        const double reference_drawn = worked() - start;
        settle();
        gtk_widget_destroy(bare);
        settle();
        if (round == 0) continue;
        ours_built.push_back(built);
        ours_drawn.push_back(drawn);
        bare_built.push_back(reference_built);
        bare_drawn.push_back(reference_drawn);
    }
    const bool built_met = print_opening("300 modules, widgets made", ours_built, bare_built);
    return print_opening("300 modules, first frame drawn", ours_drawn, bare_drawn) && built_met;
}

/// Folds the case of every name and user list and looks for `text` in them, and no more.
size_t bare_filter(const char* text) {
    const Text needle(g_utf8_casefold(text, -1));
    size_t hits = 0;
    for (const KernelModule& m : g_modules) {
        if (std::strstr(Text(g_utf8_casefold(m.name.c_str(), -1)).get(), needle.get()) ||
            std::strstr(Text(g_utf8_casefold(m.used_by.c_str(), -1)).get(), needle.get())) {
            ++hits;
        }
    }
    return hits;
}

/// The times of one text in the filter.
struct Keystroke {
    std::string text;
    bool deleted;
    size_t hits;
    std::vector<double> filtered;   ///< until the handler was back
    std::vector<double> drawn;      ///< until the frame was painted, by the clock on the wall
    std::vector<double> reference;  ///< the bare loop over the same strings
};

/// Times each keystroke. Returns whether the goal is met.
bool time_filter(int rounds) {
    std::vector<Keystroke> strokes;
    const std::string word = TYPED;
    for (size_t i = 1; i <= word.size(); ++i) strokes.push_back({word.substr(0, i), false, 0, {}, {}, {}});
    for (size_t i = word.size(); i-- > 0;) strokes.push_back({word.substr(0, i), true, 0, {}, {}, {}});

    g_loaded = many_modules(FILTERED);
    show_system_window();
    gtk_notebook_set_current_page(GTK_NOTEBOOK(gtk_widget_get_ancestor(g_mod_pane, GTK_TYPE_NOTEBOOK)), 1);
    wait_for_frame(system_win);
    settle();
    for (int round = 0; round < rounds; ++round) {
        for (Keystroke& stroke : strokes) {
            const int length = static_cast<int>(stroke.text.size());
            const Clock::time_point start = Clock::now();
            const double begun = worked();
            if (stroke.deleted) {
                gtk_editable_delete_text(GTK_EDITABLE(g_search), length, -1);
            } else {
                int at = length - 1;
                gtk_editable_insert_text(GTK_EDITABLE(g_search), &stroke.text.back(), 1, &at);
            }
            stroke.filtered.push_back(worked() - begun);
            wait_for_frame(system_win);
            stroke.drawn.push_back(since(start));
            if (filter_text() != stroke.text) std::abort();

            const double begun_bare = worked();
            const size_t hits = bare_filter(stroke.text.c_str());
            stroke.reference.push_back(worked() - begun_bare);
            stroke.hits = static_cast<size_t>(gtk_tree_model_iter_n_children(g_filter, nullptr));
            if (hits != stroke.hits) std::abort();
            while (g_main_context_iteration(nullptr, FALSE)) continue;
        }
    }
    close_system_window();

    std::printf("\n%-16s %8s %12s %12s %12s %6s\n", "the filter reads", "rows", "filtered", "drawn", "bare loop",
                "times");
    double worst = 0;
    for (const Keystroke& stroke : strokes) {
        const double filtered = least(stroke.filtered);
        worst = std::max(worst, filtered);
        std::printf("%-16s %8zu %9.2f ms %9.2f ms %9.2f ms %6.1f\n", stroke.text.c_str(), stroke.hits, filtered,
                    least(stroke.drawn), least(stroke.reference), filtered / least(stroke.reference));
    }
    const bool met = worst < KEYSTROKE_GOAL;
    std::printf("slowest keystroke over 1,000 modules: %.2f ms, less than %.0f ms: %s\n", worst, KEYSTROKE_GOAL,
                verdict(met));
    return met;
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
    if (rounds < 1) return 2;
    std::printf("%-34s %11s %11s %6s\n", "", "Veldrin", "bare GTK", "times");
    const bool opening = compare_openings(rounds);
    const bool filter = time_filter(rounds);
    return opening && filter ? 0 : 1;
}
