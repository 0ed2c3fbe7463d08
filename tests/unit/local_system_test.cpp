#include "support.h"

#include "local_system.cpp"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <climits>
#include <random>

namespace {

bool uname_fails = false;

}  // namespace

/// Takes the place of the C library's, whose kernel never refuses.
extern "C" int uname(utsname* names) noexcept {
    return uname_fails ? -1 : static_cast<int>(syscall(SYS_uname, names));
}

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// A program outside Snap and Flatpak, as far as variables decide.
class Sandbox : public testing::Test {
  protected:
    Environment snap{"SNAP", std::nullopt};
    Environment instance{"SNAP_INSTANCE_NAME", std::nullopt};
    Environment snap_name{"SNAP_NAME", std::nullopt};
    Environment flatpak{"FLATPAK_ID", std::nullopt};
};

// ---- Trimming ----

TEST(Trim, LeavesNothingOfNothing) {
    EXPECT_EQ(trim(""), "");
}

TEST(Trim, LeavesNothingOfWhiteSpaceAlone) {
    EXPECT_EQ(trim(" "), "");
    EXPECT_EQ(trim(" \t\r\n\n\r\t "), "");
}

TEST(Trim, LeavesATextWithoutEdgesAsItIs) {
    EXPECT_EQ(trim("x"), "x");
    EXPECT_EQ(trim("heron 7"), "heron 7");
}

TEST(Trim, TakesWhiteSpaceOffEitherEnd) {
    EXPECT_EQ(trim("\r\n\t heron"), "heron");
    EXPECT_EQ(trim("heron \t\r\n"), "heron");
    EXPECT_EQ(trim("\n heron\t"), "heron");
}

TEST(Trim, KeepsWhiteSpaceInside) {
    EXPECT_EQ(trim(" grey \t\r\n heron "), "grey \t\r\n heron");
}

TEST(Trim, TakesFourBytesForWhiteSpaceAndNoOther) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string edge(1, static_cast<char>(byte));
        const bool white = byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
        EXPECT_EQ(trim(edge + "heron" + edge), white ? "heron" : edge + "heron" + edge) << byte;
        EXPECT_EQ(trim(edge), white ? "" : edge) << byte;
    }
}

// ---- Whole files ----

TEST(ReadFile, TakesAMissingOneForEmpty) {
    const TemporaryFolder folder;
    EXPECT_EQ(read_file(folder.path() / "none"), "");
    EXPECT_EQ(read_file(folder.path() / "none", nullptr), "");
}

TEST(ReadFile, TellsAMissingOneWhateverTheFlagWas) {
    const TemporaryFolder folder;
    for (const bool before : {false, true}) {
        bool ok = before;
        EXPECT_EQ(read_file(folder.path() / "none", &ok), "");
        EXPECT_FALSE(ok);
    }
}

TEST(ReadFile, TellsAnEmptyOneFromAMissingOneWhateverTheFlagWas) {
    const TemporaryFolder folder;
    write_text(folder.path() / "empty", "");
    for (const bool before : {false, true}) {
        bool ok = before;
        EXPECT_EQ(read_file(folder.path() / "empty", &ok), "");
        EXPECT_TRUE(ok);
    }
    EXPECT_EQ(read_file(folder.path() / "empty"), "");
}

TEST(ReadFile, GivesEveryByte) {
    const TemporaryFolder folder;
    std::string text = "\r\n first \n\n";
    for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
    write_text(folder.path() / "bytes", text);
    bool ok = false;
    EXPECT_EQ(read_file(folder.path() / "bytes", &ok), text);
    EXPECT_TRUE(ok);
    EXPECT_EQ(read_file(folder.path() / "bytes"), text);
}

TEST(ReadFile, HasNoLimit) {
    const TemporaryFolder folder;
    std::string text;
    for (int i = 0; text.size() < 3'000'000; ++i) text += std::to_string(i);
    write_text(folder.path() / "long", text);
    EXPECT_EQ(read_file(folder.path() / "long"), text);
}

TEST(ReadFile, ThrowsWhereReadingFails) {
    const TemporaryFolder folder;
    EXPECT_ANY_THROW(read_file(folder.path()));
    bool ok = false;
    EXPECT_ANY_THROW(read_file(folder.path(), &ok));
}

// ---- Sizes ----

TEST(FormatSize, GivesBytesBelowAKilobyte) {
    EXPECT_EQ(format_size(0), "0 B");
    EXPECT_EQ(format_size(1), "1 B");
    EXPECT_EQ(format_size(512), "512 B");
    EXPECT_EQ(format_size(1023), "1023 B");
}

TEST(FormatSize, GivesWholeKilobytesBelowAMegabyte) {
    EXPECT_EQ(format_size(1024), "1 KB");
    EXPECT_EQ(format_size(16384), "16 KB");
    EXPECT_EQ(format_size(700 * 1024), "700 KB");
}

TEST(FormatSize, RoundsKilobytesToTheNearestAndHalvesToEven) {
    EXPECT_EQ(format_size(1535), "1 KB");
    EXPECT_EQ(format_size(1536), "2 KB");
    EXPECT_EQ(format_size(2559), "2 KB");
    EXPECT_EQ(format_size(2560), "2 KB");
    EXPECT_EQ(format_size(2561), "3 KB");
    EXPECT_EQ(format_size(3584), "4 KB");
}

TEST(FormatSize, GivesMegabytesWithOneDigit) {
    EXPECT_EQ(format_size(1048576), "1.0 MB");
    EXPECT_EQ(format_size(1572864), "1.5 MB");
    EXPECT_EQ(format_size(10 * 1048576UL), "10.0 MB");
    EXPECT_EQ(format_size(1024 * 1048576UL), "1024.0 MB");
}

TEST(FormatSize, RoundsMegabytesToTheNearestAndHalvesToEven) {
    EXPECT_EQ(format_size(1048576 + 52428), "1.0 MB");
    EXPECT_EQ(format_size(1048576 + 52429), "1.1 MB");
    EXPECT_EQ(format_size(1048576 / 4 * 5), "1.2 MB");
    EXPECT_EQ(format_size(1048576 / 4 * 7), "1.8 MB");
    EXPECT_EQ(format_size(2 * 1048576 - 1), "2.0 MB");
}

TEST(FormatSize, ChoosesTheUnitBeforeRounding) {
    EXPECT_EQ(format_size(1048575), "1024 KB");
    EXPECT_EQ(format_size(1048064), "1024 KB");
    EXPECT_EQ(format_size(1048063), "1023 KB");
}

