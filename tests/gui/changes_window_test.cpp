#include "tree.h"

#include "changes_window.cpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

using namespace std::string_literals;

// ---- What the tests put in the place of the net, and what they see of GTK's work ------------------------------------

namespace {

/// The site of the tests, where each load waits until the test answers it. Any thread.
class Site {
  public:
    struct Load {
        std::string channel;
        std::string known_version;
        std::thread::id thread;
        std::optional<ChangeLog> answer;
    };

    /// What a load thread does.
    ChangeLog fetch(const std::string& channel, const std::string& known_version) {
        std::unique_lock lock(mutex_);
        Load& load = loads_.emplace_back(Load{channel, known_version, std::this_thread::get_id(), {}});
        answered_.wait(lock, [&load] { return load.answer.has_value(); });
        return *load.answer;
    }

    size_t started() const {
        const std::lock_guard lock(mutex_);
        return loads_.size();
    }
    Load load(size_t number) const {
        const std::lock_guard lock(mutex_);
        return loads_.at(number);
    }
    void answer(size_t number, const ChangeLog& log) {
        const std::lock_guard lock(mutex_);
        loads_.at(number).answer = log;
        answered_.notify_all();
    }
    void answer_rest() {
        const std::lock_guard lock(mutex_);
        for (Load& load : loads_) {
            if (!load.answer) load.answer.emplace();
        }
        answered_.notify_all();
    }
    /// Only while no load waits.
    void forget() {
        const std::lock_guard lock(mutex_);
        loads_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::deque<Load> loads_;
};

/// Never destroyed: a load may outlive the test program's own end, as it may outlive the program's.
Site& g_site = *new Site;

/// How many results were put before the main loop, and how many it has taken.
std::atomic<size_t> g_posted{0};
size_t g_delivered = 0;
int g_presented = 0;
GtkWindow* g_last_presented = nullptr;
/// The windows there were whenever the stylesheet was applied, as they were then, and their settings.
std::vector<WindowState> g_styled;
std::vector<std::string> g_settings_then;

}  // namespace

ChangeLog fetch_changelog(const std::string& channel, const std::string& known_version) {
    return g_site.fetch(channel, known_version);
}

extern "C" {

guint __real_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc callback, gpointer data) {
    if (callback != apply_result) return __real_g_idle_add(callback, data);
    ++g_posted;
    return __real_g_idle_add(
        [](gpointer result) -> gboolean {
            ++g_delivered;
            return apply_result(result);
        },
        data);
}

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

static_assert(std::is_same_v<decltype(g_request), std::atomic<unsigned int>>);
static_assert(std::is_same_v<decltype(LoadResult::request), unsigned int>);
static_assert(std::is_same_v<decltype(LoadResult::log), ChangeLog>);

const std::vector<ChangeEntry> TWO_ENTRIES = {{
                                                  "9c1d2e3f4a5b",
                                                  "Ada Example <ada@example.org>",
                                                  "Mon Mar 2 10:11:12 2026 +0100",
                                                  "usb: fix a leak",
                                                  "The buffer was kept.\n\nCc: stable",
                                              },
                                              {"0a1b2c3d4e5f", "Bo Example <bo@example.org>", "", "Tidy up", ""}};

ChangeLog success(const std::vector<ChangeEntry>& entries = TWO_ENTRIES) {
    ChangeLog log;
    log.channel = "stable";
    log.version = "7.2.4";
    log.released = "2026-03-02";
    log.web_url = "https://www.kernel.org/log";
    log.entries = entries;
    log.total_found = static_cast<int>(entries.size());
    log.success = true;
    return log;
}

ChangeLog failure(const std::string& error) {
    ChangeLog log;
    log.channel = "stable";
    log.error = error;
    return log;
}

std::string text(GtkWidget* label) {
    return gtk_label_get_text(GTK_LABEL(label));
}

/// The window and its loads. Closed before and after each test, with every result taken.
class Changes : public testing::Test {
  protected:
    Changes() { g_known = {}; }
    ~Changes() override {
        close_changes_window();
        EXPECT_TRUE(run_loop_until([] {
            g_site.answer_rest();
            return g_site.started() >= loads_begun_ && g_delivered == g_site.started();
        }));
        EXPECT_EQ(g_site.started(), loads_begun_);
        g_site.forget();
        g_posted = 0;
        g_delivered = 0;
        g_presented = 0;
        g_styled.clear();
        g_settings_then.clear();
        loads_begun_ = 0;
        EXPECT_EQ(open_windows().size(), 0U);
    }

