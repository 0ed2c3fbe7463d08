// SPDX-License-Identifier: MIT
// What the release index says of a channel: the addresses that may reach the shell, the end of a text without white
// space, one value of the index, a channel's record in it, and the address that is guessed where it names none.
#include "kernel_checker_support.h"

#include <ctime>
#include <regex>

namespace {

// ---- Addresses that may reach the shell ----

TEST(SafeAddress, IsAnythingBelowEachOfTheFourHosts) {
    for (const std::string& host : HOSTS) {
        EXPECT_TRUE(is_safe_kernel_url(host + "/")) << host;
        EXPECT_TRUE(is_safe_kernel_url(host + "/pub/linux/kernel/v7.x/ChangeLog-7.2.4")) << host;
        EXPECT_TRUE(is_safe_kernel_url(host + "//")) << host;
    }
}

TEST(SafeAddress, HasASlashDirectlyBehindItsHost) {
    for (const std::string& host : HOSTS) {
        EXPECT_FALSE(is_safe_kernel_url(host)) << host;
        for (int byte = 0; byte < 256; ++byte) {
            if (byte == '/') continue;
            EXPECT_FALSE(is_safe_kernel_url(host + text_of(byte))) << host << " and byte " << byte;
            EXPECT_FALSE(is_safe_kernel_url(host + text_of(byte) + "/pub")) << host << " and byte " << byte;
        }
        EXPECT_FALSE(is_safe_kernel_url(host + ".example/")) << host;
        EXPECT_FALSE(is_safe_kernel_url(host + ":443/")) << host;
        EXPECT_FALSE(is_safe_kernel_url(host + "@veldrin.example/")) << host;
    }
}

TEST(SafeAddress, IsOfTheSchemeHttpsInLowerCase) {
    for (const std::string& host : HOSTS) {
        const std::string name = host.substr(std::string("https://").size());
        for (const char* scheme : {"http://", "HTTPS://", "Https://", "ftp://", "file://", "httpss://", "https:/",
                                   "https:///", "//", "", " https://", "-https://"}) {
            EXPECT_FALSE(is_safe_kernel_url(scheme + name + "/pub")) << scheme << name;
        }
    }
}

TEST(SafeAddress, IsOfNoOtherHost) {
    for (const char* url : {
             "",
             "/",
             "https://",
             "https://veldrin.example/",
             "https://evil.example/https://cdn.kernel.org/",
             "https://mirrors.kernel.org/",
             "https://cdn.www.kernel.org/",
             "https://xcdn.kernel.org/",
             "https://cdn_kernel.org/",
             "https://cdnxkernel.org/",
             "https://user@cdn.kernel.org/",
             "https://CDN.kernel.org/",
             "https://cdn.kernel.com/",
             "https://cdn.kernel.or/",
             "ttps://cdn.kernel.org/",
         }) {
        EXPECT_FALSE(is_safe_kernel_url(url)) << url;
    }
}

TEST(SafeAddress, HoldsLettersDigitsAndTwentyTwoOthersWhereverTheyStand) {
    const std::string permitted =
        "abcdefghijklmnopqrstuvwxyz"
        "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
        "0123456789"
        "-._~:/?#[]@!$&()*+,;=%";
    int accepted = 0;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c = text_of(byte);
        const bool expected = permitted.find(c) != std::string::npos;
        accepted += expected;
        for (const std::string& host : HOSTS) {
            EXPECT_EQ(is_safe_kernel_url(host + "/" + c), expected) << byte;
            EXPECT_EQ(is_safe_kernel_url(host + "/" + c + "pub"), expected) << byte;
            EXPECT_EQ(is_safe_kernel_url(host + "/pub" + c + "linux"), expected) << byte;
            EXPECT_EQ(is_safe_kernel_url(host + "/pub" + c), expected) << byte;
        }
    }
    EXPECT_EQ(accepted, 26 + 26 + 10 + 22);
}

TEST(SafeAddress, HoldsFiveHundredAndTwelveCharactersAtMost) {
    for (const std::string& host : HOSTS) {
        const auto of_length = [&](size_t length) { return host + "/" + std::string(length - host.size() - 1, 'a'); };
        EXPECT_TRUE(is_safe_kernel_url(of_length(511))) << host;
        EXPECT_TRUE(is_safe_kernel_url(of_length(512))) << host;
        EXPECT_FALSE(is_safe_kernel_url(of_length(513))) << host;
        EXPECT_FALSE(is_safe_kernel_url(of_length(MEGABYTE))) << host;
        EXPECT_FALSE(is_safe_kernel_url(of_length(511) + "'")) << host;
    }
}