TEST(FormatSize, GivesTheLargestNumber) {
    ASSERT_EQ(ULONG_MAX, 18446744073709551615UL);
    EXPECT_EQ(format_size(ULONG_MAX), "17592186044416.0 MB");
}

// ---- Sandboxes ----

TEST_F(Sandbox, IsASnapWhereItsVariableIsSet) {
    EXPECT_FALSE(running_in_snap());
    const Environment set("SNAP", "/snap/veldrin/31");
    EXPECT_TRUE(running_in_snap());
}

TEST_F(Sandbox, IsASnapWhereItsVariableIsEmpty) {
    const Environment set("SNAP", "");
    EXPECT_TRUE(running_in_snap());
    EXPECT_TRUE(running_as_snap());
}

TEST_F(Sandbox, IsNoSnapByOtherVariables) {
    const Environment name("SNAP_NAME", "veldrin");
    const Environment named("SNAP_INSTANCE_NAME", "veldrin");
    const Environment flatpak_set("FLATPAK_ID", "org.veldrin.Veldrin");
    EXPECT_FALSE(running_in_snap());
}

TEST_F(Sandbox, IsAFlatpakWhereItsVariableIsSet) {
    const Environment set("FLATPAK_ID", "org.veldrin.Veldrin");
    EXPECT_TRUE(running_in_flatpak());
}

TEST_F(Sandbox, IsAFlatpakWhereItsVariableIsEmpty) {
    const Environment set("FLATPAK_ID", "");
    EXPECT_TRUE(running_in_flatpak());
}

TEST_F(Sandbox, IsAFlatpakByTheFileWithoutTheVariable) {
    EXPECT_EQ(running_in_flatpak(), std::filesystem::exists("/.flatpak-info"));
}

TEST_F(Sandbox, TestsDoNotAskEachOther) {
    const Environment snap_set("SNAP", "/snap/veldrin/31");
    EXPECT_EQ(running_in_flatpak(), std::filesystem::exists("/.flatpak-info"));
    const Environment flatpak_set("FLATPAK_ID", "org.veldrin.Veldrin");
    EXPECT_TRUE(running_in_snap());
    EXPECT_TRUE(running_in_flatpak());
}

TEST_F(Sandbox, IsAskedAnewEachTime) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(running_as_snap());
        const Environment set("SNAP", "/snap/veldrin/31");
        EXPECT_TRUE(running_as_snap());
    }
}

TEST_F(Sandbox, ConnectCommandIsEmptyOutsideASnap) {
    const Environment name("SNAP_NAME", "veldrin");
    const Environment named("SNAP_INSTANCE_NAME", "veldrin_two");
    EXPECT_EQ(snap_connect_command(), "");
}

TEST_F(Sandbox, ConnectCommandNamesTheInstanceFirst) {
    const Environment set("SNAP", "");
    const Environment name("SNAP_NAME", "kestrel");
    const Environment named("SNAP_INSTANCE_NAME", "kestrel_two");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect kestrel_two:system-observe");
}

TEST_F(Sandbox, ConnectCommandNamesTheSnapWithoutAnInstance) {
    const Environment set("SNAP", "/snap/kestrel/31");
    const Environment name("SNAP_NAME", "kestrel");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect kestrel:system-observe");
    const Environment named("SNAP_INSTANCE_NAME", "");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect kestrel:system-observe");
}

TEST_F(Sandbox, ConnectCommandNamesThePackageWithoutEither) {
    const Environment set("SNAP", "/snap/kestrel/31");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect veldrin:system-observe");
    const Environment name("SNAP_NAME", "");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect veldrin:system-observe");
    const Environment named("SNAP_INSTANCE_NAME", "");
    EXPECT_EQ(snap_connect_command(), "sudo snap connect veldrin:system-observe");
}

// ---- How the kernel was built ----

/// The four fields: who, with what, flags, when.
std::vector<std::string> built(const std::string& version) {
    SystemInfo si;
    parse_proc_version(version, si);
    return {si.build_user, si.compiler, si.kernel_flags, si.build_date};
}

using Built = std::vector<std::string>;

TEST(ProcVersion, IsCutIntoFourFields) {
    EXPECT_EQ(
        built("Linux version 6.11.4-kestrel (heron@marsh) (gcc (Reed 13.1.0) 13.1.0, GNU ld (GNU Binutils) 2.40) "
              "#7 SMP PREEMPT_DYNAMIC Tue Oct 22 09:30:11 UTC 2024"),
        (Built{"heron@marsh", "gcc (Reed 13.1.0) 13.1.0", "#7 SMP PREEMPT_DYNAMIC", "Tue Oct 22 09:30:11 UTC 2024"}));
}

TEST(ProcVersion, LeavesTheOtherFieldsAlone) {
    SystemInfo si;
    si.running_kernel = "6.11.4-kestrel";
    parse_proc_version("Linux version 1.0 (a) (b) #1 Mon", si);
    EXPECT_EQ(si.running_kernel, "6.11.4-kestrel");
    EXPECT_EQ(si.arch + si.hostname + si.distro + si.distro_note + si.uptime + si.cmdline + si.installed_note, "");
}

TEST(ProcVersion, MayBeginWithAParenthesis) {
    EXPECT_EQ(built("(heron@marsh) (gcc 13) #7 SMP Sat Oct 26"),
              (Built{"heron@marsh", "gcc 13", "#7 SMP", "Sat Oct 26"}));
    EXPECT_EQ(built("  (heron@marsh)"), (Built{"heron@marsh", "", "", ""}));
}

TEST(ProcVersion, OfAnotherFormIsAllFlagsAndDate) {
    EXPECT_EQ(built("Kestrel 4 (heron) #7 SMP Sat Oct 26"), (Built{"", "", "Kestrel 4 (heron) #7 SMP", "Sat Oct 26"}));
    EXPECT_EQ(built("Kestrel 4 (heron)"), (Built{"", "", "Kestrel 4 (heron)", ""}));
    EXPECT_EQ(built("linux version 4 (a) (b) #1"), (Built{"", "", "linux version 4 (a) (b) #1", ""}));
    EXPECT_EQ(built("Linux version"), (Built{"", "", "Linux version", ""}));
}

TEST(ProcVersion, OfReleaseAloneGivesNothing) {
    EXPECT_EQ(built("Linux version 6.11.4-kestrel"), (Built{"", "", "", ""}));
    EXPECT_EQ(built("Linux version "), (Built{"", "", "", ""}));
    EXPECT_EQ(built(""), (Built{"", "", "", ""}));
}

