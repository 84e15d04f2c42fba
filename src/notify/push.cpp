#include "notify/push.h"

#include "bus/outbound.h"
#include "config/reg_device.h"
#include "config/sys_cmd.h"
#include "events/event_documents.h"
#include "main/json_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "main/shell.h"
#include "main/threads.h"
#include "main/util.h"
#include "scene/sdk_command.h"

#include <apr_strings.h>
#include <cstring>

// Set before the thread is started and cleared by itself when the list is empty, both under the
// list's mutex: two callers never start two.
static bool pushThreadRunning LOCKING(guarded_by(sysCmdList_mutex));

// What the waiting commands take, so that a helper which hangs while events pour in does not use up
// the memory of the box.
static constexpr size_t MOST_WAITING_BYTES = size_t{8} * 1024 * 1024;
static size_t waitingBytes LOCKING(guarded_by(sysCmdList_mutex));
static bool isFull LOCKING(guarded_by(sysCmdList_mutex));

static size_t bytesOf(const SysCmd *command)
{
    static constexpr size_t ALLOCATOR_BYTES = size_t{2} * 16;
    return sizeof *command + ALLOCATOR_BYTES + (command->cmd ? strlen(command->cmd) + 1 : 0);
}

static bool hasRoomFor(const SysCmd *command) LOCKING(requires_capability(sysCmdList_mutex))
{
    if (waitingBytes + bytesOf(command) <= MOST_WAITING_BYTES) {
        isFull = false;
        return true;
    }
    if (!isFull)  // once, not for each that follows
        LOG(ERROR, "%zu bytes of pushes wait, new ones are dropped\n", waitingBytes);
    isFull = true;
    return false;
}

static void queueCommand(const char *command)
{
    SysCmd *record = command ? callocSysCmd() : nullptr;
    if (!record)
        return;
    record->cmd = copyText(command);
    const MutexLock lock(sysCmdList_mutex);
    if (!hasRoomFor(record)) {
        freeSysCmd(record);
        return;
    }
    waitingBytes += bytesOf(record);
    listAddTail(&record->node, &sysCmdListHead);
}

// The oldest command; null, and the thread is to end, when there is none. It stays listed while it
// runs: only this thread frees commands.
static SysCmd *nextCommand()
{
    const MutexLock lock(sysCmdList_mutex);
    SysCmd *command = FIRST_ELEMENT(SysCmd, node, &sysCmdListHead);
    if (!command)
        pushThreadRunning = false;
    return command;
}

// Started by whoever queues a command and finds it gone; ends when the list is empty.
static void *doPushThread(void *)
{
    pthread_setname_np(pthread_self(), "push");
    pthread_detach(pthread_self());
    while (SysCmd *command = nextCommand()) {
        if (command->cmd) {
            runShell(command->cmd);
            LOG(DEBUG, "********* push message %s\n", command->cmd);  // it holds the token
        }
        const MutexLock lock(sysCmdList_mutex);
        waitingBytes -= bytesOf(command);
        freeSysCmd(command);
    }
    return nullptr;
}

static void startPushThread(const char *caller)
{
    const MutexLock lock(sysCmdList_mutex);
    if (pushThreadRunning || listEmpty(&sysCmdListHead))
        return;
    pthread_t thread;
    pushThreadRunning = createThread(&thread, doPushThread, nullptr) == 0;
    if (!pushThreadRunning)
        LOG_AS(caller, ERROR, "Create thread failed. doPushThread\n");
}

static const char *commandFor(apr_pool_t *pool, const RegDevice &device, const char *uuid,
                              const char *text)
{
    const char *app = shellText(pool, device.app_id);
    const char *token = shellWord(pool, device.token);
    const char *gateway = shellWord(pool, uuid);
    const char *message = shellText(pool, text);
    if (!app || !token || !gateway || !message)
        return nullptr;
    if (strcmp(device.platform, "ios") == 0)
        return apr_psprintf(pool, "ios_push %s %s %s %s", app, token, gateway, message);
    if (strcmp(device.platform, "android") == 0)
        return apr_psprintf(pool, "gcm_push %s %s %s", app, token, message);
    return nullptr;
}

