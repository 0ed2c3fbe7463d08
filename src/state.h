// SPDX-License-Identifier: MIT
// What Veldrin remembers between runs: six strings in one small text file. The channels that it knows stand here, too,
// once for all modules above. Main thread only, but for that table, which any thread may read; knows nothing of GTK or
// of the net, and never reports a failure.
#pragma once

#include <array>
#include <string>
#include <string_view>

/// The state of the process. A version is an opaque text, as the release site gave it.
struct AppState {
    std::string kernel;         ///< The version acknowledged last; empty means none ever was.
    std::string latest_kernel;  ///< The newest stable version seen that differed from `kernel`.
    std::string mainline;       ///< The last version fetched of each channel.
    std::string stable;
    std::string longterm;
    std::string channel = "stable";  ///< The channel whose version is the label: an `id` of CHANNELS.
};

/// A channel of releases that the user may follow.
struct Channel {
    const char* id;                  ///< Its name in the state file, on the release site and in its index.
    const char* name;                ///< Its name on the screen.
    std::string AppState::*version;  ///< Where the state holds its newest version.
};

/// Every channel, in the order of the screen. The tables of other modules have the same order.
inline constexpr auto CHANNELS = std::to_array<Channel>({{"mainline", "Mainline", &AppState::mainline},
                                                         {"stable", "Stable", &AppState::stable},
                                                         {"longterm", "Longterm", &AppState::longterm}});
static_assert((CHANNELS.size() + 3) * sizeof(std::string) == sizeof(AppState),
              "beside one string for each channel, AppState holds three");

/// Returns whether `id` is the id of a channel.
constexpr bool is_channel(std::string_view id) {
    for (const Channel& channel : CHANNELS) {
        if (id == channel.id) return true;
    }
    return false;
}

/// Returns the place of a channel in CHANNELS by its `id`. What is no channel counts as stable.
constexpr size_t channel_index(std::string_view id) {
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
        if (id == CHANNELS[i].id) return i;
    }
    return channel_index("stable");
}

/// Returns the saved state. A file that is missing or can't be read gives the default state; a key that can't be read
/// gives an empty string, and what is no channel gives "stable".
AppState load_state();

/// Overwrites the state file with `state`, values byte for byte. On failure nothing is saved and nothing is said; the
/// next save tries again.
void save_state(const AppState& state);

/// Returns the state file's full path, worked out anew from the environment. Tries to create its directory (that one
/// level alone); whether that worked shows when the file is opened.
std::string get_state_path();
