// SPDX-License-Identifier: MIT
// The changes window, "Latest Changes": what the newest release of a channel contains, commit by commit. Owns its one
// window and the threads that load for it; everything but those loads runs on the main thread.
#pragma once

#include "state.h"

/// Opens the window on the channel of `state` and starts to load it, or brings the open window to the front as it is.
/// Takes copies of the versions in `state` for this and later loads.
void show_changes_window(const AppState& state);

/// Closes the window if it is open. A load that still runs goes on, and its result is dropped.
void close_changes_window();
