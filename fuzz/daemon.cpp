#include "daemon.h"

#include "config/document.h"
#include "config/groups.h"
#include "config/lists.h"
#include "main/json_text.h"
#include "main/scope.h"
#include "main/util.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <ovrinlog.h>
#include <utility>

// Stands in for the logging library: writes nothing, yet reads what it is handed.
int ovrin_log_write(int, const char *, int, const char *, const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return 0;
}

InputText::InputText(const uint8_t *data, size_t size)
{
    const auto *end = size ? static_cast<const uint8_t *>(memchr(data, '\0', size)) : nullptr;
    const size_t length = end ? static_cast<size_t>(end - data) : size;
    text = std::make_unique<char[]>(length + 1);
    if (length > 0)
        memcpy(text.get(), data, length);
}

void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "does not hold: %s\n", what);
    abort();
}

// No sanitizer sees a text that runs from one field of a record into the next, but it shows here.
static void checkTexts(const json_t *value, size_t longest)
{
    static constexpr size_t LONGEST_TOKEN = 1023;
    const char *key;
    json_t *member;
    size_t i;
    require(json_string_length(value) <= longest, "a text fits its field");
    json_array_foreach(value, i, member) checkTexts(member, longest);
    json_object_foreach(const_cast<json_t *>(value), key, member)
    {
        require(strlen(key) <= longest, "a name fits its field");
        checkTexts(member, strcmp(key, "token") == 0 ? LONGEST_TOKEN : longest);
    }
}

struct DataFolder {
    std::string path = (std::filesystem::temp_directory_path() / "app-fuzz-XXXXXX").string();

    DataFolder()
    {
        require(mkdtemp(path.data()) && setenv("APP_DATA_DIR", path.c_str(), 1) == 0,
                "there can be a temporary folder");
    }
    ~DataFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
};

void makeDataFolder()
{
    static const DataFolder folder;
}

static std::string announcement;

// The linker sends the daemon's calls of dbus_signal_event here.
extern "C" int __wrap__Z17dbus_signal_eventPKcS0_(const char *text, const char *name)
{
    require(strcmp(name, "jsongetall") == 0, "a request announces nothing but the configuration");
    announcement = text;
    return 0;
}

std::string takeAnnouncement()
{
    return std::exchange(announcement, {});
}

std::string configurationText()
{
    const Owned<json_t> root(getAllAppConfig());
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    require(text != nullptr, "the configuration can be written");
    return text.get();
}

void setGroups(json_t *root)
{
    for (int id = TARGET_NAMES; id <= ALARM; ++id) {
        const Group &group = groupOf(static_cast<GroupId>(id));
        json_t *value = json_object_get(root, group.key);
        if (group.kind == OBJECT ? json_is_object(value) : json_is_array(value))
            group.set(value);
    }
}

void restart(const std::string &text)
{
    json_error_t error;
    const Owned<json_t> root(loadJson(text.c_str(), &error));
    require(json_is_object(root.get()), "a stored configuration can be read");
    checkTexts(root.get(), TEXT_SIZE - 2);
    freeAppConfigList();
    setGroups(root.get());
}

void requireThatItLasts(const std::string &text)
{
    restart(text);
    const std::string after = configurationText();
    if (after == text)
        return;
    // Elements without a key become one when they are read again; after that nothing changes.
    restart(after);
    require(configurationText() == after, "a stored configuration reads back as it was");
}

static constexpr char EXAMPLE[] = R"({
        "alarm": {"duration": 3, "enabled": 1, "siren_type": 2, "trigger_duration": 4},
        "cameras": [{"uid": "C1", "display": "Hall", "password": "p"}, {"uid": "C2"}, {"uid": ""}],
        "eventFilter": [{"uid": 4}, {"uid": 4, "channel": 1, "eventCode": 3}, {}],
        "macros": [
            {"title": "M1", "enabled": 1, "scene": "S1", "enabled_notifications": ["a", "b", "c"],
             "triggers": [{"target": {"dev": 2, "if": 0, "ch": 1}, "op": "=", "field": "sensorstate"}]},
            {"title": "M2", "scene": {"title": "Own", "buildinSiren": {"siren_type": 1}, "comps": [
                {"target": {"dev": 4, "if": 0, "ch": 1}, "value": 9}]}},
            {"title": ""}],
        "registeredDevices": [{"token": "T1", "platform": "ios"}, {"token": "T2"}],
        "rooms": [
            {"title": "R1", "camera": "C1", "targets": [{"dev": 4, "if": 0, "ch": 1}, {"dev": 5}],
             "extra_camera": [{"camera": "E1", "camera_password": "p"}, {"camera": "E2"}]},
            {"title": "R2"}, {"title": "R3"}],
        "scenes": [
            {"title": "S1", "buildinSiren": {"siren_type": 1}, "comps": [
                {"target": {"dev": 4, "if": 0, "ch": 1}, "value": 255}, {"target": {"dev": 5}}]},
            {"title": "S2", "comps": [{"target": {"dev": 6}, "value": 1}]},
            {"title": ""}],
        "schedules": [
            {"title": "W1", "macro": "M1", "enabled": 1, "weekdays": 127},
            {"title": "W2", "macro": {"title": "Own", "scene": {"comps": [{"value": 1}]},
             "triggers": [{"target": {"dev": 2}}]}},
            {"title": "W3", "macro": {"title": "Own", "scene": "S1"}},
            {"title": ""}],
        "targetNames": {"K1": "one", "K2": "two", "": ""}
    })";

void loadExample()
{
    static const Owned<json_t> root(json_loads(EXAMPLE, 0, nullptr));
    setGroups(root.get());
}
