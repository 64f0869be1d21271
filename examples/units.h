// Shows an amount in the unit that suits its size.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

struct Units {
  std::span<const char *const> names; // from the smallest unit to the largest
  unsigned step;                      // each unit is `step` times the one before it
  double next_unit_from;              // the next unit is used from this many of a unit on
};

// Returns the amount with one decimal, or as a whole number when it is below the second unit.
inline std::string in_units(uint64_t amount, const Units &units) {
  char text[32];
  if (amount < units.step) {
    snprintf(text, sizeof(text), "%u %s", static_cast<unsigned>(amount), units.names[0]);
    return text;
  }
  double value = static_cast<double>(amount) / units.step;
  size_t unit = 1;
  for (; value >= units.next_unit_from && unit + 1 < units.names.size(); unit++)
    value /= units.step;
  snprintf(text, sizeof(text), "%.1f %s", value, units.names[unit]);
  return text;
}
