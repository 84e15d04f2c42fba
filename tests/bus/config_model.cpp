#include "bus/config_model.h"

#include <algorithm>
#include <cstddef>

namespace model {

static constexpr size_t LONGEST_TEXT = 126;    // bytes
static constexpr size_t LONGEST_TOKEN = 1023;  // bytes
static constexpr int DEEPEST = 64;             // arrays and objects inside each other

using Names = std::vector<std::string>;

static Fields fieldsOf(const Names &texts, const Names &numbers)
{
    Fields fields;
    for (const std::string &name : texts)
        fields.texts[name] = "";
    for (const std::string &name : numbers)
        fields.numbers[name] = 0;
    return fields;
}

static Fields alarmFields()
{
    return fieldsOf({}, {"duration", "enabled", "siren_type", "trigger_duration"});
}

static Fields defaultAlarm()
{
    Fields alarm = alarmFields();
    alarm.numbers["duration"] = 3;
    alarm.numbers["siren_type"] = 1;
    alarm.numbers["trigger_duration"] = 3;
    return alarm;
}

Scene::Scene() : fields(fieldsOf({"title", "icon_name", "icon"}, {"invisible", "ID"}))
{
}

Trigger::Trigger() : fields(fieldsOf({"op", "field"}, {"duration", "threshold", "dataunit"}))
{
}

Macro::Macro()
    : fields(fieldsOf({"title", "user_notification_message", "icon_name"},
                      {"enabled", "invisible", "priority", "duration", "duration_type"}))
{
}

Schedule::Schedule()
    : fields(fieldsOf({"title", "icon_name", "icon"},
                      {"enabled", "home_security_alarm", "repeat_type", "weekdays", "start_minute",
                       "start_hour", "start_day", "start_month", "end_minute", "end_hour",
                       "end_day", "end_month"}))
{
}

ExtraCamera::ExtraCamera() : fields(fieldsOf({"camera", "camera_password"}, {}))
{
}

Room::Room() : fields(fieldsOf({"title", "icon_name", "icon", "camera", "camera_password"}, {}))
{
}

Camera::Camera() : fields(fieldsOf({"uid", "display", "password"}, {}))
{
}

Phone::Phone()
    : fields(fieldsOf({"app_id", "email", "username", "password", "gateway_name", "platform"},
                      {"update_ts", "disable_notifications"}))
{
}

// ---- Reading a request

// Deliberately one byte less than a field of 128 bytes could hold.
static bool store(std::string &field, const std::string &text)
{
    if (text.size() > LONGEST_TEXT)
        return false;
    field = text;
    return true;
}

// True when a member was stored.
static bool read(const Value &object, Fields &fields)
{
    bool any = false;
    for (auto &[name, field] : fields.texts) {
        const Value *value = object.find(name, Value::TEXT);
        if (value && store(field, value->text))
            any = true;
    }
    for (auto &[name, field] : fields.numbers) {
        if (const Value *value = object.find(name, Value::INTEGER)) {
            field = value->integer;
            any = true;
        }
    }
    return any;
}

// The elements before the first one that is no object.
static std::vector<const Value *> objectsOf(const Value *array)
{
    std::vector<const Value *> result;
    if (!array)
        return result;
    for (const Value &element : array->elements) {
        if (!element.is(Value::OBJECT))
            break;
        result.push_back(&element);
    }
    return result;
}

static const std::string *textOf(const Value &object, const std::string &name)
{
    const Value *value = object.find(name, Value::TEXT);
    return value ? &value->text : nullptr;
}

static int64_t integerOf(const Value &object, const std::string &name, int64_t otherwise)
{
    const Value *value = object.find(name, Value::INTEGER);
    return value ? value->integer : otherwise;
}

static Target targetOf(const Value *object)
{
    if (!object)
        return {};
    return {integerOf(*object, "dev", 0), integerOf(*object, "if", 0), integerOf(*object, "ch", 0)};
}

static Filter filterOf(const Value &object)
{
    return {integerOf(object, "uid", -1), integerOf(object, "channel", -1),
            integerOf(object, "eventCode", -1)};
}

// What fits is kept whole; what does not is cut, never inside a character.
static std::string tokenOf(const std::string &text)
{
    if (text.size() <= LONGEST_TOKEN)
        return text;
    size_t size = LONGEST_TOKEN;
    while ((static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        --size;
    return text.substr(0, size);
}

// ---- Looking up: the first that matches; nothing matches a key that is not there

template <typename Record>
static Record *findByText(std::vector<Record> &list, const std::string &name,
                          const std::string *key)
{
    for (Record &record : list) {
        if (key && record.fields.texts.at(name) == *key)
            return &record;
    }
    return nullptr;
}

template <typename Record> static Record *findByTarget(std::vector<Record> &list, Target target)
{
    for (Record &record : list) {
        if (record.target == target)
            return &record;
    }
    return nullptr;
}

static Phone *findPhone(std::vector<Phone> &phones, const std::string *token)
{
    for (Phone &phone : phones) {
        if (token && phone.token == tokenOf(*token))
            return &phone;
    }
    return nullptr;
}

static std::pair<std::string, std::string> *
findName(std::vector<std::pair<std::string, std::string>> &targetNames, const std::string &name)
{
    for (auto &entry : targetNames) {
        if (entry.first == name)
            return &entry;
    }
    return nullptr;
}

static bool sameNumber(int64_t one, int64_t other)
{
    return (one < 0 && other < 0) || one == other;
}

// The youngest equal filter. A filter without any number equals none.
static Filter *findFilter(std::vector<Filter> &filters, const Filter &wanted)
{
    if (wanted.uid < 0 && wanted.channel < 0 && wanted.eventCode < 0)
        return nullptr;
    for (size_t i = filters.size(); i-- > 0;) {
        if (sameNumber(filters[i].uid, wanted.uid) &&
            sameNumber(filters[i].channel, wanted.channel) &&
            sameNumber(filters[i].eventCode, wanted.eventCode))
            return &filters[i];
    }
    return nullptr;
}

template <typename Record> static void drop(std::vector<Record> &list, const Record *record)
{
    list.erase(list.begin() + (record - list.data()));
}

// ---- Set

static int setTargetNames(const Value &object,
                          std::vector<std::pair<std::string, std::string>> &targetNames)
{
    int result = 0;
    for (const std::string &name : object.uniqueNames()) {
        const std::string *value = textOf(object, name);
        if (!value)
            break;
        if (auto *known = findName(targetNames, name)) {
            if (store(known->second, *value))
                result = 1;
        } else {
            targetNames.emplace_back(name.size() <= LONGEST_TEXT ? name : "", "");
            store(targetNames.back().second, *value);
            result = 1;
        }
    }
    return result;
}

static int setCameras(const Value &array, std::vector<Camera> &cameras)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        Camera *camera = findByText(cameras, "uid", textOf(*object, "uid"));
        if (!camera)
            camera = &cameras.emplace_back();
        read(*object, camera->fields);
        result = 1;
    }
    return result;
}

static void setScene(const Value &object, Scene &scene)
{
    read(object, scene.fields);
    for (const Value *element : objectsOf(object.find("comps", Value::ARRAY))) {
        const Target target = targetOf(element->find("target", Value::OBJECT));
        Comp *comp = findByTarget(scene.comps, target);
        if (!comp) {
            comp = &scene.comps.emplace_back();
            comp->target = target;
        }
        comp->value = integerOf(*element, "value", 0);  // reset when it is not there
    }
    if (const Value *siren = object.find("buildinSiren", Value::OBJECT)) {
        if (const Value *type = siren->find("siren_type", Value::INTEGER))
            scene.siren = type->integer;
    }
}

static int setScenes(const Value &array, std::vector<Scene> &scenes)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        Scene *scene = findByText(scenes, "title", textOf(*object, "title"));
        if (!scene)
            scene = &scenes.emplace_back();
        setScene(*object, *scene);
        result = 1;
    }
    return result;
}

