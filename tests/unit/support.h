// SPDX-License-Identifier: MIT
// What several tests need: a folder of their own, an environment put back afterwards, tools of their own on the search
// path that record how they were called. Test thread only.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

/// A folder that is gone with its object.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "veldrin-test-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// An environment variable set (or unset, by nullopt) until the end of its object.
class Environment {
  public:
    Environment(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* before = std::getenv(name)) before_ = before;
        apply(value);
    }
    ~Environment() { apply(before_); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

  private:
    void apply(const std::optional<std::string>& value) const {
        if (value) {
            setenv(name_, value->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

    const char* name_;
    std::optional<std::string> before_;
};

inline std::string read_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void write_text(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

/// Returns how many files this process has open, the folder in which it looks among them.
inline auto open_files() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator{});
}

/// A search path whose first folder holds stand-ins. Each records its name and arguments, then runs a script of its
/// own for the answer; the shell's other tools stay within reach.
class StandIns {
  public:
    StandIns() : path_("PATH", folder_.path().string() + ":/usr/bin:/bin") {}

    /// Puts a stand-in called `tool` on the path, whose answer is what `script` does (with `$*` as it was called).
    void add(const std::string& tool, const std::string& script) const {
        const std::filesystem::path file = folder_.path() / tool;
        std::ofstream out(file);
        // The record goes through one printf, so that two stand-ins of one pipe do not mix their lines.
        out << "#!/bin/sh\n"
               "record=" +
                   tool +
                   "\n"
                   "for argument in \"$@\"; do record=\"$record|$argument\"; done\n"
                   "printf '%s\\n' \"$record\" >> '" +
                   record().string() + "'\n" + script + "\n";
        out.close();
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

    /// Returns all calls so far, each as the tool's name and its arguments, with a bar before each argument.
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::ifstream file(record());
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    }

    void forget_calls() const { std::filesystem::remove(record()); }

    std::filesystem::path file(const std::string& name) const { return folder_.path() / name; }

  private:
    std::filesystem::path record() const { return folder_.path() / "calls"; }

    TemporaryFolder folder_;
    Environment path_;
};
