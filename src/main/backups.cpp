#include "main/backups.h"

#include "main/config_file.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/stored_file.h"
#include "main/write_ahead.h"

#include <climits>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

static constexpr const char *SUFFIXES[] = {"_bak", "_bak2"};  // by generation

// In the order in which they are copied.
static constexpr const char *(*DOCUMENTS[])() = {appSetupPath, scheduleResumePath};

struct BackupPath {
    char text[PATH_MAX];

    BackupPath(const char *document, Generation generation)
    {
        snprintf(text, sizeof text, "%s%s", document, SUFFIXES[generation]);
    }
};

static bool isReadable(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode) && access(path, R_OK) == 0;
}

// Both generations move on, or neither does: the first is not written over before it is the second.
// Deliberate: how the copies went is not counted.
static int backUp(const char *document)
{
    const BackupPath first(document, FIRST_BACKUP);
    const BackupPath second(document, SECOND_BACKUP);
    finishInterruptedWrite(document);
    const bool hasFirst = isReadable(first.text);
    const bool hasDocument = isReadable(document);
    const bool staged = (!hasFirst || stageCopy(first.text, second.text)) &&
                        (!hasDocument || stageCopy(document, first.text));
    if (staged && (!hasFirst || commitCopy(second.text)) && hasDocument)
        commitCopy(first.text);
    dropCopy(second.text);
    dropCopy(first.text);
    return static_cast<int>(hasFirst) + static_cast<int>(hasDocument);
}

int backUpDocuments()
{
    const MutexLock lock(app_config_mutex);
    int copies = 0;
    for (const auto document : DOCUMENTS)
        copies += backUp(document());
    return copies;
}

// As backUp. Noted in the log in the name of `caller`, if any.
static int restore(const char *document, Generation generation, const char *caller)
{
    const BackupPath backup(document, generation);
    if (!isReadable(backup.text))
        return 0;
    if (caller)
        LOG_AS(caller, INFO, "copy JSON_SETUP_FILE\n");
    finishInterruptedWrite(document);  // or it would come after the backup
    if (stageCopy(backup.text, document))
        commitCopy(document);
    if (caller)
        LOG_AS(caller, INFO, "copy JSON_SETUP_FILE complete\n");
    return 1;
}

int restoreDocuments(apr_pool_t *pool, Generation generation, const char *caller)
{
    int copies;
    {
        const MutexLock lock(app_config_mutex);
        copies = restore(appSetupPath(), generation, caller);
        copies += restore(scheduleResumePath(), generation, nullptr);
    }
    appConfigParser(pool);
    return copies;
}

void resetDocuments()
{
    for (const auto document : DOCUMENTS)
        removeDocument(document());
}

void finishInterruptedWrites()
{
    for (const auto document : DOCUMENTS) {
        finishInterruptedWrite(document());
        dropCopy(BackupPath(document(), FIRST_BACKUP).text);
        dropCopy(BackupPath(document(), SECOND_BACKUP).text);
    }
}
