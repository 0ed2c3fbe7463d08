// SPDX-License-Identifier: MIT
// What the changes window makes of a result: the list of cards, the card of a failure, texts of any bytes, and then one
// card with its kind, its tag and its author.
#include "changes_window_support.h"

namespace {

// ---- A list -----------------------------------------------------------------------------------------------------

TEST_F(Changes, ListShowsACardForEachCommit) {
    open_with(success());
    EXPECT_EQ(describe(changes_win), R"(
GtkWindow default-height=660 default-width=780 title="Latest Kernel Changes" window-position=center
  GtkBox orientation=vertical
    GtkBox.acc-stable.hdr [start] spacing=14
      GtkImage [start] valign=center
      GtkBox [start expand fill] orientation=vertical spacing=2 valign=center
        GtkLabel.hdr-title [start] label="Latest Kernel Changes" xalign=0
        GtkLabel.hdr-subtitle [start] label="stable  ·  7.2.4  ·  released 2026-03-02" wrap xalign=0
    GtkBox.toolbar [start] spacing=8
      GtkLabel.status [start expand fill] ellipsize=end label="2 changes" xalign=0
      GtkComboBoxText [end] active=1 tooltip-text="Which channel to show. Preselected from Settings; changing it here does not change the panel label." rows=mainline:Mainline,stable:Stable,longterm:Longterm
      GtkButton [end] label="Refresh"
    GtkScrolledWindow [start expand fill]
      GtkViewport
        GtkBox margin-bottom=6 margin-top=6 orientation=vertical
          GtkBox.commit-card.is-fix [start] margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
            GtkBox [start] spacing=8
              GtkLabel.tag.tag-1 [start] label="usb" margin-top=2 valign=start
              GtkExpander [start expand fill]
                GtkLabel.subject label="fix a leak" wrap xalign=0
                GtkLabel.mono label="The buffer was kept.

Cc: stable" margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
            GtkBox [start] spacing=8
              GtkLabel.meta [start expand fill] ellipsize=end label="Ada Example  ·  Mon Mar 2 10:11:12 2026 +0100" xalign=0
              GtkLabel.badge-hash [end] label="9c1d2e3f4a5b" valign=center
          GtkBox.commit-card [start] margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
            GtkBox [start] spacing=8
              GtkLabel.subject [start expand fill] label="Tidy up" wrap xalign=0
            GtkBox [start] spacing=8
              GtkLabel.meta [start expand fill] ellipsize=end label="Bo Example" xalign=0
              GtkLabel.badge-hash [end] label="0a1b2c3d4e5f" valign=center
    GtkBox [start] margin-bottom=10 margin-end=14 margin-start=14 margin-top=8
      GtkLinkButton [start] halign=start label="Open the full changelog on Kernhaven" no-show-all uri="https://www.kernel.org/log"
      GtkButton [end] label="Close"
)");
}

TEST_F(Changes, CardsKeepTheOrderOfTheSource) {
    std::vector<ChangeEntry> entries;
    for (const char* subject : {"c", "a", "b", "a"}) entries.push_back({"", "", "", subject, ""});
    open_with(success(entries));
    std::string subjects;
    for (GtkWidget* card : cards()) subjects += text(descendant(card, {0, 0}));
    EXPECT_EQ(subjects, "caba");
}

TEST_F(Changes, MessageTakesRoomOnlyWhileItIsOpen) {
    open_with(success());
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    const auto height = [] { return gtk_widget_get_allocated_height(descendant(changes_body, {0})); };
    auto* expander = GTK_EXPANDER(descendant(changes_body, {0, 0, 1}));
    const int closed = height();
    EXPECT_LT(closed, 100);
    gtk_expander_set_expanded(expander, TRUE);
    EXPECT_TRUE(run_loop_until([&] { return height() > closed + 20; }));
    gtk_expander_set_expanded(expander, FALSE);
    EXPECT_TRUE(run_loop_until([&] { return height() == closed; }));
}

TEST_F(Changes, StatusCountsTheRows) {
    const ChangeEntry entry{"", "", "", "x", ""};
    open();
    const auto shown = [&entry](size_t rows, int total, bool truncated) {
        ChangeLog log = success(std::vector<ChangeEntry>(rows, entry));
        log.total_found = total;
        log.truncated = truncated;
        apply_result(new LoadResult{g_request, log});
        EXPECT_EQ(cards().size(), rows);
        return status();
    };
    EXPECT_EQ(shown(0, 0, false), "0 changes");
    EXPECT_EQ(shown(1, 1, false), "1 change");
    EXPECT_EQ(shown(2, 2, false), "2 changes");
    EXPECT_EQ(shown(11, 11, false), "11 changes");
    EXPECT_EQ(shown(400, 1200, true), "400 changes shown of 1200 — list capped");
    EXPECT_EQ(shown(400, 1200, false), "400 changes");
    EXPECT_EQ(shown(1, 20000, true), "1 change shown of 20000 — list capped");
    EXPECT_EQ(shown(2, 2, true), "2 changes shown of 2 — list capped");
}

TEST_F(Changes, EmptyListIsNoFailure) {
    open_with(success({}));
    EXPECT_TRUE(cards().empty());
    EXPECT_EQ(status(), "0 changes");
    EXPECT_EQ(subtitle(), "stable  ·  7.2.4  ·  released 2026-03-02");
    EXPECT_TRUE(usable());
}

TEST_F(Changes, SubtitleEndsAfterTheVersionWithoutADate) {
    ChangeLog log = success();
    log.released = "";
    open_with(log);
    EXPECT_EQ(subtitle(), "stable  ·  7.2.4");
}

TEST_F(Changes, SubtitleNamesTheResultsChannel) {
    ChangeLog log = success();
    log.channel = "longterm";
    log.version = "";
    open_with(log);
    EXPECT_EQ(subtitle(), "longterm  ·    ·  released 2026-03-02");
    EXPECT_EQ(accents(), "acc-stable");
}

TEST_F(Changes, LinkLeadsWhereTheResultSays) {
    open();
    EXPECT_EQ(link_address(), VELDRIN_RELEASE_SITE);
    answer(0, success());
    EXPECT_TRUE(link_shown());
    EXPECT_EQ(link_address(), "https://www.kernel.org/log");
    refresh();
    EXPECT_FALSE(link_shown());
    ChangeLog log = success();
    log.web_url = "https://git.kernel.org/other?h=a&b=%20c";
    answer(1, log);
    EXPECT_TRUE(link_shown());
    EXPECT_EQ(link_address(), "https://git.kernel.org/other?h=a&b=%20c");
}

TEST_F(Changes, LinkIsHiddenWithoutAnAddress) {
    ChangeLog log = success();
    log.web_url = "";
    open_with(log);
    EXPECT_FALSE(link_shown());
    apply_result(new LoadResult{g_request, success()});
    EXPECT_TRUE(link_shown());
    apply_result(new LoadResult{g_request, log});
    EXPECT_FALSE(link_shown());
}

TEST_F(Changes, NewResultReplacesTheOld) {
    open_with(success());
    Lives lives;
    for (GtkWidget* card : cards()) lives.watch(card);
    apply_result(new LoadResult{g_request, failure("Gone.")});
    EXPECT_EQ(lives.count(), 0U);
    EXPECT_EQ(cards().size(), 1U);
    apply_result(new LoadResult{g_request, success()});
    EXPECT_EQ(cards().size(), 2U);
}

TEST_F(Changes, ClearingWithoutAWindowDoesNothing) {
    ASSERT_EQ(changes_body, nullptr);
    clear_body();
    open_with(success());
    clear_body();
    EXPECT_TRUE(cards().empty());
    clear_body();
    EXPECT_TRUE(cards().empty());
}

TEST_F(Changes, MessageTakesTheFocusOnlyWhileItsCardIsOpen) {
    open_with(success());
    GtkWidget* expander = descendant(changes_body, {0, 0, 1});
    GtkWidget* message = descendant(expander, {1});
    const auto next = [expander] {
        gtk_widget_grab_focus(expander);
        gtk_widget_child_focus(changes_win, GTK_DIR_TAB_FORWARD);
        return focus();
    };
    EXPECT_EQ(next(), changes_link);
    gtk_expander_set_expanded(GTK_EXPANDER(expander), TRUE);
    EXPECT_EQ(next(), message);
    gtk_expander_set_expanded(GTK_EXPANDER(expander), FALSE);
    EXPECT_EQ(next(), changes_link);
}

// ---- A failure ------------------------------------------------------------------------------------------------------

TEST_F(Changes, FailureShowsItsWordsInACard) {
    ChangeLog log = failure("Kernhaven did not answer.\nIs there a connection?");
    log.web_url = "https://www.kernel.org/log";
    log.version = "7.2.4";
    open_with(log);
    EXPECT_EQ(describe(changes_body), R"(
GtkBox margin-bottom=6 margin-top=6 orientation=vertical
  GtkBox.card [start] margin-end=16 margin-start=16 margin-top=16 orientation=vertical spacing=6
    GtkLabel.val-strong [start] label="Could not load the changes" xalign=0
    GtkLabel.error-text [start] label="Kernhaven did not answer.
Is there a connection?" selectable wrap xalign=0
)");
    EXPECT_EQ(status(), "Nothing loaded.");
    EXPECT_EQ(subtitle(), "no data");
    EXPECT_FALSE(link_shown());
    EXPECT_EQ(link_address(), VELDRIN_RELEASE_SITE);
    EXPECT_TRUE(usable());
}

TEST_F(Changes, FailureKeepsTheChannelsColour) {
    state.channel = "longterm";
    open_with(failure("No."));
    EXPECT_EQ(accents(), "acc-longterm");
}

/// Kept on purpose: a failure shows no link, although its result may have an address.
TEST_F(Changes, FailureHidesALinkThatShows) {
    open_with(success());
    ChangeLog log = failure("No.");
    log.web_url = "https://www.kernel.org/other";
    apply_result(new LoadResult{g_request, log});
    EXPECT_FALSE(link_shown());
}

TEST_F(Changes, FailureShowsNoEntries) {
    ChangeLog log = success();
    log.success = false;
    log.error = "Half of it.";
    open_with(log);
    ASSERT_EQ(cards().size(), 1U);
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), "Half of it.");
}