// ---- Trailing white space ----

TEST(TrimRight, TakesBlanksTabsAndLineEndsOnly) {
    const std::string taken = " \t\r\n";
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c = text_of(byte);
        const bool expected = taken.find(c) != std::string::npos;
        EXPECT_EQ(trim_right("a" + c), expected ? "a" : "a" + c) << byte;
        EXPECT_EQ(trim_right("a" + c + " "), expected ? "a" : "a" + c) << byte;
    }
}

TEST(TrimRight, TakesAllOfThem) {
    EXPECT_EQ(trim_right("text \t\r\n\n\r\t "), "text");
    EXPECT_EQ(trim_right(" \t\r\n"), "");
    EXPECT_EQ(trim_right(""), "");
}

TEST(TrimRight, LeavesWhatStandsBeforeText) {
    EXPECT_EQ(trim_right(" \t\r\na \n b\n"), " \t\r\na \n b");
}

// ---- A value of the release index ----

std::string field_of(const std::string& json, const std::string& key) {
    return json_field(json, 0, json.size(), key);
}

TEST(JsonField, IsTheTextBehindAKey) {
    EXPECT_EQ(field_of(R"({"version": "7.2.4"})", "version"), "7.2.4");
    EXPECT_EQ(field_of(R"({"a":{"b":[{"version":"7.2.4"}]}})", "version"), "7.2.4");
}

TEST(JsonField, IsOfTheFirstSuchKey) {
    EXPECT_EQ(field_of(R"({"k": "one", "k": "two"})", "k"), "one");
    EXPECT_EQ(field_of(R"({"k": null, "k": "two"})", "k"), "");
}

TEST(JsonField, IsOfTheWholeKeyInItsCase) {
    EXPECT_EQ(field_of(R"({"versions": "a", "aversion": "b", "Version": "c", version: "d"})", "version"), "");
}

TEST(JsonField, IsSearchedFromItsStartOn) {
    const std::string json = R"({"k": "one", "k": "two"})";
    const size_t first = json.find("\"k\"");
    const size_t second = json.rfind("\"k\"");
    EXPECT_EQ(json_field(json, first, json.size(), "k"), "one");
    EXPECT_EQ(json_field(json, first + 1, json.size(), "k"), "two");
    EXPECT_EQ(json_field(json, second, json.size(), "k"), "two");
    EXPECT_EQ(json_field(json, second + 1, json.size(), "k"), "");
    EXPECT_EQ(json_field(json, json.size(), json.size(), "k"), "");
}

TEST(JsonField, EndsWithItsClosingQuoteBeforeTheLimit) {
    const std::string json = R"({"k" : "value", "l": "other"})";
    const size_t closing = json.find("\",");
    for (size_t to = 0; to <= json.size(); ++to) {
        EXPECT_EQ(json_field(json, 0, to, "k"), to > closing ? "value" : "") << to;
    }
}

TEST(JsonField, IsEmptyForWhateverIsNoText) {
    for (const char* value :
         {"null", "true", "false", "0", "-1.5e3", "{\"a\": \"b\"}", "[\"a\"]", "[]", "{}", "'a'", ""}) {
        EXPECT_EQ(field_of("{\"k\": " + std::string(value) + ", \"x\": \"y\"}", "k"), "") << value;
    }
}

TEST(JsonField, AllowsFourKindsOfWhiteSpaceBeforeTheValue) {
    EXPECT_EQ(field_of("\"k\": \t\r\n \"v\"", "k"), "v");
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c = text_of(byte);
        const bool blank = std::string(" \t\r\n").find(c) != std::string::npos;
        EXPECT_EQ(field_of("\"k\":" + c + "\"v\"", "k"), blank ? "v" : "") << byte;
    }
}

TEST(JsonField, TakesNoNoteOfWhatStandsBeforeTheColon) {
    EXPECT_EQ(field_of("\"k\"\v\f \xa0: \"v\"", "k"), "v");
    EXPECT_EQ(field_of(R"("k" what "ever", "x": "v")", "k"), "v");
}

/// Kept on purpose: the scan knows neither nesting nor escapes.
TEST(JsonField, TakesATextThatReadsLikeTheKeyForTheKey) {
    EXPECT_EQ(field_of(R"({"a": "k", "b": "v", "k": "w"})", "k"), "v");
}

