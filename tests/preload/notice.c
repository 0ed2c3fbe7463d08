// SPDX-License-Identifier: MIT
/* Lets the indicator library say something when the program makes its indicator, as newer versions of it do at each
 * start: a warning with the text NOTICE_TEXT in the log domain NOTICE_DOMAIN. */
#define _GNU_SOURCE 1

#include <dlfcn.h>
#include <glib.h>
#include <stdlib.h>
#include <string.h>

typedef void *(*app_indicator_new_t)(const char *, const char *, int);

void *app_indicator_new(const char *id, const char *icon_name, int category);

void *app_indicator_new(const char *id, const char *icon_name, int category) {
    g_log(getenv("NOTICE_DOMAIN"), G_LOG_LEVEL_WARNING, "%s", getenv("NOTICE_TEXT"));

    /* ISO C knows no cast from an object pointer to a function's. */
    void *symbol = dlsym(RTLD_NEXT, "app_indicator_new");
    app_indicator_new_t real;
    memcpy(&real, &symbol, sizeof symbol);
    return real(id, icon_name, category);
}
