// Cameras: one record for each camera the user has registered, found by its uid.
//
// Nothing here locks but setCameras and delCameras; the caller holds camerasList_mutex while it
// walks or changes the list.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

struct Camera {
    Text uid;
    Text display;
    Text password;
    ListNode node;
};

extern ListNode camerasListHead LOCKING(guarded_by(camerasList_mutex));

Camera *callocCamera();
Camera *searchCamera(ListNode *head, const char *uid);
void freeCamera(Camera *camera);
void freeCameras(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setCameras(json_t *array);  // locks camerasList_mutex
int setCamera(json_t *object, ListNode *head);

// Each returns 1 when something was deleted, else 0.
int delCameras(json_t *array);  // locks camerasList_mutex
int delCamera(json_t *object, ListNode *head);

json_t *cameraToJson(const Camera *camera);
json_t *camerasToJson(ListNode *head);
