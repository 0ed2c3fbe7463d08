#include "support.h"

#include "kernel_checker.cpp"

#include <sys/syscall.h>
#include <chrono>
#include <random>
#include <regex>
#include <thread>

namespace {

bool g_uname_fails = false;

}  // namespace

/// Takes the place of the C library's, whose kernel never refuses.
extern "C" int uname(utsname* names) noexcept {
    return g_uname_fails ? -1 : static_cast<int>(syscall(SYS_uname, names));
}

namespace {

const std::string PAGE = "https://www.kernel.org/";
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

TEST(RunningKernel, IsUnknownWhereUnameFails) {
    g_uname_fails = true;
    EXPECT_EQ(get_running_kernel(), "unknown");
    g_uname_fails = false;
}

// ---- Addresses that may reach the shell ----

const std::vector<std::string> HOSTS = {"https://cdn.kernel.org", "https://www.kernel.org", "https://kernel.org",
                                        "https://git.kernel.org"};

std::string text_of(int byte) {
    return std::string(1, static_cast<char>(byte));
}

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

TEST(SafeAddress, HoldsNothingThatEndsSingleQuotesOrIsNoAddress) {
    for (const char* tail : {"'", "\"", "\\", "`", " ", "<", ">", "|", "^", "{", "}", "\n", "\x7f", "\x80", "\xff"}) {
        EXPECT_FALSE(is_safe_kernel_url("https://cdn.kernel.org/pub" + std::string(tail))) << tail;
    }
    EXPECT_TRUE(is_safe_kernel_url("https://cdn.kernel.org/$(a)&b;c"));
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

TEST(JsonField, IsEmptyForAKeyBeyondTheLimit) {
    const std::string json = R"({"a": "b"}, {"k": "value"})";
    const size_t key = json.find("\"k\"");
    EXPECT_EQ(json_field(json, 0, key, "k"), "");
    EXPECT_EQ(json_field(json, 0, key + 1, "k"), "");
    EXPECT_EQ(json_field(json, 0, json.size(), "k"), "value");
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

TEST(JsonField, TakesATextThatReadsLikeTheKeyForTheKey) {
    EXPECT_EQ(field_of(R"({"a": "k", "b": "v", "k": "w"})", "k"), "v");
}

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

using Fields = std::vector<std::string>;

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

/// What the index holds of "stable" if the record is found as the standard library's expression finds it.
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
    const std::vector<std::string> pieces = {"\"moniker\"",
                                             "\"moniker\"",
                                             "\"moniker\"",
                                             "\"moniker\":",
                                             "moniker",
                                             "\"stable\"",
                                             "\"stable\"",
                                             "\"stable\"",
                                             "\"Stable\"",
                                             "stable",
                                             "\"mainline\"",
                                             "\"",
                                             ":",
                                             ":",
                                             " ",
                                             "\t",
                                             "\n",
                                             "\v",
                                             "\f",
                                             "\r",
                                             "  ",
                                             "\x85",
                                             "\xa0",
                                             "\xff",
                                             ",",
                                             "{",
                                             "}",
                                             "null",
                                             "\"version\"",
                                             "\"isodate\"",
                                             "\"moniker\":\"stable\"",
                                             "VERSION",
                                             "VERSION",
                                             "\\",
                                             "\xc2\xa0"};
    std::mt19937 random(20261121);
    std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 40);
    int found = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string json;
        int versions = 0;
        for (int n = length(random); n > 0; --n) {
            const std::string& next = pieces[piece(random)];
            // Numbered, so that the answer tells which record was found.
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
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(look_up(text, "stable"), UNTOUCHED);
    // What stands behind it is found all the same.
    for (const char* colon : {": ", " :\n"}) {
        const std::string record = "\"moniker\"" + std::string(colon) + "\"stable\", \"version\": \"1\", ";
        EXPECT_EQ(look_up(text + record + text, "stable")[0], "1");
        EXPECT_NE(look_up("{\"moniker\"" + std::string(colon) + "\"stable\", " + text, "stable"), UNTOUCHED);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
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

// ---- The ChangeLog text ----

/// Returns id, author, date, subject and body.
Fields fields_of(const ChangeEntry& entry) {
    return {entry.id, entry.author, entry.date, entry.subject, entry.body};
}

/// Returns all of `log`, a line or more for each field, so that a difference shows its place.
std::string text_of(const ChangeLog& log) {
    std::ostringstream text;
    text << std::boolalpha << "channel: " << log.channel << "\nversion: " << log.version
         << "\nreleased: " << log.released << "\nsource_url: " << log.source_url << "\nweb_url: " << log.web_url
         << "\ntotal_found: " << log.total_found << "\ntruncated: " << log.truncated << "\nsuccess: " << log.success
         << "\nerror: " << log.error << "\nentries: " << log.entries.size();
    for (const ChangeEntry& entry : log.entries) {
        text << "\n";
        for (const std::string& field : fields_of(entry)) text << field.size() << "<" << field << "> ";
    }
    return text.str();
}

ChangeLog log_of_text(const std::string& text) {
    ChangeLog log;
    parse_changelog_text(text, log);
    return log;
}

/// Returns the fields of the only commit in `text`, or none if there are more or fewer.
Fields only_commit(const std::string& text) {
    const ChangeLog log = log_of_text(text);
    EXPECT_EQ(log.entries.size(), 1U) << text;
    EXPECT_EQ(log.total_found, 1) << text;
    EXPECT_FALSE(log.truncated) << text;
    return log.entries.size() == 1 ? fields_of(log.entries[0]) : Fields{};
}

/// Returns subject and body of a commit whose lines behind the header are `lines`.
Fields message_of(const std::string& lines) {
    const Fields fields = only_commit("commit 0123456789abcdef\nAuthor: A\nDate:   D\n\n" + lines);
    EXPECT_EQ(fields.at(0), "0123456789ab");
    return {fields.at(3), fields.at(4)};
}

const std::string TWO_COMMITS =
    "commit 3f1c2d4e5a6b7c8d9e0f3f1c2d4e5a6b7c8d9e0f\n"
    "Author: Rowan Field <rowan@kernel.example>\n"
    "Date:   Sat Nov 21 09:15:00 2026 +0100\n"
    "\n"
    "    Linux 7.2.5\n"
    "    \n"
    "    Tested-by: Sam Reed <sam@kernel.example>\n"
    "\n"
    "commit a0b1c2d3e4f5a0b1c2d3e4f5a0b1c2d3e4f5a0b1\n"
    "Merge: 1111111 2222222\n"
    "Author: Kim Marsh <kim@kernel.example>\n"
    "Date:   Fri Nov 20 18:00:01 2026 -0500\n"
    "\n"
    "    net: dry: close the door behind the last packet\n"
    "    \n"
    "    commit 9999999999999999999999999999999999999999 upstream.\n"
    "    \n"
    "    The door stood open:\n"
    "    \n"
    "        while (!closed)\n"
    "            wait();\n"
    "    \n"
    "    Signed-off-by: Kim Marsh <kim@kernel.example>\n";

const Fields FIRST = {"3f1c2d4e5a6b", "Rowan Field <rowan@kernel.example>", "Sat Nov 21 09:15:00 2026 +0100",
                      "Linux 7.2.5", "Tested-by: Sam Reed <sam@kernel.example>"};
const Fields SECOND = {"a0b1c2d3e4f5", "Kim Marsh <kim@kernel.example>", "Fri Nov 20 18:00:01 2026 -0500",
                       "net: dry: close the door behind the last packet",
                       "commit 9999999999999999999999999999999999999999 upstream.\n"
                       "\n"
                       "The door stood open:\n"
                       "\n"
                       "    while (!closed)\n"
                       "        wait();\n"
                       "\n"
                       "Signed-off-by: Kim Marsh <kim@kernel.example>"};

TEST(ChangelogText, GivesEachCommitsFields) {
    const ChangeLog log = log_of_text(TWO_COMMITS);
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), FIRST);
    EXPECT_EQ(fields_of(log.entries[1]), SECOND);
    EXPECT_EQ(log.total_found, 2);
    EXPECT_FALSE(log.truncated);
}

TEST(ChangelogText, ThatIsEmptyHoldsNoCommit) {
    EXPECT_EQ(text_of(log_of_text("")), text_of(ChangeLog{}));
}

TEST(ChangelogText, WithoutACommitLineHoldsNoCommit) {
    for (const char* text : {"\n", "\n\n", "    text\n", "<html>\n<title>404</title>\n</html>\n",
                             "Author: A\nDate: D\n\n    subject\n", "Commit 1\n", "commit\n", "commit\t1\n",
                             " commit 1\n", "    commit 1\n", "commits 1\n", "\vcommit 1\n", "\rcommit 1\n"}) {
        EXPECT_EQ(text_of(log_of_text(text)), text_of(ChangeLog{})) << text;
    }
}

TEST(ChangelogText, ChangesNoFieldButEntriesTheirNumberAndTruncated) {
    for (const std::string& text : {std::string("no commit"), TWO_COMMITS}) {
        ChangeLog log;
        log.channel = "a";
        log.version = "b";
        log.released = "c";
        log.source_url = "d";
        log.web_url = "e";
        log.success = true;
        log.error = "f";
        ChangeLog expected = log;
        parse_changelog_text(text, log);
        expected.entries = log.entries;
        expected.total_found = log.total_found;
        expected.truncated = log.truncated;
        EXPECT_EQ(text_of(log), text_of(expected));
    }
}

TEST(ChangelogText, AddsToWhatIsThere) {
    ChangeLog log = log_of_text("commit old\n\n    kept\n");
    parse_changelog_text(TWO_COMMITS, log);
    ASSERT_EQ(log.entries.size(), 3U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"old", "", "", "kept", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), FIRST);
    EXPECT_EQ(fields_of(log.entries[2]), SECOND);
    EXPECT_EQ(log.total_found, 3);
    EXPECT_FALSE(log.truncated);
}

TEST(ChangelogText, ComparesAllEntriesWithAllThatWereFound) {
    ChangeLog log;
    log.total_found = 5;
    parse_changelog_text(TWO_COMMITS, log);
    EXPECT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(log.total_found, 7);
    EXPECT_TRUE(log.truncated);

    ChangeLog whole;
    whole.truncated = true;
    parse_changelog_text("no commit", whole);
    EXPECT_FALSE(whole.truncated);
}

// ---- Its lines ----

TEST(ChangelogText, TakesTwelveCharactersBehindCommitForTheId) {
    EXPECT_EQ(only_commit("commit 0123456789abcdef\n")[0], "0123456789ab");
    EXPECT_EQ(only_commit("commit 0123456789ab\n")[0], "0123456789ab");
    EXPECT_EQ(only_commit("commit 0123456\n")[0], "0123456");
    EXPECT_EQ(only_commit("commit 0123456\r\n")[0], "0123456");
    EXPECT_EQ(only_commit("commit  12 (tag: v7)\n")[0], " 12 (tag: v7");
    EXPECT_EQ(only_commit("commit 12  \t \n")[0], "12  \t ");
    EXPECT_EQ(only_commit("commit \n")[0], "");
    EXPECT_EQ(only_commit("commit ")[0], "");
    EXPECT_EQ(only_commit("commit 1")[0], "1");
}

TEST(ChangelogText, IgnoresWhatStandsBeforeTheFirstCommit) {
    EXPECT_EQ(only_commit("Author: X\nDate: Y\n\n    not mine\n\ncommit 1\nAuthor: A\n\n    subject\n"),
              (Fields{"1", "A", "", "subject", ""}));
}

TEST(ChangelogText, MergeLineBetweenCommitAndAuthorIsIgnored) {
    EXPECT_EQ(only_commit("commit 1\nMerge: 2 3\nAuthor: A\nDate: D\n\n    subject\n\n    body\n"),
              (Fields{"1", "A", "D", "subject", "body"}));
}

TEST(ChangelogText, IgnoresLinesWithFewerThanFourBlanks) {
    EXPECT_EQ(message_of("    subject\n   three\n  two\n one\nnone\n    body\n"), (Fields{"subject", "body"}));
    EXPECT_EQ(message_of("    subject\n \n  \n   \n    body\n   \n    end\n"), (Fields{"subject", "body\nend"}));
}

TEST(ChangelogText, IgnoresLinesIndentedByTabs) {
    EXPECT_EQ(message_of("\ttab\n    subject\n\ttab\n  \ttab\n   \ttab\n    body\n"), (Fields{"subject", "body"}));
}

TEST(ChangelogText, IgnoresHeaderLinesInAnyOtherForm) {
    EXPECT_EQ(only_commit("commit 1\nauthor: x\nAuthor x\n Author: x\nAuthorDate: x\ndate: x\nDate x\n Date: x\n"),
              (Fields{"1", "", "", "", ""}));
}

TEST(ChangelogText, ReadsHeaderLinesWhereverTheyStandInACommit) {
    EXPECT_EQ(only_commit("commit 1\n\n    subject\nDate: D\n\n    body\nAuthor: A\n    end\n"),
              (Fields{"1", "A", "D", "subject", "body\nend"}));
}

TEST(ChangelogText, TakesTheLastOfRepeatedHeaderLines) {
    EXPECT_EQ(only_commit("commit 1\nAuthor: A\nAuthor: B\nDate: C\nDate: D\n"), (Fields{"1", "B", "D", "", ""}));
    EXPECT_EQ(only_commit("commit 1\nAuthor: A\nAuthor:\nDate: C\nDate:  \n"), (Fields{"1", "", "", "", ""}));
}

TEST(ChangelogText, HeaderLineWithoutAValueIsEmpty) {
    for (const char* value : {"", " ", "    ", "\t", " \t \r", "\r", " \t"}) {
        EXPECT_EQ(only_commit("commit 1\nAuthor:" + std::string(value) + "\nDate:" + value + "\n"),
                  (Fields{"1", "", "", "", ""}))
            << value;
    }
}

TEST(ChangelogText, TakesBlanksAloneFromTheStartOfAHeaderValue) {
    EXPECT_EQ(only_commit("commit 1\nAuthor:A  b \t\r\nDate:    C: d  \n"), (Fields{"1", "A  b", "C: d", "", ""}));
    EXPECT_EQ(only_commit("commit 1\nAuthor: \t A\nDate:\t D\n"), (Fields{"1", "\t A", "\t D", "", ""}));
    EXPECT_EQ(only_commit("commit 1\nAuthor:\v A\v\nDate: \fD\n"), (Fields{"1", "\v A\v", "\fD", "", ""}));
}

TEST(ChangelogText, HeaderLineInAMessageIsMessage) {
    EXPECT_EQ(only_commit("commit 1\nAuthor: A\nDate: D\n\n    Author: x\n    Date: y\n    Merge: z\n"),
              (Fields{"1", "A", "D", "Author: x", "Date: y\nMerge: z"}));
}

TEST(ChangelogText, IndentedCommitLineIsMessage) {
    EXPECT_EQ(message_of("    subject\n    \n    commit 0123456789abcdef upstream.\n"),
              (Fields{"subject", "commit 0123456789abcdef upstream."}));
    EXPECT_EQ(message_of("    commit 0123456789abcdef upstream.\n"), (Fields{"commit 0123456789abcdef upstream.", ""}));
}

TEST(ChangelogText, CommitLineWithoutIndentationBeginsACommit) {
    const ChangeLog log = log_of_text("commit 1\n\n    subject\n    body\ncommit 2 upstream.\n    other\n");
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"1", "", "", "subject", "body"}));
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"2 upstream.", "", "", "other", ""}));
}

