// SPDX-License-Identifier: MIT
// What the tests of the kernel checker share: addresses, texts of hostile sizes, texts put together at random, change
// logs written down as text, and two commits in each of the two forms that the net has them in. Test thread only.
#pragma once

#include "support.h"

#include "kernel_checker.cpp"

#include <random>

inline const std::string PAGE = "https://www.kernel.org/";
inline const std::vector<std::string> HOSTS = {"https://cdn.kernel.org", "https://www.kernel.org", "https://kernel.org",
                                               "https://git.kernel.org"};

// ---- Texts ----

inline std::string text_of(int byte) {
    return std::string(1, static_cast<char>(byte));
}

/// Returns what stands between the bars of `text`.
inline std::vector<std::string> pieces_of(const std::string& text) {
    std::vector<std::string> pieces;
    std::istringstream rest(text);
    for (std::string piece; std::getline(rest, piece, '|');) pieces.push_back(piece);
    return pieces;
}

/// Texts that are up to `most` pieces in random order; the same ones in every run.
class RandomTexts {
  public:
    RandomTexts(std::vector<std::string> pieces, int most, unsigned int seed)
        : pieces_(std::move(pieces)), piece_(0, pieces_.size() - 1), length_(1, most), random_(seed) {}

    std::vector<std::string> next_pieces() {
        std::vector<std::string> chosen;
        for (int n = length_(random_); n > 0; --n) chosen.push_back(pieces_[piece_(random_)]);
        return chosen;
    }
    std::string next() {
        std::string text;
        for (const std::string& piece : next_pieces()) text += piece;
        return text;
    }

  private:
    std::vector<std::string> pieces_;
    std::uniform_int_distribution<size_t> piece_;
    std::uniform_int_distribution<int> length_;
    std::mt19937 random_;
};

// ---- Texts that nobody should send ----

inline std::string repeat(const std::string& text, size_t bytes) {
    std::string result;
    result.reserve(bytes + text.size());
    while (result.size() < bytes) result += text;
    return result;
}

constexpr size_t MEGABYTE = 1000 * 1000;

/// A text that is costly for a reader that is not linear.
struct Shape {
    const char* name;
    std::string (*page)();
};

inline void PrintTo(const Shape& shape, std::ostream* out) {
    *out << shape.name;
}

// ---- Change logs ----

using Fields = std::vector<std::string>;

/// Returns id, author, date, subject and body.
inline Fields fields_of(const ChangeEntry& entry) {
    return {entry.id, entry.author, entry.date, entry.subject, entry.body};
}

/// Returns all of `log`, a line or more for each field, so that a difference shows its place.
inline std::string text_of(const ChangeLog& log) {
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

// ---- Two commits as a ChangeLog and as a feed ----

inline ChangeLog log_of_text(const std::string& text) {
    ChangeLog log;
    parse_changelog_text(text, log);
    return log;
}

inline const std::string TWO_COMMITS =
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

inline const Fields FIRST = {"3f1c2d4e5a6b", "Rowan Field <rowan@kernel.example>", "Sat Nov 21 09:15:00 2026 +0100",
                             "Linux 7.2.5", "Tested-by: Sam Reed <sam@kernel.example>"};
inline const Fields SECOND = {"a0b1c2d3e4f5", "Kim Marsh <kim@kernel.example>", "Fri Nov 20 18:00:01 2026 -0500",
                              "net: dry: close the door behind the last packet",
                              "commit 9999999999999999999999999999999999999999 upstream.\n"
                              "\n"
                              "The door stood open:\n"
                              "\n"
                              "    while (!closed)\n"
                              "        wait();\n"
                              "\n"
                              "Signed-off-by: Kim Marsh <kim@kernel.example>"};

inline std::string numbered_commits(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        text += "commit " + number + "\nAuthor: A" + number + "\nDate:   D" + number + "\n\n    S" + number +
                "\n    \n    commit 0 upstream.\n    B" + number + "\n\n";
    }
    return text;
}

inline ChangeLog log_of_feed(const std::string& xml) {
    ChangeLog log;
    parse_atom_feed(xml, log);
    return log;
}

inline const std::string TWO_ENTRIES =
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

inline const Fields FIRST_ENTRY = {"3f1c2d4e5a6b", "Rowan Field <rowan@kernel.example>", "2026-11-21T08:15:00Z",
                                   "Linux 7.2.5", "Tested-by: Sam Reed <sam@kernel.example>"};
inline const Fields SECOND_ENTRY = {"a0b1c2d3e4f5", "Kim Marsh <kim@kernel.example>", "2026-11-20T23:00:01Z",
                                    "net: dry & \"warm\"",
                                    "commit 9999999999999999999999999999999999999999 upstream.\n"
                                    "\n"
                                    "    while (a < b && c)\n"
                                    "\n"
                                    "Signed-off-by: Kim Marsh <kim@kernel.example>"};

inline std::string numbered_entries(int count) {
    std::string xml = "<feed>";
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        xml += "<entry><title>S" + number + "</title><id>urn:" + number + "</id></entry>\n";
    }
    return xml + "</feed>";
}

/// How many commits a text has, how many of them are kept, and whether it counts as cut.
struct Length {
    int found;
    size_t kept;
    bool truncated;
};

constexpr Length LENGTHS[] = {
    {399, 399, false}, {400, 400, false}, {401, 400, true}, {402, 400, true}, {5000, 400, true}};
