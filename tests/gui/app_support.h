// SPDX-License-Identifier: MIT
// What the tests of the applet share: what stands in the place of other modules, a record of the steps that the applet
// takes through the libraries, an applet without its thread, and main(). It defines functions of the program and of the
// libraries, so one source of each program includes it.
#pragma once

#include "support.h"

#include "app.cpp"

#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

// ---- Other modules and libraries ----

inline std::function<KernelVersions()> g_check;
inline bool g_picture_fails = false;
inline std::atomic<int> g_posts[4];
inline std::atomic<int> g_results_posted;
inline int g_abouts = 0;
/// For how many seconds each call asked to sleep. One thread at a time writes here.
inline std::vector<long> g_sleeps;

/// Records the main thread's steps for as long as it lives: what it asks of the libraries and, before each such step,
/// which of the conditions have become true.
class Record {
  public:
    using Condition = std::pair<std::string, std::function<bool()>>;

    explicit Record(std::vector<Condition> conditions) : conditions_(std::move(conditions)) { current = this; }
    ~Record() { current = nullptr; }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    static void add(const std::string& step) {
        if (!current) return;
        current->look();
        current->steps_.push_back(step);
    }

    const std::vector<std::string>& steps() {
        look();
        return steps_;
    }

    static inline Record* current = nullptr;

  private:
    void look() {
        std::erase_if(conditions_, [this](const Condition& condition) {
            const bool is_true = condition.second();
            if (is_true) steps_.push_back(condition.first);
            return is_true;
        });
    }

    std::vector<Condition> conditions_;
    std::vector<std::string> steps_;
};

std::string get_running_kernel() {
    return "6.1.0-test";
}

ChangeLog fetch_changelog(const std::string&, const std::string&) {
    return {};
}

KernelVersions fetch_kernel_versions() {
    return g_check();
}

// The real one returns only when the user closes it.
void show_about_dialog() {
    ++g_abouts;
}

extern "C" {

GdkPixbuf* __real_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar* data, GdkColorspace space, gboolean alpha, int bits, int width,
                                           int height, int stride, GdkPixbufDestroyNotify destroy, gpointer user) {
    Record::add("picture");
    if (g_picture_fails) return nullptr;
    return __real_gdk_pixbuf_new_from_data(data, space, alpha, bits, width, height, stride, destroy, user);
}

guint __real_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc callback, gpointer data) {
    const GSourceFunc windows[] = {open_info_window, open_about_dialog, open_changes_window, open_system_window};
    const auto* window = std::find(std::begin(windows), std::end(windows), callback);
    if (window != std::end(windows)) ++g_posts[window - windows];
    if (callback == update_from_fetch) ++g_results_posted;
    return __real_g_idle_add(callback, data);
}

int __wrap_nanosleep(const timespec*, timespec*);
int __wrap_nanosleep(const timespec* length, timespec*) {
    g_sleeps.push_back(length->tv_nsec == 0 ? length->tv_sec : -1);
    return 0;
}

void __real_gtk_init(int*, char***);
void __wrap_gtk_init(int*, char***);
void __wrap_gtk_init(int* argc, char*** argv) {
    Record::add("gtk_init " + std::to_string(*argc) + " " + (*argv)[*argc - 1]);
    __real_gtk_init(argc, argv);
}

char* __real_setlocale(int, const char*);
char* __wrap_setlocale(int, const char*);
char* __wrap_setlocale(int category, const char* locale) {
    Record::add("setlocale " + std::to_string(category) + " " + locale);
    return __real_setlocale(category, locale);
}

gint __real_g_mkdir_with_parents(const gchar*, gint);
gint __wrap_g_mkdir_with_parents(const gchar*, gint);
gint __wrap_g_mkdir_with_parents(const gchar* path, gint mode) {
    // This is the user's own folder, which no test may touch.
    if (!Record::current) return __real_g_mkdir_with_parents(path, mode);
    Record::add("mkdir " + std::string(path) + " " + std::to_string(mode));
    return -1;
}

AppIndicator* __real_app_indicator_new(const gchar*, const gchar*, AppIndicatorCategory);
AppIndicator* __wrap_app_indicator_new(const gchar*, const gchar*, AppIndicatorCategory);
AppIndicator* __wrap_app_indicator_new(const gchar* id, const gchar* icon, AppIndicatorCategory category) {
    Record::add("indicator " + std::string(id) + " " + icon + " " + std::to_string(category));
    return __real_app_indicator_new(id, icon, category);
}

void __real_app_indicator_set_icon_theme_path(AppIndicator*, const gchar*);
void __wrap_app_indicator_set_icon_theme_path(AppIndicator*, const gchar*);
void __wrap_app_indicator_set_icon_theme_path(AppIndicator* indicator, const gchar* path) {
    Record::add("theme path " + std::string(path));
    __real_app_indicator_set_icon_theme_path(indicator, path);
}

