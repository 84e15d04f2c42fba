// The configuration as a whole.

#pragma once

// Empties every configuration list, each under its own mutex, and frees the alarm settings. The
// caller holds no lock.
void freeAppConfigList();
