// Preloaded into the daemon and, by inheritance, into the programs that it starts. Stands between
// them and the files of the data folder (APP_DATA_DIR):
//
// - APP_CRASH_JOURNAL names a file that gets a line for each call that changes the folder or makes
// a
//   change last, when the call has succeeded:
//       open HANDLE c|- t|- NAME     (c: creates, t: truncates; NAME is "." for the folder itself)
//       write HANDLE OFFSET BYTES    (in hexadecimal digits)
//       truncate HANDLE SIZE
//       sync HANDLE
//       rename FROM TO
//       unlink NAME
//       answer                       (the program has answered a request)
//       fail                         (a call fails, by the plan that follows)
// - APP_CRASH_FAULTS names a file with a FaultPlan, by which calls fail.
//
// Calls that change a file without telling the bytes are refused; programs then write them.

#include "fault_plan.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace crash;

static constexpr int TABLE_SIZE = 1024;

static std::atomic<int> handles[TABLE_SIZE];  // by file descriptor; 0: no file of the folder
static std::atomic<int> lastHandle;

static int handleOf(int file)
{
    return file >= 0 && file < TABLE_SIZE ? handles[file].load() : 0;
}

// The file's name in the data folder, "." for the folder, null when it lies elsewhere.
static const char *nameInFolder(const char *path)
{
    const char *folder = getenv("APP_DATA_DIR");
    const size_t length = folder ? strlen(folder) : 0;
    if (length == 0 || !path || strncmp(path, folder, length) != 0)
        return nullptr;
    if (path[length] == '\0')
        return ".";
    return path[length] == '/' ? path + length + 1 : nullptr;
}

// One write a line: the lines of several programs never mix.
static void note(const char *line, size_t length)
{
    const char *path = getenv("APP_CRASH_JOURNAL");
    if (!path)
        return;
    const int error = errno;
    const long journal = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CREAT, 0666);
    if (journal < 0 || syscall(SYS_write, journal, line, length) != static_cast<long>(length))
        abort();
    syscall(SYS_close, journal);
    errno = error;
}

__attribute__((format(printf, 1, 2))) static void noteCall(const char *format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    note(line, static_cast<size_t>(length));
}

static void noteWrite(int handle, long offset, const unsigned char *bytes, size_t size)
{
    char *line = static_cast<char *>(malloc(64 + 2 * size));
    if (!line)
        abort();
    int length = sprintf(line, "write %d.%d %ld ", getpid(), handle, offset);
    for (size_t i = 0; i < size; ++i)
        length += sprintf(line + length, "%02x", bytes[i]);
    line[length++] = '\n';
    note(line, static_cast<size_t>(length));
    free(line);
}

extern "C" void noteAnswer()
{
    noteCall("answer\n");
}

static FaultPlan *faultPlan()
{
    static std::atomic<FaultPlan *> plan;
    const char *path = getenv("APP_CRASH_FAULTS");
    if (plan || !path)
        return plan;
    const long file = syscall(SYS_openat, AT_FDCWD, path, O_RDWR);
    void *mapped = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED,
                        static_cast<int>(file), 0);
    syscall(SYS_close, file);
    if (mapped == MAP_FAILED)
        abort();
    plan = static_cast<FaultPlan *>(mapped);
    return plan;
}

// Whether this call is to fail; errno is then set.
static bool fails(CallKind kind)
{
    FaultPlan *plan = faultPlan();
    if (!plan || !(plan->kinds & kind))
        return false;
    const int call = ++plan->calls;
    if (call < plan->first || call > plan->last)
        return false;
    noteCall("fail\n");
    errno = plan->error;
    return true;
}

static int openFile(const char *path, int flags, unsigned mode)
{
    const char *name = nameInFolder(path);
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    if (name && fails(writes ? OPEN_TO_WRITE : OPEN_TO_READ))
        return -1;
    const auto file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (!name || file < 0 || file >= TABLE_SIZE)
        return file;
    handles[file] = ++lastHandle;
    noteCall("open %d.%d %c %c %s\n", getpid(), handles[file].load(), flags & O_CREAT ? 'c' : '-',
             flags & O_TRUNC ? 't' : '-', name);
    return file;
}

static unsigned modeArgument(int flags, va_list arguments)
{
    return flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, unsigned) : 0;
}

extern "C" int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openFile(path, flags, mode);
}

