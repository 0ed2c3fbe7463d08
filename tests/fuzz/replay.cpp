// SPDX-License-Identifier: MIT
// Takes the place of the fuzzer's main() in builds without one: runs a target on every file of the given folders.
#include "property.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) inputs.push_back(entry.path());
    }
    std::ranges::sort(inputs);
    if (inputs.empty()) {
        std::fputs("There is nothing to replay.\n", stderr);
        return 1;
    }

    for (const auto& input : inputs) {
        std::fprintf(stderr, "%s\n", input.c_str());
        std::ifstream file(input, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            std::fputs("It can't be read.\n", stderr);
            return 1;
        }
        // The copy has exactly the input's size, so the address sanitizer sees a read of one byte beyond it.
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return 0;
}
