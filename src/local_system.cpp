// SPDX-License-Identifier: MIT
// Small helpers, the system's information, the installed kernels, the loaded modules and their details. The public
// functions stand last.
#include "local_system.h"

#include <dirent.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>

namespace {

constexpr char PROC_MODULES[] = "/proc/modules";
constexpr char SYS_MODULE[] = "/sys/module/";
constexpr char OS_RELEASE[] = "/etc/os-release";
constexpr char SNAP_HOST_OS_RELEASE[] = "/var/lib/snapd/hostfs/etc/os-release";
constexpr char FLATPAK_HOST_OS_RELEASE[] = "/run/host/os-release";

struct CloseDir {
    void operator()(DIR* dir) const { closedir(dir); }
};

// ---- Small helpers --------------------------------------------------------------------------------------------------

/// Returns the whole content of a file, or empty; `ok`, unless null, tells whether it could be opened. A file that
/// opens and then can't be read, a folder for one, throws.
std::string read_file(const std::string& path, bool* ok = nullptr) {
    std::ifstream file(path, std::ios::binary);
    if (ok) *ok = file.is_open();
    if (!file.is_open()) return {};
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string trim(const std::string& s) {
    constexpr std::string_view WHITE_SPACE = " \t\r\n";
    const size_t first = s.find_first_not_of(WHITE_SPACE);
    if (first == std::string::npos) return {};
    return s.substr(first, s.find_last_not_of(WHITE_SPACE) - first + 1);
}

/// Calls `take` with the name of each entry of a folder but itself and its parent, in the folder's own order. Returns
/// whether the folder could be opened.
bool for_each_entry(const std::string& path, const std::function<void(const std::string& name)>& take) {
    const std::unique_ptr<DIR, CloseDir> dir(opendir(path.c_str()));
    if (!dir) return false;
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") take(name);
    }
    return true;
}

bool running_in_snap() {
    return std::getenv("SNAP") != nullptr;
}

bool running_in_flatpak() {
    return std::getenv("FLATPAK_ID") != nullptr || access("/.flatpak-info", F_OK) == 0;
}

// ---- System information ---------------------------------------------------------------------------------------------

/// Cuts `v`, the line by which the kernel tells who built it, how and when, into four fields of `si`.
void parse_proc_version(const std::string& v, SystemInfo& si) {
    size_t pos = 0;
    const auto skip_spaces = [&] {
        while (pos < v.size() && v[pos] == ' ') ++pos;
    };
    // The parentheses around a toolchain have others inside.
    const auto take_paren = [&]() -> std::string {
        skip_spaces();
        if (pos >= v.size() || v[pos] != '(') return {};
        int depth = 0;
        for (size_t end = pos; end < v.size(); ++end) {
            if (v[end] == '(') ++depth;
            if (v[end] == ')' && --depth == 0) {
                const size_t start = pos + 1;
                pos = end + 1;
                return v.substr(start, end - start);
            }
        }
        pos = v.size();
        return {};
    };

    constexpr std::string_view PREFIX = "Linux version ";
    if (v.starts_with(PREFIX)) pos = std::min(v.find(' ', PREFIX.size()), v.size());
    si.build_user = take_paren();
    const std::string toolchain = take_paren();
    si.compiler = trim(toolchain.substr(0, toolchain.find(", GNU ld")));
    const std::string rest = trim(v.substr(pos));

    static constexpr const char* days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    size_t cut = std::string::npos;
    for (const char* day : days) cut = std::min(cut, rest.find(day));
    si.kernel_flags = trim(rest.substr(0, cut));
    if (cut != std::string::npos) si.build_date = trim(rest.substr(cut));
}

/// Returns the distribution's name in an os-release file, or empty; `readable`, unless null, tells whether the file
/// could be opened and holds anything.
std::string pretty_name_from(const std::string& path, bool* readable = nullptr) {
    constexpr std::string_view KEY = "PRETTY_NAME=";
    bool ok = false;
    const std::string text = read_file(path, &ok);
    if (readable) *readable = ok && !text.empty();

    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line(text.data() + start, end - start);
        if (line.starts_with(KEY)) {
            line.remove_prefix(KEY.size());
            if (line.size() >= 2 && line.front() == '"' && line.back() == '"') line = line.substr(1, line.size() - 2);
            return std::string(line);
        }
        start = end + 1;
    }
    return {};
}

/// In a sandbox the plain path names the sandbox's own base, so the host's file is asked first.
void detect_distro(SystemInfo& si) {
    const bool in_snap = running_in_snap();
    if (in_snap || running_in_flatpak()) {
        bool readable = false;
        const std::string host = pretty_name_from(in_snap ? SNAP_HOST_OS_RELEASE : FLATPAK_HOST_OS_RELEASE, &readable);
        if (readable && !host.empty()) {
            si.distro = host;
            return;
        }
        si.distro_note = in_snap ? "sandbox base — run: snap connect veldrin:system-observe"
                                 : "sandbox base — host details not available";
    }
    si.distro = pretty_name_from(OS_RELEASE);
}

