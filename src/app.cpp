// SPDX-License-Identifier: MIT
// What the user sees first: icons, label, check, menu, the signals that open windows. Behind that stands what guards
// it, each guard with a word on what happens without it, and last the start in its order.
#include "app.h"

#include "about_dialog.h"
#include "changes_window.h"
#include "info_window.h"
#include "kernel_checker.h"
#include "local_system.h"
#include "state.h"
#include "system_window.h"
#include "theme.h"
#include "tux_rgba.h"
#include "widgets.h"

#include <fcntl.h>
#include <gtk/gtk.h>
#ifdef GDK_WINDOWING_WAYLAND
#include <gdk/gdkwayland.h>
#endif
#include <libayatana-appindicator/app-indicator.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <array>
#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::chrono::seconds FIRST_CHECK_DELAY{3};
constexpr std::chrono::seconds SLEEP_STEP{1};
constexpr int SLEEPS_BETWEEN_CHECKS = 1800;
constexpr guint PATIENCE_WITH_THE_BUS = 5;  // seconds
constexpr guint LABEL_REPEAT_MS = 1000;
/// Beyond the numbers that scripts choose for files of their own.
constexpr int LEAST_INHERITED_FILE = 200;
/// Where the indicator library puts the icon on the session bus: below its own name, by the indicator's.
constexpr char ITEM_PATH[] = "/org/ayatana/NotificationItem/veldrin_watch";

AppState g_state;
AppIndicator* g_indicator = nullptr;
std::atomic<bool> g_running{true};
std::string g_icon_dir;
/// The timer that waits to repeat the label, or 0.
guint g_label_repeat = 0;

// ---- Tray icons -----------------------------------------------------------------------------------------------------

void save_by_cairo(GdkPixbuf* icon, const char* path) {
    cairo_surface_t* surface = gdk_cairo_surface_create_from_pixbuf(icon, 1, nullptr);
    cairo_surface_write_to_png(surface, path);
    cairo_surface_destroy(surface);
}

/// Writes an opaque icon as a PNG file. Since 2.44, gdk-pixbuf leaves pictures to a process of its own, which stays and
/// wakes this one three times a second. There cairo writes the same pixels.
void save_icon(GdkPixbuf* icon, const char* path) {
    if (gdk_pixbuf_minor_version < 44) {
        gdk_pixbuf_save(icon, path, "png", nullptr, nullptr);
    } else {
        save_by_cairo(icon, path);
    }
}

/// Draws the penguin on a square of the given colour and writes it as a PNG file named `filename`, without extension.
void create_tray_icon(const char* filename, guint8 r, guint8 g, guint8 b) {
    const int SIZE = 22;
    GdkPixbuf* icon = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, SIZE, SIZE);
    const guint32 colour = guint32{r} << 24 | guint32{g} << 16 | guint32{b} << 8 | 255;
    gdk_pixbuf_fill(icon, colour);

    GdkPixbuf* tux = gdk_pixbuf_new_from_data(tux_tray_rgba, GDK_COLORSPACE_RGB, TRUE, 8, TUX_TRAY_SIZE, TUX_TRAY_SIZE,
                                              TUX_TRAY_SIZE * 4, nullptr, nullptr);
    if (tux) {
        const int w = gdk_pixbuf_get_width(tux);
        const int h = gdk_pixbuf_get_height(tux);
        const int dest_x = (SIZE - w) / 2;
        const int dest_y = (SIZE - h) / 2;
        gdk_pixbuf_composite(tux, icon, dest_x, dest_y, w, h, dest_x, dest_y, 1.0, 1.0, GDK_INTERP_BILINEAR, 255);
        g_object_unref(tux);
    } else {
        cairo_surface_t* surface = cairo_image_surface_create_for_data(gdk_pixbuf_get_pixels(icon), CAIRO_FORMAT_ARGB32,
                                                                       SIZE, SIZE, gdk_pixbuf_get_rowstride(icon));
        cairo_t* cr = cairo_create(surface);
        cairo_select_font_face(cr, "Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(cr, 14.0);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_move_to(cr, 1.0, 17.0);
        cairo_show_text(cr, "VD");
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }

    const std::string path = g_icon_dir + "/" + filename;
    save_icon(icon, path.c_str());
    g_object_unref(icon);
}

