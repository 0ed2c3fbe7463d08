// SPDX-License-Identifier: MIT
// The system window, "System & Kernel Modules": what the machine runs, and every loaded module. Owns its one window and
// the list of modules that it shows. Main thread only; reads the machine when it opens, at Reload and when a module is
// selected, and blocks the main loop for as long as that takes.
#pragma once

/// Opens the window with fresh data, or brings the open one to the front as it is.
void show_system_window();

/// Closes the window if it is open.
void close_system_window();
