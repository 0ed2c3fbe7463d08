// SPDX-License-Identifier: MIT
// The system window's second page: the table with its columns and orders, the filter and the status line, and Reload
// with the list or the error that it brings.
#include "system_window_support.h"

namespace {

// ---- The table ------------------------------------------------------------------------------------------------------

TEST_F(SystemWindow, StoreHoldsSevenColumnsOfEachModule) {
    open();
    GtkTreeModel* model = GTK_TREE_MODEL(g_store);
    const std::vector<GType> types = {G_TYPE_STRING, G_TYPE_STRING, G_TYPE_UINT64, G_TYPE_INT,
                                      G_TYPE_STRING, G_TYPE_STRING, G_TYPE_INT};
    ASSERT_EQ(gtk_tree_model_get_n_columns(model), 7);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(gtk_tree_model_get_column_type(model, i), types[static_cast<size_t>(i)]);
    EXPECT_EQ(store(), R"(
aether_net | 900 bytes | 900 | 0 |  | #9ca3af | 0
bramble | 2000000 bytes | 2000000 | 2 | corvid,dusk | #15803d | 1
corvid | 10000 bytes | 10000 | 3 |  | #15803d | 2
dusk | 70000 bytes | 70000 | 0 | aether_net | #15803d | 3)");
}

TEST_F(SystemWindow, LargestNumbersFitTheStore) {
    g_machine.modules = {module("huge", ~0UL, 2147483647), module("odd", 0, -2147483647 - 1)};
    open();
    EXPECT_EQ(store(), R"(
huge | 18446744073709551615 bytes | 18446744073709551615 | 2147483647 |  | #15803d | 0
odd | 0 bytes | 0 | -2147483648 |  | #9ca3af | 1)");
}

TEST_F(SystemWindow, TableIsSortedOverFilteredOverStored) {
    open();
    ASSERT_TRUE(GTK_IS_TREE_MODEL_SORT(shown()));
    EXPECT_EQ(gtk_tree_model_sort_get_model(GTK_TREE_MODEL_SORT(shown())), g_filter);
    ASSERT_TRUE(GTK_IS_TREE_MODEL_FILTER(g_filter));
    EXPECT_EQ(gtk_tree_model_filter_get_model(GTK_TREE_MODEL_FILTER(g_filter)), GTK_TREE_MODEL(g_store));
    GtkTreePath* root = nullptr;
    g_object_get(g_filter, "virtual-root", &root, nullptr);
    EXPECT_EQ(root, nullptr);
    // Only the view holds the model that sorts.
    EXPECT_EQ(G_OBJECT(shown())->ref_count, 1U);
    EXPECT_EQ(gtk_tree_selection_get_mode(selection()), GTK_SELECTION_SINGLE);
}

TEST_F(SystemWindow, RowsComeInTheListsOrderUntilATitleIsClicked) {
    g_machine.modules = {module("zeal"), module("Amber"), module("moss")};
    open();
    int column = 0;
    GtkSortType order{};
    EXPECT_FALSE(gtk_tree_sortable_get_sort_column_id(GTK_TREE_SORTABLE(shown()), &column, &order));
    EXPECT_EQ(names(), "zeal Amber moss");
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(gtk_tree_view_column_get_sort_indicator(gtk_tree_view_get_column(view(), i)));
    }
}

TEST_F(SystemWindow, EachTitleSortsBothWays) {
    g_machine.modules = {module("corvid", 900, 3, "b"), module("aether", 10000, 20, "c"),
                         module("bramble", 2000000, 1, "a")};
    open();
    const std::pair<const char*, const char*> orders[] = {{"aether bramble corvid", "corvid bramble aether"},
                                                          {"corvid aether bramble", "bramble aether corvid"},
                                                          {"bramble corvid aether", "aether corvid bramble"},
                                                          {"bramble corvid aether", "aether corvid bramble"}};
    for (int i = 0; i < 4; ++i) {
        click_title(i);
        EXPECT_EQ(names(), orders[i].first) << i;
        click_title(i);
        EXPECT_EQ(names(), orders[i].second) << i;
    }
}

TEST_F(SystemWindow, UsedCellsHaveTheColourOfUse) {
    open_modules();
    GtkTreeViewColumn* used = gtk_tree_view_get_column(view(), 2);
    GList* renderers = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(used));
    auto* renderer = GTK_CELL_RENDERER(renderers->data);
    g_list_free(renderers);
    for (const auto& [name, colour] : {std::pair{"aether_net", "rgb(156,163,175)"}, {"dusk", "rgb(21,128,61)"}}) {
        std::optional<GtkTreeIter> found = row(name);
        ASSERT_TRUE(found);
        gtk_tree_view_column_cell_set_cell_data(used, shown(), &*found, FALSE, FALSE);
        GdkRGBA* drawn = nullptr;
        g_object_get(renderer, "foreground-rgba", &drawn, nullptr);
        gchar* written = gdk_rgba_to_string(drawn);
        EXPECT_STREQ(written, colour);
        g_free(written);
        gdk_rgba_free(drawn);
    }
}

// ---- The filter and the status line ---------------------------------------------------------------------------------

TEST_F(SystemWindow, EmptyFilterShowsEveryRow) {
    open();
    EXPECT_EQ(names(), "aether_net bramble corvid dusk");
    EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
    filter("corvid");
    filter("");
    EXPECT_EQ(names(), "aether_net bramble corvid dusk");
    EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
}

TEST_F(SystemWindow, FilterSearchesNamesAndUsers) {
    open();
    filter("corvid");
    EXPECT_EQ(names(), "bramble corvid");
    EXPECT_EQ(status(), "2 of 4 modules  ·  3 in use  ·  filter: corvid");
    filter("aether");
    EXPECT_EQ(names(), "aether_net dusk");
    filter("d,d");
    EXPECT_EQ(names(), "bramble");
    EXPECT_EQ(status(), "1 of 4 modules  ·  3 in use  ·  filter: d,d");
}

TEST_F(SystemWindow, FilterFindsAnyPartOfAText) {
    open();
    for (const auto& [typed, found] : {std::pair{"_", "aether_net dusk"},
                                       {"vid", "bramble corvid"},
                                       {"usk", "bramble dusk"},
                                       {"amb", "bramble"},
                                       // Name and users are searched one by one.
                                       {"bramblecorvid", ""}}) {
        filter(typed);
        EXPECT_EQ(names(), found) << typed;
    }
}

TEST_F(SystemWindow, FilterWithoutAHitShowsNone) {
    open();
    filter("elk");
    EXPECT_EQ(names(), "");
    EXPECT_EQ(status(), "0 of 4 modules  ·  3 in use  ·  filter: elk");
    filter("el");
    EXPECT_EQ(names(), "");
}

TEST_F(SystemWindow, FilterSearchesNoOtherColumn) {
    open();
    for (const char* typed : {"900", "bytes", "2000000", "#15803d", "Live", "3"}) {
        filter(typed);
        EXPECT_EQ(names(), "") << typed;
    }
}

TEST_F(SystemWindow, FilterSkipsTextsThatAreNull) {
    open();
    gtk_list_store_insert_with_values(g_store, nullptr, -1, 6, 0, -1);
    gtk_list_store_insert_with_values(g_store, nullptr, -1, 4, "corvid", 6, 0, -1);
    EXPECT_EQ(names(), "aether_net bramble corvid dusk (null) (null)");
    filter("corvid");
    EXPECT_EQ(names(), "bramble corvid (null)");
    filter("null");
    EXPECT_EQ(names(), "");
}

TEST_F(SystemWindow, FilterIgnoresCase) {
    g_machine.modules = {module("Snd_HDA"), module("usbcore", 1, 1, "XHCI_hcd")};
    open();
    for (const auto& [typed, found] : {std::pair{"snd_hda", "Snd_HDA"},
                                       {"SND_HDA", "Snd_HDA"},
                                       {"sNd", "Snd_HDA"},
                                       {"USBCORE", "usbcore"},
                                       {"xhci_HCD", "usbcore"}}) {
        filter(typed);
        EXPECT_EQ(names(), found) << typed;
    }
    filter("SnD");
    EXPECT_EQ(status(), "1 of 2 modules  ·  1 in use  ·  filter: SnD");
}

TEST_F(SystemWindow, FilterFoldsTheCaseOfEveryAlphabet) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"ÄTHER", "äther", true},
        {"äther", "ÄTHER", true},
        {"straße", "STRASSE", true},
        {"straße", "ss", true},
        {"STRASSE", "ß", true},
        {"ΟΔΟΣ", "οδος", true},
        {"οδος", "ΟΔΟΣ", true},
        {"ДРОЗД", "дрозд", true},
        // The small letter of I is i in every user's language. The Turkish letters stand for themselves.
        {"disk", "DISK", true},
        {"DISK", "disk", true},
        {"İskele", "iskele", false},
        {"İskele", "i\u0307skele", true},
        {"ılık", "ilik", false},
        {"ılık", "ILIK", false},
        {"ﬁlter", "FILTER", true},
        // Letters are not composed, and accents count.
        {"caf\u00e9", "cafe\u0301", false},
        {"caf\u00e9", "cafe", false}};
    for (const auto& [name, typed, found] : cases) {
        g_machine.modules = {module(name)};
        reopen();
        filter(typed);
        EXPECT_EQ(names(), found ? name : "") << name << ", " << typed;
        g_machine.modules = {module("other", 1, 1, name)};
        reload();
        EXPECT_EQ(names(), found ? "other" : "") << name << ", " << typed;
    }
}

