#include "notify/push_text.h"

#include "bus/outbound.h"
#include "config/device_value.h"
#include "config/room.h"
#include "config/snapshot.h"
#include "config/target_name.h"
#include "main/util.h"

#include <apr_strings.h>
#include <cstdio>
#include <cstdlib>

static constexpr Integer LOCK_USERS = 10;  // a lock reports ten times its user's number
static constexpr int EVENT_TAMPER = 4001;

Language pushLanguage(apr_pool_t *pool)
{
    const char *value = app_dbus_get_nvram(pool, "language");
    return value && atoi(value) == 2 ? JAPANESE : ENGLISH;
}

// The user's name for a channel, or null.
static const char *targetName(apr_pool_t *pool, const TargetId &target)
{
    char key[TEXT_SIZE];
    snprintf(key, sizeof key, "%lld.%lld.%lld", target.dev, target.if_, target.ch);
    const MutexLock lock(targetNamesList_mutex);
    const TargetName *name = searchTargetName(&targetNamesListHead, key);
    return name ? copyToPool(pool, name->value) : nullptr;
}

static const char *unlockMessage(apr_pool_t *pool, Language language, const GetDev_channel &channel)
{
    if (language == JAPANESE)
        return "電子錠";
    if (channel.sensorvalue <= LOCK_USERS)
        return nullptr;
    return apr_psprintf(pool, "User %d unlock the door",
                        static_cast<int>(channel.sensorvalue / LOCK_USERS));
}

const char *getTriggerPushMsg(apr_pool_t *pool, Language language, const TargetId &target,
                              const GetDev_channel *channel)
{
    const char *name = targetName(pool, target);
    if (!name)
        return channel ? channel->name : nullptr;
    if (channel && channel->functype == FUNC_LOCK)
        return unlockMessage(pool, language, *channel);
    return language == JAPANESE ? nullptr : name;  // Deliberate: a user's name is left out there.
}

const char *roomOf(apr_pool_t *pool, ListNode *rooms, Integer dev, Integer ch)
{
    const MutexLock lock(roomsList_mutex);
    const Room *room = searchDevInRooms(rooms, dev, ch);
    return room ? copyToPool(pool, room->title) : nullptr;
}

const char *getRoomPushMsg(apr_pool_t *pool, Language language, ListNode *rooms,
                           const TargetId &target)
{
    const char *room = roomOf(pool, rooms, target.dev, target.ch);
    if (!room)
        return nullptr;
    return apr_psprintf(pool, language == JAPANESE ? "%sの" : "in %s", room);
}

static bool isOnOff(Integer functype)
{
    static constexpr int ON_OFF[] = {FUNC_DOOR,  FUNC_PIR,    FUNC_GPIO,
                                     FUNC_METER, FUNC_SWITCH, FUNC_LOCK};
    for (const int type : ON_OFF) {
        if (type == functype)
            return true;
    }
    return false;
}

static const char *onOffWord(Language language, Integer functype, Integer value)
{
    if (language == JAPANESE && functype != FUNC_LOCK)
        return value == 0 ? "オフ" : "オン";
    return value == 0 ? "OFF" : "ON";
}

// What one command does: "Lamp to ON".
static const char *actionMessage(apr_pool_t *pool, Language language, const Comp &comp)
{
    const char *name = targetName(pool, comp.target);
    Integer functype;
    {
        const MutexLock lock(allDevs_mutex);
        const GetDev_channel *channel = channelOf(allDevs, comp.target);
        if (!channel) {
            LOG_AS("getTargetPushMsg", ERROR, "not find targetChannel: %lld\n", comp.target.ch);
            return nullptr;
        }
        functype = channel->functype;
        if (!name)
            name = copyToPool(pool, channel->name);
    }
    // Deliberate: a number is never put the Japanese way.
    if (!isOnOff(functype))
        return apr_psprintf(pool, "%s to %d", name, static_cast<int>(comp.value));
    return apr_psprintf(pool, language == JAPANESE ? "%s  %s!!" : "%s to %s", name,
                        onOffWord(language, functype, comp.value));
}

const char *getTargetPushMsg(apr_pool_t *pool, Language language, const Scene *scene)
{
    if (getListObjNum(&scene->comps) == 1)
        return actionMessage(pool, language, *FIRST_ELEMENT(Comp, node, &scene->comps));
    return scene->title[0] ? apr_psprintf(pool, "%s is executing", scene->title) : nullptr;
}

// Deliberate: without a trigger the room is lost, and what is left begins with the joining space.
static const char *englishLine(apr_pool_t *pool, const char *trigger, const char *room)
{
    if (!trigger && !room)
        return "";
    if (!trigger)
        return " was triggered";
    return room ? apr_psprintf(pool, "%s %s was triggered", trigger, room)
                : apr_psprintf(pool, "%s was triggered", trigger);
}

static const char *japaneseLine(apr_pool_t *pool, const char *trigger, const char *room)
{
    if (!trigger && !room)
        return "";
    if (trigger && room)
        return apr_psprintf(pool, "%s %s 感知", room, trigger);
    return apr_psprintf(pool, "%s 感知", trigger ? trigger : room);
}

char *getFullPushMsg(apr_pool_t *pool, const TargetId &target, const GetDev_channel *channel,
                     const Scene *scene)
{
    if (!pool)
        return nullptr;
    const Language language = pushLanguage(pool);
    const char *trigger = getTriggerPushMsg(pool, language, target, channel);
    const char *action = scene ? getTargetPushMsg(pool, language, scene) : nullptr;
    const char *room = getRoomPushMsg(pool, language, &roomsListHead, target);
    const char *line =
        language == JAPANESE ? japaneseLine(pool, trigger, room) : englishLine(pool, trigger, room);
    if (!line)
        return nullptr;
    // Not by apr_pstrcat, which takes it that there is memory.
    return apr_psprintf(pool, "%s%s%s", line, action ? " => " : "", action ? action : "");
}

char *getTamperLowbattPushMsg(apr_pool_t *pool, Integer eventCode)
{
    const bool tamper = (eventCode & 0xFFFF) == EVENT_TAMPER;
    return apr_psprintf(pool, "alarm ON alarm ON tamper was triggered%s",
                        tamper ? " => alarm ON" : "");
}
