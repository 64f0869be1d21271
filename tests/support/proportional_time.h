// Checks that a text function takes time in proportion to the length of its text.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <time.h>

#include <string>

namespace sandbox {

inline std::string repeated(const std::string &piece, size_t times) {
  std::string text;
  for (size_t i = 0; i < times; i++)
    text += piece;
  return text;
}

// The sanitizers' strstr measures the rest of the text at every call, so that no search is linear with it.
constexpr bool times_are_real =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    false;
#else
    true;
#endif

// Returns the nanoseconds of processor time that `work` takes for each byte of a text of `size` bytes, in the fastest
// of several runs.
template <typename Work>
double nanoseconds_per_byte(size_t size, Work work) {
  const int rounds = size < 100000 ? 50 : 1;
  double fastest = 1e9;
  for (int run = 0; run < 5; run++) {
    const clock_t began = clock();
    for (int i = 0; i < rounds; i++)
      work();
    const double spent = static_cast<double>(clock() - began) / CLOCKS_PER_SEC * 1e9;
    const double each = spent / rounds / static_cast<double>(size);
    fastest = each < fastest ? each : fastest;
  }
  return fastest;
}

// With quadratic growth a byte of the larger text would take a hundred times as long.
inline void expect_proportional(const std::string &what, double at_10_kB, double at_1_MB) {
  printf("%-24s %6.2f ns per byte of 10 kB, %6.2f of 1 MB\n", what.c_str(), at_10_kB, at_1_MB);
  EXPECT_LT(at_1_MB, 10 * at_10_kB + 5) << what;
}

} // namespace sandbox
