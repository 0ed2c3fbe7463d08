#include "tree.h"

#include "system_window.cpp"

#include <map>
#include <optional>
#include <utility>

using namespace std::string_literals;

// ---- What the tests put in the place of the machine, and what they see of GTK's work --------------------------------

namespace {

/// The machine of the tests: what it answers, and what it was asked.
struct Machine {
    SystemInfo info;
    std::vector<KernelModule> modules;
    std::string error;
    bool snap = false;
    std::string command;
    /// Where a module's details are taken from, by its name.
    std::map<std::string, KernelModule> details;

    size_t lists_read = 0;
    size_t infos_read = 0;
    size_t details_asked = 0;
    std::vector<std::string> details_read;
    /// What the window's error text held whenever the list was asked for.
    std::vector<std::string> error_before;
};
Machine g_machine;

/// What happened, a line for each.
std::string g_events;
/// The windows there were whenever the stylesheet was applied, as they were then.
std::vector<WindowState> g_styled;
std::vector<GtkWindow*> g_presented;

/// The requests to move the divider, and how many of them were served.
size_t g_fits_asked = 0;
size_t g_fits_run = 0;

struct Timer {
    guint seconds;
    GSourceFunc callback;
    gpointer data;
};
std::vector<Timer> g_timers;
/// Whether a timer is only written down.
bool g_time_stands = true;

void note(const std::string& event) {
    g_events += event + '\n';
}

}  // namespace

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

/// As text these sort otherwise than as numbers.
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

