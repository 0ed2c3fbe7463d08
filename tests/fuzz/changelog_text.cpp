// Fuzzes the parser of ChangeLog texts, against a second writing of it that keeps a commit's lines until its end.
#include "kernel_checker.cpp"

#include "changelog_properties.h"
#include "models.h"

#include <vector>

namespace {

std::vector<std::string> lines_of(const std::string& text) {
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

std::string value_of(const std::string& line, size_t name_length) {
    std::string value = model::trim_right(line.substr(name_length));
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    return value;
}

void model_changelog_text(const std::string& text, ChangeLog& out) {
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
        cur.body = model::trim_right(rest);
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
            msg.push_back(model::trim_right(line.substr(4)));
        } else if (in_entry && line.empty()) {
            msg.emplace_back();
        }
    }
    flush();
    out.truncated = static_cast<int>(out.entries.size()) < out.total_found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    require_parser_holds(parse_changelog_text, model_changelog_text, text, true);
    return 0;
}
