// SPDX-License-Identifier: MIT
// The load of a changelog: which addresses it asks for, in which order, and what it makes of each answer. Then which
// version it loads, where the text and the feed lie, and that nothing from the net runs as code.
#include "kernel_checker_support.h"

#include <thread>

namespace {

// ---- The load of a changelog ----

const std::string INDEX = PAGE + "releases.json";
const std::string CDN = "https://cdn.kernel.org/";
const std::string CHANGELOGS = CDN + "pub/linux/kernel/v7.x/ChangeLog-";
const std::string STABLE_TREE = "https://git.kernel.org/pub/scm/linux/kernel/git/stable/linux.git";
const std::string MAINLINE_TREE = "https://git.kernel.org/pub/scm/linux/kernel/git/mainkeeper/linux.git";
const std::string ERROR_PAGE = "<html>\n<head><title>404 Not Found</title></head>\n<body></body>\n</html>\n";
const std::string NO_VERSION =
    "Could not reach Kernhaven and no version is known yet.\nCheck your network connection and try Refresh.";

std::string refused_address(const std::string& url) {
    return "Kernhaven returned an unexpected changelog address:\n" + url;
}

std::string no_changes(const std::string& channel, const std::string& version) {
    return "No changes could be loaded for " + channel + " " + version +
           ".\nKernhaven may be unreachable, or this release has no published\nchangelog yet.";
}

/// Returns an index with one record, whose members behind its moniker are `members`.
std::string index_of(const std::string& channel, const std::string& members) {
    return "{\"releases\": [{\"moniker\": \"" + channel + "\", " + members + "}]}";
}

/// Returns the commands of a fetch that wget answers.
Fields answered(const std::string& url) {
    return {"wget|-qO-|--timeout=15|" + url};
}

/// Returns the commands of a fetch that wget does not answer.
Fields unanswered(const std::string& url) {
    return {"wget|-qO-|--timeout=15|" + url, "curl|-sL|--max-time|15|" + url};
}

Fields joined(const std::vector<Fields>& lists) {
    Fields all;
    for (const Fields& list : lists) all.insert(all.end(), list.begin(), list.end());
    return all;
}

/// A net in which nothing can be reached but what a test publishes.
class FetchChangelog : public testing::Test {
  protected:
    FetchChangelog() { install(); }

    /// Lets wget find `body` at `url`, in place of what was there.
    void publish(const std::string& url, const std::string& body) {
        wget_.insert(0, answer(url, body));
        install();
    }

    /// Lets wget fail at `url`, where curl finds an error page.
    void publish_error(const std::string& url) {
        curl_.insert(0, answer(url, ERROR_PAGE));
        install();
    }

    /// Returns the result of a load that failed.
    static ChangeLog failed(const std::string& channel, const std::string& version, const std::string& error) {
        ChangeLog log;
        log.channel = channel;
        log.version = version;
        log.error = error;
        return log;
    }

    /// Returns the result of a load that found TWO_COMMITS at `url`.
    static ChangeLog from_text(const std::string& channel, const std::string& version, const std::string& released,
                               const std::string& url) {
        ChangeLog log = log_of_text(TWO_COMMITS);
        log.channel = channel;
        log.version = version;
        log.released = released;
        log.source_url = url;
        log.web_url = url;
        log.success = true;
        return log;
    }

    /// Returns the result of a load that found TWO_ENTRIES in the feed of `branch`.
    static ChangeLog from_feed(const std::string& channel, const std::string& version, const std::string& released,
                               const std::string& tree, const std::string& branch) {
        ChangeLog log = log_of_feed(TWO_ENTRIES);
        log.channel = channel;
        log.version = version;
        log.released = released;
        log.source_url = tree + "/atom/?h=" + branch;
        log.web_url = tree + "/log/?h=" + branch;
        log.success = true;
        return log;
    }

    static std::string stable_feed(const std::string& branch) { return STABLE_TREE + "/atom/?h=" + branch; }

