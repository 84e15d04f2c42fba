// The configuration in memory and its stored document.

#pragma once

#include <apr_pools.h>

// Initialises the named mutexes, then loads the configuration. The result is appConfigParser's.
int appConfigInit(apr_pool_t *pool);

// Puts back what the home-security scene changed, empties the configuration and loads it from the
// stored document: the parser's result, or -1 when there is no readable document. There are alarm
// settings afterwards unless there was no document. Locks what it needs.
int appConfigParser(apr_pool_t *pool);

// Stores the configuration: 0, or -1 when there was nothing to store. What could not be written is
// logged; the configuration in memory stays whole and the next save writes it. Locks what it needs.
int saveJsonToFlash();