    /// Waits until the load that was just begun asks the site. Each load is to be awaited, so that their order is sure.
    static void await_load() {
        ++loads_begun_;
        ASSERT_TRUE(run_loop_until([] { return g_site.started() >= loads_begun_; }));
    }
    void open() {
        show_changes_window(state);
        await_load();
    }
    static void refresh() {
        gtk_button_clicked(GTK_BUTTON(changes_refresh));
        await_load();
    }
    static void select(const char* id) {
        ASSERT_TRUE(gtk_combo_box_set_active_id(GTK_COMBO_BOX(changes_combo), id));
        await_load();
    }
    /// Answers a load, counted from 0, and waits until the main loop has taken the result.
    static void answer(size_t number, const ChangeLog& log) {
        const size_t before = g_delivered;
        g_site.answer(number, log);
        ASSERT_TRUE(run_loop_until([before] { return g_delivered == before + 1; }));
    }
    void open_with(const ChangeLog& log) {
        open();
        answer(0, log);
    }

    static std::string subtitle() {
        return text(GTK_WIDGET(g_object_get_data(G_OBJECT(changes_header), "subtitle-label")));
    }
    static std::string status() { return text(changes_status); }
    static std::string accents() {
        std::string names;
        for (const std::string& name : classes_of(changes_header)) {
            if (name != "hdr") names += name;
        }
        return names;
    }
    static std::vector<GtkWidget*> cards() { return children_of(changes_body); }
    static bool spinning() { return cards().size() == 1 && GTK_IS_SPINNER(descendant(changes_body, {0, 0})); }
    static bool usable() {
        EXPECT_EQ(gtk_widget_get_sensitive(changes_refresh), gtk_widget_get_sensitive(changes_combo));
        return gtk_widget_is_sensitive(changes_refresh) && gtk_widget_is_sensitive(changes_combo);
    }
    static bool link_shown() { return gtk_widget_get_visible(changes_link); }
    static std::string link_address() { return gtk_link_button_get_uri(GTK_LINK_BUTTON(changes_link)); }
    static GtkWidget* close_button() { return descendant(changes_win, {0, 3, 1}); }
    static GtkWidget* focus() { return gtk_window_get_focus(GTK_WINDOW(changes_win)); }

    static bool all_statics_are(bool set) {
        for (const GtkWidget* widget : {changes_win, changes_header, changes_body, changes_status, changes_combo,
                                        changes_refresh, changes_link}) {
            if ((widget != nullptr) != set) return false;
        }
        return true;
    }

    AppState state{"7.2.3", "7.2.4", "7.3-rc2", "7.2.4", "6.18.50", "stable"};

