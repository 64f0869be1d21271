#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mtd/mtd-user.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/interposed.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "support/standard_descriptors.h"
#include "torvane.h"

INTERPOSE_VARIADIC(ioctl, 2);

namespace {

// What the kernel would answer, and how it was asked.
struct {
  bool answers;
  uint32_t size;
  std::string device;
  int open_flags, descriptor_flags;
} kernel;

// Answers for flash devices that the machine does not have.
int ioctl_with_flash(int fd, unsigned long request, void *argument) {
  // Requests are ints with the sign bit set on some targets.
  if (!kernel.answers || static_cast<uint32_t>(request) != static_cast<uint32_t>(MEMGETINFO))
    return interposed::ioctl_call.real(fd, request, argument);
  char path[64] = {};
  if (readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof(path) - 1) < 0)
    return -1;
  kernel.device = path;
  kernel.open_flags = fcntl(fd, F_GETFL) & O_ACCMODE;
  kernel.descriptor_flags = fcntl(fd, F_GETFD);
  mtd_info_user info = {};
  info.type = MTD_NORFLASH;
  info.size = kernel.size;
  info.erasesize = 0x20000;
  memcpy(argument, &info, sizeof(info));
  return 0;
}

RECORD_LAYOUT(mtd_query, 104, FIELD(dev, 0, 32), FIELD(block_dev, 32, 32), FIELD(name, 64, 16),
              FIELD(block_name, 80, 16), FIELD(num, 96, 4), FIELD(size, 100, 4));
static_assert(sizeof(mtd_info_user) == 32); // the kernel's record

constexpr char recorded[] = R"(dev:    size   erasesize  name
mtd0: 00040000 00020000 "boot"
mtd1: 00020000 00020000 "config"
mtd2: 00400000 00020000 "kernel"
mtd3: 00b00000 00020000 "rootfs"
mtd4: 00400000 00020000 "kernel2"
mtd12: 00020000 00020000 "factory"
)";

std::string reason() {
  return strerror(-1);
}

// Is found before the real `cat` and prints what it would print on a machine with flash.
class Mtd : public testing::Test {
 protected:
  static constexpr uint32_t untouched = 0xABCDEF;

  void SetUp() override {
    old_path = getenv("PATH");
    mkdir("/run/tools", 0700);
    sandbox::write_file("/run/tools/cat",
                        "#!/bin/sh\n[ \"$*\" = /proc/mtd ] && exec /bin/cat /run/recorded_mtd\n"
                        "echo \"$*\" >>/run/other_calls\n");
    chmod("/run/tools/cat", 0700);
    setenv("PATH", ("/run/tools:" + old_path).c_str(), 1);
    sandbox::write_file("/run/recorded_mtd", recorded);
    kernel = {};
    sandbox::clear_console();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    EXPECT_FALSE(sandbox::exists("/run/other_calls"));
    setenv("PATH", old_path.c_str(), 1);
    for (const char *number : {"0", "1", "3", "8", "24", "-1"})
      unlink((std::string("/dev/mtd") + number).c_str());
    unlink("/run/recorded_mtd");
    unlink("/run/tools/cat");
    rmdir("/run/tools");
  }

  static void have_device(int number, uint32_t size) {
    sandbox::write_file("/dev/mtd" + std::to_string(number), "");
    kernel.answers = true;
    kernel.size = size;
  }

  // Returns the number of `name`, -1 if there is none. What is stored then is `stored_if_none`.
  static long number_of(const std::string &name, uint32_t stored_if_none = untouched) {
    uint32_t number = untouched;
    const int result = parseMtdNumByCmd(name.c_str(), &number);
    if (result == 1)
      return static_cast<long>(number);
    EXPECT_EQ(0, result);
    EXPECT_EQ(stored_if_none, number);
    return -1;
  }

  static void expect_trace(const char *func, const std::string &message) {
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_TRUE(traces[0].has_process);
    EXPECT_EQ("sulnor_convert", traces[0].file);
    EXPECT_EQ(func, traces[0].func);
    EXPECT_EQ(message, traces[0].message);
    sandbox::clear_console();
  }
  static void expect_traces(const std::vector<std::string> &messages) {
    EXPECT_EQ(messages, sandbox::console_messages());
    sandbox::clear_console();
  }

  const interposed::StandIn<int(int, unsigned long, void *)> flash{interposed::ioctl_call, ioctl_with_flash};
  std::string old_path;
  int descriptors = 0;
};

class MtdNumber : public Mtd {};
class MtdDevice : public Mtd {};
class MtdItem : public Mtd {};
class MtdByName : public Mtd {};

