// SPDX-License-Identifier: MIT
// The overview window, "Settings": the channel that the tray follows, the running kernel, each channel's newest
// version. Owns its one window. Main thread only; it changes the state's channel and saves nothing.
#pragma once

#include "state.h"

/// Opens the window, or brings the open one to the front as it is. `state` is borrowed for the window's life; its
/// `channel` is what the user picks, after which `on_channel_changed` is called, unless it is null.
void show_info_window(AppState& state, void (*on_channel_changed)());

/// Closes the window if it is open.
void close_info_window();
