// The modules' page of the system window, on a machine with many modules: what a pasted filter does to it.
#include "tree.h"

#include "system_window.cpp"

namespace {

constexpr int MODULES = 200;

/// What every module's details say.
std::string g_description;

}  // namespace

std::vector<KernelModule> get_loaded_modules(std::string& error) {
    error.clear();
    std::vector<KernelModule> modules(MODULES);
    for (int i = 0; i < MODULES; ++i) {
        modules[i].name = "reed_" + std::to_string(1000 + i);
        modules[i].state = "Live";
    }
    return modules;
}

SystemInfo get_system_info() {
    SystemInfo si;
    si.running_kernel = "7.2.4";
    return si;
}

void fill_module_details(KernelModule& mod) {
    mod.description = g_description;
}

std::string format_size(unsigned long bytes) {
    return std::to_string(bytes);
}

bool running_as_snap() {
    return false;
}

std::string snap_connect_command() {
    return {};
}

namespace {

struct Size {
    int width = 0;
    int height = 0;
    bool operator==(const Size&) const = default;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.width << " x " << size.height;
}

/// The window, open on its second page, and the table in it.
class ModulePane : public testing::Test {
  protected:
    ModulePane() {
        g_description.clear();
        show_system_window();
        GtkWidget* notebook = descendant(system_win, {0, 1});
        gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook), 1);
        settle();
    }
    ~ModulePane() override { close_system_window(); }

    /// Waits until the divider has moved for the details, and the table knows all of its rows.
    static void settle() {
        for (int round = 0; round < 3; ++round) {
            bool idle = false;
            g_idle_add_full(
                G_PRIORITY_LOW,
                [](gpointer seen) -> gboolean {
                    *static_cast<bool*>(seen) = true;
                    return G_SOURCE_REMOVE;
                },
                &idle, nullptr);
            ASSERT_TRUE(run_loop_until([&idle] { return idle; }));
            ASSERT_TRUE(run_loop_until_drawn(system_win));
        }
    }

    static Size size() {
        Size size;
        gtk_window_get_size(GTK_WINDOW(system_win), &size.width, &size.height);
        return size;
    }
    static std::string status() { return gtk_label_get_text(GTK_LABEL(g_mod_status)); }
    static int status_height() { return gtk_widget_get_allocated_height(g_mod_status); }

    /// As the user does by Ctrl+V.
    static void paste(const std::string& text) {
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.c_str(), -1);
        g_signal_emit_by_name(g_search, "paste-clipboard");
        EXPECT_TRUE(run_loop_until([&text] { return text == filter_text(); }));
        EXPECT_TRUE(run_loop_until_drawn(system_win));
    }
    static void type(const char* text) {
        gtk_entry_set_text(GTK_ENTRY(g_search), text);
        EXPECT_TRUE(run_loop_until_drawn(system_win));
    }
};

// ---- What is pasted into the filter ---------------------------------------------------------------------------------

TEST_F(ModulePane, LongFilterLeavesTheWindowAsWideAsItIs) {
    const Size before = size();
    const std::string text(6000, 'W');
    paste(text);
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
    type("");
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status(), "200 of 200 modules  ·  0 in use");
}

TEST_F(ModulePane, FilterOfManyLinesLeavesTheWindowAsHighAsItIs) {
    const Size before = size();
    const int height = status_height();
    std::string text;
    for (int i = 0; i < 2500; ++i) text += "reed\n";
    paste(text);
    EXPECT_EQ(size(), before);
    EXPECT_LT(status_height(), 2 * height);
    EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
    type("");
    EXPECT_EQ(size(), before);
    EXPECT_EQ(status_height(), height);
}

TEST_F(ModulePane, StatusIsOneLineWhateverEndsTheFiltersLines) {
    const int height = status_height();
    for (const char* end : {"\n", "\r\n", "\r", "\u2028", "\u2029", "\v", "\f", "\u0085"}) {
        std::string text;
        for (int i = 0; i < 5; ++i) text.append("reed").append(end);
        type(text.c_str());
        EXPECT_EQ(status(), "0 of 200 modules  ·  0 in use  ·  filter: " + text);
        EXPECT_LT(status_height(), 2 * height);
    }
}

TEST_F(ModulePane, StatusLineStaysAsHighWhileTheUserTypes) {
    const int height = status_height();
    type("reed_11");
    EXPECT_EQ(status(), "100 of 200 modules  ·  0 in use  ·  filter: reed_11");
    EXPECT_EQ(status_height(), height);
    EXPECT_FALSE(pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(g_mod_status))));
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    gtk_init(&argc, &argv);
    fail_on_warnings();
    return RUN_ALL_TESTS();
}