static void setTriggers(const Value &array, std::vector<Trigger> &triggers)
{
    for (const Value *element : objectsOf(&array)) {
        const Value *targetObject = element->find("target", Value::OBJECT);
        if (!targetObject)
            break;
        const Target target = targetOf(targetObject);
        if (triggers.empty())  // a request creates one in an empty list alone
            triggers.emplace_back().target = target;
        Trigger *trigger = findByTarget(triggers, target);
        if (!trigger)
            break;
        read(*element, trigger->fields);
    }
}

static void setNotifications(const Value &array, Macro &macro)
{
    for (size_t i = 0; i < array.elements.size() && i < std::size(macro.notifications); ++i) {
        if (array.elements[i].is(Value::TEXT)) {
            macro.notifications[i] = "";  // and stays so for a text that is too long
            store(*macro.notifications[i], array.elements[i].text);
        }
    }
}

static int setMacro(const Value &object, std::vector<Macro> &macros)
{
    const std::string *title = textOf(object, "title");
    Macro *macro = findByText(macros, "title", title);
    if (!macro)
        macro = &macros.emplace_back();
    read(object, macro->fields);
    if (const Value *notifications = object.find("enabled_notifications", Value::ARRAY))
        setNotifications(*notifications, *macro);
    if (const Value *scene = object.find("scene", Value::OBJECT)) {
        if (!macro->scene)
            macro->scene.emplace();
        setScene(*scene, *macro->scene);
        macro->sceneName.clear();
    } else if (const std::string *name = textOf(object, "scene")) {
        if (store(macro->sceneName, *name))  // a name that is refused replaces nothing
            macro->scene.reset();
    }
    if (const Value *triggers = object.find("triggers", Value::ARRAY))
        setTriggers(*triggers, macro->triggers);
    return 1;
}

