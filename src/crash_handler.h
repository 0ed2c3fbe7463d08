// SPDX-License-Identifier: MIT
// The last words of the process: on a fatal signal, a report with a backtrace in a file, and an offer to mail it. Owns
// the handlers of these signals, which run on the thread that faulted, and while one of them runs the alarm of the
// process. Keeps no data, and needs nothing of the rest of the program.
#pragma once

namespace CrashHandler {

/// Installs the handler of the five fatal signals. Once, before anything else. The process still dies of its signal:
/// at once, or by the alarm after five seconds if the handler hangs.
void install();

}  // namespace CrashHandler
