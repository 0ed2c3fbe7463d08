// SPDX-License-Identifier: MIT
// The applet as a process: the steps of its start, the signals that open windows, and what it prepares for the programs
// that it runs.
#include "app_support.h"

#include <sys/wait.h>

namespace {

// ---- The start ----

/// Starts the applet, which returns where its main loop would begin. Returns whether its steps were these.
bool start_takes_steps() {
    const TemporaryFolder folder;
    const Environment snap("SNAP_USER_DATA", folder.path().string());
    const Environment home("HOME", std::nullopt);
    save_state(AppState{"7.2.3", "7.2.4", "7.3-rc2", "7.2.4", "6.18.50", "mainline"});
    // The check thread ends after its first delay.
    g_running = false;

    Record record({{"state", [] { return !g_state.kernel.empty(); }}});
    char program[] = "veldrin";
    char word[] = "word";
    char* argv[] = {program, word, nullptr};
    app_run(2, argv);

    const std::string icons = std::string(g_get_user_runtime_dir()) + "/VeldrinWatch-icons";
    const Steps expected = {
        "gtk_init 2 word",
        "setlocale " + std::to_string(LC_NUMERIC) + " C",
        "state",
        "mkdir " + icons + " " + std::to_string(0755),
        "picture",
        "picture",
        "picture",
        "indicator veldrin-watch " + icons + "/tux-green " + std::to_string(APP_INDICATOR_CATEGORY_SYSTEM_SERVICES),
        "theme path " + icons,
        "status " + std::to_string(APP_INDICATOR_STATUS_ACTIVE),
        "menu 8",
        "label 7.3-rc2 7.3-rc2",
        "signal " + std::to_string(SIGUSR1),
        "signal " + std::to_string(SIGUSR2),
        "signal " + std::to_string(SIGRTMIN + 1),
        "signal " + std::to_string(SIGRTMIN + 2),
        "main loop"};
    for (const std::string& step : record.steps()) std::cerr << step << "\n";
    return record.steps() == expected;
}

TEST(StartDeathTest, TakesItsStepsInOrder) {
    // A start changes its process for good, so it gets a new one.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(_exit(start_takes_steps() ? 0 : 1), testing::ExitedWithCode(0), "");
}

// ---- Window signals ----

TEST(WindowSignals, AreInstalledToStay) {
    for (const auto& [number, handler] : window_signals()) {
        struct sigaction action;
        sigaction(number, nullptr, &action);
        EXPECT_EQ(action.sa_handler, handler);
        EXPECT_FALSE(action.sa_flags & static_cast<int>(SA_RESETHAND));
        for (const auto& other : window_signals()) EXPECT_TRUE(sigismember(&action.sa_mask, other.number));
    }
}

TEST(WindowSignals, EachPostsItsOwnWindow) {
    const int numbers[] = {SIGUSR1, SIGUSR2, SIGRTMIN + 1, SIGRTMIN + 2};
    for (int i = 0; i < 4; ++i) {
        for (auto& posts : g_posts) posts = 0;
        kill(getpid(), numbers[i]);
        EXPECT_TRUE(run_loop_until([i] { return g_posts[i] == 1; }));
        for (int other = 0; other < 4; ++other) EXPECT_EQ(g_posts[other], other == i);
    }
}

TEST(WindowSignals, EachOpensItsOwnWindow) {
    // An earlier test may have left something in the queue.
    for (int i = 0; i < 50; ++i) g_main_context_iteration(nullptr, FALSE);
    g_abouts = 0;
    close_info_window();
    close_changes_window();
    close_system_window();
    kill(getpid(), SIGUSR1);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"Settings"}; }));
    close_info_window();
    kill(getpid(), SIGUSR2);
    EXPECT_TRUE(run_loop_until([] { return g_abouts == 1; }));
    EXPECT_EQ(window_titles(), std::set<std::string>{});
    kill(getpid(), SIGRTMIN + 1);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"Latest Kernel Changes"}; }));
    close_changes_window();
    kill(getpid(), SIGRTMIN + 2);
    EXPECT_TRUE(run_loop_until([] { return window_titles() == std::set<std::string>{"System & Kernel Modules"}; }));
    close_system_window();
    EXPECT_EQ(g_abouts, 1);
}

TEST(WindowSignals, WaitWhileTheMainThreadIsBusy) {
    for (auto& posts : g_posts) posts = 0;
    kill(getpid(), SIGUSR1);
    kill(getpid(), SIGUSR1);
    kill(getpid(), SIGRTMIN + 1);
    kill(getpid(), SIGRTMIN + 1);
    EXPECT_EQ(g_posts[0], 0);
    EXPECT_EQ(g_posts[2], 0);
    // The kernel merges an ordinary signal with one that is pending, and queues real-time ones.
    EXPECT_TRUE(run_loop_until([] { return g_posts[0] == 1 && g_posts[2] == 2; }));
    for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
    EXPECT_EQ(g_posts[0], 1);
    EXPECT_EQ(g_posts[2], 2);
}

TEST(WindowSignals, AreBlockedInOtherThreads) {
    sigset_t mask;
    std::thread([&mask] { pthread_sigmask(SIG_BLOCK, nullptr, &mask); }).join();
    for (const auto& signal : window_signals()) EXPECT_TRUE(sigismember(&mask, signal.number));
}

TEST(WindowSignals, AreNotBlockedInWhatALinkStarts) {
    gchar* blocked = nullptr;
    ASSERT_TRUE(g_spawn_command_line_sync("grep ^SigBlk: /proc/self/status", &blocked, nullptr, nullptr, nullptr));
    EXPECT_STREQ(blocked, "SigBlk:\t0000000000000000\n");
    g_free(blocked);
}