extern "C" int openat(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeArgument(flags, arguments);
    va_end(arguments);
    if (folder == AT_FDCWD || path[0] == '/')
        return openFile(path, flags, mode);
    return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}

extern "C" int creat(const char *path, mode_t mode)
{
    return openFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

// The other names under which the C library has them.
extern "C" int open64(const char *path, int flags, ...) __attribute__((alias("open")));
extern "C" int openat64(int folder, const char *path, int flags, ...)
    __attribute__((alias("openat")));
extern "C" int creat64(const char *path, mode_t mode) __attribute__((alias("creat")));
extern "C" int __open_2(const char *path, int flags)
{
    return openFile(path, flags, 0);
}
extern "C" int __open64_2(const char *path, int flags) __attribute__((alias("__open_2")));

// Only for reading: what is written through it would not be seen here.
extern "C" FILE *fopen(const char *path, const char *mode)
{
    using Fopen = FILE *(const char *, const char *);
    static std::atomic<Fopen *> next;
    if (!next)
        next = reinterpret_cast<Fopen *>(dlsym(RTLD_NEXT, "fopen"));
    if (nameInFolder(path)) {
        if (mode[0] != 'r' || strchr(mode, '+'))
            abort();
        if (fails(OPEN_TO_READ))
            return nullptr;
    }
    return next.load()(path, mode);
}
extern "C" FILE *fopen64(const char *path, const char *mode) __attribute__((alias("fopen")));

extern "C" int close(int file)
{
    const bool ours = handleOf(file) != 0;
    if (ours)
        handles[file] = 0;
    const auto result = static_cast<int>(syscall(SYS_close, file));
    return ours && fails(CLOSE) ? -1 : result;  // a file is closed even if that fails
}

extern "C" ssize_t write(int file, const void *bytes, size_t size)
{
    const int handle = handleOf(file);
    if (handle == 0)
        return syscall(SYS_write, file, bytes, size);
    if (fails(WRITE)) {
        if (!faultPlan()->storesAHalf.exchange(false))
            return -1;
        size /= 2;
    }
    const long offset = syscall(SYS_lseek, file, 0, SEEK_CUR);
    const ssize_t count = syscall(SYS_write, file, bytes, size);
    if (count > 0)
        noteWrite(handle, offset, static_cast<const unsigned char *>(bytes),
                  static_cast<size_t>(count));
    return count;
}

extern "C" int ftruncate(int file, off_t size)
{
    const int handle = handleOf(file);
    if (handle && fails(WRITE))
        return -1;
    const auto result = static_cast<int>(syscall(SYS_ftruncate, file, size));
    if (handle && result == 0)
        noteCall("truncate %d.%d %ld\n", getpid(), handle, static_cast<long>(size));
    return result;
}
extern "C" int ftruncate64(int file, off64_t size) __attribute__((alias("ftruncate")));

static int syncFile(long call, int file)
{
    const int handle = handleOf(file);
    if (handle && fails(SYNC))
        return -1;
    const auto result = static_cast<int>(syscall(call, file));
    if (handle && result == 0)
        noteCall("sync %d.%d\n", getpid(), handle);
    return result;
}

extern "C" int fsync(int file)
{
    return syncFile(SYS_fsync, file);
}

extern "C" int fdatasync(int file)
{
    return syncFile(SYS_fdatasync, file);
}

extern "C" int rename(const char *from, const char *to)
{
    const char *oldName = nameInFolder(from);
    const char *newName = nameInFolder(to);
    if (oldName && fails(RENAME))
        return -1;
    const auto result = static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
    if (oldName && newName && result == 0)
        noteCall("rename %s %s\n", oldName, newName);
    return result;
}

extern "C" int unlink(const char *path)
{
    const char *name = nameInFolder(path);
    if (name && fails(UNLINK))
        return -1;
    const auto result = static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
    if (name && result == 0)
        noteCall("unlink %s\n", name);
    return result;
}

extern "C" int ioctl(int file, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (request == FICLONE && handleOf(file)) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
}

extern "C" ssize_t copy_file_range(int in, off64_t *inOffset, int out, off64_t *outOffset,
                                   size_t size, unsigned flags)
{
    if (handleOf(out)) {
        errno = ENOSYS;
        return -1;
    }
    return syscall(SYS_copy_file_range, in, inOffset, out, outOffset, size, flags);
}