TEST(ChangelogText, CommitTakesNothingFromTheOneBefore) {
    const ChangeLog log = log_of_text("commit 1\nAuthor: A\nDate: D\n\n    subject\n\n    body\n\ncommit \ncommit 3\n");
    ASSERT_EQ(log.entries.size(), 3U);
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"", "", "", "", ""}));
    EXPECT_EQ(fields_of(log.entries[2]), (Fields{"3", "", "", "", ""}));
}

// ---- Its messages ----

TEST(ChangelogText, CommitWithoutAMessageCounts) {
    for (const char* lines : {"", "\n", "\n\n\n", "    \n", "    \n\n      \n    \t\r\n", "    "}) {
        EXPECT_EQ(message_of(lines), (Fields{"", ""})) << lines;
    }
}

TEST(ChangelogText, FirstLineThatIsNotEmptyIsTheSubject) {
    EXPECT_EQ(message_of("    \n\n         \n    \t \n    subject\n    body\n"), (Fields{"subject", "body"}));
}

TEST(ChangelogText, SubjectOfOneLineOnly) {
    EXPECT_EQ(message_of("    one\n    two\n    three\n"), (Fields{"one", "two\nthree"}));
}

TEST(ChangelogText, BlankLinesBeforeTheBodyVanish) {
    EXPECT_EQ(message_of("    subject\n    \n\n         \n    \t\n    body\n"), (Fields{"subject", "body"}));
}

TEST(ChangelogText, BlankLinesInTheBodyStay) {
    EXPECT_EQ(message_of("    subject\n    one\n    \n\n    two\n        \n    three\n"),
              (Fields{"subject", "one\n\n\ntwo\n\nthree"}));
}

TEST(ChangelogText, BlankLinesBehindTheBodyVanish) {
    EXPECT_EQ(message_of("    subject\n    body\n    \n\n        \n\n"), (Fields{"subject", "body"}));
}

TEST(ChangelogText, TakesFourBlanksAndTrailingWhiteSpaceFromALine) {
    EXPECT_EQ(message_of("      subject \t\r\n    one  \n        two\t\n    \tthree\n     four \r\r\n"),
              (Fields{"  subject", "one\n    two\n\tthree\n four"}));
}

TEST(ChangelogText, KeepsOtherWhiteSpaceAndRawBytes) {
    EXPECT_EQ(message_of("    \v\n    \f\xff\xa0\n    in\rside\n"), (Fields{"\v", "\f\xff\xa0\nin\rside"}));
    EXPECT_EQ(message_of(std::string("    a\0b\n    c\0\n", 15)),
              (Fields{std::string("a\0b", 3), std::string("c\0", 2)}));
}

// ---- Its line ends ----

TEST(ChangelogText, WithCarriageReturnsReadsTheSame) {
    EXPECT_EQ(text_of(log_of_text(std::regex_replace(TWO_COMMITS, std::regex("\n"), "\r\n"))),
              text_of(log_of_text(TWO_COMMITS)));
}

TEST(ChangelogText, TakesOneCarriageReturnFromALine) {
    EXPECT_EQ(only_commit("commit 12\r\r\n")[0], "12\r");
    EXPECT_EQ(message_of("    subject\n    one\n\r\n\r\r\n    two\n"), (Fields{"subject", "one\n\ntwo"}))
        << "a line of two carriage returns is not empty and so is ignored";
}

TEST(ChangelogText, TakesACarriageReturnAloneForNoLineEnd) {
    EXPECT_EQ(only_commit("commit 1\rcommit 2\rAuthor: x\n")[0], "1\rcommit 2\rA");
}

TEST(ChangelogText, WithoutTheLastLineFeedReadsTheSame) {
    for (const std::string& text :
         {TWO_COMMITS, std::string("commit 1\nAuthor: A\n"), std::string("commit 1\nDate: D\n"),
          std::string("commit 1\n"), std::string("commit 1\n    subject\n")}) {
        EXPECT_EQ(text_of(log_of_text(text.substr(0, text.size() - 1))), text_of(log_of_text(text))) << text;
        EXPECT_EQ(text_of(log_of_text(text + "\n\n")), text_of(log_of_text(text))) << text;
    }
}

TEST(ChangelogText, CutAtAnyByteNeverTellsMoreThanTheWhole) {
    const std::string text = "head\n" + TWO_COMMITS + "commit \n\ncommit 5\nAuthor:\nDate:\n\n    \n    last\r\n";
    const ChangeLog whole = log_of_text(text);
    ASSERT_EQ(whole.total_found, 4);
    int before = 0;
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        const ChangeLog part = log_of_text(text.substr(0, cut));
        ASSERT_EQ(part.entries.size(), static_cast<size_t>(part.total_found)) << cut;
        ASSERT_GE(part.total_found, before) << cut;
        ASSERT_LE(part.total_found, whole.total_found) << cut;
        before = part.total_found;
        for (size_t i = 0; i < part.entries.size(); ++i) {
            const Fields got = fields_of(part.entries[i]);
            const Fields all = fields_of(whole.entries[i]);
            if (i + 1 < part.entries.size()) {
                EXPECT_EQ(got, all) << cut;
                continue;
            }
            for (size_t field = 0; field < all.size(); ++field) {
                EXPECT_TRUE(all[field].starts_with(got[field])) << cut << ": " << got[field];
            }
        }
    }
    EXPECT_EQ(before, 4);
}

// ---- Its length ----

std::string numbered_commits(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        text += "commit " + number + "\nAuthor: A" + number + "\nDate:   D" + number + "\n\n    S" + number +
                "\n    \n    commit 0 upstream.\n    B" + number + "\n\n";
    }
    return text;
}

struct Length {
    int found;
    size_t kept;
    bool truncated;
};

constexpr Length LENGTHS[] = {
    {399, 399, false}, {400, 400, false}, {401, 400, true}, {402, 400, true}, {5000, 400, true}};

