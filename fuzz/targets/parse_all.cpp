// A "set" request to an empty configuration, and what is stored of it.

#include "config/document.h"
#include "config/lists.h"
#include "config/room.h"
#include "config/schedule.h"
#include "daemon.h"
#include "json_mutator.h"

MUTATED_AS_JSON

// What runs on this configuration works on copies, and a dump reads every field.
static void useConfiguration()
{
    listMacros(&macrosListHead);
    listScenes(&scenesListHead);
    listSchedules(&schedulesListHead);
    listRooms(&roomsListHead);
    ListNode copies;
    listInit(&copies);
    copyMacros(&macrosListHead, &copies);
    require(getListObjNum(&copies) == getListObjNum(&macrosListHead), "every macro is copied");
    freeMacros(&copies);
    for (const Scene &scene : ELEMENTS(Scene, node, &scenesListHead))
        freeScene(copyScene(&scene));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const int result = parseAll(InputText(data, size));
    require(result == 0 || result == 1, "the result is 0 or 1");
    useConfiguration();
    const std::string announced = takeAnnouncement();
    if (!announced.empty())
        requireThatItLasts(announced);
    freeAppConfigList();
    return 0;
}
