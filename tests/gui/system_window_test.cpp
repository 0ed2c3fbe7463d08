// SPDX-License-Identifier: MIT
// The system window as a whole: its widgets and its header, the permission bar, texts of any bytes, and at last how it
// opens and closes.
#include "system_window_support.h"

namespace {

// ---- The window -----------------------------------------------------------------------------------------------------

TEST_F(SystemWindow, HoldsExactlyTheseWidgets) {
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

// ---- The permission bar ---------------------------------------------------------------------------------------------

/// The window in a Snap that may not read the list of modules.
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
    /// Presses a mouse button on the command. Returns whether a handler took the press.
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

/// Kept on purpose: any mouse button copies.
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
    // A look at what the button was might go well even where it is gone.
    EXPECT_EQ(g_copied_button, nullptr);
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
    // The new button may have the old one's address.
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

/// Kept on purpose: whether there is a bar is decided once, when the window opens.
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
    // Each text of both pages, the subtitle, and the status line with the filter in it.
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

TEST_F(SystemWindow, OpenWindowIsRaisedUnchanged) {
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

TEST_F(SystemWindow, ClosesInEachWayWithARowSelectedAndAFilterTyped) {
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

/// Kept on purpose: the table's store and filter stay.
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
        // One reference on each is the window's. The other one on the store is the filter's.
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
