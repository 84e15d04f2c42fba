// Rooms: which device channels are where. Nothing here locks but setRooms, delRooms and
// renameRoomTitle; the caller holds roomsList_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

// A device channel assigned to a room.
struct Target {
    TargetId target;
    ListNode node;
};

struct ExtraCamera {
    Text camera;
    Text camera_password;
    ListNode node;
};

struct Room {
    Text title;
    Text icon_name;
    Text icon;
    Text camera;
    Text camera_password;
    ListNode extra_camera;
    ListNode targets;
    ListNode node;
};

extern ListNode roomsListHead LOCKING(guarded_by(roomsList_mutex));

Room *callocRoom();
Target *callocTargets();
ExtraCamera *callocExtraCamera();

Room *searchRoom(ListNode *head, const char *title);
Target *searchTarget(Integer dev, Integer if_, Integer ch, ListNode *head);
ExtraCamera *searchExtraCamera(ListNode *head, const char *cameraName);
// The room whose targets hold the device's channel, or null.
Room *searchDevInRooms(ListNode *head, Integer gid, Integer chid);

void freeRoom(Room *room);
void freeRooms(ListNode *head);
void freeTarget(Target *target);
void freeTargets(ListNode *head);
void freeExtraCamera(ExtraCamera *camera);
void freeExtraCameras(ListNode *head);

void listRooms(ListNode *head);
void listTarget(const Target *target);
void listTargets(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setRooms(json_t *array);  // locks roomsList_mutex
int setRoom(json_t *object, ListNode *head);
int setTargets(json_t *array, ListNode *head);
int setExtraCamera(json_t *array, ListNode *head);

// Each returns 1 when something was deleted, else 0.
int delRooms(json_t *array);  // locks roomsList_mutex
int delTargets(json_t *array, ListNode *head);
int delExtraCamera(json_t *array, ListNode *head);

// 1 when the title was changed, else 0. Locks roomsList_mutex.
int renameRoomTitle(const char *oldTitle, const char *newTitle);

json_t *roomToJson(const Room *room);
json_t *roomsToJson(ListNode *head);
json_t *roomsTitleToJson(ListNode *head);