/// Makes the icon folder and the three icon files anew: the indicator takes an icon by its path only.
void setup_icons() {
    g_icon_dir = std::string(g_get_user_runtime_dir()) + "/VeldrinWatch-icons";
    g_mkdir_with_parents(g_icon_dir.c_str(), 0755);
    create_tray_icon("tux-red", 220, 60, 60);
    create_tray_icon("tux-green", 60, 180, 60);
    create_tray_icon("tux-white", 240, 240, 240);
}

/// Shows the icon whose file is `name`.
void set_icon(const char* name) {
    const std::string path = g_icon_dir + "/" + name;
    app_indicator_set_icon_full(g_indicator, path.c_str(), "Veldrin Panel");
}

/// Returns the path of the icon to start with, from the saved state alone.
std::string first_icon() {
    if (!g_state.kernel.empty() && !g_state.stable.empty() && g_state.kernel != g_state.stable) {
        return g_icon_dir + "/tux-green";
    }
    return g_icon_dir + (g_state.kernel.empty() ? "/tux-red" : "/tux-white");
}

// ---- Label ----------------------------------------------------------------------------------------------------------

const std::string& selected_version(const AppState& s) {
    return s.*CHANNELS[channel_index(s.channel)].version;
}

/// Shows the chosen channel's version beside the icon. A label once shown stays while the version is unknown.
void update_label() {
    const std::string& ver = selected_version(g_state);
    if (ver.empty()) return;
    // The bus carries nothing but UTF-8, and a damaged state file may hold anything.
    const std::string label = excerpt_of(valid_utf8(ver).get());
    app_indicator_set_label(g_indicator, label.c_str(), label.c_str());
}

// ---- The periodic check ---------------------------------------------------------------------------------------------

/// Each channel's member of a check's result, in the order of CHANNELS.
constexpr auto CHECKED_VERSIONS =
    std::to_array({&KernelVersions::mainline, &KernelVersions::stable, &KernelVersions::longterm});
static_assert(CHECKED_VERSIONS.size() == CHANNELS.size(), "every channel is checked");

/// Takes a check's result into state, label and icon. `data` is a KernelVersions on the heap, which is deleted here.
gboolean update_from_fetch(gpointer data) {
    const std::unique_ptr<KernelVersions> versions(static_cast<KernelVersions*>(data));
    if (!versions->success) return G_SOURCE_REMOVE;

    for (size_t i = 0; i < CHANNELS.size(); ++i) g_state.*CHANNELS[i].version = (*versions).*CHECKED_VERSIONS[i];
    update_label();
    if (!versions->stable.empty() && versions->stable != g_state.kernel) {
        g_state.latest_kernel = versions->stable;
        set_icon("tux-green");
    }
    save_state(g_state);
    return G_SOURCE_REMOVE;
}

/// The check thread: asks for the newest versions, hands them to the main loop and pauses, until the user quits.
void background_thread() {
    std::this_thread::sleep_for(FIRST_CHECK_DELAY);
    while (g_running) {
        const KernelVersions versions = fetch_kernel_versions();
        if (g_running) g_idle_add(update_from_fetch, new KernelVersions(versions));
        for (int i = 0; i < SLEEPS_BETWEEN_CHECKS && g_running; ++i) std::this_thread::sleep_for(SLEEP_STEP);
    }
}

// ---- The user's theme -----------------------------------------------------------------------------------------------
//
// To read it is half of what a start computes, and a sixth of the memory at rest. A session may never open a window, so
// GTK starts with a theme without rules (data/bare_theme.gresource.xml), and reads the user's for the first one.

constexpr char THEME_VARIABLE[] = "GTK_THEME";

/// Has GTK read the theme without rules. The variable must be set already: then its value changes in its place, and no
/// thread that reads the environment meanwhile can meet a moved one.
void put_off_theme() {
    const char* set = std::getenv(THEME_VARIABLE);
    const std::string users = set ? set : "";
    setenv(THEME_VARIABLE, "VeldrinBare", 1);
    gtk_settings_get_default();
    setenv(THEME_VARIABLE, users.c_str(), 1);
}

