// SPDX-License-Identifier: MIT
// Slow, literal readings of a ChangeLog text and of a feed, to compare the parsers with. A commit's lines are kept
// until its end, and each element is searched in the whole entry.
#pragma once

#include "kernel_checker.h"

#include "models.h"

#include <string>
#include <vector>

namespace model {

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines(1);
    for (const char c : text) {
        if (c == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += c;
        }
    }
    for (std::string& line : lines) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
    }
    return lines;
}

inline std::string value_of(const std::string& line, size_t name_length) {
    std::string value = trim_right(line.substr(name_length));
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    return value;
}

inline void parse_changelog_text(const std::string& text, ChangeLog& out) {
    ChangeEntry cur;
    bool in_entry = false;
    std::vector<std::string> msg;

    const auto flush = [&] {
        if (!in_entry) return;
        size_t i = 0;
        while (i < msg.size() && msg[i].empty()) ++i;
        if (i < msg.size()) cur.subject = msg[i++];
        std::string rest;
        for (; i < msg.size(); ++i) {
            const bool skipped = msg[i].empty() && rest.empty();
            if (!skipped) rest += msg[i] + "\n";
        }
        cur.body = trim_right(rest);
        out.total_found += 1;
        if (out.entries.size() < 400) out.entries.push_back(cur);
        cur = ChangeEntry();
        msg.clear();
    };

    for (const std::string& line : lines_of(text)) {
        if (line.substr(0, 7) == "commit ") {
            flush();
            in_entry = true;
            cur.id = line.substr(7).substr(0, 12);
        } else if (in_entry && line.substr(0, 7) == "Author:") {
            cur.author = value_of(line, 7);
        } else if (in_entry && line.substr(0, 5) == "Date:") {
            cur.date = value_of(line, 5);
        } else if (in_entry && line.substr(0, 4) == "    ") {
            msg.push_back(trim_right(line.substr(4)));
        } else if (in_entry && line.empty()) {
            msg.emplace_back();
        }
    }
    flush();
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

inline std::string tag_value(const std::string& block, const std::string& tag) {
    const std::string open = "<" + tag + ">";
    const std::string close = "</" + tag + ">";
    const size_t at = model::find(block, open, 0);
    if (at == std::string::npos) return "";
    const size_t begin = at + open.size();
    const size_t end = model::find(block, close, begin);
    if (end == std::string::npos) return "";
    return xml_unescape(block.substr(begin, end - begin));
}

inline ChangeEntry atom_entry(const std::string& block) {
    ChangeEntry ce;
    ce.subject = tag_value(block, "title");
    ce.author = tag_value(block, "name");
    const std::string mail = tag_value(block, "email");
    if (mail != "") ce.author += " <" + mail + ">";
    ce.date = tag_value(block, "updated");

    std::string id = tag_value(block, "id");
    while (model::find(id, ":", 0) != std::string::npos) id = id.substr(model::find(id, ":", 0) + 1);
    ce.id = id.size() > 12 ? id.substr(0, 12) : id;

    const size_t content = model::find(block, "<content", 0);
    if (content != std::string::npos) {
        const size_t opened = model::find(block, ">", content);
        const size_t closed =
            opened == std::string::npos ? std::string::npos : model::find(block, "</content>", opened);
        if (closed != std::string::npos) {
            ce.body = trim_right(xml_unescape(block.substr(opened + 1, closed - opened - 1)));
        }
    }
    if (!ce.body.empty()) {
        const size_t feed = model::find(ce.body, "\n", 0);
        const std::string first = feed == std::string::npos ? ce.body : ce.body.substr(0, feed);
        if (first == ce.subject) ce.body = feed == std::string::npos ? "" : ce.body.substr(feed + 1);
        while (!ce.body.empty() && ce.body.front() == '\n') ce.body.erase(0, 1);
    }
    return ce;
}

inline void parse_atom_feed(const std::string& xml, ChangeLog& out) {
    size_t pos = 0;
    while (true) {
        const size_t open = model::find(xml, "<entry>", pos);
        if (open == std::string::npos) break;
        const size_t close = model::find(xml, "</entry>", open);
        if (close == std::string::npos) break;
        const ChangeEntry ce = atom_entry(xml.substr(open, close - open));
        pos = close + 8;
        out.total_found += 1;
        if (out.entries.size() < 400) out.entries.push_back(ce);
    }
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

}  // namespace model
