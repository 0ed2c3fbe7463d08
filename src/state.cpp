// SPDX-License-Identifier: MIT
// The lines of the state file, the reading of one and the writing of all, then the file itself.
#include "state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

/// A line of the file: the key, and the part of the state that it holds.
struct Field {
    const char* key;
    std::string AppState::*value;
};

/// Every line of the file, in its order.
constexpr auto FIELDS = std::to_array<Field>({{"kernel", &AppState::kernel},
                                              {"latest_kernel", &AppState::latest_kernel},
                                              {"mainline", &AppState::mainline},
                                              {"stable", &AppState::stable},
                                              {"longterm", &AppState::longterm},
                                              {"channel", &AppState::channel}});
static_assert(FIELDS.size() * sizeof(std::string) == sizeof(AppState), "every string of AppState has a line here");

/// Returns the text value of `key`, or empty. Kept on purpose: a search for the quoted key, not a parser of JSON. It
/// knows no escape, no nesting and no type of value.
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

std::string to_text(const AppState& state) {
    std::string text = "{";
    const char* separator = "\n";
    for (const auto& [key, value] : FIELDS) {
        text.append(separator).append("  \"").append(key).append("\": \"").append(state.*value).append("\"");
        separator = ",\n";
    }
    return text + "\n}\n";
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

    for (const auto& [key, value] : FIELDS) state.*value = json_get(json, key);
    if (!is_channel(state.channel)) state.channel = AppState().channel;
    return state;
}

void save_state(const AppState& state) {
    const std::string text = to_text(state);
    const int file = open(get_state_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) return;

    // One write for the whole text: a kill can hardly leave half of it.
    [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
    close(file);
}