    StandIns tools;

  private:
    std::string answer(const std::string& url, const std::string& body) {
        const std::string file = tools.file("body-" + std::to_string(++bodies_)).string();
        write_text(file, body);
        return "'" + url + "') cat '" + file + "'; exit ;;\n";
    }

    void install() const {
        tools.add("wget", "case \"$3\" in\n" + wget_ + "esac\nexit 8");
        tools.add("curl", "case \"$4\" in\n" + curl_ + "esac\nexit 6");
    }

    int bodies_ = 0;
    std::string wget_;
    std::string curl_;
};

TEST_F(FetchChangelog, ReadsTheTextThatTheIndexNames) {
    const std::string url = CDN + "pub/linux/somewhere/else";
    publish(INDEX, index_of("stable", R"("version": "7.2.5", "released": {"isodate": "2026-11-21"}, "changelog": ")" +
                                          url + "\""));
    publish(url, TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")), text_of(from_text("stable", "7.2.5", "2026-11-21", url)));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(url)}));
}

TEST_F(FetchChangelog, TakesTheKnownVersionWithoutAnIndex) {
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
    EXPECT_EQ(tools.calls(), joined({unanswered(INDEX), answered(CHANGELOGS + "7.2.4")}));
}

TEST_F(FetchChangelog, ReadsTheFeedWhereAnErrorPageComesInPlaceOfTheText) {
    publish_error(CHANGELOGS + "7.2.4");
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_feed("stable", "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.2.4"), answered(stable_feed("linux-7.2.y"))}));
}

TEST_F(FetchChangelog, ReadsTheMasterBranchForACandidateWithoutAnAddress) {
    publish(INDEX, index_of("mainline", R"("version": "7.3-rc5", "changelog": null, "isodate": "2026-11-15")"));
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3-rc5")),
              text_of(from_feed("mainline", "7.3-rc5", "2026-11-15", MAINLINE_TREE, "master")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(MAINLINE_TREE + "/atom/?h=master")}));
}

TEST_F(FetchChangelog, ReadsTheTextOfACandidateThatHasAnAddress) {
    publish(INDEX, index_of("mainline", R"("version": "7.3-rc5", "changelog": "https://www.kernel.org/rc5")"));
    publish(PAGE + "rc5", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "")), text_of(from_text("mainline", "7.3-rc5", "", PAGE + "rc5")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(PAGE + "rc5")}));
}

TEST_F(FetchChangelog, ReadsTheTextOfAFinalMainlineRelease) {
    publish(INDEX, index_of("mainline", R"("version": "7.3", "isodate": "2026-12-06")"));
    publish(CHANGELOGS + "7.3", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3-rc5")),
              text_of(from_text("mainline", "7.3", "2026-12-06", CHANGELOGS + "7.3")));
    EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(CHANGELOGS + "7.3")}));
}

TEST_F(FetchChangelog, ReadsTheMasterBranchForAFinalMainlineReleaseWithoutAText) {
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", "7.3")),
              text_of(from_feed("mainline", "7.3", "", MAINLINE_TREE, "master")));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.3"), answered(MAINLINE_TREE + "/atom/?h=master")}));
}

// ---- The version that is loaded ----

TEST_F(FetchChangelog, MakesNoFurtherRequestWithoutAVersion) {
    EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(failed("stable", "", NO_VERSION)));
    EXPECT_EQ(tools.calls(), unanswered(INDEX));
}

TEST_F(FetchChangelog, FailsWhereNeitherTheIndexNorTheCallerKnowsAVersion) {
    for (const std::string& index : {index_of("mainline", R"("version": "7.3")"), ERROR_PAGE}) {
        publish(INDEX, index);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(failed("stable", "", NO_VERSION))) << index;
        EXPECT_EQ(tools.calls(), answered(INDEX));
    }
}

