// SPDX-License-Identifier: MIT
// Times each parser, and beside it in the same run a reference over the same bytes.
#include "kernel_checker.cpp"

#include "texts.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <functional>
#include <pugixml.hpp>

namespace {

/// Works on a text and hands over what it made of it, to be freed when the clock stands still.
using Work = std::function<std::shared_ptr<void>(const std::string& text)>;
using Text = std::string (*)(size_t size);

/// Finds every `wanted` in `text` and counts them, as fast as the C library can.
size_t walk(const std::string& text, char wanted) {
    size_t count = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    while ((at = static_cast<const char*>(std::memchr(at, wanted, static_cast<size_t>(end - at))))) {
        ++count;
        ++at;
    }
    return count;
}

Work walk_over(char wanted) {
    return [wanted](const std::string& text) -> std::shared_ptr<void> {
        benchmark::DoNotOptimize(walk(text, wanted));
        return nullptr;
    };
}

std::shared_ptr<void> parse_all_changes(const std::string& text) {
    const auto log = std::make_shared<ChangeLog>();
    parse_changelog_text(text, *log);
    return log;
}

std::shared_ptr<void> parse_feed(const std::string& text) {
    const auto log = std::make_shared<ChangeLog>();
    parse_atom_feed(text, *log);
    return log;
}

std::shared_ptr<void> parse_feed_as_tree(const std::string& text) {
    const auto document = std::make_shared<pugi::xml_document>();
    const pugi::xml_parse_result result = document->load_buffer(text.data(), text.size());
    if (!result) std::abort();
    return document;
}

std::shared_ptr<void> look_up_index(const std::string& text) {
    for (const char* channel : {"mainline", "stable", "longterm"}) {
        std::string version;
        std::string changelog;
        std::string released;
        release_index_lookup(text, channel, version, changelog, released);
        if (version.empty()) std::abort();
        benchmark::DoNotOptimize(version);
    }
    return nullptr;
}

std::shared_ptr<void> extract_versions(const std::string& text) {
    for (const char* label : {"mainline", "stable", "longterm"}) {
        const std::string version = extract_first(text, label);
        if (version.empty()) std::abort();
        benchmark::DoNotOptimize(version);
    }
    return nullptr;
}

std::shared_ptr<void> unescape(const std::string& text) {
    return std::make_shared<std::string>(xml_unescape(text));
}

std::shared_ptr<void> copy(const std::string& text) {
    return std::make_shared<std::string>(text);
}

/// Adds the rows CASE/SIZE/veldrin and CASE/SIZE/reference, whose text is made when the first of them runs. Their real
/// time is that of the work alone, their processor time that of making and freeing.
void add_case(const std::string& name, Text make, const std::vector<size_t>& sizes, const Work& ours,
              const Work& reference) {
    for (const size_t size : sizes) {
        const auto text = std::make_shared<std::string>();
        const auto add_row = [&](const std::string& row, const Work& work) {
            const std::string full_name = name + '/' + std::to_string(size) + '/' + row;
            benchmark::RegisterBenchmark(full_name.c_str(),
                                         [=](benchmark::State& state) {
                                             if (text->empty()) *text = make(size);
                                             for (auto _ : state) {
                                                 const auto start = std::chrono::steady_clock::now();
                                                 const std::shared_ptr<void> made = work(*text);
                                                 const std::chrono::duration<double> taken =
                                                     std::chrono::steady_clock::now() - start;
                                                 state.SetIterationTime(taken.count());
                                             }
                                             state.counters["bytes"] = static_cast<double>(text->size());
                                         })
                ->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
        };
        add_row("veldrin", ours);
        add_row("reference", reference);
    }
}

}  // namespace

int main(int argc, char** argv) {
    add_case("changelog", texts::changelog, {200'000, 20'000'000, 200'000'000}, parse_all_changes, walk_over('\n'));
    add_case("feed", texts::feed, {50'000, 1'000'000, 10'000'000}, parse_feed, parse_feed_as_tree);
    add_case("index", texts::index, {10'000, 1'000'000}, look_up_index, walk_over('"'));
    add_case("front page", texts::front_page, {20'000, 1'000'000}, extract_versions, walk_over('<'));
    // A shorter one the processor learns by heart, so that it meets no branch unprepared.
    add_case("references", texts::references, {200'000, 1'000'000, 10'000'000}, unescape, copy);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
