// SPDX-License-Identifier: MIT
// Fuzzes the parser of ChangeLog texts, against a slow, literal one.
#include "kernel_checker.cpp"

#include "changelog_models.h"
#include "changelog_properties.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    require_parser_holds(parse_changelog_text, model::parse_changelog_text, text, true);
    return 0;
}
