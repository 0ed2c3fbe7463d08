// SPDX-License-Identifier: MIT
// What must hold for both parsers of change logs.
#pragma once

#include "kernel_checker.h"
#include "property.h"

using ChangeParser = void (*)(const std::string& text, ChangeLog& out);

inline void require_same(const ChangeEntry& actual, const ChangeEntry& expected) {
    require_same(actual.id, expected.id, "an entry's id");
    require_same(actual.author, expected.author, "an entry's author");
    require_same(actual.date, expected.date, "an entry's date");
    require_same(actual.subject, expected.subject, "an entry's subject");
    require_same(actual.body, expected.body, "an entry's body");
}

inline void require_same(const ChangeLog& actual, const ChangeLog& expected) {
    require(actual.total_found == expected.total_found, "as many entries are found as there are");
    require(actual.truncated == expected.truncated, "a list says whether it was cut short");
    require(actual.entries.size() == expected.entries.size(), "as many entries are kept as should be");
    for (size_t i = 0; i < actual.entries.size(); ++i) require_same(actual.entries[i], expected.entries[i]);
    const bool others_untouched = actual.channel == expected.channel && actual.version == expected.version &&
                                  actual.released == expected.released && actual.source_url == expected.source_url &&
                                  actual.web_url == expected.web_url && actual.success == expected.success &&
                                  actual.error == expected.error;
    require(others_untouched, "a parser leaves the other fields alone");
}

inline void require_sound(const ChangeLog& log) {
    require(log.entries.size() <= 400, "no more than 400 entries are kept");
    require(log.total_found >= static_cast<int>(log.entries.size()), "no more entries are kept than are found");
    require(log.truncated == (static_cast<int>(log.entries.size()) < log.total_found), "truncated says what it means");
}

/// Returns a log with `count` entries, as if from an earlier text, and a value in every other field.
inline ChangeLog list_with(size_t count) {
    ChangeLog log;
    log.channel = "stable";
    log.version = "7.9.3";
    log.released = "2026-11-21";
    log.source_url = "source";
    log.web_url = "page";
    log.error = "words";
    log.success = true;
    log.truncated = true;
    log.entries.resize(count);
    log.total_found = static_cast<int>(count);
    return log;
}

inline ChangeLog parsed_into(ChangeLog log, ChangeParser parser, const std::string& text) {
    parser(text, log);
    require_sound(log);
    return log;
}

/// Requires that a parser reads one text like its model, to the byte, into an empty log and into one that is nearly
/// full, and that a part of the text gives the entries of the whole. With `last_may_grow` the last entry of a part may
/// differ, since it ends where the part ends.
inline void require_parser_holds(ChangeParser parser, ChangeParser model, const std::string& text, bool last_may_grow) {
    const std::uint64_t number = number_from(text);

    const ChangeLog whole = parsed_into(list_with(0), parser, text);
    ChangeLog expected = list_with(0);
    model(text, expected);
    require_same(whole, expected);

    if (whole.total_found > 0) {
        const size_t before = 396 + number % 5;
        ChangeLog expected_behind_others = list_with(before);
        model(text, expected_behind_others);
        require_same(parsed_into(list_with(before), parser, text), expected_behind_others);
    }

    const ChangeLog part = parsed_into(list_with(0), parser, text.substr(0, number / 5 % (text.size() + 1)));
    require(part.total_found <= whole.total_found, "a part of a text has no more entries than the whole");
    require(part.entries.size() <= whole.entries.size(), "of a part of a text no more entries are kept");
    const size_t unsure = last_may_grow && !part.truncated ? 1 : 0;
    for (size_t i = 0; i + unsure < part.entries.size(); ++i) require_same(part.entries[i], whole.entries[i]);
}
