// SPDX-License-Identifier: MIT
// Reading the machine: white space, whole files, sizes, sandboxes, how the kernel was built, the distribution's name,
// the kernel's names, and the order of versions.
#include "support.h"

#include "local_system.cpp"

#include <sys/syscall.h>
#include <climits>
#include <random>

namespace {

bool uname_fails = false;

}  // namespace

/// Takes the place of the C library's uname(), which never fails.
extern "C" int uname(utsname* names) noexcept {
    return uname_fails ? -1 : static_cast<int>(syscall(SYS_uname, names));
}

namespace {

/// The environment of a program outside Snap and Flatpak.
class Sandbox : public testing::Test {
  protected:
    Environment snap{"SNAP", std::nullopt};
    Environment instance{"SNAP_INSTANCE_NAME", std::nullopt};
    Environment snap_name{"SNAP_NAME", std::nullopt};
    Environment flatpak{"FLATPAK_ID", std::nullopt};
};

// ---- Trimming ----

TEST(Trim, TakesWhiteSpaceOffEitherEndAndKeepsItInside) {
    for (const auto& [text, trimmed] : {
             std::pair{"", ""},
             {" ", ""},
             {" \t\r\n\n\r\t ", ""},
             {"x", "x"},
             {"heron 7", "heron 7"},
             {"\r\n\t heron", "heron"},
             {"heron \t\r\n", "heron"},
             {"\n heron\t", "heron"},
             {" grey \t\r\n heron ", "grey \t\r\n heron"},
         }) {
        EXPECT_EQ(trim(text), trimmed) << text;
    }
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

TEST(ReadFile, TellsAMissingOneWhateverTheFlagWas) {
    const TemporaryFolder folder;
    EXPECT_EQ(read_file(folder.path() / "none"), "");
    EXPECT_EQ(read_file(folder.path() / "none", nullptr), "");
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

TEST(FormatSize, ChoosesTheUnitAndThenRoundsToTheNearestAndHalvesToEven) {
    constexpr unsigned long MB = 1048576;
    const char* largest = sizeof(unsigned long) == 8 ? "17592186044416.0 MB" : "4096.0 MB";
    for (const auto& [bytes, text] :
         {std::pair{0UL, "0 B"},  {1UL, "1 B"},           {512UL, "512 B"},         {1023UL, "1023 B"},
          {1024UL, "1 KB"},       {16384UL, "16 KB"},     {700 * 1024UL, "700 KB"}, {1535UL, "1 KB"},
          {1536UL, "2 KB"},       {2559UL, "2 KB"},       {2560UL, "2 KB"},         {2561UL, "3 KB"},
          {3584UL, "4 KB"},       {1048063UL, "1023 KB"}, {1048064UL, "1024 KB"},   {MB - 1, "1024 KB"},
          {MB, "1.0 MB"},         {1572864UL, "1.5 MB"},  {10 * MB, "10.0 MB"},     {1024 * MB, "1024.0 MB"},
          {MB + 52428, "1.0 MB"}, {MB + 52429, "1.1 MB"}, {MB / 4 * 5, "1.2 MB"},   {MB / 4 * 7, "1.8 MB"},
          {2 * MB - 1, "2.0 MB"}, {ULONG_MAX, largest}}) {
        EXPECT_EQ(format_size(bytes), text) << bytes;
    }
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

TEST_F(Sandbox, SnapAndFlatpakAreIndependent) {
    const Environment snap_set("SNAP", "/snap/veldrin/31");
    EXPECT_EQ(running_in_flatpak(), std::filesystem::exists("/.flatpak-info"));
    const Environment flatpak_set("FLATPAK_ID", "org.veldrin.Veldrin");
    EXPECT_TRUE(running_in_snap());
    EXPECT_TRUE(running_in_flatpak());
}

TEST_F(Sandbox, IsLookedUpEachTime) {
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

/// Returns the four fields: who, with what, flags, when.
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

TEST(ProcVersion, IsCutInAnyForm) {
    const std::pair<std::string, Built> lines[] = {
        // May begin with a parenthesis.
        {"(heron@marsh) (gcc 13) #7 SMP Sat Oct 26", {"heron@marsh", "gcc 13", "#7 SMP", "Sat Oct 26"}},
        {"  (heron@marsh)", {"heron@marsh", "", "", ""}},
        // Another form is all flags and date.
        {"Kestrel 4 (heron) #7 SMP Sat Oct 26", {"", "", "Kestrel 4 (heron) #7 SMP", "Sat Oct 26"}},
        {"Kestrel 4 (heron)", {"", "", "Kestrel 4 (heron)", ""}},
        {"linux version 4 (a) (b) #1", {"", "", "linux version 4 (a) (b) #1", ""}},
        {"Linux version", {"", "", "Linux version", ""}},
        // A release alone gives nothing.
        {"Linux version 6.11.4-kestrel", {"", "", "", ""}},
        {"Linux version ", {"", "", "", ""}},
        {"", {"", "", "", ""}},
        // The release ends at the next blank, and not at a tab. Without one, the blank stands right behind the words.
        {"Linux version 6.1\t(a) (b) (c) #1", {"b", "c", "#1", ""}},
        {"Linux version  (a) (b) #1", {"a", "b", "#1", ""}},
        {"Linux version (a) (b) #1", {"b", "", "#1", ""}},
        // Only blanks may stand before a group.
        {"Linux version 6.1    (a)    (b)    #1", {"a", "b", "#1", ""}},
        {"Linux version 6.1(x) (a)(b)#1", {"a", "b", "#1", ""}},
        {"Linux version 6.1 \t(a) (b) #1", {"", "", "(a) (b) #1", ""}},
        {"Linux version 6.1 (a) \t(b) #1", {"a", "", "(b) #1", ""}},
        // The builder is not trimmed, and the compiler is.
        {"Linux version 6.1 ( heron@marsh\t) ( gcc 13\t) #1", {" heron@marsh\t", "gcc 13", "#1", ""}},
        // A group keeps the groups inside.
        {"Linux version 6.1 (a (b (c)) d) (gcc (x (y) z) (w)) #1", {"a (b (c)) d", "gcc (x (y) z) (w)", "#1", ""}},
        // An empty group is an empty field.
        {"Linux version 6.1 () () #1 Mon", {"", "", "#1", "Mon"}},
        // Without the second group, or both, the rest belongs to the flags.
        {"Linux version 6.1 (a) #1 SMP (b) Fri Oct 25", {"a", "", "#1 SMP (b)", "Fri Oct 25"}},
        {"Linux version 6.1 #1 SMP Fri Oct 25", {"", "", "#1 SMP", "Fri Oct 25"}},
        // An open group takes all that follows.
        {"Linux version 6.1 (heron@marsh (gcc 13) #1 SMP Fri Oct 25", {"", "", "", ""}},
        {"Linux version 6.1 (", {"", "", "", ""}},
        {"Linux version 6.1 (heron@marsh) (gcc (13) #1 SMP Fri Oct 25", {"heron@marsh", "", "", ""}},
        // A surplus closing parenthesis belongs to the rest.
        {"Linux version 6.1 (a)) (b) #1", {"a", "", ") (b) #1", ""}},
        // A compiler without a linker is whole.
        {"Linux version 3.1 (a) (gcc version 4.6.1 (Reed 4.6.1-2) ) #1",
         {"a", "gcc version 4.6.1 (Reed 4.6.1-2)", "#1", ""}},
        {"Linux version 6.1 (a) (clang version 16.0.2, LLD 16.0.2) #1",
         {"a", "clang version 16.0.2, LLD 16.0.2", "#1", ""}},
        // It ends at the first linker in its group.
        {"Linux version 6.1 (a) (gcc 13 , GNU ld 2.40, GNU ld 2.41) #1", {"a", "gcc 13", "#1", ""}},
        {"Linux version 6.1 (a) (gcc 13,GNU ld 2.40) #1", {"a", "gcc 13,GNU ld 2.40", "#1", ""}},
        {"Linux version 6.1 (a) (gcc 13, gnu ld 2.40) #1", {"a", "gcc 13, gnu ld 2.40", "#1", ""}},
        {"Linux version 6.1 (a) (, GNU ld 2.40) #1", {"a", "", "#1", ""}},
        {"Linux version 6.1 (a) (gcc 13) , GNU ld #1", {"a", "gcc 13", ", GNU ld #1", ""}},
        // The earliest day begins the date, whatever their order in the week.
        {"Linux version 6.1 (a) (b) #1 Sun Mon Tue", {"a", "b", "#1", "Sun Mon Tue"}},
        {"Linux version 6.1 (a) (b) #1 Mon Sun Mon", {"a", "b", "#1", "Mon Sun Mon"}},
        {"Linux version 6.1 (a) (b) #1 Wed Tue", {"a", "b", "#1", "Wed Tue"}},
        // Kept on purpose: a day inside a word begins the date.
        {"Linux version 6.1 (a) (b) #4-Sunbird SMP Wed Oct 23", {"a", "b", "#4-", "Sunbird SMP Wed Oct 23"}},
        {"Linux version 6.1 (a) (b) #4~xMonitor Wed", {"a", "b", "#4~x", "Monitor Wed"}},
        // A day in other letters is none, and a day in a group begins no date.
        {"Linux version 6.1 (a) (b) #1 SMP mon TUE we d", {"a", "b", "#1 SMP mon TUE we d", ""}},
        {"Linux version 6.1-Mon (Sun@Tue) (Fri 13) #1 SMP", {"Sun@Tue", "Fri 13", "#1 SMP", ""}},
        // The rest may be the date alone.
        {"Linux version 6.1 (a) (b) Thu Oct 24", {"a", "b", "", "Thu Oct 24"}},
        {"Linux version 6.1 (a) (b) Thu", {"a", "b", "", "Thu"}},
        // Flags and date are trimmed.
        {"Linux version 6.1 (a) (b)\t #1 SMP \t Thu Oct 24 \r\n", {"a", "b", "#1 SMP", "Thu Oct 24"}},
        {"Linux version 6.1 (a) (b) \t\n", {"a", "b", "", ""}},
        // Bytes that are no text are kept.
        {"Linux version 6.1 (h\xe9ron) (g\xff) #1 \x80 Mon \xfe", {"h\xe9ron", "g\xff", "#1 \x80", "Mon \xfe"}},
    };
    for (const auto& [line, fields] : lines) EXPECT_EQ(built(line), fields) << line;
}

TEST(ProcVersion, DateBeginsAtEachOfTheSevenDays) {
    for (const std::string day : {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"}) {
        EXPECT_EQ(built("Linux version 6.1 (a) (b) #1 SMP " + day + " Oct 25"),
                  (Built{"a", "b", "#1 SMP", day + " Oct 25"}));
    }
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

TEST_F(PrettyName, IsTheValueBehindTheFirstSuchKey) {
    const std::pair<std::string, std::string> files[] = {
        // A name loses one pair of double quotes, and needs none.
        {"NAME=Heron\nPRETTY_NAME=\"Heron Linux 5 (Marsh)\"\nID=heron\n", "Heron Linux 5 (Marsh)"},
        {"PRETTY_NAME=Heron\n", "Heron"},
        {"PRETTY_NAME=\"\"Heron\"\"\n", "\"Heron\""},
        {"PRETTY_NAME=\"\"\nPRETTY_NAME=Late\n", ""},
        {"PRETTY_NAME=\"\"\"\n", "\""},
        // A quote without its partner is kept, and so are single quotes.
        {"PRETTY_NAME=\"Heron\n", "\"Heron"},
        {"PRETTY_NAME=Heron\"\n", "Heron\""},
        {"PRETTY_NAME=\"Heron'\n", "\"Heron'"},
        {"PRETTY_NAME=\"\n", "\""},
        {"PRETTY_NAME='Heron Linux 5'\n", "'Heron Linux 5'"},
        // It is not trimmed.
        {"PRETTY_NAME= Heron \t\n", " Heron \t"},
        {"PRETTY_NAME=\" Heron \"\n", " Heron "},
        {"PRETTY_NAME=\"Heron\" \n", "\"Heron\" "},
        {"PRETTY_NAME=\"Heron\"\r\n", "\"Heron\"\r"},
        // Kept on purpose: escapes stand as they are.
        {"PRETTY_NAME=\"Heron \\\"Marsh\\\" \\$5 \\\\ \\`\"\n", "Heron \\\"Marsh\\\" \\$5 \\\\ \\`"},
        // The first one counts, also where it is empty.
        {"PRETTY_NAME=Early\nPRETTY_NAME=Late\n", "Early"},
        {"PRETTY_NAME=\nPRETTY_NAME=Late\n", ""},
        // It begins its line, with the equals sign right behind.
        {" PRETTY_NAME=Indented\nX_PRETTY_NAME=Other\n#PRETTY_NAME=Comment\nPRETTY_NAME=Heron\n", "Heron"},
        {" PRETTY_NAME=Indented\n", ""},
        {"PRETTY_NAME =a\nPRETTY_NAME_LONG=b\npretty_name=c\nPRETTY_NAME\n", ""},
        // It may hold equals signs.
        {"PRETTY_NAME=Heron=5\n", "Heron=5"},
        // It needs no line feed behind.
        {"ID=heron\nPRETTY_NAME=\"Heron\"", "Heron"},
        {"PRETTY_NAME=", ""},
        {"PRETTY_NAME", ""},
    };
    for (const auto& [text, name] : files) EXPECT_EQ(name_in(text), name) << text;
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

/// Kept on purpose: such a file counts for nothing, as a missing one does.
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

TEST(KernelNames, StayEmptyWhereUnameFailsAndTheRestIsRead) {
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

/// Expects each version to be newer than every one behind it, and none newer than itself or one before it.
void expect_newest_first(const std::vector<std::string>& versions) {
    for (size_t i = 0; i < versions.size(); ++i) {
        for (size_t j = 0; j < versions.size(); ++j) {
            EXPECT_EQ(version_greater(versions[i], versions[j]), i < j) << versions[i] << " and " << versions[j];
        }
    }
}

TEST(VersionOrder, IsFromTheNewestToTheOldest) {
    const std::vector<std::string> lists[] = {
        // By number, and not by text.
        {"6.10.2", "6.9.12", "6.9.2"},
        {"10", "9", "1"},
        // The first difference decides.
        {"7.0.0", "6.99.99", "6.99.98-500", "6.1.900"},
        // Separators do not matter.
        {"6-1_3", "6.1.2", "6.1+1", "+++6..1"},
        {"heron6marsh2", "6.1"},
        // Kept on purpose: a pre-release counts as newer.
        {"6.12-rc3", "6.12-rc2", "6.12-rc", "6.12"},
        {"6.12.0-rc2", "6.12.0"},
        // Leading zeros make no difference. With equal numbers the text decides.
        {"6.010", "6.9", "6.0008", "6.7"},
        {"6.1", "6.01", "6.001"},
        // A missing number is zero.
        {"6.1.0.1", "6.1.0", "6.1"},
        {"6.1.1", "6.1-heron", "6.1"},
        {"6.1.0-a", "6.1.0", "6.1-z", "6.1"},
        // With equal numbers the longer text wins.
        {"6.1.0", "6.1"},
        {"6.1.0.0.0", "6.1.0.0"},
        // Flavours descend by their names.
        {"6.1.4-rt", "6.1.4-heron", "6.1.4-Heron", "6.1.4"},
        {"6.1.4-\xff", "6.1.4-z"},
        // A flavour comes behind the numbers in its name.
        {"6.1.4-amd64", "6.1.4-rt"},
        // Texts without numbers compare as texts.
        {"1", "heron", "extra", ""},
        {"build", "0"},
        // Only ASCII digits are numbers.
        {"2", "\xc2\xb9\x31"},
        {"1", "\xd9\xa3"},
        // Numbers hold 63 bits.
        {"9223372036854775807", "9223372036854775806", "4294967297", "4294967296", "2147483648", "1"},
        // Kept on purpose: longer numbers wrap around. 2^63 is then the least, 2^64 is 0 and 2^64 + 5 is 5.
        {"18446744073709551621.1", "5.0", "18446744073709551620", "9223372036854775808"},
        {"18446744073709551616", "0"},
        {"0", "18446744073709551615"},
    };
    for (const auto& versions : lists) expect_newest_first(versions);
    EXPECT_FALSE(version_greater(std::string(500, '9'), std::string(500, '9')));
}

/// Returns versions that often share a prefix, their numbers, or both.
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

}  // namespace