TEST_F(FetchChangelog, KeepsTheDateOfARecordWithoutAVersion) {
    publish(INDEX,
            index_of("stable", R"("version": null, "isodate": "2026-11-21", "changelog": "https://kernel.org/x")"));
    ChangeLog expected = failed("stable", "", NO_VERSION);
    expected.released = "2026-11-21";
    EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(expected));
    EXPECT_EQ(tools.calls(), answered(INDEX));
}

TEST_F(FetchChangelog, TakesTheKnownVersionForARecordWithoutOneButItsDateAndAddress) {
    for (const char* version : {"\"no\": 1", "\"version\": null", "\"version\": \"\""}) {
        publish(INDEX, index_of("stable", std::string(version) +
                                              R"(, "isodate": "2026-11-21", "changelog": "https://kernel.org/x")"));
        publish("https://kernel.org/x", TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
                  text_of(from_text("stable", "7.2.4", "2026-11-21", "https://kernel.org/x")))
            << version;
    }
}

TEST_F(FetchChangelog, TakesTheKnownVersionWhereTheIndexHasNotTheChannel) {
    publish(INDEX,
            index_of("mainline", R"("version": "7.3", "isodate": "2026-12-06", "changelog": "https://kernel.org/x")"));
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
}

TEST_F(FetchChangelog, TakesTheKnownVersionWhereAnErrorPageComesInPlaceOfTheIndex) {
    publish_error(INDEX);
    publish(CHANGELOGS + "7.2.4", TWO_COMMITS);
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(from_text("stable", "7.2.4", "", CHANGELOGS + "7.2.4")));
    EXPECT_EQ(tools.calls(), joined({unanswered(INDEX), answered(CHANGELOGS + "7.2.4")}));
}

TEST_F(FetchChangelog, DerivesTheAddressFromTheVersionOfTheIndex) {
    for (const char* changelog : {"\"no\": 1", "\"changelog\": null", "\"changelog\": \"\""}) {
        publish(INDEX, index_of("longterm", R"("version": "6.18.51", )" + std::string(changelog)));
        publish(CDN + "pub/linux/kernel/v6.x/ChangeLog-6.18.51", TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("longterm", "6.18.50")),
                  text_of(from_text("longterm", "6.18.51", "", CDN + "pub/linux/kernel/v6.x/ChangeLog-6.18.51")))
            << changelog;
    }
}

// ---- Where the text lies ----

TEST_F(FetchChangelog, TakesAnAddressOnEachOfTheFourHosts) {
    for (const std::string& host : HOSTS) {
        const std::string url = host + "/ChangeLog";
        publish(INDEX, index_of("stable", R"("version": "7.2.5", "changelog": ")" + url + "\""));
        publish(url, TWO_COMMITS);
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(from_text("stable", "7.2.5", "", url)));
    }
}

TEST_F(FetchChangelog, EndsAtAnAddressThatItRefuses) {
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    for (const std::string& url : {
             std::string("https://cdn.kernel.org/it's"),
             std::string("https://veldrin.example/ChangeLog"),
             std::string("http://cdn.kernel.org/ChangeLog"),
             std::string("https://cdn.kernel.org.veldrin.example/ChangeLog"),
             std::string(R"(https:\/\/cdn.kernel.org\/ChangeLog)"),
             std::string("https://cdn.kernel.org/Change Log"),
             std::string("https://cdn.kernel.org/\xc3\xa9"),
             std::string("ChangeLog"),
             std::string(" "),
             CDN + std::string(512, 'a'),
         }) {
        publish(INDEX,
                index_of("stable", R"("version": "7.2.5", "isodate": "2026-11-21", "changelog": ")" + url + "\""));
        tools.forget_calls();
        ChangeLog expected = failed("stable", "7.2.5", refused_address(url));
        expected.released = "2026-11-21";
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")), text_of(expected));
        EXPECT_EQ(tools.calls(), answered(INDEX)) << url;
    }
}

