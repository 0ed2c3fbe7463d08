// SPDX-License-Identifier: MIT
// The lower half of the system window's second page: the details of the selected module, and the divider that makes
// room for them.
#include "system_window_support.h"

namespace {

// ---- The details ----------------------------------------------------------------------------------------------------

TEST_F(SystemWindow, DetailsHoldExactlyTheseWidgets) {
    g_machine.details["bramble"] = full_details();
    open();
    select("bramble");
    EXPECT_EQ(describe(g_detail_box), R"tree(
GtkBox.card [start] margin-bottom=10 margin-end=12 margin-start=12 margin-top=10 orientation=vertical spacing=6
  GtkBox [start] spacing=8
    GtkLabel.val-strong [start] label="bramble" selectable xalign=0
    GtkLabel.badge.badge-green [start] halign=start label="Live" valign=center
    GtkLabel.badge.badge-gray [start] halign=start label="2000000 bytes" valign=center
    GtkLabel.badge.badge-blue [start] halign=start label="used by 2" valign=center
    GtkLabel.badge.badge-purple [start] halign=start label="GPL v2" valign=center
  GtkLabel.val [start] label="Carries brambles over the wire" selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="Used by" valign=start width-request=110 xalign=0
    GtkLabel.val [start expand fill] label="corvid,dusk" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="Version" valign=start width-request=110 xalign=0
    GtkLabel.val [start expand fill] label="1.2.3" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="Author" valign=start width-request=110 xalign=0
    GtkLabel.val [start expand fill] label="Ada Quill <ada@quill.example>" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="Taint" valign=start width-request=110 xalign=0
    GtkLabel.val [start expand fill] label="OE" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="srcversion" valign=start width-request=110 xalign=0
    GtkLabel.mono [start expand fill] label="0123456789ABCDEF" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="File" valign=start width-request=110 xalign=0
    GtkLabel.mono [start expand fill] label="/lib/modules/7.2.4/kernel/bramble.ko" max-width-chars=58 selectable wrap xalign=0
  GtkBox [start] spacing=12
    GtkLabel.key [start] label="Parameters" valign=start width-request=110 xalign=0
    GtkGrid [start expand fill] column-spacing=18
      GtkLabel.mono [at 0,0] ellipsize=end label="debug = 0" max-width-chars=34 selectable xalign=0
      GtkLabel.mono [at 0,1] ellipsize=end label="name = (empty)" max-width-chars=34 selectable xalign=0
)tree");
}

TEST_F(SystemWindow, ModuleWithoutDetailsShowsItsHeadOnly) {
    open();
    select("aether_net");
    EXPECT_EQ(describe(g_detail_box), R"(
GtkBox.card [start] margin-bottom=10 margin-end=12 margin-start=12 margin-top=10 orientation=vertical spacing=6
  GtkBox [start] spacing=8
    GtkLabel.val-strong [start] label="aether_net" selectable xalign=0
    GtkLabel.badge.badge-green [start] halign=start label="Live" valign=center
    GtkLabel.badge.badge-gray [start] halign=start label="900 bytes" valign=center
)");
}

TEST_F(SystemWindow, EachUnknownDetailLeavesOutOnlyItsOwnLine) {
    const std::pair<std::string KernelModule::*, std::string> lines[] = {
        {&KernelModule::license, "[GPL v2 purple]|"},
        {&KernelModule::description, "Carries brambles over the wire|"},
        {&KernelModule::version, "Version|1.2.3|"},
        {&KernelModule::author, "Author|Ada Quill <ada@quill.example>|"},
        {&KernelModule::taint, "Taint|OE|"},
        {&KernelModule::srcversion, "srcversion|0123456789ABCDEF|"},
        {&KernelModule::filename, "File|/lib/modules/7.2.4/kernel/bramble.ko|"}};
    g_machine.details["bramble"] = full_details();
    open();
    select("bramble");
    const std::string all = detail();
    for (const auto& [field, line] : lines) {
        const size_t at = all.find(line);
        ASSERT_NE(at, std::string::npos) << line;
        g_machine.details["bramble"] = full_details();
        g_machine.details["bramble"].*field = "";
        reopen();
        select("bramble");
        EXPECT_EQ(detail(), std::string(all).erase(at, line.size())) << line;
    }
    g_machine.details["bramble"] = full_details();
    g_machine.details["bramble"].parameters.clear();
    reopen();
    select("bramble");
    EXPECT_EQ(detail() + "Parameters|debug = 0|name = (empty)|", all);
    g_machine.details["bramble"] = full_details();
    g_machine.modules = {module("bramble", 2000000, 2)};
    reopen();
    select("bramble");
    const std::string users = "Used by|corvid,dusk|";
    EXPECT_EQ(detail(), std::string(all).erase(all.find(users), users.size()));
}

TEST_F(SystemWindow, BadgesInEachCombination) {
    for (const std::string state : {"Live", "Loading", "Unloading", "live", "Live ", ""}) {
        for (const int refcount : {-1, 0, 1, 12}) {
            for (const std::string used_by : {"", "other"}) {
                for (const std::string license : {"", "GPL", "Dual MIT/GPL"}) {
                    KernelModule m = module("one", 5, refcount, used_by);
                    m.state = state;
                    g_machine.modules = {m};
                    g_machine.details["one"].license = license;
                    reopen();
                    select("one");
                    std::string badges =
                        "one|[" + state + (state == "Live" ? " green]|" : " amber]|") + "[5 bytes gray]|";
                    if (refcount > 0 || !used_by.empty()) {
                        badges += "[used by " + std::to_string(refcount) + " blue]|";
                    }
                    if (!license.empty()) badges += "[" + license + " purple]|";
                    EXPECT_EQ(labels(descendant(g_detail_box, {0})), badges);
                }
            }
        }
    }
}

TEST_F(SystemWindow, ParametersFillOneColumnAfterTheOther) {
    const std::vector<std::pair<size_t, std::vector<size_t>>> shapes = {
        {1, {1}},        {2, {2}},          {7, {7}},           {8, {8}},        {9, {5, 4}},
        {10, {5, 5}},    {23, {12, 11}},    {24, {12, 12}},     {25, {9, 9, 7}}, {26, {9, 9, 8}},
        {27, {9, 9, 9}}, {28, {10, 10, 8}}, {100, {34, 34, 32}}};
    for (const auto& [n, columns] : shapes) {
        auto& parameters = g_machine.details["corvid"].parameters;
        parameters.clear();
        for (size_t i = 0; i < n; ++i) parameters.emplace_back("p" + std::to_string(i), std::to_string(i * 7));
        reopen();
        select("corvid");
        GtkWidget* grid = find_type(g_detail_box, GTK_TYPE_GRID);
        ASSERT_TRUE(grid);
        EXPECT_EQ(children_of(grid).size(), n);
        size_t i = 0;
        for (size_t column = 0; column < columns.size(); ++column) {
            for (size_t row = 0; row < columns[column]; ++row, ++i) {
                GtkWidget* label =
                    gtk_grid_get_child_at(GTK_GRID(grid), static_cast<int>(column), static_cast<int>(row));
                ASSERT_TRUE(label) << n << " parameters, column " << column << ", row " << row;
                EXPECT_EQ(text(label), "p" + std::to_string(i) + " = " + std::to_string(i * 7));
                EXPECT_EQ(place_of(grid, label), " [at " + std::to_string(column) + "," + std::to_string(row) + "]");
            }
        }
        EXPECT_EQ(i, n);
    }
}

TEST_F(SystemWindow, LongParametersEndInAnEllipsis) {
    g_machine.details["corvid"].parameters = {{"mode", std::string(500, 'W')}};
    open_modules();
    select("corvid");
    let_fit();
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    GtkWidget* label = gtk_grid_get_child_at(GTK_GRID(find_type(g_detail_box, GTK_TYPE_GRID)), 0, 0);
    ASSERT_TRUE(label);
    EXPECT_EQ(text(label), "mode = " + std::string(500, 'W'));
    EXPECT_TRUE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(label))));
    EXPECT_LT(gtk_widget_get_allocated_width(system_win), 1000);
}

