// SPDX-License-Identifier: MIT
// The tray applet itself: start-up, the tray icon with its label and menu, the periodic check, the signals that open
// windows. Owns the process's state and its main loop. All of it is the main thread's but for the check thread's loop.
#pragma once

/// Starts the applet and runs it until the user quits. Both arguments go to GTK, which ends the process itself if
/// there is no display.
void app_run(int argc, char** argv);