// An output buffer with a margin that must stay untouched.
struct Output {
  Output() {
    memset(bytes, '#', sizeof(bytes));
  }
  std::string first(size_t count) const {
    return std::string(bytes, count);
  }
  bool untouched_from(size_t at) const {
    return std::string(bytes + at, sizeof(bytes) - at) == std::string(sizeof(bytes) - at, '#');
  }
  uint32_t word() const {
    uint32_t value;
    memcpy(&value, bytes, sizeof(value));
    return value;
  }
  char bytes[160];
};

} // namespace

TEST_F(MtdNumber, IsTheDigitOfThePartitionsLine) {
  EXPECT_EQ(0, number_of("boot"));
  EXPECT_EQ(1, number_of("config"));
  EXPECT_EQ(3, number_of("rootfs"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdNumber, OfPartition12Reads1) {
  EXPECT_EQ(1, number_of("factory"));
}

TEST_F(MtdNumber, OfSeveralMatchesRunTogether) {
  EXPECT_EQ(24, number_of("kernel"));
  EXPECT_EQ(2, number_of("'\"kernel\"'"));   // the pattern with its quotes matches one line
  EXPECT_EQ(12341, number_of("mtd'[1-9]'")); // a name is a pattern
  EXPECT_EQ(1, number_of("00020000' \"con'"));
}

TEST_F(MtdNumber, IsNotFoundWithoutAMatch) {
  EXPECT_EQ(-1, number_of("absent"));
  EXPECT_EQ("", sandbox::console_text());
  unlink("/run/recorded_mtd");
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(-1, number_of("kernel"));
  EXPECT_NE("", errors.text()); // of cat
}

TEST_F(MtdNumber, OfAnEmptyNameIsNotFound) {
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(-1, number_of(""));
  EXPECT_NE("", errors.text()); // of grep
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdNumber, WithoutADigitIsStoredAs0AndReported) {
  EXPECT_EQ(-1, number_of("erasesize", 0)); // the heading's "dev:"
  expect_trace("parseMtdNumByCmd", "string(:) to digital error!!\n");
  sandbox::write_file("/run/recorded_mtd", "mtdx: 00040000 \"odd\"\nmtd3: 0 \"odd\"\n");
  EXPECT_EQ(-1, number_of("odd", 0));
  expect_trace("parseMtdNumByCmd", "string(x3) to digital error!!\n");
  sandbox::write_file("/run/recorded_mtd", "mtd3: 0 \"odd\"\nmtdx: 0 \"odd\"\n");
  EXPECT_EQ(3, number_of("odd")); // one digit is enough
}

TEST_F(MtdNumber, WithoutADigitIsNotFoundWithoutAConsoleEither) {
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(-1, number_of("erasesize", 0));
}

TEST_F(MtdNumber, ReadsFifteenDigitsAndNoMoreThanANumberHolds) {
  std::string nine, sixteen;
  for (int i = 0; i < 9; i++)
    nine += "mtd1: 0 \"part\"\n";
  sandbox::write_file("/run/recorded_mtd", nine);
  EXPECT_EQ(111111111, number_of("part"));
  sandbox::write_file("/run/recorded_mtd", nine + nine);
  EXPECT_EQ(2147483647, number_of("part"));
  // With zeroes first it is seen that the sixteenth digit is not read.
  for (int i = 0; i < 12; i++)
    sixteen += "mtd0: 0 \"part\"\n";
  sandbox::write_file("/run/recorded_mtd", sixteen +
                                               "mtd4: 0 \"part\"\nmtd5: 0 \"part\"\nmtd6: 0 \"part\"\n"
                                               "mtd7: 0 \"part\"\n");
  EXPECT_EQ(456, number_of("part"));
}

TEST_F(MtdNumber, NamesMayBeAsLongAsACommand) {
  const size_t around = strlen("cat /proc/mtd | grep  | awk '{printf substr($1,4,1)}'");
  const std::string longest(1023 - around, 'n');
  sandbox::write_file("/run/recorded_mtd", "mtd5: 0 \"" + longest + "\"\n");
  EXPECT_EQ(5, number_of(longest));
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ(-1, number_of(longest + "n"));
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("quorra_misc", traces[0].file);
  EXPECT_EQ("command too long\n", traces[0].message);
}

TEST_F(MtdNumber, NullAsksNothing) {
  uint32_t number = 7;
  EXPECT_EQ(0, parseMtdNumByCmd(nullptr, &number));
  EXPECT_EQ(0, parseMtdNumByCmd("kernel", nullptr));
  EXPECT_EQ(7u, number);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdNumber, WithoutDescriptorsIsNotFound) {
  const sandbox::NoDescriptors none;
  EXPECT_EQ(-1, number_of("kernel"));
}

TEST_F(MtdDevice, IsOpenedForBothAndAskedForItsSize) {
  have_device(3, 4194304);
  const uint32_t number = 3;
  mtd_info_user info = {};
  EXPECT_EQ(1, getMtdInfo(&number, &info));
  EXPECT_EQ(4194304u, info.size);
  EXPECT_EQ(0x20000u, info.erasesize);
  EXPECT_EQ("/dev/mtd3", kernel.device);
  EXPECT_EQ(O_RDWR, kernel.open_flags);
  EXPECT_EQ(FD_CLOEXEC, kernel.descriptor_flags);
}

TEST_F(MtdDevice, NumbersAreSigned) {
  have_device(-1, 1);
  const uint32_t number = 0xFFFFFFFF;
  mtd_info_user info = {};
  EXPECT_EQ(1, getMtdInfo(&number, &info));
  EXPECT_EQ("/dev/mtd-1", kernel.device);
}

TEST_F(MtdDevice, ThatCannotBeOpenedIsToldOnStandardOutput) {
  const uint32_t number = 9;
  mtd_info_user info = {};
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, getMtdInfo(&number, &info));
  EXPECT_EQ("open mtd device fail!! reason:" + reason() + "\n", output.text());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdDevice, ThatDoesNotAnswerIsToldAndClosed) {
  have_device(3, 1);
  kernel.answers = false;
  const uint32_t number = 3;
  mtd_info_user info = {};
  sandbox::Captured output(STDOUT_FILENO);
  const int next = dup(0); // the lowest descriptor that is free
  close(next);
  EXPECT_EQ(0, getMtdInfo(&number, &info));
  EXPECT_EQ("ioctl error!! fd:" + std::to_string(next) + ", reason:" + reason() + "\n", output.text());
  const int again = dup(0);
  close(again);
  EXPECT_EQ(next, again);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdDevice, TakesNoDescriptorOfStandardInputOutputOrError) {
  have_device(3, 1);
  const uint32_t number = 3;
  mtd_info_user info = {};
  EXPECT_EQ(0, sandbox::without_standard_descriptors([&] {
              return getMtdInfo(&number, &info) == 1 && sandbox::standard_descriptors_are_closed() ? 0 : 1;
            }));
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors([&] { return getMtdInfo(&number, &info); }));

  // What is said of a device that does not answer must not be written to it.
  kernel.answers = false;
  EXPECT_EQ(0, sandbox::in_child([&] {
              close(STDOUT_FILENO);
              setvbuf(stdout, nullptr, _IONBF, 0);
              return getMtdInfo(&number, &info);
            }));
  EXPECT_EQ("", sandbox::read_file("/dev/mtd3"));
}

