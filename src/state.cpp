#include "state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

/// Returns the text value of `key`, or empty. A search for the quoted key and not a parser of JSON: it knows no escape,
/// no nesting and no type of value.
std::string json_get(const std::string& json, const std::string& key) {
    const std::string search = '"' + key + '"';
    for (size_t from = 0;;) {
        const size_t pos = json.find(search, from);
        if (pos == std::string::npos) return {};

        const size_t colon = json.find_first_not_of(" \t\r\n", pos + search.size());
        if (colon == std::string::npos) return {};
        if (json[colon] != ':') {
            // A value that reads like the key, such as the channel "stable".
            from = pos + search.size();
            continue;
        }

        const size_t q = json.find('"', colon);
        if (q == std::string::npos) return {};
        const size_t end = json.find('"', q + 1);
        if (end == std::string::npos) return {};
        return json.substr(q + 1, end - q - 1);
    }
}

std::string line(const char* key, const std::string& value, const char* end) {
    return std::string("  \"") + key + "\": \"" + value + '"' + end;
}

std::string to_text(const AppState& state) {
    return "{\n" + line("kernel", state.kernel, ",\n") + line("latest_kernel", state.latest_kernel, ",\n") +
           line("mainline", state.mainline, ",\n") + line("stable", state.stable, ",\n") +
           line("longterm", state.longterm, ",\n") + line("channel", state.channel, "\n") + "}\n";
}

}  // namespace

std::string get_state_path() {
    std::string directory = "/tmp";
    if (const char* snap = std::getenv("SNAP_USER_DATA")) {
        directory = snap;
    } else if (const char* home = std::getenv("HOME")) {
        directory = std::string(home) + "/.config/VeldrinWatch";
    }
    mkdir(directory.c_str(), 0755);
    return directory + "/app_state.json";
}

AppState load_state() {
    AppState state;
    const std::ifstream file(get_state_path(), std::ios::binary);
    if (!file) return state;

    std::ostringstream contents;
    contents << file.rdbuf();
    const std::string json = std::move(contents).str();

    state.kernel = json_get(json, "kernel");
    state.latest_kernel = json_get(json, "latest_kernel");
    state.mainline = json_get(json, "mainline");
    state.stable = json_get(json, "stable");
    state.longterm = json_get(json, "longterm");
    const std::string channel = json_get(json, "channel");
    if (channel == "mainline" || channel == "stable" || channel == "longterm") state.channel = channel;
    return state;
}

void save_state(const AppState& state) {
    const std::string text = to_text(state);
    const int file = open(get_state_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) return;

    // One write for the whole text, so that a kill can hardly leave half of it.
    [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
    close(file);
}
