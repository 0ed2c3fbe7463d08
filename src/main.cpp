// SPDX-License-Identifier: MIT
// The two calls that are the program.
#include "app.h"
#include "crash_handler.h"

int main(int argc, char** argv) {
    // First, so that a fault while the libraries start leaves a report, too.
    CrashHandler::install();
    app_run(argc, argv);
    return 0;
}
