// The stored resumes of schedules: read, stored and read again.

#include "daemon.h"
#include "json_mutator.h"
#include "main/scope.h"
#include "main/stored_file.h"
#include "schedule/resume_file.h"

#include <cstring>

MUTATED_AS_JSON

static void freeResumes(ListNode *head)
{
    for (ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, head))
        freeResumeSchedule(&resume);
}

// Reads the stored document and stores what was read: the text then.
static std::string readAndStore(ListNode *head)
{
    json_decref(parseResumeSchedule(head));
    saveScheduleResume(head);
    const Owned<char> text(jsonStrReadFromFile(scheduleResumePath()));
    require(text != nullptr, "the resumes are stored");
    return text.get();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    makeDataFolder();
    const InputText text(data, size);
    require(bufWriteToFile(scheduleResumePath(), text, strlen(text) + 1) == 0, "it is written");
    ListNode head;
    listInit(&head);
    readAndStore(&head);
    freeResumes(&head);
    const std::string once = readAndStore(&head);
    freeResumes(&head);
    require(readAndStore(&head) == once, "stored resumes read back as they were");
    for (const ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &head))
        require(memchr(resume.title, '\0', TEXT_SIZE - 1), "a title fits its field");
    freeResumes(&head);
    return 0;
}
