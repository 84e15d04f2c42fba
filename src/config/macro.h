// Macros: rules whose triggers run a scene and send notifications.
//
// Nothing here locks its list but setMacros, delMacros and renameMacroTitle; the caller holds
// macroList_mutex for the macros list. Copying, freeing and listing take Macro_op_mutex for a
// private scene.

#pragma once

#include "config/scene.h"
#include "config/trigger.h"

static constexpr int NOTIFICATION_SLOTS = 3;

struct Macro {
    Text title;
    Text user_notification_message;
    Text icon_name;
    char *enabled_notifications[NOTIFICATION_SLOTS];  // owned, each of exactly its text's size;
                                                      // null when unset
    Text sceneName;  // a scene of the scenes list; at most one of the two is set
    Integer enabled;
    Integer invisible;
    Integer priority;
    Integer duration;  // control duration, seconds
    Integer duration_type;
    Scene *scene;  // owned private scene; null when absent
    ListNode triggers;
    ListNode node;
};

extern ListNode macrosListHead LOCKING(guarded_by(macroList_mutex));

Macro *callocMacro();
// Zeroed memory for a text and its NUL; the text is not copied.
char *callocEnabled_notifications(const char *text);

// Copies each slot that is set into a new allocation; false without memory. The destination's slots
// must be null.
bool copyNotifications(char *const (&source)[NOTIFICATION_SLOTS],
                       char *(&destination)[NOTIFICATION_SLOTS]);
void freeNotifications(char *(&slots)[NOTIFICATION_SLOTS]);

// A deep copy that is in no list, its invisible left 0; null for null or without memory. The caller
// also holds scenesList_mutex or owns the macro.
Macro *copyMacro(const Macro *source);
// Appends copies of the source's macros; false without memory.
bool copyMacros(const ListNode *source, ListNode *destination);

Macro *searchMacro(ListNode *head, const char *title);

// Takes the macro's list node.
void freeMacro(ListNode *node);
void freeMacros(ListNode *head);
void listMacros(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setMacros(json_t *array);  // locks macroList_mutex
int setMacro(json_t *object, ListNode *head);
int setEnabledNotifications(json_t *array, Macro *macro);

// Each returns 1 when something was deleted, else 0.
int delMacros(json_t *array);  // locks macroList_mutex
int delMacro(json_t *object, ListNode *head);

// 1 when the title was changed, else 0. Locks macroList_mutex.
int renameMacroTitle(const char *oldTitle, const char *newTitle);

json_t *macroToJson(const Macro *macro);
json_t *macrosToJson(ListNode *head);
json_t *macrosTitleToJson(ListNode *head);