TEST(ChangelogText, KeepsFourHundredCommitsAndCountsTheRest) {
    for (const auto& [found, kept, truncated] : LENGTHS) {
        for (const bool last_line_feed : {true, false}) {
            std::string text = numbered_commits(found);
            if (!last_line_feed) text.resize(text.find_last_not_of('\n') + 1);
            const ChangeLog log = log_of_text(text);
            EXPECT_EQ(log.total_found, found);
            EXPECT_EQ(log.truncated, truncated) << found;
            ASSERT_EQ(log.entries.size(), kept) << found;
            for (size_t i = 0; i < kept; ++i) {
                const std::string n = std::to_string(i + 1);
                ASSERT_EQ(fields_of(log.entries[i]),
                          (Fields{n, "A" + n, "D" + n, "S" + n, "commit 0 upstream.\nB" + n}));
            }
        }
    }
}

TEST(ChangelogText, CountsCommitLinesBeyondTheLimitAsBefore) {
    const std::string full = numbered_commits(400);
    for (const auto& [more, count] : std::vector<std::pair<std::string, int>>{
             {"", 0},
             {"    commit 1\n", 0},
             {"commit\n", 0},
             {"Author: A\n\n    text\n", 0},
             {"commit 1", 1},
             {"commit ", 1},
             {"commit \ncommit \r\ncommit 3", 3},
             {"commit 1\n    commit 2\n commit 3\nxcommit 4\ncommit\t5\rcommit 6\n\n\ncommit 7\n", 2},
         }) {
        const ChangeLog log = log_of_text(full + more);
        EXPECT_EQ(log.total_found, 400 + count) << more;
        EXPECT_EQ(log.entries.size(), 400U) << more;
        EXPECT_EQ(log.truncated, count > 0) << more;
    }
}

TEST(ChangelogText, WhatFollowsTheLastCommitKeptBelongsToIt) {
    const ChangeLog log = log_of_text(numbered_commits(400) + "    more\n");
    EXPECT_EQ(log.entries.at(399).body, "commit 0 upstream.\nB400\n\nmore");
}

TEST(ChangelogText, CountsWhatIsThereTowardsTheLimit) {
    ChangeLog almost = log_of_text(numbered_commits(399));
    parse_changelog_text(TWO_COMMITS, almost);
    ASSERT_EQ(almost.entries.size(), 400U);
    EXPECT_EQ(fields_of(almost.entries[399]), FIRST);
    EXPECT_EQ(almost.total_found, 401);
    EXPECT_TRUE(almost.truncated);

    ChangeLog full = log_of_text(numbered_commits(400));
    parse_changelog_text(TWO_COMMITS, full);
    EXPECT_EQ(full.entries.size(), 400U);
    EXPECT_EQ(fields_of(full.entries.back()).at(0), "400");
    EXPECT_EQ(full.total_found, 402);
    EXPECT_TRUE(full.truncated);
}

/// The rules one after the other, with the message kept as a list of lines until its commit ends.
ChangeLog log_by_the_rules(const std::string& text) {
    ChangeLog log;
    ChangeEntry cur;
    bool in_entry = false;
    std::vector<std::string> message;
    const auto flush = [&] {
        if (!in_entry) return;
        const auto subject = std::ranges::find_if(message, [](const std::string& line) { return !line.empty(); });
        if (subject != message.end()) {
            cur.subject = *subject;
            std::string rest;
            for (auto line = subject + 1; line != message.end(); ++line) {
                if (!line->empty() || !rest.empty()) rest += *line + "\n";
            }
            cur.body = trim_right(rest);
        }
        log.total_found += 1;
        if (log.entries.size() < 400) log.entries.push_back(cur);
        cur = ChangeEntry();
        message.clear();
    };
    const auto value = [](const std::string& line, size_t length) {
        const std::string trimmed = trim_right(line.substr(length));
        return std::regex_replace(trimmed, std::regex("^ +"), "");
    };

    // A stream drops nothing but an empty last line, so the text gets a line feed that closes its last one.
    std::istringstream lines(text + "\n");
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.starts_with("commit ")) {
            flush();
            in_entry = true;
            cur.id = line.substr(7, 12);
        } else if (in_entry && line.starts_with("Author:")) {
            cur.author = value(line, 7);
        } else if (in_entry && line.starts_with("Date:")) {
            cur.date = value(line, 5);
        } else if (in_entry && line.starts_with("    ")) {
            message.push_back(trim_right(line.substr(4)));
        } else if (in_entry && line.empty()) {
            message.emplace_back();
        }
    }
    flush();
    log.truncated = static_cast<int>(log.entries.size()) < log.total_found;
    return log;
}

TEST(ChangelogText, TakesLinesOfAnyLengthWhereverTheTextEnds) {
    for (size_t first = 1; first <= 200; ++first) {
        for (const size_t second : {size_t{1}, first, 201 - first}) {
            const std::string body = std::string(first, 'a') + "\n\n" + std::string(second, 'b');
            for (const std::string end : {"", "\n", "\n\n", " \t"}) {
                const std::string text = "commit 1\n\n    S\n\n    " + std::string(first, 'a') + "\n    \n    " +
                                         std::string(second, 'b') + end;
                ASSERT_EQ(log_of_text(text).entries.at(0).body, body) << first << ' ' << second << ' ' << end;
            }
        }
    }
}

TEST(ChangelogText, OfAnyLinesReadsAsTheRulesTell) {
    const std::vector<std::string> pieces = {"commit ",
                                             "commit 0123456789abcdef\n",
                                             "\ncommit 1\n",
                                             "commit",
                                             "Author:",
                                             "Author: A <a@b>\n",
                                             "Date:",
                                             "Date:   D\n",
                                             "Merge: 1 2\n",
                                             "    ",
                                             "    ",
                                             "\n    text",
                                             "\n    more text\n",
                                             "\n",
                                             "\n\n",
                                             "\n",
                                             "\r\n",
                                             "\r",
                                             " ",
                                             "  ",
                                             "\t",
                                             "text",
                                             "\v",
                                             "\xff",
                                             "\n        code\n",
                                             "\n    \n",
                                             "\n    commit 2 upstream.\n",
                                             "\n   three\n",
                                             "\n\ttab\n"};
    std::mt19937 random(20261122);
    std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 40);
    int bodies = 0;
    for (int i = 0; i < 5000; ++i) {
        std::string text;
        if (i % 2 == 0) text = "commit 0\n";
        for (int n = length(random); n > 0; --n) text += pieces[piece(random)];
        const ChangeLog expected = log_by_the_rules(text);
        ASSERT_EQ(text_of(log_of_text(text)), text_of(expected)) << text;
        for (const ChangeEntry& entry : expected.entries) bodies += !entry.body.empty();
    }
    EXPECT_GT(bodies, 1000);
}

// ---- Texts that nobody should send ----

class HostileText : public testing::TestWithParam<Shape> {};

TEST_P(HostileText, IsReadAtOnceAsEitherForm) {
    const std::string text = GetParam().page();
    const auto start = std::chrono::steady_clock::now();
    const ChangeLog log = log_of_text(text + "\ncommit 1\n\n    found\n");
    EXPECT_GE(log.total_found, 1);
    EXPECT_EQ(log.truncated, log.total_found > 400);
    if (!log.truncated) {
        EXPECT_EQ(log.entries.back().subject, "found");
    }

    ChangeLog feed;
    parse_atom_feed(text + "</entry><entry><title>found</title></entry>", feed);
    EXPECT_GE(feed.total_found, 1);
    EXPECT_EQ(feed.truncated, feed.total_found > 400);

    EXPECT_GE(xml_unescape(text).size(), 1U);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

const Shape TEXT_SHAPES[] = {
    {"CommitLines", [] { return repeat("commit \n", MEGABYTE); }},
    {"OneCommitOfBlankLines", [] { return "commit 1\n" + repeat("\n", MEGABYTE); }},
    {"OneCommitOfBlankMessageLines", [] { return "commit 1\n" + repeat("    \n", MEGABYTE); }},
    {"OneSubjectBeforeBlankLines", [] { return "commit 1\n    s\n" + repeat("\n", MEGABYTE); }},
    {"OneBodyOfShortLines", [] { return "commit 1\n    s\n" + repeat("    b\n", MEGABYTE); }},
    {"OneLineOfBlanks", [] { return "commit 1\n" + repeat(" ", MEGABYTE); }},
    {"OneLine", [] { return "commit 1\n    " + repeat("x", MEGABYTE); }},
    {"Authors", [] { return "commit 1\n" + repeat("Author:  \n", MEGABYTE); }},
    {"CarriageReturns", [] { return "commit 1\n" + repeat("\r", MEGABYTE); }},
    {"EntryTags", [] { return repeat("<entry>", MEGABYTE); }},
    {"EntryEndTags", [] { return repeat("</entry>", MEGABYTE); }},
    {"EmptyEntries", [] { return repeat("<entry></entry>", MEGABYTE); }},
    {"EntriesWithOpenTitles", [] { return repeat("<entry><title><content></entry>", MEGABYTE); }},
    {"OneEntryOfOpenTags", [] { return "<entry>" + repeat("<title><id><content", MEGABYTE); }},
    {"OneContentOfLineFeeds", [] { return "<entry><content>" + repeat("\n", MEGABYTE) + "</content></entry>"; }},
    {"LessThanSigns", [] { return repeat("<", MEGABYTE); }},
    {"Ampersands", [] { return repeat("&", MEGABYTE); }},
    {"EmptyReferences", [] { return repeat("&;", MEGABYTE); }},
    {"NestedReferences", [] { return repeat("&&&&&&&&&;", MEGABYTE); }},
    {"NumericReferences", [] { return "<entry><title>" + repeat("&#x0020;", MEGABYTE) + "</title></entry>"; }},
    {"Nuls", [] { return std::string(MEGABYTE, '\0'); }},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileText, testing::ValuesIn(TEXT_SHAPES),
                         [](const auto& shape) { return shape.param.name; });

// ---- Character references ----

TEST(XmlUnescape, DecodesTheNamesOfXml) {
    EXPECT_EQ(xml_unescape("&lt;"), "<");
    EXPECT_EQ(xml_unescape("&gt;"), ">");
    EXPECT_EQ(xml_unescape("&amp;"), "&");
    EXPECT_EQ(xml_unescape("&quot;"), "\"");
    EXPECT_EQ(xml_unescape("&apos;"), "'");
    EXPECT_EQ(xml_unescape("&#39;"), "'");
    EXPECT_EQ(xml_unescape("a &lt;b@c&gt;&amp;&quot;d&#39;&apos; e"), "a <b@c>&\"d'' e");
}

TEST(XmlUnescape, CopiesPlainText) {
    for (const std::string& text : {std::string(), std::string("plain <text> with ; and #65;"), std::string("a\0b", 3),
                                    std::string("\xff\xe2\x82\xac\n\t\r")}) {
        EXPECT_EQ(xml_unescape(text), text);
    }
}

TEST(XmlUnescape, DecodesOnce) {
    EXPECT_EQ(xml_unescape("&amp;lt;"), "&lt;");
    EXPECT_EQ(xml_unescape("&amp;amp;lt;"), "&amp;lt;");
    EXPECT_EQ(xml_unescape("&#38;lt;"), "&lt;");
}

TEST(XmlUnescape, DecodesNumbersInBothBases) {
    for (const char* reference :
         {"&#60;", "&#x3c;", "&#X3C;", "&#x3C;", "&#X3c;", "&#060;", "&#0000060;", "&#x00003c;"}) {
        EXPECT_EQ(xml_unescape(reference), "<") << reference;
    }
    EXPECT_EQ(xml_unescape("&#039;&#x27;&#10;"), "''\n");
}

TEST(XmlUnescape, EncodesACodePointInOneToThreeBytes) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"1", "\x01"},
        {"65", "A"},
        {"127", "\x7f"},
        {"128", "\xc2\x80"},
        {"2047", "\xdf\xbf"},
        {"2048", "\xe0\xa0\x80"},
        {"8364", "\xe2\x82\xac"},
        {"65535", "\xef\xbf\xbf"},
        {"x1", "\x01"},
        {"x7F", "\x7f"},
        {"x80", "\xc2\x80"},
        {"xE9", "\xc3\xa9"},
        {"x7fF", "\xdf\xbf"},
        {"x800", "\xe0\xa0\x80"},
        {"xFFFF", "\xef\xbf\xbf"},
    };
    for (const auto& [number, bytes] : table) {
        EXPECT_EQ(xml_unescape("a&#" + number + ";b"), "a" + bytes + "b") << number;
    }
}

