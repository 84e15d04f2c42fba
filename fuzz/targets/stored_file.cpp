// A stored file of any content: read, and found as an unfinished copy beside a document that is
// whole.

#include "main/stored_file.h"

#include "config/document.h"
#include "config/lists.h"
#include "daemon.h"
#include "json_mutator.h"
#include "main/json_text.h"
#include "main/scope.h"
#include "main/write_ahead.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

static constexpr size_t LENGTH_FIELD = 4;
static constexpr char OLD_DOCUMENT[] = R"({"scenes":[{"title":"old"}]})";

static void writeFile(const std::string &path, const uint8_t *data, size_t size)
{
    FILE *file = fopen(path.c_str(), "w");
    require(file && fwrite(data, 1, size, file) == size && fclose(file) == 0, "a file is written");
}

// Changes the text behind the length field, and as a rule makes the field fit.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t limit, unsigned seed)
{
    const bool hasEnd = size > LENGTH_FIELD && data[size - 1] == '\0';
    if (size <= LENGTH_FIELD + 1 || seed % 4 == 0)
        return mutateJson(data, size, limit, size, size, seed / 4);
    size = mutateJson(data, size, limit, LENGTH_FIELD, size - hasEnd, seed / 4);
    if (size > LENGTH_FIELD && seed % 4 != 1) {
        for (size_t i = 0; i < LENGTH_FIELD; ++i)
            data[i] = static_cast<uint8_t>((size - LENGTH_FIELD) >> (8 * i));
    }
    return size;
}

static Owned<char> readDocument()
{
    return Owned<char>(jsonStrReadFromFile(appSetupPath()));
}

static void checkReading(const uint8_t *data, size_t size)
{
    const std::string path = appSetupPath();
    writeFile(path, data, size);
    const Owned<char> text = readDocument();
    require((text != nullptr) == (size > LENGTH_FIELD), "a file of five bytes or more is read");
    require((access(path.c_str(), F_OK) == 0) == (size > 0), "an empty file is deleted");
    if (!text)
        return;
    parseAll(text.get());
    freeAppConfigList();

    require(storeDocument(path.c_str(), text.get(), strlen(text.get()) + 1) == 0, "it is stored");
    require(strcmp(readDocument().get(), text.get()) == 0, "what is stored reads back");
}

// Either the old document is there afterwards or the whole new one.
static void checkRecovery(const uint8_t *data, size_t size)
{
    const std::string path = appSetupPath();
    const std::string copy = path + ".new";
    require(bufWriteToFile(path.c_str(), OLD_DOCUMENT, sizeof OLD_DOCUMENT) == 0, "it is written");
    writeFile(copy, data, size);
    finishInterruptedWrite(path.c_str());
    require(access(copy.c_str(), F_OK) != 0, "no unfinished copy stays behind");
    const Owned<char> text = readDocument();
    require(text != nullptr, "there is a document");
    if (strcmp(text.get(), OLD_DOCUMENT) == 0)
        return;
    json_error_t error;
    require(Owned<json_t>(loadJson(text.get(), &error)) != nullptr, "the new document is whole");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    makeDataFolder();
    checkReading(data, size);
    checkRecovery(data, size);
    return 0;
}
