// What puts devices back as they were: after a macro, after a schedule, after the home-security
// scene. Each record owns a private scene that restores the values. The caller holds the list's
// mutex.

#pragma once

#include "config/macro.h"

#include <cstdint>

// One for each macro whose scene is active.
struct ResumeScene {
    Scene *scene;
    Text macroTitle;
    char *enabled_notifications[NOTIFICATION_SLOTS];
    int8_t triggerFunctionType;
    ListNode node;
};

// One for each schedule that has started and not ended.
struct ResumeSchedule {
    Scene *scene;
    Text title;
    ListNode node;
};

// What the home-security scene found.
struct HomeSceneResume {
    Scene *scene;
    ListNode node;
};

extern ListNode resumeSceneListHead LOCKING(guarded_by(resumeSceneList_mutex));
extern ListNode resumeScheduleListHead LOCKING(guarded_by(resumeScheduleList_mutex));
extern ListNode resumeHomeSceneListHead LOCKING(guarded_by(homeSceneResumeList_mutex));

ResumeScene *callocResumeScene();
ResumeSchedule *callocResumeSchedule();
HomeSceneResume *callocHomeSceneResume();

ResumeScene *searchResumeScene(ListNode *head, const char *macroTitle);

// Each unlinks the record and frees it with its scene.
void freeResumeScene(ResumeScene *resume);
void freeResumeSchedule(ResumeSchedule *resume);
void freeHomeSceneResume(HomeSceneResume *resume);
void freeHomeSceneResumeList(ListNode *head);

void listResumeScene(ListNode *head);
