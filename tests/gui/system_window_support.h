// SPDX-License-Identifier: MIT
// What the tests of the system window share: a machine that answers from the tests' own data, what they see of GTK's
// work, and the window's parts with what a user does to them. It defines functions of the program and of GTK, so one
// source of each program includes it. Main thread only.
#pragma once

#include "tree.h"

#include "system_window.cpp"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;

// ---- The machine, and what the tests see of GTK's work ----

/// The machine: what it answers, and what it was asked.
struct Machine {
    SystemInfo info;
    std::vector<KernelModule> modules;
    std::string error;
    bool snap = false;
    std::string command;
    /// What the details of each module are, by its name.
    std::map<std::string, KernelModule> details;

    size_t lists_read = 0;
    size_t infos_read = 0;
    size_t details_asked = 0;
    std::vector<std::string> details_read;
    /// What the window's error text held each time that the list was read.
    std::vector<std::string> error_before;
};
inline Machine g_machine;

/// What happened, one line for each event.
inline std::string g_events;
/// What each window was like, each time that the stylesheet was applied.
inline std::vector<WindowState> g_styled;
inline std::vector<GtkWindow*> g_presented;

/// How often the divider was asked to move, and how many of these requests ran.
inline size_t g_fits_asked = 0;
inline size_t g_fits_run = 0;

struct Timer {
    guint seconds;
    GSourceFunc callback;
    gpointer data;
};
inline std::vector<Timer> g_timers;
/// Whether timers are only recorded and never run.
inline bool g_time_stands = true;

inline void note(const std::string& event) {
    g_events += event + '\n';
}

std::vector<KernelModule> get_loaded_modules(std::string& error) {
    note("modules read, windows: " + std::to_string(open_windows().size()));
    g_machine.error_before.push_back(error);
    ++g_machine.lists_read;
    error = g_machine.error;
    return g_machine.modules;
}

SystemInfo get_system_info() {
    note("system read, windows: " + std::to_string(open_windows().size()));
    ++g_machine.infos_read;
    return g_machine.info;
}

void fill_module_details(KernelModule& mod) {
    ++g_machine.details_asked;
    if (mod.details_loaded) return;
    mod.details_loaded = true;
    g_machine.details_read.push_back(mod.name);
    const KernelModule& known = g_machine.details[mod.name];
    mod.version = known.version;
    mod.srcversion = known.srcversion;
    mod.taint = known.taint;
    mod.description = known.description;
    mod.author = known.author;
    mod.license = known.license;
    mod.filename = known.filename;
    mod.parameters = known.parameters;
}

/// Sorted as text, these come in another order than sorted as numbers.
std::string format_size(unsigned long bytes) {
    return std::to_string(bytes) + " bytes";
}

bool running_as_snap() {
    return g_machine.snap;
}

std::string snap_connect_command() {
    return g_machine.command;
}

extern "C" {

GtkWidget* __real_gtk_window_new(GtkWindowType);
GtkWidget* __wrap_gtk_window_new(GtkWindowType);
GtkWidget* __wrap_gtk_window_new(GtkWindowType type) {
    note("window made");
    return __real_gtk_window_new(type);
}

void __real_gtk_window_present(GtkWindow*);
void __wrap_gtk_window_present(GtkWindow*);
void __wrap_gtk_window_present(GtkWindow* window) {
    g_presented.push_back(window);
    __real_gtk_window_present(window);
}

void __real_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen* screen, GtkStyleProvider* provider, guint priority) {
    for (GtkWidget* window : open_windows()) g_styled.push_back(state_of(window));
    note("styled");
    __real_gtk_style_context_add_provider_for_screen(screen, provider, priority);
}

void __real_gtk_widget_show_all(GtkWidget*);
void __wrap_gtk_widget_show_all(GtkWidget*);
void __wrap_gtk_widget_show_all(GtkWidget* widget) {
    const int rows = g_store ? gtk_tree_model_iter_n_children(GTK_TREE_MODEL(g_store), nullptr) : -1;
    note("all shown: "s +
         (widget == g_detail_box  ? "details"
          : widget == g_mod_error ? "error"
                                  : G_OBJECT_TYPE_NAME(widget)) +
         ", rows: " + std::to_string(rows));
    __real_gtk_widget_show_all(widget);
}

guint __real_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc, gpointer);
guint __wrap_g_idle_add(GSourceFunc callback, gpointer data) {
    if (callback != fit_detail_pane) return __real_g_idle_add(callback, data);
    ++g_fits_asked;
    return __real_g_idle_add(
        [](gpointer passed) -> gboolean {
            ++g_fits_run;
            return fit_detail_pane(passed);
        },
        data);
}

guint __real_g_timeout_add_seconds(guint, GSourceFunc, gpointer);
guint __wrap_g_timeout_add_seconds(guint, GSourceFunc, gpointer);
guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc callback, gpointer data) {
    g_timers.push_back({seconds, callback, data});
    return g_time_stands ? 1 : __real_g_timeout_add_seconds(seconds, callback, data);
}
}

