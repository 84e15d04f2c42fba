// A small home: a door that opens and has its lamp switched on by a macro, and another switch.

#pragma once

#include "support/fake_sdk.h"

#include <string>

namespace support {

inline const std::string LAMP = switchCommand(20, 0, 1);

inline constexpr const char *DOOR_AND_LAMP =
    R"({"macros":[{"title":"Door","enabled":1,"duration":0,"scene":"Lamp",
      "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}],
    "scenes":[{"title":"Lamp","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]},
      {"title":"Siren","buildinSiren":{"siren_type":4}}]})";

inline void addDoorAndLamp(FakeSdk &sdk)
{
    sdk.set(device(5, 0, DOOR, 255));
    sdk.set(device(6, 0, SWITCH, 1));
    sdk.set(device(20, 0, SWITCH, 7));
}

}  // namespace support
