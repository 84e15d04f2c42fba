// Random requests: mostly sound, of few titles so that they meet, with disorder mixed in.
//
// The same seed and number give the same requests on every machine.

#pragma once

#include "bus/config_model.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace model {

class Random {
public:
    Random(uint64_t seed, uint64_t number);

    uint64_t below(uint64_t limit);
    bool oneIn(uint64_t n)
    {
        return below(n) == 0;
    }
    template <typename Item> const Item &oneOf(const std::vector<Item> &items)
    {
        return items[below(items.size())];
    }

private:
    std::mt19937_64 engine;
};

// `current` is the configuration as it is: some requests are made from parts of it.
Request randomRequest(Random &random, const Value &current);

}  // namespace model
