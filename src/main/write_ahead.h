// Changing a stored document so that neither a kill nor a power cut nor a full disk can lose it.
//
// A document is written over in place, and that alone would lose it now and then. So the same bytes
// go to `<file>.new` first and are synced there; the copy is removed when the file itself is
// synced. Whoever reads the document calls finishInterruptedWrite before: a whole copy is put in
// its file's place, one that is not whole never got that far and is removed.
//
// The caller holds app_config_mutex, but for removeDocument.

#pragma once

#include <cstddef>

// Stores a document with bufWriteToFile. 0, or -1 when it could not be stored, which is logged with
// the reason: the file is then as it was.
int storeDocument(const char *path, const char *text, size_t size);

// Puts a copy of another file in the document's place, whole or not at all; what fails is logged.
// The shell's status.
int replaceDocument(const char *source, const char *path);

// Runs "cp -a" on two files: the shell's status.
int copyFile(const char *source, const char *destination);

// Removes the document and its unfinished copy.
void removeDocument(const char *path);

void finishInterruptedWrite(const char *path);
