// SPDX-License-Identifier: MIT
// Fuzzes the parser of the git browser's feeds, against a slow, literal one.
#include "kernel_checker.cpp"

#include "changelog_models.h"
#include "changelog_properties.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string xml(data, data + size);
    require_parser_holds(parse_atom_feed, model::parse_atom_feed, xml, false);
    return 0;
}
