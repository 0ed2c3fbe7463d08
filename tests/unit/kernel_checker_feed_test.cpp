// SPDX-License-Identifier: MIT
// The git browser's feed: character references, the elements of an entry, the entries with their authors, ids and
// content, and how many of them are kept. At the end, texts of hostile sizes as a feed and as a ChangeLog.
#include "kernel_checker_support.h"

#include "../fuzz/changelog_models.h"

#include <ctime>

namespace {

// ---- Character references ----

TEST(XmlUnescape, DecodesTheNamesOfXml) {
    EXPECT_EQ(xml_unescape("&lt;"), "<");
    EXPECT_EQ(xml_unescape("&gt;"), ">");
    EXPECT_EQ(xml_unescape("&amp;"), "&");
    EXPECT_EQ(xml_unescape("&quot;"), "\"");
    EXPECT_EQ(xml_unescape("&apos;"), "'");
    EXPECT_EQ(xml_unescape("&#39;"), "'");
    EXPECT_EQ(xml_unescape("a &lt;b@c&gt;&amp;&quot;d&#39;&apos; e"), "a <b@c>&\"d'' e");
}

TEST(XmlUnescape, CopiesPlainText) {
    for (const std::string& text : {std::string(), std::string("plain <text> with ; and #65;"), std::string("a\0b", 3),
                                    std::string("\xff\xe2\x82\xac\n\t\r")}) {
        EXPECT_EQ(xml_unescape(text), text);
    }
}

TEST(XmlUnescape, DecodesOnce) {
    EXPECT_EQ(xml_unescape("&amp;lt;"), "&lt;");
    EXPECT_EQ(xml_unescape("&amp;amp;lt;"), "&amp;lt;");
    EXPECT_EQ(xml_unescape("&#38;lt;"), "&lt;");
}

TEST(XmlUnescape, DecodesNumbersInBothBases) {
    for (const char* reference :
         {"&#60;", "&#x3c;", "&#X3C;", "&#x3C;", "&#X3c;", "&#060;", "&#0000060;", "&#x00003c;"}) {
        EXPECT_EQ(xml_unescape(reference), "<") << reference;
    }
    EXPECT_EQ(xml_unescape("&#039;&#x27;&#10;"), "''\n");
}

TEST(XmlUnescape, EncodesACodePointInOneToThreeBytes) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"1", "\x01"},
        {"65", "A"},
        {"127", "\x7f"},
        {"128", "\xc2\x80"},
        {"2047", "\xdf\xbf"},
        {"2048", "\xe0\xa0\x80"},
        {"8364", "\xe2\x82\xac"},
        {"65535", "\xef\xbf\xbf"},
        {"x1", "\x01"},
        {"x7F", "\x7f"},
        {"x80", "\xc2\x80"},
        {"xE9", "\xc3\xa9"},
        {"x7fF", "\xdf\xbf"},
        {"x800", "\xe0\xa0\x80"},
        {"xFFFF", "\xef\xbf\xbf"},
    };
    for (const auto& [number, bytes] : table) {
        EXPECT_EQ(xml_unescape("a&#" + number + ";b"), "a" + bytes + "b") << number;
    }
}

/// Kept on purpose: the result is no valid UTF-8.
TEST(XmlUnescape, EncodesSurrogatesLikeAnyOtherThreeBytes) {
    EXPECT_EQ(xml_unescape("&#xD7FF;"), "\xed\x9f\xbf");
    EXPECT_EQ(xml_unescape("&#xD800;"), "\xed\xa0\x80");
    EXPECT_EQ(xml_unescape("&#57343;"), "\xed\xbf\xbf");
    EXPECT_EQ(xml_unescape("&#xE000;"), "\xee\x80\x80");
}