TEST_F(MtdDevice, NullAsksNothing) {
  const uint32_t number = 3;
  mtd_info_user info = {};
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, getMtdInfo(nullptr, &info));
  EXPECT_EQ(0, getMtdInfo(&number, nullptr));
  EXPECT_EQ("", output.text());
}

TEST_F(MtdItem, TextsAreWrittenWithTheirTerminator) {
  mtd_info_user info = {};
  info.size = 4194304;
  const struct {
    uint32_t kind, number;
    std::string text;
  } cases[] = {{MTD_QUERY_DEV, 3, "/dev/mtd3"},
               {MTD_QUERY_BLOCK_DEV, 3, "/dev/mtdblock3"},
               {MTD_QUERY_NAME, 3, "mtd3"},
               {MTD_QUERY_BLOCK_NAME, 3, "mtdblock3"},
               {MTD_QUERY_DEV, 2147483647, "/dev/mtd2147483647"},
               {MTD_QUERY_BLOCK_DEV, 24, "/dev/mtdblock24"},
               {MTD_QUERY_NAME, 0xFFFFFFFF, "mtd-1"}};
  for (const auto &c : cases) {
    const uint32_t length = static_cast<uint32_t>(c.text.size());
    for (const uint32_t size : {length, length + 1, 100u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      Output out;
      EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, size, c.kind, &c.number));
      EXPECT_EQ(c.text + '\0', out.first(length + 1)); // one past a size that is just enough
      EXPECT_TRUE(out.untouched_from(length + 1));
    }
    Output out;
    EXPECT_EQ("", sandbox::console_text());
    EXPECT_EQ(0, setQueryMtdInfo(&info, out.bytes, length - 1, c.kind, &c.number));
    EXPECT_TRUE(out.untouched_from(0));
    expect_trace("setQueryMtdInfo", "over size!! querySize:" + std::to_string(length) +
                                        " > outputSize:" + std::to_string(length - 1)); // the trace has no newline
  }
}