namespace {

KernelModule module(const std::string& name, unsigned long size = 4096, int refcount = 0,
                    const std::string& used_by = "") {
    KernelModule m;
    m.name = name;
    m.size = size;
    m.refcount = refcount;
    m.used_by = used_by;
    m.state = "Live";
    return m;
}

const std::vector<KernelModule> FOUR_MODULES = {module("aether_net", 900), module("bramble", 2000000, 2, "corvid,dusk"),
                                                module("corvid", 10000, 3), module("dusk", 70000, 0, "aether_net")};

SystemInfo full_info() {
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

std::string text(GtkWidget* label) {
    return gtk_label_get_text(GTK_LABEL(label));
}

GtkWidget* find_type(GtkWidget* top, GType type) {
    for (GtkWidget* widget : all_widgets(top)) {
        if (G_TYPE_CHECK_INSTANCE_TYPE(widget, type)) return widget;
    }
    return nullptr;
}

/// Returns the texts of the labels below `top` in their order, in brackets where they are badges, with their colour.
std::string labels(GtkWidget* top) {
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

/// Where the divider stands follows from the fonts.
std::string without_position(std::string tree) {
    const size_t at = tree.find(" position=");
    if (at != std::string::npos) tree.erase(at, tree.find(' ', at + 1) - at);
    return tree;
}

/// The window, closed before and after each test, on a machine that answers everything.
class SystemWindow : public testing::Test {
  protected:
    SystemWindow() {
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

    /// Waits until every request to move the divider is served.
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

    /// As a click or a key does.
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

    /// Returns what of the modules' page is there, and whether the filter can be typed in.
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

// ---- The window -----------------------------------------------------------------------------------------------------

TEST_F(SystemWindow, IsBuiltToTheLetter) {
    open();
    EXPECT_EQ(without_position(describe(system_win)), R"tree(
GtkWindow default-height=720 default-width=820 title="System & Kernel Modules" window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-system.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="System & Kernel Modules" xalign=0
        GtkLabel.hdr-subtitle [start] label="7.2.4-veldrin  ·  Example Linux 9 (heath)" wrap xalign=0
    GtkNotebook [start expand fill] page=0
      GtkScrolledWindow [tab "System"]
        GtkViewport
          GtkBox margin-bottom=16 margin-end=16 margin-start=16 margin-top=14 orientation=vertical spacing=12
            GtkBox.card [start] orientation=vertical spacing=6
              GtkLabel.section [start] label="RUNNING KERNEL" xalign=0
              GtkBox [start padding 2] spacing=10
                GtkLabel.val-strong [start] label="7.2.4-veldrin" selectable xalign=0
                GtkLabel.badge.badge-blue [start] halign=start label="x86_64" valign=center
                GtkLabel.badge.badge-gray [start] halign=start label="SMP" valign=center
                GtkLabel.badge.badge-gray [start] halign=start label="PREEMPT" valign=center
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Built" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="Mon Mar  2 10:11:12 UTC 2026" max-width-chars=58 selectable wrap xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Built by" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="ada@forge" max-width-chars=58 selectable wrap xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Compiler" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="gcc (Example 14.1) 14.1.0" max-width-chars=58 selectable wrap xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Boot line" valign=start width-request=110 xalign=0
                GtkLabel.mono [start expand fill] label="root=/dev/vda2 ro quiet" max-width-chars=58 selectable wrap xalign=0
            GtkBox.card [start] orientation=vertical spacing=6
              GtkLabel.section [start] label="SYSTEM" xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Distribution" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="Example Linux 9 (heath)" max-width-chars=58 selectable wrap xalign=0
              GtkLabel.note [start] label="sandbox base" margin-start=122 selectable wrap xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Hostname" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="heron" max-width-chars=58 selectable wrap xalign=0
              GtkBox [start] spacing=12
                GtkLabel.key [start] label="Uptime" valign=start width-request=110 xalign=0
                GtkLabel.val [start expand fill] label="3 days, 4 h 5 min" max-width-chars=58 selectable wrap xalign=0
              GtkBox [start] spacing=8
                GtkLabel.key [start] label="Modules" width-request=110 xalign=0
                GtkLabel.badge.badge-green [start] halign=start label="4 loaded" valign=center
                GtkLabel.badge.badge-blue [start] halign=start label="3 in use" valign=center
            GtkBox.card [start] orientation=vertical spacing=6
              GtkLabel.section [start] label="INSTALLED KERNELS" xalign=0
              GtkBox [start] spacing=8
                GtkLabel.key [start] label="7.3.0-rc2" selectable width-request=260 xalign=0
                GtkLabel.badge.badge-amber [start] halign=start label="image only" valign=center
              GtkBox [start] spacing=8
                GtkLabel.val [start] label="7.2.4-veldrin" selectable width-request=260 xalign=0
                GtkLabel.badge.badge-green [start] halign=start label="running" valign=center
              GtkBox [start] spacing=8
                GtkLabel.key [start] label="7.2.3-veldrin" selectable width-request=260 xalign=0
                GtkLabel.badge.badge-gray [start] halign=start label="image + modules" valign=center
              GtkExpander [start] margin-top=6
                GtkLabel label="2 module trees without a kernel image"
                GtkBox margin-top=4 orientation=vertical !sensitive
                  GtkBox [start] spacing=8
                    GtkLabel.key [start] label="6.18.9" selectable width-request=260 xalign=0
                    GtkLabel.badge.badge-amber [start] halign=start label="modules only" valign=center
                  GtkBox [start] spacing=8
                    GtkLabel.key [start] label="6.18.2" selectable width-request=260 xalign=0
                    GtkLabel.badge.badge-amber [start] halign=start label="modules only" valign=center
              GtkLabel.note [start] label="/boot is short of something." margin-top=4 wrap xalign=0
      GtkBox [tab "Modules"] orientation=vertical
        GtkBox.toolbar [start] spacing=8
          GtkEntry [start expand fill] placeholder-text="Filter by module name or user…"
          GtkButton [start] label="Reload"
        GtkLabel.status [start] label="4 of 4 modules  ·  3 in use" margin-bottom=4 margin-start=14 margin-top=6 xalign=0
        GtkBox [start expand fill] hidden halign=center orientation=vertical valign=center
          GtkBox.card [start] orientation=vertical spacing=6 width-request=460
            GtkBox [start] halign=center spacing=8
              GtkLabel.badge.badge-amber [start] halign=start label="no access" valign=center
            GtkLabel.val-strong [start] halign=center justify=center margin-top=4 wrap
            GtkLabel.status [start] halign=center justify=center max-width-chars=52 selectable wrap
        GtkPaned [start expand fill] orientation=vertical position-set
          GtkScrolledWindow [first resize]
            GtkTreeView.view search-column=0
              GtkTreeViewColumn clickable min-width=170 resizable sort-column-id=0 title="Module"
                GtkCellRendererText text<-0
              GtkTreeViewColumn alignment=1 clickable min-width=80 resizable sort-column-id=2 title="Size"
                GtkCellRendererText text<-1 xalign=1
              GtkTreeViewColumn alignment=1 clickable min-width=55 resizable sort-column-id=3 title="Used"
                GtkCellRendererText text<-3 foreground<-5 xalign=1
              GtkTreeViewColumn clickable min-width=220 resizable sort-column-id=4 title="Used by"
                GtkCellRendererText text<-4
          GtkScrolledWindow [second]
            GtkViewport
              GtkBox orientation=vertical
                GtkBox.card [start] margin-bottom=10 margin-end=12 margin-start=12 margin-top=10 orientation=vertical spacing=6
                  GtkLabel.note [start] label="Select a module to see its details." xalign=0
    GtkBox [start] margin-bottom=10 margin-end=14 margin-start=14 margin-top=8
      GtkButton [end] label="Close"
)tree");
}

TEST_F(SystemWindow, IsAnOrdinaryTopLevelWindow) {
    open();
    EXPECT_EQ(gtk_window_get_window_type(GTK_WINDOW(system_win)), GTK_WINDOW_TOPLEVEL);
    EXPECT_TRUE(gtk_window_get_resizable(GTK_WINDOW(system_win)));
    EXPECT_EQ(gtk_window_get_type_hint(GTK_WINDOW(system_win)), GDK_WINDOW_TYPE_HINT_NORMAL);
    EXPECT_EQ(open_windows(), std::vector<GtkWidget*>{system_win});
}

TEST_F(SystemWindow, ReadsTheMachineFirstAndFillsTheTableLast) {
    open();
    EXPECT_EQ(g_events,
              "modules read, windows: 0\n"
              "system read, windows: 0\n"
              "window made\n"
              "styled\n"
              "all shown: GtkWindow, rows: 0\n"
              "all shown: details, rows: 4\n");
    EXPECT_EQ(g_machine.error_before, std::vector{""s});
    EXPECT_EQ(g_machine.details_asked, 0U);
}

TEST_F(SystemWindow, ShowsItsErrorLast) {
    g_machine.modules.clear();
    g_machine.error = "No access\nAsk for it.";
    open();
    EXPECT_EQ(g_events,
              "modules read, windows: 0\n"
              "system read, windows: 0\n"
              "window made\n"
              "styled\n"
              "all shown: GtkWindow, rows: 0\n"
              "all shown: details, rows: 0\n"
              "all shown: error, rows: 0\n");
}

TEST_F(SystemWindow, IsStyledBetweenItsSizeAndItsContents) {
    open();
    ASSERT_EQ(g_styled.size(), 1U);
    EXPECT_EQ(g_styled[0].title, "System & Kernel Modules");
    EXPECT_EQ(g_styled[0].width, 820);
    EXPECT_EQ(g_styled[0].height, 720);
    EXPECT_TRUE(g_styled[0].empty);
}

TEST_F(SystemWindow, SubtitleIsTheKernelAndTheDistribution) {
    open();
    EXPECT_EQ(subtitle(), "7.2.4-veldrin  ·  Example Linux 9 (heath)");
}

TEST_F(SystemWindow, SubtitleEndsAfterTheKernelWithoutADistribution) {
    g_machine.info.distro = "";
    open();
    EXPECT_EQ(subtitle(), "7.2.4-veldrin");
    close_system_window();
    g_machine.info.running_kernel = "";
    open();
    EXPECT_EQ(subtitle(), "");
    close_system_window();
    g_machine.info.distro = "Example Linux 9";
    open();
    EXPECT_EQ(subtitle(), "  ·  Example Linux 9");
}

TEST_F(SystemWindow, BeginsWithTheSystemsPage) {
    open();
    EXPECT_EQ(gtk_notebook_get_current_page(GTK_NOTEBOOK(notebook())), 0);
    EXPECT_EQ(gtk_notebook_get_n_pages(GTK_NOTEBOOK(notebook())), 2);
}

TEST_F(SystemWindow, TextsArePlain) {
    g_machine.info.running_kernel = "<b>7.2_x</b>&amp;";
    g_machine.info.distro_note = "<i>&lt;</i>";
    g_machine.modules = {module("<b>one</b>&amp;")};
    open();
    EXPECT_EQ(subtitle(), "<b>7.2_x</b>&amp;  ·  Example Linux 9 (heath)");
    EXPECT_EQ(text(descendant(card(0), {1, 0})), "<b>7.2_x</b>&amp;");
    EXPECT_EQ(text(descendant(card(1), {2})), "<i>&lt;</i>");
    select("<b>one</b>&amp;");
    EXPECT_EQ(detail(), "<b>one</b>&amp;|[Live green]|[4096 bytes gray]|");
}

// ---- The system's page ----------------------------------------------------------------------------------------------

TEST_F(SystemWindow, LeavesOutWhatIsUnknown) {
    g_machine.info = {};
    g_machine.modules.clear();
    open();
    EXPECT_EQ(describe(system_tab()), R"(
GtkScrolledWindow [tab "System"]
  GtkViewport
    GtkBox margin-bottom=16 margin-end=16 margin-start=16 margin-top=14 orientation=vertical spacing=12
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="RUNNING KERNEL" xalign=0
        GtkBox [start padding 2] spacing=10
          GtkLabel.val-strong [start] selectable xalign=0
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="SYSTEM" xalign=0
        GtkBox [start] spacing=8
          GtkLabel.key [start] label="Modules" width-request=110 xalign=0
          GtkLabel.badge.badge-green [start] halign=start label="0 loaded" valign=center
          GtkLabel.badge.badge-blue [start] halign=start label="0 in use" valign=center
      GtkBox.card [start] orientation=vertical spacing=6
        GtkLabel.section [start] label="INSTALLED KERNELS" xalign=0
        GtkLabel.note [start] label="none found" xalign=0
)");
}

TEST_F(SystemWindow, EachUnknownFieldLeavesOutItsLineAlone) {
    const std::pair<std::string SystemInfo::*, std::string> lines[] = {
        {&SystemInfo::arch, "[x86_64 blue]|"},
        {&SystemInfo::build_date, "Built|Mon Mar  2 10:11:12 UTC 2026|"},
        {&SystemInfo::build_user, "Built by|ada@forge|"},
        {&SystemInfo::compiler, "Compiler|gcc (Example 14.1) 14.1.0|"},
        {&SystemInfo::cmdline, "Boot line|root=/dev/vda2 ro quiet|"},
        {&SystemInfo::kernel_flags, "[SMP gray]|[PREEMPT gray]|"},
        {&SystemInfo::distro, "Distribution|Example Linux 9 (heath)|"},
        {&SystemInfo::distro_note, "sandbox base|"},
        {&SystemInfo::hostname, "Hostname|heron|"},
        {&SystemInfo::uptime, "Uptime|3 days, 4 h 5 min|"},
        {&SystemInfo::installed_note, "/boot is short of something.|"}};
    open();
    const std::string all = labels(system_tab());
    for (const auto& [field, line] : lines) {
        const size_t at = all.find(line);
        ASSERT_NE(at, std::string::npos) << line;
        g_machine.info = full_info();
        g_machine.info.*field = "";
        reopen();
        EXPECT_EQ(labels(system_tab()), std::string(all).erase(at, line.size())) << line;
    }
}

TEST_F(SystemWindow, BadgesOfTheKernelFollowItsFlags) {
    for (const auto& [flags, badges] : {std::pair{"#1 SMP", "[SMP gray]|"},
                                        {"#1 PREEMPT", "[PREEMPT gray]|"},
                                        {"PREEMPT_RT xSMPx", "[SMP gray]|[PREEMPT gray]|"},
                                        {"#7-Example SMP PREEMPT_DYNAMIC", "[SMP gray]|[PREEMPT gray]|"},
                                        {"#1 smp preempt", ""},
                                        {"#1 SM P PREEMP", ""}}) {
        g_machine.info.kernel_flags = flags;
        reopen();
        EXPECT_EQ(labels(descendant(card(0), {1})), "7.2.4-veldrin|[x86_64 blue]|"s + badges) << flags;
    }
}

TEST_F(SystemWindow, CountsTheLoadedModulesAndThoseInUse) {
    open();
    EXPECT_EQ(labels(descendant(card(1), {5})), "Modules|[4 loaded green]|[3 in use blue]|");
    g_machine.modules = {module("one"), module("two", 1, -1)};
    reopen();
    EXPECT_EQ(labels(descendant(card(1), {5})), "Modules|[2 loaded green]|[0 in use blue]|");
}

TEST_F(SystemWindow, CountsNothingWithoutAReadableList) {
    // Even if some of it could be read.
    g_machine.error = "Halfway\nThe rest is missing.";
    open();
    EXPECT_EQ(describe(descendant(card(1), {5})), R"(
GtkBox [start] spacing=8
  GtkLabel.key [start] label="Modules" width-request=110 xalign=0
  GtkLabel.badge.badge-red [start] halign=start label="not readable" valign=center
  GtkLabel.note [start] label="see the Modules tab"
)");
}

TEST_F(SystemWindow, EachKernelHasTheBadgeOfWhatIsThere) {
    const bool all[] = {false, true};
    for (const bool running : all) {
        for (const bool image : all) {
            for (const bool modules : all) {
                g_machine.info.installed = {{"7.1.1", running, image, modules}};
                reopen();
                const std::string badge = running            ? "[running green]"
                                          : image && modules ? "[image + modules gray]"
                                          : image            ? "[image only amber]"
                                                             : "[modules only amber]";
                const std::string expander = running || image ? "" : "1 module tree without a kernel image|";
                EXPECT_EQ(labels(card(2)),
                          "INSTALLED KERNELS|" + expander + "7.1.1|" + badge + "|/boot is short of something.|");
            }
        }
    }
}

TEST_F(SystemWindow, RunningKernelWithoutAnImageStaysAmongTheOthers) {
    g_machine.info.installed = {{"7.2.4-veldrin", true, false, true}, {"7.2.3", false, true, true}};
    g_machine.info.installed_note = "";
    open();
    EXPECT_EQ(describe(card(2)), R"(
GtkBox.card [start] orientation=vertical spacing=6
  GtkLabel.section [start] label="INSTALLED KERNELS" xalign=0
  GtkBox [start] spacing=8
    GtkLabel.val [start] label="7.2.4-veldrin" selectable width-request=260 xalign=0
    GtkLabel.badge.badge-green [start] halign=start label="running" valign=center
  GtkBox [start] spacing=8
    GtkLabel.key [start] label="7.2.3" selectable width-request=260 xalign=0
    GtkLabel.badge.badge-gray [start] halign=start label="image + modules" valign=center
)");
}

TEST_F(SystemWindow, OneLeftoverIsInTheSingular) {
    g_machine.info.installed = {{"6.18.2", false, false, true}, {"7.2.3", false, true, true}};
    g_machine.info.installed_note = "";
    open();
    // Below the kernels that are there, wherever it stands in the list.
    EXPECT_EQ(describe(card(2)), R"(
GtkBox.card [start] orientation=vertical spacing=6
  GtkLabel.section [start] label="INSTALLED KERNELS" xalign=0
  GtkBox [start] spacing=8
    GtkLabel.key [start] label="7.2.3" selectable width-request=260 xalign=0
    GtkLabel.badge.badge-gray [start] halign=start label="image + modules" valign=center
  GtkExpander [start] margin-top=6
    GtkLabel label="1 module tree without a kernel image"
    GtkBox margin-top=4 orientation=vertical !sensitive
      GtkBox [start] spacing=8
        GtkLabel.key [start] label="6.18.2" selectable width-request=260 xalign=0
        GtkLabel.badge.badge-amber [start] halign=start label="modules only" valign=center
)");
}

TEST_F(SystemWindow, LeftoversAreClosedAtFirst) {
    open();
    GtkWidget* expander = find_type(card(2), GTK_TYPE_EXPANDER);
    ASSERT_TRUE(expander);
    EXPECT_FALSE(gtk_expander_get_expanded(GTK_EXPANDER(expander)));
    const auto height = [expander] {
        int least = 0;
        gtk_widget_get_preferred_height(expander, &least, nullptr);
        return least;
    };
    const int closed = height();
    gtk_expander_set_expanded(GTK_EXPANDER(expander), TRUE);
    // Two rows more.
    EXPECT_GT(height(), closed + 20);
}

TEST_F(SystemWindow, WithoutLeftoversThereIsNoExpander) {
    g_machine.info.installed = {{"7.2.4-veldrin", true, true, true}};
    open();
    EXPECT_FALSE(find_type(card(2), GTK_TYPE_EXPANDER));
}

TEST_F(SystemWindow, NoteComesAfterNoKernelsToo) {
    g_machine.info.installed.clear();
    open();
    EXPECT_EQ(describe(card(2)), R"(
GtkBox.card [start] orientation=vertical spacing=6
  GtkLabel.section [start] label="INSTALLED KERNELS" xalign=0
  GtkLabel.note [start] label="none found" xalign=0
  GtkLabel.note [start] label="/boot is short of something." margin-top=4 wrap xalign=0
)");
}

// ---- The permission bar ---------------------------------------------------------------------------------------------

/// The window in a Snap that may not see the modules.
class PermissionBar : public SystemWindow {
  protected:
    PermissionBar() {
        g_machine.snap = true;
        g_machine.modules.clear();
        g_machine.error = "Locked\nRun the command.";
        g_machine.command = "sudo snap connect heron_two:system-observe";
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), "nothing yet", -1);
    }

    static std::string clipboard() {
        gchar* held = gtk_clipboard_wait_for_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD));
        const std::string copied = held ? held : "(nothing)";
        g_free(held);
        return copied;
    }
    static std::string copy_label() { return gtk_button_get_label(GTK_BUTTON(copy_button())); }
    static void copy() { gtk_button_clicked(GTK_BUTTON(copy_button())); }
    /// Presses a mouse button on the command. Returns whether the press was dealt with.
    static bool press_command(guint button) {
        GdkEvent* event = gdk_event_new(GDK_BUTTON_PRESS);
        event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(command_entry())));
        event->button.button = button;
        gboolean handled = FALSE;
        g_signal_emit_by_name(command_entry(), "button-press-event", event, &handled);
        gdk_event_free(event);
        return handled;
    }
};

