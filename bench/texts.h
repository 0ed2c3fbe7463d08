// SPDX-License-Identifier: MIT
// Texts of the shapes that the parsers meet, made in memory and the same in every run.
#pragma once

#include <random>
#include <string>
#include <string_view>

namespace texts {

/// The C++ library's generators are the same everywhere, its distributions are not.
class Dice {
  public:
    size_t between(size_t low, size_t high) { return low + generator_() % (high - low + 1); }

  private:
    std::mt19937 generator_{20261121};
};

inline std::string words(Dice& dice, size_t length) {
    constexpr std::string_view vocabulary[] = {
        "the",    "a",    "of",    "driver", "when",   "lock",   "is",      "taken",  "twice",
        "buffer", "and",  "then",  "freed",  "before", "probe",  "returns", "an",     "error",
        "so",     "that", "queue", "may",    "never",  "wake",   "up",      "on",     "suspend",
        "fix",    "this", "by",    "check",  "result", "length", "first",   "device", "register"};
    std::string text;
    while (text.size() < length) {
        if (!text.empty()) text += ' ';
        text += vocabulary[dice.between(0, std::size(vocabulary) - 1)];
    }
    text.resize(length);
    if (text.back() == ' ') text.back() = '.';
    return text;
}

inline std::string hash(Dice& dice) {
    std::string text;
    while (text.size() < 40) text += "0123456789abcdef"[dice.between(0, 15)];
    return text;
}

/// Returns a text of `size` bytes: `parts` over and over, from the first on.
inline std::string repeated(std::string_view parts, size_t size) {
    std::string text;
    text.reserve(size);
    while (text.size() < size) text += parts.substr(0, size - text.size());
    return text;
}

/// A thousand commits as `git log` prints them: 15 to 40 lines of 20 to 75 characters, trailers at the end.
inline std::string commits() {
    Dice dice;
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "commit " + hash(dice) + "\nAuthor: Ada Quill <ada@quill.example>\n" +
                "Date:   Fri Nov 20 17:40:02 2026 -0700\n\n    " + words(dice, dice.between(30, 70)) + "\n    \n";
        if (dice.between(0, 2) == 0) text += "    commit " + hash(dice) + " upstream.\n    \n";
        size_t lines = dice.between(10, 30);
        while (lines > 0) {
            const size_t paragraph = std::min(lines, dice.between(2, 6));
            for (size_t line = 1; line < paragraph; ++line) text += "    " + words(dice, dice.between(55, 71)) + '\n';
            text += "    " + words(dice, dice.between(16, 60)) + "\n    \n";
            lines -= paragraph;
        }
        for (size_t trailers = dice.between(2, 5); trailers > 0; --trailers) {
            text += "    Signed-off-by: Bo Fjall <bo" + std::to_string(trailers) + "@fjall.example>\n";
        }
        text += '\n';
    }
    return text;
}

inline std::string changelog(size_t size) {
    return repeated(commits(), size);
}

/// A feed in the form of today's git browser, with as many entries as `size` bytes hold.
inline std::string feed(size_t size) {
    Dice dice;
    std::string text =
        "<feed xmlns='http://www.w3.org/2005/Atom'>\n<title>lantern/linux.git, branch master</title>\n"
        "<updated>2026-11-20T17:40:02+00:00</updated>\n";
    while (text.size() < size) {
        const std::string id = hash(dice);
        text += "<entry>\n<title>" + words(dice, dice.between(30, 70)) +
                "</title>\n<updated>2026-11-20T17:40:02+00:00</updated>\n<author>\n<name>Ada Quill</name>\n"
                "<email>ada@quill.example</email>\n</author>\n<published>2026-11-20T17:40:02+00:00</published>\n"
                "<link rel='alternate' type='text/html' href='https://git.example/lantern/linux.git/commit/?id=" +
                id + "'/>\n<id>urn:sha1:" + id + "</id>\n<content type='text'>\n";
        for (size_t line = dice.between(3, 20); line > 0; --line) text += words(dice, dice.between(20, 75)) + '\n';
        text += "\n";
        for (size_t trailers = dice.between(2, 8); trailers > 0; --trailers) {
            text += "Signed-off-by: Bo Fjall &lt;bo@fjall.example&gt;\n";
        }
        text += "</content>\n</entry>\n";
    }
    return text + "</feed>\n";
}

/// A front page: so much of a page, and of other tables in it, before the table of the releases.
inline std::string front_page(size_t size) {
    Dice dice;
    std::string text = "<!DOCTYPE html>\n<html>\n<body>\n<table>\n";
    while (text.size() < size) {
        text += "<tr>\n    <td><a href=\"https://site.example/\">" + words(dice, 20) + "</a></td>\n    <td>" +
                words(dice, 30) + "</td>\n    <td>2026-11-20</td>\n</tr>\n<p>" + words(dice, 200) + "</p>\n";
    }
    text += "</table>\n<table id=\"releases\">\n";
    for (const std::string label : {"mainline", "stable", "stable", "longterm", "longterm"}) {
        text += "<tr align=\"left\">\n    <td>" + label +
                ":</td>\n    <td><strong>7.9.3</strong></td>\n    <td>2026-11-20</td>\n    <td>[<a href=\"#\">"
                "tarball</a>] </td>\n    <td> </td>\n</tr>\n";
    }
    return text + "</table>\n</body>\n</html>\n";
}

inline std::string index_record(const std::string& moniker) {
    return "        {\n            \"moniker\": \"" + moniker +
           "\",\n            \"version\": \"7.9.3\",\n            \"iseol\": false,\n            \"released\": {\n"
           "                \"timestamp\": 1795197842,\n                \"isodate\": \"2026-11-20\"\n            },\n"
           "            \"source\": \"https://cdn.example/pub/linux/kernel/v7.x/linux-7.9.3.tar.xz\",\n"
           "            \"pgp\": \"https://cdn.example/pub/linux/kernel/v7.x/linux-7.9.3.tar.sign\",\n"
           "            \"patch\": {\n"
           "                \"full\": \"https://cdn.example/pub/linux/kernel/v7.x/patch-7.9.3.xz\",\n"
           "                \"incremental\": \"https://cdn.example/pub/linux/kernel/v7.x/incr/patch-7.9.2-3.xz\"\n"
           "            },\n"
           "            \"changelog\": \"https://cdn.example/pub/linux/kernel/v7.x/ChangeLog-7.9.3\"\n        }";
}

/// A release index whose three channels stand behind all other records, so that a search reads all of it.
inline std::string index(size_t size) {
    std::string text = "{\n    \"releases\": [\n";
    while (text.size() < size) text += index_record("linux-next") + ",\n";
    return text + index_record("mainline") + ",\n" + index_record("stable") + ",\n" + index_record("longterm") +
           "\n    ]\n}\n";
}

/// A text with a reference every 20 bytes or so: code, as it stands in a commit's message.
inline std::string references(size_t size) {
    constexpr std::string_view some[] = {"&lt;",   "&gt;",   "&amp;",  "&quot;", "&#39;",
                                         "&#x3c;", "&#233;", "&nbsp;", "& "};
    Dice dice;
    std::string text;
    while (text.size() < std::min<size_t>(size, 100'000)) {
        text += words(dice, dice.between(5, 25));
        text += some[dice.between(0, std::size(some) - 1)];
    }
    return repeated(text, size);
}

}  // namespace texts
