// Changing a stored document so that neither a kill nor a power cut nor a full disk can lose it.
//
// A document is written over in place, and that alone would lose it now and then. So the same bytes
// go to `<file>.new` first and are synced there; the copy is removed when the file itself is
// synced. Whoever reads or changes the document calls finishInterruptedWrite before: a whole copy
// is put in its file's place, one that is not whole never got that far and is removed.
//
// What the shell copies goes to `<file>.copy` and is put in place when it is all there. Nothing
// recovers that: a copying program may outlive the daemon and finish when nobody wants it any more.
//
// The caller holds app_config_mutex, but for removeDocument.

#pragma once

#include <cstddef>

// Stores a document with bufWriteToFile. 0, or -1 when it could not be stored, which is logged with
// the reason: the file, or its unfinished copy, is then as it was.
int storeDocument(const char *path, const char *text, size_t size);

// Runs "cp -a" on two files: the shell's status.
int copyFile(const char *source, const char *destination);

// The two steps of putting a copy of another file in a document's place. False, which is logged,
// when the copy cannot be made whole or put there; the document is then as it was.
bool stageCopy(const char *source, const char *path);
bool commitCopy(const char *path);
void dropCopy(const char *path);

// Removes the document and what is unfinished of it.
void removeDocument(const char *path);

// Puts the unfinished copy in place or removes it; one that cannot be examined now stays for later.
void finishInterruptedWrite(const char *path);
