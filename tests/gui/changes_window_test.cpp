// SPDX-License-Identifier: MIT
// The changes window and its loads: what it is made of, how it opens, what it knows, a load from its start to its
// result, results that come too late, how it closes, and where the keyboard's focus stays.
#include "changes_window_support.h"

namespace {

// ---- What the window is made of -------------------------------------------------------------------------------------

TEST_F(Changes, WindowHoldsExactlyTheseWidgets) {
    open();
    EXPECT_EQ(describe(changes_win), R"(
GtkWindow default-height=660 default-width=780 title="Latest Kernel Changes" window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-stable.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="Latest Kernel Changes" xalign=0
        GtkLabel.hdr-subtitle [start] label="stable  ·  loading …" wrap xalign=0
    GtkBox.toolbar [start] spacing=8
      GtkLabel.status [start expand fill] ellipsize=end label="Contacting Kernhaven …" xalign=0
      GtkComboBoxText [end] active=1 !sensitive tooltip-text="Which channel to show. Preselected from Settings; changing it here does not change the panel label." rows=mainline:Mainline,stable:Stable,longterm:Longterm
      GtkButton [end] label="Refresh" !sensitive
    GtkScrolledWindow [start expand fill]
      GtkViewport
        GtkBox margin-bottom=6 margin-top=6 orientation=vertical
          GtkBox [start] halign=center margin-top=40 spacing=10
            GtkSpinner [start] active
            GtkLabel.status [start] label="Loading changes …"
    GtkBox [start] margin-bottom=10 margin-end=14 margin-start=14 margin-top=8
      GtkLinkButton [start] hidden halign=start label="Open the full changelog on Kernhaven" no-show-all uri="https://www.kernel.org/"
      GtkButton [end] label="Close"
)");
}

TEST_F(Changes, StaticsNameTheirWidgets) {
    EXPECT_TRUE(all_statics_are(false));
    open();
    EXPECT_EQ(open_windows(), std::vector<GtkWidget*>{changes_win});
    EXPECT_EQ(gtk_window_get_window_type(GTK_WINDOW(changes_win)), GTK_WINDOW_TOPLEVEL);
    EXPECT_EQ(changes_header, descendant(changes_win, {0, 0}));
    EXPECT_EQ(changes_status, descendant(changes_win, {0, 1, 0}));
    EXPECT_EQ(changes_combo, descendant(changes_win, {0, 1, 1}));
    EXPECT_EQ(changes_refresh, descendant(changes_win, {0, 1, 2}));
    EXPECT_EQ(changes_body, descendant(changes_win, {0, 2, 0, 0}));
    EXPECT_EQ(changes_link, descendant(changes_win, {0, 3, 0}));
}

TEST_F(Changes, RefreshStandsRightOfTheSelector) {
    open();
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    GtkAllocation selector;
    GtkAllocation button;
    GtkAllocation label;
    gtk_widget_get_allocation(changes_combo, &selector);
    gtk_widget_get_allocation(changes_refresh, &button);
    gtk_widget_get_allocation(changes_status, &label);
    EXPECT_LT(label.x, selector.x);
    EXPECT_LE(selector.x + selector.width, button.x);
}

TEST_F(Changes, WindowIsStyledBetweenItsSizeAndItsContents) {
    open();
    ASSERT_EQ(g_styled.size(), 1U);
    EXPECT_EQ(g_styled[0].title, "Latest Kernel Changes");
    EXPECT_EQ(g_styled[0].width, 780);
    EXPECT_EQ(g_styled[0].height, 660);
    EXPECT_TRUE(g_styled[0].empty);
    EXPECT_EQ(g_settings_then[0],
              " hidden default-height=660 default-width=780 title=\"Latest Kernel Changes\" window-position=center");
}

TEST_F(Changes, ControlsKnowWhatTheyCall) {
    open();
    EXPECT_TRUE(calls(changes_refresh, "clicked", on_refresh, nullptr));
    EXPECT_TRUE(calls(changes_combo, "changed", on_combo_changed, nullptr));
    EXPECT_TRUE(calls(close_button(), "clicked", gtk_widget_destroy, changes_win));
    EXPECT_TRUE(calls(changes_win, "destroy", on_destroy, nullptr));
}

// ---- Opening --------------------------------------------------------------------------------------------------------

TEST_F(Changes, OpeningStartsExactlyOneLoad) {
    for (const char* channel : {"mainline", "stable", "longterm"}) {
        state.channel = channel;
        const unsigned int before = g_request;
        show_changes_window(state);
        EXPECT_EQ(g_request, before + 1);
        await_load();
        const Site::Load load = g_site.load(g_site.started() - 1);
        EXPECT_EQ(load.channel, channel);
        EXPECT_STREQ(gtk_combo_box_get_active_id(GTK_COMBO_BOX(changes_combo)), channel);
        EXPECT_EQ(accents(), "acc-"s + channel);
        EXPECT_EQ(subtitle(), channel + "  ·  loading …"s);
        close_changes_window();
    }
    EXPECT_EQ(g_site.load(0).known_version, "7.3-rc2");
    EXPECT_EQ(g_site.load(1).known_version, "7.2.4");
    EXPECT_EQ(g_site.load(2).known_version, "6.18.50");
}

TEST_F(Changes, WindowIsShownBeforeItsLoadStarts) {
    state.channel = "longterm";
    const unsigned int before = g_request;
    std::string then;
    look_at_windows_when_shown([this] { open(); },
                               [&then, before](GtkWidget* window) {
                                   EXPECT_EQ(changes_win, nullptr);
                                   EXPECT_EQ(g_request, before);
                                   EXPECT_EQ(g_known.longterm, "6.18.50");
                                   EXPECT_FALSE(calls(changes_combo, "changed", on_combo_changed, nullptr));
                                   then = describe(window);
                               });
    EXPECT_EQ(then, R"(
GtkWindow default-height=660 default-width=780 title="Latest Kernel Changes" window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-longterm.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="Latest Kernel Changes" xalign=0
        GtkLabel.hdr-subtitle [start] wrap xalign=0
    GtkBox.toolbar [start] spacing=8
      GtkLabel.status [start expand fill] ellipsize=end xalign=0
      GtkComboBoxText [end] tooltip-text="Which channel to show. Preselected from Settings; changing it here does not change the panel label." rows=mainline:Mainline,stable:Stable,longterm:Longterm
      GtkButton [end] label="Refresh"
    GtkScrolledWindow [start expand fill]
      GtkViewport
        GtkBox margin-bottom=6 margin-top=6 orientation=vertical
    GtkBox [start] margin-bottom=10 margin-end=14 margin-start=14 margin-top=8
      GtkLinkButton [start] hidden halign=start label="Open the full changelog on Kernhaven" no-show-all uri="https://www.kernel.org/"
      GtkButton [end] label="Close"
)");
}

TEST_F(Changes, EmptyChannelOpensOnStable) {
    state.channel = "";
    open();
    EXPECT_EQ(g_site.load(0).channel, "stable");
    EXPECT_EQ(g_site.load(0).known_version, "7.2.4");
    EXPECT_STREQ(gtk_combo_box_get_active_id(GTK_COMBO_BOX(changes_combo)), "stable");
    EXPECT_EQ(accents(), "acc-stable");
    EXPECT_EQ(subtitle(), "stable  ·  loading …");
}

/// Kept on purpose: the channel is loaded as it stands, and the selector shows none.
TEST_F(Changes, UnknownChannelIsLoadedWithoutASelection) {
    state.channel = "linux-next";
    open();
    EXPECT_EQ(gtk_combo_box_get_active(GTK_COMBO_BOX(changes_combo)), -1);
    EXPECT_EQ(g_site.load(0).channel, "linux-next");
    EXPECT_EQ(g_site.load(0).known_version, "7.2.4");
    EXPECT_EQ(accents(), "acc-stable");
    EXPECT_EQ(subtitle(), "linux-next  ·  loading …");

    // Without a selection there is nothing to refresh.
    answer(0, success());
    const unsigned int before = g_request;
    gtk_button_clicked(GTK_BUTTON(changes_refresh));
    EXPECT_EQ(g_request, before);
    EXPECT_EQ(cards().size(), 2U);
    select("longterm");
    EXPECT_EQ(g_site.load(1).channel, "longterm");
}

TEST_F(Changes, OpenWindowIsRaisedUnchanged) {
    open_with(success());
    GtkWidget* const first = changes_win;
    const std::string before = describe(first);
    const unsigned int stamp = g_request;
    EXPECT_EQ(g_presented, 0);

    show_changes_window(AppState{"", "", "8.0-rc1", "7.9.9", "6.19.1", "mainline"});
    EXPECT_EQ(g_presented, 1);
    EXPECT_EQ(g_last_presented, GTK_WINDOW(first));
    EXPECT_EQ(changes_win, first);
    EXPECT_EQ(describe(first), before);
    EXPECT_EQ(g_request, stamp);
    EXPECT_EQ(open_windows().size(), 1U);
    EXPECT_EQ(g_styled.size(), 1U);
    EXPECT_EQ(g_known.mainline, "8.0-rc1");
    EXPECT_EQ(g_known.stable, "7.9.9");
    EXPECT_EQ(g_known.longterm, "6.19.1");

    refresh();
    EXPECT_EQ(g_site.load(1).channel, "stable");
    EXPECT_EQ(g_site.load(1).known_version, "7.9.9");
}

TEST_F(Changes, OpenWindowIsRaisedDuringItsLoad) {
    open();
    const unsigned int stamp = g_request;
    show_changes_window(state);
    EXPECT_EQ(g_presented, 1);
    EXPECT_EQ(g_request, stamp);
    EXPECT_TRUE(spinning());
    answer(0, success());
    EXPECT_EQ(cards().size(), 2U);
}

TEST_F(Changes, StateIsCopiedNotKept) {
    open_with(success());
    state.stable = "7.2.5";
    state.channel = "mainline";
    refresh();
    EXPECT_EQ(g_site.load(1).channel, "stable");
    EXPECT_EQ(g_site.load(1).known_version, "7.2.4");
}

// ---- Known versions -------------------------------------------------------------------------------------------------

TEST_F(Changes, KnownVersionIsTheChannelsOrThatOfStable) {
    g_known = ChannelVersions{"7.3-rc2", "7.2.4", "6.18.50"};
    EXPECT_EQ(known_for("mainline"), "7.3-rc2");
    EXPECT_EQ(known_for("stable"), "7.2.4");
    EXPECT_EQ(known_for("longterm"), "6.18.50");
    for (const char* other : {"", "Mainline", "longterm ", "linux-next"}) EXPECT_EQ(known_for(other), "7.2.4");
}

TEST_F(Changes, UnknownVersionIsPassedAsEmpty) {
    state.stable = "";
    open_with(success());
    refresh();
    EXPECT_EQ(g_site.load(0).known_version, "");
    EXPECT_EQ(g_site.load(1).known_version, "");
}

// ---- A load ---------------------------------------------------------------------------------------------------------

TEST_F(Changes, EveryTraceOfTheLastResultGoesWhenALoadStarts) {
    open_with(success());
    ASSERT_TRUE(usable());
    ASSERT_TRUE(link_shown());
    Lives lives;
    for (GtkWidget* card : cards()) lives.watch(card);

    const unsigned int before = g_request;
    gtk_button_clicked(GTK_BUTTON(changes_refresh));
    EXPECT_EQ(g_request, before + 1);
    EXPECT_EQ(subtitle(), "stable  ·  loading …");
    EXPECT_EQ(status(), "Contacting Kernhaven …");
    EXPECT_FALSE(usable());
    EXPECT_FALSE(link_shown());
    EXPECT_TRUE(spinning());
    EXPECT_EQ(lives.count(), 0U);
    EXPECT_EQ(describe(changes_body), R"(
GtkBox margin-bottom=6 margin-top=6 orientation=vertical
  GtkBox [start] halign=center margin-top=40 spacing=10
    GtkSpinner [start] active
    GtkLabel.status [start] label="Loading changes …"
)");
    await_load();
}

TEST_F(Changes, SelectionLoadsAndColoursAtOnce) {
    open_with(success());
    for (const auto& [channel, version] :
         {std::pair{"mainline", "7.3-rc2"}, {"longterm", "6.18.50"}, {"stable", "7.2.4"}}) {
        const unsigned int before = g_request;
        gtk_combo_box_set_active_id(GTK_COMBO_BOX(changes_combo), channel);
        EXPECT_EQ(g_request, before + 1);
        EXPECT_EQ(accents(), "acc-"s + channel);
        EXPECT_EQ(subtitle(), channel + "  ·  loading …"s);
        EXPECT_TRUE(spinning());
        EXPECT_FALSE(usable());
        await_load();
        const size_t number = g_site.started() - 1;
        EXPECT_EQ(g_site.load(number).channel, channel);
        EXPECT_EQ(g_site.load(number).known_version, version);
        answer(number, success());
    }
    EXPECT_EQ(state.channel, "stable");
}

TEST_F(Changes, SameSelectionLoadsNothing) {
    open_with(success());
    const unsigned int before = g_request;
    gtk_combo_box_set_active_id(GTK_COMBO_BOX(changes_combo), "stable");
    EXPECT_EQ(g_request, before);
}

TEST_F(Changes, EmptySelectionLoadsNothing) {
    open_with(success());
    const std::string before = describe(changes_body);
    const unsigned int stamp = g_request;
    gtk_combo_box_set_active(GTK_COMBO_BOX(changes_combo), -1);
    on_refresh(nullptr, nullptr);
    EXPECT_EQ(g_request, stamp);
    EXPECT_EQ(describe(changes_body), before);
    EXPECT_TRUE(usable());
}

TEST_F(Changes, SelectionHandlerAsksTheSelectorThatItIsGiven) {
    open_with(success());
    GtkWidget* other = gtk_combo_box_text_new();
    g_object_ref_sink(other);
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(other), "longterm", "Longterm");
    gtk_combo_box_set_active(GTK_COMBO_BOX(other), 0);
    on_combo_changed(GTK_COMBO_BOX(other), nullptr);
    await_load();
    EXPECT_EQ(g_site.load(1).channel, "longterm");
    gtk_widget_destroy(other);
    g_object_unref(other);
}