TEST_F(SystemWindow, FilterIsTakenAsItIsTyped) {
    open();
    for (const char* typed : {" corvid", "corvid ", " ", "cor*", "c.rvid", "^corvid", "corvid|dusk", "%", "corv?d"}) {
        filter(typed);
        EXPECT_EQ(names(), "") << typed;
        EXPECT_EQ(status(), "0 of 4 modules  ·  3 in use  ·  filter: "s + typed);
    }
}

TEST_F(SystemWindow, EachKeystrokeFilters) {
    open();
    int at = 0;
    for (const auto& [letter, found] : {std::pair{"d", "bramble corvid dusk"}, {"u", "bramble dusk"}, {"x", ""}}) {
        gtk_editable_insert_text(GTK_EDITABLE(g_search), letter, -1, &at);
        EXPECT_EQ(names(), found);
    }
    gtk_editable_delete_text(GTK_EDITABLE(g_search), 2, -1);
    EXPECT_EQ(names(), "bramble dusk");
}

TEST_F(SystemWindow, OnlyTheFirstNumberFollowsTheFilter) {
    open();
    filter("aether_net");
    EXPECT_EQ(status(), "2 of 4 modules  ·  3 in use  ·  filter: aether_net");
    // A change on the machine shows only after a reload.
    g_machine.modules.clear();
    filter("aether_ne");
    EXPECT_EQ(status(), "2 of 4 modules  ·  3 in use  ·  filter: aether_ne");
    EXPECT_EQ(g_machine.lists_read, 1U);
}

