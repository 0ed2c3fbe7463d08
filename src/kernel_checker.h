// SPDX-License-Identifier: MIT
// Everything that asks the net: the version check on the release site's front page, and the list of a release's
// changes. Knows nothing of GTK, never writes a message; failure is an empty string, or a false `success` with words
// for the user. The version check runs on the check thread alone, a changelog is fetched on any number of load threads.
#pragma once

#include <string>
#include <vector>

/// The result of one version check. A version is the text of the table's cell, never parsed.
struct KernelVersions {
    std::string mainline;
    std::string stable;
    std::string longterm;  ///< The first longterm row's.
    bool success = false;  ///< True exactly when `stable` is not empty.
};

/// One commit. The bytes are those of the source, in whatever encoding.
struct ChangeEntry {
    std::string id;       ///< The hash, 12 characters at most.
    std::string author;   ///< Name, and address in angle brackets.
    std::string date;     ///< As the source wrote it.
    std::string subject;  ///< The message's first line.
    std::string body;     ///< The rest of the message, lines joined by line feeds, none at its end.
};

/// The result of one changelog load.
struct ChangeLog {
    std::string channel;
    std::string version;
    std::string released;              ///< The release's date as the index gives it, or empty.
    std::string source_url;            ///< Where the entries came from; on failure a text that held none, or empty.
    std::string web_url;               ///< What a person would open; on failure as `source_url`.
    std::vector<ChangeEntry> entries;  ///< In the source's order, 400 at most.
    int total_found = 0;               ///< How many the source holds.
    bool truncated = false;            ///< `entries` holds fewer than the source.
    bool success = false;              ///< Entries were loaded.
    std::string error;                 ///< Whole sentences for the user where `success` is false.
};

/// Asks the release site for the newest versions; blocks for as long as its commands take. A page unchanged since the
/// last check and a site that can't be reached both give the default result. Check thread only.
KernelVersions fetch_kernel_versions();

/// Loads what the newest release of `channel` (mainline, stable or longterm) contains; blocks for as long as its
/// commands take: well over two minutes where every server is silent, and without a limit where one trickles.
/// `known_version` is what the caller takes for that release, or empty; it counts where the release index can't be
/// read. Shares nothing, so it may run on several threads at once.
ChangeLog fetch_changelog(const std::string& channel, const std::string& known_version);

/// Returns the release of the kernel that runs here, or "unknown".
std::string get_running_kernel();
