// SPDX-License-Identifier: MIT
// Fuzzes the reading of the release index, against a slow, literal one.
#include "kernel_checker.cpp"

#include "models.h"
#include "property.h"

namespace {

bool is_json_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string model_json_field(const std::string& json, size_t from, size_t to, const std::string& key) {
    const std::string needle = "\"" + key + "\"";
    size_t at = model::find(json, needle, from);
    if (at == std::string::npos || at >= to) return "";
    at += needle.size();
    while (at < to && json[at] != ':') ++at;
    if (at >= to) return "";
    ++at;
    while (at < to && is_json_blank(json[at])) ++at;
    if (at >= to || json[at] != '"') return "";
    ++at;
    std::string value;
    while (at < to && json[at] != '"') value += json[at++];
    return at < to ? value : "";
}

/// Returns where the first moniker of `channel` stands: `exactly` with one blank behind its colon, or else with any
/// blanks around the colon.
size_t model_record(const std::string& json, const std::string& channel, bool exactly) {
    const auto skip_blanks = [&json](size_t at) {
        while (at < json.size() && (json[at] == ' ' || (json[at] >= '\t' && json[at] <= '\r'))) ++at;
        return at;
    };
    if (exactly) return model::find(json, "\"moniker\": \"" + channel + "\"", 0);
    for (size_t start = 0; start < json.size(); ++start) {
        if (json.substr(start, 9) != "\"moniker\"") continue;
        const size_t colon = skip_blanks(start + 9);
        if (colon >= json.size() || json[colon] != ':') continue;
        const size_t value = skip_blanks(colon + 1);
        if (json.substr(std::min(value, json.size()), channel.size() + 2) == "\"" + channel + "\"") return start;
    }
    return std::string::npos;
}

struct Release {
    std::string version;
    std::string changelog;
    std::string released;
};

void model_lookup(const std::string& json, const std::string& channel, Release& release) {
    size_t pos = model_record(json, channel, true);
    if (pos == std::string::npos) pos = model_record(json, channel, false);
    if (pos == std::string::npos) return;
    size_t end = model::find(json, "\"moniker\"", pos + 9);
    if (end == std::string::npos) end = json.size();
    release.version = model_json_field(json, pos, end, "version");
    release.changelog = model_json_field(json, pos, end, "changelog");
    release.released = model_json_field(json, pos, end, "isodate");
}

std::string model_guess(const std::string& version) {
    std::string major;
    for (const char c : version) {
        if (c == '.') break;
        if (c < '0' || c > '9') return "";
        major += c;
    }
    if (major.empty() || major.size() == version.size() || model::find(version, "rc", 0) != std::string::npos)
        return "";
    return VELDRIN_RELEASE_CDN "pub/linux/kernel/v" + major + ".x/ChangeLog-" + version;
}

void check_field(const std::string& json, size_t from, size_t to, const std::string& key) {
    const std::string value = json_field(json, from, to, key);
    require_same(value, model_json_field(json, from, to, key), "a field is what stands behind its key");
    require(value.find('"') == std::string::npos, "a field holds no quote");
    const std::string_view slice = std::string_view(json).substr(from, to - from);
    require(value.empty() || slice.find('"' + value + '"') != std::string_view::npos, "a field lies in its record");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string json(data, data + size);
    for (const std::string channel : {"mainline", "stable", "longterm"}) {
        Release actual{"version", "changelog", "released"};
        Release expected = actual;
        release_index_lookup(json, channel, actual.version, actual.changelog, actual.released);
        model_lookup(json, channel, expected);
        require_same(actual.version, expected.version, "a channel's version");
        require_same(actual.changelog, expected.changelog, "a channel's ChangeLog");
        require_same(actual.released, expected.released, "a channel's date");
        require_same(guess_changelog_url(actual.version), model_guess(actual.version), "the address of a ChangeLog");
    }

    const std::uint64_t number = number_from(json);
    const size_t from = number % (size + 1);
    const size_t to = from + (number >> 24) % (size - from + 1);
    for (const char* key : {"version", "changelog", "isodate"}) {
        check_field(json, 0, size, key);
        check_field(json, from, to, key);
    }
    return 0;
}
