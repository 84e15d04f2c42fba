// Device events from the Z-Wave side, as a signal or a method call, on their way into the event
// queue.

#include "bus/handlers.h"
#include "main/equeue.h"
#include "main/log.h"
#include "main/util.h"

#include <cstdio>
#include <cstring>

static DeviceEvent *createEvent(uint16_t eventCode, uint16_t gid, uint16_t channelID)
{
    DeviceEvent *event = callocDeviceEvent();
    if (event) {
        event->eventCode = eventCode;
        event->gid = gid;
        event->channelID = static_cast<uint8_t>(channelID);
    }
    return event;
}

// The journal keeps hundreds of payloads, and all of them have to fit into one message. What no
// device has to say is left out: cut, it would be no JSON.
static char *copyPayload(const char *text)
{
    static constexpr size_t LONGEST_PAYLOAD = size_t{16} * 1024;
    if (strlen(text) <= LONGEST_PAYLOAD)
        return copyText(text);
    LOG_AS("ovrin_dbus_event_signal", ERROR, "payload of %zu bytes is left out\n", strlen(text));
    return nullptr;
}

HandlerResult ovrin_dbus_event_signal(DBusConnection *, DBusMessage *message, void *, apr_pool_t *)
{
    uint16_t eventCode;
    uint16_t gid;
    uint16_t channelID;
    uint16_t flag;
    const char *text;
    BusError error;
    if (!dbus_message_get_args(message, error, DBUS_TYPE_UINT16, &eventCode, DBUS_TYPE_UINT16, &gid,
                               DBUS_TYPE_UINT16, &channelID, DBUS_TYPE_UINT16, &flag,
                               DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        LOG(ERROR, "2. %s\n", error.message());
        return HANDLED;
    }
    DeviceEvent *event = createEvent(eventCode, gid, channelID);
    if (!event)
        return HANDLED;
    event->hasPayload =
        static_cast<uint8_t>(flag);  // Deliberate: its low byte, as for the channel.
    if (event->hasPayload != 0) {
        event->payload = copyPayload(text);
        event->hasPayload = event->payload ? event->hasPayload : uint8_t{0};
    }
    equeue_push(event);
    return HANDLED;
}

HandlerResult app_dbus_event_method(DBusConnection *connection, DBusMessage *message, void *,
                                    apr_pool_t *)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    uint16_t eventCode;
    uint16_t gid;
    uint16_t channelID;
    BusError error;
    if (!dbus_message_get_args(message, error, DBUS_TYPE_UINT16, &eventCode, DBUS_TYPE_UINT16, &gid,
                               DBUS_TYPE_UINT16, &channelID, DBUS_TYPE_INVALID)) {
        fprintf(stderr, "%s\n", error.message());
        return NOT_HANDLED;
    }
    LOG(DEBUG, "***********************\n");
    LOG(DEBUG, "eventCode: %u\n", eventCode);
    LOG(DEBUG, "gid: %u\n", gid);
    LOG(DEBUG, "channelID: %u\n", channelID);
    LOG(DEBUG, "***********************\n");
    DeviceEvent *event = createEvent(eventCode, gid, channelID);
    if (event)
        equeue_push(event);
    sendUnsigned(connection, reply.get(), 1);
    return HANDLED;
}