/// Kept on purpose: a value ends at the next quote and keeps its backslashes.
TEST(JsonField, KnowsNoEscapes) {
    EXPECT_EQ(field_of(R"({"k": "one\"two"})", "k"), "one\\");
    EXPECT_EQ(field_of(R"({"k": "https:\/\/cdn.kernel.org\/\u0041"})", "k"), R"(https:\/\/cdn.kernel.org\/\u0041)");
}

TEST(JsonField, KeepsTheBytesAsTheyStand) {
    const std::string value("a\0\n\t \xff:{}[]'b ", 15);
    EXPECT_EQ(field_of("\"k\": \"" + value + "\"", "k"), value);
    EXPECT_EQ(field_of(R"({"k": ""})", "k"), "");
}

TEST(JsonField, IsEmptyWhereTheTextBreaksOff) {
    for (const char* json : {"", "{", "\"k", "\"k\"", "\"k\" ", "\"k\":", "\"k\": ", "\"k\": \"", "\"k\": \"v"}) {
        EXPECT_EQ(field_of(json, "k"), "") << json;
    }
}

// ---- A release of the index ----

const Fields UNTOUCHED = {"untouched", "untouched", "untouched"};

/// Returns version, changelog and release date of `channel`.
Fields look_up(const std::string& json, const std::string& channel) {
    Fields fields = UNTOUCHED;
    release_index_lookup(json, channel, fields[0], fields[1], fields[2]);
    return fields;
}

TEST(ReleaseIndex, GivesTheThreeValuesOfARecordAtAnyDepth) {
    const std::string json = R"({"latest_stable": {"version": "7.2.3"}, "releases": [
        {"moniker": "mainline", "version": "7.3-rc2", "released": {"timestamp": 1, "isodate": "2026-11-20"},
         "changelog": null},
        {"moniker": "stable", "version": "7.2.4", "released": {"timestamp": 2, "isodate": "2026-11-21"},
         "changelog": "https://cdn.kernel.org/four"},
        {"moniker": "longterm", "version": "6.18.50", "released": {"timestamp": 3, "isodate": "2026-11-22"},
         "changelog": "https://cdn.kernel.org/fifty"}]})";
    EXPECT_EQ(look_up(json, "mainline"), (Fields{"7.3-rc2", "", "2026-11-20"}));
    EXPECT_EQ(look_up(json, "stable"), (Fields{"7.2.4", "https://cdn.kernel.org/four", "2026-11-21"}));
    EXPECT_EQ(look_up(json, "longterm"), (Fields{"6.18.50", "https://cdn.kernel.org/fifty", "2026-11-22"}));
}

TEST(ReleaseIndex, LeavesEverythingAloneForAChannelThatItHasNot) {
    for (const char* json : {"", "{}", R"({"moniker": "mainline", "version": "7.3"})", R"({"version": "7.3"})",
                             R"({"moniker": stable, "version": "7.3"})", R"({"moniker", "stable", "version": "7.3"})",
                             R"({"name": "stable", "version": "7.3"})", "<html><title>404</title></html>"}) {
        EXPECT_EQ(look_up(json, "stable"), UNTOUCHED) << json;
    }
}

TEST(ReleaseIndex, EmptiesWhatTheRecordHasNot) {
    EXPECT_EQ(look_up(R"({"moniker": "stable"})", "stable"), (Fields{"", "", ""}));
    EXPECT_EQ(look_up(R"({"moniker": "stable", "changelog": "c"})", "stable"), (Fields{"", "c", ""}));
    EXPECT_EQ(look_up(R"({"moniker": "stable", "version": "v"})", "stable"), (Fields{"v", "", ""}));
    EXPECT_EQ(look_up(R"({"moniker": "stable", "isodate": "d"})", "stable"), (Fields{"", "", "d"}));
    EXPECT_EQ(look_up(R"({"moniker": "stable", "version": 7.2, "changelog": null, "isodate": ["d"]})", "stable"),
              (Fields{"", "", ""}));
}

TEST(ReleaseIndex, FindsARecordInAnySpacing) {
    for (const char* moniker : {
             R"("moniker": "stable")",
             R"("moniker":"stable")",
             R"("moniker" : "stable")",
             R"("moniker" :"stable")",
             R"("moniker":  "stable")",
             R"("moniker"   :   "stable")",
             "\"moniker\"\t:\t\"stable\"",
             "\"moniker\"\n:\n\"stable\"",
             "\"moniker\"\r\n:\r\n\"stable\"",
             "\"moniker\"\v:\f\"stable\"",
             "\"moniker\"\f:\v\"stable\"",
             "\"moniker\" \t\n\v\f\r: \t\n\v\f\r\"stable\"",
         }) {
        const std::string json = "{\"version\": \"0\", " + std::string(moniker) + ", \"version\": \"1\"}";
        EXPECT_EQ(look_up(json, "stable")[0], "1") << moniker;
    }
}

