// SPDX-License-Identifier: MIT
// Fuzzes the reading of the state file, against a slow, literal one, and its way through a real file.
#include "state.cpp"

#include "property.h"

#include <array>
#include <filesystem>
#include <vector>

namespace {

/// A folder that holds the state file, and is gone with the process.
class StateFolder {
  public:
    StateFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "veldrin-fuzz-XXXXXX").string();
        if (!mkdtemp(name.data())) std::abort();
        path_ = name;
        setenv("SNAP_USER_DATA", name.c_str(), 1);
    }
    ~StateFolder() { std::filesystem::remove_all(path_); }
    StateFolder(const StateFolder&) = delete;
    StateFolder& operator=(const StateFolder&) = delete;

    void write(const std::string& text) const { std::ofstream(path_ / "app_state.json", std::ios::binary) << text; }

  private:
    std::filesystem::path path_;
};

/// Does literally what json_get() does: finds the first quoted key with a colon behind it, and the quotes behind that.
std::string model_json_get(const std::string& json, const std::string& key) {
    const std::string quoted = "\"" + key + "\"";
    size_t at = 0;
    while (true) {
        while (at < json.size() && json.substr(at, quoted.size()) != quoted) ++at;
        if (at >= json.size()) return "";
        at += quoted.size();
        size_t colon = at;
        while (colon < json.size() && std::string(" \t\r\n").find(json[colon]) != std::string::npos) ++colon;
        if (colon == json.size()) return "";
        if (json[colon] != ':') continue;

        std::vector<std::string> between_quotes(1);
        for (size_t i = colon; i < json.size(); ++i) {
            if (json[i] == '"') {
                between_quotes.emplace_back();
            } else {
                between_quotes.back() += json[i];
            }
        }
        return between_quotes.size() > 2 ? between_quotes[1] : "";
    }
}

std::string model_channel(const std::string& channel) {
    return channel == "mainline" || channel == "longterm" ? channel : "stable";
}

void require_same_state(const AppState& actual, const AppState& expected, const char* property) {
    require_same(actual.kernel, expected.kernel, property);
    require_same(actual.latest_kernel, expected.latest_kernel, property);
    require_same(actual.mainline, expected.mainline, property);
    require_same(actual.stable, expected.stable, property);
    require_same(actual.longterm, expected.longterm, property);
    require_same(actual.channel, expected.channel, property);
}

/// Returns a state whose values are what stands between the text's quotes: no value may hold a quote.
AppState state_from(const std::string& text) {
    std::array<std::string, 6> values;
    size_t next = 0;
    for (const char c : text) {
        if (c == '"') {
            ++next;
        } else {
            values[next % values.size()] += c;
        }
    }
    return {values[0], values[1], values[2], values[3], values[4], values[5]};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const StateFolder folder;
    const std::string json(data, data + size);

    for (const char* key : {"kernel", "latest_kernel", "mainline", "stable", "longterm", "channel"}) {
        require_same(json_get(json, key), model_json_get(json, key), "a key's value");
    }

    folder.write(json);
    const AppState read{model_json_get(json, "kernel"),   model_json_get(json, "latest_kernel"),
                        model_json_get(json, "mainline"), model_json_get(json, "stable"),
                        model_json_get(json, "longterm"), model_channel(model_json_get(json, "channel"))};
    require_same_state(load_state(), read, "a state is what its file says");

    AppState saved = state_from(json);
    save_state(saved);
    saved.channel = model_channel(saved.channel);
    require_same_state(load_state(), saved, "a state comes back as it was saved");
    return 0;
}