TEST_F(Changes, FailureWithoutWordsIsStillAFailure) {
    open_with(failure(""));
    EXPECT_EQ(text(descendant(changes_body, {0, 0})), "Could not load the changes");
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), "");
}

// ---- Any text -------------------------------------------------------------------------------------------------------

TEST_F(Changes, TextsArePlain) {
    const std::string odd = "<b>&amp;_a</b> %s & <";
    ChangeLog log = success({{odd, odd, odd, "tag<_&: " + odd, odd}});
    log.version = log.released = odd;
    open_with(log);
    GtkWidget* expander = descendant(changes_body, {0, 0, 1});
    EXPECT_EQ(text(descendant(changes_body, {0, 0, 0})), "tag<_&");
    EXPECT_EQ(text(descendant(expander, {0})), odd);
    EXPECT_EQ(text(descendant(expander, {1})), odd);
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 0})), "<b>&amp;_a</b> %s &  ·  " + odd);
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 1})), odd);
    EXPECT_EQ(subtitle(), "stable  ·  " + odd + "  ·  released " + odd);
    apply_result(new LoadResult{g_request, failure(odd)});
    EXPECT_EQ(text(descendant(changes_body, {0, 1})), odd);
}

TEST_F(Changes, BytesThatAreNoTextAreShownWithoutAWarning) {
    const std::string bad = "caf\xe9 \xff\xc3 \xf0\x9f\x90 end";
    ChangeLog log = success({{bad, bad, bad, "dr\xefver: " + bad, bad}, {"", bad, "", bad, ""}});
    log.channel = log.version = log.released = bad;
    open_with(log);
    gtk_expander_set_expanded(GTK_EXPANDER(descendant(changes_body, {0, 0, 1})), TRUE);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));

    size_t labels = 0;
    for (GtkWidget* widget : all_widgets(changes_win)) {
        if (!GTK_IS_LABEL(widget)) continue;
        EXPECT_TRUE(g_utf8_validate(gtk_label_get_text(GTK_LABEL(widget)), -1, nullptr));
        ++labels;
    }
    EXPECT_GT(labels, 10U);
    const std::string message = text(descendant(changes_body, {0, 0, 1, 1}));
    EXPECT_TRUE(message.starts_with("caf")) << message;
    EXPECT_TRUE(message.ends_with(" end")) << message;
    EXPECT_TRUE(text(descendant(changes_body, {0, 0, 0})).starts_with("dr"));

    apply_result(new LoadResult{g_request, failure(bad)});
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_TRUE(g_utf8_validate(text(descendant(changes_body, {0, 1})).c_str(), -1, nullptr));
}

