// SPDX-License-Identifier: MIT
// The ChangeLog text of a release: its commits, their lines, messages and line ends, and how many of them are kept.
#include "kernel_checker_support.h"

#include "../fuzz/changelog_models.h"

#include <regex>

namespace {

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

/// Kept on purpose: a header line counts behind the message, too.
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

/// Kept on purpose: every such line counts, whatever follows the word.
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

TEST(ChangelogText, OfAnyLinesReadsLikeItsModel) {
    const std::vector<std::string> pieces = pieces_of(
        "commit |commit 0123456789abcdef\n|\ncommit 1\n|commit|Author:|Author: A <a@b>\n|Date:|"
        "Date:   D\n|Merge: 1 2\n|    |    |\n    text|\n    more text\n|\n|\n\n|\n|\r\n|\r| |  |\t|text|"
        "\v|\xff|\n        code\n|\n    \n|\n    commit 2 upstream.\n|\n   three\n|\n\ttab\n");
    RandomTexts texts(pieces, 40, 20261122);
    int bodies = 0;
    for (int i = 0; i < 5000; ++i) {
        const std::string text = (i % 2 == 0 ? "commit 0\n" : "") + texts.next();
        ChangeLog expected;
        model::parse_changelog_text(text, expected);
        ASSERT_EQ(text_of(log_of_text(text)), text_of(expected)) << text;
        for (const ChangeEntry& entry : expected.entries) bodies += !entry.body.empty();
    }
    EXPECT_GT(bodies, 1000);
}

}  // namespace
