#include "main/write_ahead.h"

#include "main/json_text.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/shell.h"
#include "main/stored_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

struct CopyPath {
    char text[PATH_MAX];

    explicit CopyPath(const char *path)
    {
        snprintf(text, sizeof text, "%s.new", path);
    }
};

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

static void syncFolderOf(const char *path)
{
    char folder[PATH_MAX];
    snprintf(folder, sizeof folder, "%s", path);
    char *slash = strrchr(folder, '/');
    if (slash)
        *slash = '\0';
    // A file system that cannot sync a folder keeps the order by itself.
    syncPath(slash ? folder : ".", O_DIRECTORY);
}

static void putInPlace(const char *copy, const char *path)
{
    if (rename(copy, path) != 0)
        LOG(ERROR, "%s cannot be put in place: %s\n", copy, strerror(errno));
    syncFolderOf(path);
}

static int giveUp(const CopyPath &copy, const char *path)
{
    LOG_AS("storeDocument", ERROR, "%s cannot be stored: %s\n", path, strerror(errno));
    unlink(copy.text);
    return -1;
}

int storeDocument(const char *path, const char *text, size_t size)
{
    const CopyPath copy(path);
    if (bufWriteToFile(copy.text, text, size) != 0 || errno != 0 || !syncPath(copy.text, 0))
        return giveUp(copy, path);
    syncFolderOf(path);
    if (bufWriteToFile(path, text, size) != 0)  // not opened, and so not touched
        return giveUp(copy, path);
    if (errno == 0 && syncPath(path, 0)) {
        unlink(copy.text);
        syncFolderOf(path);
        return 0;
    }
    LOG(ERROR, "%s cannot be written over: %s\n", path, strerror(errno));
    putInPlace(copy.text, path);
    return 0;
}

int copyFile(const char *source, const char *destination)
{
    char command[2 * PATH_MAX] = "cp -a";
    if (!appendArgument(command, sizeof command, source) ||
        !appendArgument(command, sizeof command, destination)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return runShell(command);
}

int replaceDocument(const char *source, const char *path)
{
    const CopyPath copy(path);
    const int status = copyFile(source, copy.text);
    if (status != 0 || !syncPath(copy.text, 0)) {
        LOG(ERROR, "%s cannot be copied to %s, status: %d\n", source, path, status);
        unlink(copy.text);
        return status;
    }
    putInPlace(copy.text, path);
    return status;
}

void removeDocument(const char *path)
{
    const CopyPath copy(path);
    unlink(copy.text);  // first: a copy that stays behind would bring the document back
    unlink(path);
    syncFolderOf(path);
}

// The length field equals what follows, and the text parses.
static bool isWhole(const char *path)
{
    if (!lengthFieldHolds(path))
        return false;
    const Owned<char> text(jsonStrReadFromFile(path));
    json_error_t error;
    return text && Owned<json_t>(loadJson(text.get(), &error));
}

void finishInterruptedWrite(const char *path)
{
    const CopyPath copy(path);
    if (access(copy.text, F_OK) != 0)
        return;
    if (isWhole(copy.text)) {
        LOG(INFO, "%s was not finished and is now put in place\n", copy.text);
        putInPlace(copy.text, path);
    } else {
        LOG(INFO, "%s is not whole and is removed\n", copy.text);
        unlink(copy.text);
        syncFolderOf(path);
    }
}