TEST(XmlUnescape, EncodesSurrogatesLikeAnyOtherThreeBytes) {
    EXPECT_EQ(xml_unescape("&#xD7FF;"), "\xed\x9f\xbf");
    EXPECT_EQ(xml_unescape("&#xD800;"), "\xed\xa0\x80");
    EXPECT_EQ(xml_unescape("&#57343;"), "\xed\xbf\xbf");
    EXPECT_EQ(xml_unescape("&#xE000;"), "\xee\x80\x80");
}

TEST(XmlUnescape, LeavesOtherNumbersAsTheyStandAndGoesOnBehindThem) {
    for (const char* name : {"#",      "#x",      "#X",      "#0",      "#x0",       "#-1",       "#-65",      "#x-41",
                             "#65536", "#x10000", "#128512", "#x1F600", "#99999999", "#xFFFFFFF", "#-9999999", "#a",
                             "#xg",    "#xx41",   "# ",      "#+",      "##65",      "#&lt"}) {
        const std::string reference = "&" + std::string(name) + ";";
        EXPECT_EQ(xml_unescape("a" + reference + "b&lt;"), "a" + reference + "b<");
    }
}

TEST(XmlUnescape, ReadsANumberAsStrtolDoes) {
    EXPECT_EQ(xml_unescape("&#65abc;"), "A");
    EXPECT_EQ(xml_unescape("&#65 ;"), "A");
    EXPECT_EQ(xml_unescape("&#65.9;"), "A");
    EXPECT_EQ(xml_unescape("&#65&lt;"), "A") << "everything up to the semicolon is the name";
    EXPECT_EQ(xml_unescape("&# \t\n65;"), "A");
    EXPECT_EQ(xml_unescape("&#+65;"), "A");
    EXPECT_EQ(xml_unescape("&#x+41;"), "A");
    EXPECT_EQ(xml_unescape("&#x 41;"), "A");
    EXPECT_EQ(xml_unescape("&#x0x41;"), "A");
    EXPECT_EQ(xml_unescape("&#x41g;"), "A");
    EXPECT_EQ(xml_unescape("&#0x41;"), "&#0x41;") << "reads 0 and stops";
    EXPECT_EQ(xml_unescape("&#0101;"), "e") << "is not octal";
    EXPECT_EQ(xml_unescape("&#1 39;"), "\x01");
    EXPECT_EQ(xml_unescape(std::string("&#65\0;", 6)), "A");
}

TEST(XmlUnescape, CopiesAnAmpersandWithoutASemicolon) {
    EXPECT_EQ(xml_unescape("&"), "&");
    EXPECT_EQ(xml_unescape("a & b"), "a & b");
    EXPECT_EQ(xml_unescape("&lt"), "&lt");
    EXPECT_EQ(xml_unescape("&&&"), "&&&");
    EXPECT_EQ(xml_unescape("AT&T and others &lt; you and all the rest;"), "AT&T and others < you and all the rest;");
}

TEST(XmlUnescape, LooksForASemicolonTenPositionsOnAtMost) {
    EXPECT_EQ(xml_unescape("&#00000065;"), "A") << "distance 10";
    EXPECT_EQ(xml_unescape("&#000000065;"), "&#000000065;") << "distance 11";
    EXPECT_EQ(xml_unescape("&#x000003c;"), "<") << "distance 10";
    EXPECT_EQ(xml_unescape("&#x0000003c;"), "&#x0000003c;") << "distance 11";
    EXPECT_EQ(xml_unescape("&123456789;"), "&123456789;123456789;") << "distance 10";
    EXPECT_EQ(xml_unescape("&1234567890;"), "&1234567890;") << "distance 11";
    EXPECT_EQ(xml_unescape("& 1234567&lt;"), "& 1234567<") << "distance 12";
}

TEST(XmlUnescape, DoublesAnUnknownName) {
    EXPECT_EQ(xml_unescape("&nbsp;x"), "&nbsp;nbsp;x");
    EXPECT_EQ(xml_unescape("&;"), "&;;");
    EXPECT_EQ(xml_unescape("&&;;"), "&&;&;;;");
    for (const char* name : {"LT", "Lt", "AMP", "lt ", " lt", "l", "ltx", "quo", "x41", "65", "copy"}) {
        const std::string text = std::string(name) + ";";
        EXPECT_EQ(xml_unescape("a&" + text + "b"), "a&" + text + text + "b");
    }
}

TEST(XmlUnescape, ReadsAnUnknownNameOnceMoreAsText) {
    EXPECT_EQ(xml_unescape("&&lt;"), "&&lt;<");
    EXPECT_EQ(xml_unescape("&a&b;c"), "&a&b;a&b;b;c");
    EXPECT_EQ(xml_unescape("a & b &lt;"), "a & b &lt; b <");
}

TEST(XmlUnescape, OfAnyReferenceReadsAsTheRulesTell) {
    const auto by_the_rules = [](const std::string& in) {
        const std::vector<std::pair<std::string, std::string>> named = {{"lt", "<"},    {"gt", ">"},   {"amp", "&"},
                                                                        {"quot", "\""}, {"apos", "'"}, {"#39", "'"}};
        std::string out;
        for (size_t i = 0; i < in.size();) {
            const size_t semicolon = in.find(';', i);
            if (in[i] != '&' || semicolon == std::string::npos || semicolon - i > 10) {
                out += in[i++];
                continue;
            }
            const std::string name = in.substr(i + 1, semicolon - i - 1);
            const std::string whole = in.substr(i, semicolon - i + 1);
            const auto known = std::ranges::find_if(named, [&](const auto& pair) { return pair.first == name; });
            if (known == named.end() && !name.starts_with("#")) {
                out += whole;
                ++i;
                continue;
            }
            i = semicolon + 1;
            if (known != named.end()) {
                out += known->second;
                continue;
            }
            long cp = 0;
            try {
                const bool hexadecimal = name.size() > 1 && std::string("xX").find(name[1]) != std::string::npos;
                cp = hexadecimal ? std::stol(name.substr(2), nullptr, 16) : std::stol(name.substr(1), nullptr, 10);
            } catch (const std::exception&) {
                cp = 0;
            }
            const auto byte = [](long value) { return text_of(static_cast<int>(value)); };
            if (cp >= 1 && cp <= 127) {
                out += byte(cp);
            } else if (cp >= 128 && cp <= 2047) {
                out += byte(0xC0 + (cp >> 6)) + byte(0x80 + (cp & 0x3F));
            } else if (cp >= 2048 && cp <= 65535) {
                out += byte(0xE0 + (cp >> 12)) + byte(0x80 + ((cp >> 6) & 0x3F)) + byte(0x80 + (cp & 0x3F));
            } else {
                out += whole;
            }
        }
        return out;
    };
    const std::vector<std::string> pieces = {"&",    "&",    "&",    ";",    ";",   "#",  "#", "x",   "X",
                                             "0",    "6",    "39",   "f",    "D",   "-",  "+", " ",   "\n",
                                             "&lt;", "amp;", "quot", "apos", "gt;", "&#", "z", "\xff"};
    std::mt19937 random(20261123);
    std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 24);
    int decoded = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (int n = length(random); n > 0; --n) text += pieces[piece(random)];
        const std::string expected = by_the_rules(text);
        ASSERT_EQ(xml_unescape(text), expected) << text;
        decoded += expected.size() < text.size();
    }
    EXPECT_GT(decoded, 1000);
}

// ---- Elements ----

TEST(XmlTagValue, IsTheDecodedTextOfTheFirstElement) {
    EXPECT_EQ(xml_tag_value("<id>a &lt; b</id><id>c</id>", "id"), "a < b");
    EXPECT_EQ(xml_tag_value("</id> <id> a\n<b>c</b> </id>", "id"), " a\n<b>c</b> ");
    EXPECT_EQ(xml_tag_value("<id>&nbsp;</id>", "id"), "&nbsp;nbsp;");
}

TEST(XmlTagValue, IsEmptyWithoutTheElement) {
    for (const char* block : {"",
                              "id",
                              "<id",
                              "<id>",
                              "<id>a",
                              "<id>a</id",
                              "</id>",
                              "a</id>",
                              "<id></id>",
                              "<id/>",
                              "<ID>a</ID>",
                              "<ids>a</ids>",
                              "<xid>a</xid>",
                              "< id>a</id>",
                              "<id >a</id>",
                              "&lt;id&gt;a&lt;/id&gt;",
                              "</id><id>a",
                              "<id>a</ID>",
                              "<id>a</ id>",
                              "<id>a</id >"}) {
        EXPECT_EQ(xml_tag_value(block, "id"), "") << block;
    }
}

TEST(XmlTagValue, PassesOverATagWithAttributes) {
    EXPECT_EQ(xml_tag_value("<title type='text'>a</title>", "title"), "");
    EXPECT_EQ(xml_tag_value("<title type='text'>a</title><title>b</title>", "title"), "b");
}

TEST(XmlTagValue, RunsToTheFirstEndTag) {
    EXPECT_EQ(xml_tag_value("<a>1<a>2</a>3</a>", "a"), "1<a>2");
    EXPECT_EQ(xml_tag_value("<a>1</b>2</a>", "a"), "1</b>2");
    EXPECT_EQ(xml_tag_value("<a>1&lt;/a&gt;</a>", "a"), "1</a>");
}

// ---- The Atom feed ----

ChangeLog log_of_feed(const std::string& xml) {
    ChangeLog log;
    parse_atom_feed(xml, log);
    return log;
}

