#include "scene/sdk_command.h"

#include "bus/outbound.h"
#include "main/scope.h"

// The command's text; null without memory. Takes the control object.
static Owned<char> commandText(json_t *control)
{
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "control", control);
    return Owned<char>(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
}

static json_t *deviceControl(const char *command, Integer uid, Integer ch)
{
    json_t *control = json_object();
    json_object_set_new(control, "cmd", json_string(command));
    json_object_set_new(control, "uid", json_integer(uid));
    if (ch >= 0)
        json_object_set_new(control, "chid", json_integer(ch));
    return control;
}

char *sendOvrinSdkCmd(apr_pool_t *pool, const char *command, Integer uid)
{
    const Owned<char> text = commandText(deviceControl(command, uid, NO_CHANNEL));
    return app_dbus_send_json_cmd(pool, text.get());
}

void sendOvrinSdkSysSound(apr_pool_t *pool, Integer, Integer value)
{
    LOG(DEBUG, "sendOvrinSdkSysSound() val: %lld\n", value);
    json_t *control = json_object();
    json_object_set_new(control, "cmd", json_string("syssound"));
    json_object_set_new(control, "val", json_integer(value));
    const Owned<char> text = commandText(control);
    dbus_signal_json_command(pool, text.get());
}

void sendZwaveCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer value)
{
    json_t *control = deviceControl(command, uid, ch);
    json_object_set_new(control, "val", json_integer(value));
    const Owned<char> text = commandText(control);
    dbus_signal_json_command(pool, text.get());
}

void sendZwaveTempCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer temp)
{
    json_t *control = deviceControl(command, uid, ch);
    json_object_set_new(control, "temp", json_integer(temp));
    json_object_set_new(control, "unit", json_integer(1));
    const Owned<char> text = commandText(control);
    LOG(DEBUG, "ret_strings: %s\n", text ? text.get() : "");
    // Deliberate: a set-point goes by call; it is the only scene command that waits for the SDK
    // daemon.
    app_dbus_send_json_cmd(pool, text.get());
}
