// Passwords and tokens stay out of the log.

#pragma once

#include <string_view>

// A copy of a JSON text, which the caller owns, with each character of a password or token replaced
// by a star; null when memory runs out. The text need not be valid.
char *withoutSecrets(const char *json);

// Whether a member of this name, as it is written in a document, holds a password or token.
bool isSecret(std::string_view key);