TEST(XmlUnescape, LeavesOtherNumbersAsTheyStandAndGoesOnBehindThem) {
    for (const char* name : {"#",      "#x",      "#X",      "#0",      "#x0",       "#-1",       "#-65",      "#x-41",
                             "#65536", "#x10000", "#128512", "#x1F600", "#99999999", "#xFFFFFFF", "#-9999999", "#a",
                             "#xg",    "#xx41",   "# ",      "#+",      "##65",      "#&lt"}) {
        const std::string reference = "&" + std::string(name) + ";";
        EXPECT_EQ(xml_unescape("a" + reference + "b&lt;"), "a" + reference + "b<");
    }
}

TEST(XmlUnescape, ReadsANumberAsStrtolDoes) {
    EXPECT_EQ(xml_unescape("&#65abc;"), "A");
    EXPECT_EQ(xml_unescape("&#65 ;"), "A");
    EXPECT_EQ(xml_unescape("&#65.9;"), "A");
    EXPECT_EQ(xml_unescape("&#65&lt;"), "A") << "everything up to the semicolon is the name";
    EXPECT_EQ(xml_unescape("&# \t\n65;"), "A");
    EXPECT_EQ(xml_unescape("&#+65;"), "A");
    EXPECT_EQ(xml_unescape("&#x+41;"), "A");
    EXPECT_EQ(xml_unescape("&#x 41;"), "A");
    EXPECT_EQ(xml_unescape("&#x0x41;"), "A");
    EXPECT_EQ(xml_unescape("&#x41g;"), "A");
    EXPECT_EQ(xml_unescape("&#0x41;"), "&#0x41;") << "reads 0 and stops";
    EXPECT_EQ(xml_unescape("&#0101;"), "e") << "is not octal";
    EXPECT_EQ(xml_unescape("&#1 39;"), "\x01");
    EXPECT_EQ(xml_unescape(std::string("&#65\0;", 6)), "A");
}

TEST(XmlUnescape, CopiesAnAmpersandWithoutASemicolon) {
    EXPECT_EQ(xml_unescape("&"), "&");
    EXPECT_EQ(xml_unescape("a & b"), "a & b");
    EXPECT_EQ(xml_unescape("&lt"), "&lt");
    EXPECT_EQ(xml_unescape("&&&"), "&&&");
    EXPECT_EQ(xml_unescape("AT&T and others &lt; you and all the rest;"), "AT&T and others < you and all the rest;");
}

/// Kept on purpose: a semicolon farther off ends no reference.
TEST(XmlUnescape, LooksForASemicolonTenPositionsOnAtMost) {
    EXPECT_EQ(xml_unescape("&#00000065;"), "A") << "distance 10";
    EXPECT_EQ(xml_unescape("&#000000065;"), "&#000000065;") << "distance 11";
    EXPECT_EQ(xml_unescape("&#x000003c;"), "<") << "distance 10";
    EXPECT_EQ(xml_unescape("&#x0000003c;"), "&#x0000003c;") << "distance 11";
    EXPECT_EQ(xml_unescape("&123456789;"), "&123456789;123456789;") << "distance 10";
    EXPECT_EQ(xml_unescape("&1234567890;"), "&1234567890;") << "distance 11";
    EXPECT_EQ(xml_unescape("& 1234567&lt;"), "& 1234567<") << "distance 12";
}

/// Kept on purpose: the reference is copied, and its name is read once more as text.
TEST(XmlUnescape, DoublesAnUnknownName) {
    EXPECT_EQ(xml_unescape("&nbsp;x"), "&nbsp;nbsp;x");
    EXPECT_EQ(xml_unescape("&;"), "&;;");
    EXPECT_EQ(xml_unescape("&&;;"), "&&;&;;;");
    for (const char* name : {"LT", "Lt", "AMP", "lt ", " lt", "l", "ltx", "quo", "x41", "65", "copy"}) {
        const std::string text = std::string(name) + ";";
        EXPECT_EQ(xml_unescape("a&" + text + "b"), "a&" + text + text + "b");
    }
}

