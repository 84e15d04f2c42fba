#include "scene/sdk_command.h"

#include "bus/outbound.h"
#include "main/json_memory.h"
#include "main/scope.h"

// A command on its way to its text. What cannot be built whole for lack of memory is not sent.
class Command {
public:
    explicit Command(const char *word) : control(json_object())
    {
        json_object_set_new(control.get(), "cmd", json_string(word));
    }
    void set(const char *key, Integer value)
    {
        json_object_set_new(control.get(), key, json_integer(value));
    }
    void setDevice(Integer uid, Integer ch)
    {
        set("uid", uid);
        if (ch >= 0)
            set("chid", ch);
    }
    // Null without memory.
    Owned<char> text()
    {
        const Owned<json_t> root(json_object());
        json_object_set(root.get(), "control", control.get());
        return Owned<char>(memory.ranOut() ? nullptr : json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    }

private:
    JsonMemory memory;
    Owned<json_t> control;
};

char *sendOvrinSdkCmd(apr_pool_t *pool, const char *command, Integer uid)
{
    Command built(command);
    built.setDevice(uid, NO_CHANNEL);
    return app_dbus_send_json_cmd(pool, built.text().get());
}

void sendOvrinSdkSysSound(apr_pool_t *pool, Integer, Integer value)
{
    LOG(DEBUG, "sendOvrinSdkSysSound() val: %lld\n", value);
    Command built("syssound");
    built.set("val", value);
    dbus_signal_json_command(pool, built.text().get());
}

void sendZwaveCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer value)
{
    Command built(command);
    built.setDevice(uid, ch);
    built.set("val", value);
    dbus_signal_json_command(pool, built.text().get());
}

void sendZwaveTempCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer temp)
{
    Command built(command);
    built.setDevice(uid, ch);
    built.set("temp", temp);
    built.set("unit", 1);
    const Owned<char> text = built.text();
    LOG(DEBUG, "ret_strings: %s\n", text ? text.get() : "");
    // Deliberate: a set-point goes by call; it is the only scene command that waits for the SDK
    // daemon.
    app_dbus_send_json_cmd(pool, text.get());
}