TEST_F(SystemWindow, DetailsAreReadAtTheFirstSelectionAndKept) {
    g_machine.details["bramble"] = full_details();
    open();
    EXPECT_EQ(g_machine.details_asked, 0U);
    select("bramble");
    EXPECT_EQ(g_machine.details_read, std::vector{"bramble"s});
    EXPECT_TRUE(g_modules[1].details_loaded);
    EXPECT_EQ(g_modules[1].author, "Ada Quill <ada@quill.example>");
    const std::string first = detail();

    g_machine.details["bramble"].author = "Somebody Else";
    select("corvid");
    select("bramble");
    EXPECT_EQ(g_machine.details_read, (std::vector{"bramble"s, "corvid"s}));
    EXPECT_EQ(detail(), first);

    // A reload forgets them.
    reload();
    select("bramble");
    EXPECT_EQ(g_machine.details_read, (std::vector{"bramble"s, "corvid"s, "bramble"s}));
    EXPECT_NE(detail(), first);
}

TEST_F(SystemWindow, SelectionFindsItsModuleThroughSortAndFilter) {
    open();
    click_title(1);
    click_title(1);
    filter("d");
    ASSERT_EQ(names(), "bramble dusk corvid");
    GtkTreeIter iter;
    for (const char* name : {"bramble", "dusk", "corvid"}) {
        ASSERT_TRUE(name == "bramble"s ? gtk_tree_model_get_iter_first(shown(), &iter)
                                       : gtk_tree_model_iter_next(shown(), &iter));
        gtk_tree_selection_select_iter(selection(), &iter);
        EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), name);
    }
    EXPECT_EQ(g_machine.details_read, (std::vector{"bramble"s, "dusk"s, "corvid"s}));
}

