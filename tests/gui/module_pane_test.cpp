// SPDX-License-Identifier: MIT
// The modules' page of the system window, on a machine with many modules: what a pasted filter and a moving divider do
// to what is in sight.
#include "tree.h"

#include "system_window.cpp"

namespace {

constexpr int MODULES = 200;

/// What every module's details say.
std::string g_description;

}  // namespace

std::vector<KernelModule> get_loaded_modules(std::string& error) {
    error.clear();
    std::vector<KernelModule> modules(MODULES);
    int number = 1000;
    for (KernelModule& module : modules) {
        module.name = "reed_" + std::to_string(number++);
        module.state = "Live";
    }
    return modules;
}

SystemInfo get_system_info() {
    SystemInfo si;
    si.running_kernel = "7.2.4";
    return si;
}

void fill_module_details(KernelModule& mod) {
    mod.description = g_description;
}

std::string format_size(unsigned long bytes) {
    return std::to_string(bytes);
}

bool running_as_snap() {
    return false;
}

std::string snap_connect_command() {
    return {};
}

namespace {

struct Size {
    int width = 0;
    int height = 0;
    bool operator==(const Size&) const = default;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.width << " x " << size.height;
}

/// The window, open on its second page, and the table in it.
class ModulePane : public testing::Test {
  protected:
    ModulePane() {
        g_description.clear();
        show_system_window();
        GtkWidget* notebook = descendant(system_win, {0, 1});
        gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook), 1);
        settle();
    }
    ~ModulePane() override { close_system_window(); }

    /// Waits until the divider has moved for the details, and the table has measured all of its rows.
    static void settle() {
        for (int round = 0; round < 3; ++round) {
            bool idle = false;
            g_idle_add_full(
                G_PRIORITY_LOW,
                [](gpointer seen) -> gboolean {
                    *static_cast<bool*>(seen) = true;
                    return G_SOURCE_REMOVE;
                },
                &idle, nullptr);
            ASSERT_TRUE(run_loop_until([&idle] { return idle; }));
            ASSERT_TRUE(run_loop_until_drawn(system_win));
        }
    }

    static Size size() {
        Size size;
        gtk_window_get_size(GTK_WINDOW(system_win), &size.width, &size.height);
        return size;
    }
    static std::string status() { return gtk_label_get_text(GTK_LABEL(g_mod_status)); }
    static int status_height() { return gtk_widget_get_allocated_height(g_mod_status); }

    /// As the user does by Ctrl+V.
    static void paste(const std::string& text) {
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.c_str(), -1);
        g_signal_emit_by_name(g_search, "paste-clipboard");
        EXPECT_TRUE(run_loop_until([&text] { return text == filter_text(); }));
        EXPECT_TRUE(run_loop_until_drawn(system_win));
    }
    static void type(const char* text) {
        gtk_entry_set_text(GTK_ENTRY(g_search), text);
        EXPECT_TRUE(run_loop_until_drawn(system_win));
    }

    // ---- The table ----

    static GtkTreeView* table() { return gtk_tree_selection_get_tree_view(g_selection); }
    static GtkAdjustment* scroll_bar() { return gtk_scrollable_get_vadjustment(GTK_SCROLLABLE(table())); }
    static int place() { return static_cast<int>(gtk_adjustment_get_value(scroll_bar())); }
    /// Returns the height that the table has for rows.
    static int table_height() {
        GdkRectangle rows;
        gtk_tree_view_get_visible_rect(table(), &rows);
        return rows.height;
    }
    /// Returns a row's place, counted from the upper edge of what is in sight.
    static GdkRectangle row(int number) {
        GtkTreePath* path = gtk_tree_path_new_from_indices(number, -1);
        GdkRectangle row;
        gtk_tree_view_get_background_area(table(), path, nullptr, &row);
        gtk_tree_path_free(path);
        return row;
    }
    static bool in_sight(int number) {
        return row(number).y >= 0 && row(number).y + row(number).height <= table_height();
    }

    static void scroll_to(int place) {
        gtk_adjustment_set_value(scroll_bar(), place);
        settle();
        ASSERT_EQ(ModulePane::place(), place);
    }
    /// Selects a row as a key does, and waits until the divider has moved for it and the table has scrolled there.
    static void select(int number) {
        GtkTreePath* path = gtk_tree_path_new_from_indices(number, -1);
        gtk_tree_view_set_cursor(table(), path, nullptr, FALSE);
        gtk_tree_path_free(path);
        settle();
        ASSERT_TRUE(run_loop_until([number] { return in_sight(number); })) << number;
    }
    static void move_divider(int by) {
        const int wanted = table_height() + by;
        gtk_paned_set_position(GTK_PANED(g_mod_pane), gtk_paned_get_position(GTK_PANED(g_mod_pane)) + by);
        settle();
        ASSERT_EQ(table_height(), wanted);
    }
};

// ---- What is pasted into the filter ---------------------------------------------------------------------------------

TEST_F(ModulePane, LongFilterLeavesTheWindowAsWideAsItIs) {
    const Size before = size();
    const std::string text(6000, 'W');
    paste(text);
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
    type("");
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status(), "200 of 200 modules  ·  0 in use");
}