TEST(XmlUnescape, ReadsAnUnknownNameOnceMoreAsText) {
    EXPECT_EQ(xml_unescape("&&lt;"), "&&lt;<");
    EXPECT_EQ(xml_unescape("&a&b;c"), "&a&b;a&b;b;c");
    EXPECT_EQ(xml_unescape("a & b &lt;"), "a & b &lt; b <");
}

TEST(XmlUnescape, OfAnyReferenceReadsLikeItsModel) {
    const std::vector<std::string> pieces =
        pieces_of("&|&|&|;|;|#|#|x|X|0|6|39|f|D|-|+| |\n|&lt;|amp;|quot|apos|gt;|&#|z|\xff");
    RandomTexts texts(pieces, 24, 20261123);
    int decoded = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text = texts.next();
        const std::string expected = model::xml_unescape(text);
        ASSERT_EQ(xml_unescape(text), expected) << text;
        decoded += expected.size() < text.size();
    }
    EXPECT_GT(decoded, 1000);
}

// ---- Elements ----

TEST(XmlTagValue, IsTheDecodedTextOfTheFirstElement) {
    EXPECT_EQ(xml_tag_value("<id>a &lt; b</id><id>c</id>", "id"), "a < b");
    EXPECT_EQ(xml_tag_value("</id> <id> a\n<b>c</b> </id>", "id"), " a\n<b>c</b> ");
    EXPECT_EQ(xml_tag_value("<id>&nbsp;</id>", "id"), "&nbsp;nbsp;");
}

TEST(XmlTagValue, IsEmptyWithoutTheElement) {
    for (const char* block : {"",
                              "id",
                              "<id",
                              "<id>",
                              "<id>a",
                              "<id>a</id",
                              "</id>",
                              "a</id>",
                              "<id></id>",
                              "<id/>",
                              "<ID>a</ID>",
                              "<ids>a</ids>",
                              "<xid>a</xid>",
                              "< id>a</id>",
                              "<id >a</id>",
                              "&lt;id&gt;a&lt;/id&gt;",
                              "</id><id>a",
                              "<id>a</ID>",
                              "<id>a</ id>",
                              "<id>a</id >"}) {
        EXPECT_EQ(xml_tag_value(block, "id"), "") << block;
    }
}

/// Kept on purpose: only the bare tag counts.
TEST(XmlTagValue, PassesOverATagWithAttributes) {
    EXPECT_EQ(xml_tag_value("<title type='text'>a</title>", "title"), "");
    EXPECT_EQ(xml_tag_value("<title type='text'>a</title><title>b</title>", "title"), "b");
}

TEST(XmlTagValue, RunsToTheFirstEndTag) {
    EXPECT_EQ(xml_tag_value("<a>1<a>2</a>3</a>", "a"), "1<a>2");
    EXPECT_EQ(xml_tag_value("<a>1</b>2</a>", "a"), "1</b>2");
    EXPECT_EQ(xml_tag_value("<a>1&lt;/a&gt;</a>", "a"), "1</a>");
}

// ---- The Atom feed ----

/// Returns the fields of the only entry in a feed whose entry holds `members`.
Fields only_entry(const std::string& members) {
    const ChangeLog log = log_of_feed("<feed><title>the feed's</title><entry>" + members + "</entry></feed>");
    EXPECT_EQ(log.entries.size(), 1U) << members;
    EXPECT_EQ(log.total_found, 1) << members;
    EXPECT_FALSE(log.truncated) << members;
    return log.entries.size() == 1 ? fields_of(log.entries[0]) : Fields{};
}

std::string id_of(const std::string& id) {
    return only_entry("<id>" + id + "</id>").at(0);
}

/// Returns the body of an entry called `title`, whose content is `content`, both as they stand in the feed.
std::string body_of(const std::string& title, const std::string& content) {
    return only_entry("<title>" + title + "</title><content type='text'>" + content + "</content>").at(4);
}