TEST(ProcVersion, ReleaseEndsAtTheNextBlankAndNotAtATab) {
    EXPECT_EQ(built("Linux version 6.1\t(a) (b) (c) #1"), (Built{"b", "c", "#1", ""}));
    // Without a release the blank stands right behind the words.
    EXPECT_EQ(built("Linux version  (a) (b) #1"), (Built{"a", "b", "#1", ""}));
    EXPECT_EQ(built("Linux version (a) (b) #1"), (Built{"b", "", "#1", ""}));
}

TEST(ProcVersion, OnlyBlanksMayStandBeforeAGroup) {
    EXPECT_EQ(built("Linux version 6.1    (a)    (b)    #1"), (Built{"a", "b", "#1", ""}));
    EXPECT_EQ(built("Linux version 6.1(x) (a)(b)#1"), (Built{"a", "b", "#1", ""}));
    EXPECT_EQ(built("Linux version 6.1 \t(a) (b) #1"), (Built{"", "", "(a) (b) #1", ""}));
    EXPECT_EQ(built("Linux version 6.1 (a) \t(b) #1"), (Built{"a", "", "(b) #1", ""}));
}

TEST(ProcVersion, BuilderIsNotTrimmedAndTheCompilerIs) {
    EXPECT_EQ(built("Linux version 6.1 ( heron@marsh\t) ( gcc 13\t) #1"),
              (Built{" heron@marsh\t", "gcc 13", "#1", ""}));
}

TEST(ProcVersion, GroupsKeepTheGroupsInside) {
    EXPECT_EQ(built("Linux version 6.1 (a (b (c)) d) (gcc (x (y) z) (w)) #1"),
              (Built{"a (b (c)) d", "gcc (x (y) z) (w)", "#1", ""}));
}

TEST(ProcVersion, EmptyGroupsAreEmptyFields) {
    EXPECT_EQ(built("Linux version 6.1 () () #1 Mon"), (Built{"", "", "#1", "Mon"}));
}

TEST(ProcVersion, MissingSecondGroupLeavesTheRestToTheFlags) {
    EXPECT_EQ(built("Linux version 6.1 (a) #1 SMP (b) Fri Oct 25"), (Built{"a", "", "#1 SMP (b)", "Fri Oct 25"}));
}

TEST(ProcVersion, MissingGroupsLeaveTheRestToTheFlags) {
    EXPECT_EQ(built("Linux version 6.1 #1 SMP Fri Oct 25"), (Built{"", "", "#1 SMP", "Fri Oct 25"}));
}

TEST(ProcVersion, OpenFirstGroupTakesAllThatFollows) {
    EXPECT_EQ(built("Linux version 6.1 (heron@marsh (gcc 13) #1 SMP Fri Oct 25"), (Built{"", "", "", ""}));
    EXPECT_EQ(built("Linux version 6.1 ("), (Built{"", "", "", ""}));
}

TEST(ProcVersion, OpenSecondGroupTakesAllThatFollows) {
    EXPECT_EQ(built("Linux version 6.1 (heron@marsh) (gcc (13) #1 SMP Fri Oct 25"), (Built{"heron@marsh", "", "", ""}));
}

TEST(ProcVersion, SurplusClosingParenthesisBelongsToTheRest) {
    EXPECT_EQ(built("Linux version 6.1 (a)) (b) #1"), (Built{"a", "", ") (b) #1", ""}));
}

TEST(ProcVersion, CompilerWithoutALinkerIsWhole) {
    EXPECT_EQ(built("Linux version 3.1 (a) (gcc version 4.6.1 (Reed 4.6.1-2) ) #1")[1],
              "gcc version 4.6.1 (Reed 4.6.1-2)");
    EXPECT_EQ(built("Linux version 6.1 (a) (clang version 16.0.2, LLD 16.0.2) #1")[1],
              "clang version 16.0.2, LLD 16.0.2");
}

TEST(ProcVersion, CompilerEndsAtTheFirstLinker) {
    EXPECT_EQ(built("Linux version 6.1 (a) (gcc 13 , GNU ld 2.40, GNU ld 2.41) #1")[1], "gcc 13");
    EXPECT_EQ(built("Linux version 6.1 (a) (gcc 13,GNU ld 2.40) #1")[1], "gcc 13,GNU ld 2.40");
    EXPECT_EQ(built("Linux version 6.1 (a) (gcc 13, gnu ld 2.40) #1")[1], "gcc 13, gnu ld 2.40");
    EXPECT_EQ(built("Linux version 6.1 (a) (, GNU ld 2.40) #1")[1], "");
}

TEST(ProcVersion, LinkerBehindTheGroupIsNotTheCompilers) {
    EXPECT_EQ(built("Linux version 6.1 (a) (gcc 13) , GNU ld #1"), (Built{"a", "gcc 13", ", GNU ld #1", ""}));
}

TEST(ProcVersion, DateBeginsAtEachOfTheSevenDays) {
    for (const std::string day : {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"}) {
        EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 SMP " + day + " Oct 25"),
                  (Built{"a", "b", "#1 SMP", day + " Oct 25"}));
    }
}

TEST(ProcVersion, EarliestDayBeginsTheDate) {
    // Whatever their order in the week.
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 Sun Mon Tue")[3], "Sun Mon Tue");
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 Mon Sun Mon")[3], "Mon Sun Mon");
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 Wed Tue")[3], "Wed Tue");
}

TEST(ProcVersion, DayInsideAWordBeginsTheDate) {
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #4-Sunbird SMP Wed Oct 23"),
              (Built{"a", "b", "#4-", "Sunbird SMP Wed Oct 23"}));
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #4~xMonitor Wed"), (Built{"a", "b", "#4~x", "Monitor Wed"}));
}

TEST(ProcVersion, DayOfOtherLettersIsNone) {
    EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 SMP mon TUE we d"), (Built{"a", "b", "#1 SMP mon TUE we d", ""}));
}

TEST(ProcVersion, DayInAGroupBeginsNoDate) {
    EXPECT_EQ(built("Linux version 6.1-Mon (Sun@Tue) (Fri 13) #1 SMP"), (Built{"Sun@Tue", "Fri 13", "#1 SMP", ""}));
}

TEST(ProcVersion, RestMayBeTheDateAlone) {
    EXPECT_EQ(built("Linux version 6.1 (a) (b) Thu Oct 24"), (Built{"a", "b", "", "Thu Oct 24"}));
    EXPECT_EQ(built("Linux version 6.1 (a) (b) Thu"), (Built{"a", "b", "", "Thu"}));
}

TEST(ProcVersion, FlagsAndDateAreTrimmed) {
    EXPECT_EQ(built("Linux version 6.1 (a) (b)\t #1 SMP \t Thu Oct 24 \r\n"),
              (Built{"a", "b", "#1 SMP", "Thu Oct 24"}));
    EXPECT_EQ(built("Linux version 6.1 (a) (b) \t\n"), (Built{"a", "b", "", ""}));
}

