// SPDX-License-Identifier: MIT
// Slow, literal implementations of what several parsers share, to compare the real ones with.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace model {

/// Searches `what` at one place after the other.
inline size_t find(std::string_view text, std::string_view what, size_t from) {
    for (size_t at = from; at + what.size() <= text.size(); ++at) {
        if (text.substr(at, what.size()) == what) return at;
    }
    return std::string_view::npos;
}

inline std::string trim_right(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

/// Returns the bytes of a numeric reference whose name is `name`, or empty if it has no form of up to three bytes.
inline std::string numeric_reference(const std::string& name) {
    long cp = 0;
    try {
        const bool hexadecimal = name.size() >= 2 && (name[1] == 'x' || name[1] == 'X');
        cp = hexadecimal ? std::stol(name.substr(2), nullptr, 16) : std::stol(name.substr(1), nullptr, 10);
    } catch (const std::logic_error&) {
        cp = 0;
    }
    const auto byte = [](long value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (cp >= 1 && cp <= 127) return {byte(cp)};
    if (cp >= 128 && cp <= 2047) return {byte(192 + cp / 64), byte(128 + cp % 64)};
    if (cp >= 2048 && cp <= 65535) return {byte(224 + cp / 4096), byte(128 + cp / 64 % 64), byte(128 + cp % 64)};
    return {};
}

inline std::string xml_unescape(const std::string& in) {
    std::string out;
    size_t i = 0;
    while (i < in.size()) {
        if (in[i] != '&') {
            out.push_back(in[i]);
            i += 1;
            continue;
        }
        size_t semicolon = 0;
        for (size_t ahead = 1; ahead <= 10 && i + ahead < in.size() && semicolon == 0; ++ahead) {
            if (in[i + ahead] == ';') semicolon = i + ahead;
        }
        if (semicolon == 0) {
            out.push_back('&');
            i += 1;
            continue;
        }
        std::string name;
        for (size_t k = i + 1; k < semicolon; ++k) name.push_back(in[k]);
        const std::string reference = '&' + name + ';';
        if (name == "lt") {
            out += "<";
        } else if (name == "gt") {
            out += ">";
        } else if (name == "amp") {
            out += "&";
        } else if (name == "quot") {
            out += "\"";
        } else if (name == "apos" || name == "#39") {
            out += "'";
        } else if (!name.empty() && name[0] == '#') {
            const std::string decoded = numeric_reference(name);
            out += decoded.empty() ? reference : decoded;
        } else {
            out += reference;
            i += 1;
            continue;
        }
        i = semicolon + 1;
    }
    return out;
}

}  // namespace model