TEST_F(SystemWindow, HintShowsWithoutASelection) {
    open();
    const std::string hint = describe(g_detail_box);
    EXPECT_EQ(hint, R"(
GtkBox.card [start] margin-bottom=10 margin-end=12 margin-start=12 margin-top=10 orientation=vertical spacing=6
  GtkLabel.note [start] label="Select a module to see its details." xalign=0
)");
    select("corvid");
    EXPECT_NE(detail(), PLACEHOLDER);
    gtk_tree_selection_unselect_all(selection());
    EXPECT_EQ(describe(g_detail_box), hint);
}

TEST_F(SystemWindow, SelectedRowThatTheFilterTakesLeavesTheHint) {
    open();
    select("corvid");
    filter("corvid");
    EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), "corvid");
    filter("aether");
    EXPECT_EQ(detail(), PLACEHOLDER);
    filter("");
    EXPECT_EQ(detail(), PLACEHOLDER);
}

TEST_F(SystemWindow, FilterThatTakesTheRowShowsNoneOfItsNeighbours) {
    open();
    put_cursor_on("aether_net");
    EXPECT_EQ(g_machine.details_read, std::vector{"aether_net"s});
    // GTK goes on to the next row each time, and the filter takes that one too, except for the last.
    filter("u");
    EXPECT_EQ(names(), "bramble dusk");
    EXPECT_EQ(g_machine.details_read, std::vector{"aether_net"s});
    EXPECT_EQ(gtk_tree_selection_count_selected_rows(selection()), 0);
    EXPECT_EQ(detail(), PLACEHOLDER);
}

TEST_F(SystemWindow, SelectedRowThatTheFilterKeepsStays) {
    open();
    put_cursor_on("dusk");
    filter("u");
    EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), "dusk");
    EXPECT_EQ(gtk_tree_selection_count_selected_rows(selection()), 1);
    filter("");
    EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), "dusk");
    EXPECT_EQ(g_machine.details_asked, 1U);
}

TEST_F(SystemWindow, ReloadShowsNoneOfTheRowsThatItReplaces) {
    open();
    put_cursor_on("aether_net");
    reload();
    EXPECT_EQ(g_machine.details_asked, 1U);
    EXPECT_EQ(gtk_tree_selection_count_selected_rows(selection()), 0);
    EXPECT_EQ(detail(), PLACEHOLDER);
}

TEST_F(SystemWindow, SelectedRowStaysInSightWhenTheDividerMovesUp) {
    g_machine.modules.clear();
    for (int i = 100; i < 160; ++i) g_machine.modules.push_back(module("reed_" + std::to_string(i)));
    for (int i = 0; i < 40; ++i) g_machine.details["reed_112"].parameters.emplace_back("p" + std::to_string(i), "1");
    open_modules();
    put_cursor_on("reed_112");
    // The table is now too low to show that row where it was.
    EXPECT_TRUE(run_loop_until([] { return gtk_widget_get_allocated_height(GTK_WIDGET(view())) < 12 * 15; }));
    EXPECT_TRUE(run_loop_until([] {
        GtkTreePath* first = nullptr;
        GtkTreePath* last = nullptr;
        if (!gtk_tree_view_get_visible_range(view(), &first, &last)) return false;
        const bool in_sight = gtk_tree_path_get_indices(first)[0] <= 12 && gtk_tree_path_get_indices(last)[0] >= 12;
        gtk_tree_path_free(first);
        gtk_tree_path_free(last);
        return in_sight;
    }));
}