TEST_F(Changes, ChannelThatIsNoTextIsLoadedWithoutAWarning) {
    state.channel = "\xe9tat";
    open();
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_EQ(g_site.load(0).channel, "\xe9tat");
    EXPECT_TRUE(subtitle().ends_with("tat  ·  loading …"));
}

TEST_F(Changes, TextOfManyAlphabetsIsShownAsItIs) {
    const std::string name = "Łukasz Ünïcödé 東京 🐧";
    open_with(success({{"", name + " <a@example.org>", "", name, name}}));
    EXPECT_EQ(text(descendant(changes_body, {0, 1, 0})), name);
    EXPECT_EQ(text(descendant(changes_body, {0, 0, 0, 1})), name);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
}

TEST_F(Changes, LongestListWithLongMessagesIsShown) {
    std::vector<ChangeEntry> entries;
    for (int i = 0; i < 400; ++i) {
        std::string body;
        for (int line = 0; line < 40; ++line) body += "A line of the message that tells what was wrong.\n";
        entries.push_back({"0a1b2c3d4e5f", "Ada <a@b>", "today", "net: change " + std::to_string(i), body + "\xff"});
    }
    ChangeLog log = success(entries);
    log.total_found = 1200;
    log.truncated = true;
    open_with(log);
    ASSERT_TRUE(run_loop_until_drawn(changes_win));
    EXPECT_EQ(cards().size(), 400U);
    EXPECT_EQ(text(descendant(changes_body, {399, 0, 1, 0})), "change 399");
    EXPECT_EQ(all_widgets(cards()[0]).size(), 9U);
    EXPECT_EQ(status(), "400 changes shown of 1200 — list capped");
}