TEST(ReleaseIndex, TakesSixBytesForWhiteSpace) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c = text_of(byte);
        const bool blank = byte != 0 && std::string("\t\n\v\f\r ").find(c) != std::string::npos;
        const std::string version = blank ? "1" : "untouched";
        EXPECT_EQ(look_up("\"moniker\"" + c + ":\"stable\", \"version\": \"1\"", "stable")[0], version) << byte;
        EXPECT_EQ(look_up("\"moniker\" :" + c + "\"stable\", \"version\": \"1\"", "stable")[0], version) << byte;
    }
}

/// Kept on purpose: the second record wins.
TEST(ReleaseIndex, PrefersTheUsualSpacingWhereverItStands) {
    EXPECT_EQ(look_up(R"({"moniker":"stable", "version": "1"}, {"moniker": "stable", "version": "2"})", "stable")[0],
              "2");
}

TEST(ReleaseIndex, MindsCase) {
    EXPECT_EQ(look_up(R"({"Moniker": "stable", "version": "1"}, {"moniker": "Stable", "version": "1"})", "stable"),
              UNTOUCHED);
    EXPECT_EQ(look_up(R"({"moniker":"stable", "version": "1"})", "STABLE"), UNTOUCHED);
}

TEST(ReleaseIndex, MatchesTheWholeName) {
    const std::string usual =
        R"({"moniker": "stable-rt", "version": "1"}, {"moniker": "unstable", "version": "2"},
           {"moniker": " stable", "version": "3"}, {"moniker": "stable ", "version": "4"}, {"xmoniker": "stable"})";
    EXPECT_EQ(look_up(usual, "stable"), UNTOUCHED);
    EXPECT_EQ(look_up(R"({"moniker":"stable-rt", "version": "1"}, {"moniker":"unstable", "version": "2"})", "stable"),
              UNTOUCHED);
}

/// Kept on purpose: channels are words of the program's own, so nothing needs escaping.
TEST(ReleaseIndex, TakesTheChannelForAPieceOfAnExpressionWhereTheSpacingDiffers) {
    EXPECT_EQ(look_up(R"({"moniker":"stable", "version": "1"})", "st.b[l]e")[0], "1");
    EXPECT_EQ(look_up(R"({"moniker": "st.ble", "version": "1"})", "st.ble")[0], "1");
}

TEST(ReleaseIndex, TakesTheFirstRecordOfAChannel) {
    for (const char* colon : {": ", ":", " : "}) {
        const std::string moniker = "\"moniker\"" + std::string(colon) + "\"stable\"";
        EXPECT_EQ(look_up("{" + moniker + ", \"version\": \"7.2.4\"}, {" + moniker + ", \"version\": \"7.1.14\"}",
                          "stable")[0],
                  "7.2.4")
            << colon;
        EXPECT_EQ(look_up("{" + moniker + "}, {" + moniker + ", \"version\": \"7.1.14\"}", "stable")[0], "") << colon;
    }
}

TEST(ReleaseIndex, EndsARecordAtTheNextMoniker) {
    for (const char* next : {R"("moniker": "longterm")", R"("moniker" : "longterm")", R"("moniker": null)",
                             R"("moniker")", R"("note": "moniker")"}) {
        const std::string json = R"({"moniker": "stable", "changelog": "c"}, {)" + std::string(next) +
                                 R"(, "version": "1", "isodate": "d"})";
        EXPECT_EQ(look_up(json, "stable"), (Fields{"", "c", ""})) << next;
    }
}

TEST(ReleaseIndex, DoesNotEndARecordAtAnotherKey) {
    EXPECT_EQ(
        look_up(R"({"moniker": "stable", "monikers": "a", "Moniker": "b", moniker: "c", "version": "1"})", "stable")[0],
        "1");
}

TEST(ReleaseIndex, RunsTheLastRecordToTheEnd) {
    EXPECT_EQ(look_up(R"({"moniker": "longterm"}, {"moniker": "stable"}], "version": "1", "isodate": "2")", "stable"),
              (Fields{"1", "", "2"}));
}

