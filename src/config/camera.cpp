#include "config/camera.h"

#include "config/json_fields.h"

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

int setCamera(json_t *object, ListNode *head)
{
    Camera *camera = searchCamera(head, memberText(object, "uid"));
    if (!camera) {
        camera = callocCamera();
        if (!camera)
            return 0;
        listAddTail(&camera->node, head);
    }
    readFields(object, *camera, CAMERA_FIELDS);
    return 1;
}

int setCameras(json_t *array)
{
    int stored = 0;
    for (json_t *camera : OBJECTS(array, "cameras %d is not an object\n")) {
        const MutexLock lock(camerasList_mutex);
        stored |= setCamera(camera, &camerasListHead);
    }
    return stored;
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
