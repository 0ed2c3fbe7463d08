#include "support.h"

#include "app.cpp"

#include <sys/wait.h>
#include <algorithm>
#include <chrono>
#include <functional>
#include <set>

// ---- What the tests put in the place of other modules and libraries -------------------------------------------------

namespace {

std::function<KernelVersions()> g_check;
bool g_picture_fails = false;
std::atomic<int> g_posts[4];
std::atomic<int> g_results_posted;
int g_abouts = 0;
/// The lengths in seconds that threads asked to sleep for. Written by one thread at a time.
std::vector<long> g_sleeps;

/// What the main thread does step by step, while a Record lives: what it asks of the libraries, and, at the next such
/// step, what has become true meanwhile.
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

    static Record* current;

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

Record* Record::current = nullptr;

}  // namespace

std::string get_running_kernel() {
    return "6.1.0-test";
}

ChangeLog fetch_changelog(const std::string&, const std::string&) {
    return {};
}

KernelVersions fetch_kernel_versions() {
    return g_check();
}

// The real one returns only when the user has closed it.
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
    // The user's own folder, which no test is to touch.
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
    // The others protect the process and its children.
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

namespace {

using namespace std::chrono_literals;

/// Runs the main loop until `done`, or for as long as `limit`.
bool run_loop_until(const std::function<bool()>& done, std::chrono::seconds limit = 60s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        g_main_context_iteration(nullptr, FALSE);
    }
    return true;
}

/// An applet with its folders and its indicator, but without its thread and signals.
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

// ---- First icon ----

struct FirstIcon {
    const char* kernel;
    const char* stable;
    const char* icon;
};

TEST_F(Applet, StartsWithTheIconThatTheSavedStateTells) {
    for (const auto& [kernel, stable, icon] :
         {FirstIcon{"", "", "/icons/tux-red"}, FirstIcon{"", "7.2", "/icons/tux-red"},
          FirstIcon{"7.2", "", "/icons/tux-white"}, FirstIcon{"7.2", "7.2", "/icons/tux-white"},
          FirstIcon{"7.2", "7.2.1", "/icons/tux-green"}}) {
        for (const char* channel : {"mainline", "stable", "longterm"}) {
            for (const char* latest : {"", "7.2", "9.9"}) {
                g_state = AppState{kernel, latest, "7.3-rc2", stable, "6.18", channel};
                EXPECT_EQ(first_icon(), icon) << kernel << " " << stable << " " << channel << " " << latest;
            }
        }
    }
}

// ---- Label ----

TEST_F(Applet, LabelIsTheChosenChannelsVersion) {
    g_state = AppState{"", "", "7.3-rc2", "7.2.4", "6.18.50", "mainline"};
    update_label();
    EXPECT_EQ(label(), "7.3-rc2");
    EXPECT_EQ(guide(), "7.3-rc2");
    g_state.channel = "longterm";
    update_label();
    EXPECT_EQ(label(), "6.18.50");
    g_state.channel = "stable";
    update_label();
    EXPECT_EQ(label(), "7.2.4");
}

TEST_F(Applet, LabelIsAnExcerptOfAVersionThatNoPanelCouldShow) {
    g_state.stable = "7.2.4" + std::string(65536, 'W');
    update_label();
    EXPECT_EQ(label(), "7.2.4" + std::string(494, 'W') + "…");
    EXPECT_EQ(guide(), label());
    g_state.stable = "7.2.4\n7.2.5";
    update_label();
    EXPECT_EQ(label(), "7.2.4…");
    EXPECT_EQ(guide(), "7.2.4…");
    EXPECT_EQ(selected_version(g_state), "7.2.4\n7.2.5");
}

TEST_F(Applet, UnknownChannelReadsAsStable) {
    g_state = AppState{"", "", "7.3-rc2", "7.2.4", "6.18.50", "Mainline"};
    EXPECT_EQ(&selected_version(g_state), &g_state.stable);
    g_state.channel = "";
    EXPECT_EQ(&selected_version(g_state), &g_state.stable);
}

TEST_F(Applet, LabelStaysUnsetWhileTheChosenVersionIsUnknown) {
    g_state = AppState{"", "", "", "7.2.4", "", "mainline"};
    update_label();
    EXPECT_EQ(label(), "");
}