/// Returns the time since boot for the user, without seconds; empty if it can't be read.
std::string format_uptime() {
    const std::string text = read_file("/proc/uptime");
    const double seconds = std::strtod(text.c_str(), nullptr);
    // From here on the integers below would overflow. What is no number is left out, too.
    constexpr auto TOO_LONG = static_cast<double>(std::numeric_limits<long>::max());
    if (!(seconds > 0 && seconds < TOO_LONG)) return {};

    const long total = static_cast<long>(seconds);
    const long days = total / 86400;
    const long hours = total % 86400 / 3600;
    const long mins = total % 3600 / 60;
    char buffer[96];
    if (days >= 1) {
        std::snprintf(buffer, sizeof buffer, "%ld day%s, %ld h %ld min", days, days == 1 ? "" : "s", hours, mins);
    } else if (hours >= 1) {
        std::snprintf(buffer, sizeof buffer, "%ld h %ld min", hours, mins);
    } else {
        std::snprintf(buffer, sizeof buffer, "%ld min", mins);
    }
    return buffer;
}

// ---- Installed kernels ----------------------------------------------------------------------------------------------

/// Returns whether the kernel version `a` is newer than `b`, by the numbers in them alone: what stands between these
/// does not count, and a missing one is 0. With the same numbers the greater text is the newer.
bool version_greater(const std::string& a, const std::string& b) {
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    const auto skip_to_digit = [&](const std::string& s, size_t& i) {
        while (i < s.size() && !is_digit(s[i])) ++i;
    };
    // Unsigned, so that a number too long for the type wraps around; with a sign that would be undefined.
    const auto take_number = [&](const std::string& s, size_t& i) {
        std::uint64_t n = 0;
        for (; i < s.size() && is_digit(s[i]); ++i) n = n * 10 + static_cast<std::uint64_t>(s[i] - '0');
        return static_cast<std::int64_t>(n);
    };

    size_t ia = 0;
    size_t ib = 0;
    while (ia < a.size() || ib < b.size()) {
        skip_to_digit(a, ia);
        skip_to_digit(b, ib);
        const std::int64_t na = take_number(a, ia);
        const std::int64_t nb = take_number(b, ib);
        if (na != nb) return na > nb;
    }
    return a > b;
}

/// Returns why the list of kernels is short of something, or empty.
std::string note_on_installed(bool boot_ok, bool mods_ok) {
    if (boot_ok) return {};
    const bool in_snap = running_in_snap();
    if (!mods_ok) {
        return in_snap ? "/boot and /lib/modules are not readable in the sandbox."
                       : "/boot and /lib/modules are not readable.";
    }
    return in_snap ? "/boot is not readable in the sandbox — the list shows module trees from /lib/modules, which can "
                     "outlive their kernel image."
                   : "/boot is not readable — the list shows module trees from /lib/modules.";
}

/// Lists the kernels that are installed. `si.running_kernel` must be known by now.
void collect_installed_kernels(SystemInfo& si) {
    std::vector<InstalledKernel> list;
    const auto find_or_add = [&list](const std::string& version) -> InstalledKernel& {
        const auto found = std::ranges::find(list, version, &InstalledKernel::version);
        if (found != list.end()) return *found;
        return list.emplace_back(InstalledKernel{version});
    };

    constexpr std::string_view IMAGE = "vmlinuz-";
    const bool boot_ok = for_each_entry("/boot", [&](const std::string& name) {
        if (name.starts_with(IMAGE)) find_or_add(name.substr(IMAGE.size())).has_image = true;
    });
    const bool mods_ok =
        for_each_entry("/lib/modules", [&](const std::string& name) { find_or_add(name).has_modules = true; });

    for (InstalledKernel& kernel : list) kernel.running = kernel.version == si.running_kernel;
    std::ranges::sort(list, version_greater, &InstalledKernel::version);
    si.installed = list;
    si.installed_note = note_on_installed(boot_ok, mods_ok);
}

// ---- Loaded modules -------------------------------------------------------------------------------------------------

/// Takes the next word off the start of `line`; empty if there is none.
std::string take_word(std::string_view& line) {
    constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
    line.remove_prefix(std::min(line.find_first_not_of(WHITE_SPACE), line.size()));
    std::string word(line.substr(0, line.find_first_of(WHITE_SPACE)));
    line.remove_prefix(word.size());
    return word;
}

/// Reads a line of the kernel's list into `mod`. Returns whether it has all the columns.
bool parse_module_line(std::string_view line, KernelModule& mod) {
    mod.name = take_word(line);
    const std::string size_s = take_word(line);
    const std::string ref_s = take_word(line);
    mod.used_by = take_word(line);
    mod.state = take_word(line);
    if (mod.state.empty()) return false;

    mod.size = std::strtoul(size_s.c_str(), nullptr, 10);
    mod.refcount = static_cast<int>(std::strtol(ref_s.c_str(), nullptr, 10));
    if (mod.used_by == "-") mod.used_by.clear();
    while (!mod.used_by.empty() && mod.used_by.back() == ',') mod.used_by.pop_back();
    return true;
}

