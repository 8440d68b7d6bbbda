/* SPDX-License-Identifier: MIT
 * Preloaded into the daemon: counts its calls that change files of one folder, and at a given call ends
 * the process, lets the call fail, or waits. campaign/file_calls.py builds and steers it.
 *
 * FILE_CALLS names a file with a struct control, which both sides map; FILE_CALLS_FOLDER is the folder.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

enum { COUNT = 0, KILL = 1, FAIL = 2, SHORT = 3, DELAY = 4 };

struct control {
    volatile int action;
    volatile int at;    /* the call, from 0, at which it begins */
    volatile int most;  /* calls that it is for; 0 for all behind */
    volatile int value; /* errno, or microseconds */
    volatile int calls; /* so far */
};

static struct control* control;
static const char* folder;

__attribute__((constructor)) static void begin(void) {
    const char* file = getenv("FILE_CALLS");
    folder = getenv("FILE_CALLS_FOLDER");
    if (file == NULL || folder == NULL) {
        return;
    }
    const int descriptor = open(file, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return;
    }
    void* mapped = mmap(NULL, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    control = mapped == MAP_FAILED ? NULL : mapped;
}

/* The daemon names its files without a folder. */
static int isOfFolder(const char* path) {
    return path != NULL && (path[0] != '/' || strncmp(path, folder, strlen(folder)) == 0);
}
static int isOpenInFolder(int descriptor) {
    char link[64], path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, path, sizeof path - 1);
    if (length <= 0) {
        return 0;
    }
    path[length] = '\0';
    return path[0] == '/' && isOfFolder(path);
}

/* Counts a call of the folder and does what is asked. Returns the action for this call. */
static int take(void) {
    const int call = __atomic_fetch_add(&control->calls, 1, __ATOMIC_SEQ_CST);
    const int action = control->action;
    if (call < control->at || (control->most != 0 && call >= control->at + control->most)) {
        return COUNT;
    }
    if (action == KILL) {
        kill(getpid(), SIGKILL);
    }
    if (action == DELAY) {
        usleep((useconds_t)control->value);
    }
    if (action == FAIL || action == SHORT) {
        errno = control->value;
    }
    return action;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
#define FAILS(isOurs) (control != NULL && (isOurs) && take() == FAIL)

static int changes(int flags) {
    return (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
}
#define OPEN(name)                                                         \
    int name(const char* path, int flags, ...) {                           \
        va_list rest;                                                      \
        va_start(rest, flags);                                             \
        const mode_t mode = va_arg(rest, mode_t);                          \
        va_end(rest);                                                      \
        if (FAILS(changes(flags) && isOfFolder(path))) {                   \
            return -1;                                                     \
        }                                                                  \
        return ((int (*)(const char*, int, mode_t))dlsym(RTLD_NEXT, #name))(path, flags, mode); \
    }
OPEN(open)
OPEN(open64)

#define FOPEN(name)                                                                \
    FILE* name(const char* path, const char* mode) {                               \
        return FAILS(strpbrk(mode, "wa+") != NULL && isOfFolder(path)) ? NULL      \
                                                                       : REAL(name)(path, mode); \
    }
FOPEN(fopen)
FOPEN(fopen64)

ssize_t write(int descriptor, const void* bytes, size_t count) {
    if (control != NULL && isOpenInFolder(descriptor)) {
        const int action = take();
        if (action == FAIL) {
            return -1;
        }
        if (action == SHORT && count > 1) {
            return REAL(write)(descriptor, bytes, count / 2);
        }
    }
    return REAL(write)(descriptor, bytes, count);
}
ssize_t writev(int descriptor, const struct iovec* parts, int count) {
    return FAILS(isOpenInFolder(descriptor)) ? -1 : REAL(writev)(descriptor, parts, count);
}
int fsync(int descriptor) {
    return FAILS(isOpenInFolder(descriptor)) ? -1 : REAL(fsync)(descriptor);
}
int fdatasync(int descriptor) {
    return FAILS(isOpenInFolder(descriptor)) ? -1 : REAL(fdatasync)(descriptor);
}
int fchmod(int descriptor, mode_t mode) {
    return FAILS(isOpenInFolder(descriptor)) ? -1 : REAL(fchmod)(descriptor, mode);
}
int fchown(int descriptor, uid_t user, gid_t group) {
    return FAILS(isOpenInFolder(descriptor)) ? -1 : REAL(fchown)(descriptor, user, group);
}
int rename(const char* from, const char* to) {
    return FAILS(isOfFolder(from)) ? -1 : REAL(rename)(from, to);
}
int unlink(const char* path) {
    return FAILS(isOfFolder(path)) ? -1 : REAL(unlink)(path);
}
int truncate(const char* path, off_t length) {
    return FAILS(isOfFolder(path)) ? -1 : REAL(truncate)(path, length);
}