// ---- What the machine has ----

inline KernelModule module(const std::string& name, unsigned long size = 4096, int refcount = 0,
                           const std::string& used_by = "") {
    KernelModule m;
    m.name = name;
    m.size = size;
    m.refcount = refcount;
    m.used_by = used_by;
    m.state = "Live";
    return m;
}

inline const std::vector<KernelModule> FOUR_MODULES = {
    module("aether_net", 900), module("bramble", 2000000, 2, "corvid,dusk"), module("corvid", 10000, 3),
    module("dusk", 70000, 0, "aether_net")};

inline SystemInfo full_info() {
    SystemInfo si;
    si.running_kernel = "7.2.4-veldrin";
    si.arch = "x86_64";
    si.hostname = "heron";
    si.build_user = "ada@forge";
    si.compiler = "gcc (Example 14.1) 14.1.0";
    si.build_date = "Mon Mar  2 10:11:12 UTC 2026";
    si.kernel_flags = "#1 SMP PREEMPT_DYNAMIC";
    si.distro = "Example Linux 9 (heath)";
    si.distro_note = "sandbox base";
    si.uptime = "3 days, 4 h 5 min";
    si.cmdline = "root=/dev/vda2 ro quiet";
    si.installed = {{"7.3.0-rc2", false, true, false},
                    {"7.2.4-veldrin", true, true, true},
                    {"7.2.3-veldrin", false, true, true},
                    {"6.18.9", false, false, true},
                    {"6.18.2", false, false, true}};
    si.installed_note = "/boot is short of something.";
    return si;
}

inline KernelModule full_details() {
    KernelModule m;
    m.version = "1.2.3";
    m.srcversion = "0123456789ABCDEF";
    m.taint = "OE";
    m.description = "Carries brambles over the wire";
    m.author = "Ada Quill <ada@quill.example>";
    m.license = "GPL v2";
    m.filename = "/lib/modules/7.2.4/kernel/bramble.ko";
    m.parameters = {{"debug", "0"}, {"name", "(empty)"}};
    return m;
}

// ---- The window's parts ----

inline std::string text(GtkWidget* label) {
    return gtk_label_get_text(GTK_LABEL(label));
}

inline GtkWidget* find_type(GtkWidget* top, GType type) {
    for (GtkWidget* widget : all_widgets(top)) {
        if (G_TYPE_CHECK_INSTANCE_TYPE(widget, type)) return widget;
    }
    return nullptr;
}

/// Returns the texts of the labels below `top` in their order, in brackets where they are badges, with their colour.
inline std::string labels(GtkWidget* top) {
    std::string line;
    for (GtkWidget* child : children_of(top)) {
        if (!GTK_IS_LABEL(child)) {
            line += labels(child);
            continue;
        }
        std::string name = text(child);
        for (const std::string& css : classes_of(child)) {
            if (css.starts_with("badge-")) name = '[' + name + ' ' + css.substr(6) + ']';
        }
        line += name + '|';
    }
    return line;
}

/// Leaves out where the divider stands, since that depends on the fonts.
inline std::string without_position(std::string tree) {
    const size_t at = tree.find(" position=");
    if (at != std::string::npos) tree.erase(at, tree.find(' ', at + 1) - at);
    return tree;
}

