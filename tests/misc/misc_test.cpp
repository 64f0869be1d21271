#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::console;
using sandbox::console_messages;
using sandbox::end_of_child;
using sandbox::in_child;
using sandbox::start_child;

namespace {

class Misc : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }

  static void expect_trace(const char *func, const char *message) {
    const auto traces = console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_EQ("quorra_misc", traces[0].file);
    EXPECT_EQ(func, traces[0].func);
    EXPECT_EQ(message, traces[0].message);
  }
};

class FileProbe : public Misc {};
class ModuleProbe : public Misc {};
class ShowHandler : public Misc {};
class Random : public Misc {};
class Uuid : public Misc {};

// One file in the place of another, until it goes out of scope.
class Replaced {
 public:
  Replaced(const char *path, const char *by) : path_(path) {
    if (mount(by, path, nullptr, MS_BIND, nullptr) != 0)
      perror(path);
  }
  ~Replaced() {
    umount2(path_, MNT_DETACH);
  }
  Replaced(const Replaced &) = delete;
  Replaced &operator=(const Replaced &) = delete;

 private:
  const char *path_;
};

// An empty directory over /proc.
class EmptyProc {
 public:
  EmptyProc() {
    if (mount("tmpfs", "/proc", "tmpfs", 0, nullptr) != 0)
      perror("/proc");
  }
  ~EmptyProc() {
    umount2("/proc", MNT_DETACH);
  }
  EmptyProc(const EmptyProc &) = delete;
  EmptyProc &operator=(const EmptyProc &) = delete;
};

} // namespace

TEST_F(FileProbe, TellsWhatStatSucceedsOn) {
  sandbox::write_file("/run/file", "");
  mkdir("/run/dir", 0700);
  ASSERT_EQ(0, symlink("/run/file", "/run/link"));
  ASSERT_EQ(0, symlink("/run/nothing", "/run/dangling"));
  for (const char *there : {"/run/file", "/run/dir", "/run/link", "/dev/null", "/"})
    EXPECT_EQ(1, _isFileExist(there)) << there;
  for (const char *missing : {"/run/nothing", "/run/dangling", "/run/file/below", ""})
    EXPECT_EQ(0, _isFileExist(missing)) << missing;
  EXPECT_EQ(0, _isFileExist(nullptr));
  EXPECT_EQ("", sandbox::console_text());
  for (const char *made : {"/run/file", "/run/link", "/run/dangling"})
    unlink(made);
  rmdir("/run/dir");
}