static int setMacros(const Value &array, std::vector<Macro> &macros)
{
    int result = 0;
    for (const Value *object : objectsOf(&array))
        result = setMacro(*object, macros);
    return result;
}

static int setSchedules(const Value &array, std::vector<Schedule> &schedules)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        Schedule *schedule = findByText(schedules, "title", textOf(*object, "title"));
        if (!schedule)
            schedule = &schedules.emplace_back();
        read(*object, schedule->fields);
        // The name and the schedule's own macro leave each other alone.
        if (const std::string *name = textOf(*object, "macro"))
            store(schedule->macroName, *name);
        else if (const Value *macro = object->find("macro", Value::OBJECT))
            setMacro(*macro, schedule->macros);
        result = 1;
    }
    return result;
}

static void setExtraCameras(const Value *array, std::vector<ExtraCamera> &cameras)
{
    for (const Value *element : objectsOf(array)) {
        const std::string *name = textOf(*element, "camera");
        if (!name)
            continue;
        ExtraCamera *camera = findByText(cameras, "camera", name);
        if (!camera)
            camera = &cameras.emplace_back();
        read(*element, camera->fields);
    }
}

static int setRooms(const Value &array, std::vector<Room> &rooms)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        const std::string *title = textOf(*object, "title");
        if (!title)
            continue;
        Room *room = findByText(rooms, "title", title);
        if (!room)
            room = &rooms.emplace_back();
        read(*object, room->fields);
        for (const Value *element : objectsOf(object->find("targets", Value::ARRAY))) {
            const Target target = targetOf(element);
            if (std::count(room->targets.begin(), room->targets.end(), target) == 0)
                room->targets.push_back(target);
        }
        setExtraCameras(object->find("extra_camera", Value::ARRAY), room->extraCameras);
        result = 1;
    }
    return result;
}

static int setFilters(const Value &array, std::vector<Filter> &filters)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        const Filter filter = filterOf(*object);
        if (!findFilter(filters, filter))
            filters.push_back(filter);
        result = 1;
    }
    return result;
}

static int setPhones(const Value &array, std::vector<Phone> &phones)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        const std::string *token = textOf(*object, "token");
        if (!token)
            continue;
        Phone *phone = findPhone(phones, token);
        if (!phone) {
            phone = &phones.emplace_back();
            phone->token = tokenOf(*token);
        }
        read(*object, phone->fields);
        result = 1;
    }
    return result;
}

static int setAlarm(const Value &object, std::optional<Fields> &alarm)
{
    const bool created = !alarm;
    if (created)
        alarm = alarmFields();  // zero: the defaults are for an alarm that nobody has set
    return read(object, *alarm) || created ? 1 : 0;
}

int Model::set(const Value &root)
{
    int result = 0;
    if (const Value *group = root.find("targetNames", Value::OBJECT))
        result = setTargetNames(*group, targetNames);
    if (const Value *group = root.find("cameras", Value::ARRAY))
        result = setCameras(*group, cameras);
    if (const Value *group = root.find("macros", Value::ARRAY))
        result = setMacros(*group, macros);
    if (const Value *group = root.find("scenes", Value::ARRAY))
        result = setScenes(*group, scenes);
    if (const Value *group = root.find("schedules", Value::ARRAY))
        result = setSchedules(*group, schedules);
    if (const Value *group = root.find("rooms", Value::ARRAY))
        result = setRooms(*group, rooms);
    if (const Value *group = root.find("eventFilter", Value::ARRAY))
        result = setFilters(*group, filters);
    if (const Value *group = root.find("registeredDevices", Value::ARRAY))
        result = setPhones(*group, phones);
    if (const Value *group = root.find("alarm", Value::OBJECT))
        result = setAlarm(*group, alarm);
    return result;
}