TEST(AtomFeed, GivesEachEntrysFieldsInBothFormsOfTheFeed) {
    const ChangeLog log = log_of_feed(TWO_ENTRIES);
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), FIRST_ENTRY);
    EXPECT_EQ(fields_of(log.entries[1]), SECOND_ENTRY);
    EXPECT_EQ(log.total_found, 2);
    EXPECT_FALSE(log.truncated);
}

TEST(AtomFeed, WithoutAnEntryAddsNothing) {
    for (const char* xml :
         {"", "<feed></feed>", "<html><title>404</title></html>", "<entry>", "</entry>", "</entry><entry>",
          "<entry ></entry>", "<entry a='b'></entry>", "<Entry></Entry>", "<entry></Entry>", "<entry></entry",
          "<entries></entries>", "<entry/></entry>", "&lt;entry&gt;&lt;/entry&gt;"}) {
        EXPECT_EQ(text_of(log_of_feed(xml)), text_of(ChangeLog{})) << xml;
    }
}

TEST(AtomFeed, DropsAnUnclosedLastEntry) {
    const ChangeLog log = log_of_feed("<entry><title>one</title></entry><entry><title>two</title>");
    ASSERT_EQ(log.entries.size(), 1U);
    EXPECT_EQ(log.entries[0].subject, "one");
    EXPECT_EQ(log.total_found, 1);
    EXPECT_FALSE(log.truncated);
}

TEST(AtomFeed, RunsAnEntryToTheNextEndTag) {
    const ChangeLog log = log_of_feed(
        "</entry><entry><title>one</title><entry><title>two</title><id>2</id></entry></entry>"
        "<entry><title>three</title></entry>");
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"2", "", "", "one", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"", "", "", "three", ""}));
    EXPECT_EQ(log.total_found, 2);
}

TEST(AtomFeed, TakesNothingFromOutsideAnEntry) {
    const ChangeLog log = log_of_feed(
        "<title>a</title><id>b</id><name>c</name><email>d</email><updated>e</updated><content>f</content>"
        "<entry></entry>"
        "<title>a</title><id>b</id><name>c</name><email>d</email><updated>e</updated><content>f</content>"
        "<entry><title>open</entry>"
        "</title></content>");
    ASSERT_EQ(log.entries.size(), 2U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"", "", "", "", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), (Fields{"", "", "", "", ""}));
}

TEST(AtomFeed, EntryWithoutElementsCounts) {
    EXPECT_EQ(only_entry(""), (Fields{"", "", "", "", ""}));
    EXPECT_EQ(only_entry("plain text"), (Fields{"", "", "", "", ""}));
}

TEST(AtomFeed, TakesTheFirstElementOfEachKind) {
    EXPECT_EQ(only_entry("<title>t1</title><title>t2</title><name>n1</name><name>n2</name><email>e1</email>"
                         "<email>e2</email><updated>u1</updated><updated>u2</updated><id>i1</id><id>i2</id>"
                         "<content>c1</content><content>c2</content>"),
              (Fields{"i1", "n1 <e1>", "u1", "t1", "c1"}));
}

TEST(AtomFeed, PassesOverAnElementWithAttributesButForContent) {
    EXPECT_EQ(only_entry("<title a='b'>t</title><name a='b'>n</name><email a='b'>e</email><updated a='b'>u</updated>"
                         "<id a='b'>i</id><content a='b'>c</content>"),
              (Fields{"", "", "", "", "c"}));
}

TEST(AtomFeed, KeepsWhiteSpaceInEverythingButTheBody) {
    EXPECT_EQ(only_entry("<title> t\n</title><name>\tn </name><updated> u\n</updated><id> i\n</id>"),
              (Fields{" i\n", "\tn ", " u\n", " t\n", ""}));
}

TEST(AtomFeed, DecodesEveryField) {
    EXPECT_EQ(only_entry("<title>&lt;t&gt;</title><name>n&amp;</name><email>e&#39;</email><updated>&quot;u</updated>"
                         "<id>i&#65;</id><content>c&nbsp;</content>"),
              (Fields{"iA", "n& <e'>", "\"u", "<t>", "c&nbsp;nbsp;"}));
}

