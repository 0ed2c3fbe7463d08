// SPDX-License-Identifier: MIT
// The settings window: what it is made of, how wide and high it grows, what a chosen channel changes, and how it opens
// and closes.
#include "tree.h"

#include "info_window.cpp"

#include <utility>

// ---- What the tests put in the place of other modules, and what they see of GTK's work ------------------------------

namespace {

std::string g_running_kernel;
int g_kernel_asked = 0;
/// How many windows there were when the kernel's release was read.
size_t g_windows_then = 0;
int g_presented = 0;
GtkWindow* g_last_presented = nullptr;

/// What each window was like, each time that the stylesheet was applied, and its settings.
std::vector<WindowState> g_styled;
std::vector<std::string> g_settings_then;

}  // namespace

std::string get_running_kernel() {
    ++g_kernel_asked;
    g_windows_then = open_windows().size();
    return g_running_kernel;
}

extern "C" {

void __real_gtk_window_present(GtkWindow*);
void __wrap_gtk_window_present(GtkWindow*);
void __wrap_gtk_window_present(GtkWindow* window) {
    ++g_presented;
    g_last_presented = window;
    __real_gtk_window_present(window);
}

void __real_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen* screen, GtkStyleProvider* provider, guint priority) {
    for (GtkWidget* window : open_windows()) {
        g_styled.push_back(state_of(window));
        g_settings_then.push_back(settings_of(window));
    }
    __real_gtk_style_context_add_provider_for_screen(screen, provider, priority);
}
}

namespace {

int g_calls = 0;
std::function<void()> g_on_call;

void note_change() {
    ++g_calls;
    if (g_on_call) g_on_call();
}

int g_other_calls = 0;

void note_other_change() {
    ++g_other_calls;
}

/// The window, closed before and after each test.
class InfoWindow : public testing::Test {
  protected:
    InfoWindow() {
        g_running_kernel = "6.18.9-generic";
        g_kernel_asked = g_presented = g_calls = g_other_calls = 0;
        g_on_call = nullptr;
        g_styled.clear();
        g_settings_then.clear();
    }
    ~InfoWindow() override {
        close_info_window();
        EXPECT_EQ(open_windows().size(), 0U);
    }

    static GtkWidget* header() { return descendant(info_win, {0, 0}); }
    static GtkWidget* combo() { return descendant(info_win, {0, 1, 0, 1, 1}); }
    static GtkWidget* running_value() { return descendant(info_win, {0, 1, 1, 1, 1}); }
    static GtkWidget* row(size_t i) { return descendant(info_win, {0, 1, 2, 1 + i}); }
    static GtkWidget* value(size_t i) { return descendant(row(i), {0, 1}); }
    static GtkWidget* badge(size_t i) { return descendant(row(i), {1}); }
    static GtkWidget* link() { return descendant(info_win, {0, 1, 2, 4}); }
    static GtkWidget* close_button() { return descendant(info_win, {0, 2, 0}); }

    static std::string text(GtkWidget* label) { return gtk_label_get_text(GTK_LABEL(label)); }
    static void choose(const char* id) { ASSERT_TRUE(gtk_combo_box_set_active_id(GTK_COMBO_BOX(combo()), id)); }

    /// Returns for each of the three rows 1 if its badge shows, otherwise 0.
    static std::string badges() {
        std::string shown;
        for (size_t i = 0; i < 3; ++i) shown += gtk_widget_get_visible(badge(i)) ? '1' : '0';
        return shown;
    }

    /// Returns the classes of the header band, apart from its own.
    static std::string accents() {
        std::string names;
        for (const std::string& name : classes_of(header())) {
            if (name != "hdr") names += name;
        }
        return names;
    }