// ---- One card -------------------------------------------------------------------------------------------------------

/// Describes the card of `entry`.
std::string card_of(const ChangeEntry& entry) {
    GtkWidget* card = build_entry_row(entry);
    EXPECT_TRUE(g_object_is_floating(card));
    g_object_ref_sink(card);
    const std::string described = describe(card);
    gtk_widget_destroy(card);
    g_object_unref(card);
    return described;
}

TEST(Card, WithEverythingHasAnExpander) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "Ada <a@b>", "2026-03-02", "drm: Revert a thing", "Why."}), R"(
GtkBox.commit-card.is-fix hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.tag.tag-2 [start] hidden label="drm" margin-top=2 valign=start
    GtkExpander [start expand fill] hidden
      GtkLabel.subject hidden label="Revert a thing" wrap xalign=0
      GtkLabel.mono hidden label="Why." margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="Ada  ·  2026-03-02" xalign=0
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, WithoutABodyIsAPlainLabel) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "Ada <a@b>", "", "net: x", ""}), R"(
GtkBox.commit-card hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.tag.tag-0 [start] hidden label="net" margin-top=2 valign=start
    GtkLabel.subject [start expand fill] hidden label="x" wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="Ada" xalign=0
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, WithoutATagBeginsWithTheSubject) {
    EXPECT_EQ(card_of({"", "", "2026-03-02", "Merge tag fixes of that tree", "Why."}), R"(
GtkBox.commit-card.is-merge hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkExpander [start expand fill] hidden
      GtkLabel.subject hidden label="Merge tag fixes of that tree" wrap xalign=0
      GtkLabel.mono hidden label="Why." margin-bottom=2 margin-start=6 margin-top=6 selectable wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.meta [start expand fill] hidden ellipsize=end label="2026-03-02" xalign=0
)");
}

TEST(Card, WithNeitherAuthorNorDateHasTheHashAlone) {
    EXPECT_EQ(card_of({"0a1b2c3d4e5f", "", "", "Linux 6.8", ""}), R"(
GtkBox.commit-card.is-release hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.subject [start expand fill] hidden label="Linux 6.8" wrap xalign=0
  GtkBox [start] hidden spacing=8
    GtkLabel.badge-hash [end] hidden label="0a1b2c3d4e5f" valign=center
)");
}

TEST(Card, OfAnEmptyCommitKeepsItsRows) {
    EXPECT_EQ(card_of({}), R"(
GtkBox.commit-card hidden margin-bottom=4 margin-end=14 margin-start=14 margin-top=4 orientation=vertical spacing=4
  GtkBox [start] hidden spacing=8
    GtkLabel.subject [start expand fill] hidden wrap xalign=0
  GtkBox [start] hidden spacing=8
)");
}

TEST(Card, OfAnAddressWithoutANameShowsTheDateAlone) {
    EXPECT_NE(card_of({"", " <a@b>", "2026-03-02", "x", ""}).find(R"(label="2026-03-02" xalign)"), std::string::npos);
}

TEST(Card, ColoursTheTagByItsName) {
    EXPECT_NE(card_of({"", "", "", "drm/i915: foo: bar", ""}).find('.' + ("tag."s + theme_tag_class("drm/i915"))),
              std::string::npos);
}

