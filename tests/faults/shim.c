/* SPDX-License-Identifier: Apache-2.0 */
/* Preloaded into a program under test: tells which files it touches, and plants a fault at an exact place.
 *
 * FAULTS_LOG=FILE           a line for each call: "sync /path", "rename /from<TAB>/to", "open xw /path" ...
 * FAULTS_AT=CALL:N:WHAT     at the Nth CALL and, if WHAT is an error number, at all behind it: WHAT is "s9" for
 *                           signal 9, "e28" for error 28. CALL is write, sync, rename, mkdir or alloc (of 4 KiB or more)
 * FAULTS_PID=NUMBER         the process number that the program is told
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

enum
{
    writing,
    syncing,
    renaming,
    making,
    allocating,
    kinds
};
static const char* const names[kinds] = {"write", "sync", "rename", "mkdir", "alloc"};
static const size_t smallest = 4096;
static int logFile = -1;
static int kindOfFault = -1;
static long placeOfFault;
static int signalOfFault;
static int errorOfFault;
static atomic_long counts[kinds];

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

__attribute__((constructor)) static void begin(void)
{
    const char* path = getenv("FAULTS_LOG");
    if (path != NULL) {
        const int file = REAL(open)(path, O_WRONLY | O_CREAT | O_APPEND, 0600);
        logFile = fcntl(file, F_DUPFD_CLOEXEC, 200);
        close(file);
    }
    const char* fault = getenv("FAULTS_AT");
    char kind[16];
    char what = 0;
    int number = 0;
    if (fault == NULL || sscanf(fault, "%15[a-z]:%ld:%c%d", kind, &placeOfFault, &what, &number) != 4)
        return;
    signalOfFault = what == 's' ? number : 0;
    errorOfFault = what == 'e' ? number : 0;
    for (int i = 0; i < kinds; ++i)
        if (strcmp(kind, names[i]) == 0)
            kindOfFault = i;
}

static void tell(const char* call, const char* path, const char* other)
{
    char line[2 * PATH_MAX + 64];
    if (logFile < 0)
        return;
    const int kept = errno;
    const int length = snprintf(line, sizeof line, "%s %s%s%s\n", call, path, other != NULL ? "\t" : "",
                                other != NULL ? other : "");
    REAL(write)(logFile, line, (size_t)length);
    errno = kept;
}

static void tellFile(const char* call, int file)
{
    char link[64];
    char path[PATH_MAX];
    snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const ssize_t length = logFile < 0 ? -1 : readlink(link, path, sizeof path - 1);
    if (length < 0)
        return;
    path[length] = 0;
    tell(call, path, NULL);
}

/* Whether the call is to fail; sends the signal that is due. */
static int fails(int kind)
{
    if (kind != kindOfFault)
        return 0;
    const long count = ++counts[kind];
    if (signalOfFault != 0 && count == placeOfFault) {
        const struct timespec pause = {.tv_nsec = 200000000};
        syscall(SYS_kill, syscall(SYS_getpid), signalOfFault);
        nanosleep(&pause, NULL); /* another thread may be the one that acts */
    }
    if (errorOfFault == 0 || count < placeOfFault)
        return 0;
    errno = errorOfFault;
    return 1;
}

