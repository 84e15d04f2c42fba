// What the targets share: the daemon's core in this process, without a bus and without a log. An
// input stands alone: a target leaves the lists empty.

#pragma once

#include <jansson.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Part of an input as a text that ends at its first NUL, in memory of that very size: whoever reads
// a byte too far is found.
class InputText {
public:
    InputText(const uint8_t *data, size_t size);
    operator const char *() const
    {
        return text.get();
    }

private:
    std::unique_ptr<char[]> text;
};

// A finding, unless it holds.
void require(bool holds, const char *what);

// Has the daemon keep its files in a temporary folder, which goes away with the process.
void makeDataFolder();

// The configuration that was announced since the last call, or nothing.
std::string takeAnnouncement();

// The configuration in memory, as it is stored and announced.
std::string configurationText();

// What parseAll does with a document that has been parsed, but for the announcement, which costs
// more than all the rest.
void setGroups(json_t *root);

// Fills the empty lists with every family and member, for requests that want something to work on.
void loadExample();

// What a restart makes of a stored document.
void restart(const std::string &text);

// A finding, unless a restart keeps the configuration, of which this is the text, and each text of
// it fits its field.
void requireThatItLasts(const std::string &text);