    AppState state{"7.2.3", "7.2.4", "7.3-rc2", "7.2.4", "6.18.50", "stable"};
};

// ---- What it is made of ---------------------------------------------------------------------------------------------

TEST_F(InfoWindow, HoldsExactlyTheseWidgets) {
    show_info_window(state, note_change);
    EXPECT_EQ(describe(info_win), R"(
GtkWindow default-width=470 !resizable title="Settings" type-hint=dialog window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-stable.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="Veldrin" xalign=0
        GtkLabel.hdr-subtitle [start] label="Linux kernel overview" wrap xalign=0
    GtkBox [start] margin-bottom=8 margin-end=16 margin-start=16 margin-top=14 orientation=vertical spacing=12
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="SHOWN IN PANEL" xalign=0
        GtkBox [start] spacing=12
          GtkLabel.key [start] label="Channel" width-request=100 xalign=0
          GtkComboBoxText [start expand fill] active=1 rows=mainline:Mainline,stable:Stable,longterm:Longterm
        GtkLabel.note [start] label="This channel's version is what the tray shows, and it is preselected in Latest Changes." wrap xalign=0
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="YOUR SYSTEM" xalign=0
        GtkBox [start] spacing=12
          GtkLabel.key [start] label="Running" width-request=100 xalign=0
          GtkLabel.val-strong [start expand fill] label="6.18.9-generic" selectable xalign=0
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="KERNHAVEN" xalign=0
        GtkBox [start] spacing=8
          GtkBox [start expand fill] spacing=12
            GtkLabel.key [start] label="Mainline" width-request=100 xalign=0
            GtkLabel.val [start expand fill] label="7.3-rc2" selectable xalign=0
          GtkLabel.badge.badge-green [end] hidden halign=start label="panel" no-show-all valign=center
        GtkBox [start] spacing=8
          GtkBox [start expand fill] spacing=12
            GtkLabel.key [start] label="Stable" width-request=100 xalign=0
            GtkLabel.val [start expand fill] label="7.2.4" selectable xalign=0
          GtkLabel.badge.badge-green [end] halign=start label="panel" no-show-all valign=center
        GtkBox [start] spacing=8
          GtkBox [start expand fill] spacing=12
            GtkLabel.key [start] label="Longterm" width-request=100 xalign=0
            GtkLabel.val [start expand fill] label="6.18.50" selectable xalign=0
          GtkLabel.badge.badge-green [end] hidden halign=start label="panel" no-show-all valign=center
        GtkLinkButton [start] halign=start label="www.kernel.org" uri="https://www.kernel.org/"
    GtkBox [start] margin-bottom=12 margin-end=16 margin-start=16
      GtkButton [end] label="Close"
)");
}

TEST_F(InfoWindow, IsATopLevelWindow) {
    show_info_window(state, note_change);
    EXPECT_EQ(gtk_window_get_window_type(GTK_WINDOW(info_win)), GTK_WINDOW_TOPLEVEL);
    EXPECT_EQ(open_windows(), std::vector<GtkWidget*>{info_win});
}

TEST_F(InfoWindow, KnowsItsHeader) {
    show_info_window(state, note_change);
    EXPECT_EQ(info_header, header());
}

TEST_F(InfoWindow, AsksForTheKernelBeforeThereIsAWindow) {
    g_windows_then = 99;
    show_info_window(state, note_change);
    EXPECT_EQ(g_kernel_asked, 1);
    EXPECT_EQ(g_windows_then, 0U);
}

TEST_F(InfoWindow, IsStyledBetweenItsSizeAndItsContents) {
    show_info_window(state, note_change);
    ASSERT_EQ(g_styled.size(), 1U);
    EXPECT_EQ(g_styled[0].title, "Settings");
    EXPECT_EQ(g_styled[0].width, 470);
    EXPECT_EQ(g_styled[0].height, -1);
    EXPECT_TRUE(g_styled[0].empty);
    EXPECT_EQ(g_settings_then[0],
              " hidden default-width=470 !resizable title=\"Settings\" type-hint=dialog window-position=center");
}

TEST_F(InfoWindow, BadgeIsMarkedAfterAllElseIsShown) {
    std::string then;
    look_at_windows_when_shown([this] { show_info_window(state, note_change); },
                               [&then](GtkWidget* window) {
                                   EXPECT_EQ(info_win, nullptr);
                                   EXPECT_EQ(info_header, descendant(window, {0, 0}));
                                   for (size_t i = 0; i < 3; ++i) {
                                       GtkWidget* mark = descendant(window, {0, 1, 2, 1 + i, 1});
                                       then += gtk_widget_get_visible(mark) ? '1' : '0';
                                   }
                               });
    EXPECT_EQ(then, "000");
    EXPECT_EQ(badges(), "010");
}

TEST_F(InfoWindow, CloseButtonKnowsItsWindow) {
    show_info_window(state, note_change);
    EXPECT_TRUE(calls(close_button(), "clicked", gtk_widget_destroy, info_win));
    EXPECT_FALSE(calls(close_button(), "clicked", gtk_widget_destroy, nullptr));
}

TEST_F(InfoWindow, LinkNamesTheHostOfItsAddress) {
    show_info_window(state, note_change);
    EXPECT_STREQ(gtk_link_button_get_uri(GTK_LINK_BUTTON(link())), VELDRIN_RELEASE_SITE);
    const std::string host = gtk_button_get_label(GTK_BUTTON(link()));
    EXPECT_EQ("https://" + host + "/", VELDRIN_RELEASE_SITE);
}

TEST_F(InfoWindow, AccentIsThatOfTheSavedChannel) {
    for (const auto& [channel, accent] :
         {std::pair{"mainline", "acc-mainline"}, {"stable", "acc-stable"}, {"longterm", "acc-longterm"}}) {
        state.channel = channel;
        show_info_window(state, note_change);
        EXPECT_EQ(accents(), accent);
        EXPECT_STREQ(gtk_combo_box_get_active_id(GTK_COMBO_BOX(combo())), channel);
        close_info_window();
    }
    EXPECT_EQ(g_calls, 0);
}

TEST_F(InfoWindow, BadgeMarksTheSavedChannel) {
    for (const auto& [channel, shown] : {std::pair{"mainline", "100"}, {"stable", "010"}, {"longterm", "001"}}) {
        state.channel = channel;
        show_info_window(state, note_change);
        EXPECT_EQ(badges(), shown);
        close_info_window();
    }
}

TEST_F(InfoWindow, RowsNameTheirBadges) {
    show_info_window(state, note_change);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(g_object_get_data(G_OBJECT(row(i)), "panel-badge"), badge(i));
}

TEST_F(InfoWindow, SelectorKeepsWhatItWorksOn) {
    show_info_window(state, note_change);
    const auto* ctx = static_cast<ChannelCtx*>(g_object_get_data(G_OBJECT(combo()), "channel-ctx"));
    ASSERT_TRUE(ctx);
    EXPECT_EQ(ctx->state, &state);
    EXPECT_EQ(ctx->on_channel_changed, note_change);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(ctx->rows[i], row(i));
    EXPECT_TRUE(g_signal_handler_find(combo(), static_cast<GSignalMatchType>(G_SIGNAL_MATCH_FUNC | G_SIGNAL_MATCH_DATA),
                                      0, 0, nullptr, reinterpret_cast<gpointer>(on_channel_combo_changed),
                                      const_cast<ChannelCtx*>(ctx)));
}

TEST_F(InfoWindow, UnknownVersionsShowAsAnEllipsis) {
    state.mainline = state.stable = state.longterm = "";
    show_info_window(state, note_change);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(text(value(i)), "…");
    EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(link())), "www.kernel.org");
    EXPECT_EQ(badges(), "010");
    EXPECT_EQ(children_of(descendant(info_win, {0, 1, 2})).size(), 5U);
}