  private:
    /// How many loads this test began.
    static inline size_t loads_begun_ = 0;
};

// ---- What the window is made of -------------------------------------------------------------------------------------

TEST_F(Changes, WindowIsBuiltToTheLetter) {
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

TEST_F(Changes, ScrollsBothWaysAsNeeded) {
    open();
    GtkPolicyType across = GTK_POLICY_NEVER;
    GtkPolicyType down = GTK_POLICY_NEVER;
    gtk_scrolled_window_get_policy(GTK_SCROLLED_WINDOW(descendant(changes_win, {0, 2})), &across, &down);
    EXPECT_EQ(across, GTK_POLICY_AUTOMATIC);
    EXPECT_EQ(down, GTK_POLICY_AUTOMATIC);
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

TEST_F(Changes, OpenOneIsRaisedAsItIs) {
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

TEST_F(Changes, OpenOneIsRaisedDuringItsLoad) {
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

TEST_F(Changes, UnknownVersionIsAskedForAsEmpty) {
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

/// Writes down what happens to the parts of the open window: for each step a word, and how much the body holds then.
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

TEST_F(Changes, ControlsWaitForTheResult) {
    open();
    EXPECT_FALSE(usable());
    answer(0, success());
    EXPECT_TRUE(usable());
    refresh();
    EXPECT_FALSE(usable());
    answer(1, failure("No."));
    EXPECT_TRUE(usable());
    select("mainline");
    EXPECT_FALSE(usable());
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

TEST_F(Changes, RefreshAfterAFailureBringsTheList) {
    open_with(failure("The site is away."));
    refresh();
    EXPECT_TRUE(spinning());
    answer(1, success());
    EXPECT_EQ(cards().size(), 2U);
    EXPECT_EQ(status(), "2 changes");
    EXPECT_TRUE(link_shown());
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

// ---- A list -----------------------------------------------------------------------------------------------------

TEST_F(Changes, ListShowsACardForEachCommit) {
    open_with(success());
    EXPECT_EQ(describe(changes_win), R"(
GtkWindow default-height=660 default-width=780 title="Latest Kernel Changes" window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-stable.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="Latest Kernel Changes" xalign=0
        GtkLabel.hdr-subtitle [start] label="stable  ·  7.2.4  ·  released 2026-03-02" wrap xalign=0
    GtkBox.toolbar [start] spacing=8
      GtkLabel.status [start expand fill] ellipsize=end label="2 changes" xalign=0
      GtkComboBoxText [end] active=1 tooltip-text="Which channel to show. Preselected from Settings; changing it here does not change the panel label." rows=mainline:Mainline,stable:Stable,longterm:Longterm
      GtkButton [end] label="Refresh"
    GtkScrolledWindow [start expand fill]
      GtkViewport
        GtkBox margin-bottom=6 margin-top=6 orientation=vertical
          GtkBox.commit-card.is-fix [start] margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
            GtkBox [start] spacing=8
              GtkLabel.tag.tag-1 [start] label="usb" margin-top=2 valign=start
              GtkExpander [start expand fill]
                GtkLabel.subject label="fix a leak" wrap xalign=0
                GtkLabel.mono label="The buffer was kept.

Cc: stable" margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
            GtkBox [start] spacing=8
              GtkLabel.meta [start expand fill] ellipsize=end label="Ada Example  ·  Mon Mar 2 10:11:12 2026 +0100" xalign=0
              GtkLabel.badge-hash [end] label="9c1d2e3f4a5b" valign=center
          GtkBox.commit-card [start] margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
            GtkBox [start] spacing=8
              GtkLabel.subject [start expand fill] label="Tidy up" wrap xalign=0
            GtkBox [start] spacing=8
              GtkLabel.meta [start expand fill] ellipsize=end label="Bo Example" xalign=0
              GtkLabel.badge-hash [end] label="0a1b2c3d4e5f" valign=center
    GtkBox [start] margin-bottom=10 margin-end=14 margin-start=14 margin-top=8
      GtkLinkButton [start] halign=start label="Open the full changelog on Kernhaven" no-show-all uri="https://www.kernel.org/log"
      GtkButton [end] label="Close"
)");
}

TEST_F(Changes, CardsKeepTheOrderOfTheSource) {
    std::vector<ChangeEntry> entries;
    for (const char* subject : {"c", "a", "b", "a"}) entries.push_back({"", "", "", subject, ""});
    open_with(success(entries));
    std::string subjects;
    for (GtkWidget* card : cards()) subjects += text(descendant(card, {0, 0}));
    EXPECT_EQ(subjects, "caba");
}

TEST_F(Changes, MessageTakesItsPlaceOnlyWhileItIsOpen) {
    open_with(success());
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    const auto height = [] { return gtk_widget_get_allocated_height(descendant(changes_body, {0})); };
    auto* expander = GTK_EXPANDER(descendant(changes_body, {0, 0, 1}));
    const int closed = height();
    EXPECT_LT(closed, 100);
    gtk_expander_set_expanded(expander, TRUE);
    EXPECT_TRUE(run_loop_until([&] { return height() > closed + 20; }));
    gtk_expander_set_expanded(expander, FALSE);
    EXPECT_TRUE(run_loop_until([&] { return height() == closed; }));
}

TEST_F(Changes, StatusCountsTheRows) {
    const ChangeEntry entry{"", "", "", "x", ""};
    open();
    const auto shown = [&entry](size_t rows, int total, bool truncated) {
        ChangeLog log = success(std::vector<ChangeEntry>(rows, entry));
        log.total_found = total;
        log.truncated = truncated;
        apply_result(new LoadResult{g_request, log});
        EXPECT_EQ(cards().size(), rows);
        return status();
    };
    EXPECT_EQ(shown(0, 0, false), "0 changes");
    EXPECT_EQ(shown(1, 1, false), "1 change");
    EXPECT_EQ(shown(2, 2, false), "2 changes");
    EXPECT_EQ(shown(11, 11, false), "11 changes");
    EXPECT_EQ(shown(400, 1200, true), "400 changes shown of 1200 — list capped");
    EXPECT_EQ(shown(400, 1200, false), "400 changes");
    EXPECT_EQ(shown(1, 20000, true), "1 change shown of 20000 — list capped");
    EXPECT_EQ(shown(2, 2, true), "2 changes shown of 2 — list capped");
}

TEST_F(Changes, EmptyListIsNoFailure) {
    open_with(success({}));
    EXPECT_TRUE(cards().empty());
    EXPECT_EQ(status(), "0 changes");
    EXPECT_EQ(subtitle(), "stable  ·  7.2.4  ·  released 2026-03-02");
    EXPECT_TRUE(usable());
}

TEST_F(Changes, SubtitleEndsAfterTheVersionWithoutADate) {
    ChangeLog log = success();
    log.released = "";
    open_with(log);
    EXPECT_EQ(subtitle(), "stable  ·  7.2.4");
}

TEST_F(Changes, SubtitleNamesTheResultsChannel) {
    ChangeLog log = success();
    log.channel = "longterm";
    log.version = "";
    open_with(log);
    EXPECT_EQ(subtitle(), "longterm  ·    ·  released 2026-03-02");
    EXPECT_EQ(accents(), "acc-stable");
}

TEST_F(Changes, LinkLeadsWhereTheResultSays) {
    open();
    EXPECT_EQ(link_address(), VELDRIN_RELEASE_SITE);
    answer(0, success());
    EXPECT_TRUE(link_shown());
    EXPECT_EQ(link_address(), "https://www.kernel.org/log");
    refresh();
    EXPECT_FALSE(link_shown());
    ChangeLog log = success();
    log.web_url = "https://git.kernel.org/other?h=a&b=%20c";
    answer(1, log);
    EXPECT_TRUE(link_shown());
    EXPECT_EQ(link_address(), "https://git.kernel.org/other?h=a&b=%20c");
}

TEST_F(Changes, LinkIsHiddenWithoutAnAddress) {
    ChangeLog log = success();
    log.web_url = "";
    open_with(log);
    EXPECT_FALSE(link_shown());
    apply_result(new LoadResult{g_request, success()});
    EXPECT_TRUE(link_shown());
    apply_result(new LoadResult{g_request, log});
    EXPECT_FALSE(link_shown());
}

TEST_F(Changes, NewResultReplacesTheOld) {
    open_with(success());
    Lives lives;
    for (GtkWidget* card : cards()) lives.watch(card);
    apply_result(new LoadResult{g_request, failure("Gone.")});
    EXPECT_EQ(lives.count(), 0U);
    EXPECT_EQ(cards().size(), 1U);
    apply_result(new LoadResult{g_request, success()});
    EXPECT_EQ(cards().size(), 2U);
}

TEST_F(Changes, ClearingWithoutAWindowDoesNothing) {
    ASSERT_EQ(changes_body, nullptr);
    clear_body();
    open_with(success());
    clear_body();
    EXPECT_TRUE(cards().empty());
    clear_body();
    EXPECT_TRUE(cards().empty());
}

// ---- The keyboard ---------------------------------------------------------------------------------------------------

TEST_F(Changes, MessageTakesTheFocusOnlyWhileItsCardIsOpen) {
    open_with(success());
    GtkWidget* expander = descendant(changes_body, {0, 0, 1});
    GtkWidget* message = descendant(expander, {1});
    const auto next = [expander] {
        gtk_widget_grab_focus(expander);
        gtk_widget_child_focus(changes_win, GTK_DIR_TAB_FORWARD);
        return focus();
    };
    EXPECT_EQ(next(), changes_link);
    gtk_expander_set_expanded(GTK_EXPANDER(expander), TRUE);
    EXPECT_EQ(next(), message);
    gtk_expander_set_expanded(GTK_EXPANDER(expander), FALSE);
    EXPECT_EQ(next(), changes_link);
}

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

TEST_F(Changes, FocusStaysWhereItWasLedDuringALoad) {
    open_with(success());
    gtk_widget_grab_focus(changes_refresh);
    refresh();
    gtk_widget_grab_focus(close_button());
    answer(1, success());
    EXPECT_EQ(focus(), close_button());
    // The next load does not go by the last one's start.
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

// ---- A failure ------------------------------------------------------------------------------------------------------

TEST_F(Changes, FailureShowsItsWordsInACard) {
    ChangeLog log = failure("Kernhaven did not answer.\nIs there a connection?");
    log.web_url = "https://www.kernel.org/log";
    log.version = "7.2.4";
    open_with(log);
    EXPECT_EQ(describe(changes_body), R"(
GtkBox margin-bottom=6 margin-top=6 orientation=vertical
  GtkBox.card [start] margin-end=16 margin-start=16 margin-top=16 orientation=vertical spacing=6
    GtkLabel.val-strong [start] label="Could not load the changes" xalign=0
    GtkLabel.error-text [start] label="Kernhaven did not answer.
Is there a connection?" selectable wrap xalign=0
)");
    EXPECT_EQ(status(), "Nothing loaded.");
    EXPECT_EQ(subtitle(), "no data");
    EXPECT_FALSE(link_shown());
    EXPECT_EQ(link_address(), VELDRIN_RELEASE_SITE);
    EXPECT_TRUE(usable());
}

TEST_F(Changes, FailureKeepsTheChannelsColour) {
    state.channel = "longterm";
    open_with(failure("No."));
    EXPECT_EQ(accents(), "acc-longterm");
}

TEST_F(Changes, FailureHidesALinkThatShows) {
    open_with(success());
    ChangeLog log = failure("No.");
    log.web_url = "https://www.kernel.org/other";
    apply_result(new LoadResult{g_request, log});
    EXPECT_FALSE(link_shown());
}

TEST_F(Changes, FailureShowsNoEntries) {
    ChangeLog log = success();
    log.success = false;
    log.error = "Half of it.";
    open_with(log);
    ASSERT_EQ(cards().size(), 1U);
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), "Half of it.");
}

TEST_F(Changes, FailureWithoutWordsIsAFailureAllTheSame) {
    open_with(failure(""));
    EXPECT_EQ(text(descendant(changes_body, {0, 0})), "Could not load the changes");
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), "");
}

// ---- Any text -------------------------------------------------------------------------------------------------------

TEST_F(Changes, TextsArePlain) {
    const std::string odd = "<b>&amp;_a</b> %s & <";
    ChangeLog log = success({{odd, odd, odd, "tag<_&: " + odd, odd}});
    log.version = log.released = odd;
    open_with(log);
    GtkWidget* expander = descendant(changes_body, {0, 0, 1});
    EXPECT_EQ(text(descendant(changes_body, {0, 0, 0})), "tag<_&");
    EXPECT_EQ(text(descendant(expander, {0})), odd);
    EXPECT_EQ(text(descendant(expander, {1})), odd);
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 0})), "<b>&amp;_a</b> %s &  ·  " + odd);
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 1})), odd);
    EXPECT_EQ(subtitle(), "stable  ·  " + odd + "  ·  released " + odd);
    apply_result(new LoadResult{g_request, failure(odd)});
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), odd);
}

