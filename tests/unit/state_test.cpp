// SPDX-License-Identifier: MIT
// The state file: where it lies, how it is written, how it is read, and the search of a key in it.
#include "support.h"

#include "state.cpp"

#include <tuple>

namespace {

/// A HOME of the test's own with a .config folder, outside Snap.
class StateFile : public testing::Test {
  protected:
    StateFile() { std::filesystem::create_directory(folder.path() / ".config"); }

    std::filesystem::path file() const { return folder.path() / ".config/VeldrinWatch/app_state.json"; }

    void write_file(const std::string& text) const {
        std::filesystem::create_directories(file().parent_path());
        write_text(file(), text);
    }

    TemporaryFolder folder;
    Environment snap{"SNAP_USER_DATA", std::nullopt};
    Environment home{"HOME", folder.path().string()};
};

const AppState EVERY_FIELD{"7.1.9", "7.2.4", "7.3-rc2", "7.2.4", "6.18.50", "mainline"};

const std::string EVERY_FIELD_TEXT =
    "{\n"
    "  \"kernel\": \"7.1.9\",\n"
    "  \"latest_kernel\": \"7.2.4\",\n"
    "  \"mainline\": \"7.3-rc2\",\n"
    "  \"stable\": \"7.2.4\",\n"
    "  \"longterm\": \"6.18.50\",\n"
    "  \"channel\": \"mainline\"\n"
    "}\n";

void expect_equal(const AppState& left, const AppState& right) {
    EXPECT_EQ(left.kernel, right.kernel);
    EXPECT_EQ(left.latest_kernel, right.latest_kernel);
    EXPECT_EQ(left.mainline, right.mainline);
    EXPECT_EQ(left.stable, right.stable);
    EXPECT_EQ(left.longterm, right.longterm);
    EXPECT_EQ(left.channel, right.channel);
}

TEST(AppStateRecord, DefaultsToEmptyVersionsAndTheStableChannel) {
    expect_equal(AppState{}, AppState{"", "", "", "", "", "stable"});
}

// ---- Path ----

TEST(StatePath, IsTheSnapsFolderWhereThatIsSet) {
    const TemporaryFolder folder;
    const Environment snap("SNAP_USER_DATA", folder.path().string());
    const Environment home("HOME", "/nowhere");
    EXPECT_EQ(get_state_path(), folder.path().string() + "/app_state.json");
}

TEST(StatePath, TakesAnEmptySnapFolderAsSet) {
    const Environment snap("SNAP_USER_DATA", "");
    const Environment home("HOME", "/nowhere");
    EXPECT_EQ(get_state_path(), "/app_state.json");
}

TEST(StatePath, LiesBelowTheHomeFolderOtherwise) {
    const TemporaryFolder folder;
    const Environment snap("SNAP_USER_DATA", std::nullopt);
    const Environment home("HOME", folder.path().string());
    EXPECT_EQ(get_state_path(), folder.path().string() + "/.config/VeldrinWatch/app_state.json");
}

TEST(StatePath, TakesAnEmptyHomeFolderAsSet) {
    if (std::filesystem::exists("/.config")) GTEST_SKIP() << "a folder would be made in it";
    const Environment snap("SNAP_USER_DATA", std::nullopt);
    const Environment home("HOME", "");
    EXPECT_EQ(get_state_path(), "/.config/VeldrinWatch/app_state.json");
}

TEST(StatePath, LiesInTheTemporaryFolderWithoutEither) {
    const Environment snap("SNAP_USER_DATA", std::nullopt);
    const Environment home("HOME", std::nullopt);
    EXPECT_EQ(get_state_path(), "/tmp/app_state.json");
}

TEST_F(StateFile, PathMakesItsDirectory) {
    get_state_path();
    EXPECT_TRUE(std::filesystem::is_directory(file().parent_path()));
}

TEST_F(StateFile, DirectoryAsksForItsModeUnderTheUmask) {
    const mode_t before = umask(0027);
    get_state_path();
    umask(before);
    EXPECT_EQ(std::filesystem::status(file().parent_path()).permissions(), std::filesystem::perms{0750});
}

/// Kept on purpose: without its parent there is no folder.
TEST_F(StateFile, PathMakesOneLevelOnly) {
    std::filesystem::remove(folder.path() / ".config");
    get_state_path();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(StateFile, PathFollowsTheEnvironmentOfTheMoment) {
    get_state_path();
    const TemporaryFolder other;
    const Environment snap_now("SNAP_USER_DATA", other.path().string());
    save_state(EVERY_FIELD);
    EXPECT_EQ(read_text(other.path() / "app_state.json"), EVERY_FIELD_TEXT);
    EXPECT_FALSE(std::filesystem::exists(file()));
}

// ---- Writing ----

TEST_F(StateFile, HoldsExactlyEightLines) {
    save_state(EVERY_FIELD);
    EXPECT_EQ(read_text(file()), EVERY_FIELD_TEXT);
}

TEST_F(StateFile, OfTheDefaultStateHas117Bytes) {
    save_state(AppState{});
    EXPECT_EQ(std::filesystem::file_size(file()), 117U);
}

TEST_F(StateFile, ReplacesLongerContents) {
    write_file(std::string(5000, 'x'));
    save_state(EVERY_FIELD);
    EXPECT_EQ(read_text(file()), EVERY_FIELD_TEXT);
}

TEST_F(StateFile, IsClosedBehindEachSaveAndLoad) {
    const auto before = open_files();
    save_state(EVERY_FIELD);
    EXPECT_EQ(open_files(), before);
    load_state();
    EXPECT_EQ(open_files(), before);
    // One that is there already, and one that can't be written.
    save_state(EVERY_FIELD);
    std::filesystem::remove(file());
    std::filesystem::create_directory(file());
    save_state(EVERY_FIELD);
    EXPECT_EQ(open_files(), before);
}

TEST_F(StateFile, GetsItsModeUnderTheUmask) {
    const mode_t before = umask(0027);
    save_state(AppState{});
    umask(before);
    EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms{0640});
}

TEST_F(StateFile, KeepsTheModeThatItHas) {
    write_file("");
    std::filesystem::permissions(file(), std::filesystem::perms{0600});
    save_state(AppState{});
    EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms{0600});
}