// ---- Delete

static int deleteFilters(const Value &array, std::vector<Filter> &filters)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        if (const Filter *filter = findFilter(filters, filterOf(*object))) {
            drop(filters, filter);
            result = 1;
        }
    }
    return result;
}

static int deletePhones(const Value &array, std::vector<Phone> &phones)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        if (const Phone *phone = findPhone(phones, textOf(*object, "token"))) {
            drop(phones, phone);
            result = 1;
        }
    }
    return result;
}

static int deleteTargetNames(const Value &object,
                             std::vector<std::pair<std::string, std::string>> &targetNames)
{
    int result = 0;
    for (const std::string &name : object.uniqueNames()) {
        if (const auto *known = findName(targetNames, name)) {
            drop(targetNames, known);
            result = 1;
        }
    }
    return result;
}

static int deleteCameras(const Value &array, std::vector<Camera> &cameras)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        if (const Camera *camera = findByText(cameras, "uid", textOf(*object, "uid"))) {
            drop(cameras, camera);
            result = 1;
        }
    }
    return result;
}

// Whether a part of the scene went.
static bool deletePartsOfScene(const Value &object, Scene &scene)
{
    bool any = false;
    if (object.find("buildinSiren", Value::OBJECT) && scene.siren) {
        scene.siren.reset();
        any = true;
    }
    for (const Value *element : objectsOf(object.find("comps", Value::ARRAY))) {
        const Value *target = element->find("target", Value::OBJECT);
        const Comp *comp = target ? findByTarget(scene.comps, targetOf(target)) : nullptr;
        if (comp) {
            drop(scene.comps, comp);
            any = true;
        }
    }
    return any;
}

static int deleteScenes(const Value &array, std::vector<Scene> &scenes)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        Scene *scene = findByText(scenes, "title", textOf(*object, "title"));
        if (!scene)
            continue;
        if (!deletePartsOfScene(*object, *scene))
            drop(scenes, scene);
        result = 1;
    }
    return result;
}

static bool deleteTriggers(const Value *array, std::vector<Trigger> &triggers)
{
    bool any = false;
    for (const Value *element : objectsOf(array)) {
        const Value *target = element->find("target", Value::OBJECT);
        const Trigger *trigger = target ? findByTarget(triggers, targetOf(target)) : nullptr;
        if (trigger) {
            drop(triggers, trigger);
            any = true;
        }
    }
    return any;
}

static int deleteMacro(const Value &object, std::vector<Macro> &macros)
{
    Macro *macro = findByText(macros, "title", textOf(object, "title"));
    if (!macro)
        return 0;
    bool any = false;
    const Value *scene = object.find("scene", Value::OBJECT);
    if (scene && macro->scene) {
        if (!deletePartsOfScene(*scene, *macro->scene))
            macro->scene.reset();
        any = true;
    } else if (const std::string *name = textOf(object, "scene")) {
        if (*name != macro->sceneName)
            return 0;  // and its triggers stay as well
        macro->sceneName.clear();
        any = true;
    }
    if (deleteTriggers(object.find("triggers", Value::ARRAY), macro->triggers))
        any = true;
    if (any)
        return 1;
    if (scene)  // names a part, which is not there
        return 0;
    drop(macros, macro);
    return 1;
}

static int deleteMacros(const Value &array, std::vector<Macro> &macros)
{
    int result = 0;
    for (const Value *object : objectsOf(&array))
        result |= deleteMacro(*object, macros);
    return result;
}

static int deleteSchedules(const Value &array, std::vector<Schedule> &schedules)
{
    int result = 0;
    for (const Value *object : objectsOf(&array)) {
        Schedule *schedule = findByText(schedules, "title", textOf(*object, "title"));
        if (!schedule)
            break;
        if (const std::string *name = textOf(*object, "macro")) {
            if (*name == schedule->macroName) {
                schedule->macroName.clear();
                result = 1;
            }
        } else if (const Value *macro = object->find("macro", Value::OBJECT)) {
            result |= deleteMacro(*macro, schedule->macros);
        } else {
            drop(schedules, schedule);
            result = 1;
        }
    }
    return result;
}

