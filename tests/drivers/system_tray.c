// SPDX-License-Identifier: MIT
/* A panel's tray of the old kind, for icons that are windows of X11. Prints "ready" once it is there, and then the name
 * of each window that asks for a place. */
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <stdio.h>

enum { REQUEST_DOCK = 0 };

/* An icon may be gone before its turn comes. */
static int pass_over(Display *display, XErrorEvent *error) {
    (void)display;
    (void)error;
    return 0;
}

int main(void) {
    Display *display = XOpenDisplay(NULL);
    if (!display) return 1;
    XSetErrorHandler(pass_over);
    const Window root = DefaultRootWindow(display);
    const Window tray = XCreateSimpleWindow(display, root, 0, 0, 100, 22, 0, 0, 0);
    const Atom selection = XInternAtom(display, "_NET_SYSTEM_TRAY_S0", False);
    const Atom request = XInternAtom(display, "_NET_SYSTEM_TRAY_OPCODE", False);
    XMapWindow(display, tray);
    XSetSelectionOwner(display, selection, tray, CurrentTime);
    if (XGetSelectionOwner(display, selection) != tray) return 1;

    XEvent here = {0};
    here.xclient.type = ClientMessage;
    here.xclient.window = root;
    here.xclient.message_type = XInternAtom(display, "MANAGER", False);
    here.xclient.format = 32;
    here.xclient.data.l[0] = CurrentTime;
    here.xclient.data.l[1] = (long)selection;
    here.xclient.data.l[2] = (long)tray;
    XSendEvent(display, root, False, StructureNotifyMask, &here);
    XFlush(display);
    puts("ready");
    fflush(stdout);

    for (;;) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type != ClientMessage || event.xclient.message_type != request) continue;
        if (event.xclient.data.l[1] != REQUEST_DOCK) continue;
        const Window icon = (Window)event.xclient.data.l[2];
        char *name = NULL;
        if (!XFetchName(display, icon, &name)) continue;
        puts(name);
        fflush(stdout);
        XFree(name);
        XReparentWindow(display, icon, tray, 0, 0);
        XMapWindow(display, icon);
    }
}