TEST(AtomFeed, ChangesNoFieldButEntriesTheirNumberAndTruncated) {
    for (const std::string& xml : {std::string("<html></html>"), TWO_ENTRIES}) {
        ChangeLog log;
        log.channel = "a";
        log.version = "b";
        log.released = "c";
        log.source_url = "d";
        log.web_url = "e";
        log.success = true;
        log.error = "f";
        ChangeLog expected = log;
        parse_atom_feed(xml, log);
        expected.entries = log.entries;
        expected.total_found = log.total_found;
        expected.truncated = log.truncated;
        EXPECT_EQ(text_of(log), text_of(expected));
    }
}

// ---- Author and id of an entry ----

TEST(AtomFeed, AuthorIsTheNameAndTheAddressInAngleBrackets) {
    EXPECT_EQ(only_entry("<author><name>N</name><email>m@x</email></author>").at(1), "N <m@x>");
    EXPECT_EQ(only_entry("<email>m@x</email><name>N</name>").at(1), "N <m@x>");
    EXPECT_EQ(only_entry("<name>N</name>").at(1), "N");
    EXPECT_EQ(only_entry("<name>N</name><email></email>").at(1), "N");
    EXPECT_EQ(only_entry("<name>N</name><email>m@x").at(1), "N");
    EXPECT_EQ(only_entry("<email>m@x</email>").at(1), " <m@x>");
    EXPECT_EQ(only_entry("<name></name><email>m@x</email>").at(1), " <m@x>");
    EXPECT_EQ(only_entry("<name>N</name><email> </email>").at(1), "N < >");
    EXPECT_EQ(only_entry("<name>N</name><email>&lt;m@x&gt;</email>").at(1), "N <<m@x>>");
}

