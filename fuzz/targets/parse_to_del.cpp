// A "delete" request to a configuration with every family and member.

#include "config/document.h"
#include "config/lists.h"
#include "daemon.h"
#include "json_mutator.h"

MUTATED_AS_JSON

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    loadExample();
    const int result = parseToDel(InputText(data, size));
    require(result == 0 || result == 1, "the result is 0 or 1");
    const std::string announced = takeAnnouncement();
    if (!announced.empty())
        requireThatItLasts(announced);
    freeAppConfigList();
    return 0;
}