/// Returns the words for a list that could not be opened.
const char* module_list_error() {
    if (running_in_snap()) {
        return "Module list locked by the sandbox\n"
               "Reading /proc/modules needs the system-observe permission, which is not connected yet. Run the command "
               "at the bottom of this window, then open it again.";
    }
    if (running_in_flatpak()) {
        return "Module list not available\n"
               "The Flatpak sandbox does not grant access to /proc/modules. Use the Snap, .deb or .rpm build if you "
               "need this view.";
    }
    return "No modules could be read\n"
           "/proc/modules could not be opened. This kernel may have been built without loadable module support.";
}

// ---- Module details -------------------------------------------------------------------------------------------------

/// Returns whether a module's name may stand in a shell's command line as it is.
bool safe_module_name(const std::string& n) {
    constexpr size_t LONGEST = 64;
    const auto is_safe = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    };
    return !n.empty() && n.size() <= LONGEST && std::ranges::all_of(n, is_safe);
}

/// Takes what modinfo tells into the fields of `mod` that are still empty.
void read_modinfo(KernelModule& mod) {
    if (!safe_module_name(mod.name)) return;
    FILE* pipe = popen(("modinfo " + mod.name + " 2>/dev/null").c_str(), "r");
    if (!pipe) return;

    const std::array<std::pair<std::string_view, std::string*>, 5> fields = {{{"description", &mod.description},
                                                                              {"author", &mod.author},
                                                                              {"license", &mod.license},
                                                                              {"filename", &mod.filename},
                                                                              {"version", &mod.version}}};
    char buffer[2048];
    while (fgets(buffer, sizeof buffer, pipe)) {
        const std::string line = trim(buffer);
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        const std::string key = trim(line.substr(0, colon));
        const std::string val = trim(line.substr(colon + 1));
        for (const auto& [name, field] : fields) {
            if (key == name && field->empty()) *field = val;
        }
    }
    pclose(pipe);
}

/// Reads the parameters of the module whose folder is `base`.
void read_parameters(const std::string& base, KernelModule& mod) {
    const std::string folder = base + "/parameters";
    for_each_entry(folder, [&](const std::string& name) {
        bool ok = false;
        const std::string value = trim(read_file(folder + '/' + name, &ok));
        mod.parameters.emplace_back(name, !ok ? "(write-only)" : value.empty() ? "(empty)" : value);
    });
    std::ranges::sort(mod.parameters);
}

}  // namespace

std::string format_size(unsigned long bytes) {
    char buffer[64];
    if (bytes >= 1048576) {
        std::snprintf(buffer, sizeof buffer, "%.1f MB", static_cast<double>(bytes) * 0x1p-20);
    } else if (bytes >= 1024) {
        std::snprintf(buffer, sizeof buffer, "%.0f KB", static_cast<double>(bytes) * 0x1p-10);
    } else {
        std::snprintf(buffer, sizeof buffer, "%lu B", bytes);
    }
    return buffer;
}

bool running_as_snap() {
    return running_in_snap();
}

std::string snap_connect_command() {
    if (!running_in_snap()) return {};
    std::string name = "veldrin";
    for (const char* variable : {"SNAP_INSTANCE_NAME", "SNAP_NAME"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            name = value;
            break;
        }
    }
    return "sudo snap connect " + name + ":system-observe";
}

SystemInfo get_system_info() {
    SystemInfo si;
    utsname names;
    if (uname(&names) == 0) {
        si.running_kernel = names.release;
        si.arch = names.machine;
        si.hostname = names.nodename;
    }
    const std::string version = trim(read_file("/proc/version"));
    if (!version.empty()) parse_proc_version(version, si);
    detect_distro(si);
    si.uptime = format_uptime();
    si.cmdline = trim(read_file("/proc/cmdline"));
    collect_installed_kernels(si);
    return si;
}

std::vector<KernelModule> get_loaded_modules(std::string& error) {
    std::vector<KernelModule> mods;
    error.clear();
    std::ifstream file(PROC_MODULES, std::ios::binary);
    if (!file.is_open()) {
        error = module_list_error();
        return mods;
    }
    for (std::string line; std::getline(file, line);) {
        KernelModule mod;
        if (parse_module_line(line, mod)) mods.push_back(std::move(mod));
    }
    std::ranges::sort(mods, {}, &KernelModule::name);
    if (mods.empty()) {
        error =
            "No modules loaded\n"
            "This kernel appears to be fully built-in — everything it needs is compiled into the image rather than "
            "loaded at runtime.";
    }
    return mods;
}

void fill_module_details(KernelModule& mod) {
    if (mod.details_loaded) return;
    mod.details_loaded = true;

    const std::string base = SYS_MODULE + mod.name;
    mod.version = trim(read_file(base + "/version"));
    mod.srcversion = trim(read_file(base + "/srcversion"));
    mod.taint = trim(read_file(base + "/taint"));
    read_parameters(base, mod);
    read_modinfo(mod);
}