TEST_F(Applet, LabelOnceSetIsNeverCleared) {
    g_state.stable = "7.2.4";
    update_label();
    g_state.stable = "";
    update_label();
    EXPECT_EQ(label(), "7.2.4");
}

// ---- A check's result ----

TEST_F(Applet, FailedCheckChangesNothing) {
    g_state = AppState{"7.1", "7.2", "7.3-rc1", "7.2", "6.18", "stable"};
    apply(KernelVersions{"7.3-rc9", "7.9", "6.19", false});
    EXPECT_EQ(g_state.mainline + " " + g_state.stable + " " + g_state.longterm, "7.3-rc1 7.2 6.18");
    EXPECT_EQ(g_state.latest_kernel, "7.2");
    EXPECT_EQ(icon(), "/icons/tux-red");
    EXPECT_EQ(label(), "");
    EXPECT_FALSE(std::filesystem::exists(state_file()));
}

TEST_F(Applet, FirstSuccessfulCheckCountsAsAnUpdate) {
    apply(KernelVersions{"7.3-rc2", "7.2.4", "6.18.50", true});
    EXPECT_EQ(g_state.latest_kernel, "7.2.4");
    EXPECT_EQ(g_state.kernel, "");
    EXPECT_EQ(icon(), "/icons/tux-green");
    EXPECT_STREQ(app_indicator_get_icon_desc(g_indicator), "Veldrin Panel");
    EXPECT_EQ(label(), "7.2.4");
    EXPECT_EQ(load_state().latest_kernel, "7.2.4");
    EXPECT_EQ(load_state().mainline, "7.3-rc2");
    EXPECT_EQ(load_state().longterm, "6.18.50");
}

TEST_F(Applet, CheckThatSeesTheAcknowledgedVersionLeavesTheIcon) {
    g_state = AppState{"7.2.4", "7.2.5", "", "7.2.5", "", "stable"};
    set_icon("tux-green");
    apply(KernelVersions{"7.3-rc2", "7.2.4", "6.18.50", true});
    EXPECT_EQ(icon(), "/icons/tux-green");
    EXPECT_EQ(g_state.latest_kernel, "7.2.5");
    EXPECT_EQ(load_state().stable, "7.2.4");
    EXPECT_EQ(load_state().mainline, "7.3-rc2");
}

TEST_F(Applet, CheckEmptiesAChannelThatThePageDoesNotYield) {
    g_state = AppState{"", "", "7.3-rc1", "7.2", "6.18", "mainline"};
    update_label();
    apply(KernelVersions{"", "7.2.4", "", true});
    EXPECT_EQ(g_state.mainline, "");
    EXPECT_EQ(g_state.longterm, "");
    EXPECT_EQ(label(), "7.3-rc1");
    EXPECT_EQ(load_state().mainline, "");
}

TEST_F(Applet, StillNewerVersionMovesTheUpdateOn) {
    g_state.kernel = "7.2.3";
    apply(KernelVersions{"", "7.2.4", "", true});
    apply(KernelVersions{"", "7.2.5", "", true});
    EXPECT_EQ(g_state.latest_kernel, "7.2.5");
    EXPECT_EQ(icon(), "/icons/tux-green");
}

TEST_F(Applet, OlderVersionCountsAsAnUpdateToo) {
    g_state.kernel = "7.2.4";
    apply(KernelVersions{"", "7.1.1", "", true});
    EXPECT_EQ(g_state.latest_kernel, "7.1.1");
    EXPECT_EQ(icon(), "/icons/tux-green");
}

TEST_F(Applet, CheckWithoutStableTouchesNeitherIconNorUpdate) {
    g_state.latest_kernel = "7.2";
    apply(KernelVersions{"7.3-rc2", "", "", true});
    EXPECT_EQ(g_state.latest_kernel, "7.2");
    EXPECT_EQ(icon(), "/icons/tux-red");
    EXPECT_EQ(load_state().mainline, "7.3-rc2");
}

// ---- Commands ----

