// SPDX-License-Identifier: MIT
// The report, the dialog that offers to send it, and the handler that makes both.
#include "crash_handler.h"

#include "sites.h"

#include <execinfo.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>

static constexpr const char* APP_NAME = "Veldrin";
/// Kept on purpose: 1.2 beside the program's 1.3. It is the version of the report's form.
static constexpr const char* APP_VERSION = "1.2";
static constexpr const char* APP_EMAIL = VELDRIN_CONTACT;

static constexpr int MAX_FRAMES = 32;
/// How long the handler may take. It allocates, so a damaged heap can hold it up for ever.
static constexpr unsigned int PATIENCE_SECONDS = 5;

// ---- The report -----------------------------------------------------------------------------------------------------

static const char* signalName(int sig) {
    switch (sig) {
        case SIGILL:
            return "SIGILL (Illegal instruction)";
        case SIGABRT:
            return "SIGABRT (Abort)";
        case SIGBUS:
            return "SIGBUS (Bus error)";
        case SIGFPE:
            return "SIGFPE (Floating point exception)";
        case SIGSEGV:
            return "SIGSEGV (Segmentation fault)";
        default:
            return "Unknown signal";
    }
}

static std::string crashFilePath() {
    const char* tmp = std::getenv("XDG_RUNTIME_DIR");
    return std::string(tmp ? tmp : "/tmp") + "/Veldrin_crash.txt";
}

static const char* valueOrUnknown(const char* variable) {
    const char* value = std::getenv(variable);
    return value ? value : "unknown";
}

/// Writes what is known without looking at the stack.
static void writeHead(FILE* f, int sig, const char* timebuf) {
    std::fprintf(f, "=== %s Crash Report ===\n", APP_NAME);
    std::fprintf(f, "Version: %s\n", APP_VERSION);
    std::fprintf(f, "Signal: %s (%d)\n", signalName(sig), sig);
    std::fprintf(f, "Time: %s\n", timebuf);
    utsname names;
    if (uname(&names) == 0) std::fprintf(f, "System: %s %s %s\n", names.sysname, names.release, names.machine);
    std::fprintf(f, "Desktop: %s (%s)\n", valueOrUnknown("XDG_CURRENT_DESKTOP"), valueOrUnknown("XDG_SESSION_TYPE"));
    const char* snapVersion = std::getenv("SNAP_VERSION");
    if (snapVersion) {
        std::fprintf(f, "Snap: yes (v%s)\n", snapVersion);
    } else {
        std::fprintf(f, "Snap: no\n");
    }
}

static void writeText(FILE* f, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), f);
}

// ---- The dialog -----------------------------------------------------------------------------------------------------

static bool isGerman() {
    for (const char* variable : {"LANG", "LC_ALL", "LANGUAGE"}) {
        const char* value = std::getenv(variable);
        if (value && std::strncmp(value, "de", 2) == 0) return true;
    }
    return false;
}

/// Returns the script that asks the user what happened, adds the answer to the report and opens a mail with it. Kept on
/// purpose: the apostrophe of the English button ends the quotes around it, so that bash rejects the English script,
/// and only German users see the dialog.
static std::string dialogScript(const std::string& path, const std::string& subject) {
    const bool de = isGerman();
    const std::string btn_send = de ? "Absturzbericht senden" : "Send crash report";
    const std::string btn_cancel = de ? "Nicht senden" : "Don't send";
    const std::string window_title =
        std::string(APP_NAME) + (de ? " - Können Sie beschreiben, wann der Fehler aufgetreten ist?"
                                    : " - Can you describe when the error occurred?");
    const std::string report = "'" + path + "'";

    std::string script = "DESC=$(zenity --text-info --editable --title='" + window_title + "' --width=500 --height=250";
    script += " --ok-label='" + btn_send + "' --cancel-label='" + btn_cancel + "' 2>/dev/null)\n";
    script += "if [ $? -ne 0 ]; then exit 0; fi\n";
    script += "echo '' >> " + report + "\n";
    script += "echo 'User description:' >> " + report + "\n";
    script += "echo \"$DESC\" >> " + report + "\n";
    script += "BODY=$(python3 -c \"\n";
    script += "import urllib.parse, sys\n";
    script += "with open(" + report + ") as f: data = f.read()\n";
    script += "print(urllib.parse.quote(data))\n";
    script += "\" 2>/dev/null)\n";
    script += "SUBJ=$(python3 -c \"import urllib.parse; print(urllib.parse.quote('" + subject + "'))\" 2>/dev/null)\n";
    script += std::string("xdg-open \"mailto:") + APP_EMAIL + "?subject=${SUBJ}&body=${BODY}\" 2>/dev/null || true\n";
    return script;
}