/// Records what happens to the open window's parts: a word for each step, and how many children the body has then.
class Steps {
  public:
    Steps() {
        note(GTK_WIDGET(g_object_get_data(G_OBJECT(changes_header), "subtitle-label")), "notify::label", "subtitle");
        note(changes_body, "remove", "clear");
        note(changes_refresh, "notify::sensitive", "refresh");
        note(changes_combo, "notify::sensitive", "selector");
        note(changes_link, "notify::uri", "address");
        note(changes_link, "hide", "unlink");
        note(changes_link, "show", "link");
        note(changes_status, "notify::label", "status");
    }
    ~Steps() {
        for (const auto& [widget, word] : noted_) {
            g_signal_handlers_disconnect_matched(widget, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, word.get());
        }
    }
    Steps(const Steps&) = delete;
    Steps& operator=(const Steps&) = delete;

    std::string taken() { return std::exchange(taken_, ""); }

  private:
    struct Step {
        Steps* steps;
        std::string word;
    };

    void note(GtkWidget* widget, const char* signal, const char* word) {
        noted_.emplace_back(widget, std::unique_ptr<Step>(new Step{this, word}));
        g_signal_connect_swapped(widget, signal, G_CALLBACK(take), noted_.back().second.get());
    }
    static void take(const Step* step) {
        std::string& taken = step->steps->taken_;
        const size_t held = children_of(changes_body).size();
        taken += (taken.empty() ? "" : " ") + step->word + std::to_string(held);
    }