TEST_F(SystemWindow, StatusOfAnEmptyList) {
    g_machine.modules.clear();
    open();
    EXPECT_EQ(status(), "0 of 0 modules  ·  0 in use");
}

TEST_F(SystemWindow, SortingAndFilteringGoTogether) {
    open();
    click_title(1);
    filter("d");
    EXPECT_EQ(names(), "corvid dusk bramble");
    filter("");
    EXPECT_EQ(names(), "aether_net corvid dusk bramble");
}

TEST_F(SystemWindow, FilterWorksWithoutAStatusLabel) {
    open();
    GtkWidget* kept = std::exchange(g_mod_status, nullptr);
    filter("corvid");
    g_mod_status = kept;
    EXPECT_EQ(names(), "bramble corvid");
    EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
}

// ---- Reload ---------------------------------------------------------------------------------------------------------

TEST_F(SystemWindow, ReloadShowsTheNewList) {
    open();
    const std::string system = describe(system_tab());
    select("corvid");
    g_machine.modules = {module("elm", 5, 1), module("fern", 6)};
    g_machine.info = {};
    reload();
    EXPECT_EQ(store(), R"(
elm | 5 bytes | 5 | 1 |  | #15803d | 0
fern | 6 bytes | 6 | 0 |  | #9ca3af | 1)");
    EXPECT_EQ(status(), "2 of 2 modules  ·  1 in use");
    EXPECT_EQ(detail(), PLACEHOLDER);
    EXPECT_EQ(page(), LIST_PAGE);
    EXPECT_EQ(g_machine.lists_read, 2U);
    EXPECT_EQ(g_machine.error_before, (std::vector{""s, ""s}));
    // The other page keeps what was read first.
    EXPECT_EQ(g_machine.infos_read, 1U);
    EXPECT_EQ(describe(system_tab()), system);
    select("fern");
    EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), "fern");
}