TEST_F(InfoWindow, OneUnknownVersionLeavesTheOthers) {
    state.stable = "";
    show_info_window(state, note_change);
    EXPECT_EQ(text(value(0)), "7.3-rc2");
    EXPECT_EQ(text(value(1)), "…");
    EXPECT_EQ(text(value(2)), "6.18.50");
}

TEST_F(InfoWindow, VersionsArePlainText) {
    state.mainline = "<b>7.3_rc</b>&amp;";
    g_running_kernel = "<i>_x</i>&lt;";
    show_info_window(state, note_change);
    EXPECT_EQ(text(value(0)), "<b>7.3_rc</b>&amp;");
    EXPECT_EQ(text(running_value()), "<i>_x</i>&lt;");
}

TEST_F(InfoWindow, UnknownChannelSelectsNothing) {
    for (const char* channel : {"", "linux-next", "Mainline", "stable "}) {
        state.channel = channel;
        show_info_window(state, note_change);
        EXPECT_EQ(gtk_combo_box_get_active(GTK_COMBO_BOX(combo())), -1);
        EXPECT_EQ(accents(), "acc-stable");
        EXPECT_EQ(badges(), "000");
        EXPECT_EQ(state.channel, channel);
        close_info_window();
    }
    EXPECT_EQ(g_calls, 0);
}