TEST_F(ModuleProbe, AnswersNoEvenForALoadedModule) {
  const EmptyProc proc;
  sandbox::write_file("/proc/modules", "loaded 16384 0 - Live 0x0000000000000000\n");
  EXPECT_EQ(0, _isModuleExist("loaded"));
  EXPECT_EQ(0, _isModuleExist("missing"));
  EXPECT_EQ(0, _isModuleExist(""));
  EXPECT_EQ(0, _isModuleExist(nullptr));
  sandbox::write_file("/proc/modules", "");
  EXPECT_EQ(0, _isModuleExist("loaded"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(ModuleProbe, TracesAListThatCannotBeOpened) {
  {
    const EmptyProc proc;
    EXPECT_EQ(0, _isModuleExist("loaded"));
  }
  expect_trace("_isModuleExist", "open /proc/modules fail!\n");
}

TEST_F(ModuleProbe, AnswersTheSameWithoutAConsole) {
  const EmptyProc proc;
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(0, _isModuleExist("loaded"));
}

TEST_F(ModuleProbe, ClosesTheListAgain) {
  const int before = sandbox::open_descriptors();
  sandbox::write_file("/run/modules", "loaded 16384 0 - Live 0x0\n");
  if (sandbox::exists("/proc/modules")) {
    const Replaced list("/proc/modules", "/run/modules");
    _isModuleExist("loaded");
    EXPECT_EQ(before, sandbox::open_descriptors());
  }
  {
    const EmptyProc proc;
    _isModuleExist("loaded");
  }
  EXPECT_EQ(before, sandbox::open_descriptors());
  unlink("/run/modules");
}

TEST_F(ShowHandler, TellsTheDispositionOfASignal) {
  const struct {
    void (*handler)(int);
    const char *message;
  } cases[] = {
      {SIG_DFL, "Default\n"},
      {SIG_IGN, "Ignore\n"},
      {[](int) {}, "This signal is not using default or ignore handler\n"},
  };
  for (const auto &c : cases) {
    sandbox::clear_console();
    struct sigaction action = {};
    action.sa_handler = c.handler;
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, nullptr));
    struct sigaction current = {};
    ASSERT_EQ(0, sigaction(SIGUSR2, nullptr, &current));
    show_handler(&current.sa_handler); // on MIPS the record begins with its flags
    expect_trace("show_handler", c.message);
  }
  signal(SIGUSR2, SIG_DFL);
}

TEST_F(ShowHandler, ReadsOneWordOfPointerSize) {
  const uintptr_t words[][2] = {{0, ~uintptr_t{0}}, {1, ~uintptr_t{0}}, {2, 0}, {~uintptr_t{0}, 1}};
  for (const auto &record : words)
    show_handler(record);
  if constexpr (sizeof(uintptr_t) == 8) {
    const uintptr_t high[] = {uintptr_t{1} << 63, (uintptr_t{1} << 63) + 1};
    show_handler(&high[0]);
    show_handler(&high[1]);
  } else {
    show_handler(&words[2]);
    show_handler(&words[2]);
  }
  const char *const other = "This signal is not using default or ignore handler\n";
  EXPECT_EQ((std::vector<std::string>{"Default\n", "Ignore\n", other, other, other, other}), console_messages());
}

TEST_F(ShowHandler, IgnoresNull) {
  show_handler(nullptr);
  EXPECT_EQ("", sandbox::console_text());
}

// The generator is seeded once per process, so each look at the seeding has a process of its own.

namespace {

// 0 when the library's numbers are those of this seed, first to third.
int follows(unsigned seed) {
  const int got[3] = {get_random(), get_random(), get_random()};
  srand(seed);
  for (const int number : got)
    if (number != rand())
      return 1;
  return 0;
}

int follows_the_time() {
  const time_t from = time(nullptr);
  const int got = get_random(), next = get_random();
  for (time_t seed = from; seed <= time(nullptr); seed++) {
    srand(static_cast<unsigned>(seed));
    if (got == rand() && next == rand())
      return 0;
  }
  return 1;
}

} // namespace

TEST_F(Random, IsSeededOnceWithFourBytesOfTheRandomDevice) {
  const unsigned char bytes[] = {0x81, 0x02, 0xA3, 0x04, 0x55, 0x66};
  unsigned seed;
  memcpy(&seed, bytes, 4);
  sandbox::write_file("/run/urandom", std::string(reinterpret_cast<const char *>(bytes), sizeof(bytes)));
  const Replaced device("/dev/urandom", "/run/urandom");
  EXPECT_EQ(0, in_child([seed] { return follows(seed); }));
  unlink("/run/urandom");
}

TEST_F(Random, OpensTheDeviceForReadingOnly) {
  sandbox::write_file("/run/urandom", "AAAA");
  const Replaced device("/dev/urandom", "/run/urandom");
  ASSERT_EQ(0, mount(nullptr, "/dev/urandom", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
  ASSERT_EQ(-1, open("/dev/urandom", O_RDWR));
  EXPECT_EQ(0, in_child([] { return follows(0x41414141u); }));
  unlink("/run/urandom");
}

TEST_F(Random, ReadsTheDeviceOnTheFirstCallAlone) {
  sandbox::write_file("/run/urandom", "AAAA");
  const Replaced device("/dev/urandom", "/run/urandom");
  EXPECT_EQ(0, in_child([] {
              const int first = get_random();
              sandbox::write_file("/run/urandom", "BBBB");
              const int second = get_random();
              srand(0x41414141u);
              return first == rand() && second == rand() ? 0 : 1;
            }));
  EXPECT_EQ(0, in_child([] { return follows(0x42424242u); }));
  unlink("/run/urandom");
}

TEST_F(Random, IsSeededWithTheTimeWhenTheDeviceGivesTooLittle) {
  for (const char *bytes : {"", "AAA"}) {
    sandbox::write_file("/run/urandom", bytes);
    const Replaced device("/dev/urandom", "/run/urandom");
    EXPECT_EQ(0, in_child(follows_the_time)) << bytes;
  }
  unlink("/run/urandom");
}

TEST_F(Random, IsSeededWithTheTimeWhenTheDeviceCannotBeOpened) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  strcpy(address.sun_path, "/run/urandom");
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
  const Replaced device("/dev/urandom", "/run/urandom");
  ASSERT_EQ(-1, open("/dev/urandom", O_RDONLY));
  EXPECT_EQ(0, in_child(follows_the_time));
  close(listener);
  unlink("/run/urandom");
}

TEST_F(Random, ClosesTheDevice) {
  const auto left_open = [] {
    const int before = sandbox::open_descriptors();
    get_random();
    return sandbox::open_descriptors() - before;
  };
  EXPECT_EQ(0, in_child(left_open));
  sandbox::write_file("/run/urandom", "AAA");
  const Replaced device("/dev/urandom", "/run/urandom");
  EXPECT_EQ(0, in_child(left_open));
  unlink("/run/urandom");
}

namespace {

// The 280 bytes as one text, terminators included.
std::string uuids(const unsigned char (&mac)[6]) {
  const std::unique_ptr<char[]> out(new char[280]); // exactly, so that a byte too many is seen
  memset(out.get(), '#', 280);
  EXPECT_EQ(0, WscGenerateUUID(mac, out.get()));
  return std::string(out.get(), 280);
}

template <size_t Size>
std::string bytes(const char (&literal)[Size]) {
  static_assert(Size - 1 == 280);
  return std::string(literal, Size - 1);
}

} // namespace

TEST_F(Uuid, FourPlainThenFourDashedCountUpFromTheMac) {
  EXPECT_EQ(bytes("bc329e001dd811b28601001122334455\0"
                  "bc329e001dd811b28601001122334456\0"
                  "bc329e001dd811b28601001122334457\0"
                  "bc329e001dd811b28601001122334458\0"
                  "bc329e00-1dd8-11b2-8601-001122334455\0"
                  "bc329e00-1dd8-11b2-8601-001122334456\0"
                  "bc329e00-1dd8-11b2-8601-001122334457\0"
                  "bc329e00-1dd8-11b2-8601-001122334458\0"),
            uuids({0x00, 0x11, 0x22, 0x33, 0x44, 0x55}));
}

TEST_F(Uuid, BytesAreUnsignedLowerCaseAndTwoDigits) {
  EXPECT_EQ(bytes("bc329e001dd811b28601fffe80abcd08\0"
                  "bc329e001dd811b28601fffe80abcd09\0"
                  "bc329e001dd811b28601fffe80abcd0a\0"
                  "bc329e001dd811b28601fffe80abcd0b\0"
                  "bc329e00-1dd8-11b2-8601-fffe80abcd08\0"
                  "bc329e00-1dd8-11b2-8601-fffe80abcd09\0"
                  "bc329e00-1dd8-11b2-8601-fffe80abcd0a\0"
                  "bc329e00-1dd8-11b2-8601-fffe80abcd0b\0"),
            uuids({0xFF, 0xFE, 0x80, 0xAB, 0xCD, 0x08}));
}

TEST_F(Uuid, ALastBytePastFfHasThreeDigitsAndIsCutToTheField) {
  EXPECT_EQ(bytes("bc329e001dd811b286010011223344fc\0"
                  "bc329e001dd811b286010011223344fd\0"
                  "bc329e001dd811b286010011223344fe\0"
                  "bc329e001dd811b286010011223344ff\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fc\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fd\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fe\0"
                  "bc329e00-1dd8-11b2-8601-0011223344ff\0"),
            uuids({0x00, 0x11, 0x22, 0x33, 0x44, 0xFC}));
  EXPECT_EQ(bytes("bc329e001dd811b286010011223344fd\0"
                  "bc329e001dd811b286010011223344fe\0"
                  "bc329e001dd811b286010011223344ff\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fd\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fe\0"
                  "bc329e00-1dd8-11b2-8601-0011223344ff\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"),
            uuids({0x00, 0x11, 0x22, 0x33, 0x44, 0xFD}));
  EXPECT_EQ(bytes("bc329e001dd811b286010011223344fe\0"
                  "bc329e001dd811b286010011223344ff\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e00-1dd8-11b2-8601-0011223344fe\0"
                  "bc329e00-1dd8-11b2-8601-0011223344ff\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"),
            uuids({0x00, 0x11, 0x22, 0x33, 0x44, 0xFE}));
  EXPECT_EQ(bytes("bc329e001dd811b286010011223344ff\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e001dd811b28601001122334410\0"
                  "bc329e00-1dd8-11b2-8601-0011223344ff\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"
                  "bc329e00-1dd8-11b2-8601-001122334410\0"),
            uuids({0x00, 0x11, 0x22, 0x33, 0x44, 0xFF}));
  EXPECT_EQ("", sandbox::console_text()); // no complaint about the size
}

TEST_F(Uuid, NullMacFailsAndNullBufferStoresNothing) {
  char out[280];
  memset(out, '#', sizeof(out));
  EXPECT_EQ(-1, WscGenerateUUID(nullptr, out));
  EXPECT_EQ(std::string(280, '#'), std::string(out, sizeof(out)));
  EXPECT_EQ(-1, WscGenerateUUID(nullptr, nullptr));
  const unsigned char mac[6] = {};
  EXPECT_EQ(0, WscGenerateUUID(mac, nullptr));
  EXPECT_EQ("", sandbox::console_text());
}