TEST_F(SystemWindow, ReloadKeepsTheFilter) {
    open();
    filter("corvid");
    select("corvid");
    g_machine.modules = {module("corvid"), module("corvid_two"), module("elm")};
    reload();
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(g_search)), "corvid");
    EXPECT_EQ(names(), "corvid corvid_two");
    EXPECT_EQ(status(), "2 of 3 modules  ·  0 in use  ·  filter: corvid");
    EXPECT_EQ(detail(), PLACEHOLDER);
    EXPECT_EQ(gtk_tree_selection_count_selected_rows(selection()), 0);
}

TEST_F(SystemWindow, ReloadKeepsTheOrderThatTheUserChose) {
    open();
    click_title(1);
    reload();
    EXPECT_EQ(names(), "aether_net corvid dusk bramble");
}

TEST_F(SystemWindow, ReloadsOfListsOfManySizesKeepTheSelectionHarmless) {
    open();
    for (const size_t size : {4U, 1U, 0U, 3U, 2U, 4U}) {
        g_machine.modules.assign(FOUR_MODULES.begin(), FOUR_MODULES.begin() + static_cast<std::ptrdiff_t>(size));
        reload();
        EXPECT_EQ(detail(), PLACEHOLDER);
        EXPECT_EQ(g_modules.size(), size);
        if (size == 0) continue;
        select(FOUR_MODULES[size - 1].name);
        EXPECT_EQ(text(descendant(g_detail_box, {0, 0})), FOUR_MODULES[size - 1].name);
    }
}

TEST_F(SystemWindow, ReloadThatFailsShowsTheReason) {
    open();
    filter("corvid");
    select("corvid");
    g_machine.modules.clear();
    g_machine.error = "No access\nAsk for it.\nThen come again.";
    reload();
    EXPECT_EQ(page(), ERROR_PAGE);
    EXPECT_EQ(text(g_mod_error_title), "No access");
    EXPECT_EQ(text(g_mod_error_text), "Ask for it.\nThen come again.");
    EXPECT_EQ(store(), "");
    EXPECT_EQ(status(), "0 of 0 modules  ·  0 in use  ·  filter: corvid");
    EXPECT_EQ(detail(), PLACEHOLDER);
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(g_search)), "corvid");
}