TEST_F(FetchChangelog, RefusesADerivedAddressToo) {
    for (const std::string& version : {std::string("7.2'5"), std::string("7.2 5"), "7." + std::string(512, '1')}) {
        const ChangeLog expected = failed("stable", version, refused_address(CHANGELOGS + version));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", version)), text_of(expected));
        EXPECT_EQ(tools.calls(), unanswered(INDEX));
    }
}

// ---- From the text to the feed ----

TEST_F(FetchChangelog, ForgetsAnAddressWithoutAText) {
    EXPECT_EQ(text_of(fetch_changelog("stable", "7.2.4")),
              text_of(failed("stable", "7.2.4", no_changes("stable", "7.2.4"))));
    EXPECT_EQ(tools.calls(),
              joined({unanswered(INDEX), unanswered(CHANGELOGS + "7.2.4"), unanswered(stable_feed("linux-7.2.y"))}));
}

/// Kept on purpose: a failure then names the address that held no commit.
TEST_F(FetchChangelog, KeepsTheAddressOfATextWithoutCommits) {
    ChangeLog expected = failed("longterm", "7.2.4", no_changes("longterm", "7.2.4"));
    expected.source_url = CHANGELOGS + "7.2.4";
    expected.web_url = CHANGELOGS + "7.2.4";

    publish(CHANGELOGS + "7.2.4", "    no commit\n");
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")), text_of(expected)) << "the feed is out of reach";

    publish_error(stable_feed("linux-7.2.y"));
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")), text_of(expected)) << "the feed has no entries";
}