std::string kind(const std::string& subject) {
    const char* name = card_kind_class({"", "", "", subject, "fix Linux Merge"});
    return name ? name : "none";
}

TEST(Kind, OfAReleaseStandsAboveAll) {
    EXPECT_EQ(kind("Linux 6.8"), "is-release");
    EXPECT_EQ(kind("Linux 6.8 fixes a revert"), "is-release");
    EXPECT_EQ(kind("Linux "), "is-release");
}

TEST(Kind, OfAMergeStandsAboveFixes) {
    EXPECT_EQ(kind("Merge tag fixes of that tree"), "is-merge");
    EXPECT_EQ(kind("Merge branch 'revert'"), "is-merge");
    EXPECT_EQ(kind("Merge "), "is-merge");
}

TEST(Kind, OfAFixIsAnyWordThatHoldsIt) {
    for (const char* subject :
         {"usb: fix a leak", "net: prefix handling", "Revert \"net: foo\"", "Revert \"Linux 6.8\"", "net: FIX it",
          "x: fIxEs", "a revERTed thing", "fix", "suffixes", "linux fix", "merge fix", "\xe9\xff fix"}) {
        EXPECT_EQ(kind(subject), "is-fix") << subject;
    }
}

TEST(Kind, IsNoneOtherwise) {
    for (const char* subject : {"", "net: add a thing", "linux 6.8", "Linux", "Linux-6.8", "merge tag", "Merge",
                                "Merged tag", " Linux 6.8", "x Merge y", "f ix", "fi", "rever", "\xe9\xff"}) {
        EXPECT_EQ(kind(subject), "none") << subject;
    }
}

TEST(Kind, TakesTheWholeSubject) {
    // The word counts in the tag, too.
    EXPECT_EQ(kind("fixdep: build"), "is-fix");
    EXPECT_EQ(kind("net: Linux 6.8"), "none");
    EXPECT_EQ(kind("net: Merge x"), "none");
}

/// Returns tag and rest of a subject with a bar between them.
std::string split(const std::string& subject) {
    std::string tag;
    std::string rest = "not set";
    split_subject(subject, tag, rest);
    return tag + "|" + rest;
}

TEST(Subject, IsSplitAtItsFirstColonAndBlank) {
    EXPECT_EQ(split("net: fix a leak"), "net|fix a leak");
    EXPECT_EQ(split("drm/i915: foo: bar"), "drm/i915|foo: bar");
    EXPECT_EQ(split("a,b/c_d-e[1]: x"), "a,b/c_d-e[1]|x");
    EXPECT_EQ(split("a:b: c"), "a:b|c");
    EXPECT_EQ(split("a\tb: c"), "a\tb|c");
    EXPECT_EQ(split("net:  two"), "net| two");
    EXPECT_EQ(split("net: "), "net|");
    EXPECT_EQ(split("net:: x"), "net:|x");
    EXPECT_EQ(split("\xe9\xff: x"), "\xe9\xff|x");
}

TEST(Subject, WithoutATagStaysWhole) {
    for (const std::string whole : {"", "Linux 6.8", "fix the net: at last", "Revert \"net: foo\"", "net:foo",
                                    "net:", ": foo", ": foo: bar", ":", "a b: c: d", "net :x", "net : x", "x:\ty"}) {
        EXPECT_EQ(split(whole), "|" + whole);
    }
}

TEST(Subject, HasATagOfTwentyEightCharactersAtMost) {
    for (size_t length = 1; length < 40; ++length) {
        const std::string name(length, 'n');
        EXPECT_EQ(split(name + ": rest"), length <= 28 ? name + "|rest" : "|" + name + ": rest") << length;
    }
}

TEST(Author, IsTheNameWithoutTheAddress) {
    EXPECT_EQ(author_name("Ada Example <ada@example.org>"), "Ada Example");
    EXPECT_EQ(author_name("Ada Example"), "Ada Example");
    EXPECT_EQ(author_name(""), "");
    EXPECT_EQ(author_name("<ada@example.org>"), "<ada@example.org>");
    EXPECT_EQ(author_name("Ada<ada@example.org>"), "Ada<ada@example.org>");
    EXPECT_EQ(author_name(" <ada@example.org>"), "");
    EXPECT_EQ(author_name("Ada <a> <b>"), "Ada");
    EXPECT_EQ(author_name("Ada  <a>"), "Ada ");
    EXPECT_EQ(author_name("Ada <"), "Ada");
}

}  // namespace