/// Returns the fields of the only entry in a feed whose entry holds `members`.
Fields only_entry(const std::string& members) {
    const ChangeLog log = log_of_feed("<feed><title>the feed's</title><entry>" + members + "</entry></feed>");
    EXPECT_EQ(log.entries.size(), 1U) << members;
    EXPECT_EQ(log.total_found, 1) << members;
    EXPECT_FALSE(log.truncated) << members;
    return log.entries.size() == 1 ? fields_of(log.entries[0]) : Fields{};
}

std::string id_of(const std::string& id) {
    return only_entry("<id>" + id + "</id>").at(0);
}

/// Returns the body of an entry called `title`, whose content is `content`, both as they stand in the feed.
std::string body_of(const std::string& title, const std::string& content) {
    return only_entry("<title>" + title + "</title><content type='text'>" + content + "</content>").at(4);
}

const std::string TWO_ENTRIES =
    "<?xml version='1.0' encoding='utf-8'?>\n"
    "<feed xmlns='http://www.w3.org/2005/Atom'>\n"
    "<title>linux.git, branch linux-7.2.y</title>\n"
    "<id>urn:feed</id>\n"
    "<updated>2026-11-21T08:15:00Z</updated>\n"
    "<entry>\n"
    "<title>Linux 7.2.5</title>\n"
    "<updated>2026-11-21T08:15:00Z</updated>\n"
    "<author>\n<name>Rowan Field</name>\n<email>rowan@kernel.example</email>\n</author>\n"
    "<published>2026-11-21T08:15:00Z</published>\n"
    "<link rel='alternate' type='text/html' href='http://git.kernel.example/commit/?id=3f1c2d4e5a6b7c8d9e0f'/>\n"
    "<id>urn:sha1:3f1c2d4e5a6b7c8d9e0f3f1c2d4e5a6b7c8d9e0f</id>\n"
    "<content type='text'>\nTested-by: Sam Reed &lt;sam@kernel.example&gt;\n</content>\n"
    "</entry>\n"
    "<entry>\n"
    "<title>net: dry &amp; &quot;warm&quot;</title>\n"
    "<updated>2026-11-20T23:00:01Z</updated>\n"
    "<author>\n<name>Kim Marsh</name>\n<email>kim@kernel.example</email>\n</author>\n"
    "<published>2026-11-20T23:00:01Z</published>\n"
    "<id>a0b1c2d3e4f5a0b1c2d3e4f5a0b1c2d3e4f5a0b1</id>\n"
    "<content type='text'>\n"
    "commit 9999999999999999999999999999999999999999 upstream.\n"
    "\n"
    "    while (a &lt; b &amp;&amp; c)\n"
    "\n"
    "Signed-off-by: Kim Marsh &lt;kim@kernel.example&gt;\n"
    "</content>\n"
    "<content type='xhtml'>\n<div xmlns='http://www.w3.org/1999/xhtml'>\n<pre>\nother\n</pre>\n</div>\n</content>\n"
    "</entry>\n"
    "</feed>\n";

const Fields FIRST_ENTRY = {"3f1c2d4e5a6b", "Rowan Field <rowan@kernel.example>", "2026-11-21T08:15:00Z", "Linux 7.2.5",
                            "Tested-by: Sam Reed <sam@kernel.example>"};
const Fields SECOND_ENTRY = {"a0b1c2d3e4f5", "Kim Marsh <kim@kernel.example>", "2026-11-20T23:00:01Z",
                             "net: dry & \"warm\"",
                             "commit 9999999999999999999999999999999999999999 upstream.\n"
                             "\n"
                             "    while (a < b && c)\n"
                             "\n"
                             "Signed-off-by: Kim Marsh <kim@kernel.example>"};

TEST(AtomFeed, GivesEachEntrysFieldsInBothFormsOfTheFeed) {
    const ChangeLog log = log_of_feed(TWO_ENTRIES);
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), FIRST_ENTRY);
    EXPECT_EQ(fields_of(log.entries[1]), SECOND_ENTRY);
    EXPECT_EQ(log.total_found, 2);
    EXPECT_FALSE(log.truncated);
}

TEST(AtomFeed, WithoutAnEntryAddsNothing) {
    for (const char* xml :
         {"", "<feed></feed>", "<html><title>404</title></html>", "<entry>", "</entry>", "</entry><entry>",
          "<entry ></entry>", "<entry a='b'></entry>", "<Entry></Entry>", "<entry></Entry>", "<entry></entry",
          "<entries></entries>", "<entry/></entry>", "&lt;entry&gt;&lt;/entry&gt;"}) {
        EXPECT_EQ(text_of(log_of_feed(xml)), text_of(ChangeLog{})) << xml;
    }
}

TEST(AtomFeed, DropsAnUnclosedLastEntry) {
    const ChangeLog log = log_of_feed("<entry><title>one</title></entry><entry><title>two</title>");
    ASSERT_EQ(log.entries.size(), 1U);
    EXPECT_EQ(log.entries[0].subject, "one");
    EXPECT_EQ(log.total_found, 1);
    EXPECT_FALSE(log.truncated);
}

TEST(AtomFeed, RunsAnEntryToTheNextEndTag) {
    const ChangeLog log = log_of_feed(
        "</entry><entry><title>one</title><entry><title>two</title><id>2</id></entry></entry>"
        "<entry><title>three</title></entry>");
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"2", "", "", "one", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"", "", "", "three", ""}));
    EXPECT_EQ(log.total_found, 2);
}

TEST(AtomFeed, TakesNothingFromOutsideAnEntry) {
    const ChangeLog log = log_of_feed(
        "<title>a</title><id>b</id><name>c</name><email>d</email><updated>e</updated><content>f</content>"
        "<entry></entry>"
        "<title>a</title><id>b</id><name>c</name><email>d</email><updated>e</updated><content>f</content>"
        "<entry><title>open</entry>"
        "</title></content>");
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"", "", "", "", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"", "", "", "", ""}));
}

TEST(AtomFeed, EntryWithoutElementsCounts) {
    EXPECT_EQ(only_entry(""), (Fields{"", "", "", "", ""}));
    EXPECT_EQ(only_entry("plain text"), (Fields{"", "", "", "", ""}));
}

TEST(AtomFeed, TakesTheFirstElementOfEachKind) {
    EXPECT_EQ(only_entry("<title>t1</title><title>t2</title><name>n1</name><name>n2</name><email>e1</email>"
                         "<email>e2</email><updated>u1</updated><updated>u2</updated><id>i1</id><id>i2</id>"
                         "<content>c1</content><content>c2</content>"),
              (Fields{"i1", "n1 <e1>", "u1", "t1", "c1"}));
}

TEST(AtomFeed, PassesOverAnElementWithAttributesButForContent) {
    EXPECT_EQ(only_entry("<title a='b'>t</title><name a='b'>n</name><email a='b'>e</email><updated a='b'>u</updated>"
                         "<id a='b'>i</id><content a='b'>c</content>"),
              (Fields{"", "", "", "", "c"}));
}

TEST(AtomFeed, KeepsWhiteSpaceInEverythingButTheBody) {
    EXPECT_EQ(only_entry("<title> t\n</title><name>\tn </name><updated> u\n</updated><id> i\n</id>"),
              (Fields{" i\n", "\tn ", " u\n", " t\n", ""}));
}

TEST(AtomFeed, DecodesEveryField) {
    EXPECT_EQ(only_entry("<title>&lt;t&gt;</title><name>n&amp;</name><email>e&#39;</email><updated>&quot;u</updated>"
                         "<id>i&#65;</id><content>c&nbsp;</content>"),
              (Fields{"iA", "n& <e'>", "\"u", "<t>", "c&nbsp;nbsp;"}));
}

TEST(AtomFeed, ChangesNoFieldButEntriesTheirNumberAndTruncated) {
    for (const std::string& xml : {std::string("<html></html>"), TWO_ENTRIES}) {
        ChangeLog log;
        log.channel = "a";
        log.version = "b";
        log.released = "c";
        log.source_url = "d";
        log.web_url = "e";
        log.success = true;
        log.error = "f";
        ChangeLog expected = log;
        parse_atom_feed(xml, log);
        expected.entries = log.entries;
        expected.total_found = log.total_found;
        expected.truncated = log.truncated;
        EXPECT_EQ(text_of(log), text_of(expected));
    }
}

// ---- Author and id of an entry ----

TEST(AtomFeed, AuthorIsTheNameAndTheAddressInAngleBrackets) {
    EXPECT_EQ(only_entry("<author><name>N</name><email>m@x</email></author>").at(1), "N <m@x>");
    EXPECT_EQ(only_entry("<email>m@x</email><name>N</name>").at(1), "N <m@x>");
    EXPECT_EQ(only_entry("<name>N</name>").at(1), "N");
    EXPECT_EQ(only_entry("<name>N</name><email></email>").at(1), "N");
    EXPECT_EQ(only_entry("<name>N</name><email>m@x").at(1), "N");
    EXPECT_EQ(only_entry("<email>m@x</email>").at(1), " <m@x>");
    EXPECT_EQ(only_entry("<name></name><email>m@x</email>").at(1), " <m@x>");
    EXPECT_EQ(only_entry("<name>N</name><email> </email>").at(1), "N < >");
    EXPECT_EQ(only_entry("<name>N</name><email>&lt;m@x&gt;</email>").at(1), "N <<m@x>>");
}

