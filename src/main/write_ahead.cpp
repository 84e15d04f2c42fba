#include "main/write_ahead.h"

#include "main/json_text.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/shell.h"
#include "main/stored_file.h"
#include "main/util.h"

#include <apr_strings.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// A neighbour of a document.
struct SidePath {
    char text[PATH_MAX];

    SidePath(const char *path, const char *suffix)
    {
        snprintf(text, sizeof text, "%s%s", path, suffix);
    }
};

static constexpr const char *NEW = ".new";
static constexpr const char *COPY = ".copy";

// Brings what was written, or for a folder what was renamed and removed, onto the disk. errno says
// what failed.
static bool syncPath(const char *path, int flags)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC | flags);
    if (file < 0)
        return false;
    const bool synced = fsync(file) == 0;
    const int error = errno;
    close(file);
    errno = error;
    return synced;
}

static bool syncFolderOf(const char *path)
{
    char folder[PATH_MAX];
    snprintf(folder, sizeof folder, "%s", path);
    char *slash = strrchr(folder, '/');
    if (slash)
        *slash = '\0';
    // A file system that cannot sync a folder keeps the order by itself.
    return syncPath(slash ? folder : ".", O_DIRECTORY) || errno == EINVAL;
}

// False when it did not come to its place; it then stays where it is.
static bool putInPlace(const char *side, const char *path)
{
    if (!syncPath(side, 0) || rename(side, path) != 0) {
        LOG(ERROR, "%s cannot be put in place: %s\n", side, errorText(errno));
        return false;
    }
    syncFolderOf(path);
    return true;
}

static bool exists(const char *path)
{
    return access(path, F_OK) == 0;
}

int storeDocument(const char *path, const char *text, size_t size)
{
    const SidePath ahead(path, NEW);
    finishInterruptedWrite(path);
    if (exists(ahead.text)) {  // it may be all there is
        LOG(ERROR, "%s cannot be stored: %s is in the way\n", path, ahead.text);
        return -1;
    }
    if (bufWriteToFile(ahead.text, text, size) != 0 || errno != 0 || !syncPath(ahead.text, 0) ||
        !syncFolderOf(path)) {
        LOG(ERROR, "%s cannot be stored: %s\n", path, errorText(errno));
        unlink(ahead.text);
        return -1;
    }
    const bool isFirst = !exists(path);
    if (bufWriteToFile(path, text, size) != 0 || errno != 0 || !syncPath(path, 0)) {
        LOG(ERROR, "%s cannot be written over: %s\n", path, errorText(errno));
        return putInPlace(ahead.text, path) ? 0 : -1;
    }
    if (!isFirst || syncFolderOf(path))
        unlink(ahead.text);
    syncFolderOf(path);  // or a later power cut could bring the copy back
    return 0;
}

int copyFile(const char *source, const char *destination)
{
    const Owned<apr_pool_t> pool = createPool();
    if (!pool)
        return -1;
    const char *from = shellWord(pool.get(), source);
    const char *to = shellWord(pool.get(), destination);
    const char *command = from && to ? apr_psprintf(pool.get(), "cp -a %s %s", from, to) : nullptr;
    return command ? runShell(command) : -1;
}

static bool sameSize(const char *path, const char *other)
{
    struct stat one;
    struct stat two;
    return stat(path, &one) == 0 && stat(other, &two) == 0 && one.st_size == two.st_size;
}

bool stageCopy(const char *source, const char *path)
{
    const SidePath copy(path, COPY);
    dropCopy(path);  // or it could be taken for what is copied now
    const int status = copyFile(source, copy.text);
    // Judged by what arrived: the status also tells of an owner that could not be kept.
    if (sameSize(source, copy.text) && syncPath(copy.text, 0))
        return true;
    LOG(ERROR, "%s cannot be copied to %s, status: %d\n", source, path, status);
    unlink(copy.text);
    return false;
}

bool commitCopy(const char *path)
{
    return putInPlace(SidePath(path, COPY).text, path);
}

void dropCopy(const char *path)
{
    unlink(SidePath(path, COPY).text);
}

void removeDocument(const char *path)
{
    const SidePath ahead(path, NEW);
    // The copy first: it would bring the document back.
    for (const char *file : {static_cast<const char *>(ahead.text), path}) {
        if (unlink(file) != 0 && errno != ENOENT)
            LOG(ERROR, "%s cannot be removed: %s\n", file, errorText(errno));
    }
    syncFolderOf(path);
}

enum Examined { WHOLE, TORN, UNREADABLE };

// Whole: the length field equals what follows, and the text parses.
static Examined examine(const char *path)
{
    const StoredLength length = readStoredLength(path);
    if (!length.readable)
        return UNREADABLE;
    if (length.field != length.following || length.field == 0)
        return TORN;
    const Owned<char> text(jsonStrReadFromFile(path));
    if (!text)
        return UNREADABLE;
    json_error_t error;
    if (Owned<json_t>(loadJson(text.get(), &error)))
        return WHOLE;
    return json_error_code(&error) == json_error_out_of_memory ? UNREADABLE : TORN;
}

void finishInterruptedWrite(const char *path)
{
    dropCopy(path);
    const SidePath ahead(path, NEW);
    if (!exists(ahead.text))
        return;
    switch (examine(ahead.text)) {
    case WHOLE:
        LOG(INFO, "%s was not finished and is now put in place\n", ahead.text);
        putInPlace(ahead.text, path);
        break;
    case TORN:
        LOG(INFO, "%s is not whole and is removed\n", ahead.text);
        unlink(ahead.text);
        syncFolderOf(path);
        break;
    case UNREADABLE:
        LOG(ERROR, "%s cannot be read: %s\n", ahead.text, errorText(errno));
        break;
    }
}
