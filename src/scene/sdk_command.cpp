#include "scene/sdk_command.h"

#include "bus/outbound.h"
#include "main/json_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/util.h"

static json_t *newControl(const char *command)
{
    json_t *control = json_object();
    json_object_set_new(control, "cmd", json_string(command));
    return control;
}

static void setInteger(json_t *control, const char *key, Integer value)
{
    json_object_set_new(control, key, json_integer(value));
}

static json_t *newDeviceControl(const char *command, Integer uid, Integer ch)
{
    json_t *control = newControl(command);
    setInteger(control, "uid", uid);
    if (ch >= 0)
        setInteger(control, "chid", ch);
    return control;
}

// The command's text; takes the control object. Null when memory has run out since `memory` was
// begun: a command that has lost its channel or its value must not go out.
static Owned<char> commandText(const JsonMemory &memory, json_t *control)
{
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "control", control);
    return Owned<char>(memory.ranOut() ? nullptr : json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
}

static void broadcast(apr_pool_t *pool, const Owned<char> &text)
{
    if (text)
        dbus_signal_json_command(pool, text.get());
}

char *sendOvrinSdkCmd(apr_pool_t *pool, const char *command, Integer uid)
{
    const JsonMemory memory;
    const Owned<char> text = commandText(memory, newDeviceControl(command, uid, NO_CHANNEL));
    return app_dbus_send_json_cmd(pool, text.get());
}

void sendOvrinSdkSysSound(apr_pool_t *pool, Integer, Integer value)
{
    LOG(DEBUG, "sendOvrinSdkSysSound() val: %lld\n", value);
    const JsonMemory memory;
    json_t *control = newControl("syssound");
    setInteger(control, "val", value);
    broadcast(pool, commandText(memory, control));
}

void sendZwaveCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer value)
{
    const JsonMemory memory;
    json_t *control = newDeviceControl(command, uid, ch);
    setInteger(control, "val", value);
    broadcast(pool, commandText(memory, control));
}

void sendZwaveTempCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer temp)
{
    const JsonMemory memory;
    json_t *control = newDeviceControl(command, uid, ch);
    setInteger(control, "temp", temp);
    setInteger(control, "unit", 1);
    const Owned<char> text = commandText(memory, control);
    LOG(DEBUG, "ret_strings: %s\n", text ? text.get() : "");
    // Deliberate: a set-point goes by call; it is the only scene command that waits for the SDK
    // daemon.
    app_dbus_send_json_cmd(pool, text.get());
}
