// Random numbers, and the UUIDs of a MAC address.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "misc/misc.h"
#include "support/child_process.h"
#include "support/mounts.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::in_child;
using sandbox::Replaced;

namespace {

class Random : public misc::Test {};
class Uuid : public misc::Test {};

// The generator is seeded once per process, so each look at the seeding has a process of its own.

// Returns 0 if the library's first three numbers are those of this seed.
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
  device.make_read_only();
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

// Returns the 280 bytes as one text, terminators included.
std::string uuids(const unsigned char (&mac)[6]) {
  const std::unique_ptr<char[]> out(new char[280]); // no more, so that a sanitizer sees a byte too many
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