static int deleteRooms(const Value &array, std::vector<Room> &rooms)
{
    int result = 0;  // of the whole array: once something is gone, no later room goes as a whole
    for (const Value *object : objectsOf(&array)) {
        Room *room = findByText(rooms, "title", textOf(*object, "title"));
        if (!room)
            continue;
        for (const Value *element : objectsOf(object->find("targets", Value::ARRAY))) {
            if (std::erase(room->targets, targetOf(element)) > 0)
                result = 1;
        }
        for (const Value *element : objectsOf(object->find("extra_camera", Value::ARRAY))) {
            const ExtraCamera *camera =
                findByText(room->extraCameras, "camera", textOf(*element, "camera"));
            if (camera) {
                drop(room->extraCameras, camera);
                result = 1;
            }
        }
        if (result == 0) {
            drop(rooms, room);
            result = 1;
        }
    }
    return result;
}

int Model::remove(const Value &root)
{
    int result = 0;
    if (const Value *group = root.find("eventFilter", Value::ARRAY))
        result = deleteFilters(*group, filters);
    if (const Value *group = root.find("registeredDevices", Value::ARRAY))
        result = deletePhones(*group, phones);
    if (const Value *group = root.find("targetNames", Value::OBJECT))
        result = deleteTargetNames(*group, targetNames);
    if (const Value *group = root.find("cameras", Value::ARRAY))
        result = deleteCameras(*group, cameras);
    if (const Value *group = root.find("macros", Value::ARRAY))
        result = deleteMacros(*group, macros);
    if (const Value *group = root.find("scenes", Value::ARRAY))
        result = deleteScenes(*group, scenes);
    if (const Value *group = root.find("schedules", Value::ARRAY))
        result = deleteSchedules(*group, schedules);
    if (const Value *group = root.find("rooms", Value::ARRAY))
        result = deleteRooms(*group, rooms);
    return result;
}

// ---- Rename

template <typename Record>
static int renameTitle(std::vector<Record> &list, const std::string &from, const std::string &to)
{
    Record *record = findByText(list, "title", &from);
    if (!record || findByText(list, "title", &to))
        return 0;
    return store(record->fields.texts["title"], to) ? 1 : 0;
}

int Model::rename(const Value &root)
{
    const auto isText = [](const Value &value) { return value.is(Value::TEXT); };
    if (root.elements.size() < 3 ||
        !std::all_of(root.elements.begin(), root.elements.end(), isText))
        return 0;
    const std::string &group = root.elements[0].text;
    const std::string &from = root.elements[1].text;
    const std::string &to = root.elements[2].text;
    if (group == "macros")
        return renameTitle(macros, from, to);
    if (group == "scenes")
        return renameTitle(scenes, from, to);
    if (group == "rooms")
        return renameTitle(rooms, from, to);
    if (group == "schedules")
        return renameTitle(schedules, from, to);
    return 0;
}

// ---- The whole document

static void write(Value &object, const Fields &fields)
{
    for (const auto &[name, text] : fields.texts)
        object.add(name, Value::ofText(text));
    for (const auto &[name, number] : fields.numbers)
        object.add(name, Value::ofInteger(number));
}

template <typename Record>
static Value arrayOf(const std::vector<Record> &list, Value (*show)(const Record &record))
{
    Value array = Value::array();
    for (const Record &record : list)
        array.elements.push_back(show(record));
    return array;
}

static Value showTarget(const Target &target)
{
    Value object = Value::object();
    object.add("dev", Value::ofInteger(target.dev));
    object.add("if", Value::ofInteger(target.if_));
    object.add("ch", Value::ofInteger(target.ch));
    return object;
}

static Value showComp(const Comp &comp)
{
    Value object = Value::object();
    object.add("target", showTarget(comp.target));
    object.add("value", Value::ofInteger(comp.value));
    return object;
}

static Value showScene(const Scene &scene)
{
    Value object = Value::object();
    write(object, scene.fields);
    object.add("comps", arrayOf(scene.comps, showComp));
    if (scene.siren) {
        Value siren = Value::object();
        siren.add("siren_type", Value::ofInteger(*scene.siren));
        object.add("buildinSiren", siren);
    }
    return object;
}