TEST_F(Changes, BytesThatAreNoTextAreShownWithoutAWarning) {
    const std::string bad = "caf\xe9 \xff\xc3 \xf0\x9f\x90 end";
    ChangeLog log = success({{bad, bad, bad, "dr\xefver: " + bad, bad}, {"", bad, "", bad, ""}});
    log.channel = log.version = log.released = bad;
    open_with(log);
    gtk_expander_set_expanded(GTK_EXPANDER(descendant(changes_body, {0, 0, 1})), TRUE);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));

    size_t labels = 0;
    for (GtkWidget* widget : all_widgets(changes_win)) {
        if (!GTK_IS_LABEL(widget)) continue;
        EXPECT_TRUE(g_utf8_validate(gtk_label_get_text(GTK_LABEL(widget)), -1, nullptr));
        ++labels;
    }
    EXPECT_GT(labels, 10U);
    const std::string message = text(descendant(changes_body, {0, 0, 1, 1}));
    EXPECT_TRUE(message.starts_with("caf")) << message;
    EXPECT_TRUE(message.ends_with(" end")) << message;
    EXPECT_TRUE(text(descendant(changes_body, {0, 0, 0})).starts_with("dr"));

    apply_result(new LoadResult{g_request, failure(bad)});
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_TRUE(g_utf8_validate(text(descendant(changes_body, {0, 1})).c_str(), -1, nullptr));
}