TEST_F(PermissionBar, StandsBetweenThePagesAndTheButtons) {
    open();
    ASSERT_TRUE(has_permission_bar());
    EXPECT_EQ(descendant(system_win, {0, 1}), find_type(system_win, GTK_TYPE_NOTEBOOK));
    EXPECT_EQ(gtk_button_get_label(GTK_BUTTON(close_button())), "Close"s);
    EXPECT_EQ(describe(permission_bar_card()), R"(
GtkBox.card [start] margin-end=14 margin-start=14 margin-top=10 orientation=vertical spacing=6
  GtkLabel.key [start] label="The module list and the host system details need one permission. Run this in a terminal, then reopen this window (click the command to copy it):" wrap xalign=0
  GtkBox [start] spacing=8
    GtkEntry.mono [start expand fill] !editable text="sudo snap connect heron_two:system-observe" width-chars=46
    GtkButton [start] label="Copy"
)");
}

TEST_F(PermissionBar, IsThereOnlyInASnapWithAnError) {
    for (const bool snap : {false, true}) {
        for (const std::string error : {"", "Locked\nRun the command."}) {
            g_machine.snap = snap;
            g_machine.error = error;
            reopen();
            EXPECT_EQ(has_permission_bar(), snap && !error.empty()) << snap << error;
        }
    }
}