TEST_F(SystemWindow, RowWithoutAModuleIsIgnored) {
    open();
    select("corvid");
    const std::string before = detail();
    const size_t fits = g_fits_asked;
    g_modules.resize(3);
    select("dusk");
    EXPECT_EQ(detail(), before);
    EXPECT_EQ(g_machine.details_asked, 1U);
    EXPECT_EQ(g_fits_asked, fits);

    // The last one that is left still works.
    select("corvid");
    EXPECT_EQ(g_machine.details_asked, 2U);

    GtkTreeIter first;
    ASSERT_TRUE(gtk_tree_model_get_iter_first(GTK_TREE_MODEL(g_store), &first));
    gtk_list_store_set(g_store, &first, 6, -1, -1);
    select("aether_net");
    EXPECT_EQ(detail(), before);
    EXPECT_EQ(g_machine.details_asked, 2U);
}

TEST_F(SystemWindow, NewDetailsReplaceTheOld) {
    Lives lives;
    g_machine.details["bramble"] = full_details();
    open();
    select("bramble");
    for (GtkWidget* child : children_of(g_detail_box)) lives.watch(child);
    EXPECT_GT(lives.count(), 15U);
    select("aether_net");
    EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 0; })) << lives.count();
    EXPECT_EQ(children_of(g_detail_box).size(), 1U);
}

// ---- The divider ----------------------------------------------------------------------------------------------------

/// The modules' page, with modules whose details are high, wide or short.
class Divider : public SystemWindow {
  protected:
    static constexpr int ELSEWHERE = 77;

    Divider() {
        for (int i = 0; i < 90; ++i) {
            g_machine.details["bramble"].parameters.emplace_back("number" + std::to_string(i), "1");
        }
        for (int i = 0; i < 40; ++i) g_machine.details["dusk"].description += " and over the moor";
        g_machine.details["corvid"].description = "A bird";
        g_machine.details["corvid"].version = "1.2.3";
        g_machine.details["corvid"].author = "Ada Quill";
    }

    /// The window's own request may run before the window has its size, so this one runs after it.
    static void open_fitted() {
        open_modules();
        fit_detail_pane(nullptr);
    }
    static int position() { return gtk_paned_get_position(GTK_PANED(g_mod_pane)); }
    static int natural(int width) {
        int least = 0;
        int height = 0;
        gtk_widget_get_preferred_height_for_width(g_detail_box, width - 24, &least, &height);
        return height;
    }
    static int total() { return gtk_widget_get_allocated_height(g_mod_pane); }
    static int width() { return gtk_widget_get_allocated_width(g_mod_pane); }
    /// Returns where the divider goes in a pane of this size, with the divider elsewhere before.
    static int fitted(int given_width, int given_height) {
        GtkAllocation allocation = {0, 0, given_width, given_height};
        gtk_widget_size_allocate(g_mod_pane, &allocation);
        EXPECT_EQ(total(), given_height);
        EXPECT_EQ(width(), given_width);
        gtk_paned_set_position(GTK_PANED(g_mod_pane), ELSEWHERE);
        EXPECT_EQ(fit_detail_pane(nullptr), G_SOURCE_REMOVE);
        return position();
    }
};

TEST_F(Divider, StartsAt250AndStaysThereBeforeThePaneHasASize) {
    GtkWidget* box = build_modules_tab();
    g_object_ref_sink(box);
    EXPECT_EQ(position(), 250);
    EXPECT_EQ(fit_detail_pane(nullptr), G_SOURCE_REMOVE);
    EXPECT_EQ(position(), 250);
    gtk_widget_destroy(box);
    g_object_unref(box);
    on_destroy(nullptr, nullptr);
}

TEST_F(Divider, GivesTheDetailsWhatTheyNeed) {
    open_fitted();
    select("aether_net");
    let_fit();
    const int small = position();
    EXPECT_EQ(small, total() - natural(width()) - 34);
    select("corvid");
    let_fit();
    EXPECT_EQ(position(), total() - natural(width()) - 34);
    EXPECT_LT(position(), small);
    // The details fit, so there is nothing to scroll.
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    GtkWidget* scroll = gtk_paned_get_child2(GTK_PANED(g_mod_pane));
    GtkAdjustment* range = gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scroll));
    EXPECT_LE(gtk_adjustment_get_upper(range), gtk_adjustment_get_page_size(range));
}