TEST(ProcVersion, KeepsOddBytes) {
    EXPECT_EQ(built("Linux version 6.1 (h\xe9ron) (g\xff) #1 \x80 Mon \xfe"),
              (Built{"h\xe9ron", "g\xff", "#1 \x80", "Mon \xfe"}));
}

// ---- The distribution's name ----

class PrettyName : public testing::Test {
  protected:
    std::string name_in(const std::string& text) const {
        write_text(file(), text);
        return pretty_name_from(file());
    }

    std::filesystem::path file() const { return folder.path() / "os-release"; }

    TemporaryFolder folder;
};

TEST_F(PrettyName, LosesItsDoubleQuotes) {
    EXPECT_EQ(name_in("NAME=Heron\nPRETTY_NAME=\"Heron Linux 5 (Marsh)\"\nID=heron\n"), "Heron Linux 5 (Marsh)");
}

TEST_F(PrettyName, NeedsNoQuotes) {
    EXPECT_EQ(name_in("PRETTY_NAME=Heron\n"), "Heron");
}

TEST_F(PrettyName, KeepsSingleQuotes) {
    EXPECT_EQ(name_in("PRETTY_NAME='Heron Linux 5'\n"), "'Heron Linux 5'");
}

TEST_F(PrettyName, KeepsASingleDoubleQuote) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"\n"), "\"");
}

TEST_F(PrettyName, OfTwoQuotesIsEmpty) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"\"\nPRETTY_NAME=Late\n"), "");
}

TEST_F(PrettyName, OfThreeQuotesIsOne) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"\"\"\n"), "\"");
}

TEST_F(PrettyName, LosesOnePairOnly) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"\"Heron\"\"\n"), "\"Heron\"");
}

TEST_F(PrettyName, KeepsAQuoteWithoutItsPartner) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"Heron\n"), "\"Heron");
    EXPECT_EQ(name_in("PRETTY_NAME=Heron\"\n"), "Heron\"");
    EXPECT_EQ(name_in("PRETTY_NAME=\"Heron'\n"), "\"Heron'");
}

TEST_F(PrettyName, IsNotTrimmed) {
    EXPECT_EQ(name_in("PRETTY_NAME= Heron \t\n"), " Heron \t");
    EXPECT_EQ(name_in("PRETTY_NAME=\" Heron \"\n"), " Heron ");
    EXPECT_EQ(name_in("PRETTY_NAME=\"Heron\" \n"), "\"Heron\" ");
    EXPECT_EQ(name_in("PRETTY_NAME=\"Heron\"\r\n"), "\"Heron\"\r");
}

TEST_F(PrettyName, KeepsEscapes) {
    EXPECT_EQ(name_in("PRETTY_NAME=\"Heron \\\"Marsh\\\" \\$5 \\\\ \\`\"\n"), "Heron \\\"Marsh\\\" \\$5 \\\\ \\`");
}

TEST_F(PrettyName, IsTheFirstOne) {
    EXPECT_EQ(name_in("PRETTY_NAME=Early\nPRETTY_NAME=Late\n"), "Early");
}

TEST_F(PrettyName, IsEmptyWhereTheFirstOneIs) {
    EXPECT_EQ(name_in("PRETTY_NAME=\nPRETTY_NAME=Late\n"), "");
}

TEST_F(PrettyName, BeginsItsLine) {
    EXPECT_EQ(name_in(" PRETTY_NAME=Indented\nX_PRETTY_NAME=Other\n#PRETTY_NAME=Comment\nPRETTY_NAME=Heron\n"),
              "Heron");
    EXPECT_EQ(name_in(" PRETTY_NAME=Indented\n"), "");
}

TEST_F(PrettyName, HasItsEqualsSignRightBehind) {
    EXPECT_EQ(name_in("PRETTY_NAME =a\nPRETTY_NAME_LONG=b\npretty_name=c\nPRETTY_NAME\n"), "");
}

TEST_F(PrettyName, KeepsEqualsSigns) {
    EXPECT_EQ(name_in("PRETTY_NAME=Heron=5\n"), "Heron=5");
}

TEST_F(PrettyName, NeedsNoLastLineFeed) {
    EXPECT_EQ(name_in("ID=heron\nPRETTY_NAME=\"Heron\""), "Heron");
    EXPECT_EQ(name_in("PRETTY_NAME="), "");
    EXPECT_EQ(name_in("PRETTY_NAME"), "");
}

TEST_F(PrettyName, KeepsOddBytes) {
    const std::string odd("H\xe9ron\0\xff", 7);
    EXPECT_EQ(name_in("PRETTY_NAME=\"" + odd + "\"\n"), odd);
}

TEST_F(PrettyName, IsEmptyWithoutItsLine) {
    bool readable = false;
    EXPECT_EQ(name_in("NAME=Heron\n\n\n"), "");
    EXPECT_EQ(pretty_name_from(file(), &readable), "");
    EXPECT_TRUE(readable);
}

TEST_F(PrettyName, FileIsReadableWithANameAndWithAnEmptyOne) {
    for (const std::string text : {"PRETTY_NAME=Heron\n", "PRETTY_NAME=\"\"\n", "\n"}) {
        write_text(file(), text);
        bool readable = false;
        pretty_name_from(file(), &readable);
        EXPECT_TRUE(readable) << text;
    }
}

TEST_F(PrettyName, EmptyFileCountsAsUnreadable) {
    write_text(file(), "");
    bool readable = true;
    EXPECT_EQ(pretty_name_from(file(), &readable), "");
    EXPECT_FALSE(readable);
}

TEST_F(PrettyName, MissingFileIsUnreadable) {
    bool readable = true;
    EXPECT_EQ(pretty_name_from(file(), &readable), "");
    EXPECT_FALSE(readable);
    EXPECT_EQ(pretty_name_from(file()), "");
    EXPECT_EQ(pretty_name_from(file(), nullptr), "");
}

// ---- The kernel's names ----

TEST(KernelNames, AreTheSystemsOwn) {
    utsname names;
    ASSERT_EQ(uname(&names), 0);
    const SystemInfo si = get_system_info();
    EXPECT_EQ(si.running_kernel, names.release);
    EXPECT_EQ(si.arch, names.machine);
    EXPECT_EQ(si.hostname, names.nodename);
}