TEST_F(Changes, ChannelThatIsNoTextIsLoadedWithoutAWarning) {
    state.channel = "\xe9tat";
    open();
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_EQ(g_site.load(0).channel, "\xe9tat");
    EXPECT_TRUE(subtitle().ends_with("tat  ·  loading …"));
}

TEST_F(Changes, TextOfManyAlphabetsIsShownAsItIs) {
    const std::string name = "Łukasz Ünïcödé 東京 🐧";
    open_with(success({{"", name + " <a@example.org>", "", name, name}}));
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 0})), name);
    EXPECT_EQ(text(descendant(changes_body, {0, 0, 0, 1})), name);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
}

TEST_F(Changes, LongestListWithLongMessagesIsShown) {
    std::vector<ChangeEntry> entries;
    for (int i = 0; i < 400; ++i) {
        std::string body;
        for (int line = 0; line < 40; ++line) body += "A line of the message that tells what was wrong.\n";
        entries.push_back({"0a1b2c3d4e5f", "Ada <a@b>", "today", "net: change " + std::to_string(i), body + "\xff"});
    }
    ChangeLog log = success(entries);
    log.total_found = 1200;
    log.truncated = true;
    open_with(log);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_EQ(cards().size(), 400U);
    EXPECT_EQ(text(descendant(changes_body, {399, 0, 1, 0})), "change 399");
    EXPECT_EQ(all_widgets(cards()[0]).size(), 9U);
    EXPECT_EQ(status(), "400 changes shown of 1200 — list capped");
}

