#include "config/resume.h"

ListNode resumeSceneListHead = {&resumeSceneListHead, &resumeSceneListHead};
ListNode resumeScheduleListHead = {&resumeScheduleListHead, &resumeScheduleListHead};
ListNode resumeHomeSceneListHead = {&resumeHomeSceneListHead, &resumeHomeSceneListHead};

ResumeScene *callocResumeScene()
{
    auto *resume = callocRecord<ResumeScene>();
    if (resume)
        listInit(&resume->node);
    return resume;
}

ResumeSchedule *callocResumeSchedule()
{
    auto *resume = callocRecord<ResumeSchedule>();
    if (resume)
        listInit(&resume->node);
    return resume;
}

HomeSceneResume *callocHomeSceneResume()
{
    auto *resume = callocRecord<HomeSceneResume>();
    if (resume)
        listInit(&resume->node);
    return resume;
}

ResumeScene *searchResumeScene(ListNode *head, const char *macroTitle)
{
    return findByText(ELEMENTS(ResumeScene, node, head), &ResumeScene::macroTitle, macroTitle);
}

template <typename Resume> static void freeResume(Resume *resume)
{
    listDel(&resume->node);
    if (resume->scene)
        freeScene(resume->scene);
    freeMem(resume);
}

void freeResumeScene(ResumeScene *resume)
{
    freeNotifications(resume->enabled_notifications);
    freeResume(resume);
}

void freeResumeSchedule(ResumeSchedule *resume)
{
    freeResume(resume);
}

void freeHomeSceneResume(HomeSceneResume *resume)
{
    freeResume(resume);
}

void freeHomeSceneResumeList(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (HomeSceneResume &resume : ELEMENTS(HomeSceneResume, node, head))
        freeHomeSceneResume(&resume);
}

void listResumeScene(ListNode *head)
{
    for (ResumeScene &resume : ELEMENTS(ResumeScene, node, head)) {
        LOG(DEBUG, "macroTitle: %s triggerFunctionType: %d\n", resume.macroTitle,
            resume.triggerFunctionType);
        listScene(resume.scene);
    }
}
