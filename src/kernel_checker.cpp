// SPDX-License-Identifier: MIT
// First the commands that all traffic goes through, then the version check, then a release's changes: where they lie,
// their two forms, and the choice between them. The public functions stand last.
#include "kernel_checker.h"

#include "sites.h"

#include <glib.h>
#include <stdio_ext.h>
#include <sys/utsname.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace {

/// How many commits of one release are kept and shown.
constexpr size_t MAX_ENTRIES = 400;

/// The Last-Modified value of the page fetched last, as the server sent it, or empty. Check thread only. Never
/// destroyed: when the process quits during a check, that thread outlives the static destructors.
std::string& g_last_modified = *new std::string;

// ---- Commands -------------------------------------------------------------------------------------------------------

/// Runs a shell command line and returns what it printed on standard output, or empty if it exited with any other
/// status than 0.
std::string exec_command(const char* cmd) {
    std::string result;
    FILE* pipe = popen(cmd, "r");
    if (!pipe) return result;
    // Without this, a silent server would hold up Quit: since glibc 2.38 exit() waits for every stream's lock. No other
    // thread uses this stream, so it needs none.
    __fsetlocking(pipe, FSETLOCKING_BYCALLER);

    char buffer[4096];
    while (fgets(buffer, sizeof buffer, pipe)) result += buffer;
    if (pclose(pipe) != 0) result.clear();
    return result;
}

/// Returns the body behind `url`, or empty. `url` must hold no byte that ends single quotes. Kept on purpose: curl is
/// not told to fail on an error, so the body may be an error page.
std::string fetch_url(const std::string& url) {
    std::string body = exec_command(("wget -qO- --timeout=15 '" + url + "' 2>/dev/null").c_str());
    if (!body.empty()) return body;
    return exec_command(("curl -sL --max-time 15 '" + url + "' 2>/dev/null").c_str());
}

// ---- The version check ----------------------------------------------------------------------------------------------

/// Returns `text` in the form in which it stands for itself between single quotes of the shell.
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