TEST_F(PermissionBar, ButtonOwnsTheCommandAndTheEntryNamesTheButton) {
    open();
    const auto* command = static_cast<std::string*>(g_object_get_data(G_OBJECT(copy_button()), "cmd"));
    ASSERT_TRUE(command);
    EXPECT_EQ(*command, "sudo snap connect heron_two:system-observe");
    EXPECT_EQ(g_object_get_data(G_OBJECT(command_entry()), "copy-btn"), copy_button());
}

TEST_F(PermissionBar, CopyPutsTheCommandOnTheClipboard) {
    open();
    EXPECT_EQ(copy_label(), "Copy");
    EXPECT_EQ(clipboard(), "nothing yet");
    copy();
    EXPECT_EQ(clipboard(), "sudo snap connect heron_two:system-observe");
    EXPECT_EQ(copy_label(), "Copied");
}

TEST_F(PermissionBar, CopySaysSoForTwoSeconds) {
    open();
    copy();
    ASSERT_EQ(g_timers.size(), 1U);
    EXPECT_EQ(g_timers[0].seconds, 2U);
    EXPECT_EQ(g_timers[0].data, copy_button());
    EXPECT_EQ(copy_label(), "Copied");
    EXPECT_EQ(g_timers[0].callback(g_timers[0].data), G_SOURCE_REMOVE);
    EXPECT_EQ(copy_label(), "Copy");

    copy();
    EXPECT_EQ(copy_label(), "Copied");
    ASSERT_EQ(g_timers.size(), 2U);
    g_timers[1].callback(g_timers[1].data);
    EXPECT_EQ(copy_label(), "Copy");
}