TEST_F(FetchChangelog, TakesTheAddressesOfAFeedInPlaceOfATextWithoutCommits) {
    publish(CHANGELOGS + "7.2.4", "    no commit\n");
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("longterm", "7.2.4")),
              text_of(from_feed("longterm", "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
}

TEST_F(FetchChangelog, FailsWithAFeedWithoutEntries) {
    for (const std::string& feed : {ERROR_PAGE, std::string("<feed></feed>"), std::string("<feed><entry></feed>")}) {
        publish(stable_feed("linux-7.2-rc1.y"), feed);
        EXPECT_EQ(text_of(fetch_changelog("stable", "7.2-rc1")),
                  text_of(failed("stable", "7.2-rc1", no_changes("stable", "7.2-rc1"))));
    }
}

TEST_F(FetchChangelog, FailsWithATextInPlaceOfAFeed) {
    publish(stable_feed("linux-7.2-rc1.y"), TWO_COMMITS);
    EXPECT_FALSE(fetch_changelog("stable", "7.2-rc1").success);
}

TEST_F(FetchChangelog, KeepsFourHundredOfALongText) {
    publish(CHANGELOGS + "7.3", numbered_commits(401));
    const ChangeLog log = fetch_changelog("mainline", "7.3");
    EXPECT_TRUE(log.success);
    EXPECT_TRUE(log.truncated);
    EXPECT_EQ(log.entries.size(), 400U);
    EXPECT_EQ(log.total_found, 401);
    EXPECT_EQ(log.error, "");
}

TEST_F(FetchChangelog, KeepsFourHundredOfALongFeed) {
    publish(MAINLINE_TREE + "/atom/?h=master", numbered_entries(500));
    const ChangeLog log = fetch_changelog("mainline", "7.3-rc5");
    EXPECT_TRUE(log.success);
    EXPECT_TRUE(log.truncated);
    EXPECT_EQ(log.entries.size(), 400U);
    EXPECT_EQ(log.total_found, 500);
    EXPECT_EQ(log.error, "");
}

// ---- The branch of a feed ----

TEST_F(FetchChangelog, CutsTheVersionToTwoPartsForTheBranch) {
    for (const auto& [version, branch] : std::vector<std::pair<std::string, std::string>>{
             {"7.2", "linux-7.2.y"},
             {"7.2.12", "linux-7.2.y"},
             {"7.2.12.3", "linux-7.2.y"},
             {"7.2-rc5", "linux-7.2-rc5.y"},
             {"7.2.1-rc5", "linux-7.2.y"},
             {"7.2-rc5.1", "linux-7.2-rc5.y"},
             {"7", "linux-7.y"},
             {"next-20261120", "linux-next-20261120.y"},
             {"10.20.30", "linux-10.20.y"},
             {"7.", "linux-7..y"},
             {"7..1", "linux-7..y"},
             {".5", "linux-.5.y"},
             {"..", "linux-..y"},
         }) {
        for (const char* channel : {"stable", "longterm"}) {
            publish(stable_feed(branch), TWO_ENTRIES);
            EXPECT_EQ(text_of(fetch_changelog(channel, version)),
                      text_of(from_feed(channel, version, "", STABLE_TREE, branch)));
            EXPECT_EQ(tools.calls().back(), answered(stable_feed(branch)).at(0));
        }
    }
}

/// Kept on purpose: only "mainline" has a tree of its own.
TEST_F(FetchChangelog, TakesAnyOtherChannelForAStableOne) {
    publish(stable_feed("linux-7.2.y"), TWO_ENTRIES);
    for (const char* channel : {"linux-next", "Mainline", "mainline ", "MAINLINE", "Ünbekannt", ""}) {
        EXPECT_EQ(text_of(fetch_changelog(channel, "7.2.4")),
                  text_of(from_feed(channel, "7.2.4", "", STABLE_TREE, "linux-7.2.y")));
        EXPECT_EQ(text_of(fetch_changelog(channel, "")), text_of(failed(channel, "", NO_VERSION)));
        EXPECT_EQ(text_of(fetch_changelog(channel, "8-rc1")),
                  text_of(failed(channel, "8-rc1", no_changes(channel, "8-rc1"))));
    }
}

TEST_F(FetchChangelog, LooksUpItsOwnChannelInTheIndex) {
    publish(INDEX, R"([{"moniker": "mainline", "version": "7.3", "isodate": "2026-12-06"},
                       {"moniker": "stable", "version": "7.2.5", "isodate": "2026-11-21"},
                       {"moniker": "longterm", "version": "6.18.51", "isodate": "2026-11-22"}])");
    const auto loaded = [](const char* channel) {
        const ChangeLog log = fetch_changelog(channel, "1.0");
        return Fields{log.channel, log.version, log.released};
    };
    EXPECT_EQ(loaded("mainline"), (Fields{"mainline", "7.3", "2026-12-06"}));
    EXPECT_EQ(loaded("stable"), (Fields{"stable", "7.2.5", "2026-11-21"}));
    EXPECT_EQ(loaded("longterm"), (Fields{"longterm", "6.18.51", "2026-11-22"}));
    EXPECT_EQ(loaded("linux-next"), (Fields{"linux-next", "1.0", ""}));
}

TEST_F(FetchChangelog, TakesAFeedAddressThatItRefusesForAnEmptyFeed) {
    for (const std::string& version : {std::string("x'y"), std::string("next 1"), std::string("7.2-rc'"),
                                       std::string("7'.2"), std::string(512, 'x')}) {
        const ChangeLog expected = failed("stable", version, no_changes("stable", version));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", version)), text_of(expected));
        EXPECT_EQ(tools.calls(), unanswered(INDEX));
    }
}

TEST_F(FetchChangelog, ReadsTheMasterBranchWhateverTheVersionHolds) {
    const std::string version = "7.3-rc'; x";
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    EXPECT_EQ(text_of(fetch_changelog("mainline", version)),
              text_of(from_feed("mainline", version, "", MAINLINE_TREE, "master")));
}

// ---- What the net must not do ----