// ---- One card -------------------------------------------------------------------------------------------------------

/// Describes the card of `entry`.
std::string card_of(const ChangeEntry& entry) {
    GtkWidget* card = build_entry_row(entry);
    EXPECT_TRUE(g_object_is_floating(card));
    g_object_ref_sink(card);
    const std::string described = describe(card);
    gtk_widget_destroy(card);
    g_object_unref(card);
    return described;
}

TEST(Card, WithEverythingHasAnExpander) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "Ada <a@b>", "2026-03-02", "drm: Revert a thing", "Why."}), R"(
GtkBox.commit-card.is-fix hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.tag.tag-2 [start] hidden label="drm" margin-top=2 valign=start
    GtkExpander [start expand fill] hidden
      GtkLabel.subject hidden label="Revert a thing" wrap xalign=0
      GtkLabel.mono hidden label="Why." margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="Ada  ·  2026-03-02" xalign=0
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, WithoutABodyIsAPlainLabel) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "Ada <a@b>", "", "net: x", ""}), R"(
GtkBox.commit-card hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.tag.tag-0 [start] hidden label="net" margin-top=2 valign=start
    GtkLabel.subject [start expand fill] hidden label="x" wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="Ada" xalign=0
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, WithoutATagBeginsWithTheSubject) {
    EXPECT_EQ(card_of({"", "", "2026-03-02", "Merge tag fixes of that tree", "Why."}), R"(
GtkBox.commit-card.is-merge hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkExpander [start expand fill] hidden
      GtkLabel.subject hidden label="Merge tag fixes of that tree" wrap xalign=0
      GtkLabel.mono hidden label="Why." margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="2026-03-02" xalign=0
)");
}

TEST(Card, WithNeitherAuthorNorDateHasTheHashAlone) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "", "", "Linux 6.8", ""}), R"(
GtkBox.commit-card.is-release hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.subject [start expand fill] hidden label="Linux 6.8" wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, OfAnEmptyCommitKeepsItsRows) {
    EXPECT_EQ(card_of({}), R"(
GtkBox.commit-card hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.subject [start expand fill] hidden wrap xalign=0
  GtkBox [start] hidden spacing=8
)");
}

TEST(Card, OfAnAddressWithoutANameShowsTheDateAlone) {
    EXPECT_NE(card_of({"", " <a@b>", "2026-03-02", "x", ""}).find(R"(label="2026-03-02" xalign)"), std::string::npos);
}

TEST(Card, ColoursTheTagByItsName) {
    EXPECT_NE(card_of({"", "", "", "drm/i915: foo: bar", ""}).find('.' + ("tag."s + theme_tag_class("drm/i915"))),
              std::string::npos);
}

std::string kind(const std::string& subject) {
    const char* name = card_kind_class({"", "", "", subject, "fix Linux Merge"});
    return name ? name : "none";
}

