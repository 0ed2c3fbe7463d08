// SPDX-License-Identifier: MIT
/* Stands in for wget and curl where thousands of checks must not take hours. Copied into a folder under both names, it
 * gives the files beside it: `page`, `index` and `changelog`, with the text in `modified` as the page's date. */
#define _GNU_SOURCE 1

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { FAILED = 4, REFUSED = 8, LONGEST_PATH = 4096, LONGEST_DATE = 100 };

static char folder[LONGEST_PATH];

static FILE *file_beside(const char *name) {
    char path[LONGEST_PATH + 20];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    FILE *file = fopen(path, "r");
    if (!file) exit(FAILED);
    return file;
}

static void print(const char *name) {
    FILE *file = file_beside(name);
    char buffer[1 << 16];
    size_t length;
    while ((length = fread(buffer, 1, sizeof buffer, file)) > 0) fwrite(buffer, 1, length, stdout);
    fclose(file);
}

int main(int argc, char **argv) {
    static const char HEADER[] = "--header=If-Modified-Since: ";
    const ssize_t length = readlink("/proc/self/exe", folder, sizeof folder - 1);
    if (length < 0 || argc < 2) return FAILED;
    *strrchr(folder, '/') = '\0';

    const char *known = NULL;
    int head = 0;
    int told = 0;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--spider") == 0) head = 1;
        if (strcmp(argv[i], "-S") == 0) told = 1;
        if (strncmp(argv[i], HEADER, sizeof HEADER - 1) == 0) known = argv[i] + sizeof HEADER - 1;
    }

    const char *url = argv[argc - 1];
    if (!head) {
        print(strstr(url, "releases.json") ? "index" : strstr(url, "ChangeLog") ? "changelog" : "page");
        return 0;
    }
    char modified[LONGEST_DATE] = "";
    FILE *file = file_beside("modified");
    if (!fgets(modified, sizeof modified, file)) return FAILED;
    fclose(file);
    const int same = known && strcmp(known, modified) == 0;
    if (told) {
        fprintf(stderr, "  HTTP/1.1 %s\n  Last-Modified: %s\n", same ? "304 Not Modified" : "200 OK", modified);
    }
    return same ? REFUSED : 0;
}