/// The window on a machine that answers everything. It is closed before and after each test.
class SystemWindow : public testing::Test {
  protected:
    SystemWindow() {
        // GTK leaks some values of a style when a window closes during a transition.
        g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE, nullptr);
        g_machine = {};
        g_machine.info = full_info();
        g_machine.modules = FOUR_MODULES;
        g_events.clear();
        g_styled.clear();
        g_presented.clear();
        g_fits_asked = g_fits_run = 0;
        g_timers.clear();
        g_time_stands = true;
    }
    ~SystemWindow() override {
        close_system_window();
        let_fit();
        EXPECT_EQ(open_windows().size(), 0U);
        EXPECT_TRUE(g_modules.empty());
    }

    /// Waits until every request to move the divider has run.
    static void let_fit() {
        ASSERT_TRUE(run_loop_until([] { return g_fits_run == g_fits_asked; }));
    }

    // ---- Its parts ----

    static GtkWidget* header() { return descendant(system_win, {0, 0}); }
    static GtkWidget* notebook() { return descendant(system_win, {0, 1}); }
    static GtkWidget* system_tab() { return descendant(notebook(), {0}); }
    static GtkWidget* modules_tab() { return descendant(notebook(), {1}); }
    static GtkWidget* card(size_t number) { return descendant(system_tab(), {0, 0, number}); }
    static bool has_permission_bar() { return children_of(descendant(system_win, {0})).size() == 4; }
    static GtkWidget* permission_bar_card() { return descendant(system_win, {0, 2}); }
    static GtkWidget* command_entry() { return descendant(permission_bar_card(), {1, 0}); }
    static GtkWidget* copy_button() { return descendant(permission_bar_card(), {1, 1}); }
    static GtkWidget* close_button() { return descendant(children_of(descendant(system_win, {0})).back(), {0}); }
    static GtkWidget* reload_button() { return descendant(modules_tab(), {0, 1}); }
    static GtkTreeView* view() { return GTK_TREE_VIEW(find_type(g_mod_pane, GTK_TYPE_TREE_VIEW)); }
    static GtkTreeModel* shown() { return gtk_tree_view_get_model(view()); }
    static GtkTreeSelection* selection() { return gtk_tree_view_get_selection(view()); }

    static std::string subtitle() { return text(descendant(header(), {1, 1})); }
    static std::string status() { return text(g_mod_status); }
    static std::string detail() { return labels(g_detail_box); }

    // ---- What the user does ----

    static void open() { show_system_window(); }
    /// Opens the window and waits until it shows the modules.
    static void open_modules() {
        show_system_window();
        gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook()), 1);
        ASSERT_TRUE(run_loop_until_drawn(system_win));
        let_fit();
    }
    static void reopen() {
        close_system_window();
        show_system_window();
    }
    static void reload() { gtk_button_clicked(GTK_BUTTON(reload_button())); }
    static void filter(const std::string& typed) { gtk_entry_set_text(GTK_ENTRY(g_search), typed.c_str()); }
    static void click_title(int column) { gtk_tree_view_column_clicked(gtk_tree_view_get_column(view(), column)); }

    /// Returns the row that shows this module, if there is one.
    static std::optional<GtkTreeIter> row(const std::string& name) {
        GtkTreeIter iter;
        for (gboolean more = gtk_tree_model_get_iter_first(shown(), &iter); more;
             more = gtk_tree_model_iter_next(shown(), &iter)) {
            if (text_at(shown(), iter, 0) == name) return iter;
        }
        return {};
    }
    static void select(const std::string& name) {
        std::optional<GtkTreeIter> found = row(name);
        ASSERT_TRUE(found) << name;
        gtk_tree_selection_select_iter(selection(), &*found);
    }

    /// Moves the cursor to a row, as a click or a key does.
    static void put_cursor_on(const std::string& name) {
        std::optional<GtkTreeIter> found = row(name);
        ASSERT_TRUE(found) << name;
        GtkTreePath* path = gtk_tree_model_get_path(shown(), &*found);
        gtk_tree_view_set_cursor(view(), path, nullptr, FALSE);
        gtk_tree_path_free(path);
    }

    // ---- What the table holds ----

    static std::string text_at(GtkTreeModel* model, GtkTreeIter iter, int column) {
        gchar* value = nullptr;
        gtk_tree_model_get(model, &iter, column, &value, -1);
        const std::string held = value ? value : "(null)";
        g_free(value);
        return held;
    }
    /// Returns the names of the rows that show, in their order.
    static std::string names() {
        std::string line;
        GtkTreeIter iter;
        for (gboolean more = gtk_tree_model_get_iter_first(shown(), &iter); more;
             more = gtk_tree_model_iter_next(shown(), &iter)) {
            line += (line.empty() ? "" : " ") + text_at(shown(), iter, 0);
        }
        return line;
    }
    /// Returns every column of every row of the store.
    static std::string store() {
        std::string lines;
        GtkTreeModel* model = GTK_TREE_MODEL(g_store);
        GtkTreeIter iter;
        for (gboolean more = gtk_tree_model_get_iter_first(model, &iter); more;
             more = gtk_tree_model_iter_next(model, &iter)) {
            guint64 bytes = 0;
            int refcount = 0;
            int index = 0;
            gtk_tree_model_get(model, &iter, 2, &bytes, 3, &refcount, 6, &index, -1);
            lines += '\n' + text_at(model, iter, 0) + " | " + text_at(model, iter, 1) + " | " + std::to_string(bytes) +
                     " | " + std::to_string(refcount) + " | " + text_at(model, iter, 4) + " | " +
                     text_at(model, iter, 5) + " | " + std::to_string(index);
        }
        return lines;
    }

    /// Returns which parts of the modules' page show, and which controls can be used.
    static std::string page() {
        const auto shows = [](GtkWidget* widget, const char* name) {
            return gtk_widget_get_visible(widget) ? name + " "s : "";
        };
        return shows(g_mod_error, "error") + shows(g_mod_pane, "table") + shows(g_mod_status, "status") +
               (gtk_widget_get_sensitive(g_search) ? "filter " : "") +
               (gtk_widget_get_sensitive(reload_button()) ? "reload" : "");
    }
    static constexpr char LIST_PAGE[] = "table status filter reload";
    static constexpr char ERROR_PAGE[] = "error reload";
    static constexpr char PLACEHOLDER[] = "Select a module to see its details.|";

    static bool all_forgotten() {
        return !system_win && !g_store && !g_filter && !g_search && !g_detail_box && !g_mod_status && !g_mod_error &&
               !g_mod_error_title && !g_mod_error_text && !g_mod_pane && g_modules.empty();
    }
};
