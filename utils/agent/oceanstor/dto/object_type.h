// Object type codes of the OceanStor array, as sent in association queries and bodies.
#pragma once

namespace oceanstor {

constexpr int LUN_OBJECT_TYPE = 11;
constexpr int HOST_OBJECT_TYPE = 21;
constexpr int SNAPSHOT_OBJECT_TYPE = 27;

}  // namespace oceanstor
