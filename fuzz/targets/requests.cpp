// Several requests one after the other, one a line: "+" sets, "-" deletes, "=" renames what
// follows,
// "@" restarts the daemon.

#include "config/document.h"
#include "config/lists.h"
#include "daemon.h"
#include "json_mutator.h"

#include <algorithm>

// The line around a byte, without its first character and its end.
struct Line {
    size_t begin;
    size_t end;

    Line(const uint8_t *data, size_t size, size_t at)
    {
        const uint8_t *byte = data + at;
        const uint8_t *start = byte;
        while (start > data && start[-1] != '\n')
            --start;
        end = static_cast<size_t>(std::find(byte, data + size, '\n') - data);
        begin = std::min(static_cast<size_t>(start - data) + 1, end);
    }
};

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t limit, unsigned seed)
{
    if (size == 0)
        return mutateJson(data, size, limit, 0, 0, seed);
    const Line line(data, size, seed / 16 % size);
    return mutateJson(data, size, limit, line.begin, line.end, seed);
}

static void apply(char kind, const char *text)
{
    switch (kind) {
    case '+':
        parseAll(text);
        break;
    case '-':
        parseToDel(text);
        break;
    case '=':
        parseRename(text);
        break;
    case '@':
        restart(configurationText());
        break;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (size_t at = 0; at < size;) {
        const Line line(data, size, at);
        if (line.begin > at)
            apply(static_cast<char>(data[at]), InputText(data + line.begin, line.end - line.begin));
        at = line.end + 1;
    }
    requireThatItLasts(configurationText());
    freeAppConfigList();
    return 0;
}
