// SPDX-License-Identifier: MIT
// What a run of modinfo leaves behind: nothing, whatever it printed and however it ended.
#include "support.h"

#include "local_system.cpp"

#include <sys/wait.h>
#include <cerrno>

namespace {

TEST(ModinfoLeftovers, AreNeitherAnOpenFileNorADeadProcess) {
    for (const char* script : {"echo 'license: GPL'", "exit 1", "kill -9 $$", "exec 1>&-"}) {
        const StandIns tools;
        tools.add("modinfo", script);
        KernelModule module;
        module.name = "reed";
        const auto before = open_files();
        fill_module_details(module);

        EXPECT_EQ(tools.calls().size(), 1U) << script;
        EXPECT_EQ(open_files(), before) << script;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << script;
        EXPECT_EQ(errno, ECHILD) << script;
    }
}

}  // namespace
