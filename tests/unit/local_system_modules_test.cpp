// SPDX-License-Identifier: MIT
// The kernel's modules: the lines of their list, the names that may reach the shell, and what modinfo tells of one.
#include "support.h"

#include "local_system.cpp"

#include <sys/resource.h>
#include <climits>

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// ---- Lines of the module list ----

/// Returns name, size, reference count, users and state; empty for a line that is skipped.
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
    static_assert(sizeof mod.refcount == 4 && sizeof mod.size == sizeof(void*));
}

TEST(ModuleLine, HasFiveColumnsAndMayHaveMore) {
    const Module expected{"heron", "16384", "2", "marsh,reed", "Live"};
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live"), expected);
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live 0xffffffffc0a00000"), expected);
    EXPECT_EQ(module_in("heron 16384 2 marsh,reed, Live 0x0000000000000000 (OE) and more"), expected);
}

TEST(ModuleLine, OfFewerColumnsIsSkipped) {
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
    const std::string largest = std::to_string(ULONG_MAX);
    EXPECT_EQ(module_in("heron " + largest + " 0 - Live")[1], largest);
}

TEST(ModuleLine, CountThatIsNoNumberIsZero) {
    EXPECT_EQ(module_in("heron 1 - - Live"), (Module{"heron", "1", "0", "", "Live"}));
    EXPECT_EQ(module_in("heron 1 some - Live")[2], "0");
}

/// Kept on purpose: a count beyond an int's range wraps around.
TEST(ModuleLine, CountMayBeNegativeAndIsNarrowed) {
    EXPECT_EQ(module_in("heron 1 -3 - Live")[2], "-3");
    EXPECT_EQ(module_in("heron 1 12x - Live")[2], "12");
    EXPECT_EQ(module_in("heron 1 0x7 - Live")[2], "0");
    EXPECT_EQ(module_in("heron 1 2147483647 - Live")[2], "2147483647");
    EXPECT_EQ(module_in("heron 1 4294967298 - Live")[2], sizeof(long) == 8 ? "2" : "2147483647");
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

/// All bytes that may stand in a name.
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

/// A modinfo of the test's own, for modules that no machine has.
class Modinfo : public testing::Test {
  protected:
    /// Returns the module's details where modinfo prints `printed`.
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

TEST_F(Modinfo, EmptyValueIsReplacedByALaterOne) {
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

TEST_F(Modinfo, LineWithoutAColonIsSkipped) {
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
    // The line feed is the last of the 2047.
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

/// Kept on purpose: lines are read in pieces of 2047 bytes, and each piece counts as a line.
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

TEST_F(Modinfo, PieceIsTrimmedWhereItIsCut) {
    const std::string value(2000, 'a');
    const std::string blanks(2047 - 7 - 2000, ' ');
    EXPECT_EQ(details("author:" + value + blanks + "z\n").author, value);
}

TEST_F(Modinfo, LongOutputIsReadToItsEnd) {
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

/// Kept on purpose: the exit status is not looked at.
TEST_F(Modinfo, OutputOfAFailingToolCounts) {
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
            // With a NUL at its start, the path would be that of the folder of all modules.
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
    // With an empty name, the folder is that of all modules, which has none of the files.
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