/* A write to a file; to nothing else that has a descriptor. */
static int failsToWrite(int file)
{
    struct stat status;
    if (file <= STDERR_FILENO || file == logFile || fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    tellFile("write", file);
    return fails(writing);
}

static void tellOpened(int flags, int file)
{
    char call[16];
    if (file < 0 || (flags & O_ACCMODE) == O_RDONLY)
        return;
    snprintf(call, sizeof call, "open %s%sw", (flags & O_EXCL) != 0 ? "x" : "",
             (flags & O_TMPFILE) == O_TMPFILE ? "t" : "");
    tellFile(call, file);
}

#define OPENER(name)                                                                         \
    int name(const char* path, int flags, ...)                                               \
    {                                                                                        \
        va_list rest;                                                                        \
        va_start(rest, flags);                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0; \
        va_end(rest);                                                                        \
        const int file = REAL(name)(path, flags, mode);                                      \
        tellOpened(flags, file);                                                             \
        return file;                                                                         \
    }
OPENER(open)
OPENER(open64)

#define OPENER_AT(name)                                                                      \
    int name(int folder, const char* path, int flags, ...)                                   \
    {                                                                                        \
        va_list rest;                                                                        \
        va_start(rest, flags);                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0; \
        va_end(rest);                                                                        \
        const int file = REAL(name)(folder, path, flags, mode);                              \
        tellOpened(flags, file);                                                             \
        return file;                                                                         \
    }
OPENER_AT(openat)
OPENER_AT(openat64)

#define STREAM_OPENER(name)                                                           \
    FILE* name(const char* path, const char* mode)                                    \
    {                                                                                 \
        FILE* file = REAL(name)(path, mode);                                          \
        if (file != NULL && strpbrk(mode, "wa+") != NULL)                             \
            tellFile(strchr(mode, 'x') != NULL ? "open xw" : "open w", fileno(file)); \
        return file;                                                                  \
    }
STREAM_OPENER(fopen)
STREAM_OPENER(fopen64)

ssize_t write(int file, const void* bytes, size_t size)
{
    if (failsToWrite(file))
        return -1;
    return REAL(write)(file, bytes, size);
}

ssize_t writev(int file, const struct iovec* parts, int count)
{
    if (failsToWrite(file))
        return -1;
    return REAL(writev)(file, parts, count);
}

#define POSITIONED(name, offsetType)                                        \
    ssize_t name(int file, const void* bytes, size_t size, offsetType at)   \
    {                                                                       \
        return failsToWrite(file) ? -1 : REAL(name)(file, bytes, size, at); \
    }
POSITIONED(pwrite, off_t)
POSITIONED(pwrite64, off64_t)

#define SYNC(name)                                     \
    int name(int file)                                 \
    {                                                  \
        tellFile("sync", file);                        \
        return fails(syncing) ? -1 : REAL(name)(file); \
    }
SYNC(fsync)
SYNC(fdatasync)

size_t fwrite(const void* items, size_t size, size_t count, FILE* file)
{
    if (failsToWrite(fileno(file)))
        return 0;
    return REAL(fwrite)(items, size, count, file);
}

static void tellRename(int fromFolder, const char* from, int toFolder, const char* to)
{
    char link[64];
    char start[PATH_MAX] = "";
    char end[PATH_MAX] = "";
    const int folders[] = {fromFolder, toFolder};
    char* const prefixes[] = {start, end};
    const char* const paths[] = {from, to};
    for (int i = 0; i < 2; ++i) {
        if (paths[i][0] == '/')
            continue;
        snprintf(link, sizeof link, folders[i] == AT_FDCWD ? "/proc/self/cwd" : "/proc/self/fd/%d",
                 folders[i]);
        const ssize_t length = readlink(link, prefixes[i], PATH_MAX - 2);
        if (length > 0)
            strcpy(prefixes[i] + length, "/");
    }
    strncat(start, from, PATH_MAX - strlen(start) - 1);
    strncat(end, to, PATH_MAX - strlen(end) - 1);
    tell("rename", start, end);
}

int rename(const char* from, const char* to)
{
    tellRename(AT_FDCWD, from, AT_FDCWD, to);
    return fails(renaming) ? -1 : REAL(rename)(from, to);
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to)
{
    tellRename(fromFolder, from, toFolder, to);
    return fails(renaming) ? -1 : REAL(renameat)(fromFolder, from, toFolder, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags)
{
    tellRename(fromFolder, from, toFolder, to);
    return fails(renaming) ? -1 : REAL(renameat2)(fromFolder, from, toFolder, to, flags);
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags)
{
    tellRename(fromFolder, from, toFolder, to);
    return fails(renaming) ? -1 : REAL(linkat)(fromFolder, from, toFolder, to, flags);
}

int link(const char* from, const char* to)
{
    tellRename(AT_FDCWD, from, AT_FDCWD, to);
    return fails(renaming) ? -1 : REAL(link)(from, to);
}

int mkdir(const char* path, mode_t mode)
{
    char call[32];
    if (fails(making))
        return -1;
    snprintf(call, sizeof call, "mkdir %o", (unsigned)mode);
    const int result = REAL(mkdir)(path, mode);
    if (result == 0)
        tell(call, path, NULL);
    return result;
}

char* mkdtemp(char* path)
{
    if (fails(making))
        return NULL;
    char* made = REAL(mkdtemp)(path);
    if (made != NULL)
        tell("mkdir 700", made, NULL);
    return made;
}

pid_t getpid(void)
{
    const char* told = getenv("FAULTS_PID");
    return told != NULL ? (pid_t)strtol(told, NULL, 10) : REAL(getpid)();
}

extern void* __libc_malloc(size_t size);
void* malloc(size_t size)
{
    if (size >= smallest && fails(allocating))
        return NULL;
    return __libc_malloc(size);
}

/* What looks a name up, for tests that count. */
#define LOOK_UP(name)                               \
    int name(const char* path, struct stat* status) \
    {                                               \
        tell("look", path, NULL);                   \
        return REAL(name)(path, status);            \
    }
LOOK_UP(stat)
LOOK_UP(lstat)