    std::vector<std::pair<GtkWidget*, std::unique_ptr<Step>>> noted_;
    std::string taken_;
};

TEST_F(Changes, LoadShowsItsStartStepByStep) {
    open_with(success());
    Steps steps;
    refresh();
    EXPECT_EQ(steps.taken(), "subtitle2 clear1 clear0 refresh0 selector0 unlink0 status0");
}

TEST_F(Changes, ResultIsShownStepByStep) {
    open();
    Steps steps;
    answer(0, success());
    EXPECT_EQ(steps.taken(), "clear0 refresh0 selector0 subtitle2 status2 address2 link2");
    refresh();
    steps.taken();
    answer(1, failure("No."));
    EXPECT_EQ(steps.taken(), "clear0 refresh0 selector0 status1 subtitle1");
    apply_result(new LoadResult{g_request, success()});
    steps.taken();
    apply_result(new LoadResult{g_request, failure("No.")});
    EXPECT_EQ(steps.taken(), "clear1 clear0 status1 subtitle1 unlink1");
}

TEST_F(Changes, LoadRunsOnAThreadOfItsOwn) {
    open_with(success());
    refresh();
    const std::thread::id main_thread = std::this_thread::get_id();
    EXPECT_NE(g_site.load(0).thread, main_thread);
    EXPECT_NE(g_site.load(1).thread, main_thread);
}