TEST_F(MtdItem, EverythingIsOneRecord) {
  mtd_info_user info = {};
  info.size = 0x00b00000;
  uint32_t number = 3;
  Output out;
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, 0, MTD_QUERY_ALL, &number)); // the size does not count
  mtd_query expected = {};
  strcpy(expected.dev, "/dev/mtd3");
  strcpy(expected.block_dev, "/dev/mtdblock3");
  strcpy(expected.name, "mtd3");
  strcpy(expected.block_name, "mtdblock3");
  expected.num = 3;
  expected.size = 0x00b00000;
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&expected), sizeof(expected)), out.first(sizeof(expected)));
  EXPECT_TRUE(out.untouched_from(sizeof(expected)));

  number = 4294967295u;
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, 0, MTD_QUERY_ALL, &number));
  mtd_query got;
  memcpy(&got, out.bytes, sizeof(got));
  EXPECT_STREQ("/dev/mtd4294967295", got.dev);
  EXPECT_STREQ("/dev/mtdblock4294967295", got.block_dev);
  EXPECT_STREQ("mtd4294967295", got.name);
  EXPECT_STREQ("mtdblock4294967", got.block_name); // cut to its field
  EXPECT_EQ(4294967295u, got.num);
}

TEST_F(MtdItem, NumberAndSizeAreWords) {
  mtd_info_user info = {};
  info.size = 0x12345678;
  const uint32_t number = 0xFEDCBA98;
  Output out;
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, 0, MTD_QUERY_NUM, &number));
  EXPECT_EQ(0xFEDCBA98, out.word());
  EXPECT_TRUE(out.untouched_from(4));
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, 0, MTD_QUERY_SIZE, &number));
  EXPECT_EQ(0x12345678u, out.word());
  EXPECT_TRUE(out.untouched_from(4));
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes + 1, 0, MTD_QUERY_NUM, &number)); // the address need not be aligned
}

TEST_F(MtdItem, OtherKindsAreReportedWhateverThePointersAre) {
  const mtd_info_user info = {};
  const uint32_t number = 3;
  Output out;
  for (const uint32_t kind : {7u, 8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(0, setQueryMtdInfo(&info, out.bytes, 100, kind, &number));
    expect_trace("setQueryMtdInfo", "none case!!\n");
    EXPECT_EQ(0, setQueryMtdInfo(nullptr, nullptr, 0, kind, nullptr));
    expect_trace("setQueryMtdInfo", "none case!!\n");
  }
  EXPECT_TRUE(out.untouched_from(0));
}

TEST_F(MtdItem, NeedsOnlyThePointersOfItsKind) {
  mtd_info_user info = {};
  info.size = 0x12345678;
  const uint32_t number = 3;
  Output out;
  EXPECT_EQ(0, setQueryMtdInfo(nullptr, out.bytes, 100, MTD_QUERY_ALL, &number));
  EXPECT_EQ(0, setQueryMtdInfo(&info, out.bytes, 100, MTD_QUERY_ALL, nullptr));
  EXPECT_EQ(0, setQueryMtdInfo(&info, nullptr, 100, MTD_QUERY_ALL, &number));
  for (uint32_t kind = MTD_QUERY_DEV; kind <= MTD_QUERY_NUM; kind++) {
    EXPECT_EQ(0, setQueryMtdInfo(&info, out.bytes, 100, kind, nullptr));
    EXPECT_EQ(0, setQueryMtdInfo(&info, nullptr, 100, kind, &number));
  }
  EXPECT_EQ(0, setQueryMtdInfo(nullptr, out.bytes, 100, MTD_QUERY_SIZE, &number));
  EXPECT_EQ(0, setQueryMtdInfo(&info, nullptr, 100, MTD_QUERY_SIZE, &number));
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ("", sandbox::console_text());

  EXPECT_EQ(0, setQueryMtdInfo(nullptr, nullptr, 3, MTD_QUERY_NAME, &number)); // its length is looked at first
  expect_trace("setQueryMtdInfo", "over size!! querySize:4 > outputSize:3");
  EXPECT_EQ(1, setQueryMtdInfo(nullptr, out.bytes, 100, MTD_QUERY_DEV, &number));
  EXPECT_STREQ("/dev/mtd3", out.bytes);
  EXPECT_EQ(1, setQueryMtdInfo(nullptr, out.bytes, 0, MTD_QUERY_NUM, &number));
  EXPECT_EQ(3u, out.word());
  EXPECT_EQ(1, setQueryMtdInfo(&info, out.bytes, 0, MTD_QUERY_SIZE, nullptr));
  EXPECT_EQ(0x12345678u, out.word());
}

TEST_F(MtdByName, GivesEveryKindOfItem) {
  have_device(3, 11534336);
  Output out;
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_DEV));
  EXPECT_STREQ("/dev/mtd3", out.bytes);
  EXPECT_EQ("/dev/mtd3", kernel.device);
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_BLOCK_DEV));
  EXPECT_STREQ("/dev/mtdblock3", out.bytes);
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_NAME));
  EXPECT_STREQ("mtd3", out.bytes);
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_BLOCK_NAME));
  EXPECT_STREQ("mtdblock3", out.bytes);
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_NUM));
  EXPECT_EQ(3u, out.word());
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, sizeof(out.bytes), MTD_QUERY_SIZE));
  EXPECT_EQ(11534336u, out.word());
  mtd_query all;
  EXPECT_EQ(1, getMtdInfoByName("rootfs", &all, sizeof(all), MTD_QUERY_ALL));
  EXPECT_STREQ("mtdblock3", all.block_name);
  EXPECT_EQ(11534336u, all.size);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(MtdByName, ASizeBelowTheTextIsTooSmall) {
  have_device(3, 1);
  Output out;
  EXPECT_EQ(0, getMtdInfoByName("rootfs", out.bytes, 8, MTD_QUERY_DEV));
  EXPECT_TRUE(out.untouched_from(0));
  // The first trace has no newline, so that the second follows on its line.
  expect_traces({"over size!! querySize:9 > outputSize:8", "query mtd info fail!!\n"});
  EXPECT_EQ(1, getMtdInfoByName("rootfs", out.bytes, 9, MTD_QUERY_DEV));
  EXPECT_EQ(std::string("/dev/mtd3\0", 10), out.first(10));
  EXPECT_TRUE(out.untouched_from(10));
}