TEST(ReleaseIndex, LeavesOutAKeyBeforeTheMoniker) {
    EXPECT_EQ(look_up(R"({"version": "1", "changelog": "c", "isodate": "d", "moniker": "stable"})", "stable"),
              (Fields{"", "", ""}));
}

/// Kept on purpose: a record is what stands between its moniker and the next one, braces or not.
TEST(ReleaseIndex, TakesAKeyBeforeTheNextMonikerForThisRecords) {
    EXPECT_EQ(look_up(R"([{"iseol": false, "version": "7.3-rc2", "moniker": "mainline", "isodate": "2026-11-20"},
                           {"iseol": false, "version": "7.2.4", "moniker": "stable", "isodate": "2026-11-21"},
                           {"iseol": true, "version": "7.1.14", "moniker": "stable", "isodate": "2026-11-22"}])",
                      "mainline"),
              (Fields{"7.2.4", "", "2026-11-20"}));
}

TEST(ReleaseIndex, EmptiesAValueThatReachesBeyondItsRecord) {
    EXPECT_EQ(look_up(R"({"moniker": "stable", "version": "moniker": "longterm")", "stable")[0], "");
    EXPECT_EQ(look_up(R"({"moniker": "stable", "version" "moniker": "longterm")", "stable")[0], "");
}

TEST(ReleaseIndex, ReadsPastBytesThatAreNoText) {
    const std::string bytes("\0\xff\xfe\x80", 4);
    EXPECT_EQ(look_up(bytes + R"({"moniker" : "stable",)" + bytes + R"("version": "1"})", "stable")[0], "1");
}

/// Returns what the index says of "stable", with the record found by the standard library's expression.
Fields stable_release_by_std_regex(const std::string& json) {
    static const std::regex any_spacing("\"moniker\"\\s*:\\s*\"stable\"", std::regex::ECMAScript);
    size_t pos = json.find("\"moniker\": \"stable\"");
    if (pos == std::string::npos) {
        std::smatch match;
        if (!std::regex_search(json, match, any_spacing)) return UNTOUCHED;
        pos = static_cast<size_t>(match.position());
    }
    const size_t end = std::min(json.find("\"moniker\"", pos + 9), json.size());
    return {json_field(json, pos, end, "version"), json_field(json, pos, end, "changelog"),
            json_field(json, pos, end, "isodate")};
}

TEST(ReleaseIndex, MatchesTheLanguageOfTheStandardExpression) {
    const std::vector<std::string> pieces = pieces_of(
        "\"moniker\"|\"moniker\"|\"moniker\"|\"moniker\":|moniker|\"stable\"|\"stable\"|\"stable\"|"
        "\"Stable\"|stable|\"mainline\"|\"|:|:| |\t|\n|\v|\f|\r|  |\x85|\xa0|\xff|,|{|}|null|\"version\"|"
        "\"isodate\"|\"moniker\":\"stable\"|VERSION|VERSION|\\|\xc2\xa0");
    RandomTexts indexes(pieces, 40, 20261121);
    int found = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string json;
        int versions = 0;
        for (const std::string& next : indexes.next_pieces()) {
            // Versions are numbered, so that the answer tells which record was found.
            json += next == "VERSION" ? "\"version\": \"" + std::to_string(++versions) + "\"" : next;
        }
        const Fields expected = stable_release_by_std_regex(json);
        ASSERT_EQ(look_up(json, "stable"), expected) << json;
        found += expected != UNTOUCHED;
    }
    EXPECT_GT(found, 2000);
    EXPECT_LT(found, 18000);
}

class HostileIndex : public testing::TestWithParam<Shape> {};