TEST_F(Applet, AcknowledgementTakesTheNewestVersionSeen) {
    apply(KernelVersions{"", "7.2.4", "", true});
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(g_state.kernel, "7.2.4");
    EXPECT_EQ(load_state().kernel, "7.2.4");
    EXPECT_EQ(icon(), "/icons/tux-white");
    EXPECT_STREQ(app_indicator_get_icon_desc(g_indicator), "Veldrin Panel");
    EXPECT_EQ(label(), "7.2.4");
}

TEST_F(Applet, AcknowledgementCopiesAnEmptyVersionToo) {
    g_state = AppState{"7.1", "", "", "7.1", "", "stable"};
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(g_state.kernel, "");
    EXPECT_EQ(icon(), "/icons/tux-white");
    EXPECT_EQ(first_icon(), "/icons/tux-red");
    apply(KernelVersions{"", "7.1", "", true});
    EXPECT_EQ(icon(), "/icons/tux-green");
}

TEST_F(Applet, AcknowledgementRefreshesTheLabel) {
    g_state.stable = "7.2.4";
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(label(), "7.2.4");
}

TEST_F(Applet, ChannelChangeSavesAndShowsTheLabelOnly) {
    apply(KernelVersions{"7.3-rc2", "7.2.4", "", true});
    g_state.channel = "mainline";
    on_channel_changed();
    EXPECT_EQ(label(), "7.3-rc2");
    EXPECT_EQ(icon(), "/icons/tux-green");
    EXPECT_EQ(load_state().channel, "mainline");
    g_state.channel = "longterm";
    on_channel_changed();
    EXPECT_EQ(label(), "7.3-rc2");
    EXPECT_EQ(load_state().channel, "longterm");
}

TEST_F(Applet, QuitClearsTheFlagAndEndsTheMainLoopWithoutASave) {
    g_idle_add(
        [](gpointer) -> gboolean {
            on_quit(nullptr, nullptr);
            return G_SOURCE_REMOVE;
        },
        nullptr);
    gtk_main();
    EXPECT_FALSE(g_running);
    EXPECT_FALSE(std::filesystem::exists(state_file()));
}

// ---- The order of steps ----

using Steps = std::vector<std::string>;

/// An applet that no state was saved of yet.
class StepsOf : public Applet {
  protected:
    Record::Condition save() const {
        return {"save", [this] { return std::filesystem::exists(state_file()); }};
    }
};

TEST_F(StepsOf, AResultThatIsNewAreLabelThenIconThenSave) {
    Record record({save()});
    apply(KernelVersions{"7.3-rc2", "7.2.4", "", true});
    EXPECT_EQ(record.steps(), (Steps{"label 7.2.4 7.2.4", "icon /icons/tux-green Veldrin Panel", "save"}));
}

TEST_F(StepsOf, AResultThatIsKnownAreLabelThenSave) {
    g_state.kernel = "7.2.4";
    Record record({save()});
    apply(KernelVersions{"", "7.2.4", "", true});
    EXPECT_EQ(record.steps(), (Steps{"label 7.2.4 7.2.4", "save"}));
}

TEST_F(StepsOf, AFailedCheckAreNone) {
    g_state.stable = "7.2.4";
    Record record({save()});
    apply(KernelVersions{});
    EXPECT_EQ(record.steps(), Steps{});
}

TEST_F(StepsOf, AnAcknowledgementAreSaveThenIconThenLabel) {
    g_state.stable = "7.2.4";
    Record record({save()});
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(record.steps(), (Steps{"save", "icon /icons/tux-white Veldrin Panel", "label 7.2.4 7.2.4"}));
}

TEST_F(StepsOf, AChangeOfTheChannelAreSaveThenLabel) {
    g_state.mainline = "7.3-rc2";
    g_state.channel = "mainline";
    Record record({save()});
    on_channel_changed();
    EXPECT_EQ(record.steps(), (Steps{"save", "label 7.3-rc2 7.3-rc2"}));
}

