// Says how a map table ends.
#pragma once

#include <stdint.h>

#include "torvane/map.h"

namespace torvane {

constexpr uint32_t map_end = 0xFFFFFFFFu; // id of the end row, and the result of a lookup by text that finds nothing
constexpr txt_map_entry unknown_row = {map_end, "Unknown"};

} // namespace torvane
