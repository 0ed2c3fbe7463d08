// SPDX-License-Identifier: MIT
// The system window's first page: the running kernel, the system, and the installed kernels.
#include "system_window_support.h"

namespace {

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

TEST_F(SystemWindow, EachUnknownFieldLeavesOutOnlyItsOwnLine) {
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
    // Also where a part of the list could be read.
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
    // It comes below the other kernels, wherever it stands in the list.
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
    // It is two rows higher.
    EXPECT_GT(height(), closed + 20);
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

}  // namespace