TEST_F(ModulePane, FilterOfManyLinesLeavesTheWindowAsHighAsItIs) {
    const Size before = size();
    const int height = status_height();
    std::string text;
    for (int i = 0; i < 2500; ++i) text += "reed\n";
    paste(text);
    EXPECT_EQ(size(), before);
    EXPECT_LT(status_height(), 2 * height);
    EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
    type("");
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status_height(), height);
}

TEST_F(ModulePane, StatusIsOneLineWhateverEndsTheFiltersLines) {
    const int height = status_height();
    for (const char* end : {"\n", "\r\n", "\r", "\u2028", "\u2029", "\v", "\f", "\u0085"}) {
        std::string text;
        for (int i = 0; i < 5; ++i) text.append("reed").append(end);
        type(text.c_str());
        EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
        EXPECT_LT(status_height(), 2 * height);
    }
}

TEST_F(ModulePane, StatusLineStaysAsHighWhileTheUserTypes) {
    const int height = status_height();
    type("reed_11");
    EXPECT_EQ(status(), "100 of 200 modules  ·  0 in use  ·  filter: reed_11");
    EXPECT_EQ(status_height(), height);
    EXPECT_FALSE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(g_mod_status))));
}

// ---- What stays in sight when the divider moves ---------------------------------------------------------------------

TEST_F(ModulePane, RowThatTheUserScrolledAwayFromStaysThere) {
    select(2);
    scroll_to(1500);
    move_divider(-5);
    EXPECT_EQ(place(), 1500);
    move_divider(-100);
    EXPECT_EQ(place(), 1500);
    move_divider(105);
    EXPECT_EQ(place(), 1500);
}

TEST_F(ModulePane, RowFurtherDownThanTheTableReachesStaysThere) {
    select(150);
    scroll_to(0);
    move_divider(-5);
    EXPECT_EQ(place(), 0);
    // Now it begins just where the table ends.
    scroll_to(150 * row(0).height - table_height());
    ASSERT_EQ(row(150).y, table_height());
    const int before = place();
    move_divider(-5);
    EXPECT_EQ(place(), before);
}

TEST_F(ModulePane, RowInSightStaysAboveASlowDivider) {
    select(150);
    scroll_to(150 * row(0).height - table_height() + row(0).height);
    ASSERT_TRUE(in_sight(150));
    for (int i = 0; i < 10; ++i) {
        const int before = place();
        move_divider(-5);
        EXPECT_TRUE(in_sight(150));
        EXPECT_EQ(place(), before + 5);
    }
}

TEST_F(ModulePane, RowInSightStaysAboveAQuickDivider) {
    select(150);
    while (table_height() > 100) {
        const int before = table_height();
        gtk_paned_set_position(GTK_PANED(g_mod_pane), gtk_paned_get_position(GTK_PANED(g_mod_pane)) - 60);
        // Wait just long enough for the next step.
        ASSERT_TRUE(run_loop_until([before] { return table_height() < before; }));
    }
    settle();
    EXPECT_TRUE(in_sight(150));
}

TEST_F(ModulePane, RowChosenFromAfarIsInSightBesideItsDetails) {
    // The divider moves up, down, and not at all.
    const std::pair<int, const char*> steps[] = {
        {199, ""}, {3, "a\nb\nc\nd\ne\nf\ng\nh"}, {180, "a\nb"}, {9, ""}, {120, ""}, {10, "a\nb\nc\nd"}};
    for (const auto& [number, description] : steps) {
        g_description = description;
        select(number);
    }
}

TEST_F(ModulePane, DetailsThatFitLeaveTheTableWhereItWas) {
    // The divider stays, so the next to move it is the user.
    select(2);
    select(3);
    scroll_to(1500);
    move_divider(-5);
    EXPECT_EQ(place(), 1500);
}

TEST_F(ModulePane, RowPartlyInSightComesWhollyIntoSight) {
    select(150);
    // Its upper third is in sight.
    scroll_to(150 * row(0).height - table_height() + row(0).height / 3);
    ASSERT_FALSE(in_sight(150));
    move_divider(-row(0).height);
    EXPECT_TRUE(in_sight(150));
}

TEST_F(ModulePane, RowCutByTheTitlesIsNotMovedByTheDivider) {
    select(20);
    const int place_of_row = 20 * row(0).height;
    scroll_to(place_of_row + 5);
    move_divider(-50);
    EXPECT_EQ(place(), place_of_row + 5);
}

TEST_F(ModulePane, RowInSightStaysInItsPlaceWhenTheTableGetsHigher) {
    select(150);
    const int before = place();
    move_divider(-50);
    const int then = place();
    EXPECT_GE(then, before);
    move_divider(50);
    EXPECT_EQ(place(), then);
}

TEST_F(ModulePane, WithoutASelectionTheTableStaysWhereItIs) {
    scroll_to(1500);
    move_divider(-50);
    EXPECT_EQ(place(), 1500);
}

}  // namespace
