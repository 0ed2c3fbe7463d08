// Everything that asks the net: the version check on the release site's front page. Knows nothing of GTK, never writes
// a message; failure is an empty string or a false `success`. The version check runs on the check thread alone.
#pragma once

#include <string>

/// The result of one version check. A version is the text of the table's cell, never parsed.
struct KernelVersions {
    std::string mainline;
    std::string stable;
    std::string longterm;  ///< The first longterm row's.
    bool success = false;  ///< True exactly when `stable` is not empty.
};

/// Asks the release site for the newest versions; blocks for as long as its commands take. A page unchanged since the
/// last check and a site that can't be reached both give the default result. Check thread only.
KernelVersions fetch_kernel_versions();

/// Returns the release of the kernel that runs here, or "unknown".
std::string get_running_kernel();