/// Has GTK read the user's theme, unless it has it.
void bring_in_theme() {
    static bool brought_in = false;
    if (std::exchange(brought_in, true)) return;
    g_object_notify(G_OBJECT(gtk_settings_get_default()), "gtk-theme-name");
}

/// Has GTK read it once a panel opens the menu, which takes a user longer to read than GTK the theme. Without this, the
/// first window would wait for it. The headers of the indicator library leave both objects out.
void bring_in_theme_with_menu() {
    GObject* server = nullptr;
    GObject* root = nullptr;
    g_object_get(g_indicator, "dbus-menu-server", &server, nullptr);
    if (server) g_object_get(server, "root-node", &root, nullptr);
    if (root) {
        const auto on_menu_opens = +[](GObject*, gpointer) -> gboolean {
            // Behind the answer for which the panel waits.
            g_idle_add(
                [](gpointer) -> gboolean {
                    bring_in_theme();
                    return G_SOURCE_REMOVE;
                },
                nullptr);
            return FALSE;  // the entries stay as they are
        };
        g_signal_connect(root, "about-to-show", G_CALLBACK(on_menu_opens), nullptr);
        g_object_unref(root);
    }
    g_clear_object(&server);
}

// ---- Menu -----------------------------------------------------------------------------------------------------------

/// The user has chosen another channel in the overview window. The icon follows stable, so it stays.
void on_channel_changed() {
    save_state(g_state);
    update_label();
}

void on_show_info(GtkMenuItem*, gpointer) {
    bring_in_theme();
    show_info_window(g_state, on_channel_changed);
}

void on_show_changes(GtkMenuItem*, gpointer) {
    bring_in_theme();
    show_changes_window(g_state);
}

void on_show_system(GtkMenuItem*, gpointer) {
    bring_in_theme();
    show_system_window();
}

void on_about(GtkMenuItem*, gpointer) {
    bring_in_theme();
    show_about_dialog();
}

/// The newest stable version seen becomes the acknowledged one. Kept on purpose: that is none if none was seen yet.
void on_save_kernel(GtkMenuItem*, gpointer) {
    g_state.kernel = g_state.latest_kernel;
    save_state(g_state);
    set_icon("tux-white");
    update_label();
}

void on_quit(GtkMenuItem*, gpointer) {
    // First, so that the check thread posts nothing more.
    g_running = false;
    close_info_window();
    close_changes_window();
    close_system_window();
    gtk_main_quit();
}

GtkWidget* create_menu() {
    GtkWidget* menu = gtk_menu_new();
    const auto add_item = [menu](const char* label, void (*handler)(GtkMenuItem*, gpointer)) {
        GtkWidget* item = gtk_menu_item_new_with_label(label);
        g_signal_connect(item, "activate", G_CALLBACK(handler), nullptr);
        gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
    };
    const auto add_separator = [menu] { gtk_menu_shell_append(GTK_MENU_SHELL(menu), gtk_separator_menu_item_new()); };

    add_item("Settings", on_show_info);
    add_item("Latest Changes", on_show_changes);
    add_item("System & Modules", on_show_system);
    add_separator();
    add_item("Acknowledge Update", on_save_kernel);
    add_item("About", on_about);
    add_separator();
    add_item("Quit", on_quit);
    gtk_widget_show_all(menu);
    return menu;
}

// ---- Window signals -------------------------------------------------------------------------------------------------
//
// A handler takes GLib's lock, so it may run only while its thread can hold neither that lock nor the allocator's. That
// is why the four signals are blocked in every thread, and let in only while the main loop sleeps in its poll.

