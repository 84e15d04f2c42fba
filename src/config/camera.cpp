#include "config/camera.h"

#include "config/json_fields.h"
#include "config/text_index.h"

ListNode camerasListHead = {&camerasListHead, &camerasListHead};

static constexpr JsonField<Camera> CAMERA_FIELDS[] = {
    {"uid", &Camera::uid},
    {"display", &Camera::display},
    {"password", &Camera::password},
};

Camera *callocCamera()
{
    auto *camera = callocRecord<Camera>();
    if (camera)
        listInit(&camera->node);
    return camera;
}

Camera *searchCamera(ListNode *head, const char *uid)
{
    return findByText(ELEMENTS(Camera, node, head), &Camera::uid, uid);
}

void freeCamera(Camera *camera)
{
    listDel(&camera->node);
    freeMem(camera);
}

void freeCameras(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Camera &camera : ELEMENTS(Camera, node, head))
        freeCamera(&camera);
}

static int setIndexedCamera(json_t *object, ListNode *head, TextIndex<Camera> &index)
{
    Camera *camera = index.find(memberText(object, "uid"));
    if (camera) {
        readFields(object, *camera, CAMERA_FIELDS);
        return 1;
    }
    camera = callocCamera();
    if (!camera)
        return 0;
    readFields(object, *camera, CAMERA_FIELDS);
    listAddTail(&camera->node, head);
    index.add(*camera);
    return 1;
}

int setCamera(json_t *object, ListNode *head)
{
    TextIndex<Camera> index(ELEMENTS(Camera, node, head), &Camera::uid, 1);
    return setIndexedCamera(object, head, index);
}

int setCameras(json_t *array)
{
    TextIndex<Camera> index(ELEMENTS(Camera, node, &camerasListHead), &Camera::uid,
                            json_array_size(array));
    int stored = 0;
    for (json_t *camera : OBJECTS(array, "cameras %d is not an object\n")) {
        const MutexLock lock(camerasList_mutex);
        stored |= setIndexedCamera(camera, &camerasListHead, index);
    }
    return stored;
}

int delCamera(json_t *object, ListNode *head)
{
    Camera *camera = searchCamera(head, memberText(object, "uid"));
    if (!camera)
        return 0;
    LOG(DEBUG, "del camera uid: %s\n", camera->uid);
    freeCamera(camera);
    return 1;
}

int delCameras(json_t *array)
{
    int deleted = 0;
    for (json_t *camera : OBJECTS(array, "cameras %d is not an object\n")) {
        const MutexLock lock(camerasList_mutex);
        deleted |= delCamera(camera, &camerasListHead);
    }
    return deleted;
}

json_t *cameraToJson(const Camera *camera)
{
    if (!camera) {
        LOG(ERROR, "camera is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeFields(object, *camera, CAMERA_FIELDS);
    return object;
}

json_t *camerasToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Camera, node, head), cameraToJson);
}
