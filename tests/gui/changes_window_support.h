// SPDX-License-Identifier: MIT
// What the tests of the changes window share: a site whose loads wait for the test's answers, what the tests see of
// GTK's work, two commits, and the window's parts. It defines functions of the program and of GTK, so one source of
// each program includes it. Main thread only, but for Site::fetch().
#pragma once

#include "tree.h"

#include "changes_window.cpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace std::string_literals;

// ---- The site, and what the tests see of GTK's work ----

/// A site where each load waits until the test answers it. Any thread.
class Site {
  public:
    struct Load {
        std::string channel;
        std::string known_version;
        std::thread::id thread;
        std::optional<ChangeLog> answer;
    };

    /// Waits for the test's answer. Load threads call this.
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
    /// Forgets all loads. No load may be waiting.
    void forget() {
        const std::lock_guard lock(mutex_);
        loads_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::deque<Load> loads_;
};

/// Never destroyed: a load may still run when the test program ends, as it may in the program.
inline Site& g_site = *new Site;

/// How many results were handed to the main loop, and how many of them it has taken.
inline std::atomic<size_t> g_posted{0};
inline size_t g_delivered = 0;
inline int g_presented = 0;
inline GtkWindow* g_last_presented = nullptr;
/// What each window was like, each time that the stylesheet was applied, and its settings.
inline std::vector<WindowState> g_styled;
inline std::vector<std::string> g_settings_then;

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

// ---- What is loaded ----

static_assert(std::is_same_v<decltype(g_request), std::atomic<unsigned int>>);
static_assert(std::is_same_v<decltype(LoadResult::request), unsigned int>);
static_assert(std::is_same_v<decltype(LoadResult::log), ChangeLog>);

inline const std::vector<ChangeEntry> TWO_ENTRIES = {
    {
        "9c1d2e3f4a5b",
        "Ada Example <ada@example.org>",
        "Mon Mar 2 10:11:12 2026 +0100",
        "usb: fix a leak",
        "The buffer was kept.\n\nCc: stable",
    },
    {"0a1b2c3d4e5f", "Bo Example <bo@example.org>", "", "Tidy up", ""}};

inline ChangeLog success(const std::vector<ChangeEntry>& entries = TWO_ENTRIES) {
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

inline ChangeLog failure(const std::string& error) {
    ChangeLog log;
    log.channel = "stable";
    log.error = error;
    return log;
}

// ---- The window's parts ----

inline std::string text(GtkWidget* label) {
    return gtk_label_get_text(GTK_LABEL(label));
}

/// The window and its loads. Before and after each test it is closed, and every result is taken.
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

    /// Waits until the load that was just begun asks the site. Every load must be awaited, or their order is unknown.
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