TEST(Kind, OfAReleaseStandsAboveAll) {
    EXPECT_EQ(kind("Linux 6.8"), "is-release");
    EXPECT_EQ(kind("Linux 6.8 fixes a revert"), "is-release");
    EXPECT_EQ(kind("Linux "), "is-release");
}

TEST(Kind, OfAMergeStandsAboveFixes) {
    EXPECT_EQ(kind("Merge tag fixes of that tree"), "is-merge");
    EXPECT_EQ(kind("Merge branch 'revert'"), "is-merge");
    EXPECT_EQ(kind("Merge "), "is-merge");
}

TEST(Kind, OfAFixIsAnyWordThatHoldsIt) {
    for (const char* subject :
         {"usb: fix a leak", "net: prefix handling", "Revert \"net: foo\"", "Revert \"Linux 6.8\"", "net: FIX it",
          "x: fIxEs", "a revERTed thing", "fix", "suffixes", "linux fix", "merge fix", "\xe9\xff fix"}) {
        EXPECT_EQ(kind(subject), "is-fix") << subject;
    }
}

TEST(Kind, IsNoneOtherwise) {
    for (const char* subject : {"", "net: add a thing", "linux 6.8", "Linux", "Linux-6.8", "merge tag", "Merge",
                                "Merged tag", " Linux 6.8", "x Merge y", "f ix", "fi", "rever", "\xe9\xff"}) {
        EXPECT_EQ(kind(subject), "none") << subject;
    }
}

TEST(Kind, TakesTheWholeSubject) {
    // A tag that holds the word counts, too.
    EXPECT_EQ(kind("fixdep: build"), "is-fix");
    EXPECT_EQ(kind("net: Linux 6.8"), "none");
    EXPECT_EQ(kind("net: Merge x"), "none");
}

/// Returns tag and rest of a subject with a bar between them.
std::string split(const std::string& subject) {
    std::string tag;
    std::string rest = "not set";
    split_subject(subject, tag, rest);
    return tag + "|" + rest;
}

TEST(Subject, IsSplitAtItsFirstColonAndBlank) {
    EXPECT_EQ(split("net: fix a leak"), "net|fix a leak");
    EXPECT_EQ(split("drm/i915: foo: bar"), "drm/i915|foo: bar");
    EXPECT_EQ(split("a,b/c_d-e[1]: x"), "a,b/c_d-e[1]|x");
    EXPECT_EQ(split("a:b: c"), "a:b|c");
    EXPECT_EQ(split("a\tb: c"), "a\tb|c");
    EXPECT_EQ(split("net:  two"), "net| two");
    EXPECT_EQ(split("net: "), "net|");
    EXPECT_EQ(split("net:: x"), "net:|x");
    EXPECT_EQ(split("\xe9\xff: x"), "\xe9\xff|x");
}

TEST(Subject, WithoutATagStaysWhole) {
    for (const std::string whole : {"", "Linux 6.8", "fix the net: at last", "Revert \"net: foo\"", "net:foo",
                                    "net:", ": foo", ": foo: bar", ":", "a b: c: d", "net :x", "net : x", "x:\ty"}) {
        EXPECT_EQ(split(whole), "|" + whole);
    }
}

TEST(Subject, HasATagOfTwentyEightCharactersAtMost) {
    for (size_t length = 1; length < 40; ++length) {
        const std::string name(length, 'n');
        EXPECT_EQ(split(name + ": rest"), length <= 28 ? name + "|rest" : "|" + name + ": rest") << length;
    }
}

TEST(Author, IsTheNameWithoutTheAddress) {
    EXPECT_EQ(author_name("Ada Example <ada@example.org>"), "Ada Example");
    EXPECT_EQ(author_name("Ada Example"), "Ada Example");
    EXPECT_EQ(author_name(""), "");
    EXPECT_EQ(author_name("<ada@example.org>"), "<ada@example.org>");
    EXPECT_EQ(author_name("Ada<ada@example.org>"), "Ada<ada@example.org>");
    EXPECT_EQ(author_name(" <ada@example.org>"), "");
    EXPECT_EQ(author_name("Ada <a> <b>"), "Ada");
    EXPECT_EQ(author_name("Ada  <a>"), "Ada ");
    EXPECT_EQ(author_name("Ada <"), "Ada");
}

}  // namespace