TEST_F(Divider, MeasuresTheDetailsAtTheWidthThatTheyGet) {
    open_modules();
    select("dusk");
    // Only a width at which 24 pixels more would save a line tells the two apart.
    int measured = 0;
    for (int given = 500; given < 800; ++given) {
        int least = 0;
        int at_full_width = 0;
        gtk_widget_get_preferred_height_for_width(g_detail_box, given, &least, &at_full_width);
        if (natural(given) == at_full_width) continue;
        ++measured;
        EXPECT_EQ(fitted(given, 900), 900 - natural(given) - 34) << given;
    }
    EXPECT_GT(measured, 5);
}

TEST_F(Divider, LeavesTheTable170Pixels) {
    open_modules();
    select("bramble");
    ASSERT_GT(natural(700), 300);
    EXPECT_EQ(fitted(700, 400), 170);
    EXPECT_EQ(fitted(700, 240), 170);
    const int enough = natural(700) + 34 + 170;
    EXPECT_EQ(fitted(700, enough - 1), 170);
    EXPECT_EQ(fitted(700, enough), 170);
    EXPECT_EQ(fitted(700, enough + 1), 171);
}

TEST_F(Divider, LeavesTheDetails70PixelsBeforeAll) {
    open_modules();
    select("bramble");
    EXPECT_EQ(fitted(700, 200), 130);
    EXPECT_EQ(fitted(700, 239), 169);
    EXPECT_EQ(fitted(700, 120), 50);
    select("aether_net");
    // Nothing at all needs less than 70 pixels.
    gtk_container_foreach(
        GTK_CONTAINER(g_detail_box), [](GtkWidget* child, gpointer) { gtk_widget_destroy(child); }, nullptr);
    gtk_widget_set_margin_top(g_detail_box, 0);
    gtk_widget_set_margin_bottom(g_detail_box, 0);
    ASSERT_LT(natural(700), 36);
    EXPECT_EQ(fitted(700, 600), 530);
}

TEST_F(Divider, StaysInAPaneWithoutARealSize) {
    open_modules();
    select("bramble");
    EXPECT_EQ(fitted(700, 119), ELSEWHERE);
    EXPECT_EQ(fitted(49, 600), ELSEWHERE);
    EXPECT_NE(fitted(50, 600), ELSEWHERE);
    EXPECT_NE(fitted(700, 120), ELSEWHERE);
}

TEST_F(Divider, MovesAfterEachSelectionAndReloadAlsoAfterADrag) {
    open_fitted();
    const int hint = position();
    EXPECT_EQ(g_fits_asked, 1U);
    const auto drag = [] { gtk_paned_set_position(GTK_PANED(g_mod_pane), 222); };

    drag();
    select("corvid");
    EXPECT_EQ(position(), 222);
    EXPECT_EQ(g_fits_asked, 2U);
    let_fit();
    const int corvid = position();
    EXPECT_EQ(corvid, total() - natural(width()) - 34);
    drag();
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    EXPECT_EQ(position(), 222);

    select("bramble");
    let_fit();
    EXPECT_EQ(position(), 170);
    select("corvid");
    let_fit();
    EXPECT_EQ(position(), corvid);

    drag();
    gtk_tree_selection_unselect_all(selection());
    let_fit();
    EXPECT_EQ(position(), hint);

    drag();
    const size_t before = g_fits_asked;
    reload();
    EXPECT_EQ(g_fits_asked, before + 1);
    let_fit();
    EXPECT_EQ(position(), hint);
}

TEST_F(Divider, FilterAloneDoesNotMoveIt) {
    open_modules();
    gtk_paned_set_position(GTK_PANED(g_mod_pane), 222);
    filter("corvid");
    let_fit();
    EXPECT_EQ(position(), 222);
    EXPECT_EQ(g_fits_asked, 1U);
}

TEST_F(Divider, RequestAfterTheWindowClosedDoesNothing) {
    open();
    select("dusk");
    EXPECT_EQ(g_fits_asked, 2U);
    close_system_window();
    EXPECT_EQ(g_fits_run, 0U);
    let_fit();
    EXPECT_EQ(g_fits_run, 2U);
    EXPECT_EQ(fit_detail_pane(nullptr), G_SOURCE_REMOVE);
}

TEST_F(Divider, NeedsBothThePaneAndTheDetails) {
    open_modules();
    gtk_paned_set_position(GTK_PANED(g_mod_pane), 222);
    for (GtkWidget** part : {&g_mod_pane, &g_detail_box}) {
        GtkWidget* kept = std::exchange(*part, nullptr);
        EXPECT_EQ(fit_detail_pane(nullptr), G_SOURCE_REMOVE);
        *part = kept;
        EXPECT_EQ(position(), 222);
    }
}

}  // namespace