TEST_F(PermissionBar, LabelComesBackByItself) {
    g_time_stands = false;
    open();
    copy();
    EXPECT_TRUE(run_loop_until([] { return copy_label() == "Copy"; }));
}

TEST_F(PermissionBar, ButtonWithoutACommandCopiesNothing) {
    open();
    g_object_set_data(G_OBJECT(copy_button()), "cmd", nullptr);
    copy();
    EXPECT_EQ(clipboard(), "nothing yet");
    EXPECT_EQ(copy_label(), "Copy");
    EXPECT_TRUE(g_timers.empty());
}

TEST_F(PermissionBar, PressOnTheCommandCopiesItAndSelectsIt) {
    for (const guint button : {1U, 2U, 3U}) {
        reopen();
        ASSERT_TRUE(run_loop_until_drawn(system_win));
        gtk_window_set_focus(GTK_WINDOW(system_win), close_button());
        gtk_editable_select_region(GTK_EDITABLE(command_entry()), 3, 3);
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), "nothing yet", -1);

        EXPECT_TRUE(press_command(button));
        EXPECT_EQ(clipboard(), "sudo snap connect heron_two:system-observe");
        EXPECT_EQ(copy_label(), "Copied");
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(system_win)), command_entry());
        int from = -1;
        int to = -1;
        EXPECT_TRUE(gtk_editable_get_selection_bounds(GTK_EDITABLE(command_entry()), &from, &to));
        EXPECT_EQ(from, 0);
        EXPECT_EQ(to, 42);
    }
    EXPECT_EQ(g_timers.size(), 3U);
}