TEST(AtomFeed, IdIsTwelveCharactersBehindTheLastColon) {
    const std::string hash = "3f1c2d4e5a6b7c8d9e0f3f1c2d4e5a6b7c8d9e0f";
    EXPECT_EQ(id_of(hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of("urn:sha1:" + hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of(":" + hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of("http://git.kernel.example/c/?id=" + hash), "//git.kernel");
    EXPECT_EQ(id_of("urn:sha1:0123456789ab"), "0123456789ab");
    EXPECT_EQ(id_of("urn:sha1:0123"), "0123");
    EXPECT_EQ(id_of("0123"), "0123");
    EXPECT_EQ(id_of("urn:sha1:"), "");
    EXPECT_EQ(id_of(""), "");
    EXPECT_EQ(id_of("a&#58;b"), "b") << "decoded before it is cut";
    EXPECT_EQ(id_of("&#48;123456789abcdef"), "0123456789ab") << "decoded before it is cut";
}

// ---- Content of an entry ----

TEST(AtomFeed, BodyIsTheFirstContentElementAlone) {
    EXPECT_EQ(only_entry("<content>one</content><content>two</content>").at(4), "one");
    EXPECT_EQ(only_entry("<content></content><content>two</content>").at(4), "");
    EXPECT_EQ(only_entry("<content type='text'\n lang=\"en\">one</content>").at(4), "one");
}

TEST(AtomFeed, BodyKeepsTagsInside) {
    EXPECT_EQ(only_entry("<content type='xhtml'><div>\n<b>one</b>\n</div></content>").at(4),
              "<div>\n<b>one</b>\n</div>");
}

TEST(AtomFeed, BodyIsEmptyWithoutACompleteContentElement) {
    EXPECT_EQ(only_entry("<title>t</title>").at(4), "");
    EXPECT_EQ(only_entry("<content>one").at(4), "");
    EXPECT_EQ(only_entry("<content type='text'").at(4), "");
    EXPECT_EQ(only_entry("</content><content>one").at(4), "");
    EXPECT_EQ(only_entry("<content>one</content").at(4), "");
    EXPECT_EQ(only_entry("<content>one</contents>").at(4), "");
    EXPECT_EQ(only_entry("< content>one</content>").at(4), "");
    EXPECT_EQ(only_entry("<Content>one</Content>").at(4), "");
    EXPECT_EQ(only_entry("<xcontent>one</content>").at(4), "");
}

TEST(AtomFeed, TakesAnyTagThatBeginsLikeContentForContent) {
    EXPECT_EQ(only_entry("<contents>a</contents><content>b</content>").at(4), "a</contents><content>b");
    EXPECT_EQ(only_entry("<content/><content>b</content>").at(4), "<content>b");
    EXPECT_EQ(only_entry("<content a='>'>b</content>").at(4), "'>b");
}

TEST(AtomFeed, StripsTheEndOfTheBodyAfterDecodingIt) {
    EXPECT_EQ(body_of("t", "one \t\r\n two \n\n \t\r\n"), "one \t\r\n two");
    EXPECT_EQ(body_of("t", "one&#32;&#10;&#9;"), "one");
    EXPECT_EQ(body_of("t", "one\v"), "one\v");
    EXPECT_EQ(body_of("t", " \n\t "), "");
}

TEST(AtomFeed, LeavesIndentationAndTrailingBlanksOfLines) {
    EXPECT_EQ(body_of("t", "    one  \n\n\ttwo \nthree"), "    one  \n\n\ttwo \nthree");
}

TEST(AtomFeed, DropsAFirstLineThatRepeatsTheTitle) {
    EXPECT_EQ(body_of("t", "t\none\ntwo"), "one\ntwo");
    EXPECT_EQ(body_of("t", "t\n\n\n\none"), "one");
    EXPECT_EQ(body_of("t", "t"), "");
    EXPECT_EQ(body_of("t", "t\n\n"), "");
    EXPECT_EQ(body_of("t", "t \n"), "") << "the end is stripped before they are compared";
    EXPECT_EQ(body_of("t", "t\nt\none"), "t\none") << "once";
    EXPECT_EQ(body_of("t", "t\n\nt\none"), "t\none") << "once";
}

TEST(AtomFeed, KeepsAFirstLineThatDiffersFromTheTitle) {
    EXPECT_EQ(body_of("t", "tt\none"), "tt\none");
    EXPECT_EQ(body_of("tt", "t\none"), "t\none");
    EXPECT_EQ(body_of("t", "T\none"), "T\none");
    EXPECT_EQ(body_of("t", " t\none"), " t\none");
    EXPECT_EQ(body_of("t", "t \none"), "t \none");
    EXPECT_EQ(body_of("t", "t\r\none"), "t\r\none");
    EXPECT_EQ(body_of("t ", "t\none"), "t\none");
    EXPECT_EQ(body_of("t", "one\nt"), "one\nt");
}

TEST(AtomFeed, DropsNoTitleBehindALineFeed) {
    EXPECT_EQ(body_of("t", "\nt\none"), "t\none");
    EXPECT_EQ(body_of("", "\n\none"), "one");
}

TEST(AtomFeed, TakesLineFeedsAloneFromTheStartOfTheBody) {
    EXPECT_EQ(body_of("t", "\n\n\none"), "one");
    EXPECT_EQ(body_of("t", "\n\n  one"), "  one");
    EXPECT_EQ(body_of("t", "\n\t\n\none"), "\t\n\none");
    EXPECT_EQ(body_of("t", "\r\none"), "\r\none");
    EXPECT_EQ(body_of("t", "t\n\n \n\none"), " \n\none");
}

TEST(AtomFeed, ComparesTitleAndContentDecoded) {
    EXPECT_EQ(body_of("a &amp; b", "a &amp; b\none"), "one");
    EXPECT_EQ(body_of("a &amp; b", "a &#38; b\none"), "one");
    EXPECT_EQ(body_of("&lt;t&gt;", "&#60;t&#x3E;&#10;one"), "one");
    EXPECT_EQ(body_of("&amp;lt;", "&lt;\none"), "<\none");
}

TEST(AtomFeed, ComparesContentWithAnEmptySubjectToo) {
    EXPECT_EQ(only_entry("<content>one\ntwo</content>").at(4), "one\ntwo");
    EXPECT_EQ(only_entry("<content>\none\ntwo</content>").at(4), "one\ntwo");
    EXPECT_EQ(only_entry("<title a='b'>one</title><content>one\ntwo</content>").at(4), "one\ntwo");
}

// ---- Its length ----

std::string numbered_entries(int count) {
    std::string xml = "<feed>";
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        xml += "<entry><title>S" + number + "</title><id>urn:" + number + "</id></entry>\n";
    }
    return xml + "</feed>";
}

TEST(AtomFeed, KeepsFourHundredEntriesAndCountsTheRest) {
    for (const auto& [found, kept, truncated] : LENGTHS) {
        const ChangeLog log = log_of_feed(numbered_entries(found));
        EXPECT_EQ(log.total_found, found);
        EXPECT_EQ(log.truncated, truncated) << found;
        ASSERT_EQ(log.entries.size(), kept) << found;
        for (size_t i = 0; i < kept; ++i) {
            const std::string n = std::to_string(i + 1);
            ASSERT_EQ(fields_of(log.entries[i]), (Fields{n, "", "", "S" + n, ""}));
        }
    }
}

TEST(AtomFeed, AddsToWhatIsThere) {
    ChangeLog log = log_of_feed("<entry><title>kept</title></entry>");
    log.total_found = 5;
    parse_atom_feed(TWO_ENTRIES, log);
    ASSERT_EQ(log.entries.size(), 3U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"", "", "", "kept", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), FIRST_ENTRY);
    EXPECT_EQ(fields_of(log.entries[2]), SECOND_ENTRY);
    EXPECT_EQ(log.total_found, 7);
    EXPECT_TRUE(log.truncated);

    ChangeLog almost = log_of_feed(numbered_entries(399));
    parse_atom_feed(TWO_ENTRIES, almost);
    ASSERT_EQ(almost.entries.size(), 400U);
    EXPECT_EQ(fields_of(almost.entries[399]), FIRST_ENTRY);
    EXPECT_EQ(almost.total_found, 401);
    EXPECT_TRUE(almost.truncated);

    ChangeLog whole;
    whole.truncated = true;
    parse_atom_feed("<html></html>", whole);
    EXPECT_FALSE(whole.truncated);
}

TEST(AtomFeed, CutAtAnyByteNeverTellsMoreThanTheWhole) {
    int before = 0;
    for (size_t cut = 0; cut <= TWO_ENTRIES.size(); ++cut) {
        const ChangeLog part = log_of_feed(TWO_ENTRIES.substr(0, cut));
        ASSERT_EQ(part.entries.size(), static_cast<size_t>(part.total_found)) << cut;
        ASSERT_GE(part.total_found, before) << cut;
        ASSERT_LE(part.total_found, 2) << cut;
        before = part.total_found;
        for (size_t i = 0; i < part.entries.size(); ++i) {
            ASSERT_EQ(fields_of(part.entries[i]), i == 0 ? FIRST_ENTRY : SECOND_ENTRY) << cut;
        }
    }
    EXPECT_EQ(before, 2);
}

/// The rules one after the other: each element searched in the whole entry.
ChangeLog log_of_feed_by_the_rules(const std::string& xml) {
    ChangeLog log;
    for (size_t pos = 0;;) {
        const size_t start = xml.find("<entry>", pos);
        if (start == std::string::npos) break;
        const size_t end = xml.find("</entry>", start);
        if (end == std::string::npos) break;
        const std::string block = xml.substr(start, end - start);
        pos = end + 8;

        const auto value = [&block](const std::string& tag) -> std::string {
            const size_t open = block.find("<" + tag + ">");
            if (open == std::string::npos) return "";
            const size_t text = open + tag.size() + 2;
            const size_t close = block.find("</" + tag + ">", text);
            return close == std::string::npos ? "" : xml_unescape(block.substr(text, close - text));
        };
        ChangeEntry ce;
        ce.subject = value("title");
        ce.author = value("name");
        if (const std::string mail = value("email"); !mail.empty()) ce.author += " <" + mail + ">";
        ce.date = value("updated");
        const std::string id = value("id");
        ce.id = id.substr(id.find_last_of(':') + 1).substr(0, 12);
        const size_t content = block.find("<content");
        const size_t open = content == std::string::npos ? content : block.find('>', content);
        const size_t close = open == std::string::npos ? open : block.find("</content>", open);
        if (close != std::string::npos) ce.body = trim_right(xml_unescape(block.substr(open + 1, close - open - 1)));
        if (!ce.body.empty()) {
            const size_t feed = ce.body.find('\n');
            if (ce.body.substr(0, feed) == ce.subject) ce.body.erase(0, feed == std::string::npos ? feed : feed + 1);
            while (ce.body.starts_with('\n')) ce.body.erase(0, 1);
        }
        log.total_found += 1;
        if (log.entries.size() < 400) log.entries.push_back(ce);
    }
    log.truncated = static_cast<int>(log.entries.size()) < log.total_found;
    return log;
}

TEST(AtomFeed, OfAnyTagsReadsAsTheRulesTell) {
    std::vector<std::string> pieces = {
        "<entry>", "</entry>", "<content", " type='text'>", "</content>", "<content>", "<",     "</", ">", "/>",
        "text",    "a:b",      "\n",       "\n\n",          " ",          "&lt;",      "&#10;", ":"};
    for (const std::string tag : {"title", "name", "email", "updated", "id"}) {
        for (const std::string& piece : {"<" + tag + ">", "</" + tag + ">", "<" + tag + ">text</" + tag + ">"}) {
            pieces.push_back(piece);
        }
    }
    std::mt19937 random(20261123);
    std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 60);
    int subjects = 0;
    int bodies = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string xml;
        if (i % 4 != 0) xml = "<entry>";
        for (int n = length(random); n > 0; --n) xml += pieces[piece(random)];
        if (i % 4 > 1) xml += "</content></entry>";
        const ChangeLog expected = log_of_feed_by_the_rules(xml);
        ASSERT_EQ(text_of(log_of_feed(xml)), text_of(expected)) << xml;
        for (const ChangeEntry& entry : expected.entries) {
            subjects += !entry.subject.empty();
            bodies += !entry.body.empty();
        }
    }
    EXPECT_GT(subjects, 1000);
    EXPECT_GT(bodies, 1000);
}