TEST_F(FetchChangelog, NeverLetsTheIndexReachTheShellAsCode) {
    const std::string marker = tools.file("marked").string();
    tools.add("mark", "touch '" + marker + "'");
    const auto marked = [&] { return std::filesystem::remove(marker); };
    // Outside single quotes, or with quotes of their own, all of these run. So it says something when they do not.
    for (const std::string& word :
         {std::string("$(mark)"), std::string(";mark;:"), std::string("&mark&wait"), "$(touch$IFS" + marker + ")",
          std::string("`mark`"), std::string("'';mark;:''"), std::string("''$(mark)''")}) {
        exec_command(("printf %s a" + word).c_str());
        ASSERT_TRUE(marked()) << word;
    }

    const std::vector<std::string> allowed = {"$(mark)", ";mark;",       "&mark&",
                                              "&&mark",  "(mark)",       "$(touch$IFS" + marker + ")",
                                              "#;mark",  "$IFS;mark",    "*;mark;?[a]$((1))!",
                                              "$mark",   "%27;mark;%27", "@mark:=$(mark)"};
    for (const std::string& code : allowed) {
        const std::string url = CDN + "a" + code;
        publish(INDEX, index_of("stable", R"("version": "7.2.5", "changelog": ")" + url + "\""));
        publish(url, TWO_COMMITS);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")), text_of(from_text("stable", "7.2.5", "", url)));
        EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(url)}));
        EXPECT_FALSE(marked()) << code;

        const std::string version = "7.2." + code;
        publish(INDEX, index_of("stable", R"("version": ")" + version + "\""));
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")),
                  text_of(failed("stable", version, no_changes("stable", version))));
        EXPECT_EQ(tools.calls(),
                  joined({answered(INDEX), unanswered(CHANGELOGS + version), unanswered(stable_feed("linux-7.2.y"))}));
        EXPECT_FALSE(marked()) << code;

        const std::string series = "x" + code;
        const std::string feed = stable_feed("linux-" + series + ".y");
        publish(INDEX, index_of("stable", R"("version": ")" + series + "\""));
        publish(feed, TWO_ENTRIES);
        tools.forget_calls();
        EXPECT_EQ(text_of(fetch_changelog("stable", "")),
                  text_of(from_feed("stable", series, "", STABLE_TREE, "linux-" + series + ".y")));
        EXPECT_EQ(tools.calls(), joined({answered(INDEX), answered(feed)}));
        EXPECT_FALSE(marked()) << code;
    }

    for (const std::string code :
         {"';mark;'", "'$(mark)'", "'\n mark\n'", "`mark`'`mark`", "|mark", "'|mark|'", ">x"}) {
        for (const std::string& members : {R"("version": "7.2.5", "changelog": ")" + CDN + code + "\"",
                                           "\"version\": \"7.2." + code + "\"", "\"version\": \"x" + code + "\""}) {
            publish(INDEX, index_of("stable", members));
            tools.forget_calls();
            EXPECT_FALSE(fetch_changelog("stable", "").success);
            EXPECT_EQ(tools.calls(), answered(INDEX)) << members;
            EXPECT_FALSE(marked()) << members;
        }
    }
}

TEST_F(FetchChangelog, RunsOnSeveralThreadsAtOnce) {
    publish(INDEX, R"([{"moniker": "mainline", "version": "7.3-rc5", "isodate": "2026-11-15"},
                       {"moniker": "stable", "version": "7.2.5", "isodate": "2026-11-21"}])");
    publish(MAINLINE_TREE + "/atom/?h=master", TWO_ENTRIES);
    publish(CHANGELOGS + "7.2.5", TWO_COMMITS);
    ChangeLog logs[6];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(logs); ++i) {
        threads.emplace_back([&logs, i] { logs[i] = fetch_changelog(i % 2 == 0 ? "mainline" : "stable", ""); });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < std::size(logs); ++i) {
        EXPECT_EQ(text_of(logs[i]),
                  text_of(i % 2 == 0 ? from_feed("mainline", "7.3-rc5", "2026-11-15", MAINLINE_TREE, "master")
                                     : from_text("stable", "7.2.5", "2026-11-21", CHANGELOGS + "7.2.5")));
    }
}

}  // namespace
