// The pending resumes of schedules in their stored document, so that an end after a restart still
// puts the devices back: a JSON array of {"title", "scene"}, the scene left out when there is none.

#pragma once

#include "config/resume.h"

#include <jansson.h>

// Stores the list unless the document says the same already. The caller holds
// resumeScheduleList_mutex; locks app_config_mutex.
void saveScheduleResume(ListNode *head);

// Reads the stored document and appends a record for each of its elements to the list, if one is
// given; a document that is missing or damaged is logged. Returns what was read, which the caller
// owns, or null. The caller holds what guards the list; locks app_config_mutex.
json_t *parseResumeSchedule(ListNode *head);