TEST(WindowSignals, TenThousandMixedWhileWindowsComeAndGo) {
    for (auto& posts : g_posts) posts = 0;
    constexpr int ROUNDS = 2500;

    const pid_t sender = fork();
    if (sender == 0) {
        const pid_t applet = getppid();
        for (int i = 0; i < ROUNDS; ++i) {
            for (const auto& signal : window_signals()) kill(applet, signal.number);
            usleep(200);
        }
        _exit(0);
    }

    std::atomic<bool> busy{true};
    // This thread takes GLib's lock and the allocator's all the time. Check and load threads do so now and then.
    std::thread poster([&busy] {
        while (busy) {
            g_idle_add(
                [](gpointer data) -> gboolean {
                    delete static_cast<std::string*>(data);
                    return G_SOURCE_REMOVE;
                },
                new std::string(2000, 'x'));
            g_usleep(100);
        }
    });

    int windows = 0;
    const auto a_window_comes_and_goes = [&windows] {
        GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
        GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
        for (int i = 0; i < 10; ++i) {
            gtk_box_pack_start(GTK_BOX(box), gtk_label_new(std::to_string(i).c_str()), FALSE, FALSE, 0);
        }
        gtk_container_add(GTK_CONTAINER(window), box);
        gtk_widget_show_all(window);
        for (int i = 0; i < 3; ++i) g_main_context_iteration(nullptr, FALSE);
        gtk_widget_destroy(window);
        ++windows;
        return g_posts[2] == ROUNDS && g_posts[3] == ROUNDS;
    };
    const bool all = run_loop_until(a_window_comes_and_goes, 240s);
    busy = false;
    poster.join();
    int status = 0;
    waitpid(sender, &status, 0);

    EXPECT_TRUE(all) << g_posts[2] << " and " << g_posts[3] << " of " << ROUNDS;
    EXPECT_TRUE(WIFEXITED(status));
    for (const int ordinary : {0, 1}) {
        EXPECT_GE(g_posts[ordinary], 1);
        EXPECT_LE(g_posts[ordinary], ROUNDS);
    }
    EXPECT_GT(windows, 10);
    RecordProperty("windows", windows);
}

TEST(WindowSignalsDeathTest, DuringStartUpTheyEndTheProcess) {
    for (const auto& pending : window_signals()) {
        EXPECT_EXIT(
            {
                for (const auto& signal : window_signals()) std::signal(signal.number, SIG_DFL);
                block_window_signals();
                kill(getpid(), pending.number);
                install_window_signals();
                _exit(0);
            },
            testing::KilledBySignal(pending.number), "");
    }
}

// ---- What the process prepares ----

TEST(SearchPath, GetsTheSystemFoldersAtItsEnd) {
    const Environment path("PATH", "/usr/bin:/bin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/usr/bin:/bin:/usr/sbin:/sbin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/usr/bin:/bin:/usr/sbin:/sbin");
}

TEST(SearchPath, GetsOnlyWhatIsMissing) {
    const Environment path("PATH", "/sbin:/usr/bin:/opt/usr/sbin");
    extend_search_path();
    EXPECT_STREQ(std::getenv("PATH"), "/sbin:/usr/bin:/opt/usr/sbin:/usr/sbin");
}

TEST(SearchPath, StaysUnsetWhereItIs) {
    const Environment path("PATH", std::nullopt);
    extend_search_path();
    EXPECT_EQ(std::getenv("PATH"), nullptr);
}

TEST(BoundedTries, StandBehindTheMachinesSettings) {
    const TemporaryFolder folder;
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    write_text(folder.path() / "wgetrc", "passive_ftp = on\nprogress = dot");
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "passive_ftp = on\nprogress = dot\ntries = 2\n");
}

TEST(BoundedTries, StandAloneWhereTheMachineHasNoSettings) {
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    limit_wget_tries("SYSTEM_WGETRC", "/nowhere/wgetrc");
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "tries = 2\n");
}

TEST(BoundedTries, FollowTheSettingsThatTheEnvironmentNames) {
    const TemporaryFolder folder;
    write_text(folder.path() / "own", "timeout = 7\n");
    write_text(folder.path() / "wgetrc", "timeout = 9\n");
    const Environment variable("SYSTEM_WGETRC", (folder.path() / "own").string());
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "timeout = 7\ntries = 2\n");
}

TEST(BoundedTries, FollowTheMachinesWhereTheEnvironmentNamesNoFile) {
    const TemporaryFolder folder;
    write_text(folder.path() / "wgetrc", "timeout = 9\n");
    const Environment variable("SYSTEM_WGETRC", "/nowhere/wgetrc");
    limit_wget_tries("SYSTEM_WGETRC", (folder.path() / "wgetrc").c_str());
    EXPECT_EQ(read_text(std::getenv("SYSTEM_WGETRC")), "timeout = 9\ntries = 2\n");
}

TEST(BoundedTries, CanBeReadByAChild) {
    const Environment variable("SYSTEM_WGETRC", std::nullopt);
    limit_wget_tries("SYSTEM_WGETRC", "/nowhere/wgetrc");
    EXPECT_EQ(std::system("grep -q '^tries = 2$' \"$SYSTEM_WGETRC\""), 0);
}

TEST(Notices, OfTheIndicatorLibrarysSuccessorAreDroppedAndNoOther) {
    testing::internal::CaptureStderr();
    drop_deprecation_notice("libayatana-appindicator", G_LOG_LEVEL_WARNING,
                            "libayatana-appindicator is deprecated. Please use its successor in newly written code.",
                            nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    drop_deprecation_notice("libayatana-appindicator", G_LOG_LEVEL_WARNING, "Unable to connect", nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Unable to connect"), std::string::npos);
}

}  // namespace
