// SPDX-License-Identifier: MIT
// Fuzzes what guards the shell: the check that an address passes, and the quoting of a header. What gets through is
// handed to a real shell.
#include "kernel_checker.cpp"

#include "property.h"

#include <array>
#include <csignal>
#include <set>

namespace {

constexpr std::array<const char*, 4> HOSTS = {VELDRIN_RELEASE_CDN, VELDRIN_RELEASE_SITE, VELDRIN_RELEASE_APEX,
                                              VELDRIN_GIT_BROWSER};

bool is_letter_or_digit(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

/// Returns whether `text` has two neighbouring bytes that no text before it had. All letters and digits count as one.
/// A shell reads byte by byte, so other texts would only cost time.
bool is_new_to_the_shell(const std::string& text) {
    static std::set<std::pair<char, char>> seen;
    bool is_new = false;
    char before = '\'';
    for (const char c : text + '\'') {
        const char kind = is_letter_or_digit(c) ? 'a' : c;
        is_new |= seen.emplace(before, kind).second;
        before = kind;
    }
    return is_new;
}

/// Requires that the shell takes `quoted` between single quotes for one argument that is `text`.
void require_arrives(const std::string& quoted, const std::string& text) {
    if (!is_new_to_the_shell(text)) return;
    // The fuzzer's own timer would interrupt the reading of the pipe.
    sigset_t timer;
    sigemptyset(&timer);
    sigaddset(&timer, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &timer, nullptr);
    const std::string arrived = exec_command(("printf '[%s]' '" + quoted + "'").c_str());
    pthread_sigmask(SIG_UNBLOCK, &timer, nullptr);
    require_same(arrived, '[' + text + ']', "the shell takes it for one argument, unchanged");
}

bool model_is_safe(const std::string& url) {
    bool known_host = false;
    for (const std::string host : HOSTS) known_host |= url.substr(0, host.size()) == host;
    if (!known_host || url.size() > 512) return false;
    for (const char c : url) {
        bool permitted = is_letter_or_digit(c);
        for (const char other : std::string("-._~:/?#[]@!$&()*+,;=%")) permitted |= c == other;
        if (!permitted) return false;
    }
    return true;
}

void check(const std::string& url) {
    const bool safe = is_safe_kernel_url(url);
    require(safe == model_is_safe(url), "an address passes exactly if it should");
    if (safe) require_arrives(url, url);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    check(text);
    for (const std::string host : HOSTS) check(host + text);
    // A header that exec_command() returns holds no NUL.
    if (text.find('\0') == std::string::npos) require_arrives(inside_single_quotes(text), text);
    return 0;
}
