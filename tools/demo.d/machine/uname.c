// SPDX-License-Identifier: MIT
/* Names the machine of the demo, so that its pictures are the same wherever they are taken. Preloaded into veldrin, and
 * into the window manager, which tells of windows from other machines. */
#include <stdio.h>
#include <sys/utsname.h>
#include <unistd.h>

static const char HOST[] = "birch";

int uname(struct utsname *names) {
    *names = (struct utsname){.sysname = "Linux", .version = "#1 SMP PREEMPT_DYNAMIC", .machine = "x86_64"};
    snprintf(names->nodename, sizeof names->nodename, "%s", HOST);
    snprintf(names->release, sizeof names->release, "%s", RELEASE);
    return 0;
}

int gethostname(char *name, size_t size) {
    snprintf(name, size, "%s", HOST);
    return 0;
}