TEST_F(InfoWindow, ChosenChannelReplacesAnUnknownOne) {
    state.channel = "linux-next";
    show_info_window(state, note_change);
    choose("longterm");
    EXPECT_EQ(state.channel, "longterm");
    EXPECT_EQ(badges(), "001");
    EXPECT_EQ(accents(), "acc-longterm");
    EXPECT_EQ(g_calls, 1);
}

TEST_F(InfoWindow, IsAtLeastAsWideAsItsDefault) {
    show_info_window(state, note_change);
    ASSERT_TRUE(run_loop_until_drawn(info_win));
    // How much wider it is depends on the hint's font.
    const int width = gtk_widget_get_allocated_width(info_win);
    EXPECT_GE(width, 470);
    EXPECT_LT(width, 800);
    close_info_window();

    state.mainline = std::string(200, 'W');
    show_info_window(state, note_change);
    ASSERT_TRUE(run_loop_until_drawn(info_win));
    EXPECT_GT(gtk_widget_get_allocated_width(info_win), width);
}

/// The display's width, and the size of the window once it is drawn.
struct Extent {
    int display;
    int width;
    int height;
};

Extent extent() {
    EXPECT_TRUE(run_loop_until_drawn(info_win));
    GdkRectangle display;
    GdkDisplay* shown_on = gtk_widget_get_display(info_win);
    gdk_monitor_get_workarea(gdk_display_get_monitor_at_window(shown_on, gtk_widget_get_window(info_win)), &display);
    Extent extent{display.width, 0, 0};
    gtk_window_get_size(GTK_WINDOW(info_win), &extent.width, &extent.height);
    return extent;
}

TEST_F(InfoWindow, GrowsWithItsVersionsUpToTheDisplaysEdge) {
    show_info_window(state, note_change);
    const Extent ordinary = extent();
    close_info_window();

    state.mainline = std::string(70, '4');
    show_info_window(state, note_change);
    const Extent wider = extent();
    EXPECT_GT(wider.width, ordinary.width);
    EXPECT_LT(wider.width, wider.display);
    EXPECT_FALSE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(value(0)))));
    close_info_window();

    std::string tabs;
    for (int i = 0; i < 100; ++i) tabs += "\t4";
    for (const std::string& endless : {std::string(500, 'W'), std::string(65536, 'W'), tabs}) {
        state.mainline = state.stable = state.longterm = g_running_kernel = endless;
        show_info_window(state, note_change);
        const Extent widest = extent();
        EXPECT_LE(widest.width, widest.display);
        EXPECT_EQ(widest.height, ordinary.height);
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(text(value(i)), excerpt_of(endless.c_str()));
        EXPECT_TRUE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(value(0)))));
        EXPECT_TRUE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(running_value()))));
        close_info_window();
    }
}

