// SPDX-License-Identifier: MIT
// Fuzzes the search of the front page's versions, against a matcher by hand and, on pages small enough for it, against
// the expressions of the C++ library.
#include "kernel_checker.cpp"

#include "property.h"

#include <optional>
#include <regex>

namespace {

/// On longer pages the library's expressions take long, and in the end run out of stack.
constexpr size_t LARGEST_FOR_LIBRARY = 200;

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// A position in a page. It moves past what it matches.
struct Reader {
    std::string_view page;
    size_t at;

    bool literal(std::string_view text) {
        for (size_t i = 0; i < text.size(); ++i) {
            if (at + i >= page.size() || lower(page[at + i]) != lower(text[i])) return false;
        }
        at += text.size();
        return true;
    }
    void blanks() {
        while (at < page.size() && (page[at] == ' ' || (page[at] >= '\t' && page[at] <= '\r'))) ++at;
    }
    bool cell_opens() {
        if (!literal("<td")) return false;
        while (at < page.size() && page[at] != '>') ++at;
        if (!literal(">")) return false;
        blanks();
        return true;
    }
    bool cell_closes() {
        blanks();
        return literal("</td>");
    }
};

std::optional<size_t> end_of_label_cell(Reader reader, std::string_view label) {
    if (!reader.cell_opens() || !reader.literal(label)) return {};
    reader.blanks();
    reader.literal(":");
    if (!reader.cell_closes()) return {};
    return reader.at;
}

std::optional<std::string> version_of_cell(Reader reader) {
    if (!reader.cell_opens()) return {};
    reader.literal("<strong>");
    reader.blanks();
    std::string version;
    for (; reader.at < reader.page.size(); ++reader.at) {
        const char c = lower(reader.page[reader.at]);
        const bool digit = c >= '0' && c <= '9';
        const bool later = (c >= 'a' && c <= 'z') || c == '.' || c == '_' || c == '-';
        if (!digit && (version.empty() || !later)) break;
        version += reader.page[reader.at];
    }
    if (version.empty()) return {};
    reader.blanks();
    reader.literal("</strong>");
    if (!reader.cell_closes()) return {};
    return version;
}

std::string model_extract_first(std::string_view html, std::string_view label) {
    for (size_t i = 0; i < html.size(); ++i) {
        const std::optional<size_t> end = end_of_label_cell({html, i}, label);
        if (!end) continue;
        for (size_t k = *end; k < html.size(); ++k) {
            if (const auto version = version_of_cell({html, k})) return *version;
        }
        return "";
    }
    return "";
}

std::string library_extract_first(const std::string& html, const std::regex& label_cell) {
    static const std::regex version_cell(R"(<td[^>]*>\s*(?:<strong>)?\s*([0-9][0-9a-z._-]*)\s*(?:</strong>)?\s*</td>)",
                                         std::regex::icase);
    std::smatch cell;
    if (!std::regex_search(html, cell, label_cell)) return "";
    const std::string rest = cell.suffix();
    std::smatch version;
    return std::regex_search(rest, version, version_cell) ? version[1].str() : "";
}

struct Label {
    std::string text;
    std::regex cell{R"(<td[^>]*>\s*)" + text + R"(\s*:?\s*</td>)", std::regex::icase};
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Label labels[] = {{"mainline"}, {"stable"}, {"longterm"}};
    const std::string html(data, data + size);
    for (const Label& label : labels) {
        const std::string version = extract_first(html, label.text);
        require_same(version, model_extract_first(html, label.text), "the version is the first behind the label");
        if (size <= LARGEST_FOR_LIBRARY) {
            require_same(version, library_extract_first(html, label.cell), "the library's expressions find the same");
        }
    }
    return 0;
}