TEST_F(MtdByName, AnotherKindFailsAfterTheDeviceWasAsked) {
  have_device(3, 1);
  Output out;
  EXPECT_EQ(0, getMtdInfoByName("rootfs", out.bytes, 100, 7));
  EXPECT_EQ("/dev/mtd3", kernel.device);
  const auto traces = sandbox::console();
  ASSERT_EQ(2u, traces.size());
  EXPECT_EQ("setQueryMtdInfo", traces[0].func);
  EXPECT_EQ("none case!!\n", traces[0].message);
  EXPECT_EQ("getMtdInfoByName", traces[1].func);
  EXPECT_EQ("query mtd info fail!!\n", traces[1].message);
}

TEST_F(MtdByName, AnUnknownNameIsReported) {
  Output out;
  EXPECT_EQ(0, getMtdInfoByName("absent", out.bytes, 100, MTD_QUERY_DEV));
  expect_trace("getMtdInfoByName", "Parse mtd device name fail!!\n");
  EXPECT_EQ(0, getMtdInfoByName("erasesize", out.bytes, 100, MTD_QUERY_DEV));
  expect_traces({"string(:) to digital error!!\n", "Parse mtd device name fail!!\n"});
  EXPECT_TRUE(out.untouched_from(0));
}

TEST_F(MtdByName, ADeviceThatFailsHasItsOwnMessageAlone) {
  Output out;
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, getMtdInfoByName("rootfs", out.bytes, 100, MTD_QUERY_NUM)); // it opens the device like the others
  EXPECT_EQ("open mtd device fail!! reason:" + reason() + "\n", output.text());
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_TRUE(out.untouched_from(0));
}

TEST_F(MtdByName, NumbersThatRanTogetherNameTheirDevice) {
  have_device(24, 1);
  Output out;
  EXPECT_EQ(1, getMtdInfoByName("kernel", out.bytes, 100, MTD_QUERY_NAME));
  EXPECT_STREQ("mtd24", out.bytes);
}

TEST_F(MtdByName, NullIsReported) {
  Output out;
  EXPECT_EQ(0, getMtdInfoByName(nullptr, out.bytes, 100, MTD_QUERY_DEV));
  expect_trace("getMtdInfoByName", "Null Input\n");
  EXPECT_EQ(0, getMtdInfoByName("rootfs", nullptr, 100, MTD_QUERY_DEV));
  expect_trace("getMtdInfoByName", "Null Input\n");
}
