// SPDX-License-Identifier: MIT
// Measures the most memory that a process needs which holds a large ChangeLog text and parses it.
//
//   bench_memory SIZE     parses a text of SIZE bytes; prints that size, the peak before and after it, in bytes
#include "kernel_checker.cpp"

#include "texts.h"

#include <sys/resource.h>

namespace {

/// Returns the most memory that this process ever had in use, in bytes.
size_t peak() {
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) std::abort();
    return static_cast<size_t>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const size_t size = std::strtoul(argv[1], nullptr, 10);
    const std::string text = texts::changelog(size);
    const size_t before = peak();
    ChangeLog log;
    parse_changelog_text(text, log);
    if (log.entries.size() != MAX_ENTRIES) return 1;
    std::printf("%zu %zu %zu\n", text.size(), before, peak());
    return 0;
}
