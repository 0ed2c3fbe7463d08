// SPDX-License-Identifier: MIT
// The version check, from its tools up: the records, shell commands, fetching an address, the check itself with its
// conditional requests, the Last-Modified value, the front page's table, and the running kernel.
#include "kernel_checker_support.h"

#include <sys/syscall.h>
#include <ctime>
#include <regex>

namespace {

bool g_uname_fails = false;

}  // namespace

/// Takes the place of the C library's uname(), which never fails.
extern "C" int uname(utsname* names) noexcept {
    return g_uname_fails ? -1 : static_cast<int>(syscall(SYS_uname, names));
}

namespace {

const std::string DATE = "Fri, 20 Nov 2026 21:04:07 GMT";

// ---- Records ----

TEST(Records, OfACheckStartEmptyAndFailed) {
    const auto& [mainline, stable, longterm, success] = KernelVersions{"m", "s", "l", true};
    EXPECT_EQ(mainline + stable + longterm, "msl");
    EXPECT_TRUE(success);

    const KernelVersions empty;
    EXPECT_EQ(empty.mainline + empty.stable + empty.longterm, "");
    EXPECT_FALSE(empty.success);
}

TEST(Records, OfALoadStartEmptyAndFailed) {
    const ChangeEntry entry{"id", "author", "date", "subject", "body"};
    EXPECT_EQ(entry.id + "|" + entry.author + "|" + entry.date + "|" + entry.subject + "|" + entry.body,
              "id|author|date|subject|body");

    const ChangeLog log{"channel", "version", "released", "source", "web", {entry}, 7, true, true, "error"};
    EXPECT_EQ(log.channel + "|" + log.version + "|" + log.released + "|" + log.source_url + "|" + log.web_url,
              "channel|version|released|source|web");
    EXPECT_EQ(log.entries.size(), 1U);
    EXPECT_EQ(log.total_found, 7);
    EXPECT_TRUE(log.truncated && log.success);
    EXPECT_EQ(log.error, "error");

    const ChangeLog empty;
    EXPECT_EQ(empty.channel + empty.version + empty.released + empty.source_url + empty.web_url + empty.error, "");
    EXPECT_TRUE(empty.entries.empty());
    EXPECT_EQ(empty.total_found, 0);
    EXPECT_FALSE(empty.truncated || empty.success);
}

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

/// Kept on purpose: what stands behind a NUL is lost, up to the end of its line or chunk.
TEST(ExecCommand, CutsAChunkShortAtANul) {
    EXPECT_EQ(exec_command("printf 'ab\\0cd\\nef\\n'"), "abef\n");
}

TEST(ExecCommand, LosesNoMoreThanAChunkOf4095BytesToANul) {
    // "a", the NUL and 4093 of the others are the first chunk.
    EXPECT_EQ(exec_command("printf 'a\\0'; head -c 5000 /dev/zero | tr '\\0' x; echo"),
              "a" + std::string(5000 - 4093, 'x') + "\n");
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

/// The release site, as a wget that answers with a page, its header, or the condition's outcome.
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

/// Kept on purpose: the answer to the first request is thrown away.
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

/// Kept on purpose: the search is for the digits, wherever they stand.
TEST_F(VersionCheck, TakesTheDigits304InAnyHeaderForUnchanged) {
    g_last_modified = DATE;
    answer_condition("  HTTP/1.1 200 OK\n  Content-Length: 13042\n", 0);
    EXPECT_FALSE(fetch_kernel_versions().success);
    EXPECT_EQ(tools.calls().size(), 2U);
}

/// Kept on purpose: only a count that begins with 0 says that the page has changed.
TEST_F(VersionCheck, LooksAtTheFirstCharacterOfTheCountAlone) {
    g_last_modified = DATE;
    for (const auto& [count, modified] : std::vector<std::pair<std::string, bool>>{
             {"0", true}, {"0304", true}, {"", true}, {"1", false}, {"10", false}, {" 0", false}, {"many", false}}) {
        tools.add("grep", "cat > /dev/null; printf '%s' '" + count + "'");
        EXPECT_EQ(page_modified(), modified) << count;
    }
}

TEST_F(VersionCheck, WithAFailedConditionFetchesThePage) {
    g_last_modified = DATE;
    answer_condition("failed: Connection refused.\n", 4);
    EXPECT_TRUE(fetch_kernel_versions().success);
    EXPECT_EQ(tools.calls().size(), 4U);
}

TEST_F(VersionCheck, OfAnUnreachablePageKeepsTheStoredHeader) {
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

/// Kept on purpose: the line is found in any case, but its name is cut off in one case only.
TEST_F(VersionCheck, KeepsALowerCaseHeaderAsAWholeLine) {
    answer_headers("  last-modified: " + DATE + "\n");
    EXPECT_EQ(fetch_last_modified(), "  last-modified: " + DATE);
    g_last_modified = fetch_last_modified();
    tools.forget_calls();
    fetch_kernel_versions();
    EXPECT_EQ(tools.calls().at(0), quiet_condition("  last-modified: " + DATE));
}

/// Kept on purpose: the value then holds a line feed.
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

struct Table {
    const char* what;
    std::string html;
    const char* version;
};

TEST(ExtractFirst, ReadsAVersionInEachFormOfTheTable) {
    const std::string label = "<td>stable:</td>";
    for (const auto& [what, html, version] : {
             Table{"in strong", label + "\n<td><strong>6.7.1</strong></td>", "6.7.1"},
             {"plain", label + "<td>6.7.1</td>", "6.7.1"},
             {"blanks before the colon", "<td>\n stable \t:\v</td><td>6.7.1</td>", "6.7.1"},
             {"no colon", "<td>stable</td><td>6.7.1</td>", "6.7.1"},
             {"cells with attributes", "<td class=\"a\"\nid=b>stable:</td><td colspan='2'>6.7.1</td>", "6.7.1"},
             {"any case", "<TD>STABLE:</Td><td><Strong>6.7.1-RC2</STRONG></td>", "6.7.1-RC2"},
             {"white space around the version", label + "<td> \n<strong>\f6.7.1\r</strong>\v</td>", "6.7.1"},
             {"letters, dots, dashes and underscores", "<td>stable</td><td>7a.b_c-D9</td>", "7a.b_c-D9"},
             {"a letter first", "<td>stable</td><td>next-7</td>", ""},
             {"another character", "<td>stable</td><td>7+1</td>", ""},
             {"bytes that are no text", "\xff<td \xc3>stable</td>\xe2\x82<td>6.1</td>\xff", "6.1"},
             {"such a byte in the version", "<td>stable</td><td>6.1\xff</td>", ""},
             {"such a byte in the label", "<td>\xa0stable</td><td>6.1</td>", ""},
             {"NULs", std::string("\0<td\0>stable</td>\0<td>6.1</td>", 31), "6.1"},
             {"an empty page", "", ""},
         }) {
        EXPECT_EQ(extract_first(html, "stable"), version) << what;
    }
}

TEST(ExtractFirst, TakesTheFirstVersionBehindTheFirstLabel) {
    const std::string label = "<td>stable:</td>";
    for (const auto& [what, html, version] : {
             Table{"a cell with other markup is passed over",
                   label + "<td><a href='x'>6.7.1</a></td><td><strong>6.6.9 <span>EOL</span></strong></td>"
                           "<td>2024-01-01</td>",
                   "2024-01-01"},
             {"the label's row is no limit", "<tr>" + label + "</tr></table><table><tr><td>1</td></tr>", "1"},
             {"the first row of a label", label + "<td>7.2.4</td>" + label + "<td>7.1.14</td>", "7.2.4"},
             {"only behind the label", "<td>9.9</td>" + label, ""},
             {"the label stands alone", "<td>unstable:</td><td>1.0</td><td>stable tree:</td><td>2.0</td>", ""},
             {"one colon", "<td>stable::</td><td>1.0</td>", ""},
         }) {
        EXPECT_EQ(extract_first(html, "stable"), version) << what;
    }
}

// ---- The same language as the standard library's expressions ----

/// Returns the version behind the label "stable", found by the standard library's expressions.
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
    const std::vector<std::string> pieces = pieces_of(
        "<td|<TD|>| |\t|\n|\v|\f|\r|stable|STABLE|Stable|mainline|:|</td>|</TD>|</t|<|/|td>|<td>|<td >|"
        "<strong>|</strong>|<st|</Strong>|6.7.1|0|9|A|z|.|_|-|rc1|\xff|\x85|\xa0|\x80|k|S|\"|=|"
        "<td a=\">\">|<td><td>|s|[|<td>stable:</td>|<td>6.7.1</td>|<td>6.7 1</td>|"
        "<td><strong>6.7.1</strong></td>|@|`|{");
    RandomTexts pages(pieces, 40, 20261120);
    int found = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string html = (i % 2 == 0 ? "<td>stable:</td>" : "") + pages.next();
        const std::string expected = stable_by_std_regex(html);
        ASSERT_EQ(extract_first(html, "stable"), expected) << html;
        found += !expected.empty();
    }
    // Both outcomes must occur often, or the comparison says little.
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

class HostilePage : public testing::TestWithParam<Shape> {};

/// At this size, a reader that is worse than linear takes minutes; a linear one takes milliseconds.
TEST_P(HostilePage, IsAnsweredAtOnce) {
    const std::string page = GetParam().page();
    const std::string label = "<td>stable:</td>";
    const std::clock_t start = std::clock();
    EXPECT_EQ(extract_first(page, "stable"), "");
    EXPECT_EQ(extract_first(label + page, "stable"), "");
    // What stands behind it is still found: no search gives up on a long page.
    EXPECT_EQ(extract_first(label + page + "></td>" + label + "<td>6.7.1</td>", "stable"), "6.7.1");
    EXPECT_EQ(extract_first(page + "></td>" + label + "<td>6.7.1</td>", "stable"), "6.7.1");
    EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
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

TEST(RunningKernel, IsUnknownWhereUnameFails) {
    g_uname_fails = true;
    EXPECT_EQ(get_running_kernel(), "unknown");
    g_uname_fails = false;
}

}  // namespace