TEST_P(HostileIndex, IsAnsweredAtOnce) {
    const std::string text = GetParam().page();
    const std::clock_t start = std::clock();
    EXPECT_EQ(look_up(text, "stable"), UNTOUCHED);
    // What stands behind it is still found.
    for (const char* colon : {": ", " :\n"}) {
        const std::string record = "\"moniker\"" + std::string(colon) + "\"stable\", \"version\": \"1\", ";
        EXPECT_EQ(look_up(text + record + text, "stable")[0], "1");
        EXPECT_NE(look_up("{\"moniker\"" + std::string(colon) + "\"stable\", " + text, "stable"), UNTOUCHED);
    }
    EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

const Shape INDEX_SHAPES[] = {
    {"Monikers", [] { return repeat("\"moniker\"", MEGABYTE); }},
    {"MonikersOfOtherChannels", [] { return repeat("\"moniker\": \"stabl\"", MEGABYTE); }},
    {"MonikersWithColons", [] { return repeat("\"moniker\":", MEGABYTE); }},
    {"MonikersWithColonsAndQuotes", [] { return repeat("\"moniker\" : \"", MEGABYTE); }},
    {"OneMonikerBeforeBlanks", [] { return "\"moniker\"" + repeat(" ", MEGABYTE); }},
    {"OneMonikerBetweenBlanks", [] { return "\"moniker\"" + repeat("\t", MEGABYTE) + ":" + repeat("\n", MEGABYTE); }},
    {"MonikersBeforeBlanks", [] { return repeat("\"moniker\"" + std::string(5000, ' '), MEGABYTE); }},
    {"MonikersBetweenBlanks",
     [] { return repeat("\"moniker\"" + std::string(2500, '\v') + ":" + std::string(2500, '\f'), MEGABYTE); }},
    {"OpenMonikers", [] { return repeat("\"moniker", MEGABYTE); }},
    {"Quotes", [] { return repeat("\"", MEGABYTE); }},
    {"Colons", [] { return repeat(":", MEGABYTE); }},
    {"Blanks", [] { return repeat(" ", MEGABYTE); }},
    {"KeysWithoutColons", [] { return repeat("\"version\" \"changelog\" \"isodate\" ", MEGABYTE); }},
    {"KeysWithoutValues", [] { return repeat("\"version\": \"changelog\": \"isodate\": ", MEGABYTE); }},
    {"OneKeyBeforeBlanks", [] { return "\"version\":" + repeat(" ", MEGABYTE); }},
    {"OneOpenValue", [] { return "\"changelog\": \"" + repeat("x", MEGABYTE); }},
    {"Nuls", [] { return std::string(MEGABYTE, '\0'); }},
    {"Braces", [] { return repeat("[{", MEGABYTE); }},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileIndex, testing::ValuesIn(INDEX_SHAPES),
                         [](const auto& shape) { return shape.param.name; });

// ---- The address of a version ----

TEST(GuessedAddress, IsTheChangeLogInTheFolderOfTheMajorNumber) {
    EXPECT_EQ(guess_changelog_url("6.8"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8");
    EXPECT_EQ(guess_changelog_url("6.8.1"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8.1");
    EXPECT_EQ(guess_changelog_url("10.12.345"), "https://cdn.kernel.org/pub/linux/kernel/v10.x/ChangeLog-10.12.345");
    EXPECT_EQ(guess_changelog_url("007.2"), "https://cdn.kernel.org/pub/linux/kernel/v007.x/ChangeLog-007.2");
}

TEST(GuessedAddress, TakesTheVersionAsItStands) {
    EXPECT_EQ(guess_changelog_url("6."), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.");
    EXPECT_EQ(guess_changelog_url("6..1"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6..1");
    EXPECT_EQ(guess_changelog_url("6.8 ' \\$x"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8 ' \\$x");
    EXPECT_EQ(guess_changelog_url("6.8.1 \r\n"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8.1 \r\n");
}

TEST(GuessedAddress, IsEmptyWithoutANumberBeforeADot) {
    for (const char* version : {"", "6", ".", ".5", "..", "next-20240101", "next.20240101", "6a.1", "a6.1", "-6.1",
                                "+6.1", " 6.1", "6 .1", "6-8.1", "v6.1", "6,8.1", "0x6.1"}) {
        EXPECT_EQ(guess_changelog_url(version), "") << version;
    }
    for (int byte = 0; byte < 256; ++byte) {
        const bool digit = byte >= '0' && byte <= '9';
        EXPECT_EQ(guess_changelog_url("6" + text_of(byte) + "7.1").empty(), !digit && byte != '.') << byte;
    }
}

/// Kept on purpose: "rc" counts wherever it stands, in "source" too.
TEST(GuessedAddress, IsEmptyForAReleaseCandidate) {
    EXPECT_EQ(guess_changelog_url("6.8-rc5"), "");
    EXPECT_EQ(guess_changelog_url("6.8.rc"), "");
    EXPECT_EQ(guess_changelog_url("6.rc.8"), "");
    EXPECT_EQ(guess_changelog_url("6.8.1-source"), "");
}

TEST(GuessedAddress, TakesOnlyLowerCaseForAReleaseCandidate) {
    EXPECT_EQ(guess_changelog_url("6.8-RC5"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8-RC5");
    EXPECT_EQ(guess_changelog_url("6.8-r.c"), "https://cdn.kernel.org/pub/linux/kernel/v6.x/ChangeLog-6.8-r.c");
}

}  // namespace