TEST_F(PermissionBar, PressOnTheCommandSelectsItEvenWithoutAButton) {
    open();
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    g_object_set_data(G_OBJECT(command_entry()), "copy-btn", nullptr);
    EXPECT_TRUE(press_command(1));
    EXPECT_EQ(clipboard(), "nothing yet");
    EXPECT_EQ(copy_label(), "Copy");
    EXPECT_TRUE(gtk_editable_get_selection_bounds(GTK_EDITABLE(command_entry()), nullptr, nullptr));
}

TEST_F(PermissionBar, TimerAfterTheWindowIsGoneTouchesNothing) {
    open();
    copy();
    close_system_window();
    ASSERT_EQ(g_timers.size(), 1U);
    EXPECT_EQ(g_timers[0].callback(g_timers[0].data), G_SOURCE_REMOVE);
}

TEST_F(PermissionBar, TimerOfAnOlderWindowLeavesTheNewOneAlone) {
    open();
    copy();
    reopen();
    EXPECT_EQ(copy_label(), "Copy");
    EXPECT_EQ(g_timers[0].callback(g_timers[0].data), G_SOURCE_REMOVE);
    EXPECT_EQ(copy_label(), "Copy");

    copy();
    EXPECT_EQ(g_timers[0].callback(g_timers[0].data), G_SOURCE_REMOVE);
    // A new button may be where the old one was.
    if (g_timers[0].data != copy_button()) {
        EXPECT_EQ(copy_label(), "Copied");
    }
    EXPECT_EQ(g_timers[1].callback(g_timers[1].data), G_SOURCE_REMOVE);
    EXPECT_EQ(copy_label(), "Copy");
}

TEST_F(PermissionBar, TimerWithoutAButtonDoesNothing) {
    open();
    copy();
    EXPECT_EQ(g_timers[0].callback(nullptr), G_SOURCE_REMOVE);
    EXPECT_EQ(copy_label(), "Copied");
}

TEST_F(PermissionBar, StaysThroughAReloadThatSucceeds) {
    open();
    const std::string bar = describe(permission_bar_card());
    const std::string system = describe(system_tab());
    g_machine.error = "";
    g_machine.modules = FOUR_MODULES;
    reload();
    EXPECT_EQ(page(), LIST_PAGE);
    EXPECT_TRUE(has_permission_bar());
    EXPECT_EQ(describe(permission_bar_card()), bar);
    EXPECT_EQ(describe(system_tab()), system);
}

TEST_F(PermissionBar, DoesNotComeWithAReloadThatFails) {
    g_machine.error = "";
    g_machine.modules = FOUR_MODULES;
    open();
    const std::string system = describe(system_tab());
    g_machine.error = "Locked\nRun the command.";
    g_machine.modules.clear();
    reload();
    EXPECT_EQ(page(), ERROR_PAGE);
    EXPECT_FALSE(has_permission_bar());
    EXPECT_EQ(describe(system_tab()), system);
}

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
    // The view alone holds the model that sorts.
    EXPECT_EQ(G_OBJECT(shown())->ref_count, 1U);
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