TEST_F(StepsOf, QuitAreFlagThenWindowsThenTheEndOfTheLoop) {
    on_show_info(nullptr, nullptr);
    on_show_changes(nullptr, nullptr);
    on_show_system(nullptr, nullptr);
    GList* windows = gtk_window_list_toplevels();
    for (GList* window = windows; window; window = window->next) {
        const auto on_destroy = +[](GtkWindow* destroyed) { Record::add(gtk_window_get_title(destroyed)); };
        if (!gtk_window_get_title(GTK_WINDOW(window->data))) continue;
        g_signal_connect(window->data, "destroy", G_CALLBACK(on_destroy), nullptr);
    }
    g_list_free(windows);
    Record record({{"flag", [] { return !g_running; }}});
    on_quit(nullptr, nullptr);
    EXPECT_EQ(record.steps(),
              (Steps{"flag", "Settings", "Latest Kernel Changes", "System & Kernel Modules", "end of the main loop"}));
}

/// Starts the applet as far as its main loop, in the place of which it ends. Returns whether its steps were these.
bool start_takes_steps() {
    const TemporaryFolder folder;
    const Environment snap("SNAP_USER_DATA", folder.path().string());
    const Environment home("HOME", std::nullopt);
    save_state(AppState{"7.2.3", "7.2.4", "7.3-rc2", "7.2.4", "6.18.50", "mainline"});
    // The check thread ends after its first delay.
    g_running = false;

    Record record({{"state", [] { return !g_state.kernel.empty(); }}});
    char program[] = "veldrin";
    char word[] = "word";
    char* argv[] = {program, word, nullptr};
    app_run(2, argv);

    const std::string icons = std::string(g_get_user_runtime_dir()) + "/VeldrinWatch-icons";
    const Steps expected = {
        "gtk_init 2 word",
        "setlocale " + std::to_string(LC_NUMERIC) + " C",
        "state",
        "mkdir " + icons + " " + std::to_string(0755),
        "picture",
        "picture",
        "picture",
        "indicator veldrin-watch " + icons + "/tux-green " + std::to_string(APP_INDICATOR_CATEGORY_SYSTEM_SERVICES),
        "theme path " + icons,
        "status " + std::to_string(APP_INDICATOR_STATUS_ACTIVE),
        "menu 8",
        "label 7.3-rc2 7.3-rc2",
        "signal " + std::to_string(SIGUSR1),
        "signal " + std::to_string(SIGUSR2),
        "signal " + std::to_string(SIGRTMIN + 1),
        "signal " + std::to_string(SIGRTMIN + 2),
        "main loop"};
    for (const std::string& step : record.steps()) std::cerr << step << "\n";
    return record.steps() == expected;
}

TEST(StartDeathTest, TakesItsStepsInOrder) {
    // In a process of its own from the beginning: a start leaves its marks on it.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(_exit(start_takes_steps() ? 0 : 1), testing::ExitedWithCode(0), "");
}

// ---- Windows ----

/// Returns the titles of the windows that there are.
std::set<std::string> window_titles() {
    std::set<std::string> titles;
    GList* list = gtk_window_list_toplevels();
    for (GList* window = list; window; window = window->next) {
        const gchar* title = gtk_window_get_title(GTK_WINDOW(window->data));
        if (title) titles.insert(title);
    }
    g_list_free(list);
    return titles;
}

TEST_F(Applet, QuitClosesAllThreeWindows) {
    on_show_info(nullptr, nullptr);
    on_show_changes(nullptr, nullptr);
    on_show_system(nullptr, nullptr);
    EXPECT_EQ(window_titles(), (std::set<std::string>{"Latest Kernel Changes", "Settings", "System & Kernel Modules"}));
    g_idle_add(
        [](gpointer) -> gboolean {
            on_quit(nullptr, nullptr);
            EXPECT_EQ(window_titles(), std::set<std::string>{});
            return G_SOURCE_REMOVE;
        },
        nullptr);
    gtk_main();
    EXPECT_EQ(window_titles(), std::set<std::string>{});
}

// ---- Menu ----

/// Picks the menu's entry `label`.
void pick(const char* label) {
    GtkWidget* menu = create_menu();
    g_object_ref_sink(menu);
    GList* items = gtk_container_get_children(GTK_CONTAINER(menu));
    int found = 0;
    for (GList* item = items; item; item = item->next) {
        if (GTK_IS_SEPARATOR_MENU_ITEM(item->data)) continue;
        if (std::string(gtk_menu_item_get_label(GTK_MENU_ITEM(item->data))) != label) continue;
        gtk_menu_item_activate(GTK_MENU_ITEM(item->data));
        ++found;
    }
    EXPECT_EQ(found, 1) << label;
    g_list_free(items);
    g_object_unref(menu);
}