// ---- The load of a changelog ----

const std::string INDEX = PAGE + "releases.json";
const std::string CDN = "https://cdn.kernel.org/";
const std::string CHANGELOGS = CDN + "pub/linux/kernel/v7.x/ChangeLog-";
const std::string STABLE_TREE = "https://git.kernel.org/pub/scm/linux/kernel/git/stable/linux.git";
const std::string MAINLINE_TREE = "https://git.kernel.org/pub/scm/linux/kernel/git/mainkeeper/linux.git";
const std::string ERROR_PAGE = "<html>\n<head><title>404 Not Found</title></head>\n<body></body>\n</html>\n";
const std::string NO_VERSION =
    "Could not reach Kernhaven and no version is known yet.\nCheck your network connection and try Refresh.";

std::string refused_address(const std::string& url) {
    return "Kernhaven returned an unexpected changelog address:\n" + url;
}

std::string no_changes(const std::string& channel, const std::string& version) {
    return "No changes could be loaded for " + channel + " " + version +
           ".\nKernhaven may be unreachable, or this release has no published\nchangelog yet.";
}

/// Returns an index with one record, whose members behind its moniker are `members`.
std::string index_of(const std::string& channel, const std::string& members) {
    return "{\"releases\": [{\"moniker\": \"" + channel + "\", " + members + "}]}";
}

/// Returns the commands of a fetch that wget answers.
Fields answered(const std::string& url) {
    return {"wget|-qO-|--timeout=15|" + url};
}

/// Returns the commands of a fetch that wget does not answer.
Fields unanswered(const std::string& url) {
    return {"wget|-qO-|--timeout=15|" + url, "curl|-sL|--max-time|15|" + url};
}

Fields joined(const std::vector<Fields>& lists) {
    Fields all;
    for (const Fields& list : lists) all.insert(all.end(), list.begin(), list.end());
    return all;
}

/// The net, of which nothing can be reached but what a test publishes.
class FetchChangelog : public testing::Test {
  protected:
    FetchChangelog() { install(); }

    /// Lets wget find `body` at `url`, in place of what was there.
    void publish(const std::string& url, const std::string& body) {
        wget_.insert(0, answer(url, body));
        install();
    }

    /// Lets wget fail at `url`, where curl finds an error page.
    void publish_error(const std::string& url) {
        curl_.insert(0, answer(url, ERROR_PAGE));
        install();
    }

    /// Returns what a load of these gives that could not be successful.
    static ChangeLog failed(const std::string& channel, const std::string& version, const std::string& error) {
        ChangeLog log;
        log.channel = channel;
        log.version = version;
        log.error = error;
        return log;
    }

    /// Returns what a load gives that found TWO_COMMITS at `url`.
    static ChangeLog from_text(const std::string& channel, const std::string& version, const std::string& released,
                               const std::string& url) {
        ChangeLog log = log_of_text(TWO_COMMITS);
        log.channel = channel;
        log.version = version;
        log.released = released;
        log.source_url = url;
        log.web_url = url;
        log.success = true;
        return log;
    }

    /// Returns what a load gives that found TWO_ENTRIES in the feed of `branch`.
    static ChangeLog from_feed(const std::string& channel, const std::string& version, const std::string& released,
                               const std::string& tree, const std::string& branch) {
        ChangeLog log = log_of_feed(TWO_ENTRIES);
        log.channel = channel;
        log.version = version;
        log.released = released;
        log.source_url = tree + "/atom/?h=" + branch;
        log.web_url = tree + "/log/?h=" + branch;
        log.success = true;
        return log;
    }

    static std::string stable_feed(const std::string& branch) { return STABLE_TREE + "/atom/?h=" + branch; }

    StandIns tools;

  private:
    std::string answer(const std::string& url, const std::string& body) {
        const std::string file = tools.file("body-" + std::to_string(++bodies_)).string();
        write_text(file, body);
        return "'" + url + "') cat '" + file + "'; exit ;;\n";
    }

    void install() const {
        tools.add("wget", "case \"$3\" in\n" + wget_ + "esac\nexit 8");
        tools.add("curl", "case \"$4\" in\n" + curl_ + "esac\nexit 6");
    }

    int bodies_ = 0;
    std::string wget_;
    std::string curl_;
};

TEST_F(FetchChangelog, ReadsTheTextThatTheIndexNames) {
    const std::string url = CDN + "pub/linux/somewhere/else";
    publish(INDEX, index_of("stable", R"("version": "7.2.5", "released": {"isodate": "2026-11-21"}, "changelog": ")" +
                                          url + "\""));
    publish(url, TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")), text_of(from_text("stable", "7.2.5", "2026-11-21", url)));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(url)}));
}

TEST_F(FetchChangelog, TakesTheKnownVersionWithoutAnIndex) {
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
    EXPECT_EQ(tools.calls(), joined({unanswered(INDEX), answered(CHANGELOGS + "7.2.4")}));
}

TEST_F(FetchChangelog, ReadsTheFeedWhereAnErrorPageComesInPlaceOfTheText) {
    publish_error(CHANGELOGS + "7.2.4");
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_feed("stable", "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.2.4"), answered(stable_feed("linux-7.2.y"))}));
}

TEST_F(FetchChangelog, ReadsTheMasterBranchForACandidateWithoutAnAddress) {
    publish(INDEX, index_of("mainline", R"("version": "7.3-rc5", "changelog": null, "isodate": "2026-11-15")"));
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3-rc5")),
              text_of(from_feed("mainline", "7.3-rc5", "2026-11-15", MAINLINE_TREE, "master")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(MAINLINE_TREE + "/atom/?h=master")}));
}

TEST_F(FetchChangelog, ReadsTheTextOfACandidateThatHasAnAddress) {
    publish(INDEX, index_of("mainline", R"("version": "7.3-rc5", "changelog": "https://www.kernel.org/rc5")"));
    publish(PAGE + "rc5", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "")), text_of(from_text("mainline", "7.3-rc5", "", PAGE + "rc5")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(PAGE + "rc5")}));
}

TEST_F(FetchChangelog, ReadsTheTextOfAFinalMainlineRelease) {
    publish(INDEX, index_of("mainline", R"("version": "7.3", "isodate": "2026-12-06")"));
    publish(CHANGELOGS + "7.3", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3-rc5")),
              text_of(from_text("mainline", "7.3", "2026-12-06", CHANGELOGS + "7.3")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(CHANGELOGS + "7.3")}));
}

TEST_F(FetchChangelog, ReadsTheMasterBranchForAFinalMainlineReleaseWithoutAText) {
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3")),
              text_of(from_feed("mainline", "7.3", "", MAINLINE_TREE, "master")));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.3"), answered(MAINLINE_TREE + "/atom/?h=master")}));
}

// ---- The version that is loaded ----

TEST_F(FetchChangelog, MakesNoFurtherRequestWithoutAVersion) {
    EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(failed("stable", "", NO_VERSION)));
    EXPECT_EQ(tools.calls(), unanswered(INDEX));
}

TEST_F(FetchChangelog, NeedsAKnownVersionWhereTheIndexHasNot) {
    for (const std::string& index : {index_of("mainline", R"("version": "7.3")"), ERROR_PAGE}) {
        publish(INDEX, index);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(failed("stable", "", NO_VERSION))) << index;
        EXPECT_EQ(tools.calls(), answered(INDEX));
    }
}

