// SPDX-License-Identifier: MIT
// The crash handler: the names of signals, where the report lies, the dialog's language and script, how the handlers
// are installed, how a handler and its alarm end, and what they leave alone.
#include "crash_handler.cpp"

#include "support.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <algorithm>
#include <array>
#include <climits>

// ---- What the tests see of the system's work ------------------------------------------------------------------------

namespace {

struct Installed {
    int sig;
    struct sigaction action;
    bool asks_for_the_old;
};

std::vector<Installed> g_installed;

}  // namespace

extern "C" {

int __real_sigaction(int, const struct sigaction*, struct sigaction*);
int __wrap_sigaction(int, const struct sigaction*, struct sigaction*);
int __wrap_sigaction(int sig, const struct sigaction* action, struct sigaction* old) {
    if (action) g_installed.push_back({sig, *action, old != nullptr});
    return __real_sigaction(sig, action, old);
}
}

namespace {

constexpr std::array FATAL = {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL};

// ---- Names of signals -----------------------------------------------------------------------------------------------

TEST(SignalName, IsItsSymbolAndItsMeaning) {
    EXPECT_STREQ(signalName(4), "SIGILL (Illegal instruction)");
    EXPECT_STREQ(signalName(6), "SIGABRT (Abort)");
    EXPECT_STREQ(signalName(7), "SIGBUS (Bus error)");
    EXPECT_STREQ(signalName(8), "SIGFPE (Floating point exception)");
    EXPECT_STREQ(signalName(11), "SIGSEGV (Segmentation fault)");
}

TEST(SignalName, EveryOtherNumberIsUnknown) {
    for (int sig = -1; sig <= SIGRTMAX + 1; ++sig) {
        if (std::ranges::find(FATAL, sig) != FATAL.end()) continue;
        EXPECT_STREQ(signalName(sig), "Unknown signal") << sig;
    }
    EXPECT_STREQ(signalName(INT_MAX), "Unknown signal");
    EXPECT_STREQ(signalName(INT_MIN), "Unknown signal");
}

// ---- Place of the report --------------------------------------------------------------------------------------------

TEST(CrashFilePath, LiesInTheRuntimeFolder) {
    const Environment folder("XDG_RUNTIME_DIR", "/run/user/1000");
    EXPECT_EQ(crashFilePath(), "/run/user/1000/Veldrin_crash.txt");
}

TEST(CrashFilePath, LiesInTmpWithoutARuntimeFolder) {
    const Environment folder("XDG_RUNTIME_DIR", std::nullopt);
    const Environment other("TMPDIR", "/elsewhere");
    EXPECT_EQ(crashFilePath(), "/tmp/Veldrin_crash.txt");
}

/// Kept on purpose: the report then lies in the root folder.
TEST(CrashFilePath, TakesAnEmptyRuntimeFolderAsSet) {
    const Environment folder("XDG_RUNTIME_DIR", "");
    EXPECT_EQ(crashFilePath(), "/Veldrin_crash.txt");
}

TEST(CrashFilePath, TakesTheFolderUnchecked) {
    const Environment folder("XDG_RUNTIME_DIR", "it's a/folder/");
    EXPECT_EQ(crashFilePath(), "it's a/folder//Veldrin_crash.txt");
}

// ---- Language -------------------------------------------------------------------------------------------------------

const std::vector<std::optional<std::string>> GERMAN = {"de", "de_DE.UTF-8", "de_AT", "de:en", "deseret"};
const std::vector<std::optional<std::string>> NOT_GERMAN = {
    std::nullopt, "", "d", "C", "POSIX", "en_US.UTF-8", "DE_de", "De_DE.UTF-8", "dE", "en:de", " de", "_de"};

TEST(IsGerman, AnyOneOfThreeVariablesIsEnough) {
    for (const auto& other : NOT_GERMAN) {
        for (const auto& german : GERMAN) {
            for (int which = 1; which < 8; ++which) {
                const Environment lang("LANG", which & 1 ? german : other);
                const Environment all("LC_ALL", which & 2 ? german : other);
                const Environment language("LANGUAGE", which & 4 ? german : other);
                EXPECT_TRUE(isGerman()) << *german << ' ' << other.value_or("unset") << ' ' << which;
            }
        }
    }
}

TEST(IsGerman, NoneOfThreeIsNotEnough) {
    const Environment messages("LC_MESSAGES", "de_DE.UTF-8");
    const Environment type("LC_CTYPE", "de_DE.UTF-8");
    for (const auto& lang_value : NOT_GERMAN) {
        for (const auto& all_value : NOT_GERMAN) {
            for (const auto& language_value : NOT_GERMAN) {
                const Environment lang("LANG", lang_value);
                const Environment all("LC_ALL", all_value);
                const Environment language("LANGUAGE", language_value);
                EXPECT_FALSE(isGerman()) << lang_value.value_or("unset") << ' ' << all_value.value_or("unset") << ' '
                                         << language_value.value_or("unset");
            }
        }
    }
}

// ---- The dialog's script --------------------------------------------------------------------------------------------

TEST(DialogScript, InGermanIsExactlyThis) {
    const Environment lang("LANG", "de_DE.UTF-8");
    EXPECT_EQ(
        dialogScript("/run/user/1000/Veldrin_crash.txt", "Veldrin Crash: SIGBUS (Bus error) - 2026-01-31 14:05:09"),
        R"TEXT(DESC=$(zenity --text-info --editable --title='Veldrin - Können Sie beschreiben, wann der Fehler aufgetreten ist?' --width=500 --height=250 --ok-label='Absturzbericht senden' --cancel-label='Nicht senden' 2>/dev/null)
if [ $? -ne 0 ]; then exit 0; fi
echo '' >> '/run/user/1000/Veldrin_crash.txt'
echo 'User description:' >> '/run/user/1000/Veldrin_crash.txt'
echo "$DESC" >> '/run/user/1000/Veldrin_crash.txt'
BODY=$(python3 -c "
import urllib.parse, sys
with open('/run/user/1000/Veldrin_crash.txt') as f: data = f.read()
print(urllib.parse.quote(data))
" 2>/dev/null)
SUBJ=$(python3 -c "import urllib.parse; print(urllib.parse.quote('Veldrin Crash: SIGBUS (Bus error) - 2026-01-31 14:05:09'))" 2>/dev/null)
xdg-open "mailto:)TEXT" VELDRIN_CONTACT R"TEXT(?subject=${SUBJ}&body=${BODY}" 2>/dev/null || true
)TEXT");
}

/// Kept on purpose: the apostrophe in "Don't send" ends the quotes, so the shell rejects this script.
TEST(DialogScript, InEnglishIsExactlyThis) {
    const Environment lang("LANG", "en_US.UTF-8");
    const Environment all("LC_ALL", std::nullopt);
    const Environment language("LANGUAGE", std::nullopt);
    EXPECT_EQ(
        dialogScript("/tmp/Veldrin_crash.txt", "Veldrin Crash: SIGABRT (Abort) - 2026-12-01 00:00:00"),
        R"TEXT(DESC=$(zenity --text-info --editable --title='Veldrin - Can you describe when the error occurred?' --width=500 --height=250 --ok-label='Send crash report' --cancel-label='Don't send' 2>/dev/null)
if [ $? -ne 0 ]; then exit 0; fi
echo '' >> '/tmp/Veldrin_crash.txt'
echo 'User description:' >> '/tmp/Veldrin_crash.txt'
echo "$DESC" >> '/tmp/Veldrin_crash.txt'
BODY=$(python3 -c "
import urllib.parse, sys
with open('/tmp/Veldrin_crash.txt') as f: data = f.read()
print(urllib.parse.quote(data))
" 2>/dev/null)
SUBJ=$(python3 -c "import urllib.parse; print(urllib.parse.quote('Veldrin Crash: SIGABRT (Abort) - 2026-12-01 00:00:00'))" 2>/dev/null)
xdg-open "mailto:)TEXT" VELDRIN_CONTACT R"TEXT(?subject=${SUBJ}&body=${BODY}" 2>/dev/null || true
)TEXT");
}

/// Kept on purpose: the script trusts both texts.
TEST(DialogScript, TakesPathAndSubjectUnquoted) {
    const Environment lang("LANG", "de");
    const std::string script = dialogScript("/a 'b'/\"$c\"", "d 'e' `f` %20");
    EXPECT_NE(script.find("\necho '' >> '/a 'b'/\"$c\"'\n"), std::string::npos);
    EXPECT_NE(script.find("\nwith open('/a 'b'/\"$c\"') as f: data = f.read()\n"), std::string::npos);
    EXPECT_NE(script.find("print(urllib.parse.quote('d 'e' `f` %20'))"), std::string::npos);
}

// ---- Installing -----------------------------------------------------------------------------------------------------

/// The program's handlers, installed for one test.
class Install : public testing::Test {
  protected:
    Install() {
        for (const int sig : FATAL) __real_sigaction(sig, nullptr, &before_.emplace_back());
        g_installed.clear();
        CrashHandler::install();
    }
    ~Install() override {
        for (size_t i = 0; i < FATAL.size(); ++i) __real_sigaction(FATAL[i], &before_[i], nullptr);
        std::set_terminate(terminate_);
    }

  private:
    std::vector<struct sigaction> before_;
    std::terminate_handler terminate_ = std::get_terminate();
};

TEST_F(Install, TakesTheFiveFatalSignalsInTheirOrder) {
    std::vector<int> signals;
    for (const Installed& one : g_installed) signals.push_back(one.sig);
    EXPECT_EQ(signals, (std::vector{SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL}));
}

TEST_F(Install, EachEntersTheHandlerOnceAndBlocksNoOther) {
    ASSERT_FALSE(g_installed.empty());
    for (const Installed& one : g_installed) {
        EXPECT_EQ(one.action.sa_handler, crashHandler) << one.sig;
        EXPECT_EQ(one.action.sa_flags, static_cast<int>(SA_RESETHAND)) << one.sig;
        EXPECT_FALSE(one.asks_for_the_old) << one.sig;
        for (int other = 1; other <= SIGRTMAX; ++other) {
            EXPECT_NE(sigismember(&one.action.sa_mask, other), 1) << one.sig << ' ' << other;
        }
    }
}

TEST_F(Install, HandlerIsInForce) {
    for (const int sig : FATAL) {
        struct sigaction now {};
        __real_sigaction(sig, nullptr, &now);
        EXPECT_EQ(now.sa_handler, crashHandler) << sig;
    }
}

TEST_F(Install, UncaughtExceptionAbortsSilently) {
    EXPECT_EQ(std::get_terminate(), static_cast<std::terminate_handler>(std::abort));
}

// ---- The handler's end ----------------------------------------------------------------------------------------------

/// Calls the handler in a process of its own with a signal that does not end it. Returns that process's exit status: 0
/// if the handler returned and left no alarm behind.
int status_after_a_harmless_signal(const std::string& folder) {
    const pid_t child = fork();
    if (child == 0) {
        // This test needs neither the dialog's script nor its messages.
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDERR_FILENO);
        setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
        setenv("PATH", "", 1);
        crashHandler(SIGCHLD);
        _exit(alarm(0) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(Handler, LeavesNoAlarmBehindWhereTheSignalEndsNothing) {
    const TemporaryFolder folder;
    EXPECT_EQ(status_after_a_harmless_signal(folder.path()), 0);
    EXPECT_NE(read_text(folder.path() / "Veldrin_crash.txt").find("Unknown signal"), std::string::npos);
    EXPECT_EQ(status_after_a_harmless_signal("/nowhere"), 0);
}

// ---- The alarm ------------------------------------------------------------------------------------------------------

/// Calls, in a process of its own, what the alarm calls while `sig` is handled. Returns that process's status.
int status_after_the_alarm(int sig, bool blocked) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        std::signal(sig, SIG_DFL);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, sig);
        pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
        alarmHandler(sig)(SIGALRM);
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(AlarmHandler, EndsTheProcessWithTheHandledSignal) {
    for (const int sig : FATAL) {
        for (const bool blocked : {true, false}) {
            const int status = status_after_the_alarm(sig, blocked);
            EXPECT_TRUE(WIFSIGNALED(status)) << sig << ' ' << blocked;
            EXPECT_EQ(WTERMSIG(status), sig) << blocked;
        }
    }
}

TEST(AlarmHandler, IsTheDefaultForEveryOtherNumber) {
    for (int sig = -1; sig <= SIGRTMAX + 1; ++sig) {
        if (std::ranges::find(FATAL, sig) != FATAL.end()) continue;
        EXPECT_EQ(alarmHandler(sig), SIG_DFL) << sig;
    }
}

// ---- What it leaves alone -------------------------------------------------------------------------------------------

void on_alarm(int) {}

TEST(InstallBeside, LeavesTheAlarmAndAllOtherSignalsAlone) {
    struct sigaction mine {};
    mine.sa_handler = on_alarm;
    ASSERT_EQ(__real_sigaction(SIGALRM, &mine, nullptr), 0);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    sigaddset(&blocked, SIGUSR1);
    sigset_t mask_before;
    pthread_sigmask(SIG_BLOCK, &blocked, &mask_before);
    std::vector<void (*)(int)> before;
    for (int sig = 1; sig <= SIGRTMAX; ++sig) {
        struct sigaction action {};
        __real_sigaction(sig, nullptr, &action);
        before.push_back(action.sa_handler);
    }

    CrashHandler::install();

    EXPECT_EQ(alarm(0), 0U);
    for (int sig = 1; sig <= SIGRTMAX; ++sig) {
        if (std::ranges::find(FATAL, sig) != FATAL.end()) continue;
        struct sigaction action {};
        __real_sigaction(sig, nullptr, &action);
        EXPECT_EQ(action.sa_handler, before[static_cast<size_t>(sig - 1)]) << sig;
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, &mask_before, &mask);
    for (int sig = 1; sig <= SIGRTMAX; ++sig) {
        EXPECT_EQ(sigismember(&mask, sig), sigismember(&blocked, sig) | sigismember(&mask_before, sig)) << sig;
    }
    for (const int sig : FATAL) std::signal(sig, SIG_DFL);
    std::signal(SIGALRM, SIG_DFL);
}

}  // namespace