static Value showTrigger(const Trigger &trigger)
{
    Value object = Value::object();
    write(object, trigger.fields);
    object.add("target", showTarget(trigger.target));
    return object;
}

static Value showMacro(const Macro &macro)
{
    Value object = Value::object();
    write(object, macro.fields);
    if (!macro.sceneName.empty())
        object.add("scene", Value::ofText(macro.sceneName));
    else if (macro.scene)
        object.add("scene", showScene(*macro.scene));
    if (!macro.triggers.empty())
        object.add("triggers", arrayOf(macro.triggers, showTrigger));
    Value notifications = Value::array();
    for (const auto &notification : macro.notifications) {
        if (notification)
            notifications.elements.push_back(Value::ofText(*notification));
    }
    object.add("enabled_notifications", notifications);
    return object;
}

static Value showSchedule(const Schedule &schedule)
{
    Value object = Value::object();
    write(object, schedule.fields);
    object.add("invisible", Value::ofInteger(0));  // written, but no request sets it
    if (!schedule.macroName.empty())
        object.add("macro", Value::ofText(schedule.macroName));
    else if (!schedule.macros.empty())
        object.add("macro", showMacro(schedule.macros.front()));
    return object;
}

static Value showExtraCamera(const ExtraCamera &camera)
{
    Value object = Value::object();
    write(object, camera.fields);
    return object;
}

static Value showRoom(const Room &room)
{
    Value object = Value::object();
    write(object, room.fields);
    object.add("targets", arrayOf(room.targets, showTarget));
    object.add("extra_camera", arrayOf(room.extraCameras, showExtraCamera));
    return object;
}

static Value showCamera(const Camera &camera)
{
    Value object = Value::object();
    write(object, camera.fields);
    return object;
}

static Value showPhone(const Phone &phone)
{
    Value object = Value::object();
    write(object, phone.fields);
    object.add("token", Value::ofText(phone.token));
    object.add("ver", Value::ofText(""));  // written, but no request sets it
    return object;
}

static Value showFilter(const Filter &filter)
{
    Value object = Value::object();
    if (filter.uid >= 0)
        object.add("uid", Value::ofInteger(filter.uid));
    if (filter.channel >= 0)
        object.add("channel", Value::ofInteger(filter.channel));
    if (filter.eventCode >= 0)
        object.add("eventCode", Value::ofInteger(filter.eventCode));
    return object;
}

Value Model::document()
{
    if (!alarm)
        alarm = defaultAlarm();
    Value names = Value::object();
    for (const auto &[name, value] : targetNames)
        names.add(name, Value::ofText(value));
    Value alarmObject = Value::object();
    write(alarmObject, *alarm);

    Value root = Value::object();
    root.add("targetNames", names);
    root.add("cameras", arrayOf(cameras, showCamera));
    root.add("macros", arrayOf(macros, showMacro));
    root.add("scenes", arrayOf(scenes, showScene));
    root.add("rooms", arrayOf(rooms, showRoom));
    root.add("schedules", arrayOf(schedules, showSchedule));
    root.add("eventFilter", arrayOf(filters, showFilter));
    root.add("alarm", alarmObject);
    root.add("registeredDevices", arrayOf(phones, showPhone));
    return root;
}

// ---- Life

Model::Model(std::optional<Value> storedDocument) : stored(std::move(storedDocument))
{
    storedAsText = stored ? dump(*stored) : "";
    start();
}

void Model::start()
{
    if (!stored)
        return;
    set(*stored);
    if (!alarm)
        alarm = defaultAlarm();
}

void Model::restart()
{
    *this = Model(std::move(stored));
}

Outcome Model::apply(const Request &request)
{
    if (holdsUnreadable(request.value) || depth(request.value) > DEEPEST)
        return {};
    Outcome outcome;
    if (request.kind == Request::RENAME) {
        outcome.reply = request.value.is(Value::ARRAY) ? rename(request.value) : 0;
    } else if (request.value.is(Value::OBJECT)) {
        outcome.reply = request.kind == Request::SET ? set(request.value) : remove(request.value);
        outcome.announces = true;
        document();  // the broadcast makes an alarm
    }
    if (outcome.reply == 1) {
        stored = document();
        storedAsText = dump(*stored);
    }
    return outcome;
}

}  // namespace model
