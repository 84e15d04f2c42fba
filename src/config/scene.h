// Scenes: lists of device commands. The scenes list holds the user's; macros, schedules and the
// records that restore devices own private ones.
//
// Nothing here locks its list but setScenes, delScene and renameSceneTitle; the caller holds
// scenesList_mutex for the scenes list. copyScene, freeScene and listScene take Macro_op_mutex
// while they are at a scene's comps.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <atomic>
#include <jansson.h>

struct BuildinSiren {
    Integer siren_type;
};

// One device command.
struct Comp {
    Integer value;
    TargetId target;
    ListNode node;
};

struct Scene {
    Text title;
    Text icon_name;
    Text icon;
    BuildinSiren *buildinSiren;  // owned; null when absent
    ListNode comps;
    ListNode node;
    Integer invisible;
    Integer ID;
};

extern ListNode scenesListHead LOCKING(guarded_by(scenesList_mutex));
extern std::atomic<int> scenesize;  // the largest scenes array ever received

Scene *callocScene();
Comp *callocComp();
BuildinSiren *callocBuildinSiren();

// A deep copy that is in no list, its invisible and ID left 0; null for null or without memory.
Scene *copyScene(const Scene *sceneSrc);
// Appends copies of the source's comps; false without memory.
bool copyComps(const ListNode *source, ListNode *destination);

Scene *searchScene(ListNode *head, const char *title);
Comp *searchComp(Integer dev, Integer if_, Integer ch, ListNode *head);
// As searchComp; the match is unlinked and freed. 1 when there was one.
int searchanddelComp(Integer dev, Integer if_, Integer ch, ListNode *head);

void freeScene(Scene *scene);
void freeScenes(ListNode *head);
void freeComp(Comp *comp);
void freeComps(ListNode *head);

void listScene(Scene *scene);
void listScenes(ListNode *head);
void listComps(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setScenes(json_t *array);  // locks scenesList_mutex
int setScene(json_t *object, Scene *sceneBuf);
int setComps(json_t *array, ListNode *head);
int setComp(json_t *object, ListNode *head);
int setBuildinSiren(json_t *object, Scene *scene);
// A new scene that is in no list, or null without memory.
Scene *setNewScene(json_t *object);

// Each returns 1 when something was deleted, else 0.
int delScenes(json_t *array);
int delScene(json_t *object);  // locks scenesList_mutex
// The parts of the scene that the request names: its siren, and the comps of the same targets.
int delSceneComps(json_t *object, Scene *scene);
int delComp(json_t *object, ListNode *head);

// 1 when the title was changed, else 0. Locks scenesList_mutex.
int renameSceneTitle(const char *oldTitle, const char *newTitle);

// New values that the caller owns. sceneToJson gives null for a null scene; the others want a
// record.
json_t *sceneToJson(const Scene *scene);
json_t *compToJson(const Comp *comp);
json_t *buildinSirenToJson(const BuildinSiren *siren);
json_t *scenesToJson(ListNode *head);
json_t *scenesTitleToJson(ListNode *head);