TEST(KernelNames, StayEmptyWhereTheSystemRefusesAndTheRestIsRead) {
    const SystemInfo before = get_system_info();
    uname_fails = true;
    const SystemInfo si = get_system_info();
    uname_fails = false;
    EXPECT_EQ(si.running_kernel + si.arch + si.hostname, "");
    EXPECT_EQ(si.kernel_flags, before.kernel_flags);
    EXPECT_NE(si.kernel_flags, "");
    EXPECT_NE(si.uptime, "");
    EXPECT_EQ(si.cmdline, before.cmdline);
    EXPECT_EQ(si.distro, before.distro);
    EXPECT_EQ(si.installed.size(), before.installed.size());
    for (const InstalledKernel& kernel : si.installed) EXPECT_EQ(kernel.running, kernel.version.empty());
}

// ---- The order of versions ----

/// Whether each version is newer than each one behind it, and none is newer than itself or one before it.
void expect_newest_first(const std::vector<std::string>& versions) {
    for (size_t i = 0; i < versions.size(); ++i) {
        for (size_t j = 0; j < versions.size(); ++j) {
            EXPECT_EQ(version_greater(versions[i], versions[j]), i < j) << versions[i] << " and " << versions[j];
        }
    }
}

TEST(VersionOrder, IsByNumberAndNotByText) {
    expect_newest_first({"6.10.2", "6.9.12", "6.9.2"});
    expect_newest_first({"10", "9", "1"});
}

TEST(VersionOrder, FirstDifferenceDecides) {
    expect_newest_first({"7.0.0", "6.99.99", "6.99.98-500", "6.1.900"});
}

TEST(VersionOrder, SeparatorsDoNotMatter) {
    expect_newest_first({"6-1_3", "6.1.2", "6.1+1", "+++6..1"});
    expect_newest_first({"heron6marsh2", "6.1"});
}

TEST(VersionOrder, PreReleaseCountsAsNewer) {
    expect_newest_first({"6.12-rc3", "6.12-rc2", "6.12-rc", "6.12"});
    expect_newest_first({"6.12.0-rc2", "6.12.0"});
}

TEST(VersionOrder, LeadingZerosMakeNoDifference) {
    expect_newest_first({"6.010", "6.9", "6.0008", "6.7"});
    // With equal numbers the text decides.
    expect_newest_first({"6.1", "6.01", "6.001"});
}

TEST(VersionOrder, MissingNumberIsZero) {
    expect_newest_first({"6.1.0.1", "6.1.0", "6.1"});
    expect_newest_first({"6.1.1", "6.1-heron", "6.1"});
    expect_newest_first({"6.1.0-a", "6.1.0", "6.1-z", "6.1"});
}

TEST(VersionOrder, LongerTextWinsWithEqualNumbers) {
    expect_newest_first({"6.1.0", "6.1"});
    expect_newest_first({"6.1.0.0.0", "6.1.0.0"});
}

TEST(VersionOrder, FlavoursDescendByTheirNames) {
    expect_newest_first({"6.1.4-rt", "6.1.4-heron", "6.1.4-Heron", "6.1.4"});
    expect_newest_first({"6.1.4-\xff", "6.1.4-z"});
}

TEST(VersionOrder, FlavourStandsBehindTheNumbersOfItsName) {
    expect_newest_first({"6.1.4-amd64", "6.1.4-rt"});
}

TEST(VersionOrder, OfTextsWithoutNumbersIsTheirOwn) {
    expect_newest_first({"1", "heron", "extra", ""});
    expect_newest_first({"build", "0"});
}

TEST(VersionOrder, OnlyAsciiDigitsAreNumbers) {
    expect_newest_first({"2", "\xc2\xb9\x31"});
    expect_newest_first({"1", "\xd9\xa3"});
}

TEST(VersionOrder, HoldsNumbersOf63Bits) {
    expect_newest_first({"9223372036854775807", "9223372036854775806", "4294967297", "4294967296", "2147483648", "1"});
}

TEST(VersionOrder, LongerNumbersWrapAround) {
    // 2^63 is the least number then, 2^64 is 0 and 2^64 + 5 is 5.
    expect_newest_first({"18446744073709551621.1", "5.0", "18446744073709551620", "9223372036854775808"});
    expect_newest_first({"18446744073709551616", "0"});
    expect_newest_first({"0", "18446744073709551615"});
    EXPECT_FALSE(version_greater(std::string(500, '9'), std::string(500, '9')));
}

/// Versions that meet often in a prefix, in their numbers, or in both.
std::vector<std::string> versions_of_all_sorts() {
    std::mt19937 random(20261121);
    const std::vector<std::string> pieces = {"0",
                                             "00",
                                             "1",
                                             "01",
                                             "2",
                                             "9",
                                             "10",
                                             "6.1",
                                             ".",
                                             ".",
                                             "-",
                                             "+",
                                             "rc",
                                             "-rc1",
                                             "heron",
                                             "~",
                                             "\xff",
                                             "\x80",
                                             ".0",
                                             "9223372036854775807",
                                             "9223372036854775808",
                                             "18446744073709551615",
                                             "18446744073709551616",
                                             "99999999999999999999999999"};
    std::vector<std::string> versions = {"", "0"};
    while (versions.size() < 160) {
        std::string version;
        for (auto n = random() % 5 + 1; n > 0; --n) version += pieces[random() % pieces.size()];
        versions.push_back(version);
    }
    std::ranges::sort(versions);
    versions.erase(std::unique(versions.begin(), versions.end()), versions.end());
    return versions;
}

TEST(VersionOrder, HoldsForAllSortsOfVersions) {
    const std::vector<std::string> versions = versions_of_all_sorts();
    ASSERT_GT(versions.size(), 120U);
    const size_t n = versions.size();
    std::vector<std::vector<bool>> greater(n, std::vector<bool>(n));
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = 0; j < n; ++j) greater[i][j] = version_greater(versions[i], versions[j]);
    }
    for (size_t i = 0; i < n; ++i) {
        EXPECT_FALSE(greater[i][i]) << versions[i];
        for (size_t j = 0; j < n; ++j) {
            // Texts that differ are never equal.
            EXPECT_EQ(greater[i][j] != greater[j][i], i != j) << versions[i] << " and " << versions[j];
            if (!greater[i][j]) continue;
            for (size_t k = 0; k < n; ++k) {
                if (greater[j][k]) {
                    EXPECT_TRUE(greater[i][k]) << versions[i] << ", " << versions[j] << " and " << versions[k];
                }
            }
        }
    }
}

TEST(VersionOrder, SortsTheSameFromEveryOrder) {
    std::vector<std::string> versions = versions_of_all_sorts();
    std::ranges::sort(versions, version_greater);
    const std::vector<std::string> expected = versions;
    std::mt19937 random(7);
    for (int i = 0; i < 20; ++i) {
        std::ranges::shuffle(versions, random);
        std::ranges::sort(versions, version_greater);
        EXPECT_EQ(versions, expected);
    }
}