TEST_F(FetchChangelog, KeepsTheDateOfARecordWithoutAVersion) {
    publish(INDEX,
            index_of("stable", R"("version": null, "isodate": "2026-11-21", "changelog": "https://kernel.org/x")"));
    ChangeLog expected = failed("stable", "", NO_VERSION);
    expected.released = "2026-11-21";
    EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(expected));
    EXPECT_EQ(tools.calls(), answered(INDEX));
}

TEST_F(FetchChangelog, TakesTheKnownVersionForARecordWithoutOneButItsDateAndAddress) {
    for (const char* version : {"\"no\": 1", "\"version\": null", "\"version\": \"\""}) {
        publish(INDEX, index_of("stable", std::string(version) +
                                              R"(, "isodate": "2026-11-21", "changelog": "https://kernel.org/x")"));
        publish("https://kernel.org/x", TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
                  text_of(from_text("stable", "7.2.4", "2026-11-21", "https://kernel.org/x")))
            << version;
    }
}

TEST_F(FetchChangelog, TakesTheKnownVersionWhereTheIndexHasNotTheChannel) {
    publish(INDEX,
            index_of("mainline", R"("version": "7.3", "isodate": "2026-12-06", "changelog": "https://kernel.org/x")"));
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
}

TEST_F(FetchChangelog, TakesTheKnownVersionWhereAnErrorPageComesInPlaceOfTheIndex) {
    publish_error(INDEX);
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
    EXPECT_EQ(tools.calls(), joined({unanswered(INDEX), answered(CHANGELOGS + "7.2.4")}));
}

TEST_F(FetchChangelog, DerivesTheAddressFromTheVersionOfTheIndex) {
    for (const char* changelog : {"\"no\": 1", "\"changelog\": null", "\"changelog\": \"\""}) {
        publish(INDEX, index_of("longterm", R"("version": "6.18.51", )" + std::string(changelog)));
        publish(CDN + "pub/linux/kernel/v6.x/ChangeLog-6.18.51", TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("longterm", "6.18.50")),
                  text_of(from_text("longterm", "6.18.51", "", CDN + "pub/linux/kernel/v6.x/ChangeLog-6.18.51")))
            << changelog;
    }
}

// ---- Where the text lies ----

TEST_F(FetchChangelog, TakesAnAddressOnEachOfTheFourHosts) {
    for (const std::string& host : HOSTS) {
        const std::string url = host + "/ChangeLog";
        publish(INDEX, index_of("stable", R"("version": "7.2.5", "changelog": ")" + url + "\""));
        publish(url, TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(from_text("stable", "7.2.5", "", url)));
    }
}

TEST_F(FetchChangelog, EndsAtAnAddressThatItRefuses) {
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    for (const std::string& url : {
             std::string("https://cdn.kernel.org/it's"),
             std::string("https://veldrin.example/ChangeLog"),
             std::string("http://cdn.kernel.org/ChangeLog"),
             std::string("https://cdn.kernel.org.veldrin.example/ChangeLog"),
             std::string(R"(https:\/\/cdn.kernel.org\/ChangeLog)"),
             std::string("https://cdn.kernel.org/Change Log"),
             std::string("https://cdn.kernel.org/\xc3\xa9"),
             std::string("ChangeLog"),
             std::string(" "),
             CDN + std::string(512, 'a'),
         }) {
        publish(INDEX,
                index_of("stable", R"("version": "7.2.5", "isodate": "2026-11-21", "changelog": ")" + url + "\""));
        tools.forget_calls();
        ChangeLog expected = failed("stable", "7.2.5", refused_address(url));
        expected.released = "2026-11-21";
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")), text_of(expected));
        EXPECT_EQ(tools.calls(), answered(INDEX)) << url;
    }
}

TEST_F(FetchChangelog, RefusesADerivedAddressToo) {
    for (const std::string& version : {std::string("7.2'5"), std::string("7.2 5"), "7." + std::string(512, '1')}) {
        const ChangeLog expected = failed("stable", version, refused_address(CHANGELOGS + version));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", version)), text_of(expected));
        EXPECT_EQ(tools.calls(), unanswered(INDEX));
    }
}

// ---- From the text to the feed ----

TEST_F(FetchChangelog, ForgetsAnAddressWithoutAText) {
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(failed("stable", "7.2.4", no_changes("stable", "7.2.4"))));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.2.4"), unanswered(stable_feed("linux-7.2.y"))}));
}

TEST_F(FetchChangelog, KeepsTheAddressOfATextWithoutCommits) {
    ChangeLog expected = failed("longterm", "7.2.4", no_changes("longterm", "7.2.4"));
    expected.source_url = CHANGELOGS + "7.2.4";
    expected.web_url = CHANGELOGS + "7.2.4";

    publish(CHANGELOGS + "7.2.4", "    no commit\n");
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")), text_of(expected)) << "the feed is out of reach";

    publish_error(stable_feed("linux-7.2.y"));
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")), text_of(expected)) << "the feed has no entries";
}

TEST_F(FetchChangelog, TakesTheAddressesOfAFeedInPlaceOfATextWithoutCommits) {
    publish(CHANGELOGS + "7.2.4", "    no commit\n");
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")),
              text_of(from_feed("longterm", "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
}

TEST_F(FetchChangelog, FailsWithAFeedWithoutEntries) {
    for (const std::string& feed : {ERROR_PAGE, std::string("<feed></feed>"), std::string("<feed><entry></feed>")}) {
        publish(stable_feed("linux-7.2-rc1.y"), feed);
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2-rc1")),
                  text_of(failed("stable", "7.2-rc1", no_changes("stable", "7.2-rc1"))));
    }
}

TEST_F(FetchChangelog, FailsWithATextInPlaceOfAFeed) {
    publish(stable_feed("linux-7.2-rc1.y"), TWO_COMMITS);
    EXPECT_FALSE(fetch_changelog("stable", "7.2-rc1").success);
}

TEST_F(FetchChangelog, KeepsFourHundredOfALongText) {
    publish(CHANGELOGS + "7.3", numbered_commits(401));
    const ChangeLog log = fetch_changelog("mainline", "7.3");
    EXPECT_TRUE(log.success);
    EXPECT_TRUE(log.truncated);
    EXPECT_EQ(log.entries.size(), 400U);
    EXPECT_EQ(log.total_found, 401);
    EXPECT_EQ(log.error, "");
}

TEST_F(FetchChangelog, KeepsFourHundredOfALongFeed) {
    publish(MAINLINE_TREE + "/atom/?h=master", numbered_entries(500));
    const ChangeLog log = fetch_changelog("mainline", "7.3-rc5");
    EXPECT_TRUE(log.success);
    EXPECT_TRUE(log.truncated);
    EXPECT_EQ(log.entries.size(), 400U);
    EXPECT_EQ(log.total_found, 500);
    EXPECT_EQ(log.error, "");
}

// ---- The branch of a feed ----

TEST_F(FetchChangelog, CutsTheVersionToTwoPartsForTheBranch) {
    for (const auto& [version, branch] : std::vector<std::pair<std::string, std::string>>{
             {"7.2", "linux-7.2.y"},
             {"7.2.12", "linux-7.2.y"},
             {"7.2.12.3", "linux-7.2.y"},
             {"7.2-rc5", "linux-7.2-rc5.y"},
             {"7.2.1-rc5", "linux-7.2.y"},
             {"7.2-rc5.1", "linux-7.2-rc5.y"},
             {"7", "linux-7.y"},
             {"next-20261120", "linux-next-20261120.y"},
             {"10.20.30", "linux-10.20.y"},
             {"7.", "linux-7..y"},
             {"7..1", "linux-7..y"},
             {".5", "linux-.5.y"},
             {"..", "linux-..y"},
         }) {
        for (const char* channel : {"stable", "longterm"}) {
            publish(stable_feed(branch), TWO_ENTRIES);
            EXPECT_EQ(text_of(fetch_changelog(channel, version)),
                      text_of(from_feed(channel, version, "", STABLE_TREE, branch)));
            EXPECT_EQ(tools.calls().back(), answered(stable_feed(branch)).at(0));
        }
    }
}

TEST_F(FetchChangelog, TakesAnyOtherChannelForAStableOne) {
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    for (const char* channel : {"linux-next", "Mainline", "mainline ", "MAINLINE", "Ünbekannt", ""}) {
        EXPECT_EQ(text_of(fetch_changelog(channel, "7.2.4")),
                  text_of(from_feed(channel, "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
        EXPECT_EQ(text_of(fetch_changelog(channel, "")), text_of(failed(channel, "", NO_VERSION)));
        EXPECT_EQ(text_of(fetch_changelog(channel, "8-rc1")),
                  text_of(failed(channel, "8-rc1", no_changes(channel, "8-rc1"))));
    }
}

TEST_F(FetchChangelog, LooksUpThatVeryChannelInTheIndex) {
    publish(INDEX, R"([{"moniker": "mainline", "version": "7.3", "isodate": "2026-12-06"},
                       {"moniker": "stable", "version": "7.2.5", "isodate": "2026-11-21"},
                       {"moniker": "longterm", "version": "6.18.51", "isodate": "2026-11-22"}])");
    const auto loaded = [](const char* channel) {
        const ChangeLog log = fetch_changelog(channel, "1.0");
        return Fields{log.channel, log.version, log.released};
    };
    EXPECT_EQ(loaded("mainline"), (Fields{"mainline", "7.3", "2026-12-06"}));
    EXPECT_EQ(loaded("stable"), (Fields{"stable", "7.2.5", "2026-11-21"}));
    EXPECT_EQ(loaded("longterm"), (Fields{"longterm", "6.18.51", "2026-11-22"}));
    EXPECT_EQ(loaded("linux-next"), (Fields{"linux-next", "1.0", ""}));
}

TEST_F(FetchChangelog, TakesAFeedAddressThatItRefusesForAnEmptyFeed) {
    for (const std::string& version : {std::string("x'y"), std::string("next 1"), std::string("7.2-rc'"),
                                       std::string("7'.2"), std::string(512, 'x')}) {
        const ChangeLog expected = failed("stable", version, no_changes("stable", version));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", version)), text_of(expected));
        EXPECT_EQ(tools.calls(), unanswered(INDEX));
    }
}

TEST_F(FetchChangelog, ReadsTheMasterBranchWhateverTheVersionHolds) {
    const std::string version = "7.3-rc'; x";
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", version)),
              text_of(from_feed("mainline", version, "", MAINLINE_TREE, "master")));
}

// ---- What the net must not do ----

TEST_F(FetchChangelog, NeverLetsTheIndexReachTheShellAsCode) {
    const std::string marker = tools.file("marked").string();
    tools.add("mark", "touch '" + marker + "'");
    const auto marked = [&] { return std::filesystem::remove(marker); };
    // Without quotes round them, or with quotes of their own, these do run: their silence below says something.
    for (const std::string& word :
         {std::string("$(mark)"), std::string(";mark;:"), std::string("&mark&wait"), "$(touch$IFS" + marker + ")",
          std::string("`mark`"), std::string("'';mark;:''"), std::string("''$(mark)''")}) {
        exec_command(("printf %s a" + word).c_str());
        ASSERT_TRUE(marked()) << word;
    }

    const std::vector<std::string> allowed = {"$(mark)", ";mark;",       "&mark&",
                                              "&&mark",  "(mark)",       "$(touch$IFS" + marker + ")",
                                              "#;mark",  "$IFS;mark",    "*;mark;?[a]$((1))!",
                                              "$mark",   "%27;mark;%27", "@mark:=$(mark)"};
    for (const std::string& code : allowed) {
        const std::string url = CDN + "a" + code;
        publish(INDEX, index_of("stable", R"("version": "7.2.5", "changelog": ")" + url + "\""));
        publish(url, TWO_COMMITS);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(from_text("stable", "7.2.5", "", url)));
        EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(url)}));
        EXPECT_FALSE(marked()) << code;

        const std::string version = "7.2." + code;
        publish(INDEX, index_of("stable", R"("version": ")" + version + "\""));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")),
                  text_of(failed("stable", version, no_changes("stable", version))));
        EXPECT_EQ(tools.calls(),
                  joined({answered(INDEX), unanswered(CHANGELOGS + version), unanswered(stable_feed("linux-7.2.y"))}));
        EXPECT_FALSE(marked()) << code;

        const std::string series = "x" + code;
        const std::string feed = stable_feed("linux-" + series + ".y");
        publish(INDEX, index_of("stable", R"("version": ")" + series + "\""));
        publish(feed, TWO_ENTRIES);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")),
                  text_of(from_feed("stable", series, "", STABLE_TREE, "linux-" + series + ".y")));
        EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(feed)}));
        EXPECT_FALSE(marked()) << code;
    }

    for (const std::string code :
         {"';mark;'", "'$(mark)'", "'\n mark\n'", "`mark`'`mark`", "|mark", "'|mark|'", ">x"}) {
        for (const std::string& members : {R"("version": "7.2.5", "changelog": ")" + CDN + code + "\"",
                                           "\"version\": \"7.2." + code + "\"", "\"version\": \"x" + code + "\""}) {
            publish(INDEX, index_of("stable", members));
            tools.forget_calls();
            EXPECT_FALSE(fetch_changelog("stable", "").success);
            EXPECT_EQ(tools.calls(), answered(INDEX)) << members;
            EXPECT_FALSE(marked()) << members;
        }
    }
}

TEST_F(FetchChangelog, RunsOnSeveralThreadsAtOnce) {
    publish(INDEX, R"([{"moniker": "mainline", "version": "7.3-rc5", "isodate": "2026-11-15"},
                       {"moniker": "stable", "version": "7.2.5", "isodate": "2026-11-21"}])");
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    publish(CHANGELOGS + "7.2.5", TWO_COMMITS);
    ChangeLog logs[6];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(logs); ++i) {
        threads.emplace_back([&logs, i] { logs[i] = fetch_changelog(i % 2 == 0 ? "mainline" : "stable", ""); });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < std::size(logs); ++i) {
        EXPECT_EQ(text_of(logs[i]),
                  text_of(i % 2 == 0 ? from_feed("mainline", "7.3-rc5", "2026-11-15", MAINLINE_TREE, "master")
                                     : from_text("stable", "7.2.5", "2026-11-21", CHANGELOGS + "7.2.5")));
    }
}

}  // namespace