TEST_F(StateFile, IsWrittenInPlace) {
    write_file("");
    const std::filesystem::path link = folder.path() / "link";
    std::filesystem::create_hard_link(file(), link);
    save_state(EVERY_FIELD);
    EXPECT_EQ(read_text(link), EVERY_FIELD_TEXT);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file().parent_path()), {}), 1);
}

/// Kept on purpose: nothing is escaped.
TEST_F(StateFile, HoldsValuesByteForByte) {
    AppState state;
    state.kernel = "a\"b\\c\nd\xff";
    save_state(state);
    EXPECT_EQ(read_text(file()).find("  \"kernel\": \"a\"b\\c\nd\xff\",\n"), 2U);
}

TEST_F(StateFile, WithoutAConfigFolderIsNotWritten) {
    std::filesystem::remove(folder.path() / ".config");
    save_state(EVERY_FIELD);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    expect_equal(load_state(), AppState{});
}

TEST_F(StateFile, ThatIsAFolderIsLeftAlone) {
    std::filesystem::create_directories(file());
    save_state(EVERY_FIELD);
    EXPECT_TRUE(std::filesystem::is_directory(file()));
}

TEST_F(StateFile, ComesBackWithTheNextSaveAfterItsFolderWasRemoved) {
    save_state(AppState{});
    std::filesystem::remove_all(file().parent_path());
    save_state(EVERY_FIELD);
    EXPECT_EQ(read_text(file()), EVERY_FIELD_TEXT);
}

// ---- Reading ----

TEST_F(StateFile, MissingEmptyOrOfAnotherFormGivesTheDefaults) {
    expect_equal(load_state(), AppState{});
    for (const std::string& text : {std::string(), std::string("\0\xff<html>\n\n", 10) + std::string(100000, '"')}) {
        write_file(text);
        expect_equal(load_state(), AppState{});
    }
}

TEST_F(StateFile, ThatIsAFolderGivesTheDefaults) {
    std::filesystem::create_directories(file());
    expect_equal(load_state(), AppState{});
}

TEST_F(StateFile, ReadsWhatWasWritten) {
    save_state(EVERY_FIELD);
    expect_equal(load_state(), EVERY_FIELD);
}

TEST_F(StateFile, KeepsTheLongtermChannelThroughWritingAndReading) {
    AppState state;
    state.channel = "longterm";
    save_state(state);
    expect_equal(load_state(), state);
}