TEST_F(Applet, MenuOpensEachWindow) {
    pick("Settings");
    EXPECT_EQ(window_titles(), std::set<std::string>{"Settings"});
    close_info_window();
    pick("Latest Changes");
    EXPECT_EQ(window_titles(), std::set<std::string>{"Latest Kernel Changes"});
    close_changes_window();
    pick("System & Modules");
    EXPECT_EQ(window_titles(), std::set<std::string>{"System & Kernel Modules"});
    close_system_window();
    EXPECT_EQ(g_abouts, 0);
    pick("About");
    EXPECT_EQ(g_abouts, 1);
    EXPECT_EQ(window_titles(), std::set<std::string>{});
    g_abouts = 0;
}

TEST(Menu, HoldsEightEntriesInOrder) {
    GtkWidget* menu = create_menu();
    g_object_ref_sink(menu);
    std::vector<std::string> labels;
    GList* items = gtk_container_get_children(GTK_CONTAINER(menu));
    for (GList* item = items; item; item = item->next) {
        auto* widget = GTK_WIDGET(item->data);
        EXPECT_TRUE(gtk_widget_get_visible(widget));
        EXPECT_TRUE(gtk_widget_get_sensitive(widget));
        const bool separator = GTK_IS_SEPARATOR_MENU_ITEM(widget);
        EXPECT_EQ(G_OBJECT_TYPE(widget), separator ? GTK_TYPE_SEPARATOR_MENU_ITEM : GTK_TYPE_MENU_ITEM);
        labels.emplace_back(separator ? "---" : gtk_menu_item_get_label(GTK_MENU_ITEM(widget)));
    }
    g_list_free(items);
    EXPECT_EQ(labels, (std::vector<std::string>{"Settings", "Latest Changes", "System & Modules", "---",
                                                "Acknowledge Update", "About", "---", "Quit"}));
    g_object_unref(menu);
}

// ---- Tray icons ----

/// An icon folder of the test's own.
class Icons : public testing::Test {
  protected:
    Icons() { g_icon_dir = folder.path().string(); }
    ~Icons() override { g_picture_fails = false; }

    /// Reads the icon file `name` back and sees to its form.
    GdkPixbuf* read(const std::string& name) const {
        GdkPixbuf* icon = gdk_pixbuf_new_from_file((folder.path() / name).c_str(), nullptr);
        EXPECT_TRUE(icon);
        if (!icon) return nullptr;
        EXPECT_EQ(gdk_pixbuf_get_width(icon), 22);
        EXPECT_EQ(gdk_pixbuf_get_height(icon), 22);
        EXPECT_TRUE(gdk_pixbuf_get_has_alpha(icon));
        return icon;
    }

    static const guchar* pixel(GdkPixbuf* icon, int x, int y) {
        return gdk_pixbuf_read_pixels(icon) + y * gdk_pixbuf_get_rowstride(icon) + x * 4;
    }

    TemporaryFolder folder;
};

TEST_F(Icons, ShowThePenguinOverTheColour) {
    create_tray_icon("tux-test", 10, 200, 30);
    GdkPixbuf* icon = read("tux-test");
    ASSERT_TRUE(icon);
    const int background[] = {10, 200, 30};
    for (int y = 0; y < 22; ++y) {
        for (int x = 0; x < 22; ++x) {
            const unsigned char* penguin = tux_tray_rgba + 4 * (22 * y + x);
            EXPECT_EQ(pixel(icon, x, y)[3], 255);
            for (int c = 0; c < 3; ++c) {
                const double alpha = penguin[3] / 255.0;
                EXPECT_NEAR(pixel(icon, x, y)[c], penguin[c] * alpha + background[c] * (1 - alpha), 2.0);
            }
        }
    }
    g_object_unref(icon);
}

