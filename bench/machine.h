// SPDX-License-Identifier: MIT
// A machine in place of the one that the system window would read, so that a benchmark times the window alone. Main
// thread only, and for one source file of a benchmark each.
#pragma once

#include "local_system.h"

#include <string>
#include <utility>
#include <vector>

/// What the next reading of the machine finds. To make it is no part of what is timed.
inline std::vector<KernelModule> g_loaded;
inline std::vector<InstalledKernel> g_installed = {
    {"7.2.4-bench", true, true, true}, {"7.2.3", false, true, true}, {"6.18.2", false, false, true}};
/// What each module has.
inline std::vector<std::pair<std::string, std::string>> g_parameters;

inline std::vector<KernelModule> many_modules(size_t count) {
    std::vector<KernelModule> modules;
    for (size_t i = 0; i < count; ++i) {
        KernelModule m;
        const std::string number = std::to_string(1000 + i).substr(1);
        m.name = (i % 3 == 0 ? "net_route_" : i % 3 == 1 ? "snd_codec_" : "usb_bridge_") + number;
        m.size = 4096 * (i % 97 + 1);
        m.refcount = static_cast<int>(i % 4);
        for (size_t user = 0; user < i % 4; ++user) {
            if (user) m.used_by += ',';
            m.used_by.append("net_route_").append(std::to_string(1000 + i / 2 + user).substr(1));
        }
        m.state = "Live";
        modules.push_back(std::move(m));
    }
    return modules;
}

std::vector<KernelModule> get_loaded_modules(std::string&) {
    return std::move(g_loaded);
}

SystemInfo get_system_info() {
    SystemInfo si;
    si.running_kernel = "7.2.4-bench";
    si.arch = "x86_64";
    si.hostname = "heron";
    si.build_user = "ada@forge";
    si.compiler = "gcc (Example 14.1) 14.1.0";
    si.build_date = "Mon Mar  2 10:11:12 UTC 2026";
    si.kernel_flags = "#1 SMP PREEMPT_DYNAMIC";
    si.distro = "Example Linux 9";
    si.uptime = "3 days, 4 h 5 min";
    si.cmdline = "root=/dev/vda2 ro quiet";
    si.installed = g_installed;
    return si;
}

void fill_module_details(KernelModule& m) {
    m.parameters = g_parameters;
}

std::string format_size(unsigned long bytes) {
    return std::to_string(bytes / 1024) + " KB";
}

bool running_as_snap() {
    return false;
}

std::string snap_connect_command() {
    return {};
}