TEST_F(Changes, LoadKeepsCopiesOfItsOwn) {
    open_with(success());
    auto channel = std::make_unique<std::string>("longterm-by-any-name-that-is-long");
    auto version = std::make_unique<std::string>("6.18.50-and-some-more-characters");
    start_load(*channel, *version);
    channel->assign(channel->size(), 'x');
    version.reset();
    channel.reset();
    await_load();
    EXPECT_EQ(g_site.load(1).channel, "longterm-by-any-name-that-is-long");
    EXPECT_EQ(g_site.load(1).known_version, "6.18.50-and-some-more-characters");
}

TEST_F(Changes, WindowAnswersWhileALoadWaits) {
    open();
    bool turned = false;
    g_timeout_add(
        0,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &turned);
    EXPECT_TRUE(run_loop_until([&turned] { return turned; }));
    EXPECT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_TRUE(spinning());
    EXPECT_EQ(g_posted, 0U);
}

TEST_F(Changes, HundredLoadsInOneWindowLeaveOneResult) {
    open_with(success());
    Lives lives;
    for (size_t i = 1; i <= 100; ++i) {
        lives.watch(changes_body);
        refresh();
        lives.watch(changes_body);
        ChangeLog log = i % 10 == 0 ? failure("No luck.") : success();
        log.version = "7.2." + std::to_string(i);
        answer(i, log);
    }
    lives.watch(changes_body);
    EXPECT_EQ(lives.count(), all_widgets(changes_body).size());
    EXPECT_EQ(status(), "Nothing loaded.");
    refresh();
    answer(101, success());
    EXPECT_EQ(subtitle(), "stable  ·  7.2.4  ·  released 2026-03-02");
    EXPECT_EQ(cards().size(), 2U);
}

