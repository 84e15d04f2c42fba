#include "main/config_file.h"

#include "config/alarm.h"
#include "config/document.h"
#include "config/lists.h"
#include "main/backups.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/stored_file.h"
#include "main/util.h"
#include "main/write_ahead.h"
#include "scene/home_security.h"

#include <cstring>

int appConfigInit(apr_pool_t *pool)
{
    appPthreadMutexInit();
    return appConfigParser(pool);
}

int appConfigParser(apr_pool_t *pool)
{
    freeAppConfigList();
    // After it, for it also empties the time-table and would drop what is planned here.
    runNewestHomeSceneResume(pool);

    Owned<char> text;
    {
        const MutexLock lock(app_config_mutex);
        finishInterruptedWrites();
        text.reset(jsonStrReadFromFile(appSetupPath()));
    }
    if (!text) {
        LOG(ERROR, "jsonStr == NULL\n");
        return -1;
    }
    LOG(TRACE, "jsonStr: %s\n", text.get());
    const int result = parseAll(text.get());
    const MutexLock lock(alarm_mutex);
    ensureAlarm();
    return result;
}

int saveJsonToFlash()
{
    Owned<json_t> root(getAllAppConfig());
    if (!root)
        return -1;
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    root.reset();
    if (!text)
        return -1;
    const MutexLock lock(app_config_mutex);
    storeDocument(appSetupPath(), text.get(), strlen(text.get()) + 1);
    return 0;
}