TEST(AtomFeed, IdIsTwelveCharactersBehindTheLastColon) {
    const std::string hash = "3f1c2d4e5a6b7c8d9e0f3f1c2d4e5a6b7c8d9e0f";
    EXPECT_EQ(id_of(hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of("urn:sha1:" + hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of(":" + hash), "3f1c2d4e5a6b");
    EXPECT_EQ(id_of("http://git.kernel.example/c/?id=" + hash), "//git.kernel");
    EXPECT_EQ(id_of("urn:sha1:0123456789ab"), "0123456789ab");
    EXPECT_EQ(id_of("urn:sha1:0123"), "0123");
    EXPECT_EQ(id_of("0123"), "0123");
    EXPECT_EQ(id_of("urn:sha1:"), "");
    EXPECT_EQ(id_of(""), "");
    EXPECT_EQ(id_of("a&#58;b"), "b") << "decoded before it is cut";
    EXPECT_EQ(id_of("&#48;123456789abcdef"), "0123456789ab") << "decoded before it is cut";
}

// ---- Content of an entry ----

TEST(AtomFeed, BodyIsTheFirstContentElementAlone) {
    EXPECT_EQ(only_entry("<content>one</content><content>two</content>").at(4), "one");
    EXPECT_EQ(only_entry("<content></content><content>two</content>").at(4), "");
    EXPECT_EQ(only_entry("<content type='text'\n lang=\"en\">one</content>").at(4), "one");
}

TEST(AtomFeed, BodyKeepsTagsInside) {
    EXPECT_EQ(only_entry("<content type='xhtml'><div>\n<b>one</b>\n</div></content>").at(4),
              "<div>\n<b>one</b>\n</div>");
}

TEST(AtomFeed, BodyIsEmptyWithoutACompleteContentElement) {
    EXPECT_EQ(only_entry("<title>t</title>").at(4), "");
    EXPECT_EQ(only_entry("<content>one").at(4), "");
    EXPECT_EQ(only_entry("<content type='text'").at(4), "");
    EXPECT_EQ(only_entry("</content><content>one").at(4), "");
    EXPECT_EQ(only_entry("<content>one</content").at(4), "");
    EXPECT_EQ(only_entry("<content>one</contents>").at(4), "");
    EXPECT_EQ(only_entry("< content>one</content>").at(4), "");
    EXPECT_EQ(only_entry("<Content>one</Content>").at(4), "");
    EXPECT_EQ(only_entry("<xcontent>one</content>").at(4), "");
}

/// Kept on purpose: the tag is found by how it begins, and ends at the first angle bracket.
TEST(AtomFeed, TakesAnyTagThatBeginsLikeContentForContent) {
    EXPECT_EQ(only_entry("<contents>a</contents><content>b</content>").at(4), "a</contents><content>b");
    EXPECT_EQ(only_entry("<content/><content>b</content>").at(4), "<content>b");
    EXPECT_EQ(only_entry("<content a='>'>b</content>").at(4), "'>b");
}

TEST(AtomFeed, StripsTheEndOfTheBodyAfterDecodingIt) {
    EXPECT_EQ(body_of("t", "one \t\r\n two \n\n \t\r\n"), "one \t\r\n two");
    EXPECT_EQ(body_of("t", "one&#32;&#10;&#9;"), "one");
    EXPECT_EQ(body_of("t", "one\v"), "one\v");
    EXPECT_EQ(body_of("t", " \n\t "), "");
}

TEST(AtomFeed, LeavesIndentationAndTrailingBlanksOfLines) {
    EXPECT_EQ(body_of("t", "    one  \n\n\ttwo \nthree"), "    one  \n\n\ttwo \nthree");
}

TEST(AtomFeed, DropsAFirstLineThatRepeatsTheTitle) {
    EXPECT_EQ(body_of("t", "t\none\ntwo"), "one\ntwo");
    EXPECT_EQ(body_of("t", "t\n\n\n\none"), "one");
    EXPECT_EQ(body_of("t", "t"), "");
    EXPECT_EQ(body_of("t", "t\n\n"), "");
    EXPECT_EQ(body_of("t", "t \n"), "") << "the end is stripped before they are compared";
    EXPECT_EQ(body_of("t", "t\nt\none"), "t\none") << "once";
    EXPECT_EQ(body_of("t", "t\n\nt\none"), "t\none") << "once";
}

TEST(AtomFeed, KeepsAFirstLineThatDiffersFromTheTitle) {
    EXPECT_EQ(body_of("t", "tt\none"), "tt\none");
    EXPECT_EQ(body_of("tt", "t\none"), "t\none");
    EXPECT_EQ(body_of("t", "T\none"), "T\none");
    EXPECT_EQ(body_of("t", " t\none"), " t\none");
    EXPECT_EQ(body_of("t", "t \none"), "t \none");
    EXPECT_EQ(body_of("t", "t\r\none"), "t\r\none");
    EXPECT_EQ(body_of("t ", "t\none"), "t\none");
    EXPECT_EQ(body_of("t", "one\nt"), "one\nt");
}

TEST(AtomFeed, DropsNoTitleBehindALineFeed) {
    EXPECT_EQ(body_of("t", "\nt\none"), "t\none");
    EXPECT_EQ(body_of("", "\n\none"), "one");
}

TEST(AtomFeed, TakesLineFeedsAloneFromTheStartOfTheBody) {
    EXPECT_EQ(body_of("t", "\n\n\none"), "one");
    EXPECT_EQ(body_of("t", "\n\n  one"), "  one");
    EXPECT_EQ(body_of("t", "\n\t\n\none"), "\t\n\none");
    EXPECT_EQ(body_of("t", "\r\none"), "\r\none");
    EXPECT_EQ(body_of("t", "t\n\n \n\none"), " \n\none");
}

TEST(AtomFeed, ComparesTitleAndContentDecoded) {
    EXPECT_EQ(body_of("a &amp; b", "a &amp; b\none"), "one");
    EXPECT_EQ(body_of("a &amp; b", "a &#38; b\none"), "one");
    EXPECT_EQ(body_of("&lt;t&gt;", "&#60;t&#x3E;&#10;one"), "one");
    EXPECT_EQ(body_of("&amp;lt;", "&lt;\none"), "<\none");
}

TEST(AtomFeed, ComparesContentWithAnEmptySubjectToo) {
    EXPECT_EQ(only_entry("<content>one\ntwo</content>").at(4), "one\ntwo");
    EXPECT_EQ(only_entry("<content>\none\ntwo</content>").at(4), "one\ntwo");
    EXPECT_EQ(only_entry("<title a='b'>one</title><content>one\ntwo</content>").at(4), "one\ntwo");
}

// ---- Its length ----

TEST(AtomFeed, KeepsFourHundredEntriesAndCountsTheRest) {
    for (const auto& [found, kept, truncated] : LENGTHS) {
        const ChangeLog log = log_of_feed(numbered_entries(found));
        EXPECT_EQ(log.total_found, found);
        EXPECT_EQ(log.truncated, truncated) << found;
        ASSERT_EQ(log.entries.size(), kept) << found;
        for (size_t i = 0; i < kept; ++i) {
            const std::string n = std::to_string(i + 1);
            ASSERT_EQ(fields_of(log.entries[i]), (Fields{n, "", "", "S" + n, ""}));
        }
    }
}

TEST(AtomFeed, AddsToWhatIsThere) {
    ChangeLog log = log_of_feed("<entry><title>kept</title></entry>");
    log.total_found = 5;
    parse_atom_feed(TWO_ENTRIES, log);
    ASSERT_EQ(log.entries.size(), 3U);
    EXPECT_EQ(fields_of(log.entries[0]), (Fields{"", "", "", "kept", ""}));
    EXPECT_EQ(fields_of(log.entries[1]), FIRST_ENTRY);
    EXPECT_EQ(fields_of(log.entries[2]), SECOND_ENTRY);
    EXPECT_EQ(log.total_found, 7);
    EXPECT_TRUE(log.truncated);

    ChangeLog almost = log_of_feed(numbered_entries(399));
    parse_atom_feed(TWO_ENTRIES, almost);
    ASSERT_EQ(almost.entries.size(), 400U);
    EXPECT_EQ(fields_of(almost.entries[399]), FIRST_ENTRY);
    EXPECT_EQ(almost.total_found, 401);
    EXPECT_TRUE(almost.truncated);

    ChangeLog whole;
    whole.truncated = true;
    parse_atom_feed("<html></html>", whole);
    EXPECT_FALSE(whole.truncated);
}

TEST(AtomFeed, CutAtAnyByteNeverTellsMoreThanTheWhole) {
    int before = 0;
    for (size_t cut = 0; cut <= TWO_ENTRIES.size(); ++cut) {
        const ChangeLog part = log_of_feed(TWO_ENTRIES.substr(0, cut));
        ASSERT_EQ(part.entries.size(), static_cast<size_t>(part.total_found)) << cut;
        ASSERT_GE(part.total_found, before) << cut;
        ASSERT_LE(part.total_found, 2) << cut;
        before = part.total_found;
        for (size_t i = 0; i < part.entries.size(); ++i) {
            ASSERT_EQ(fields_of(part.entries[i]), i == 0 ? FIRST_ENTRY : SECOND_ENTRY) << cut;
        }
    }
    EXPECT_EQ(before, 2);
}

TEST(AtomFeed, OfAnyTagsReadsLikeItsModel) {
    std::vector<std::string> pieces = {
        "<entry>", "</entry>", "<content", " type='text'>", "</content>", "<content>", "<",     "</", ">", "/>",
        "text",    "a:b",      "\n",       "\n\n",          " ",          "&lt;",      "&#10;", ":"};
    for (const std::string tag : {"title", "name", "email", "updated", "id"}) {
        for (const std::string& piece : {"<" + tag + ">", "</" + tag + ">", "<" + tag + ">text</" + tag + ">"}) {
            pieces.push_back(piece);
        }
    }
    RandomTexts feeds(pieces, 60, 20261123);
    int subjects = 0;
    int bodies = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string xml;
        if (i % 4 != 0) xml = "<entry>";
        xml += feeds.next();
        if (i % 4 > 1) xml += "</content></entry>";
        ChangeLog expected;
        model::parse_atom_feed(xml, expected);
        ASSERT_EQ(text_of(log_of_feed(xml)), text_of(expected)) << xml;
        for (const ChangeEntry& entry : expected.entries) {
            subjects += !entry.subject.empty();
            bodies += !entry.body.empty();
        }
    }
    EXPECT_GT(subjects, 1000);
    EXPECT_GT(bodies, 1000);
}

// ---- Texts that nobody should send ----

class HostileText : public testing::TestWithParam<Shape> {};

TEST_P(HostileText, IsReadAtOnceAsEitherForm) {
    const std::string text = GetParam().page();
    const std::clock_t start = std::clock();
    const ChangeLog log = log_of_text(text + "\ncommit 1\n\n    found\n");
    EXPECT_GE(log.total_found, 1);
    EXPECT_EQ(log.truncated, log.total_found > 400);
    if (!log.truncated) {
        EXPECT_EQ(log.entries.back().subject, "found");
    }

    ChangeLog feed;
    parse_atom_feed(text + "</entry><entry><title>found</title></entry>", feed);
    EXPECT_GE(feed.total_found, 1);
    EXPECT_EQ(feed.truncated, feed.total_found > 400);

    EXPECT_GE(xml_unescape(text).size(), 1U);
    EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

const Shape TEXT_SHAPES[] = {
    {"CommitLines", [] { return repeat("commit \n", MEGABYTE); }},
    {"OneCommitOfBlankLines", [] { return "commit 1\n" + repeat("\n", MEGABYTE); }},
    {"OneCommitOfBlankMessageLines", [] { return "commit 1\n" + repeat("    \n", MEGABYTE); }},
    {"OneSubjectBeforeBlankLines", [] { return "commit 1\n    s\n" + repeat("\n", MEGABYTE); }},
    {"OneBodyOfShortLines", [] { return "commit 1\n    s\n" + repeat("    b\n", MEGABYTE); }},
    {"OneLineOfBlanks", [] { return "commit 1\n" + repeat(" ", MEGABYTE); }},
    {"OneLine", [] { return "commit 1\n    " + repeat("x", MEGABYTE); }},
    {"Authors", [] { return "commit 1\n" + repeat("Author:  \n", MEGABYTE); }},
    {"CarriageReturns", [] { return "commit 1\n" + repeat("\r", MEGABYTE); }},
    {"EntryTags", [] { return repeat("<entry>", MEGABYTE); }},
    {"EntryEndTags", [] { return repeat("</entry>", MEGABYTE); }},
    {"EmptyEntries", [] { return repeat("<entry></entry>", MEGABYTE); }},
    {"EntriesWithOpenTitles", [] { return repeat("<entry><title><content></entry>", MEGABYTE); }},
    {"OneEntryOfOpenTags", [] { return "<entry>" + repeat("<title><id><content", MEGABYTE); }},
    {"OneContentOfLineFeeds", [] { return "<entry><content>" + repeat("\n", MEGABYTE) + "</content></entry>"; }},
    {"LessThanSigns", [] { return repeat("<", MEGABYTE); }},
    {"Ampersands", [] { return repeat("&", MEGABYTE); }},
    {"EmptyReferences", [] { return repeat("&;", MEGABYTE); }},
    {"NestedReferences", [] { return repeat("&&&&&&&&&;", MEGABYTE); }},
    {"NumericReferences", [] { return "<entry><title>" + repeat("&#x0020;", MEGABYTE) + "</title></entry>"; }},
    {"Nuls", [] { return std::string(MEGABYTE, '\0'); }},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileText, testing::ValuesIn(TEXT_SHAPES),
                         [](const auto& shape) { return shape.param.name; });

}  // namespace