// ---- Results that come too late -------------------------------------------------------------------------------------

TEST_F(Changes, ResultOfAnOlderLoadIsDropped) {
    open();
    start_load("mainline", "");
    await_load();
    answer(0, success());
    EXPECT_TRUE(spinning());
    EXPECT_FALSE(usable());
    EXPECT_FALSE(link_shown());
    EXPECT_EQ(subtitle(), "mainline  ·  loading …");
    EXPECT_EQ(status(), "Contacting Kernhaven …");

    ChangeLog newer = success({TWO_ENTRIES[1]});
    newer.channel = "mainline";
    newer.version = "7.3-rc2";
    answer(1, newer);
    EXPECT_EQ(subtitle(), "mainline  ·  7.3-rc2  ·  released 2026-03-02");
    EXPECT_EQ(status(), "1 change");
    EXPECT_TRUE(usable());
}

TEST_F(Changes, OlderResultThatComesLastChangesNothing) {
    open();
    start_load("mainline", "");
    await_load();
    answer(1, success());
    const std::string before = describe(changes_win);
    answer(0, failure("Too late."));
    EXPECT_EQ(describe(changes_win), before);
}

TEST_F(Changes, ResultForAClosedWindowIsDropped) {
    for (int way = 0; way < 3; ++way) {
        open();
        const unsigned int before = g_request;
        Lives lives;
        lives.watch(changes_win);
        if (way == 0) close_changes_window();
        if (way == 1) gtk_button_clicked(GTK_BUTTON(close_button()));
        if (way == 2) {
            EXPECT_TRUE(ask_to_close(changes_win));
        }
        EXPECT_EQ(g_request, before + 1);
        EXPECT_TRUE(all_statics_are(false));
        EXPECT_EQ(open_windows().size(), 0U);
        answer(g_site.started() - 1, way == 0 ? failure("Late.") : success());
        EXPECT_TRUE(all_statics_are(false));
        EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 0; })) << lives.count();
    }
}

TEST_F(Changes, ReopenedWindowWaitsForItsOwnResult) {
    open();
    close_changes_window();
    state.channel = "longterm";
    open();
    answer(0, success());
    EXPECT_TRUE(spinning());
    EXPECT_FALSE(usable());
    EXPECT_EQ(subtitle(), "longterm  ·  loading …");
    ChangeLog newer = success({TWO_ENTRIES[1]});
    newer.channel = "longterm";
    answer(1, newer);
    EXPECT_EQ(status(), "1 change");
    EXPECT_EQ(subtitle(), "longterm  ·  7.2.4  ·  released 2026-03-02");
}

TEST_F(Changes, ReopenedWindowKeepsItsOwnResult) {
    open();
    close_changes_window();
    open();
    answer(1, success());
    const std::string before = describe(changes_win);
    answer(0, failure("Late."));
    EXPECT_EQ(describe(changes_win), before);
}

