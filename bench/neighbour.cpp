// SPDX-License-Identifier: MIT
// Another C++ program of GTK's, as most desktops have some: it maps the C++ library, and uses what most programs use of
// it. What it shares with Veldrin is counted half for each.
#include <gtk/gtk.h>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    std::ostringstream text;
    std::thread([&text] { text << std::ifstream("/proc/self/status").rdbuf() << 1.5; }).join();
    // Nobody reads it: it says that the work is done.
    std::cout << text.str().size() << std::endl;
    gtk_main();
}
