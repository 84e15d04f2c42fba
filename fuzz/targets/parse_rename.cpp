// A "rename" request to a configuration with every family and member.

#include "config/document.h"
#include "config/lists.h"
#include "daemon.h"
#include "json_mutator.h"

MUTATED_AS_JSON

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    loadExample();
    static const std::string before = configurationText();
    const int result = parseRename(InputText(data, size));
    require(result == 0 || result == 1, "the result is 0 or 1");
    const std::string after = configurationText();
    require((after != before) == (result == 1), "1 says that a title has changed");
    if (result == 1)
        requireThatItLasts(after);
    require(takeAnnouncement().empty(), "a change of title is not announced");
    freeAppConfigList();
    return 0;
}