TEST_F(InfoWindow, GrowsNoHigherWithVersionsOfManyLines) {
    show_info_window(state, note_change);
    const Extent ordinary = extent();
    close_info_window();
    state.mainline = std::string(499, '\n');
    state.stable = "7.2.4\n" + std::string(499, '\r');
    state.longterm.clear();
    for (int i = 0; i < 3000; ++i) state.longterm += "6.18\u2029";
    show_info_window(state, note_change);
    EXPECT_EQ(text(value(0)), "…");
    EXPECT_EQ(text(value(1)), "7.2.4…");
    EXPECT_EQ(text(value(2)), "6.18…");
    const Extent higher = extent();
    EXPECT_EQ(higher.width, ordinary.width);
    EXPECT_EQ(higher.height, ordinary.height);
}

TEST_F(InfoWindow, LabelOfTheSelectorBelongsToIt) {
    show_info_window(state, note_change);
    GtkWidget* label = descendant(info_win, {0, 1, 0, 1, 0});
    EXPECT_EQ(text(label), "Channel");
    EXPECT_EQ(gtk_label_get_mnemonic_widget(GTK_LABEL(label)), combo());
}

TEST_F(InfoWindow, ShowsBytesThatAreNoTextWithoutAWarning) {
    state.mainline = "7.3\xff\xfe";
    state.channel = "\xe9tat";
    show_info_window(state, note_change);
    EXPECT_TRUE(run_loop_until_drawn(info_win));
    EXPECT_TRUE(g_utf8_validate(text(value(0)).c_str(), -1, nullptr));
    EXPECT_EQ(text(value(0)).substr(0, 3), "7.3");
}

// ---- Choosing a channel ---------------------------------------------------------------------------------------------

TEST_F(InfoWindow, OpeningItIsNoChoice) {
    show_info_window(state, note_change);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(state.channel, "stable");
}

TEST_F(InfoWindow, ChoiceIsCompleteWhenTheCallerHearsOfIt) {
    show_info_window(state, note_change);
    std::string heard;
    g_on_call = [&heard, this] { heard += state.channel + ' ' + accents() + ' ' + badges() + '\n'; };
    choose("longterm");
    choose("mainline");
    choose("stable");
    EXPECT_EQ(heard,
              "longterm acc-longterm 001\n"
              "mainline acc-mainline 100\n"
              "stable acc-stable 010\n");
    EXPECT_EQ(g_calls, 3);
}

TEST_F(InfoWindow, ChoiceChangesNoOtherField) {
    show_info_window(state, note_change);
    choose("mainline");
    EXPECT_EQ(state.kernel, "7.2.3");
    EXPECT_EQ(state.latest_kernel, "7.2.4");
    EXPECT_EQ(state.mainline, "7.3-rc2");
    EXPECT_EQ(state.stable, "7.2.4");
    EXPECT_EQ(state.longterm, "6.18.50");
}

TEST_F(InfoWindow, SameChannelAgainIsNoChange) {
    show_info_window(state, note_change);
    choose("stable");
    EXPECT_EQ(g_calls, 0);
    choose("mainline");
    choose("mainline");
    EXPECT_EQ(g_calls, 1);
}

TEST_F(InfoWindow, ChoiceWithoutACallerStillTakesEffect) {
    show_info_window(state, nullptr);
    choose("mainline");
    EXPECT_EQ(state.channel, "mainline");
    EXPECT_EQ(accents(), "acc-mainline");
    EXPECT_EQ(badges(), "100");
}

TEST_F(InfoWindow, NoSelectionHasNoEffect) {
    show_info_window(state, note_change);
    gtk_combo_box_set_active(GTK_COMBO_BOX(combo()), -1);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(state.channel, "stable");
    EXPECT_EQ(accents(), "acc-stable");
    EXPECT_EQ(badges(), "010");
}

TEST_F(InfoWindow, ChoiceWithoutAHeaderStillCounts) {
    show_info_window(state, note_change);
    GtkWidget* kept = info_header;
    info_header = nullptr;
    choose("mainline");
    info_header = kept;
    EXPECT_EQ(state.channel, "mainline");
    EXPECT_EQ(accents(), "acc-stable");
    EXPECT_EQ(badges(), "100");
    EXPECT_EQ(g_calls, 1);
}