TEST_F(Icons, ShowTheLettersWherePicturesFail) {
    g_picture_fails = true;
    create_tray_icon("tux-test", 240, 240, 240);
    GdkPixbuf* icon = read("tux-test");
    ASSERT_TRUE(icon);
    int dark = 0;
    for (int y = 0; y < 22; ++y) {
        for (int x = 0; x < 22; ++x) dark += pixel(icon, x, y)[0] < 60;
    }
    EXPECT_GT(dark, 20);
    EXPECT_LT(dark, 200);
    // The letters stand on row 17; below is colour alone.
    for (int x = 0; x < 22; ++x) EXPECT_EQ(pixel(icon, x, 21)[0], 240);
    g_object_unref(icon);
}

TEST_F(Icons, GoNowhereQuietlyWhereTheFolderIsMissing) {
    g_icon_dir = (folder.path() / "missing").string();
    create_tray_icon("tux-test", 1, 2, 3);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// ---- The check thread ----

/// The check thread's function with sleeps that take no time. What `g_check` does is a check.
class CheckThread : public Applet {
  protected:
    CheckThread() {
        g_sleeps.clear();
        g_results_posted = 0;
    }

    /// Lets what was posted take effect.
    static void run_loop() {
        EXPECT_TRUE(run_loop_until([] { return !g_main_context_pending(nullptr); }));
    }
};

TEST_F(CheckThread, WaitsThreeSecondsFirstAndHalfAnHourBetweenChecks) {
    int checks = 0;
    g_check = [&checks] {
        if (++checks == 3) g_running = false;
        return KernelVersions{};
    };
    background_thread();
    std::vector<long> expected = {3};
    expected.insert(expected.end(), 2 * 1800, 1);
    EXPECT_EQ(g_sleeps, expected);
    EXPECT_EQ(g_results_posted, 2);
    run_loop();
}

TEST_F(CheckThread, DropsTheResultOfACheckThatEndsAfterQuit) {
    g_check = [] {
        g_running = false;
        return KernelVersions{"", "7.2.4", "", true};
    };
    background_thread();
    EXPECT_EQ(g_results_posted, 0);
    EXPECT_EQ(g_sleeps, std::vector<long>{3});
}

TEST_F(CheckThread, ChecksNothingWhenTheUserQuitsDuringTheFirstDelay) {
    bool checked = false;
    g_check = [&checked] {
        checked = true;
        return KernelVersions{};
    };
    g_running = false;
    background_thread();
    EXPECT_FALSE(checked);
}

TEST_F(CheckThread, HandsItsResultToTheMainLoop) {
    g_check = [] { return KernelVersions{"7.3-rc2", "7.2.4", "", true}; };
    std::thread thread(background_thread);
    EXPECT_TRUE(run_loop_until([] { return g_state.stable == "7.2.4"; }));
    g_running = false;
    thread.join();
    run_loop();
    EXPECT_GE(g_results_posted, 1);
    EXPECT_EQ(load_state().mainline, "7.3-rc2");
}

TEST_F(CheckThread, HandsAFailureOverToo) {
    int checks = 0;
    g_check = [&checks] {
        if (++checks == 2) g_running = false;
        return KernelVersions{};
    };
    background_thread();
    EXPECT_EQ(g_results_posted, 1);
    run_loop();
    EXPECT_FALSE(std::filesystem::exists(state_file()));
}

// ---- Window signals ----

TEST(WindowSignals, AreInstalledToStay) {
    for (const auto& [number, handler] : window_signals()) {
        struct sigaction action;
        sigaction(number, nullptr, &action);
        EXPECT_EQ(action.sa_handler, handler);
        EXPECT_FALSE(action.sa_flags & static_cast<int>(SA_RESETHAND));
        for (const auto& other : window_signals()) EXPECT_TRUE(sigismember(&action.sa_mask, other.number));
    }
}

TEST(WindowSignals, EachPostItsOwnWindow) {
    const int numbers[] = {SIGUSR1, SIGUSR2, SIGRTMIN + 1, SIGRTMIN + 2};
    for (int i = 0; i < 4; ++i) {
        for (auto& posts : g_posts) posts = 0;
        kill(getpid(), numbers[i]);
        EXPECT_TRUE(run_loop_until([i] { return g_posts[i] == 1; }));
        for (int other = 0; other < 4; ++other) EXPECT_EQ(g_posts[other], other == i);
    }
}

TEST(WindowSignals, EachOpensItsOwnWindow) {
    // Whatever an earlier test still has in the queue.
    for (int i = 0; i < 50; ++i) g_main_context_iteration(nullptr, FALSE);
    g_abouts = 0;
    close_info_window();
    close_changes_window();
    close_system_window();
    kill(getpid(), SIGUSR1);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"Settings"}; }));
    close_info_window();
    kill(getpid(), SIGUSR2);
    EXPECT_TRUE(run_loop_until([] { return g_abouts == 1; }));
    EXPECT_EQ(window_titles(), std::set<std::string>{});
    kill(getpid(), SIGRTMIN + 1);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"Latest Kernel Changes"}; }));
    close_changes_window();
    kill(getpid(), SIGRTMIN + 2);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"System & Kernel Modules"}; }));
    close_system_window();
    EXPECT_EQ(g_abouts, 1);
}