TEST_F(SystemWindow, OpensWithTheReasonWhenThereIsNoList) {
    g_machine.modules.clear();
    g_machine.error = "No access\nAsk for it.";
    open();
    EXPECT_EQ(page(), ERROR_PAGE);
    EXPECT_FALSE(has_permission_bar());
    EXPECT_EQ(describe(g_mod_error), R"(
GtkBox [start expand fill] halign=center orientation=vertical valign=center
  GtkBox.card [start] orientation=vertical spacing=6 width-request=460
    GtkBox [start] halign=center spacing=8
      GtkLabel.badge.badge-amber [start] halign=start label="no access" valign=center
    GtkLabel.val-strong [start] halign=center justify=center label="No access" margin-top=4 wrap
    GtkLabel.status [start] halign=center justify=center label="Ask for it." max-width-chars=52 selectable wrap
)");
    gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook()), 1);
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    EXPECT_TRUE(gtk_widget_get_mapped(g_mod_error_text));
}

TEST_F(SystemWindow, ErrorAndListTakeTurns) {
    open();
    for (int i = 0; i < 3; ++i) {
        g_machine.error = "No access " + std::to_string(i) + "\nAsk for it.";
        g_machine.modules.clear();
        reload();
        EXPECT_EQ(page(), ERROR_PAGE);
        EXPECT_EQ(text(g_mod_error_title), "No access " + std::to_string(i));
        g_machine.error = "";
        g_machine.modules = FOUR_MODULES;
        reload();
        EXPECT_EQ(page(), LIST_PAGE);
        EXPECT_EQ(names(), "aether_net bramble corvid dusk");
        EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
    }
    EXPECT_EQ(g_machine.error_before, std::vector(7, ""s));
}

TEST_F(SystemWindow, OpenedWithAnErrorItComesToItsListByAReload) {
    g_machine.error = "No access\nAsk for it.";
    g_machine.modules.clear();
    open();
    g_machine.error = "";
    g_machine.modules = FOUR_MODULES;
    reload();
    EXPECT_EQ(page(), LIST_PAGE);
    EXPECT_EQ(names(), "aether_net bramble corvid dusk");
    EXPECT_EQ(labels(descendant(card(1), {5})), "Modules|[not readable red]|see the Modules tab|");
}

TEST_F(SystemWindow, ReloadShowsThePaneAndTheErrorsWholePanel) {
    open();
    GtkWidget* list_scroll = gtk_paned_get_child1(GTK_PANED(g_mod_pane));
    GtkWidget* error_card = descendant(g_mod_error, {0});
    gtk_widget_hide(list_scroll);
    gtk_widget_hide(error_card);
    reload();
    EXPECT_FALSE(gtk_widget_get_visible(list_scroll));
    EXPECT_FALSE(gtk_widget_get_visible(error_card));
    g_machine.error = "No access";
    reload();
    EXPECT_TRUE(gtk_widget_get_visible(error_card));
    EXPECT_FALSE(gtk_widget_get_visible(list_scroll));
}

TEST_F(SystemWindow, ErrorIsCutAtItsFirstLineFeed) {
    open();
    for (const auto& [error, title, explanation] : {std::tuple{"One\nTwo", "One", "Two"},
                                                    {"One\nTwo\nThree", "One", "Two\nThree"},
                                                    {"One", "One", ""},
                                                    {"One\n", "One", ""},
                                                    {"\nTwo", "", "Two"},
                                                    {"<b>&amp;</b>\n<i>_</i>", "<b>&amp;</b>", "<i>_</i>"}}) {
        g_machine.error = error;
        reload();
        EXPECT_EQ(text(g_mod_error_title), title);
        EXPECT_EQ(text(g_mod_error_text), explanation);
    }
}

TEST_F(SystemWindow, ErrorWithSomeModulesKeepsThem) {
    g_machine.error = "Halfway\nThe rest is missing.";
    open();
    EXPECT_EQ(page(), ERROR_PAGE);
    EXPECT_EQ(g_modules.size(), 4U);
    EXPECT_EQ(names(), "aether_net bramble corvid dusk");
    EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
}

}  // namespace
