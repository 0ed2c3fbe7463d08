// SPDX-License-Identifier: MIT
// The about dialog: the program's name, version, addresses, and what it owes to others. Owns nothing beyond a call.
// Main thread only.
#pragma once

/// Shows a new dialog and returns when the user has closed it. Meanwhile the main loop's other work goes on.
void show_about_dialog();