TEST(WindowSignals, WaitWhileTheMainThreadIsBusy) {
    for (auto& posts : g_posts) posts = 0;
    kill(getpid(), SIGUSR1);
    kill(getpid(), SIGUSR1);
    kill(getpid(), SIGRTMIN + 1);
    kill(getpid(), SIGRTMIN + 1);
    EXPECT_EQ(g_posts[0], 0);
    EXPECT_EQ(g_posts[2], 0);
    // The kernel merges an ordinary signal that is pending already, and queues the real-time ones.
    EXPECT_TRUE(run_loop_until([] { return g_posts[0] == 1 && g_posts[2] == 2; }));
    for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
    EXPECT_EQ(g_posts[0], 1);
    EXPECT_EQ(g_posts[2], 2);
}

TEST(WindowSignals, AreBlockedInAThreadThatIsStarted) {
    sigset_t mask;
    std::thread([&mask] { pthread_sigmask(SIG_BLOCK, nullptr, &mask); }).join();
    for (const auto& signal : window_signals()) EXPECT_TRUE(sigismember(&mask, signal.number));
}

TEST(WindowSignals, AreNotBlockedInWhatALinkStarts) {
    gchar* blocked = nullptr;
    ASSERT_TRUE(g_spawn_command_line_sync("grep ^SigBlk: /proc/self/status", &blocked, nullptr, nullptr, nullptr));
    EXPECT_STREQ(blocked, "SigBlk:\t0000000000000000\n");
    g_free(blocked);
}

TEST(WindowSignals, TenThousandMixedWhileWindowsComeAndGo) {
    for (auto& posts : g_posts) posts = 0;
    constexpr int ROUNDS = 2500;

    const pid_t sender = fork();
    if (sender == 0) {
        const pid_t applet = getppid();
        for (int i = 0; i < ROUNDS; ++i) {
            for (const auto& signal : window_signals()) kill(applet, signal.number);
            usleep(200);
        }
        _exit(0);
    }

    std::atomic<bool> busy{true};
    // A thread that takes GLib's lock and the allocator's all the time, as check and load threads do now and then.
    std::thread poster([&busy] {
        while (busy) {
            g_idle_add(
                [](gpointer data) -> gboolean {
                    delete static_cast<std::string*>(data);
                    return G_SOURCE_REMOVE;
                },
                new std::string(2000, 'x'));
            g_usleep(100);
        }
    });

    int windows = 0;
    const auto a_window_comes_and_goes = [&windows] {
        GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
        GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
        for (int i = 0; i < 10; ++i) {
            gtk_box_pack_start(GTK_BOX(box), gtk_label_new(std::to_string(i).c_str()), FALSE, FALSE, 0);
        }
        gtk_container_add(GTK_CONTAINER(window), box);
        gtk_widget_show_all(window);
        for (int i = 0; i < 3; ++i) g_main_context_iteration(nullptr, FALSE);
        gtk_widget_destroy(window);
        ++windows;
        return g_posts[2] == ROUNDS && g_posts[3] == ROUNDS;
    };
    const bool all = run_loop_until(a_window_comes_and_goes, 240s);
    busy = false;
    poster.join();
    int status = 0;
    waitpid(sender, &status, 0);

    EXPECT_TRUE(all) << g_posts[2] << " and " << g_posts[3] << " of " << ROUNDS;
    EXPECT_TRUE(WIFEXITED(status));
    for (const int ordinary : {0, 1}) {
        EXPECT_GE(g_posts[ordinary], 1);
        EXPECT_LE(g_posts[ordinary], ROUNDS);
    }
    EXPECT_GT(windows, 10);
    RecordProperty("windows", windows);
}