TEST_F(Changes, ResultIsTakenOnceWhateverBecomesOfIt) {
    open_with(success());
    const std::string before = describe(changes_win);
    for (const unsigned int stamp : {g_request - 1, g_request + 1, 0U}) {
        EXPECT_EQ(apply_result(new LoadResult{stamp, failure("Stale.")}), FALSE);
        EXPECT_EQ(describe(changes_win), before);
    }
    EXPECT_EQ(apply_result(new LoadResult{g_request, success({})}), FALSE);
    EXPECT_EQ(status(), "0 changes");
    EXPECT_EQ(apply_result(new LoadResult{g_request, failure("Now.")}), FALSE);
    EXPECT_EQ(status(), "Nothing loaded.");

    close_changes_window();
    EXPECT_EQ(apply_result(new LoadResult{g_request, success()}), FALSE);
    EXPECT_TRUE(all_statics_are(false));
}

// ---- Closing --------------------------------------------------------------------------------------------------------

TEST_F(Changes, ClosesTwiceAndWithoutBeingOpen) {
    const unsigned int before = g_request;
    close_changes_window();
    close_changes_window();
    EXPECT_EQ(g_request, before);
    open();
    close_changes_window();
    EXPECT_EQ(g_request, before + 2);
    close_changes_window();
    EXPECT_EQ(g_request, before + 2);
    EXPECT_TRUE(all_statics_are(false));
}

TEST_F(Changes, ClosedWindowLeavesNoWidgetBehind) {
    Lives lives;
    open_with(success());
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    lives.watch(changes_win);
    EXPECT_GT(lives.count(), 40U);
    close_changes_window();
    EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 0; })) << lives.count();
}

TEST_F(Changes, QuitEndsTheMainLoopDuringALoad) {
    open();
    g_idle_add(
        [](gpointer) -> gboolean {
            close_changes_window();
            gtk_main_quit();
            return G_SOURCE_REMOVE;
        },
        nullptr);
    gtk_main();
    EXPECT_TRUE(all_statics_are(false));
    EXPECT_EQ(g_posted, 0U);
    EXPECT_FALSE(g_site.load(0).answer);
}

TEST(ChangesDeathTest, ProcessEndsCleanlyDuringALoad) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const AppState state;
            g_idle_add(
                [](gpointer) -> gboolean {
                    if (g_site.started() == 0) return G_SOURCE_CONTINUE;
                    close_changes_window();
                    gtk_main_quit();
                    return G_SOURCE_REMOVE;
                },
                nullptr);
            show_changes_window(state);
            gtk_main();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

// ---- The keyboard ---------------------------------------------------------------------------------------------------

TEST_F(Changes, FocusComesBackToRefreshAfterALoad) {
    open_with(success());
    gtk_widget_grab_focus(changes_refresh);
    refresh();
    EXPECT_EQ(focus(), nullptr);
    answer(1, success());
    EXPECT_EQ(focus(), changes_refresh);
    refresh();
    answer(2, failure("No."));
    EXPECT_EQ(focus(), changes_refresh);
}

TEST_F(Changes, FocusComesBackToTheSelectorAfterALoad) {
    open();
    EXPECT_EQ(focus(), nullptr);
    answer(0, success());
    ASSERT_TRUE(focus());
    EXPECT_TRUE(gtk_widget_is_ancestor(focus(), changes_combo));
    select("longterm");
    EXPECT_EQ(focus(), nullptr);
    answer(1, success());
    ASSERT_TRUE(focus());
    EXPECT_TRUE(gtk_widget_is_ancestor(focus(), changes_combo));
}

TEST_F(Changes, FocusMovedDuringALoadStays) {
    open_with(success());
    gtk_widget_grab_focus(changes_refresh);
    refresh();
    gtk_widget_grab_focus(close_button());
    answer(1, success());
    EXPECT_EQ(focus(), close_button());
    // The next load does not bring back the focus of the one before.
    refresh();
    answer(2, success());
    EXPECT_EQ(focus(), close_button());
}

TEST_F(Changes, FocusInACommitGoesWithIt) {
    open_with(success());
    GtkWidget* expander = descendant(changes_body, {0, 0, 1});
    gtk_expander_set_expanded(GTK_EXPANDER(expander), TRUE);
    gtk_widget_grab_focus(descendant(expander, {1}));
    EXPECT_EQ(focus(), descendant(expander, {1}));
    refresh();
    answer(1, success());
    EXPECT_EQ(focus(), nullptr);
}

}  // namespace
