#include "kernel_checker.h"

#include "sites.h"

#include <glib.h>
#include <stdio_ext.h>
#include <sys/utsname.h>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace {

/// The Last-Modified value of the page fetched last, as the server sent it, or empty. Check thread only. Never
/// destroyed, because that thread outlives the static destructors of a process that quits during a check.
std::string& g_last_modified = *new std::string;

/// Runs a shell command line and returns what it printed on standard output, or empty if it exited with any other
/// status than 0.
std::string exec_command(const char* cmd) {
    std::string result;
    FILE* pipe = popen(cmd, "r");
    if (!pipe) return result;
    // No other thread uses this stream, and since glibc 2.38 exit() waits for every stream's lock: a silent server
    // would hold up Quit.
    __fsetlocking(pipe, FSETLOCKING_BYCALLER);

    char buffer[4096];
    while (fgets(buffer, sizeof buffer, pipe)) result += buffer;
    if (pclose(pipe) != 0) result.clear();
    return result;
}

/// Returns the body behind `url`, or empty. The caller vouches that `url` holds nothing that ends a single-quoted
/// shell word. The body may be an error page: curl is not told to fail on one.
std::string fetch_url(const std::string& url) {
    std::string body = exec_command(("wget -qO- --timeout=15 '" + url + "' 2>/dev/null").c_str());
    if (!body.empty()) return body;
    return exec_command(("curl -sL --max-time 15 '" + url + "' 2>/dev/null").c_str());
}

/// Returns `text` such that, between single quotes, the shell reads it as that very text.
std::string inside_single_quotes(std::string_view text) {
    std::string quoted;
    for (const char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted;
}

/// Returns false if the release site says that the front page is the one seen last. Every failure counts as modified
/// and so leads on to a real fetch.
bool page_modified() {
    if (g_last_modified.empty()) return true;

    const std::string request = " --header='If-Modified-Since: " + inside_single_quotes(g_last_modified) +
                                "' --timeout=10 '" VELDRIN_RELEASE_SITE "' 2>&1";
    std::string output = exec_command(("wget -q --spider" + request).c_str());
    output = exec_command(("wget -S --spider" + request + " | grep -c '304'").c_str());
    return output.empty() || output[0] == '0';
}

/// Returns the front page's Last-Modified value, or empty.
std::string fetch_last_modified() {
    std::string value = exec_command("wget -S --spider --timeout=10 '" VELDRIN_RELEASE_SITE
                                     "' 2>&1 | grep -i 'Last-Modified:' | sed 's/.*Last-Modified: *//'");
    while (!value.empty() && (value.back() == '\r' || value.back() == '\n')) value.pop_back();
    return value;
}

/// A stretch of a subject, in bytes from its start.
struct Span {
    size_t begin;
    size_t end;
};

/// Searches `text` for the first match of `pattern`, in raw bytes and in any case, and puts capture group `group` into
/// `span`. Returns false if there is none; an expression or a match that fails counts as none.
bool search(const std::string& pattern, std::string_view text, int group, Span& span) {
    struct Release {
        void operator()(GRegex* regex) const { g_regex_unref(regex); }
        void operator()(GMatchInfo* match) const { g_match_info_free(match); }
    };
    constexpr auto flags = static_cast<GRegexCompileFlags>(G_REGEX_CASELESS | G_REGEX_RAW);
    const std::unique_ptr<GRegex, Release> regex(g_regex_new(pattern.c_str(), flags, GRegexMatchFlags{}, nullptr));
    if (!regex) return false;

    GMatchInfo* found = nullptr;
    const bool matched = g_regex_match_full(regex.get(), text.data(), static_cast<gssize>(text.size()), 0,
                                            GRegexMatchFlags{}, &found, nullptr);
    const std::unique_ptr<GMatchInfo, Release> match(found);
    int begin = 0;
    int end = 0;
    if (!matched || !g_match_info_fetch_pos(match.get(), group, &begin, &end)) return false;
    // Positions are ints: in a text beyond their range they come out wrong.
    if (begin < 0 || end < begin) return false;
    span = {static_cast<size_t>(begin), static_cast<size_t>(end)};
    return true;
}

// The pieces of both expressions below, which are "<td[^>]*>\s*LABEL\s*:?\s*</td>" and
// "<td[^>]*>\s*(?:<strong>)?\s*([0-9][0-9a-z._-]*)\s*(?:</strong>)?\s*</td>" of the ECMAScript grammar.
//
// GLib's \s also takes two bytes above ASCII for blanks, so the blanks are spelt out. No quantifier can ever give back
// anything that would help, so all are possessive. (*SKIP) goes on behind the tag once a cell has not matched: another
// "<td" within the tag would end at the same ">" and fail in the same way. Both together keep a search linear.
constexpr char LABEL_CELL_OPENS[] = "<td[^>]*+(*SKIP)>[\\t-\\r ]*+";
constexpr char LABEL_CELL_CLOSES[] = "[\\t-\\r ]*+:?+[\\t-\\r ]*+</td>";
constexpr char VERSION_CELL[] =
    "<td[^>]*+(*SKIP)>[\\t-\\r ]*+(?:<strong>)?+[\\t-\\r ]*+([0-9][0-9a-z._-]*+)[\\t-\\r ]*+(?:</strong>)?+[\\t-\\r ]*+"
    "</td>";

/// Returns the first version-like cell behind the cell that reads `label`, or empty. `label` stands in an expression
/// as it is. The cell need not be in the label's row.
std::string extract_first(const std::string& html, const std::string& label) {
    Span cell{};
    if (!search(LABEL_CELL_OPENS + label + LABEL_CELL_CLOSES, html, 0, cell)) return {};

    const std::string_view rest = std::string_view(html).substr(cell.end);
    Span version{};
    if (!search(VERSION_CELL, rest, 1, version)) return {};
    return std::string(rest.substr(version.begin, version.end - version.begin));
}

}  // namespace

KernelVersions fetch_kernel_versions() {
    KernelVersions versions;
    if (!page_modified()) return versions;

    const std::string html = fetch_url(VELDRIN_RELEASE_SITE);
    if (html.empty()) return versions;

    g_last_modified = fetch_last_modified();
    versions.mainline = extract_first(html, "mainline");
    versions.stable = extract_first(html, "stable");
    versions.longterm = extract_first(html, "longterm");
    versions.success = !versions.stable.empty();
    return versions;
}

std::string get_running_kernel() {
    utsname names{};
    return uname(&names) == 0 ? names.release : "unknown";
}
