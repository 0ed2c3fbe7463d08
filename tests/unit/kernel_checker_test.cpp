#include "support.h"

#include "kernel_checker.cpp"

#include <chrono>
#include <random>
#include <regex>

namespace {

const std::string PAGE = "https://www.kernel.org/";
const std::string DATE = "Fri, 20 Nov 2026 21:04:07 GMT";

// ---- Shell commands ----

TEST(ExecCommand, ReturnsWhatWasPrinted) {
    EXPECT_EQ(exec_command("printf 'one\\ntwo'"), "one\ntwo");
}

TEST(ExecCommand, ReturnsEmptyForAnyOtherStatusThanZero) {
    EXPECT_EQ(exec_command("echo text; exit 1"), "");
    EXPECT_EQ(exec_command("echo text; exit 255"), "");
    EXPECT_EQ(exec_command("echo text; kill -9 $$"), "");
}

TEST(ExecCommand, ReturnsEmptyForACommandThatDoesNotExist) {
    EXPECT_EQ(exec_command("no-such-command-anywhere 2>/dev/null"), "");
}

TEST(ExecCommand, LeavesOutStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(exec_command("echo aside >&2; echo text"), "text\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "aside\n");
}

TEST(ExecCommand, ReadsMoreThanItsBuffer) {
    std::string expected;
    for (int i = 1; i <= 30000; ++i) expected += std::to_string(i) + "\n";
    EXPECT_EQ(exec_command("seq 30000"), expected);
    EXPECT_EQ(exec_command("head -c 100000 /dev/zero | tr '\\0' x"), std::string(100000, 'x'));
}

TEST(ExecCommand, CutsAChunkShortAtANul) {
    EXPECT_EQ(exec_command("printf 'ab\\0cd\\nef\\n'"), "abef\n");
}

// ---- Fetching an address ----

class FetchUrl : public testing::Test {
  protected:
    StandIns tools;
};

TEST_F(FetchUrl, AsksWgetAlone) {
    tools.add("wget", "echo page");
    tools.add("curl", "echo other");
    EXPECT_EQ(fetch_url("https://cdn.kernel.org/a?b=$c&(d);e"), "page\n");
    EXPECT_EQ(tools.calls(), (std::vector<std::string>{"wget|-qO-|--timeout=15|https://cdn.kernel.org/a?b=$c&(d);e"}));
}

TEST_F(FetchUrl, FallsBackToCurlWhenWgetFails) {
    tools.add("wget", "echo partial; exit 8");
    tools.add("curl", "echo '<html>error</html>'");
    EXPECT_EQ(fetch_url(PAGE), "<html>error</html>\n");
    EXPECT_EQ(tools.calls(),
              (std::vector<std::string>{"wget|-qO-|--timeout=15|" + PAGE, "curl|-sL|--max-time|15|" + PAGE}));
}

TEST_F(FetchUrl, FallsBackToCurlWhenWgetPrintsNothing) {
    tools.add("wget", "exit 0");
    tools.add("curl", "echo page");
    EXPECT_EQ(fetch_url(PAGE), "page\n");
}

TEST_F(FetchUrl, TriesEachToolOnce) {
    tools.add("wget", "exit 4");
    tools.add("curl", "exit 6");
    EXPECT_EQ(fetch_url(PAGE), "");
    EXPECT_EQ(tools.calls().size(), 2U);
}

TEST_F(FetchUrl, KeepsTheToolsComplaintsOffStandardError) {
    tools.add("wget", "echo complaint >&2; exit 4");
    tools.add("curl", "echo complaint >&2; exit 6");
    testing::internal::CaptureStderr();
    EXPECT_EQ(fetch_url(PAGE), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(FetchUrl, WithoutAnyToolIsEmptyAndSilent) {
    const Environment empty("PATH", tools.file("").string());
    testing::internal::CaptureStderr();
    EXPECT_EQ(fetch_url(PAGE), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// ---- The version check ----

/// The release site as one wget: a page, its header and whether it answers 304.
class VersionCheck : public testing::Test {
  protected:
    VersionCheck() {
        g_last_modified.clear();
        answer_page(
            "<td>mainline:</td><td><strong>7.3-rc2</strong></td>"
            "<td>stable:</td><td><strong>7.2.4</strong></td>"
            "<td>longterm:</td><td><strong>6.18.50</strong></td>"
            "<td>longterm:</td><td><strong>6.12.109</strong></td>");
        answer_headers("  HTTP/1.1 200 OK\n  Last-Modified: " + DATE + "\n");
        answer_condition("  HTTP/1.1 200 OK\n", 0);
        tools.add(
            "wget",
            "case \"$*\" in\n"
            "-qO-*) cat \"${0%/*}/page\"; exit \"$(cat \"${0%/*}/page-status\")\" ;;\n"
            "*If-Modified-Since*) cat \"${0%/*}/condition\" >&2; exit \"$(cat \"${0%/*}/condition-status\")\" ;;\n"
            "*) cat \"${0%/*}/headers\" >&2 ;;\n"
            "esac");
    }

    void answer_page(const std::string& html, int status = 0) const {
        write_text(tools.file("page"), html);
        write_text(tools.file("page-status"), std::to_string(status));
    }
    void answer_headers(const std::string& lines) const { write_text(tools.file("headers"), lines); }
    void answer_condition(const std::string& lines, int status) const {
        write_text(tools.file("condition"), lines);
        write_text(tools.file("condition-status"), std::to_string(status));
    }

    StandIns tools;
};

const std::string GET_PAGE = "wget|-qO-|--timeout=15|" + PAGE;
const std::string GET_HEADERS = "wget|-S|--spider|--timeout=10|" + PAGE;

std::string quiet_condition(const std::string& date) {
    return "wget|-q|--spider|--header=If-Modified-Since: " + date + "|--timeout=10|" + PAGE;
}

std::string loud_condition(const std::string& date) {
    return "wget|-S|--spider|--header=If-Modified-Since: " + date + "|--timeout=10|" + PAGE;
}

TEST_F(VersionCheck, FirstFetchesThePageAndThenItsHeader) {
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_EQ(versions.mainline, "7.3-rc2");
    EXPECT_EQ(versions.stable, "7.2.4");
    EXPECT_EQ(versions.longterm, "6.18.50");
    EXPECT_TRUE(versions.success);
    EXPECT_EQ(g_last_modified, DATE);
    EXPECT_EQ(tools.calls(), (std::vector<std::string>{GET_PAGE, GET_HEADERS}));
}

TEST_F(VersionCheck, OfAnUnchangedPageMakesTwoConditionalRequestsOnly) {
    g_last_modified = DATE;
    answer_condition("  HTTP/1.1 304 Not Modified\nRemote file does not exist -- broken link!!!\n", 8);
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_FALSE(versions.success);
    EXPECT_EQ(versions.mainline + versions.stable + versions.longterm, "");
    EXPECT_EQ(g_last_modified, DATE);
    EXPECT_EQ(tools.calls(), (std::vector<std::string>{quiet_condition(DATE), loud_condition(DATE)}));
}

TEST_F(VersionCheck, OfAChangedPageMakesFourRequests) {
    g_last_modified = "Thu, 19 Nov 2026 08:00:00 GMT";
    const std::string old_date = g_last_modified;
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_EQ(g_last_modified, DATE);
    EXPECT_EQ(tools.calls(),
              (std::vector<std::string>{quiet_condition(old_date), loud_condition(old_date), GET_PAGE, GET_HEADERS}));
}

TEST_F(VersionCheck, TakesTheDigits304InAnyHeaderForUnchanged) {
    g_last_modified = DATE;
    answer_condition("  HTTP/1.1 200 OK\n  Content-Length: 13042\n", 0);
    EXPECT_FALSE(fetch_kernel_versions().success);
    EXPECT_EQ(tools.calls().size(), 2U);
}

TEST_F(VersionCheck, WithAFailedConditionFetchesThePage) {
    g_last_modified = DATE;
    answer_condition("failed: Connection refused.\n", 4);
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_EQ(tools.calls().size(), 4U);
}

TEST_F(VersionCheck, OfAnUnreachablePageLeavesTheHeaderAlone) {
    g_last_modified = DATE;
    answer_page("", 4);
    tools.add("curl", "exit 6");
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_FALSE(versions.success);
    EXPECT_EQ(g_last_modified, DATE);
    EXPECT_EQ(tools.calls().back(), "curl|-sL|--max-time|15|" + PAGE);
}

TEST_F(VersionCheck, StoresTheHeaderOfAPageThatHasNoVersions) {
    answer_page("", 8);
    tools.add("curl", "echo '<html><title>503</title></html>'");
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_FALSE(versions.success);
    EXPECT_EQ(versions.stable, "");
    EXPECT_EQ(g_last_modified, DATE);
}

TEST_F(VersionCheck, ForgetsTheHeaderWhenItCantBeLearned) {
    g_last_modified = DATE;
    answer_headers("  HTTP/1.1 200 OK\n");
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_EQ(g_last_modified, "");
}

TEST_F(VersionCheck, WithCurlAloneDownloadsThePageEachTime) {
    tools.add("wget", "exit 127");
    tools.add("curl", "echo '<td>stable:</td><td>7.2.4</td>'");
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_EQ(g_last_modified, "");
    EXPECT_EQ(tools.calls().size(), 6U);
}

TEST_F(VersionCheck, SucceedsWithAStableRowAlone) {
    answer_page("<td>stable:</td><td>7.2.4</td>");
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_TRUE(versions.success);
    EXPECT_EQ(versions.mainline, "");
    EXPECT_EQ(versions.stable, "7.2.4");
    EXPECT_EQ(versions.longterm, "");
}

TEST_F(VersionCheck, FailsWithoutAStableRowYetCarriesTheOthers) {
    answer_page("<td>mainline:</td><td>7.3-rc2</td><td>longterm:</td><td>6.18.50</td>");
    const KernelVersions versions = fetch_kernel_versions();
    EXPECT_FALSE(versions.success);
    EXPECT_EQ(versions.mainline, "7.3-rc2");
    EXPECT_EQ(versions.longterm, "6.18.50");
}

// ---- Last-Modified ----

TEST_F(VersionCheck, TakesTheHeadersValueWithoutItsLineEnd) {
    answer_headers("  Last-Modified:    " + DATE + "\r\n");
    EXPECT_EQ(fetch_last_modified(), DATE);
}

TEST_F(VersionCheck, KeepsALowerCaseHeaderAsAWholeLine) {
    answer_headers("  last-modified: " + DATE + "\n");
    EXPECT_EQ(fetch_last_modified(), "  last-modified: " + DATE);
    g_last_modified = fetch_last_modified();
    tools.forget_calls();
    fetch_kernel_versions();
    EXPECT_EQ(tools.calls().at(0), quiet_condition("  last-modified: " + DATE));
}

TEST_F(VersionCheck, KeepsTheLinesOfARedirectChainJoined) {
    answer_headers("  Last-Modified: one\n  Location: /\n  Last-Modified: two\n");
    EXPECT_EQ(fetch_last_modified(), "one\ntwo");
}

TEST_F(VersionCheck, NeverLetsAHeaderReachTheShellAsCode) {
    const std::string marker = tools.file("marker").string();
    const std::vector<std::string> values = {
        "'; touch " + marker + "; '",
        "$(touch " + marker + ")",
        "`touch " + marker + "`",
        "\\'; touch " + marker,
        "'\\''",
        "\" \\ ' \\' '' !",
        "';'",
        "a'b'c",
        "| touch " + marker,
        "-x --y",
        "%s %n",
        "'",
    };
    for (const std::string& value : values) {
        answer_headers("  Last-Modified: " + value + "\n");
        g_last_modified.clear();
        fetch_kernel_versions();
        ASSERT_EQ(g_last_modified, value);
        tools.forget_calls();
        fetch_kernel_versions();
        EXPECT_EQ(tools.calls(),
                  (std::vector<std::string>{quiet_condition(value), loud_condition(value), GET_PAGE, GET_HEADERS}));
        EXPECT_FALSE(std::filesystem::exists(marker)) << value;
    }
}

TEST(InsideSingleQuotes, LeavesAnHonestValueAsItIs) {
    EXPECT_EQ(inside_single_quotes(DATE), DATE);
}

TEST(InsideSingleQuotes, ArrivesThroughTheShellUnchangedForEveryByte) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = std::string("a") + static_cast<char>(byte) + "'" + static_cast<char>(byte) + "z";
        EXPECT_EQ(exec_command(("printf %s '" + inside_single_quotes(text) + "'").c_str()), text) << byte;
    }
}

// ---- Scraping the table ----

TEST(ExtractFirst, FindsTheVersionInStrong) {
    EXPECT_EQ(extract_first("<td>stable:</td>\n<td><strong>6.7.1</strong></td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, FindsAPlainVersion) {
    EXPECT_EQ(extract_first("<td>stable:</td><td>6.7.1</td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, ToleratesABlankBeforeTheColon) {
    EXPECT_EQ(extract_first("<td>\n stable \t:\v</td><td>6.7.1</td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, ToleratesAMissingColon) {
    EXPECT_EQ(extract_first("<td>stable</td><td>6.7.1</td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, ToleratesAttributesOnTheCells) {
    EXPECT_EQ(extract_first("<td class=\"a\"\nid=b>stable:</td><td colspan='2'>6.7.1</td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, IgnoresCase) {
    EXPECT_EQ(extract_first("<TD>STABLE:</Td><td><Strong>6.7.1-RC2</STRONG></td>", "stable"), "6.7.1-RC2");
}

TEST(ExtractFirst, ToleratesWhiteSpaceRoundTheVersion) {
    EXPECT_EQ(extract_first("<td>stable:</td><td> \n<strong>\f6.7.1\r</strong>\v</td>", "stable"), "6.7.1");
}

TEST(ExtractFirst, PassesOverCellsWithOtherMarkup) {
    EXPECT_EQ(extract_first("<td>stable:</td><td><a href='x'>6.7.1</a></td><td><strong>6.6.9 <span>EOL</span></strong>"
                            "</td><td>2024-01-01</td>",
                            "stable"),
              "2024-01-01");
}

TEST(ExtractFirst, IsNotBoundToTheLabelsRow) {
    EXPECT_EQ(extract_first("<tr><td>stable:</td></tr></table><table><tr><td>1</td></tr>", "stable"), "1");
}

TEST(ExtractFirst, TakesTheFirstRowOfALabel) {
    EXPECT_EQ(extract_first("<td>stable:</td><td>7.2.4</td><td>stable:</td><td>7.1.14</td>", "stable"), "7.2.4");
}

TEST(ExtractFirst, LooksOnlyBehindTheLabel) {
    EXPECT_EQ(extract_first("<td>9.9</td><td>stable:</td>", "stable"), "");
}

TEST(ExtractFirst, DoesNotTakeALabelInsideOtherText) {
    EXPECT_EQ(extract_first("<td>unstable:</td><td>1.0</td><td>stable tree:</td><td>2.0</td>", "stable"), "");
    EXPECT_EQ(extract_first("<td>stable::</td><td>1.0</td>", "stable"), "");
}

TEST(ExtractFirst, TakesLettersDotsDashesAndUnderscoresInAVersion) {
    EXPECT_EQ(extract_first("<td>stable</td><td>7a.b_c-D9</td>", "stable"), "7a.b_c-D9");
    EXPECT_EQ(extract_first("<td>stable</td><td>next-7</td>", "stable"), "");
    EXPECT_EQ(extract_first("<td>stable</td><td>7+1</td>", "stable"), "");
}

TEST(ExtractFirst, TakesRawBytes) {
    EXPECT_EQ(extract_first("\xff<td \xc3>stable</td>\xe2\x82<td>6.1</td>\xff", "stable"), "6.1");
    EXPECT_EQ(extract_first("<td>stable</td><td>6.1\xff</td>", "stable"), "");
    EXPECT_EQ(extract_first("<td>\xa0stable</td><td>6.1</td>", "stable"), "");
}

TEST(ExtractFirst, PassesOverNulBytes) {
    EXPECT_EQ(extract_first(std::string("\0<td\0>stable</td>\0<td>6.1</td>", 31), "stable"), "6.1");
}

TEST(ExtractFirst, ReturnsEmptyForAnEmptyPage) {
    EXPECT_EQ(extract_first("", "stable"), "");
}

// ---- The same language as the standard library's expressions ----

/// What the two expressions give for the label "stable" as the standard library matches them.
std::string stable_by_std_regex(const std::string& html) {
    constexpr auto flags = std::regex::ECMAScript | std::regex::icase;
    static const std::regex cell("<td[^>]*>\\s*stable\\s*:?\\s*</td>", flags);
    static const std::regex version("<td[^>]*>\\s*(?:<strong>)?\\s*([0-9][0-9a-z._-]*)\\s*(?:</strong>)?\\s*</td>",
                                    flags);
    std::smatch match;
    if (!std::regex_search(html, match, cell)) return {};
    const std::string rest = match.suffix();
    return std::regex_search(rest, match, version) ? match[1].str() : std::string();
}

TEST(ExtractFirst, MatchesTheLanguageOfTheStandardExpressions) {
    const std::vector<std::string> pieces = {
        "<td",
        "<TD",
        ">",
        " ",
        "\t",
        "\n",
        "\v",
        "\f",
        "\r",
        "stable",
        "STABLE",
        "Stable",
        "mainline",
        ":",
        "</td>",
        "</TD>",
        "</t",
        "<",
        "/",
        "td>",
        "<td>",
        "<td >",
        "<strong>",
        "</strong>",
        "<st",
        "</Strong>",
        "6.7.1",
        "0",
        "9",
        "A",
        "z",
        ".",
        "_",
        "-",
        "rc1",
        "\xff",
        "\x85",
        "\xa0",
        "\x80",
        "k",
        "S",
        "\"",
        "=",
        "<td a=\">\">",
        "<td><td>",
        "s",
        "[",
        "<td>stable:</td>",
        "<td>6.7.1</td>",
        "<td>6.7 1</td>",
        "<td><strong>6.7.1</strong></td>",
        "@",
        "`",
        "{",
    };
    std::mt19937 random(20261120);
    std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 40);
    int found = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string html;
        if (i % 2 == 0) html = "<td>stable:</td>";
        for (int n = length(random); n > 0; --n) html += pieces[piece(random)];
        const std::string expected = stable_by_std_regex(html);
        ASSERT_EQ(extract_first(html, "stable"), expected) << html;
        found += !expected.empty();
    }
    // The pages must be such that both outcomes occur often.
    EXPECT_GT(found, 2000);
    EXPECT_LT(found, 18000);
}

TEST(ExtractFirst, MatchesTheLanguageOfTheStandardExpressionsByteByByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string c(1, static_cast<char>(byte));
        for (const std::string& html : {
                 "<td" + c + ">stable:</td><td>6.1</td>",
                 "<td>" + c + "stable" + c + ":" + c + "</td><td>6.1</td>",
                 "<td>stable:</td><td" + c + "><strong>6.1</strong></td>",
                 "<td>stable:</td><td>" + c + "<strong>" + c + "6.1" + c + "</strong>" + c + "</td>",
                 "<td>stable:</td><td>6" + c + "1</td>",
                 "<td>stable:</td><td>" + c + "1</td>",
                 "<td>" + c + "table:</td><td>1</td>",
             }) {
            EXPECT_EQ(extract_first(html, "stable"), stable_by_std_regex(html)) << byte << ": " << html;
        }
    }
}

// ---- Pages that nobody should send ----

std::string repeat(const std::string& text, size_t bytes) {
    std::string result;
    result.reserve(bytes + text.size());
    while (result.size() < bytes) result += text;
    return result;
}

constexpr size_t MEGABYTE = 1000 * 1000;

struct Shape {
    const char* name;
    std::string (*page)();
};

void PrintTo(const Shape& shape, std::ostream* out) {
    *out << shape.name;
}

class HostilePage : public testing::TestWithParam<Shape> {};

/// A shape that costs more than linear time takes minutes at this size, where linear time is milliseconds.
TEST_P(HostilePage, IsAnsweredAtOnce) {
    const std::string page = GetParam().page();
    const std::string label = "<td>stable:</td>";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(extract_first(page, "stable"), "");
    EXPECT_EQ(extract_first(label + page, "stable"), "");
    // What stands behind it is found all the same: a match is never lost for want of strength.
    EXPECT_EQ(extract_first(label + page + "></td>" + label + "<td>6.7.1</td>", "stable"), "6.7.1");
    EXPECT_EQ(extract_first(page + "></td>" + label + "<td>6.7.1</td>", "stable"), "6.7.1");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

const Shape SHAPES[] = {
    {"OneCellOfBlanks", [] { return "<td>" + repeat(" ", MEGABYTE); }},
    {"OneTagOfBlanks", [] { return "<td" + repeat(" ", MEGABYTE); }},
    {"OneCellOfDigits", [] { return "<td>" + repeat("0123456789", MEGABYTE); }},
    {"OneCellOfDots", [] { return "<td>1" + repeat(".", MEGABYTE); }},
    {"OpenTags", [] { return repeat("<td", MEGABYTE); }},
    {"OpenTagsThenOneEnd", [] { return repeat("<td", MEGABYTE) + ">"; }},
    {"OpenCells", [] { return repeat("<td>", MEGABYTE); }},
    {"OpenLabels", [] { return repeat("<td>stable", MEGABYTE); }},
    {"OpenVersions", [] { return repeat("<td>6.7.1", MEGABYTE); }},
    {"OpenStrongVersions", [] { return repeat("<td><strong>6.7.1</strong>", MEGABYTE); }},
    {"TwoHundredThousandCells", [] { return repeat("<td>x</td>", 10 * 200000); }},
    {"TwoHundredThousandEmptyCells", [] { return repeat("<td></td>", 9 * 200000); }},
    {"CellsOfBlanks", [] { return repeat("<td>" + std::string(5000, ' ') + "x</td>", MEGABYTE); }},
    {"VersionsBeforeBlanks", [] { return repeat("<td>7" + std::string(5000, ' ') + "x</td>", MEGABYTE); }},
    {"LabelsBeforeBlanks", [] { return repeat("<td>stable" + std::string(5000, ' ') + "x</td>", MEGABYTE); }},
    {"LessThanSigns", [] { return repeat("<", MEGABYTE); }},
    {"LineFeeds", [] { return repeat("\n", MEGABYTE); }},
};

INSTANTIATE_TEST_SUITE_P(Of, HostilePage, testing::ValuesIn(SHAPES),
                         [](const auto& shape) { return shape.param.name; });

// ---- The running kernel ----

TEST(RunningKernel, IsTheReleaseThatUnameTells) {
    EXPECT_EQ(get_running_kernel() + "\n", exec_command("uname -r"));
}

}  // namespace