// ---- The note on installed kernels ----

TEST_F(Sandbox, NoteOnKernelsIsEmptyWhereImagesCanBeSeen) {
    for (const std::optional<std::string>& value : {std::optional<std::string>(), std::optional<std::string>("")}) {
        const Environment set("SNAP", value);
        EXPECT_EQ(note_on_installed(true, true), "");
        EXPECT_EQ(note_on_installed(true, false), "");
    }
}

// ---- Lines of the module list ----

/// Name, size, reference count, users and state; empty for a line that is passed over.
std::vector<std::string> module_in(const std::string& line) {
    KernelModule mod;
    if (!parse_module_line(line, mod)) return {};
    return {mod.name, std::to_string(mod.size), std::to_string(mod.refcount), mod.used_by, mod.state};
}

using Module = std::vector<std::string>;

TEST(ModuleRecord, BeginsEmpty) {
    const KernelModule mod;
    EXPECT_EQ(mod.name + mod.used_by + mod.state + mod.version + mod.srcversion + mod.taint, "");
    EXPECT_EQ(mod.description + mod.author + mod.license + mod.filename, "");
    EXPECT_EQ(mod.size, 0U);
    EXPECT_EQ(mod.refcount, 0);
    EXPECT_FALSE(mod.details_loaded);
    EXPECT_TRUE(mod.parameters.empty());
    static_assert(sizeof mod.refcount == 4 && sizeof mod.size == 8);
}

TEST(ModuleLine, HasFiveColumnsAndMayHaveMore) {
    const Module expected{"heron", "16384", "2", "marsh,reed", "Live"};
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live"), expected);
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live 0xffffffffc0a00000"), expected);
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live 0x0000000000000000 (OE) and more"), expected);
}

TEST(ModuleLine, OfFewerColumnsIsPassedOver) {
    for (const std::string line : {"", " ", "heron", "heron 1", "heron 1 2", "heron 1 2 -", "heron 1 2 - \t\r "}) {
        EXPECT_EQ(module_in(line), Module{}) << line;
    }
}

TEST(ModuleLine, ColumnsStandBetweenAnyWhiteSpace) {
    EXPECT_EQ(module_in(" \t heron\v16384\f\f2 \t - \rLoading\r"), (Module{"heron", "16384", "2", "", "Loading"}));
}

TEST(ModuleLine, OtherBytesBelongToTheirColumn) {
    for (int byte = 1; byte < 256; ++byte) {
        const auto c = static_cast<char>(byte);
        const bool white = byte == ' ' || (byte >= '\t' && byte <= '\r');
        const Module mod = module_in(std::string("he") + c + "ron 1 2 - Live");
        ASSERT_EQ(mod.size(), 5U);
        EXPECT_EQ(mod[0], white ? "he" : std::string("he") + c + "ron") << byte;
    }
}

TEST(ModuleLine, SizeEndsAtTheFirstCharacterThatIsNoDigit) {
    EXPECT_EQ(module_in("heron 123kB 0 - Live")[1], "123");
    EXPECT_EQ(module_in("heron 0x20 0 - Live")[1], "0");
    EXPECT_EQ(module_in("heron 010 0 - Live")[1], "10");
    EXPECT_EQ(module_in("heron - 0 - Live")[1], "0");
    EXPECT_EQ(module_in("heron many 0 - Live")[1], "0");
    EXPECT_EQ(module_in("heron 18446744073709551615 0 - Live")[1], "18446744073709551615");
}

TEST(ModuleLine, CountThatIsNoNumberIsZero) {
    EXPECT_EQ(module_in("heron 1 - - Live"), (Module{"heron", "1", "0", "", "Live"}));
    EXPECT_EQ(module_in("heron 1 some - Live")[2], "0");
}

TEST(ModuleLine, CountMayBeNegativeAndIsNarrowed) {
    EXPECT_EQ(module_in("heron 1 -3 - Live")[2], "-3");
    EXPECT_EQ(module_in("heron 1 12x - Live")[2], "12");
    EXPECT_EQ(module_in("heron 1 0x7 - Live")[2], "0");
    EXPECT_EQ(module_in("heron 1 2147483647 - Live")[2], "2147483647");
    EXPECT_EQ(module_in("heron 1 4294967298 - Live")[2], "2");
}

TEST(ModuleLine, HyphenMeansNoUsers) {
    EXPECT_EQ(module_in("heron 1 0 - Live")[3], "");
}

TEST(ModuleLine, UsersLoseEveryTrailingComma) {
    EXPECT_EQ(module_in("heron 1 1 marsh, Live")[3], "marsh");
    EXPECT_EQ(module_in("heron 1 1 marsh Live")[3], "marsh");
    EXPECT_EQ(module_in("heron 1 2 marsh,reed, Live")[3], "marsh,reed");
    EXPECT_EQ(module_in("heron 1 2 marsh,,reed,,, Live")[3], "marsh,,reed");
    EXPECT_EQ(module_in("heron 1 2 ,marsh, Live")[3], ",marsh");
}

TEST(ModuleLine, UsersOfCommasOnlyAreNone) {
    EXPECT_EQ(module_in("heron 1 2 , Live")[3], "");
    EXPECT_EQ(module_in("heron 1 2 ,,, Live")[3], "");
}

TEST(ModuleLine, HyphenAmongUsersStays) {
    EXPECT_EQ(module_in("heron 1 2 -, Live")[3], "-");
    EXPECT_EQ(module_in("heron 1 2 -- Live")[3], "--");
    EXPECT_EQ(module_in("heron 1 2 marsh,[permanent], Live")[3], "marsh,[permanent]");
}

TEST(ModuleLine, NameAndStateStandAsTheyAre) {
    EXPECT_EQ(module_in("- 1 0 - -"), (Module{"-", "1", "0", "", "-"}));
    EXPECT_EQ(module_in("heron, 1 0 - Live,"), (Module{"heron,", "1", "0", "", "Live,"}));
}

TEST(ModuleLine, LeavesDetailsAlone) {
    KernelModule mod;
    ASSERT_TRUE(parse_module_line("heron 1 0 - Live 0x0 (E)", mod));
    EXPECT_FALSE(mod.details_loaded);
    EXPECT_EQ(mod.taint, "");
}

// ---- Names for the shell ----

/// What may stand in a name, written out.
const std::string PERMITTED = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";