// ---- The handler ----------------------------------------------------------------------------------------------------

static void unblock(int sig) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

/// Ends the process by the signal whose handler hangs. Runs on whichever thread takes the alarm.
template <int SIG>
static void onAlarm(int) {
    raise(SIG);
    // The thread that faulted blocks the signal while it handles it, and so may any thread that inherited its mask.
    unblock(SIG);
}

/// Returns the alarm's handler while `sig` is handled. There is one for each signal, since the module keeps no data
/// that could tell a common one which signal it is.
static sighandler_t alarmHandler(int sig) {
    switch (sig) {
        case SIGILL:
            return onAlarm<SIGILL>;
        case SIGABRT:
            return onAlarm<SIGABRT>;
        case SIGBUS:
            return onAlarm<SIGBUS>;
        case SIGFPE:
            return onAlarm<SIGFPE>;
        case SIGSEGV:
            return onAlarm<SIGSEGV>;
        default:
            return SIG_DFL;
    }
}

/// Sets the alarm that ends the process by `sig`. If the handler faults in its turn, the alarm is set anew, for the new
/// signal.
static void armAlarm(int sig) {
    std::signal(SIGALRM, alarmHandler(sig));
    unblock(SIGALRM);
    alarm(PATIENCE_SECONDS);
}

/// Becomes the dialog; never returns. Runs in the child of the process that dies.
[[noreturn]] static void becomeDialog(int sig, const std::string& path, const char* timebuf, const char* display_env,
                                      const char* wayland_env, const char* xauth_env) {
    // A lock that another thread of the parent held stays held here, so the child needs an alarm, too. Its own ends it
    // without a core dump: the fault was the parent's.
    std::signal(SIGALRM, SIG_DFL);
    alarm(PATIENCE_SECONDS);
    if (display_env) setenv("DISPLAY", display_env, 1);
    if (wayland_env) setenv("WAYLAND_DISPLAY", wayland_env, 1);
    if (xauth_env) setenv("XAUTHORITY", xauth_env, 1);
    const std::string subject = std::string(APP_NAME) + " Crash: " + signalName(sig) + " - " + timebuf;
    const std::string script = dialogScript(path, subject);
    // The dialog and the mail program that it starts must take every signal.
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    // A user may take any time to answer.
    alarm(0);
    execl("/bin/bash", "bash", "-c", script.c_str(), nullptr);
    _exit(0);
}

/// Writes the report, starts the dialog and lets the signal end the process. Kept on purpose: it calls more than is
/// safe in a handler. That keeps the report simple, at the risk that after a crash inside the allocator the alarm must
/// end it.
static void crashHandler(int sig) {
    std::signal(sig, SIG_DFL);
    armAlarm(sig);
    const std::string path = crashFilePath();
    FILE* f = std::fopen(path.c_str(), "w");
    if (!f) {
        alarm(0);
        raise(sig);
        return;
    }
    // The library's own buffer would come from the heap, whose lock this thread may have held when it faulted.
    char buffer[4096];
    std::setvbuf(f, buffer, _IOFBF, sizeof buffer);

    char timebuf[64] = "";
    const std::time_t now = std::time(nullptr);
    if (const std::tm* local = std::localtime(&now)) {
        std::strftime(timebuf, sizeof timebuf, "%Y-%m-%d %H:%M:%S", local);
    }
    writeHead(f, sig, timebuf);
    writeText(f, "\nBacktrace:\n");
    // The frames are written past the stream's buffer.
    std::fflush(f);
    void* frames[MAX_FRAMES];
    const int count = backtrace(frames, MAX_FRAMES);
    backtrace_symbols_fd(frames, count, fileno(f));
    writeText(f, "\n=== End Report ===\n");
    std::fclose(f);

    const char* display_env = std::getenv("DISPLAY");
    const char* wayland_env = std::getenv("WAYLAND_DISPLAY");
    const char* xauth_env = std::getenv("XAUTHORITY");
    const pid_t pid = fork();
    if (pid == 0) becomeDialog(sig, path, timebuf, display_env, wayland_env, xauth_env);
    alarm(0);
    // The signal is blocked in its own handler, so it comes when the handler returns.
    raise(sig);
}

void CrashHandler::install() {
    // The library's own handler would write a line on the terminal first.
    std::set_terminate(std::abort);
    // The first call of each allocates, and loads a library or the time zone. The handler should not have to.
    void* frame;
    backtrace(&frame, 1);
    const std::time_t now = std::time(nullptr);
    std::localtime(&now);

    struct sigaction action = {};
    action.sa_handler = crashHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int sig : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL}) sigaction(sig, &action, nullptr);
}