/// Returns false if the release site says that its front page has not changed since the last fetch. Every failure
/// counts as a change, and so leads to a real fetch.
bool page_modified() {
    if (g_last_modified.empty()) return true;

    const std::string request = " --header='If-Modified-Since: " + inside_single_quotes(g_last_modified) +
                                "' --timeout=10 '" VELDRIN_RELEASE_SITE "' 2>&1";
    // Kept on purpose: the first answer is thrown away, and the second one counts.
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

/// Part of a text, in bytes from the text's start.
struct Span {
    size_t begin;
    size_t end;
};

/// Searches `text`, taken as raw bytes, for the first match of `pattern`, and puts its capture group `group` into
/// `span`. Returns false if there is no match, and also if the expression or the search fails.
bool search(const std::string& pattern, GRegexCompileFlags flags, std::string_view text, int group, Span& span) {
    struct Release {
        void operator()(GRegex* regex) const { g_regex_unref(regex); }
        void operator()(GMatchInfo* match) const { g_match_info_free(match); }
    };
    const auto raw = static_cast<GRegexCompileFlags>(flags | G_REGEX_RAW);
    const std::unique_ptr<GRegex, Release> regex(g_regex_new(pattern.c_str(), raw, GRegexMatchFlags{}, nullptr));
    if (!regex) return false;

    GMatchInfo* found = nullptr;
    const bool matched = g_regex_match_full(regex.get(), text.data(), static_cast<gssize>(text.size()), 0,
                                            GRegexMatchFlags{}, &found, nullptr);
    const std::unique_ptr<GMatchInfo, Release> match(found);
    int begin = 0;
    int end = 0;
    if (!matched || !g_match_info_fetch_pos(match.get(), group, &begin, &end)) return false;
    // Positions are ints, so in a text beyond their range they are wrong.
    if (begin < 0 || end < begin) return false;
    span = {static_cast<size_t>(begin), static_cast<size_t>(end)};
    return true;
}

// The pieces of two expressions, which in the ECMAScript grammar are "<td[^>]*>\s*LABEL\s*:?\s*</td>" and
// "<td[^>]*>\s*(?:<strong>)?\s*([0-9][0-9a-z._-]*)\s*(?:</strong>)?\s*</td>".
//
// GLib's \s also takes two bytes above ASCII for blanks, so the blanks are spelt out. Two changes keep a search linear
// and find the same cells. Every quantifier is possessive: none could give back a byte that would help. And (*SKIP)
// resumes behind the tag of a cell that did not match: another "<td" inside that tag would end at the same ">".
constexpr char LABEL_CELL_OPENS[] = "<td[^>]*+(*SKIP)>[\\t-\\r ]*+";
constexpr char LABEL_CELL_CLOSES[] = "[\\t-\\r ]*+:?+[\\t-\\r ]*+</td>";
constexpr char VERSION_CELL[] =
    "<td[^>]*+(*SKIP)>[\\t-\\r ]*+(?:<strong>)?+[\\t-\\r ]*+([0-9][0-9a-z._-]*+)[\\t-\\r ]*+(?:</strong>)?+[\\t-\\r ]*+"
    "</td>";

/// Returns the first cell behind the one that reads `label` that looks like a version, or empty. `label` must hold no
/// character that means something in an expression. Kept on purpose: the cell need not be in the label's row.
std::string extract_first(const std::string& html, const std::string& label) {
    Span cell{};
    if (!search(LABEL_CELL_OPENS + label + LABEL_CELL_CLOSES, G_REGEX_CASELESS, html, 0, cell)) return {};

    const std::string_view rest = std::string_view(html).substr(cell.end);
    Span version{};
    if (!search(VERSION_CELL, G_REGEX_CASELESS, rest, 1, version)) return {};
    return std::string(rest.substr(version.begin, version.end - version.begin));
}

// ---- Where a release's change list lies ----------------------------------------------------------------------------

/// Says whether `url` may stand between single quotes in a command: an address of one of the project's hosts, without a
/// byte that could end the quotes or that an address has no use for.
bool is_safe_kernel_url(const std::string& url) {
    constexpr std::string_view hosts[] = {VELDRIN_RELEASE_CDN, VELDRIN_RELEASE_SITE, VELDRIN_RELEASE_APEX,
                                          VELDRIN_GIT_BROWSER};
    constexpr size_t MAX_LENGTH = 512;

    return std::ranges::any_of(hosts, [&](std::string_view host) { return url.starts_with(host); }) &&
           url.size() <= MAX_LENGTH && holds_only(url, ADDRESS_BYTES);
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view without_trailing_blanks(std::string_view text) {
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string trim_right(std::string s) {
    s.resize(without_trailing_blanks(s).size());
    return s;
}

/// Returns the text value of the first `key` in `json` between `from` and `to`, or empty if there is none or if it is
/// no text. Kept on purpose: a search within these bounds, which knows no nesting and no escape.
std::string json_field(const std::string& json, size_t from, size_t to, const std::string& key) {
    const std::string needle = '"' + key + '"';
    const size_t found = json.find(needle, from);
    if (found >= to) return {};
    const size_t colon = json.find(':', found + needle.size());
    if (colon >= to) return {};
    const size_t open = json.find_first_not_of(" \t\r\n", colon + 1);
    if (open >= to || json[open] != '"') return {};
    const size_t close = json.find('"', open + 1);
    if (close >= to) return {};
    return json.substr(open + 1, close - open - 1);
}

/// Reads the newest release of `channel` from the release index. If the index has no such channel, all three outputs
/// stay as they are; if the channel's record lacks a key, that key's output becomes empty.
void release_index_lookup(const std::string& json, const std::string& channel, std::string& version,
                          std::string& changelog, std::string& released) {
    constexpr std::string_view MONIKER = "\"moniker\"";
    size_t pos = json.find("\"moniker\": \"" + channel + '"');
    if (pos == std::string::npos) {
        // "moniker"\s*:\s*"CHANNEL", with the blanks spelt out as above.
        Span record{};
        const std::string any_spacing = "\"moniker\"[\\t-\\r ]*+:[\\t-\\r ]*+\"" + channel + '"';
        if (!search(any_spacing, GRegexCompileFlags{}, json, 0, record)) return;
        pos = record.begin;
    }

    const size_t next = json.find(MONIKER, pos + MONIKER.size());
    const size_t end = next == std::string::npos ? json.size() : next;
    version = json_field(json, pos, end, "version");
    changelog = json_field(json, pos, end, "changelog");
    released = json_field(json, pos, end, "isodate");
}

/// Returns where the ChangeLog of `version` should lie, or empty for what is no final release's version.
std::string guess_changelog_url(const std::string& version) {
    const size_t dot = version.find('.');
    if (dot == std::string::npos || dot == 0) return {};
    const std::string major = version.substr(0, dot);
    if (major.find_first_not_of("0123456789") != std::string::npos) return {};
    if (version.find("rc") != std::string::npos) return {};
    return VELDRIN_RELEASE_CDN "pub/linux/kernel/v" + major + ".x/ChangeLog-" + version;
}

// ---- The ChangeLog text ---------------------------------------------------------------------------------------------

/// Returns what stands behind the colon of a header line, without blanks around it.
std::string_view header_value(std::string_view text) {
    const std::string_view value = without_trailing_blanks(text);
    return value.substr(std::min(value.find_first_not_of(' '), value.size()));
}

/// Appends the commits of a ChangeLog file, which has the form of `git log`, to `out`. Beyond MAX_ENTRIES they are only
/// counted.
void parse_changelog_text(const std::string& text, ChangeLog& out) {
    ChangeEntry cur;
    bool in_entry = false;
    // The lines behind the subject. One buffer serves all commits.
    std::string rest;
    const auto flush = [&] {
        if (!in_entry) return;
        cur.body = without_trailing_blanks(rest);
        ++out.total_found;
        if (out.entries.size() < MAX_ENTRIES) out.entries.push_back(std::move(cur));
        cur = {};
        rest.clear();
    };
    // The first line that is not empty is the subject; empty lines behind it are passed over.
    const auto add_message_line = [&](std::string_view line) {
        if (cur.subject.empty()) {
            cur.subject = line;
        } else if (!line.empty() || !rest.empty()) {
            rest.append(line) += '\n';
        }
    };

    for (size_t pos = 0; pos <= text.size();) {
        const size_t end = std::min(text.find('\n', pos), text.size());
        std::string_view line = std::string_view(text).substr(pos, end - pos);
        if (line.ends_with('\r')) line.remove_suffix(1);
        pos = end + 1;

        if (in_entry && line.starts_with("    ")) {
            add_message_line(without_trailing_blanks(line.substr(4)));
        } else if (line.starts_with("commit ")) {
            flush();
            in_entry = true;
            cur.id = line.substr(7, 12);
        } else if (!in_entry) {
            // What stands before the first commit belongs to no commit.
        } else if (line.starts_with("Author:")) {
            cur.author = header_value(line.substr(7));
        } else if (line.starts_with("Date:")) {
            cur.date = header_value(line.substr(5));
        } else if (line.empty()) {
            add_message_line(line);
        }
    }
    flush();
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

// ---- The Atom feed --------------------------------------------------------------------------------------------------

/// Returns the character that the reference called `name` stands for, or NUL for a name that is not known.
char named_character(std::string_view name) {
    if (name == "lt") return '<';
    if (name == "gt") return '>';
    if (name == "amp") return '&';
    if (name == "quot") return '"';
    if (name == "apos") return '\'';
    return '\0';
}

/// Returns the number of a numeric reference's name, which begins with "#"; 0 for none.
long reference_number(std::string_view name) {
    const bool hexadecimal = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
    const std::string digits(name.substr(hexadecimal ? 2 : 1));
    return std::strtol(digits.c_str(), nullptr, hexadecimal ? 16 : 10);
}

/// Returns a code point as UTF-8, a surrogate too, or empty if it has no form of three bytes or fewer.
std::string utf8(long cp) {
    const auto byte = [](long value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (cp < 1 || cp > 0xFFFF) return {};
    if (cp < 0x80) return {byte(cp)};
    if (cp < 0x800) return {byte(0xC0 + (cp >> 6)), byte(0x80 + (cp & 0x3F))};
    return {byte(0xE0 + (cp >> 12)), byte(0x80 + ((cp >> 6) & 0x3F)), byte(0x80 + (cp & 0x3F))};
}

/// Returns `in` with its references decoded: five by name, and numeric ones of up to three bytes of UTF-8.
std::string xml_unescape(std::string_view in) {
    // Kept on purpose: a semicolon farther off ends no reference.
    constexpr size_t FARTHEST_SEMICOLON = 10;

    std::string out;
    out.reserve(in.size());
    for (size_t pos = 0;;) {
        const size_t amp = std::min(in.find('&', pos), in.size());
        out += in.substr(pos, amp - pos);
        if (amp == in.size()) return out;

        const size_t semicolon = in.substr(amp, FARTHEST_SEMICOLON + 1).find(';');
        if (semicolon == std::string_view::npos) {
            out += '&';
            pos = amp + 1;
            continue;
        }
        const std::string_view reference = in.substr(amp, semicolon + 1);
        const std::string_view name = reference.substr(1, semicolon - 1);
        pos = amp + reference.size();
        if (const char character = named_character(name)) {
            out += character;
        } else if (name.starts_with('#')) {
            const std::string decoded = utf8(reference_number(name));
            out += decoded.empty() ? reference : decoded;
        } else {
            // Kept on purpose: an unknown name is read once more as text, and so stands in the result twice.
            out += reference;
            pos = amp + 1;
        }
    }
}

/// Returns the decoded text of the first element called `tag` in `block`, or empty. A tag with attributes is another.
std::string xml_tag_value(std::string_view block, std::string_view tag) {
    const std::string name(tag);
    const size_t open = block.find("<" + name + ">");
    if (open == std::string_view::npos) return {};
    const size_t start = open + name.size() + 2;
    const size_t end = block.find("</" + name + ">", start);
    if (end == std::string_view::npos) return {};
    return xml_unescape(block.substr(start, end - start));
}

/// Returns the text of an entry's first content element as it stands, whatever its attributes, or empty.
std::string_view raw_content(std::string_view block) {
    const size_t tag_end = block.find('>', block.find("<content"));
    const size_t end = block.find("</content>", tag_end);
    if (end == std::string_view::npos) return {};
    return block.substr(tag_end + 1, end - tag_end - 1);
}

/// Returns a commit's message without its first line, if that is the subject, and without empty lines at its start.
std::string_view body_behind(std::string_view subject, std::string_view message) {
    const size_t first_end = std::min(message.find('\n'), message.size());
    const bool repeated = message.substr(0, first_end) == subject;
    const size_t start = message.find_first_not_of('\n', repeated ? first_end : 0);
    return message.substr(std::min(start, message.size()));
}

ChangeEntry parse_atom_entry(std::string_view block) {
    ChangeEntry ce;
    ce.subject = xml_tag_value(block, "title");
    ce.author = xml_tag_value(block, "name");
    const std::string mail = xml_tag_value(block, "email");
    if (!mail.empty()) ce.author += " <" + mail + ">";
    ce.date = xml_tag_value(block, "updated");
    const std::string id = xml_tag_value(block, "id");
    const size_t colon = id.rfind(':');
    ce.id = id.substr(colon == std::string::npos ? 0 : colon + 1, 12);
    ce.body = body_behind(ce.subject, trim_right(xml_unescape(raw_content(block))));
    return ce;
}

/// Appends the commits of a feed of the git browser to `out`. Beyond MAX_ENTRIES they are only counted. No parser of
/// XML: it searches the tags that such a feed has.
void parse_atom_feed(const std::string& xml, ChangeLog& out) {
    constexpr std::string_view ENTRY_END = "</entry>";
    for (size_t start = xml.find("<entry>"); start != std::string::npos;) {
        const size_t end = xml.find(ENTRY_END, start);
        if (end == std::string::npos) break;
        ++out.total_found;
        if (out.entries.size() < MAX_ENTRIES) {
            out.entries.push_back(parse_atom_entry(std::string_view(xml).substr(start, end - start)));
        }
        start = xml.find("<entry>", end + ENTRY_END.size());
    }
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

// ---- The choice between the two -------------------------------------------------------------------------------------

/// Returns the path of the git tree that `channel` lies in, below the git browser.
std::string repository(const std::string& channel) {
    return channel == "mainline" ? VELDRIN_MAINLINE_TREE : "pub/scm/linux/kernel/git/stable/linux.git";
}

/// Returns the branch that releases of `version` come from.
std::string branch_of(const std::string& channel, const std::string& version) {
    if (channel == "mainline") return "master";
    const size_t d1 = version.find('.');
    const size_t d2 = d1 == std::string::npos ? d1 : version.find('.', d1 + 1);
    return "linux-" + version.substr(0, d2) + ".y";
}

}  // namespace

// This module is compiled for speed, for its parsers' sake. What is cold waits for the network, and is compiled small.

[[gnu::cold]] KernelVersions fetch_kernel_versions() {
    KernelVersions versions;
    if (!page_modified()) return versions;

    const std::string html = fetch_url(VELDRIN_RELEASE_SITE);
    if (html.empty()) return versions;

    g_last_modified = fetch_last_modified();
    // A member without a name here does not compile.
    auto& [mainline, stable, longterm, success] = versions;
    mainline = extract_first(html, "mainline");
    stable = extract_first(html, "stable");
    longterm = extract_first(html, "longterm");
    success = !stable.empty();
    return versions;
}

[[gnu::cold]] ChangeLog fetch_changelog(const std::string& channel, const std::string& known_version) {
    ChangeLog out;
    out.channel = channel;

    std::string version;
    std::string changelog_url;
    std::string released;
    const std::string index = fetch_url(VELDRIN_RELEASE_SITE "releases.json");
    if (!index.empty()) release_index_lookup(index, channel, version, changelog_url, released);
    if (version.empty()) version = known_version;
    out.version = version;
    out.released = released;
    if (version.empty()) {
        out.error =
            "Could not reach Kernhaven and no version is known yet.\nCheck your network connection and try Refresh.";
        return out;
    }

    if (changelog_url.empty()) changelog_url = guess_changelog_url(version);
    if (!changelog_url.empty()) {
        if (!is_safe_kernel_url(changelog_url)) {
            out.error = "Kernhaven returned an unexpected changelog address:\n" + changelog_url;
            return out;
        }
        const std::string text = fetch_url(changelog_url);
        if (!text.empty()) {
            out.source_url = changelog_url;
            out.web_url = changelog_url;
            parse_changelog_text(text, out);
            out.success = !out.entries.empty();
            if (out.success) return out;
        }
    }

    const std::string tree = VELDRIN_GIT_BROWSER + repository(channel);
    const std::string branch = branch_of(channel, version);
    const std::string atom = tree + "/atom/?h=" + branch;
    // The version in it may come from the net.
    if (is_safe_kernel_url(atom)) {
        const std::string xml = fetch_url(atom);
        if (!xml.empty()) parse_atom_feed(xml, out);
        out.success = !out.entries.empty();
        if (out.success) {
            out.source_url = atom;
            out.web_url = tree + "/log/?h=" + branch;
            return out;
        }
    }

    out.error = "No changes could be loaded for " + channel + " " + version +
                ".\nKernhaven may be unreachable, or this release has no published\nchangelog yet.";
    return out;
}

std::string get_running_kernel() {
    utsname names{};
    return uname(&names) == 0 ? names.release : "unknown";
}