static char *deliveryDocument(const char *email, const char *text, const char *uuid)
{
    const JsonMemory memory;
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "email", json_string(email));
    json_object_set_new(root.get(), "uuid", json_string(uuid));
    json_object_set_new(root.get(), "msg", json_string(text));
    return memory.ranOut() ? nullptr : json_dumps_dbg(root.get(), JSON_TEXT_FLAGS);
}

static void recordDelivery(const RegDevice &device, const char *text, const char *uuid)
{
    if (device.email[0] == '\0')
        return;
    const Owned<apr_pool_t> pool = createPool();  // the document is as large as it is short-lived
    if (!pool)
        return;
    const Owned<char> payload(deliveryDocument(device.email, text, uuid));
    LoggedEvent ignored;
    if (!payload ||
        !addEventLog(EVENT_PUSH_SENT, UID_SDK_DAEMON, 0, payload.get(), nullptr, nullptr, &ignored))
        return;
    const char *document = genRecentEvent(pool.get());
    if (document)
        dbus_signal_event(document, "recent");
}

static void deliver(apr_pool_t *pool, const RegDevice &device, const char *message,
                    const char *uuid)
{
    const char *text = device.gateway_name[0]
                           ? apr_psprintf(pool, "%s => %s", device.gateway_name, message)
                           : message;
    if (!text)
        return;
    queueCommand(commandFor(pool, device, uuid, text));
    recordDelivery(device, text, uuid);
}

// No phone shows more, and a command line of the system may not hold much more.
static const char *cutToFit(apr_pool_t *pool, const char *message)
{
    static constexpr size_t LONGEST_TEXT = size_t{4} * 1024;
    if (strlen(message) < LONGEST_TEXT)
        return message;
    auto *cut = static_cast<char *>(apr_palloc(pool, LONGEST_TEXT));
    if (cut)
        copyBounded(cut, LONGEST_TEXT, message, "sendPushMsg");
    return cut ? cut : "";
}

int sendPushMsg(apr_pool_t *pool, const char *message, const char *uuid)
{
    static constexpr Integer NOT_WANTED = 1;  // Deliberate: 2 is no refusal.
    if (!message || !uuid) {
        LOG(ERROR, "pushMsg == NULL || uuid == NULL\n");
        return -1;
    }
    if (uuid[0] == '\0') {
        LOG(ERROR, "strlen(uuid) == 0\n");
        return -1;
    }
    if (!pool)
        return -1;
    message = cutToFit(pool, message);
    int qualified = 0;
    {
        const MutexLock lock(pushDevList_mutex);
        for (const RegDevices &element : ELEMENTS(RegDevices, node, &pushDevsListHead)) {
            const RegDevice &device = *element.device;
            if (device.token[0] == '\0' || device.disable_notifications == NOT_WANTED)
                continue;
            deliver(pool, device, message, uuid);
            qualified = 1;
        }
    }
    startPushThread(__func__);
    return qualified;
}

int sendPush(apr_pool_t *pool, const char *message)
{
    char uuid[UUID_SIZE];
    {
        const MutexLock lock(settings_mutex);
        strcpy(uuid, tutkUUID);
    }
    return sendPushMsg(pool, message, uuid);
}

void sendMail(apr_pool_t *pool, const char *email, const char *password, const char *message)
{
    if (!email || !password || !message || !*email || !*password)
        return;
    const char *user = shellWord(pool, email);
    const char *secret = shellWord(pool, password);
    const char *text = shellText(pool, message);
    if (user && secret && text)
        queueCommand(apr_psprintf(pool, "mail -u %s -p %s -m %s", user, secret, text));
    startPushThread(__func__);
}