gboolean open_info_window(gpointer) {
    on_show_info(nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

gboolean open_about_dialog(gpointer) {
    on_about(nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

gboolean open_changes_window(gpointer) {
    on_show_changes(nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

gboolean open_system_window(gpointer) {
    on_show_system(nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

void on_signal_info(int) {
    g_idle_add(open_info_window, nullptr);
}

void on_signal_about(int) {
    g_idle_add(open_about_dialog, nullptr);
}

void on_signal_changes(int) {
    g_idle_add(open_changes_window, nullptr);
}

void on_signal_system(int) {
    g_idle_add(open_system_window, nullptr);
}

struct WindowSignal {
    int number;
    void (*handler)(int);
};

std::array<WindowSignal, 4> window_signals() {
    return {{{SIGUSR1, on_signal_info},
             {SIGUSR2, on_signal_about},
             {SIGRTMIN + 1, on_signal_changes},
             {SIGRTMIN + 2, on_signal_system}}};
}

sigset_t window_signal_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const WindowSignal& signal : window_signals()) sigaddset(&set, signal.number);
    return set;
}

/// Blocks the window signals in this thread and in all that it starts from here on.
void block_window_signals() {
    const sigset_t set = window_signal_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

/// Lets the window signals in, with those that came meanwhile. While they have no handler, they end the process.
void unblock_window_signals() {
    const sigset_t set = window_signal_set();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

/// Lets the window signals in again in every forked child. Without this, a browser that a link starts never gets them.
void unblock_in_children() {
    pthread_atfork(nullptr, nullptr, unblock_window_signals);
}

/// The main thread's signal mask while its loop sleeps: without the window signals.
sigset_t g_sleeping_mask;

/// The main loop's poll, which lets the window signals in for as long as it sleeps.
gint poll_with_window_signals(GPollFD* fds, guint count, gint milliseconds) {
    static_assert(sizeof(GPollFD) == sizeof(pollfd), "GLib's record is the system's");
    const timespec timeout{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return ppoll(reinterpret_cast<pollfd*>(fds), count, milliseconds < 0 ? nullptr : &timeout, &g_sleeping_mask);
}

void install_window_signals() {
    unblock_window_signals();
    block_window_signals();
    pthread_sigmask(SIG_BLOCK, nullptr, &g_sleeping_mask);

    const sigset_t set = window_signal_set();
    for (const auto& [number, handler] : window_signals()) {
        signal(number, handler);
        // A handler that interrupts another inside GLib's lock would wait for that lock for ever.
        struct sigaction action;
        sigaction(number, nullptr, &action);
        action.sa_mask = set;
        sigaction(number, &action, nullptr);
        sigdelset(&g_sleeping_mask, number);
    }
    g_main_context_set_poll_func(nullptr, poll_with_window_signals);
}

// ---- What the indicator library needs -------------------------------------------------------------------------------

/// Tells every panel the label, if there is one, as a property of the icon that has changed.
gboolean repeat_label(gpointer) {
    g_label_repeat = 0;
    const gchar* label = app_indicator_get_label(g_indicator);
    // The library has the same connection: a process has one.
    GDBusConnection* bus = label ? g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr) : nullptr;
    if (!bus) return G_SOURCE_REMOVE;
    GVariant* change = g_variant_new_parsed("('org.kde.StatusNotifierItem', {'XAyatanaLabel': <%s>}, @as [])", label);
    g_dbus_connection_emit_signal(bus, nullptr, ITEM_PATH, "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                  change, nullptr);
    g_object_unref(bus);
    return G_SOURCE_REMOVE;
}

/// A panel has taken the icon, or is gone. GNOME's extension reads the label before it knows that an icon may have one,
/// and drops an equal one that comes later: without the repetition, the version is missing there after every start but
/// the first. The wait gives the extension the time that it needs.
void on_panel_changed(AppIndicator*, gboolean connected, gpointer) {
    g_clear_handle_id(&g_label_repeat, g_source_remove);
    if (connected) g_label_repeat = g_timeout_add(LABEL_REPEAT_MS, repeat_label, nullptr);
}

AppIndicatorClass* indicator_class() {
    return static_cast<AppIndicatorClass*>(g_type_class_ref(APP_INDICATOR_TYPE));
}

/// Where there is no panel, the indicator library shows the icon in GTK's own tray, which X11 alone has. Without this,
/// GTK complains on the terminal of every other display.
void keep_tray_of_gtk_to_x11() {
    const std::string_view display = G_OBJECT_TYPE_NAME(gdk_display_get_default());
    if (display != "GdkX11Display") indicator_class()->fallback = nullptr;
}

/// Keeps every icon in GTK's own tray in memory, a few kilobytes for each time that a panel goes. Without this, GTK can
/// crash the program once a panel is back: where the tray's own window holds the icons, GTK goes on reading an icon at
/// each event after that icon's end.
void keep_icons_of_gtks_tray() {
    static GtkStatusIcon* (*const fallback)(AppIndicator*) = indicator_class()->fallback;
    if (!fallback) return;
    indicator_class()->fallback = [](AppIndicator* indicator) {
        // There the menu is shown by GTK, too.
        bring_in_theme();
        GtkStatusIcon* icon = fallback(indicator);
        GList* windows = gtk_window_list_toplevels();
        for (const GList* window = windows; window; window = window->next) {
            const std::string_view type = G_OBJECT_TYPE_NAME(window->data);
            if (type == "GtkTrayIcon") g_object_ref(window->data);
        }
        g_list_free(windows);
        return icon;
    };
}

/// Names the icon folder among those of the icon theme. Without this, GTK's own tray can crash the program: the
/// indicator library looks for the folder in that list, and reads beyond its end.
void add_icon_folder_to_theme() {
    gtk_icon_theme_append_search_path(gtk_icon_theme_get_default(), g_icon_dir.c_str());
}

/// Drops one notice and passes on all others. Without this, newer versions of the indicator library announce their
/// successor on the terminal at each start.
void drop_deprecation_notice(const char* domain, GLogLevelFlags level, const char* message, gpointer data) {
    if (std::string_view(message).starts_with("libayatana-appindicator is deprecated.")) return;
    g_log_default_handler(domain, level, message, data);
}

// ---- What the process needs -----------------------------------------------------------------------------------------

/// Opens every standard stream that is closed. Without this, a file of ours would get its number, and a library's
/// warning would be written into that file.
void open_standard_streams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // The lowest free number is the one that open() gives.
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", O_RDWR);
    }
}

/// Appends the folders of the system's tools to the search path. Without this, modules have no details where `modinfo`
/// is in a folder that an ordinary user's path leaves out, as on Debian. Where there is no path at all, the shell's own
/// default has these folders.
void extend_search_path() {
    const char* current = std::getenv("PATH");
    if (!current) return;
    std::string path = current;
    for (const std::string directory : {"/usr/sbin", "/sbin"}) {
        if ((':' + path + ':').find(':' + directory + ':') == std::string::npos) path += ':' + directory;
    }
    setenv("PATH", path.c_str(), 1);
}

/// A variable of the environment that this process has set for itself and for its commands alone.
struct OwnVariable {
    const char* name;
    std::optional<std::string> users_entry;  // NAME=VALUE as the user has it, or nothing
    int inherited_file;                      // what the value names where children inherit it, or -1
};

/// Never destroyed: a crash may still come after the static destructors.
std::vector<OwnVariable>& g_own_variables = *new std::vector<OwnVariable>;

void set_own_variable(const char* name, const std::string& value, int inherited_file = -1) {
    const char* users = std::getenv(name);
    g_own_variables.push_back(
        {name, users ? std::optional(std::string(name) + '=' + users) : std::nullopt, inherited_file});
    setenv(name, value.c_str(), 1);
}

/// Gives every forked child, such as the dialog after a crash, the user's own variables back. Without this, what the
/// child starts would read our settings for the user's. The commands keep them: popen() does not fork, so that these
/// handlers do not run.
void give_variables_back_in_children() {
    pthread_atfork(nullptr, nullptr, [] {
        // Nothing here allocates: after a crash, that might never end.
        for (OwnVariable& variable : g_own_variables) {
            if (variable.users_entry) {
                putenv(variable.users_entry->data());
            } else {
                unsetenv(variable.name);
            }
            if (variable.inherited_file >= 0) close(variable.inherited_file);
        }
    });
}

/// Does the same for what a link starts. Without this, a browser would read our settings: it gets a copy of this
/// process's environment from its launch context. GTK makes one at each click, and each is changed when it is made.
void give_variables_back_to_links() {
    GObjectClass* contexts = G_OBJECT_CLASS(g_type_class_ref(G_TYPE_APP_LAUNCH_CONTEXT));
    static void (*const constructed)(GObject*) = contexts->constructed;
    contexts->constructed = [](GObject* object) {
        constructed(object);
        GAppLaunchContext* context = G_APP_LAUNCH_CONTEXT(object);
        for (const auto& [name, users_entry, file] : g_own_variables) {
            if (users_entry) {
                g_app_launch_context_setenv(context, name, users_entry->c_str() + std::string_view(name).size() + 1);
            } else {
                g_app_launch_context_unsetenv(context, name);
            }
        }
    };
}

std::string file_contents(const char* path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    if (file) contents << file.rdbuf();
    return std::move(contents).str();
}

/// Returns whether a child that does not inherit `file` can read it by `path`, which leads through this process.
/// In a Snap no process may look into another, and no process at all may look into one that is not dumpable. Where
/// /proc is that of other processes, the path may lead to the file of one of those.
bool children_reach(const std::string& path, int file) {
    struct stat own;
    struct stat reached;
    return !running_as_snap() && prctl(PR_GET_DUMPABLE) == 1 && fstat(file, &own) == 0 &&
           stat(path.c_str(), &reached) == 0 && own.st_dev == reached.st_dev && own.st_ino == reached.st_ino;
}

/// Lets the download tool try twice. Without this, it tries twenty times, and a silent server holds up a check for many
/// minutes. Once would be too few: a site that refuses to send the header alone is asked for the page next, which
/// counts as the second try. `variable` names the file that the tool reads in place of `machines_own`, the machine's
/// settings. It is set to a memory file that holds those settings, with ours behind them. The user's own settings are
/// read later, so they win.
void limit_wget_tries(const char* variable, const char* machines_own) {
    const char* chosen = std::getenv(variable);
    std::string settings = file_contents(chosen && access(chosen, R_OK) == 0 ? chosen : machines_own);
    if (!settings.empty() && settings.back() != '\n') settings += '\n';
    settings += "tries = 2\n";

    const int file = memfd_create("veldrin-wgetrc", MFD_CLOEXEC);
    if (file < 0) return;
    if (write(file, settings.data(), settings.size()) != static_cast<ssize_t>(settings.size())) {
        close(file);
        return;
    }
    const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file);
    if (children_reach(path, file)) {
        set_own_variable(variable, path);
        return;
    }
    const int inherited_file = fcntl(file, F_DUPFD, LEAST_INHERITED_FILE);
    close(file);
    if (inherited_file < 0) return;
    set_own_variable(variable, "/proc/self/fd/" + std::to_string(inherited_file), inherited_file);
}

/// Connects to the session bus, for as long as the process lives. Without this, the icon may never appear: the
/// indicator library asks for the connection twice, each time on a thread of its own, and never registers the icon if
/// the second answer comes too late. A bus that does not answer in time may still answer later; the library waits for
/// it on its threads. The bridge to screen readers and GVfs would wait on this one, so they are switched off.
void connect_to_session_bus() {
    enum class Bus { ASKED, ANSWERED, LATE };
    static Bus bus = Bus::ASKED;
    g_bus_get(
        G_BUS_TYPE_SESSION, nullptr,
        [](GObject*, GAsyncResult* result, gpointer) {
            [[maybe_unused]] static GDBusConnection* const connection = g_bus_get_finish(result, nullptr);
            bus = Bus::ANSWERED;
        },
        nullptr);
    const guint limit = g_timeout_add_seconds(
        PATIENCE_WITH_THE_BUS,
        [](gpointer) -> gboolean {
            bus = Bus::LATE;
            return G_SOURCE_REMOVE;
        },
        nullptr);
    while (bus == Bus::ASKED) g_main_context_iteration(nullptr, TRUE);
    if (bus == Bus::ANSWERED) {
        g_source_remove(limit);
        return;
    }
    set_own_variable("NO_AT_BRIDGE", "1");
    set_own_variable("GIO_USE_VFS", "local");
}

/// Puts a handler that does nothing in the place of SIG_IGN; exec resets it in a child. Without this, GLib and GVfs
/// ignore SIGPIPE for every child, too, and a filter whose reader has quit complains on the terminal.
void keep_broken_pipes_from_children() {
    // GVfs starts at the first use of a file. If that came later, it would ignore the signal again.
    g_vfs_get_default();
    signal(SIGPIPE, [](int) {});
}

#ifdef GDK_WINDOWING_WAYLAND
/// Tells the desktop to which desktop file a window belongs that was just mapped. GTK has told it the program's name
/// just before. Menus and tooltips are windows, too; GDK ignores the call for them.
gboolean set_application_id(GSignalInvocationHint*, guint, const GValue* arguments, gpointer) {
    gpointer widget = g_value_get_object(arguments);
    if (GTK_IS_WINDOW(widget)) {
        // snapd puts its own name for the snap before that of the file.
        const char* id = running_as_snap() ? "veldrin_veldrin" : "org.veldrin.Veldrin";
        gdk_wayland_window_set_application_id(gtk_widget_get_window(GTK_WIDGET(widget)), id);
    }
    // The hook stays for the next window.
    return TRUE;
}
#endif

/// Gives every window its application id on Wayland, with those that GTK opens itself. Without this, a desktop does not
/// find the desktop file, and shows an icon of its own. On X11 a window's class says which file it is.
void name_windows() {
#ifdef GDK_WINDOWING_WAYLAND
    if (!GDK_IS_WAYLAND_DISPLAY(gdk_display_get_default())) return;
    // A signal can be looked up once its class is loaded.
    g_type_class_unref(g_type_class_ref(GTK_TYPE_WIDGET));
    g_signal_add_emission_hook(g_signal_lookup("map", GTK_TYPE_WIDGET), 0, set_application_id, nullptr, nullptr);
#endif
}

/// Does what must be done before GTK or another library starts a thread or a child.
void prepare_process() {
    open_standard_streams();
    // Without this, a parent that ignores it leaves the status of every child unknown, and so every answer empty.
    signal(SIGCHLD, SIG_DFL);
    extend_search_path();
    limit_wget_tries("SYSTEM_WGETRC", "/etc/wgetrc");
    // Some distributions install its successor under wget's name.
    limit_wget_tries("SYSTEM_WGET2RC", "/etc/wget2rc");
    // For put_off_theme(). An empty one means none to GTK.
    const char* theme = std::getenv(THEME_VARIABLE);
    set_own_variable(THEME_VARIABLE, theme ? theme : "");
    give_variables_back_in_children();
    give_variables_back_to_links();
    block_window_signals();
    unblock_in_children();
    g_log_set_handler("libayatana-appindicator", G_LOG_LEVEL_WARNING, drop_deprecation_notice, nullptr);
}

}  // namespace

void app_run(int argc, char** argv) {
    prepare_process();
    connect_to_session_bus();

    gtk_init(&argc, &argv);
    put_off_theme();
    gtk_window_set_default_icon_name("org.veldrin.Veldrin");
    name_windows();
    // Numbers are read and written with a point, whatever the user's locale.
    setlocale(LC_NUMERIC, "C");
    // Loading starts no thread, and it may take long. Until it is done, a window signal ends the process.
    unblock_window_signals();
    g_state = load_state();
    block_window_signals();
    setup_icons();

    keep_broken_pipes_from_children();
    // Deprecated since 0.5.94 in favour of another library, which most distributions do not have yet.
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    g_indicator = app_indicator_new("veldrin-watch", first_icon().c_str(), APP_INDICATOR_CATEGORY_SYSTEM_SERVICES);
    G_GNUC_END_IGNORE_DEPRECATIONS
    keep_tray_of_gtk_to_x11();
    keep_icons_of_gtks_tray();
    add_icon_folder_to_theme();
    g_signal_connect(g_indicator, APP_INDICATOR_SIGNAL_CONNECTION_CHANGED, G_CALLBACK(on_panel_changed), nullptr);
    app_indicator_set_icon_theme_path(g_indicator, g_icon_dir.c_str());
    app_indicator_set_status(g_indicator, APP_INDICATOR_STATUS_ACTIVE);
    app_indicator_set_menu(g_indicator, GTK_MENU(create_menu()));
    bring_in_theme_with_menu();
    update_label();

    install_window_signals();
    std::thread(background_thread).detach();
    gtk_main();
}
