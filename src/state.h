// What Veldrin remembers between runs: six strings in one small text file. Main thread only; knows nothing of GTK or
// of the net, and never reports a failure.
#pragma once

#include <string>

/// The state of the process. A version is an opaque text, as the release site gave it.
struct AppState {
    std::string kernel;         ///< The version acknowledged last; empty means none ever was.
    std::string latest_kernel;  ///< The newest stable version seen that differed from `kernel`.
    std::string mainline;       ///< The last version fetched of each channel.
    std::string stable;
    std::string longterm;
    std::string channel = "stable";  ///< The channel whose version is the label: mainline, stable or longterm.
};

/// Returns the saved state. A file that is missing or can't be read gives the default state; a key that can't be read
/// gives an empty string, and a channel that is none of the three gives "stable".
AppState load_state();

/// Overwrites the state file with `state`, values byte for byte. On failure nothing is saved and nothing is said; the
/// next save tries again.
void save_state(const AppState& state);

/// Returns the state file's full path, worked out anew from the environment. Tries to create its directory (that one
/// level alone); whether that worked shows when the file is opened.
std::string get_state_path();
