// SPDX-License-Identifier: MIT
// Everything that asks the machine: the sandbox around the program, the running and the installed kernels, the loaded
// modules. Owns nothing and keeps nothing: each call reads anew. Main thread only; knows nothing of GTK and never
// writes a message. What can't be opened is an empty string or list, with a note for the user where the window shows
// one. A file that opens and then fails to be read ends the program, with a crash report: kept on purpose. Texts hold
// the machine's own bytes, in whatever encoding.
#pragma once

#include <string>
#include <utility>
#include <vector>

/// One loaded module. The fields behind `details_loaded` stay empty until fill_module_details.
struct KernelModule {
    std::string name;
    unsigned long size = 0;  ///< Memory taken, in bytes.
    int refcount = 0;
    std::string used_by;  ///< The modules that use this one, with commas between them.
    std::string state;    ///< As the kernel writes it, such as "Live".
    bool details_loaded = false;
    std::string version;
    std::string srcversion;
    std::string taint;  ///< The kernel's letters for it.
    std::string description;
    std::string author;
    std::string license;
    std::string filename;
    std::vector<std::pair<std::string, std::string>> parameters;  ///< Name and value, by name.
};

/// One kernel of which an image or a module tree was found.
struct InstalledKernel {
    std::string version;
    bool running = false;      ///< `version` is the running kernel's release.
    bool has_image = false;    ///< /boot holds its image.
    bool has_modules = false;  ///< /lib/modules holds its module tree.
};

/// What is running, as far as it can be read.
struct SystemInfo {
    std::string running_kernel;  ///< The release.
    std::string arch;
    std::string hostname;
    std::string build_user;    ///< Who built the kernel: user and host.
    std::string compiler;      ///< Without the linker.
    std::string build_date;    ///< From its weekday on.
    std::string kernel_flags;  ///< The build's number and words, such as "#1 SMP PREEMPT_DYNAMIC".
    std::string distro;
    std::string distro_note;                 ///< Why `distro` is the sandbox's and not the host's, or empty.
    std::string uptime;                      ///< Words for the user.
    std::string cmdline;                     ///< The kernel's boot line.
    std::vector<InstalledKernel> installed;  ///< Newest first.
    std::string installed_note;              ///< Why `installed` is short of something, or empty.
};

/// Returns a size for the user, in bytes, KB or MB.
std::string format_size(unsigned long bytes);

/// Returns whether the program runs in a Snap.
bool running_as_snap();

/// Returns the command by which the user lets the Snap see the host; empty outside a Snap.
std::string snap_connect_command();

/// Reads all of SystemInfo, without starting a process.
SystemInfo get_system_info();

/// Reads the list of loaded modules, sorted by name, without starting a process. `error` is empty if there is at least
/// one, and otherwise tells the user why not: a title, a line feed and a text.
std::vector<KernelModule> get_loaded_modules(std::string& error);

/// Fills in the details of `mod`, once: a second call changes nothing. Blocks for one run of modinfo.
void fill_module_details(KernelModule& mod);
