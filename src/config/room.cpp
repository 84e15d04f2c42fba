#include "config/room.h"

#include "config/json_fields.h"
#include "config/text_index.h"

ListNode roomsListHead = {&roomsListHead, &roomsListHead};

static constexpr JsonField<Room> ROOM_FIELDS[] = {
    {"title", &Room::title,
     WRITE},  // read beside the table: it is required, and only a new room takes it
    {"icon_name", &Room::icon_name},
    {"camera", &Room::camera},
    {"camera_password", &Room::camera_password},
    {"icon", &Room::icon},
};

static constexpr JsonField<ExtraCamera> EXTRA_CAMERA_FIELDS[] = {
    {"camera", &ExtraCamera::camera},
    {"camera_password", &ExtraCamera::camera_password},
};

Room *callocRoom()
{
    auto *room = callocRecord<Room>();
    if (room) {
        listInit(&room->extra_camera);
        listInit(&room->targets);
        listInit(&room->node);
    }
    return room;
}

Target *callocTargets()
{
    auto *target = callocRecord<Target>();
    if (target)
        listInit(&target->node);
    return target;
}

ExtraCamera *callocExtraCamera()
{
    auto *camera = callocRecord<ExtraCamera>();
    if (camera)
        listInit(&camera->node);
    return camera;
}

Room *searchRoom(ListNode *head, const char *title)
{
    return findByText(ELEMENTS(Room, node, head), &Room::title, title);
}

Target *searchTarget(Integer dev, Integer if_, Integer ch, ListNode *head)
{
    return findByTarget(ELEMENTS(Target, node, head), {dev, if_, ch});
}

ExtraCamera *searchExtraCamera(ListNode *head, const char *cameraName)
{
    return findByText(ELEMENTS(ExtraCamera, node, head), &ExtraCamera::camera, cameraName);
}

Room *searchDevInRooms(ListNode *head, Integer gid, Integer chid)
{
    for (Room &room : ELEMENTS(Room, node, head)) {
        for (const Target &target : ELEMENTS(Target, node, &room.targets)) {
            if (target.target.dev == gid && target.target.ch == chid)
                return &room;
        }
    }
    return nullptr;
}

void freeTarget(Target *target)
{
    listDel(&target->node);
    freeMem(target);
}

void freeTargets(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Target &target : ELEMENTS(Target, node, head))
        freeTarget(&target);
}

void freeExtraCamera(ExtraCamera *camera)
{
    listDel(&camera->node);
    freeMem(camera);
}

void freeExtraCameras(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (ExtraCamera &camera : ELEMENTS(ExtraCamera, node, head))
        freeExtraCamera(&camera);
}

void freeRoom(Room *room)
{
    listDel(&room->node);
    freeExtraCameras(&room->extra_camera);
    freeTargets(&room->targets);
    freeMem(room);
}

void freeRooms(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Room &room : ELEMENTS(Room, node, head))
        freeRoom(&room);
}

void listTarget(const Target *target)
{
    LOG(DEBUG, "dev: %lld if: %lld ch: %lld\n", target->target.dev, target->target.if_,
        target->target.ch);
}

void listTargets(ListNode *head)
{
    for (const Target &target : ELEMENTS(Target, node, head))
        listTarget(&target);
}

void listRooms(ListNode *head)
{
    for (Room &room : ELEMENTS(Room, node, head)) {
        LOG(DEBUG, "title: %s icon_name: %s icon: %s camera: %s\n", room.title, room.icon_name,
            room.icon, room.camera);
        listTargets(&room.targets);
    }
}

int setTargets(json_t *array, ListNode *head)
{
    int stored = 0;
    for (json_t *element : OBJECTS(array, "targets %d is not an object\n")) {
        TargetId id;
        getTarget(id, element);
        if (searchTarget(id.dev, id.if_, id.ch, head)) {
            LOG(INFO, "target exists.\n");
            stored = 1;
            continue;
        }
        Target *target = callocTargets();
        if (!target) {
            LOG(ERROR, "callocTargets return NULL\n");
            break;
        }
        target->target = id;
        listAddTail(&target->node, head);
        stored = 1;
    }
    return stored;
}

static ExtraCamera *addExtraCamera(ListNode *head)
{
    LOG_AS("setExtraCamera", INFO, "extra_camera name not exist, it will be created.\n");
    ExtraCamera *camera = callocExtraCamera();
    if (!camera) {
        // Deliberate: the targets' text serves extra cameras too.
        LOG_AS("setExtraCamera", ERROR, "callocTargets return NULL\n");
        return nullptr;
    }
    listAddTail(&camera->node, head);
    return camera;
}