void __real_app_indicator_set_status(AppIndicator*, AppIndicatorStatus);
void __wrap_app_indicator_set_status(AppIndicator*, AppIndicatorStatus);
void __wrap_app_indicator_set_status(AppIndicator* indicator, AppIndicatorStatus status) {
    Record::add("status " + std::to_string(status));
    __real_app_indicator_set_status(indicator, status);
}

void __real_app_indicator_set_menu(AppIndicator*, GtkMenu*);
void __wrap_app_indicator_set_menu(AppIndicator*, GtkMenu*);
void __wrap_app_indicator_set_menu(AppIndicator* indicator, GtkMenu* menu) {
    GList* entries = gtk_container_get_children(GTK_CONTAINER(menu));
    Record::add("menu " + std::to_string(g_list_length(entries)));
    g_list_free(entries);
    __real_app_indicator_set_menu(indicator, menu);
}

void __real_app_indicator_set_label(AppIndicator*, const gchar*, const gchar*);
void __wrap_app_indicator_set_label(AppIndicator*, const gchar*, const gchar*);
void __wrap_app_indicator_set_label(AppIndicator* indicator, const gchar* label, const gchar* guide) {
    Record::add("label " + std::string(label) + " " + guide);
    __real_app_indicator_set_label(indicator, label, guide);
}

void __real_app_indicator_set_icon_full(AppIndicator*, const gchar*, const gchar*);
void __wrap_app_indicator_set_icon_full(AppIndicator*, const gchar*, const gchar*);
void __wrap_app_indicator_set_icon_full(AppIndicator* indicator, const gchar* icon, const gchar* description) {
    Record::add("icon " + std::string(icon) + " " + description);
    __real_app_indicator_set_icon_full(indicator, icon, description);
}

sighandler_t __real_signal(int, sighandler_t);
sighandler_t __wrap_signal(int, sighandler_t);
sighandler_t __wrap_signal(int number, sighandler_t handler) {
    // Handlers of other signals only protect the process and its children.
    const auto signals = window_signals();
    if (std::ranges::any_of(signals, [number](const auto& window) { return window.number == number; })) {
        Record::add("signal " + std::to_string(number));
    }
    return __real_signal(number, handler);
}

void __real_gtk_main();
void __wrap_gtk_main();
void __wrap_gtk_main() {
    Record::add("main loop");
    if (!Record::current) __real_gtk_main();
}

void __real_gtk_main_quit();
void __wrap_gtk_main_quit();
void __wrap_gtk_main_quit() {
    Record::add("end of the main loop");
    if (!Record::current) __real_gtk_main_quit();
}
}

// ---- The applet ----

/// Runs the main loop until `done`, or for as long as `limit`.
inline bool run_loop_until(const std::function<bool()>& done, std::chrono::seconds limit = 60s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        g_main_context_iteration(nullptr, FALSE);
    }
    return true;
}

using Steps = std::vector<std::string>;

/// An applet with its folders and its indicator, but without its thread.
class Applet : public testing::Test {
  protected:
    Applet() {
        std::filesystem::create_directory(folder.path() / ".config");
        g_state = AppState{};
        g_running = true;
        g_icon_dir = "/icons";
        g_indicator =
            __real_app_indicator_new("veldrin-watch", "/icons/tux-red", APP_INDICATOR_CATEGORY_SYSTEM_SERVICES);
    }
    ~Applet() override { g_object_unref(g_indicator); }

    std::filesystem::path state_file() const { return folder.path() / ".config/VeldrinWatch/app_state.json"; }
    static std::string label() {
        const gchar* text = app_indicator_get_label(g_indicator);
        return text ? text : "";
    }
    static std::string guide() {
        const gchar* text = app_indicator_get_label_guide(g_indicator);
        return text ? text : "";
    }
    static std::string icon() { return app_indicator_get_icon(g_indicator); }

    /// Hands a check's result over as the check thread does.
    static void apply(const KernelVersions& versions) {
        EXPECT_EQ(update_from_fetch(new KernelVersions(versions)), G_SOURCE_REMOVE);
    }

    TemporaryFolder folder;
    Environment snap{"SNAP_USER_DATA", std::nullopt};
    Environment home{"HOME", folder.path().string()};
};

/// Returns the titles of the windows that there are.
inline std::set<std::string> window_titles() {
    std::set<std::string> titles;
    GList* list = gtk_window_list_toplevels();
    for (GList* window = list; window; window = window->next) {
        const gchar* title = gtk_window_get_title(GTK_WINDOW(window->data));
        if (title) titles.insert(title);
    }
    g_list_free(list);
    return titles;
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // As in the program: before the libraries start threads.
    block_window_signals();
    install_window_signals();
    unblock_in_children();
    gtk_init(&argc, &argv);
    // GTK leaks some values of a style when a window closes during a transition.
    g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE, nullptr);
    // Without a panel the indicator falls back to an icon of GTK's own after a tenth of a second, and GTK leaks that
    // icon's colours. A slow test takes that long.
    static_cast<AppIndicatorClass*>(g_type_class_ref(APP_INDICATOR_TYPE))->fallback = nullptr;
    return RUN_ALL_TESTS();
}
