// Stands in for the fuzzer's main where there is none: runs a target over every file of the folders that it is given.
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
        // A copy of exactly the input's size: the address sanitizer then sees the first byte read beyond it.
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return 0;
}
