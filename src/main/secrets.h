// Passwords and tokens stay out of the log.

#pragma once

// A copy of a JSON text, which the caller owns, with each character of a password or token replaced
// by a star; null when memory runs out. The text need not be valid.
char *withoutSecrets(const char *json);