TEST_F(SystemWindow, SizesSortByTheirBytes) {
    g_machine.modules = {module("a", 2000000), module("b", 900), module("c", 10000)};
    open();
    click_title(1);
    EXPECT_EQ(names(), "b c a");
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

TEST_F(SystemWindow, ColumnsCanBeResizedAndHaveALeastWidth) {
    open();
    const std::vector<std::pair<std::string, int>> columns = {
        {"Module", 170}, {"Size", 80}, {"Used", 55}, {"Used by", 220}};
    ASSERT_EQ(gtk_tree_view_get_n_columns(view()), 4U);
    for (size_t i = 0; i < columns.size(); ++i) {
        GtkTreeViewColumn* column = gtk_tree_view_get_column(view(), static_cast<int>(i));
        EXPECT_EQ(gtk_tree_view_column_get_title(column), columns[i].first);
        EXPECT_EQ(gtk_tree_view_column_get_min_width(column), columns[i].second);
        EXPECT_TRUE(gtk_tree_view_column_get_resizable(column));
    }
    EXPECT_EQ(gtk_tree_view_get_search_column(view()), 0);
    EXPECT_EQ(gtk_tree_selection_get_mode(selection()), GTK_SELECTION_SINGLE);
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

TEST_F(SystemWindow, FilterTakesNamesAndUsers) {
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
                                       // Name and users are two texts.
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

TEST_F(SystemWindow, FilterLooksAtNoOtherColumn) {
    open();
    for (const char* typed : {"900", "bytes", "2000000", "#15803d", "Live", "3"}) {
        filter(typed);
        EXPECT_EQ(names(), "") << typed;
    }
}

TEST_F(SystemWindow, FilterPassesOverTextsThatAreNotThere) {
    open();
    gtk_list_store_insert_with_values(g_store, nullptr, -1, 6, 0, -1);
    gtk_list_store_insert_with_values(g_store, nullptr, -1, 4, "corvid", 6, 0, -1);
    EXPECT_EQ(names(), "aether_net bramble corvid dusk (null) (null)");
    filter("corvid");
    EXPECT_EQ(names(), "bramble corvid (null)");
    filter("null");
    EXPECT_EQ(names(), "");
}

TEST_F(SystemWindow, FilterPassesOverCase) {
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
        // No user's language changes what is the small letter of a capital I; the Turkish ones are letters of their own.
        {"disk", "DISK", true},
        {"DISK", "disk", true},
        {"İskele", "iskele", false},
        {"İskele", "i\u0307skele", true},
        {"ılık", "ilik", false},
        {"ılık", "ILIK", false},
        {"ﬁlter", "FILTER", true},
        // No composing of letters, no leaving out of accents.
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
    // The machine's own change shows with the next reload alone.
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

TEST_F(SystemWindow, StatusWithoutItsLabelIsPassedOver) {
    open();
    GtkWidget* kept = std::exchange(g_mod_status, nullptr);
    filter("corvid");
    g_mod_status = kept;
    EXPECT_EQ(names(), "bramble corvid");
    EXPECT_EQ(status(), "4 of 4 modules  ·  3 in use");
}

// ---- The details ----------------------------------------------------------------------------------------------------

KernelModule full_details() {
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

TEST_F(SystemWindow, SelectedModuleIsShownToTheLetter) {
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

TEST_F(SystemWindow, ModuleWithoutDetailsIsAHeadAlone) {
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

TEST_F(SystemWindow, EachUnknownDetailLeavesOutItsLineAlone) {
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

TEST_F(SystemWindow, BadgesOfTheModuleInEachCombination) {
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

TEST_F(SystemWindow, WithoutASelectionTheresAHint) {
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

TEST_F(SystemWindow, NeighboursOfARowThatTheFilterTakesAreNotShownInPassing) {
    open();
    put_cursor_on("aether_net");
    EXPECT_EQ(g_machine.details_read, std::vector{"aether_net"s});
    // GTK moves on to each next row, which then goes as well, but for the last.
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
    // Lower than down to that row.
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

TEST_F(SystemWindow, RowOfNoModuleIsPassedOver) {
    open();
    select("corvid");
    const std::string before = detail();
    const size_t fits = g_fits_asked;
    g_modules.resize(3);
    select("dusk");
    EXPECT_EQ(detail(), before);
    EXPECT_EQ(g_machine.details_asked, 1U);
    EXPECT_EQ(g_fits_asked, fits);

    // The row just below the end is one.
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

/// The modules' page with a module whose details are `tall` or short, and a divider that can be asked.
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

    /// The request of the opening may be served while the window still finds its size.
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
    // The content fits, so that there is nothing to scroll.
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    GtkWidget* scroll = gtk_paned_get_child2(GTK_PANED(g_mod_pane));
    GtkAdjustment* range = gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scroll));
    EXPECT_LE(gtk_adjustment_get_upper(range), gtk_adjustment_get_page_size(range));
}

TEST_F(Divider, MeasuresTheDetailsAtTheWidthThatTheyGet) {
    open_modules();
    select("dusk");
    // Widths at which 24 pixels more would save a line.
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
    // A short text alone has less than 70 pixels to need.
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

TEST_F(Divider, RequestThatComesAfterTheWindowEndsThere) {
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
    // What the other page says stays what was read at first.
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

// ---- Bytes that are no text -----------------------------------------------------------------------------------------

TEST_F(SystemWindow, BytesThatAreNoTextAreShownWithoutAWarning) {
    const std::string odd = "caf\xe9 \xff\xfe";
    SystemInfo& si = g_machine.info;
    for (auto field : {&SystemInfo::running_kernel, &SystemInfo::arch, &SystemInfo::hostname, &SystemInfo::build_user,
                       &SystemInfo::compiler, &SystemInfo::build_date, &SystemInfo::distro, &SystemInfo::distro_note,
                       &SystemInfo::uptime, &SystemInfo::cmdline, &SystemInfo::installed_note}) {
        si.*field = odd;
    }
    si.kernel_flags = odd + "SMP" + odd;
    si.installed = {{odd, false, true, false}, {odd, false, false, true}};
    KernelModule m = module(odd, 1, 1, odd);
    m.state = odd;
    g_machine.modules = {m, module("other", 1, 0, "\xe9")};
    KernelModule& details = g_machine.details[odd];
    details = full_details();
    for (auto field :
         {&KernelModule::version, &KernelModule::srcversion, &KernelModule::taint, &KernelModule::description,
          &KernelModule::author, &KernelModule::license, &KernelModule::filename}) {
        details.*field = odd;
    }
    details.parameters = {{odd, odd}};

    open();
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    gtk_expander_set_expanded(GTK_EXPANDER(find_type(card(2), GTK_TYPE_EXPANDER)), TRUE);
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook()), 1);
    select("caf\ufffd \ufffd\ufffd");
    EXPECT_EQ(g_machine.details_read, std::vector{odd});
    let_fit();
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    click_title(3);
    click_title(0);
    filter("CAF");
    EXPECT_EQ(names(), "caf\ufffd \ufffd\ufffd");
    filter("\ufffd");
    EXPECT_EQ(names(), "caf\ufffd \ufffd\ufffd other");
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    size_t seen = 0;
    for (GtkWidget* widget : all_widgets(system_win)) {
        if (!GTK_IS_LABEL(widget)) continue;
        EXPECT_TRUE(g_utf8_validate(text(widget).c_str(), -1, nullptr)) << text(widget);
        seen += text(widget).find("\ufffd") != std::string::npos;
    }
    // Each text of both pages, the subtitle and the status line with the filter in it.
    EXPECT_EQ(seen, 26U);
}

TEST_F(PermissionBar, CommandThatIsNoTextIsCopiedWithoutAWarning) {
    g_machine.command = "sudo snap connect \xff";
    open();
    EXPECT_TRUE(run_loop_until_drawn(system_win));
    copy();
    EXPECT_TRUE(g_utf8_validate(clipboard().c_str(), -1, nullptr));
    EXPECT_EQ(clipboard(), gtk_entry_get_text(GTK_ENTRY(command_entry())));
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

TEST_F(SystemWindow, OpenOneIsRaisedAsItIs) {
    open();
    GtkWidget* const first = system_win;
    EXPECT_TRUE(g_presented.empty());
    filter("corvid");
    select("corvid");
    ASSERT_TRUE(run_loop_until_drawn(system_win));
    const std::string before = describe(first);
    g_events.clear();
    g_machine.modules.clear();
    g_machine.info = {};
    g_machine.error = "No access\nAsk for it.";

    show_system_window();
    EXPECT_EQ(g_presented, std::vector{GTK_WINDOW(first)});
    EXPECT_EQ(system_win, first);
    EXPECT_EQ(g_events, "");
    EXPECT_EQ(describe(first), before);
    EXPECT_EQ(open_windows().size(), 1U);
}

TEST_F(SystemWindow, ClosesTwiceAndWithoutBeingOpen) {
    close_system_window();
    close_system_window();
    EXPECT_TRUE(all_forgotten());
    open();
    close_system_window();
    EXPECT_TRUE(all_forgotten());
    EXPECT_EQ(open_windows().size(), 0U);
    close_system_window();
    EXPECT_TRUE(all_forgotten());
}

TEST_F(SystemWindow, CloseButtonCloses) {
    open();
    gtk_button_clicked(GTK_BUTTON(close_button()));
    EXPECT_TRUE(all_forgotten());
    EXPECT_EQ(open_windows().size(), 0U);
}

TEST_F(SystemWindow, WindowManagersCloseIsAnsweredHere) {
    open();
    EXPECT_TRUE(ask_to_close(system_win));
    EXPECT_TRUE(all_forgotten());
    EXPECT_EQ(open_windows().size(), 0U);
}

TEST_F(SystemWindow, ClosesWithARowSelectedAndAFilterTyped) {
    for (int way = 0; way < 3; ++way) {
        open_modules();
        filter("d");
        click_title(1);
        select("dusk");
        if (way == 0) close_system_window();
        if (way == 1) gtk_button_clicked(GTK_BUTTON(close_button()));
        if (way == 2) {
            EXPECT_TRUE(ask_to_close(system_win));
        }
        EXPECT_TRUE(all_forgotten());
    }
}

TEST_F(SystemWindow, OpensAgainWithFreshDataAfterEachWayToClose) {
    for (int way = 0; way < 3; ++way) {
        g_machine.modules = {module("round" + std::to_string(way))};
        g_machine.info.running_kernel = "7.2." + std::to_string(way);
        open();
        EXPECT_EQ(names(), "round" + std::to_string(way));
        EXPECT_EQ(subtitle(), "7.2." + std::to_string(way) + "  ·  Example Linux 9 (heath)");
        EXPECT_EQ(text(descendant(card(0), {1, 0})), "7.2." + std::to_string(way));
        EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(g_search)), "");
        filter("left over");
        if (way == 0) close_system_window();
        if (way == 1) gtk_button_clicked(GTK_BUTTON(close_button()));
        if (way == 2) ask_to_close(system_win);
    }
    EXPECT_TRUE(g_presented.empty());
    EXPECT_EQ(g_machine.lists_read, 3U);
    EXPECT_EQ(g_machine.infos_read, 3U);
    EXPECT_EQ(g_styled.size(), 3U);
}

TEST_F(SystemWindow, LeavesItsStoreAndFilterBehindAndNothingElse) {
    g_machine.details["bramble"] = full_details();
    g_machine.snap = true;
    GtkListStore* older = nullptr;
    for (const std::string error : {"", "No access\nAsk for it."}) {
        g_machine.error = error;
        Lives lives;
        open_modules();
        select("bramble");
        let_fit();
        filter("b");
        click_title(1);
        if (has_permission_bar()) gtk_button_clicked(GTK_BUTTON(copy_button()));
        lives.watch(system_win);
        lives.watch_object(g_store);
        lives.watch_object(g_filter);
        lives.watch_object(shown());
        lives.watch_object(selection());
        for (int i = 0; i < 4; ++i) {
            GtkTreeViewColumn* column = gtk_tree_view_get_column(view(), i);
            lives.watch_object(column);
            GList* renderers = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(column));
            lives.watch_object(renderers->data);
            g_list_free(renderers);
        }
        EXPECT_GT(lives.count(), 80U);
        GtkListStore* store_left = g_store;
        GtkTreeModel* filter_left = g_filter;
        EXPECT_NE(store_left, older);
        close_system_window();
        EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 2; })) << lives.count();
        EXPECT_TRUE(lives.holds(store_left));
        EXPECT_TRUE(lives.holds(filter_left));
        // The references that the window took, and the filter's own on its store.
        EXPECT_EQ(G_OBJECT(filter_left)->ref_count, 1U);
        EXPECT_EQ(G_OBJECT(store_left)->ref_count, 2U);
        EXPECT_EQ(gtk_tree_model_iter_n_children(GTK_TREE_MODEL(store_left), nullptr), 4);
        older = store_left;
    }
}

TEST_F(SystemWindow, ManyRoundsInTheSameProcess) {
    for (int i = 0; i < 20; ++i) {
        open();
        select("bramble");
        filter("b");
        reload();
        close_system_window();
    }
    EXPECT_EQ(g_machine.lists_read, 40U);
    EXPECT_EQ(open_windows().size(), 0U);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    gtk_init(&argc, &argv);
    fail_on_warnings();
    // GTK forgets some of a style's values when a window goes in the middle of a transition.
    g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE, nullptr);
    return RUN_ALL_TESTS();
}
