// The stored documents: where they are, and the layout that they share.
//
// | offset | size | field                                                             |
// | 0      | 4    | L, unsigned, little-endian: the bytes that follow, with the NUL   |
// | 4      | L    | the JSON text and one NUL                                         |

#pragma once

#include <cstddef>

// The two documents. APP_DATA_DIR, when set, stands in for /mnt/OvrinData; it is read once a path.
const char *appSetupPath();
const char *scheduleResumePath();

// The document's text in a new string that the caller frees; null when the file is missing, empty
// (it is then deleted), too short or cannot be read. The caller holds app_config_mutex for
// appSetup.json.
char *jsonStrReadFromFile(const char *path);

// What a stored file's length field says, and how many bytes follow it.
struct StoredLength {
    bool readable;  // the file can be opened; one too short for the field has nothing that follows
    long long field;
    long long following;
};
StoredLength readStoredLength(const char *path);

// Writes `size` bytes, which must be the text's length plus one or more, over what the file holds.
// 0, or -1 when the file cannot be opened. errno is 0 afterwards when every byte was written, else
// it says why not. The caller holds app_config_mutex. The documents are stored through
// storeDocument, which survives what may happen meanwhile.
int bufWriteToFile(const char *path, const char *text, size_t size);

// When the configuration was last touched: seconds since the epoch, 0 when never.
long long configTime();
void setConfigTime(long long seconds);
