#include <gtest/gtest.h>
#include <math.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

RECORD_LAYOUT(cpu_sample, 64, FIELD(user, 0, 8), FIELD(nice, 8, 8), FIELD(system, 16, 8), FIELD(idle, 24, 8),
              FIELD(iowait, 32, 8), FIELD(irq, 40, 8), FIELD(softirq, 48, 8), FIELD(steal, 56, 8));

using Sample = std::unique_ptr<cpu_sample, decltype(&free)>;

Sample sample_now() {
  return Sample(cpu_utility_get_stat(), free);
}

// Puts a recorded file in the place of the kernel's.
class Recorded {
 public:
  explicit Recorded(const std::string &text) {
    sandbox::write_file("/run/stat", text);
    mounted_ = mount("/run/stat", "/proc/stat", nullptr, MS_BIND, nullptr) == 0;
    EXPECT_TRUE(mounted_) << strerror(errno);
  }
  ~Recorded() {
    if (mounted_)
      umount2("/proc/stat", MNT_DETACH);
    unlink("/run/stat");
  }
  Recorded(const Recorded &) = delete;
  Recorded &operator=(const Recorded &) = delete;

 private:
  bool mounted_;
};

Sample sample_of(const std::string &text) {
  const Recorded recorded(text);
  return sample_now();
}

float load(const char *earlier, const char *later) {
  const Sample a = sample_of(earlier), b = sample_of(later);
  return cpu_utility_calculate(a.get(), b.get());
}

void expect_counters(const Sample &sample, const uint64_t (&expected)[8]) {
  ASSERT_NE(nullptr, sample);
  uint64_t got[8];
  memcpy(got, sample.get(), sizeof(got));
  for (int i = 0; i < 8; i++)
    EXPECT_EQ(expected[i], got[i]) << i;
}

} // namespace

