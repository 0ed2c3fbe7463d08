// SPDX-License-Identifier: MIT
// Prints what the program reads from a file, so that readers of another make can be held against it:
//   parse_dump page FILE LABEL...      each label's version
//   parse_dump index FILE CHANNEL...   each channel's version, changelog address and release date
//   parse_dump changelog FILE         how many commits there are, then id, author, date, subject and body of those kept
//   parse_dump feed FILE               the same of a feed
//   parse_dump fetch CHANNEL VERSION   a whole load: its fields, and then its commits
// Each line is a JSON array of strings, and each character of a string is one byte.
#include "kernel_checker.cpp"

#include <fstream>
#include <iostream>
#include <sstream>

namespace {

void print_json(const std::vector<std::string>& values) {
    std::string line;
    for (const std::string& value : values) {
        line += line.empty() ? "[\"" : ", \"";
        for (const char c : value) {
            const bool plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            line += plain ? std::string(1, c) : escape;
        }
        line += '"';
    }
    std::cout << line << "]\n";
}

void print_entries(const ChangeLog& log) {
    for (const ChangeEntry& entry : log.entries) {
        print_json({entry.id, entry.author, entry.date, entry.subject, entry.body});
    }
}

void print_log(const ChangeLog& log) {
    print_json({std::to_string(log.total_found)});
    print_entries(log);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() < 2) return 2;
    const std::string& kind = arguments[0];
    if (kind == "fetch") {
        const ChangeLog log = fetch_changelog(arguments.at(1), arguments.at(2));
        print_json({log.channel, log.version, log.released, log.source_url, log.web_url,
                    std::to_string(log.total_found), std::to_string(log.truncated), std::to_string(log.success),
                    log.error});
        print_entries(log);
        return 0;
    }

    std::ifstream file(arguments[1], std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file) return 1;
    const std::string text = content.str();
    const std::vector<std::string> names(arguments.begin() + 2, arguments.end());

    ChangeLog log;
    if (kind == "page") {
        for (const std::string& label : names) print_json({extract_first(text, label)});
    } else if (kind == "index") {
        for (const std::string& channel : names) {
            std::string version = "untouched";
            std::string changelog = "untouched";
            std::string released = "untouched";
            release_index_lookup(text, channel, version, changelog, released);
            print_json({version, changelog, released});
        }
    } else if (kind == "changelog") {
        parse_changelog_text(text, log);
        print_log(log);
    } else if (kind == "feed") {
        parse_atom_feed(text, log);
        print_log(log);
    } else {
        return 2;
    }
}
