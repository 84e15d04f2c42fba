#include "schedule/resume_file.h"

#include "config/json_fields.h"
#include "main/json_memory.h"
#include "main/json_text.h"
#include "main/scope.h"
#include "main/stored_file.h"
#include "main/write_ahead.h"

static json_t *resumeToJson(const ResumeSchedule *resume)
{
    json_t *object = json_object();
    json_object_set_new(object, "title", json_string(resume->title));
    if (resume->scene)
        json_object_set_new(object, "scene", sceneToJson(resume->scene));
    return object;
}

// One element that is damaged does not take the others with it.
static void addResume(json_t *object, ListNode *head)
{
    if (!json_is_object(object)) {
        LOG_AS("parseResumeSchedule", ERROR, "a resume is not an object\n");
        return;
    }
    ResumeSchedule *resume = callocResumeSchedule();
    if (!resume)
        return;
    const char *title = memberText(object, "title");
    if (title)
        JsonStrCopy(resume->title, title);
    json_t *scene = json_object_get(object, "scene");
    if (json_is_object(scene))
        resume->scene = setNewScene(scene);
    else if (scene)
        LOG_AS("parseResumeSchedule", ERROR, "the scene of resume %s is not an object\n",
               resume->title);
    listAddTail(&resume->node, head);
}

json_t *parseResumeSchedule(ListNode *head)
{
    Owned<char> text;
    {
        const MutexLock lock(app_config_mutex);
        finishInterruptedWrite(scheduleResumePath());
        text.reset(jsonStrReadFromFile(scheduleResumePath()));
    }
    if (!text) {
        LOG(ERROR, "jsonStr == NULL\n");
        return nullptr;
    }
    Owned<json_t> root(loadJsonOrLog(text.get()));
    if (!root)
        return nullptr;
    if (!json_is_array(root.get())) {
        LOG(ERROR, "error: root is not an object\n");  // Deliberate: the text; it is an array
        return nullptr;
    }
    for (size_t i = 0; head && i < json_array_size(root.get()); ++i)
        addResume(json_array_get(root.get(), i), head);
    return root.release();
}

void saveScheduleResume(ListNode *head)
{
    const JsonMemory memory;
    const Owned<json_t> root(arrayOf(ELEMENTS(ResumeSchedule, node, head), resumeToJson));
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    if (!text || memory.ranOut()) {
        LOG(ERROR, "calloc fail\n");
        return;
    }
    const Owned<json_t> stored(parseResumeSchedule(nullptr));
    if (json_equal(root.get(), stored.get()))
        return;
    const MutexLock lock(app_config_mutex);
    storeDocument(scheduleResumePath(), text.get(), strlen(text.get()) + 1);
}