TEST_F(StateFile, WithAChannelAloneHasEmptyVersions) {
    write_file("{\"channel\":\"mainline\"}");
    expect_equal(load_state(), AppState{"", "", "", "", "", "mainline"});
}

TEST_F(StateFile, WithAnUnknownChannelReadsAsStable) {
    for (const char* channel : {"Stable", "", "linux-next", "stable ", "mainlinelongterm"}) {
        write_file(std::string("{\"channel\": \"") + channel + "\"}");
        EXPECT_EQ(load_state().channel, "stable") << channel;
    }
}

TEST_F(StateFile, CutAnywhereGivesTheFieldsUpToTheCut) {
    const std::string& text = EVERY_FIELD_TEXT;
    for (size_t length = 0; length <= text.size(); ++length) {
        write_file(text.substr(0, length));
        const AppState state = load_state();
        const auto whole = [&](const std::string& value, const std::string& line) {
            return text.find(line) + line.size() <= length ? value : std::string();
        };
        EXPECT_EQ(state.kernel, whole("7.1.9", "\"kernel\": \"7.1.9\"")) << length;
        EXPECT_EQ(state.latest_kernel, whole("7.2.4", "\"latest_kernel\": \"7.2.4\"")) << length;
        EXPECT_EQ(state.mainline, whole("7.3-rc2", "\"mainline\": \"7.3-rc2\"")) << length;
        EXPECT_EQ(state.stable, whole("7.2.4", "\"stable\": \"7.2.4\"")) << length;
        EXPECT_EQ(state.longterm, whole("6.18.50", "\"longterm\": \"6.18.50\"")) << length;
        EXPECT_EQ(state.channel, whole("mainline", "\"channel\": \"mainline\"").empty() ? "stable" : "mainline");
    }
}

TEST_F(StateFile, WithAQuoteInAValueReadsUpToTheQuote) {
    AppState state = EVERY_FIELD;
    state.stable = "7.2\".4";
    save_state(state);
    EXPECT_EQ(load_state().stable, "7.2");
    EXPECT_EQ(load_state().longterm, "6.18.50");
}

TEST_F(StateFile, VersionsAreReadUnchecked) {
    write_file("{\"kernel\": \" <b>\xff; rm -r \"}");
    EXPECT_EQ(load_state().kernel, " <b>\xff; rm -r ");
}

// ---- The key search ----

TEST(JsonGet, IsTheTextBehindTheFirstSuchKey) {
    const std::tuple<std::string, const char*, const char*> searches[] = {
        // A key is found neither in a longer one nor in a value.
        {R"({"latest_kernel": "7.2", "kernel": "7.1"})", "kernel", "7.1"},
        {R"({"channel": "stable", "stable": "6.1"})", "stable", "6.1"},
        {R"({"channel": "stable"})", "stable", ""},
        // Where the text breaks off, the value is empty.
        {R"({"x": "y", "kernel")", "kernel", ""},
        {"{\"x\": \"y\", \"kernel\" \t\r\n", "kernel", ""},
        {R"({"kernel": 5})", "kernel", ""},
        {R"({"kernel": "7.1)", "kernel", ""},
        {R"({"kernel":)", "kernel", ""},
        // Kept on purpose: where the value is no text, the next text is taken for it.
        {R"("kernel": 5, "x": "y")", "kernel", "x"},
        {R"("kernel": null, "stable": "7.2")", "kernel", "stable"},
        {R"("kernel": {"deep": "7.2"})", "kernel", "deep"},
        // Kept on purpose: the search knows neither escapes nor nesting.
        {R"("kernel": "7\".1")", "kernel", "7\\"},
        {R"({"a": {"kernel": "inner"}, "kernel": "outer"})", "kernel", "inner"},
        {R"("kernel": "1", "kernel": "2")", "kernel", "1"},
        // Four kinds of white space may stand around the colon, and any in the value.
        {"{\"kernel\" \t\r\n : \t\r\n \"7.1\"}", "kernel", "7.1"},
        {"\"kernel\"\v: \"7.1\"", "kernel", ""},
        {"\"kernel\": \" 7\n1 \"", "kernel", " 7\n1 "},
    };
    for (const auto& [text, key, value] : searches) EXPECT_EQ(json_get(text, key), value) << text;
}

}  // namespace