int setExtraCamera(json_t *array, ListNode *head)
{
    int stored = 0;
    for (json_t *element : OBJECTS(array, "extraCamera %d is not an object\n")) {
        const char *name = memberText(element, "camera");
        if (!name)
            continue;
        ExtraCamera *camera = searchExtraCamera(head, name);
        if (camera)
            LOG(INFO, "camera exists.\n");
        else
            camera = addExtraCamera(head);
        if (!camera)
            break;
        readFields(element, *camera, EXTRA_CAMERA_FIELDS);
        stored = 1;
    }
    return stored;
}

static Room *addRoom(const char *title, ListNode *head)
{
    Room *room = callocRoom();
    if (room) {
        JsonStrCopy(room->title, title);
        listAddTail(&room->node, head);
    }
    return room;
}

static int setIndexedRoom(json_t *object, ListNode *head, TextIndex<Room> &index)
{
    const char *title = memberText(object, "title");
    if (!title) {
        LOG_AS("setRoom", ERROR, "title_text is NULL\n");
        return 0;
    }
    Room *room = index.find(title);
    if (!room) {
        room = addRoom(title, head);
        if (!room)
            return 0;
        index.add(*room);
    }
    readFields(object, *room, ROOM_FIELDS);
    setTargets(json_object_get(object, "targets"), &room->targets);
    setExtraCamera(json_object_get(object, "extra_camera"), &room->extra_camera);
    return 1;
}

int setRoom(json_t *object, ListNode *head)
{
    TextIndex<Room> index(ELEMENTS(Room, node, head), &Room::title, 1);
    return setIndexedRoom(object, head, index);
}

int setRooms(json_t *array)
{
    TextIndex<Room> index(ELEMENTS(Room, node, &roomsListHead), &Room::title,
                          json_array_size(array));
    int stored = 0;
    for (json_t *room : OBJECTS(array, "rooms %d is not an object\n")) {
        const MutexLock lock(roomsList_mutex);
        stored |= setIndexedRoom(room, &roomsListHead, index);
    }
    return stored;
}

int delTargets(json_t *array, ListNode *head)
{
    int deleted = 0;
    for (json_t *element : OBJECTS(array, "data %d is not an object\n")) {
        TargetId id;
        getTarget(id, element);
        Target *target = searchTarget(id.dev, id.if_, id.ch, head);
        if (!target)
            continue;
        LOG(DEBUG, "delet target dev:%lld if:%lld ch:%lld\n", id.dev, id.if_, id.ch);
        freeTarget(target);
        deleted = 1;
    }
    return deleted;
}

int delExtraCamera(json_t *array, ListNode *head)
{
    int deleted = 0;
    for (json_t *element : OBJECTS(array, "data %d is not an object\n")) {
        ExtraCamera *camera = searchExtraCamera(head, memberText(element, "camera"));
        if (!camera)
            continue;
        freeExtraCamera(camera);
        deleted = 1;
    }
    return deleted;
}

int delRooms(json_t *array)
{
    int deleted = 0;
    for (json_t *object : OBJECTS(array, "rooms %d is not an object\n")) {
        const MutexLock lock(roomsList_mutex);
        Room *room = searchRoom(&roomsListHead, memberText(object, "title"));
        if (!room)
            continue;
        deleted |= delTargets(json_object_get(object, "targets"), &room->targets);
        deleted |= delExtraCamera(json_object_get(object, "extra_camera"), &room->extra_camera);
        // Deliberate: what an earlier room of the request lost counts here too, and keeps a later
        // room that is named by its title alone.
        if (!deleted) {
            freeRoom(room);
            deleted = 1;
        }
    }
    return deleted;
}

int renameRoomTitle(const char *oldTitle, const char *newTitle)
{
    const MutexLock lock(roomsList_mutex);
    return renameTitle(ELEMENTS(Room, node, &roomsListHead), oldTitle, newTitle);
}

static json_t *roomTargetToJson(const Target *target)
{
    return targetToJson(target->target);
}

static json_t *extraCameraToJson(const ExtraCamera *camera)
{
    json_t *object = json_object();
    writeFields(object, *camera, EXTRA_CAMERA_FIELDS);
    return object;
}

json_t *roomToJson(const Room *room)
{
    if (!room) {
        LOG(ERROR, "room is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeFields(object, *room, ROOM_FIELDS);
    json_object_set_new(object, "targets",
                        arrayOf(ELEMENTS(Target, node, &room->targets), roomTargetToJson));
    json_object_set_new(
        object, "extra_camera",
        arrayOf(ELEMENTS(ExtraCamera, node, &room->extra_camera), extraCameraToJson));
    return object;
}

json_t *roomsToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Room, node, head), roomToJson);
}

json_t *roomsTitleToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Room, node, head), titleToJson<Room>);
}