TEST_F(InfoWindow, MarkingSkipsWhatIsMissing) {
    show_info_window(state, note_change);
    auto* ctx = static_cast<ChannelCtx*>(g_object_get_data(G_OBJECT(combo()), "channel-ctx"));
    ctx->rows[0] = nullptr;
    g_object_set_data(G_OBJECT(row(1)), "panel-badge", nullptr);
    state.channel = "longterm";
    mark_active_channel(ctx);
    EXPECT_EQ(badges(), "011");
    state.channel = "mainline";
    mark_active_channel(ctx);
    EXPECT_EQ(badges(), "010");
}

/// Kept on purpose: the window shows what was known when it opened.
TEST_F(InfoWindow, ChangeOfStateWhileOpenDoesNotShow) {
    show_info_window(state, note_change);
    state.stable = "7.2.5";
    state.mainline = "";
    g_running_kernel = "6.19.0";
    choose("longterm");
    EXPECT_EQ(text(value(0)), "7.3-rc2");
    EXPECT_EQ(text(value(1)), "7.2.4");
    EXPECT_EQ(text(running_value()), "6.18.9-generic");

    close_info_window();
    show_info_window(state, note_change);
    EXPECT_EQ(text(value(0)), "…");
    EXPECT_EQ(text(value(1)), "7.2.5");
    EXPECT_EQ(text(running_value()), "6.19.0");
    EXPECT_EQ(badges(), "001");
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

TEST_F(InfoWindow, OpenWindowIsRaisedUnchanged) {
    show_info_window(state, note_change);
    GtkWidget* const first = info_win;
    EXPECT_EQ(g_presented, 0);
    const std::string before = describe(first);

    AppState other{"1", "2", "3", "4", "5", "mainline"};
    show_info_window(other, note_other_change);
    EXPECT_EQ(g_presented, 1);
    EXPECT_EQ(g_last_presented, GTK_WINDOW(first));
    EXPECT_EQ(info_win, first);
    EXPECT_EQ(describe(first), before);
    EXPECT_EQ(g_kernel_asked, 1);
    EXPECT_EQ(open_windows().size(), 1U);
    EXPECT_EQ(g_styled.size(), 1U);

    choose("longterm");
    EXPECT_EQ(state.channel, "longterm");
    EXPECT_EQ(other.channel, "mainline");
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(g_other_calls, 0);
}

TEST_F(InfoWindow, ClosesTwiceAndWithoutBeingOpen) {
    close_info_window();
    close_info_window();
    show_info_window(state, note_change);
    close_info_window();
    EXPECT_EQ(info_win, nullptr);
    EXPECT_EQ(info_header, nullptr);
    EXPECT_EQ(open_windows().size(), 0U);
    close_info_window();
    EXPECT_EQ(info_win, nullptr);
}

TEST_F(InfoWindow, OpensAgainAfterEachWayToClose) {
    for (int i = 0; i < 3; ++i) {
        show_info_window(state, note_change);
        EXPECT_TRUE(info_win);
        EXPECT_EQ(info_header, header());
        if (i == 0) close_info_window();
        if (i == 1) gtk_button_clicked(GTK_BUTTON(close_button()));
        if (i == 2) {
            EXPECT_TRUE(ask_to_close(info_win));
        }
        EXPECT_EQ(info_win, nullptr);
        EXPECT_EQ(info_header, nullptr);
        EXPECT_EQ(open_windows().size(), 0U);
    }
    EXPECT_EQ(g_presented, 0);
    EXPECT_EQ(g_kernel_asked, 3);
    EXPECT_EQ(g_styled.size(), 3U);
}

TEST_F(InfoWindow, LeavesNoWidgetBehind) {
    Lives lives;
    show_info_window(state, note_change);
    lives.watch(info_win);
    ASSERT_TRUE(run_loop_until_drawn(info_win));
    choose("mainline");
    EXPECT_GT(lives.count(), 30U);
    close_info_window();
    EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 0; })) << lives.count();
}

}  // namespace
