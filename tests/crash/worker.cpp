// The part of the daemon that stores things, as a program that can be killed at any moment: starts
// as the daemon does, does what its arguments say, answers each with a line "done" as the bus
// methods answer with their number, and writes its configuration at its end.

#include "config/document.h"
#include "config/reg_device.h"
#include "configuration.h"
#include "main/backups.h"
#include "main/config_file.h"
#include "main/json_memory.h"
#include "main/locks.h"
#include "main/scope.h"
#include "main/stored_file.h"
#include "main/write_ahead.h"

#include <apr_general.h>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

static void answer()
{
    static constexpr char DONE[] = "done\n";
    if (write(STDOUT_FILENO, DONE, sizeof DONE - 1) < 0)
        _exit(3);
    // The recorder, when it is there, notes where in its journal the answer came.
    if (void *note = dlsym(RTLD_DEFAULT, "noteAnswer"))
        reinterpret_cast<void (*)()>(note)();
}

// Without a parser's work between two saves, most kills hit a save.
static void saveConfiguration(int number, int elements)
{
    {
        const MutexLock lock(pushDevList_mutex);
        free_reg_dev_info_list(&pushDevsListHead);
        for (int i = 0; i < elements; ++i) {
            RegDevices *element = callocRegDevices();
            strcpy(element->device->email, std::to_string(number).c_str());
            strcpy(element->device->token, crash::token(i, elements).c_str());
            addRegDevToList(element, &pushDevsListHead);
        }
    }
    saveJsonToFlash();
}

static void saveResume(const std::string &text)
{
    const MutexLock lock(app_config_mutex);
    storeDocument(scheduleResumePath(), text.c_str(), text.size() + 1);
}

static bool work(const char *word, apr_pool_t *pool)
{
    char name[16];
    int number = 0;
    int elements = 0;
    sscanf(word, "%15[^:]:%d:%d", name, &number, &elements);
    if (strcmp(name, "save") == 0)
        saveConfiguration(number, elements);
    else if (strcmp(name, "resume") == 0)
        saveResume(crash::configuration(number, elements));
    else if (strcmp(name, "backup") == 0)
        backUpDocuments();
    else if (strcmp(name, "restore") == 0)
        restoreDocuments(pool, FIRST_BACKUP);
    else if (strcmp(name, "restore2") == 0)
        restoreDocuments(pool, SECOND_BACKUP);
    else if (strcmp(name, "reset") == 0)
        resetDocuments();
    else
        return false;
    return true;
}

int main(int argc, char **argv)
{
    apr_initialize();
    watchJsonMemory();
    const Owned<apr_pool_t> pool = createPool();
    appConfigInit(pool.get());
    answer();
    for (int i = 1; i < argc; ++i) {
        if (!work(argv[i], pool.get())) {
            fprintf(stderr, "unknown word '%s'\n", argv[i]);
            return 2;
        }
        answer();
    }
    const Owned<json_t> all(getAllAppConfig());
    const Owned<char> text(json_dumps(all.get(), JSON_COMPACT));
    puts(text.get());
    return 0;
}
