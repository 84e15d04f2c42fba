#include "main/stored_file.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

static constexpr const char *DATA_DIR = "/mnt/OvrinData";
static constexpr long LENGTH_FIELD = 4;
// Far more than any configuration, and what addresses of 32 bits hold.
static constexpr off_t LARGEST_FILE = off_t{256} * 1024 * 1024;

static long long appContig_ts LOCKING(guarded_by(settings_mutex));

struct StoredPath {
    char text[PATH_MAX];

    explicit StoredPath(const char *fileName)
    {
        const char *folder = secure_getenv("APP_DATA_DIR");
        snprintf(text, sizeof text, "%s/%s", folder && *folder ? folder : DATA_DIR, fileName);
    }
};

const char *appSetupPath()
{
    static const StoredPath path("appSetup.json");
    return path.text;
}

const char *scheduleResumePath()
{
    static const StoredPath path("scheduleResumeScene.json");
    return path.text;
}

struct CloseFile {
    void operator()(FILE *file) const noexcept
    {
        (void)fclose(file);  // it was only read
    }
};
using OwnedFile = std::unique_ptr<FILE, CloseFile>;

static long long lengthOf(const unsigned char (&field)[LENGTH_FIELD])
{
    return field[0] | static_cast<uint32_t>(field[1]) << 8 | static_cast<uint32_t>(field[2]) << 16 |
           static_cast<uint32_t>(field[3]) << 24;
}

StoredLength readStoredLength(const char *path)
{
    const OwnedFile file(fopen(path, "re"));
    struct stat status;
    if (!file || fstat(fileno(file.get()), &status) != 0)
        return {};
    unsigned char field[LENGTH_FIELD];
    if (fread(field, 1, sizeof field, file.get()) != sizeof field)
        return {.readable = !ferror(file.get()), .field = 0, .following = 0};
    return {.readable = true, .field = lengthOf(field), .following = status.st_size - LENGTH_FIELD};
}

char *jsonStrReadFromFile(const char *path)
{
    struct stat status;
    if (stat(path, &status) != 0) {
        LOG(INFO, "%s not exist.\n", path);
        return nullptr;
    }
    if (status.st_size == 0) {
        unlink(path);
        LOG(INFO, "%s is empty.", path);  // Deliberate: no newline.
        return nullptr;
    }
    const OwnedFile file(fopen(path, "re"));
    if (!file) {
        perror("fopen");
        return nullptr;
    }
    if (status.st_size <= LENGTH_FIELD)
        return nullptr;
    if (status.st_size > LARGEST_FILE) {
        LOG(ERROR, "%s is too large\n", path);
        return nullptr;
    }

    const auto size = static_cast<size_t>(status.st_size);
    Owned<char> text(static_cast<char *>(calloc(size + 1, 1)));
    if (!text) {
        LOG(ERROR, "calloc fail\n");
        return nullptr;
    }
    unsigned char prefix[LENGTH_FIELD];
    if (fread(prefix, 1, sizeof prefix, file.get()) != sizeof prefix)
        return nullptr;
    size_t start = 0;
    // A document behind a prefix of two bytes; a length of some eight million has that byte, too.
    if (prefix[2] == '{' && lengthOf(prefix) != status.st_size - LENGTH_FIELD) {
        memcpy(text.get(), prefix + 2, 2);
        start = 2;
    }
    // The file's size rules, not the length field.
    if (fread(text.get() + start, 1, size - sizeof prefix, file.get()) != size - sizeof prefix) {
        LOG(ERROR, "%s cannot be read\n", path);
        return nullptr;
    }
    return text.release();
}

// Writes all of it; 0, or the error that stopped it. `written` counts on what reached the file.
static int writeAll(int file, const void *bytes, size_t size, size_t &written)
{
    const char *rest = static_cast<const char *>(bytes);
    for (written = 0; written < size;) {
        const ssize_t count = write(file, rest + written, size - written);
        if (count < 0 && errno != EINTR)
            return errno;
        if (count == 0)
            return ENOSPC;
        if (count > 0)
            written += static_cast<size_t>(count);
    }
    return 0;
}

static int writeLayout(int file, const char *buffer, size_t size)
{
    const auto length = static_cast<uint32_t>(size);
    const unsigned char field[LENGTH_FIELD] = {
        static_cast<unsigned char>(length),
        static_cast<unsigned char>(length >> 8),
        static_cast<unsigned char>(length >> 16),
        static_cast<unsigned char>(length >> 24),
    };
    size_t fieldWritten;
    size_t written = 0;
    int error = writeAll(file, field, sizeof field, fieldWritten);
    if (error == 0)
        error = writeAll(file, buffer, size, written);
    if (fieldWritten == 0 || written == 0)
        LOG_AS("bufWriteToFile", DEBUG, "fwrite fail writeSize: %d, size: %d\n",
               static_cast<int>(written), static_cast<int>(size));
    return error;
}

int bufWriteToFile(const char *path, const char *text, size_t size)
{
    const Owned<char> buffer(static_cast<char *>(calloc(size, 1)));
    if (!buffer) {
        LOG(ERROR, "calloc fail\n");
        errno = ENOMEM;
        return -1;
    }
    memcpy(buffer.get(), text, strnlen(text, size));
    const int file = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) {
        const int error = errno;
        perror("fopen");
        errno = error;
        return -1;
    }
    int error = writeLayout(file, buffer.get(), size);
    if (close(file) != 0 && error == 0)
        error = errno;
    setConfigTime(time(nullptr));
    errno = error;
    return 0;
}

long long configTime()
{
    const MutexLock lock(settings_mutex);
    return appContig_ts;
}

void setConfigTime(long long seconds)
{
    const MutexLock lock(settings_mutex);
    appContig_ts = seconds;
}
