// Mutations that know JSON. Bytes that change at random seldom leave a document that still parses;
// here a value goes, comes twice, changes its type or its place, and the document stays one.

#pragma once

#include <cstddef>
#include <cstdint>

// Changes the document in data[begin, end), and what follows it moves; some calls change its bytes
// instead, as do all for a text that is no JSON. Returns the new size of the input, at most
// `limit`.
size_t mutateJson(uint8_t *data, size_t size, size_t limit, size_t begin, size_t end,
                  unsigned seed);

// Copies a part of the other document into the first and writes the result to `out`. Returns its
// size; 0 when one of the two is no JSON.
size_t crossJson(const uint8_t *data, size_t size, const uint8_t *other, size_t otherSize,
                 uint8_t *out, size_t limit, unsigned seed);

// For a target whose whole input is one document.
#define MUTATED_AS_JSON                                                                            \
    extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t limit,            \
                                              unsigned seed)                                       \
    {                                                                                              \
        return mutateJson(data, size, limit, 0, size, seed);                                       \
    }                                                                                              \
    extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *data, size_t size,                  \
                                                const uint8_t *other, size_t otherSize,            \
                                                uint8_t *out, size_t limit, unsigned seed)         \
    {                                                                                              \
        return crossJson(data, size, other, otherSize, out, limit, seed);                          \
    }
