// SPDX-License-Identifier: MIT
// Prints what the program knows of the machine on which this runs, as one JSON object a line:
//   system_dump system            all of SystemInfo
//   system_dump modules           the error, and the list of modules
//   system_dump details [NAME...] each module with its details: of those loaded, or of those named
//   system_dump alone KIND...     the same, but any attempt to start a process ends the program
// Each character of a string is one byte. Where KERNEL_NAMES holds a release, a machine and a host name, with blanks
// between them, these are the kernel's.
#include "local_system.cpp"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <sstream>

/// Takes the place of the C library's, so that a test's kernel can be any one.
extern "C" int uname(utsname* names) noexcept {
    const char* kernel = std::getenv("KERNEL_NAMES");
    if (!kernel) return static_cast<int>(syscall(SYS_uname, names));
    *names = {};
    return std::sscanf(kernel, "%64s %64s %64s", names->release, names->machine, names->nodename) == 3 ? 0 : -1;
}

namespace {

std::string json(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        const bool plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        quoted += plain ? std::string(1, c) : escape;
    }
    return quoted + '"';
}

std::string json(bool value) {
    return value ? "true" : "false";
}

template <typename Number>
requires std::is_arithmetic_v<Number> std::string json(Number value) {
    return std::to_string(value);
}

std::string json(const InstalledKernel& kernel) {
    return "{\"version\": " + json(kernel.version) + ", \"running\": " + json(kernel.running) +
           ", \"has_image\": " + json(kernel.has_image) + ", \"has_modules\": " + json(kernel.has_modules) + "}";
}

std::string json(const std::pair<std::string, std::string>& parameter) {
    return "[" + json(parameter.first) + ", " + json(parameter.second) + "]";
}

std::string json(const KernelModule& mod);

template <typename Item>
std::string json(const std::vector<Item>& items) {
    std::string list;
    for (const Item& item : items) list += (list.empty() ? "" : ", ") + json(item);
    return "[" + list + "]";
}

std::string json(const SystemInfo& si) {
    return "{\"running_kernel\": " + json(si.running_kernel) + ", \"arch\": " + json(si.arch) +
           ", \"hostname\": " + json(si.hostname) + ", \"build_user\": " + json(si.build_user) +
           ", \"compiler\": " + json(si.compiler) + ", \"build_date\": " + json(si.build_date) +
           ", \"kernel_flags\": " + json(si.kernel_flags) + ", \"distro\": " + json(si.distro) +
           ", \"distro_note\": " + json(si.distro_note) + ", \"uptime\": " + json(si.uptime) +
           ", \"cmdline\": " + json(si.cmdline) + ", \"installed\": " + json(si.installed) +
           ", \"installed_note\": " + json(si.installed_note) + "}";
}

std::string json(const KernelModule& mod) {
    return "{\"name\": " + json(mod.name) + ", \"size\": " + json(mod.size) + ", \"refcount\": " + json(mod.refcount) +
           ", \"used_by\": " + json(mod.used_by) + ", \"state\": " + json(mod.state) +
           ", \"details_loaded\": " + json(mod.details_loaded) + ", \"version\": " + json(mod.version) +
           ", \"srcversion\": " + json(mod.srcversion) + ", \"taint\": " + json(mod.taint) +
           ", \"description\": " + json(mod.description) + ", \"author\": " + json(mod.author) +
           ", \"license\": " + json(mod.license) + ", \"filename\": " + json(mod.filename) +
           ", \"parameters\": " + json(mod.parameters) + "}";
}

/// From now on the kernel kills this process where it starts another one.
bool forbid_processes() {
    const sock_filter kill = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : {
#ifdef SYS_fork
             static_cast<unsigned>(SYS_fork),
             static_cast<unsigned>(SYS_vfork),
#endif
             static_cast<unsigned>(SYS_clone),
             static_cast<unsigned>(SYS_clone3),
         }) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        filter.push_back(kill);
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool dump(const std::vector<std::string>& arguments) {
    const std::string kind = arguments.empty() ? "" : arguments[0];
    std::string error = "of an earlier call";
    if (kind == "system") {
        std::cout << json(get_system_info()) << std::endl;
    } else if (kind == "modules") {
        const std::vector<KernelModule> mods = get_loaded_modules(error);
        std::cout << "{\"error\": " << json(error) << ", \"modules\": " << json(mods) << "}" << std::endl;
    } else if (kind == "details") {
        std::vector<KernelModule> mods;
        if (arguments.size() == 1) mods = get_loaded_modules(error);
        for (size_t i = 1; i < arguments.size(); ++i) mods.emplace_back().name = arguments[i];
        for (KernelModule& mod : mods) {
            fill_module_details(mod);
            std::cout << json(mod) << std::endl;
        }
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty()) return 2;
    if (arguments[0] != "alone") return dump(arguments) ? 0 : 2;

    if (!forbid_processes()) return 3;
    for (size_t i = 1; i < arguments.size(); ++i) {
        if (!dump({arguments[i]})) return 2;
    }
    // A sanitizer would look for leaks from a process of its own.
    std::_Exit(0);
}