TEST(WindowSignalsDeathTest, ThatComeDuringStartUpEndTheProcess) {
    for (const auto& pending : window_signals()) {
        EXPECT_EXIT(
            {
                for (const auto& signal : window_signals()) std::signal(signal.number, SIG_DFL);
                block_window_signals();
                kill(getpid(), pending.number);
                install_window_signals();
                _exit(0);
            },
            testing::KilledBySignal(pending.number), "");
    }
}

// ---- What the process prepares ----

TEST(SearchPath, GetsTheSystemFoldersAtItsEnd) {
    const Environment path("PATH", "/usr/bin:/bin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/usr/bin:/bin:/usr/sbin:/sbin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/usr/bin:/bin:/usr/sbin:/sbin");
}

TEST(SearchPath, GetsOnlyWhatIsMissing) {
    const Environment path("PATH", "/sbin:/usr/bin:/opt/usr/sbin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/sbin:/usr/bin:/opt/usr/sbin:/usr/sbin");
}

TEST(SearchPath, StaysUnsetWhereItIs) {
    const Environment path("PATH", std::nullopt);
    extend_search_path();
    EXPECT_EQ(std::getenv("PATH"), nullptr);
}

TEST(BoundedTries, KeepTheMachinesSettingsBeforeTheirs) {
    const TemporaryFolder folder;
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    write_text(folder.path() / "wgetrc", "passive_ftp = on\nprogress = dot");
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "passive_ftp = on\nprogress = dot\ntries = 2\n");
}

TEST(BoundedTries, StandAloneWhereTheMachineHasNoSettings) {
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    limit_wget_tries("SYSTEM_WGETRC", "/nowhere/wgetrc");
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "tries = 2\n");
}

TEST(BoundedTries, FollowTheSettingsThatTheEnvironmentNames) {
    const TemporaryFolder folder;
    write_text(folder.path() / "own", "timeout = 7\n");
    write_text(folder.path() / "wgetrc", "timeout = 9\n");
    const Environment variable("SYSTEM_WGETRC", (folder.path() / "own").string());
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "timeout = 7\ntries = 2\n");
}

TEST(BoundedTries, FollowTheMachinesWhereTheEnvironmentNamesNoFile) {
    const TemporaryFolder folder;
    write_text(folder.path() / "wgetrc", "timeout = 9\n");
    const Environment variable("SYSTEM_WGETRC", "/nowhere/wgetrc");
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "timeout = 9\ntries = 2\n");
}

TEST(BoundedTries, CanBeReadByAChild) {
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    limit_wget_tries("SYSTEM_WGETRC", "/nowhere/wgetrc");
    EXPECT_EQ(std::system("grep -q '^tries = 2$' \"$SYSTEM_WGETRC\""), 0);
}

TEST(Notices, OfTheIndicatorLibrarysSuccessorAreDroppedAndNoOther) {
    testing::internal::CaptureStderr();
    drop_deprecation_notice("libayatana-appindicator", G_LOG_LEVEL_WARNING,
                            "libayatana-appindicator is deprecated. Please use its successor in newly written code.",
                            nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    drop_deprecation_notice("libayatana-appindicator", G_LOG_LEVEL_WARNING, "Unable to connect", nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Unable to connect"), std::string::npos);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // As in the program: before the libraries start threads.
    block_window_signals();
    install_window_signals();
    unblock_in_children();
    gtk_init(&argc, &argv);
    // GTK loses a few style values when a window closes in the middle of a change of colours.
    g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE, nullptr);
    // Without a panel the indicator turns into an icon of GTK's tray after a tenth of a second, and GTK loses the colours
    // that it asks that tray for. On a slow day a test lives that long.
    static_cast<AppIndicatorClass*>(g_type_class_ref(APP_INDICATOR_TYPE))->fallback = nullptr;
    return RUN_ALL_TESTS();
}
