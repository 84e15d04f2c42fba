// Turning a scene into one that restores what its devices show now.

#pragma once

#include "config/scene.h"

#include <apr_pools.h>

// How storeCurrentDeviceValue sets a comp's value; any other mode leaves it.
enum RestoreMode : int {
    RESTORE_PRESENT = 0,
    RESTORE_OFF = 1,
    RESTORE_ON = 2,  // 99
};

// Overwrites the values of the scene's comps, one "getdevice" for each comp, and silences its
// built-in siren. A comp whose channel is not known keeps its value. Returns 0. The scene is the
// caller's own.
int storeCurrentDeviceValue(apr_pool_t *pool, Scene *scene, Integer mode);
