// The two generations of backups of the stored documents, and going back to nothing. Everything
// but resetDocuments locks app_config_mutex.

#pragma once

#include <apr_pools.h>

enum Generation { FIRST_BACKUP, SECOND_BACKUP };

// Moves the backups on by one generation and backs the documents up. The number of copies made.
int backUpDocuments();

// Copies the backups of a generation over the documents and loads the configuration anew. The
// number of copies made; one that failed counts, is logged and leaves its document as it was. The
// first copy is noted in the log in the name of `caller`, if any.
int restoreDocuments(apr_pool_t *pool, Generation generation, const char *caller = nullptr);

// Removes both documents. The configuration in memory stays, and the next save writes it.
// Deliberate: takes no lock.
void resetDocuments();

// Finishes or undoes what a kill or a power cut interrupted, for both documents and their backups.
// The caller holds app_config_mutex.
void finishInterruptedWrites();
