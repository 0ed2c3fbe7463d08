# SPDX-License-Identifier: MIT
"""What every test, measurement and demonstration from outside stands on: a display, a session bus, a panel, a user with
a search path, the program with its clock, and eyes and hands for its windows.

From the ground up, each module on those before it:

    project        where the project and its build lie
    waiting        waiting for conditions
    processes      programs that end with the script that started them
    bus            calls on a D-Bus connection
    desktop        the display and the session bus
    compositor     a Wayland compositor on that display
    panel          StatusNotifier watcher and host, a client of the items' menus
    tools          a search path of recording stand-ins for wget and curl; another of the real ones
    site           the local copy of the kernel's site
    clock          the program's sleeps, ended at a word
    user           a home, its saved state and its environment
    screen         pictures of the display
    applet         the program under test, and the machine that starts it
    world          other machines for the program to look at; `machines` lists some of them
    samples        real pages, where the machine has them
    crash          deaths of the program, and the reports that they leave
    probe          the windows seen from outside
    witness        a program in place of one that the applet starts
    accessibility  the windows as a screen reader and a keyboard have them
    hand           the windows pressed from inside, and the process's footprint
    kills, soaking what the short and the long runs of both share
    script         all of it for a script from the command line
"""