TEST(CpuSample, HoldsTheEightCountersOfTheFirstLine) {
  const int before = sandbox::open_descriptors();
  expect_counters(sample_of("cpu  10 20 30 40 50 60 70 80 90 100\ncpu0 1 2 3 4 5 6 7 8 9 10\nintr 5\n"),
                  {10, 20, 30, 40, 50, 60, 70, 80});
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST(CpuSample, CountersHave64Bits) {
  expect_counters(sample_of("cpu 4294967296 18446744073709551615 4294967295 9999999999 1 2 3 4\n"),
                  {4294967296u, 18446744073709551615u, 4294967295u, 9999999999u, 1, 2, 3, 4});
}

TEST(CpuSample, MissingCountersAre0) {
  expect_counters(sample_of("cpu 1 2 3 4\n"), {1, 2, 3, 4, 0, 0, 0, 0});
  expect_counters(sample_of("cpu"), {});
  expect_counters(sample_of("xcpu 1 2 3 4\n"), {}); // the line only has to contain "cpu"
}

TEST(CpuSample, OfALongLineTheFirst127CharactersAreRead) {
  const std::string line = "cpu 1 2 3 4 5 6 7 " + std::string(127 - 20, ' ') + "89";
  ASSERT_EQ(127u, line.size());
  expect_counters(sample_of(line + "99\n"), {1, 2, 3, 4, 5, 6, 7, 89});
  EXPECT_EQ(nullptr, sample_of(std::string(125, 'x') + "cpu 1\n"));
}

TEST(CpuSample, WithoutAFileIsNull) {
  const sandbox::NoDescriptors none;
  EXPECT_EQ(nullptr, cpu_utility_get_stat());
}

TEST(CpuSample, AFileThatDoesNotServeStaysOpen) {
  for (const char *text : {"", "processor 1 2 3\ncpu 1 2 3\n", "CPU 1\n"}) {
    const int before = sandbox::open_descriptors();
    EXPECT_EQ(nullptr, sample_of(text)) << text;
    EXPECT_EQ(before + 1, sandbox::open_descriptors()) << text;
  }
}

TEST(CpuSample, WithoutMemoryIsNullAndLeavesNothingOpen) {
  const int before = sandbox::open_descriptors();
  const Recorded recorded("cpu 1 2 3 4 5 6 7 8\n");
  const unsigned failures = sandbox::fail_each_allocation([] { return cpu_utility_get_stat(); },
                                                          [](cpu_sample *sample, bool failed) {
                                                            EXPECT_TRUE(failed || sample);
                                                            free(sample);
                                                          });
  EXPECT_GE(failures, 2u); // the stream, perhaps its buffer, the sample
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST(CpuLoad, IsTheShareOfTheTimeThatWasNotIdle) {
  EXPECT_EQ(100.0F, load("cpu 100 0 100 1000 0 0 0 0\n", "cpu 150 10 120 1000 0 0 20 0\n"));
  EXPECT_EQ(50.0F, load("cpu 100 0 100 1000 0 0 0 0\n", "cpu 125 0 125 1050 0 0 0 0\n"));
  EXPECT_EQ(0.0F, load("cpu 100 0 100 1000 0 0 0 0\n", "cpu 100 0 100 1200 0 0 0 0\n"));
  EXPECT_EQ(25.0F, load("cpu 0 0 0 0 0 0 0 0\n", "cpu 1 0 0 6 1 0 0 0\n")); // waiting for devices is load
}

TEST(CpuLoad, EveryCounterCounts) {
  for (int counter = 0; counter < 8; counter++) {
    cpu_sample earlier = {}, later = {};
    later.idle = 100;
    uint64_t counters[8];
    memcpy(counters, &later, sizeof(counters));
    counters[counter] += 300;
    memcpy(&later, counters, sizeof(later));
    EXPECT_EQ(counter == 3 ? 0.0F : 75.0F, cpu_utility_calculate(&earlier, &later)) << counter;
  }
}

TEST(CpuLoad, IsTakenFromDifferencesThatMayPassTheirTop) {
  cpu_sample earlier = {}, later = {};
  earlier.user = UINT64_MAX - 9;
  earlier.idle = UINT64_MAX - 19;
  later.user = 65;
  later.idle = 5;
  EXPECT_EQ(75.0F, cpu_utility_calculate(&earlier, &later)); // 75 and 25 ticks
  // Large counters lose nothing: only their differences become floats.
  earlier = {};
  earlier.idle = 1ull << 60;
  earlier.user = 1ull << 61;
  later = earlier;
  later.idle += 1;
  later.user += 3;
  EXPECT_EQ(75.0F, cpu_utility_calculate(&earlier, &later));
}

TEST(CpuLoad, OfNoTimeIsNotANumber) {
  const Sample sample = sample_of("cpu 1 2 3 4 5 6 7 8\n");
  EXPECT_TRUE(isnan(cpu_utility_calculate(sample.get(), sample.get())));
}

TEST(CpuLoad, OfASampleThatIsNotThereIsMinusOne) {
  const cpu_sample sample = {};
  EXPECT_EQ(-1.0F, cpu_utility_calculate(nullptr, &sample));
  EXPECT_EQ(-1.0F, cpu_utility_calculate(&sample, nullptr));
  EXPECT_EQ(-1.0F, cpu_utility_calculate(nullptr, nullptr));
}

TEST(CpuLoad, OfThisMachineAtWorkIsAboveNothing) {
  const Sample earlier = sample_now();
  if (!earlier)
    GTEST_SKIP() << "no /proc/stat";
  const time_t end = time(nullptr) + 10;
  float now = NAN;
  // It works until the counters of the kernel show it.
  while (!(now > 0) && time(nullptr) < end) {
    for (int i = 0; i < 100000; i++)
      sched_yield();
    const Sample later = sample_now();
    ASSERT_NE(nullptr, later);
    now = cpu_utility_calculate(earlier.get(), later.get());
  }
  if (isnan(now))
    GTEST_SKIP() << "the counters of /proc/stat stand still";
  EXPECT_GT(now, 0);
  EXPECT_LE(now, 100);
}
