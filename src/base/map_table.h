// How a map table ends.
#pragma once

#include "torvane/map.h"

namespace torvane {

constexpr uint32_t map_end = 0xFFFFFFFFu; // id of the end row, and what a failed lookup by text gives
constexpr txt_map_entry unknown_row = {map_end, "Unknown"};

} // namespace torvane
