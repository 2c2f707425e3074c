/* dirent and stat are POSIX, not C99. */
#define _POSIX_C_SOURCE 200809L
#include "file_position.h"

#include <dirent.h>
#include <stdio.h>
#include <sys/stat.h>

static long long position_of(const char* descriptor) {
    char path[64];
    long long position = -1;
    snprintf(path, sizeof path, "/proc/self/fdinfo/%.16s", descriptor);
    FILE* info = fopen(path, "re");
    if (info != NULL) {
        if (fscanf(info, "pos: %lld", &position) != 1) {
            position = -1;
        }
        fclose(info);
    }
    return position;
}

long long file_position(const char* path) {
    struct stat wanted;
    long long furthest = -1;
    DIR* descriptors = stat(path, &wanted) == 0 ? opendir("/proc/self/fd") : NULL;
    if (descriptors == NULL) {
        return -1;
    }
    for (const struct dirent* each; (each = readdir(descriptors)) != NULL;) {
        struct stat found;
        if (fstatat(dirfd(descriptors), each->d_name, &found, 0) == 0 &&
            found.st_dev == wanted.st_dev && found.st_ino == wanted.st_ino) {
            const long long position = position_of(each->d_name);
            furthest = position > furthest ? position : furthest;
        }
    }
    closedir(descriptors);
    return furthest;
}
