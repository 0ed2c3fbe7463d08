// SPDX-License-Identifier: MIT
// What the fuzz targets share: ways to require a property. One that does not hold ends the process, which is what a
// fuzzer looks for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

inline void require(bool holds, const char* property) {
    if (holds) return;
    std::fprintf(stderr, "Does not hold: %s\n", property);
    std::abort();
}

inline void print_visibly(const char* name, std::string_view text) {
    std::fprintf(stderr, "%s (%zu bytes): ", name, text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= ' ' && byte < 0x7F && byte != '\\') {
            std::fputc(byte, stderr);
        } else {
            std::fprintf(stderr, "\\x%02x", byte);
        }
    }
    std::fputc('\n', stderr);
}

inline void require_same(std::string_view actual, std::string_view expected, const char* property) {
    if (actual != expected) {
        print_visibly("  is    ", actual);
        print_visibly("  should", expected);
    }
    require(actual == expected, property);
}

/// Returns a number that depends on every byte of `text`. Targets derive from it where to cut and the like, so that an
/// input is plain text and none of its bytes has a second meaning.
inline std::uint64_t number_from(std::string_view text) {
    std::uint64_t number = 0xCBF29CE484222325;
    for (const char c : text) number = (number ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return number ^ (number >> 32);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
