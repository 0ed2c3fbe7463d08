// SPDX-License-Identifier: MIT
// What the applet shows and does: its first icon, its label, a check's result, the user's commands, the order of their
// steps, the menu, the tray's pictures, and the thread that checks.
#include "app_support.h"

#include <cstring>

namespace {

// ---- First icon ----

struct FirstIcon {
    const char* kernel;
    const char* stable;
    const char* icon;
};

TEST_F(Applet, StartsWithTheIconOfTheSavedState) {
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

/// Kept on purpose: the last version known is better than none.
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

/// Kept on purpose: only an acknowledgement turns the icon white.
TEST_F(Applet, CheckThatFindsTheAcknowledgedVersionLeavesTheIcon) {
    g_state = AppState{"7.2.4", "7.2.5", "", "7.2.5", "", "stable"};
    set_icon("tux-green");
    apply(KernelVersions{"7.3-rc2", "7.2.4", "6.18.50", true});
    EXPECT_EQ(icon(), "/icons/tux-green");
    EXPECT_EQ(g_state.latest_kernel, "7.2.5");
    EXPECT_EQ(load_state().stable, "7.2.4");
    EXPECT_EQ(load_state().mainline, "7.3-rc2");
}

/// Kept on purpose: the label still shows the version that was known.
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

/// Kept on purpose: any other version than the acknowledged one counts.
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

/// Kept on purpose: the icon turns white, and is red after the next start.
TEST_F(Applet, AcknowledgementCopiesAnEmptyVersionToo) {
    g_state = AppState{"7.1", "", "", "7.1", "", "stable"};
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(g_state.kernel, "");
    EXPECT_EQ(icon(), "/icons/tux-white");
    EXPECT_EQ(first_icon(), "/icons/tux-red");
    apply(KernelVersions{"", "7.1", "", true});
    EXPECT_EQ(icon(), "/icons/tux-green");
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

// ---- The order of steps ----

/// An applet that has saved no state yet.
class Order : public Applet {
  protected:
    Record::Condition save() const {
        return {"save", [this] { return std::filesystem::exists(state_file()); }};
    }
};

TEST_F(Order, OfANewResultIsLabelIconSave) {
    Record record({save()});
    apply(KernelVersions{"7.3-rc2", "7.2.4", "", true});
    EXPECT_EQ(record.steps(), (Steps{"label 7.2.4 7.2.4", "icon /icons/tux-green Veldrin Panel", "save"}));
}

TEST_F(Order, OfAKnownResultIsLabelSave) {
    g_state.kernel = "7.2.4";
    Record record({save()});
    apply(KernelVersions{"", "7.2.4", "", true});
    EXPECT_EQ(record.steps(), (Steps{"label 7.2.4 7.2.4", "save"}));
}

TEST_F(Order, OfAnAcknowledgementIsSaveIconLabel) {
    g_state.stable = "7.2.4";
    Record record({save()});
    on_save_kernel(nullptr, nullptr);
    EXPECT_EQ(record.steps(), (Steps{"save", "icon /icons/tux-white Veldrin Panel", "label 7.2.4 7.2.4"}));
}

TEST_F(Order, OfAChannelChangeIsSaveLabel) {
    g_state.mainline = "7.3-rc2";
    g_state.channel = "mainline";
    Record record({save()});
    on_channel_changed();
    EXPECT_EQ(record.steps(), (Steps{"save", "label 7.3-rc2 7.3-rc2"}));
}

TEST_F(Order, OfQuitIsFlagWindowsEndOfTheLoopWithoutASave) {
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
    Record record({{"flag", [] { return !g_running; }}, save()});
    on_quit(nullptr, nullptr);
    EXPECT_EQ(record.steps(),
              (Steps{"flag", "Settings", "Latest Kernel Changes", "System & Kernel Modules", "end of the main loop"}));
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

    /// Reads the icon file `name` back and checks its size.
    GdkPixbuf* read(const std::string& name, bool by_cairo = false) const {
        GdkPixbuf* icon = gdk_pixbuf_new_from_file((folder.path() / name).c_str(), nullptr);
        EXPECT_TRUE(icon);
        if (!icon) return nullptr;
        EXPECT_EQ(gdk_pixbuf_get_width(icon), 22);
        EXPECT_EQ(gdk_pixbuf_get_height(icon), 22);
        if (gdk_pixbuf_get_has_alpha(icon)) return icon;
        // Cairo leaves out an alpha that says nothing.
        EXPECT_TRUE(by_cairo || gdk_pixbuf_minor_version >= 44);
        GdkPixbuf* with_alpha = gdk_pixbuf_add_alpha(icon, FALSE, 0, 0, 0);
        g_object_unref(icon);
        return with_alpha;
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
    // The letters stand on row 17, and row 21 is of one colour.
    for (int x = 0; x < 22; ++x) EXPECT_EQ(pixel(icon, x, 21)[0], 240);
    g_object_unref(icon);
}

TEST_F(Icons, AreTheSameByEitherLibrary) {
    GdkPixbuf* drawn = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 22, 22);
    for (int i = 0; i < 22 * 22; ++i) {
        guchar* place = gdk_pixbuf_get_pixels(drawn) + i / 22 * gdk_pixbuf_get_rowstride(drawn) + i % 22 * 4;
        const guchar colours[] = {static_cast<guchar>(i), static_cast<guchar>(i / 2), static_cast<guchar>(255 - i),
                                  255};
        std::memcpy(place, colours, 4);
    }
    gdk_pixbuf_save(drawn, (folder.path() / "tux-gdk").c_str(), "png", nullptr, nullptr);
    save_by_cairo(drawn, (folder.path() / "tux-cairo").c_str());
    GdkPixbuf* first = read("tux-gdk");
    GdkPixbuf* second = read("tux-cairo", true);
    ASSERT_TRUE(first && second);
    for (int y = 0; y < 22; ++y) {
        for (int x = 0; x < 22; ++x) {
            EXPECT_EQ(std::memcmp(pixel(first, x, y), pixel(drawn, x, y), 4), 0);
            EXPECT_EQ(std::memcmp(pixel(second, x, y), pixel(drawn, x, y), 4), 0);
        }
    }
    for (GdkPixbuf* icon : {drawn, first, second}) g_object_unref(icon);
}

TEST_F(Icons, AreSilentlyNotWrittenByEitherLibraryWithoutAFolder) {
    GdkPixbuf* icon = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 22, 22);
    save_by_cairo(icon, (folder.path() / "missing" / "tux-test").c_str());
    g_object_unref(icon);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(Icons, AreSilentlyNotWrittenWithoutAFolder) {
    g_icon_dir = (folder.path() / "missing").string();
    create_tray_icon("tux-test", 1, 2, 3);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// ---- The check thread ----

/// The check thread's function with sleeps that take no time. `g_check` stands for a check.
class CheckThread : public Applet {
  protected:
    CheckThread() {
        g_sleeps.clear();
        g_results_posted = 0;
    }

    /// Runs the main loop until nothing is pending.
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

}  // namespace
