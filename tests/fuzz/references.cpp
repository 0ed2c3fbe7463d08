// SPDX-License-Identifier: MIT
// Fuzzes the decoding of character references, against a slow, literal one.
#include "kernel_checker.cpp"

#include "models.h"
#include "property.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string in(data, data + size);
    const std::string out = xml_unescape(in);
    require_same(out, model::xml_unescape(in), "references are decoded as they should be");
    if (in.find('&') == std::string::npos) require_same(out, in, "a text without an ampersand stays as it is");
    // An unknown name is copied once more for each ampersand in it.
    require(out.size() <= 11 * in.size(), "a text grows by no more than a reference for each byte");
    return 0;
}