TEST(SafeModuleName, HasOnlyPermittedBytesWhereverTheyStand) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c(1, static_cast<char>(byte));
        const bool permitted = PERMITTED.find(c) != std::string::npos;
        for (const std::string& name : {c, c + "heron", "he" + c + "ron", "heron" + c}) {
            EXPECT_EQ(safe_module_name(name), permitted) << byte;
        }
    }
}

TEST(SafeModuleName, HasOneTo64Bytes) {
    for (size_t length = 0; length <= 70; ++length) {
        EXPECT_EQ(safe_module_name(std::string(length, 'h')), length >= 1 && length <= 64) << length;
    }
    EXPECT_FALSE(safe_module_name(std::string(100'000, 'h')));
}

TEST(SafeModuleName, MayBeginWithAHyphen) {
    EXPECT_TRUE(safe_module_name("-"));
    EXPECT_TRUE(safe_module_name("--version"));
}

// ---- modinfo ----

/// A modinfo of the test's own, and modules that the machine's /sys/module does not have.
class Modinfo : public testing::Test {
  protected:
    /// Returns the module's details, with this printed by modinfo.
    KernelModule details(const std::string& printed, const std::string& name = "veldrin_heron") const {
        write_text(tools.file("printed"), printed);
        tools.add("modinfo", "cat '" + tools.file("printed").string() + "'");
        return filled(name);
    }

    KernelModule filled(const std::string& name = "veldrin_heron") const {
        KernelModule mod;
        mod.name = name;
        fill_module_details(mod);
        return mod;
    }

    StandIns tools;
};

TEST_F(Modinfo, FillsFiveFields) {
    const KernelModule mod = details(
        "filename:       /lib/modules/6.11.4/kernel/heron.ko\n"
        "version:        4.2\n"
        "description:    Heron over the marsh\n"
        "author:         Reed Warbler <reed@marsh.example>\n"
        "license:        GPL v2\n");
    EXPECT_EQ(mod.filename, "/lib/modules/6.11.4/kernel/heron.ko");
    EXPECT_EQ(mod.version, "4.2");
    EXPECT_EQ(mod.description, "Heron over the marsh");
    EXPECT_EQ(mod.author, "Reed Warbler <reed@marsh.example>");
    EXPECT_EQ(mod.license, "GPL v2");
    EXPECT_TRUE(mod.details_loaded);
}

TEST_F(Modinfo, FillsNothingElse) {
    const KernelModule mod = details(
        "name: other\nsrcversion: ABC\ntaint: O\nparm: wing:span (int)\nalias: bird\ndepends: marsh\nsize: 4\n"
        "state: Gone\nsigner: nobody\n");
    EXPECT_EQ(mod.name, "veldrin_heron");
    EXPECT_EQ(mod.srcversion + mod.taint + mod.state + mod.used_by, "");
    EXPECT_EQ(mod.description + mod.author + mod.license + mod.filename + mod.version, "");
    EXPECT_EQ(mod.size, 0U);
    EXPECT_TRUE(mod.parameters.empty());
}

TEST_F(Modinfo, RunsOnceWithTheNameAlone) {
    details("");
    EXPECT_EQ(tools.calls(), (std::vector<std::string>{"modinfo|veldrin_heron"}));
}

TEST_F(Modinfo, FirstNonEmptyValueWins) {
    const KernelModule mod = details(
        "author: First\nauthor: Second\nlicense: GPL\ndescription: One\nlicense: MIT\ndescription: Two\n"
        "filename: /a\nfilename: /b\nversion: 1\nversion: 2\n");
    EXPECT_EQ(mod.author, "First");
    EXPECT_EQ(mod.license, "GPL");
    EXPECT_EQ(mod.description, "One");
    EXPECT_EQ(mod.filename, "/a");
    EXPECT_EQ(mod.version, "1");
}

TEST_F(Modinfo, EmptyValueLeavesTheNextOneItsChance) {
    const KernelModule mod = details(
        "author:\nauthor: \t \nauthor: Third\nlicense:\ndescription:   \ndescription: Heron\nfilename:\nfilename: /b\n"
        "version:\nversion: 2\n");
    EXPECT_EQ(mod.author, "Third");
    EXPECT_EQ(mod.license, "");
    EXPECT_EQ(mod.description, "Heron");
    EXPECT_EQ(mod.filename, "/b");
    EXPECT_EQ(mod.version, "2");
}

TEST_F(Modinfo, ValueKeepsItsColons) {
    const KernelModule mod =
        details("description: Heron: see https://marsh.example:8080/a:b:\nfilename:/mnt/c:/x.ko\n");
    EXPECT_EQ(mod.description, "Heron: see https://marsh.example:8080/a:b:");
    EXPECT_EQ(mod.filename, "/mnt/c:/x.ko");
}

TEST_F(Modinfo, KeyAndValueAreTrimmed) {
    const KernelModule mod = details(" \tlicense \t:\t  GPL  and \t more\t \r\n");
    EXPECT_EQ(mod.license, "GPL  and \t more");
}

TEST_F(Modinfo, KeyIsExact) {
    const KernelModule mod = details(
        "License: a\nLICENSE: b\nlicenses: c\nlicens: d\nthe license: e\nfile: f\nauthors: g\n\xff"
        "author: h\n: i\n");
    EXPECT_EQ(mod.license + mod.filename + mod.author, "");
}

TEST_F(Modinfo, LineWithoutAColonIsPassedOver) {
    const KernelModule mod = details("license\nlicense GPL\n\n \nauthor: Reed\nlicense = MIT");
    EXPECT_EQ(mod.license, "");
    EXPECT_EQ(mod.author, "Reed");
}

TEST_F(Modinfo, LastLineNeedsNoLineFeed) {
    EXPECT_EQ(details("author: Reed\nlicense: GPL").license, "GPL");
}

TEST_F(Modinfo, KeepsOddBytes) {
    EXPECT_EQ(details("author: J\xf6rg \x80\xff\n").author, "J\xf6rg \x80\xff");
}

TEST_F(Modinfo, LineOf2047BytesIsOnePiece) {
    // With its line feed.
    const std::string value(2047 - std::string("author:\n").size(), 'a');
    const KernelModule mod = details("author:" + value + "\nlicense: GPL\n");
    EXPECT_EQ(mod.author, value);
    EXPECT_EQ(mod.license, "GPL");
}

TEST_F(Modinfo, LineOf2047BytesAndALineFeedIsOnePieceAndAnEmptyOne) {
    const std::string value(2047 - std::string("author:").size(), 'a');
    const KernelModule mod = details("author:" + value + "\nlicense: GPL\n");
    EXPECT_EQ(mod.author, value);
    EXPECT_EQ(mod.license, "GPL");
}

TEST_F(Modinfo, LongerLineIsCutAndItsRestIsALineOfItsOwn) {
    const std::string value(2047 - std::string("author:").size(), 'a');
    KernelModule mod = details("author:" + value + "license: hidden:\nlicense: GPL\n");
    EXPECT_EQ(mod.author, value);
    EXPECT_EQ(mod.license, "hidden:");

    mod = details("author:" + value + "and more\nlicense: GPL\n", "veldrin_reed");
    EXPECT_EQ(mod.author, value);
    EXPECT_EQ(mod.license, "GPL");
}

TEST_F(Modinfo, VeryLongLineComesInPiecesOf2047Bytes) {
    const std::string first(2047, 'x');
    const std::string second = "author:" + std::string(2040, 'a');
    const std::string third = "description:" + std::string(2035, 'd');
    const KernelModule mod = details(first + second + third + "license:GPL\n");
    EXPECT_EQ(mod.author, std::string(2040, 'a'));
    EXPECT_EQ(mod.description, std::string(2035, 'd'));
    EXPECT_EQ(mod.license, "GPL");
}

TEST_F(Modinfo, PieceLosesTheBlanksAtItsCut) {
    const std::string value(2000, 'a');
    const std::string blanks(2047 - 7 - 2000, ' ');
    EXPECT_EQ(details("author:" + value + blanks + "z\n").author, value);
}

TEST_F(Modinfo, PrintsMuchAndIsReadToItsEnd) {
    std::string printed;
    for (int i = 0; i < 20'000; ++i) printed += "alias: bird" + std::to_string(i) + "\n";
    EXPECT_EQ(details(printed + "license: GPL\n").license, "GPL");
}

TEST_F(Modinfo, MissingToolLeavesTheFieldsEmpty) {
    const TemporaryFolder nothing;
    const Environment path("PATH", nothing.path().string());
    testing::internal::CaptureStderr();
    const KernelModule mod = filled();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(mod.description + mod.author + mod.license + mod.filename + mod.version, "");
    EXPECT_TRUE(mod.details_loaded);
}

TEST_F(Modinfo, FieldsStayEmptyWhereNoProcessCanBeStarted) {
    tools.add("modinfo", "echo 'license: GPL'");
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    // Without a file descriptor there is no pipe.
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const KernelModule mod = filled();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(mod.license, "");
    EXPECT_TRUE(mod.details_loaded);
    EXPECT_TRUE(tools.calls().empty());
}

TEST_F(Modinfo, FailingToolIsBelieved) {
    tools.add("modinfo", "echo 'license: GPL'; exit 1");
    EXPECT_EQ(filled().license, "GPL");
    tools.add("modinfo", "echo 'license: GPL'; kill -9 $$");
    EXPECT_EQ(filled().license, "GPL");
}

TEST_F(Modinfo, ErrorsAreNeitherReadNorShown) {
    tools.add("modinfo", "echo 'license: wrong' >&2; echo 'author: Reed'");
    testing::internal::CaptureStderr();
    const KernelModule mod = filled();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(mod.license, "");
    EXPECT_EQ(mod.author, "Reed");
}

TEST_F(Modinfo, IsAskedOnceForARecord) {
    KernelModule mod = details("author: Reed\n");
    mod.author.clear();
    mod.parameters = {{"wing", "2"}};
    fill_module_details(mod);
    EXPECT_EQ(mod.author, "");
    EXPECT_EQ(mod.parameters, (Pairs{{"wing", "2"}}));
    EXPECT_EQ(tools.calls().size(), 1U);
}

TEST_F(Modinfo, IsNotAskedAgainWhereItFoundNothing) {
    tools.add("modinfo", "exit 1");
    KernelModule mod = filled();
    EXPECT_TRUE(mod.details_loaded);
    tools.add("modinfo", "echo 'license: GPL'");
    fill_module_details(mod);
    EXPECT_EQ(mod.license, "");
    EXPECT_EQ(tools.calls().size(), 1U);
}

TEST_F(Modinfo, RecordWithDetailsIsLeftAlone) {
    tools.add("modinfo", "echo 'license: GPL'");
    KernelModule mod;
    mod.name = "veldrin_heron";
    mod.details_loaded = true;
    fill_module_details(mod);
    EXPECT_EQ(mod.license, "");
    EXPECT_TRUE(tools.calls().empty());
}

TEST_F(Modinfo, SeesANameWithALeadingHyphenAsItIs) {
    details("", "-Fauthor");
    details("", "--version");
    EXPECT_EQ(tools.calls(), (std::vector<std::string>{"modinfo|-Fauthor", "modinfo|--version"}));
}

TEST_F(Modinfo, NeverSeesAByteThatIsNotPermitted) {
    tools.add("modinfo", "echo 'license: GPL'");
    std::vector<std::string> expected;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c(1, static_cast<char>(byte));
        for (const std::string& name : {"he" + c + "ron", c + "heron"}) {
            // A name that ends before it begins would make the folder of all modules a file to read.
            if (name[0] == '\0') continue;
            const bool permitted = PERMITTED.find(c) != std::string::npos;
            if (permitted) expected.push_back("modinfo|" + name);
            const KernelModule mod = filled(name);
            EXPECT_EQ(mod.license, permitted ? "GPL" : "") << byte;
            EXPECT_TRUE(mod.details_loaded);
        }
    }
    EXPECT_EQ(tools.calls(), expected);
}

TEST_F(Modinfo, NeverSeesANameThatIsTooLongOrNone) {
    tools.add("modinfo", "echo 'license: GPL'");
    std::vector<std::string> expected;
    // An empty name would read the folder of all modules, whose files are none of these.
    for (size_t length = 0; length <= 70; ++length) {
        const std::string name(length, 'h');
        if (length >= 1 && length <= 64) expected.push_back("modinfo|" + name);
        filled(name);
    }
    EXPECT_EQ(tools.calls(), expected);
}

TEST_F(Modinfo, NamesMadeForAShellRunNothing) {
    const std::filesystem::path mark = tools.file("marked");
    tools.add("modinfo", "");
    tools.add("mark", "touch '" + mark.string() + "'");
    for (const std::string name :
         {"heron;mark", "heron mark", "heron|mark", "$(mark)", "`mark`", "heron&mark", "'heron'", "\"heron\"",
          "heron\nmark", ">mark", "heron\\", "heron.ko", "../heron", "~", "*", "#"}) {
        filled(name);
    }
    EXPECT_FALSE(std::filesystem::exists(mark));
    EXPECT_TRUE(tools.calls().empty());
}

}  // namespace
