// These tests convert addresses between numbers and texts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <vector>

#include "network.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

RECORD_LAYOUT(ipport, 8, FIELD(ip, 0, 4), FIELD(port, 4, 2));

namespace {

using network::address;

class Prefix : public testing::Test {};
class TextToAddress : public testing::Test {};
class Endpoint : public testing::Test {};
class MacText : public testing::Test {};
class Atoi : public testing::Test {};

class AddressToText : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
  static void expect_trace() {
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_FALSE(traces[0].has_process);
    EXPECT_EQ("quorra_convert", traces[0].file);
    EXPECT_EQ("ip2string", traces[0].func);
    EXPECT_EQ("buffer size too small!!\n", traces[0].message);
    sandbox::clear_console();
  }
};

} // namespace

TEST_F(Prefix, OfEveryContiguousMask) {
  for (unsigned ones = 0; ones <= 32; ones++) {
    const uint32_t mask = ones == 0 ? 0 : 0xFFFFFFFFu << (32 - ones);
    uint8_t prefix = 77;
    EXPECT_EQ(0, netmask_convert_prefix(mask, &prefix)) << mask;
    EXPECT_EQ(ones, prefix);
  }
}

TEST_F(Prefix, OfAMaskWithHolesFailsAndIsZero) {
  for (const uint32_t mask : {0x00FFFFFFu, 0xFF00FF00u, 1u, 0xFFFFFFFDu, 0x7FFFFFFFu, 0xFFFFFF01u}) {
    uint8_t prefix = 77;
    EXPECT_EQ(1, netmask_convert_prefix(mask, &prefix)) << mask;
    EXPECT_EQ(0, prefix) << mask;
  }
}

TEST_F(Prefix, WithoutAPlaceFails) {
  EXPECT_EQ(1, netmask_convert_prefix(0xFFFFFF00, nullptr));
}

TEST_F(TextToAddress, ReadsWhatInetAddrReads) {
  const struct {
    const char *text, *same;
  } cases[] = {
      {"192.168.1.254", "192.168.1.254"},
      {"0.0.0.0", "0.0.0.0"},
      {"", "0.0.0.0"},
      {"10.1.2", "10.1.0.2"},
      {"10.258", "10.0.1.2"},
      {"2130706433", "127.0.0.1"},
      {"0x7f.010.3.4", "127.8.3.4"},
      {"1.2.3.4 x", "1.2.3.4"},
      {"255.255.255.255", "255.255.255.255"},
      {"255.255.255.254", "255.255.255.254"},
  };
  for (const auto &row : cases) {
    uint32_t ip = 0x5a5a5a5a;
    EXPECT_EQ(0, string2ip(row.text, &ip)) << row.text;
    EXPECT_EQ(address(row.same), ip) << row.text;
  }
}

TEST_F(TextToAddress, StoresAllOnesForWhatIsNone) {
  for (const char *text :
       {"router", "1.2.3.4.5", "256.1.1.1", "1.2.3.x", "-1", ".", "255.255.255.0377", "0xffffffff"}) {
    uint32_t ip = 0x5a5a5a5a;
    EXPECT_EQ(1, string2ip(text, &ip)) << text;
    EXPECT_EQ(0xFFFFFFFFu, ip) << text;
  }
}

TEST_F(TextToAddress, OfNullFailsAndStoresNothing) {
  uint32_t ip = 0x5a5a5a5a;
  EXPECT_EQ(1, string2ip(nullptr, &ip));
  EXPECT_EQ(0x5a5a5a5au, ip);
  EXPECT_EQ(1, string2ip("10.0.0.1", nullptr));
}

TEST_F(AddressToText, WritesTheBytesInTheirOrder) {
  for (const char *text : {"0.0.0.0", "1.2.3.4", "192.168.1.254", "255.255.255.255", "10.0.200.1"}) {
    char out[16];
    memset(out, 'x', sizeof(out));
    EXPECT_EQ(0, ip2string(address(text), out, sizeof(out)));
    EXPECT_STREQ(text, out);
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(AddressToText, GivesTheTextBackThatStringToAddressRead) {
  for (const char *text : {"12.34.56.78", "0.0.0.1", "1.0.0.0"}) {
    uint32_t ip;
    char out[100];
    EXPECT_EQ(0, string2ip(text, &ip));
    EXPECT_EQ(0, ip2string(ip, out, sizeof(out)));
    EXPECT_STREQ(text, out);
  }
}

TEST_F(AddressToText, RefusesABufferBelowSixteenBytesWhateverTheAddress) {
  for (const int size : {15, 8, 1, 0, -1, INT_MIN}) {
    char out[16] = "unchanged";
    EXPECT_EQ(1, ip2string(address("1.2.3.4"), out, size)) << size;
    EXPECT_STREQ("unchanged", out);
    expect_trace();
    EXPECT_EQ(1, ip2string(address("1.2.3.4"), nullptr, size)) << size;
    expect_trace();
  }
}

TEST_F(AddressToText, WithoutABufferFails) {
  EXPECT_EQ(1, ip2string(address("1.2.3.4"), nullptr, 16));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Endpoint, TakesBothNumbersAsTheyAre) {
  for (const auto convert : {ipport_convert_n2n, ipport_convert_h2n}) {
    ipport endpoint = {};
    EXPECT_EQ(0, convert(0x01020304, 0x0506, &endpoint));
    EXPECT_EQ(0x01020304u, endpoint.ip);
    EXPECT_EQ(0x0506u, endpoint.port);
    EXPECT_EQ(1, convert(0x01020304, 0x0506, nullptr));
  }
}

TEST_F(Endpoint, ReadsItsAddressAsText) {
  for (const auto convert : {ipport_string_convert_h2n, ipport_string_convert_n2n}) {
    ipport endpoint = {1, 2};
    EXPECT_EQ(0, convert("192.168.1.254", 0x0506, &endpoint));
    EXPECT_EQ(address("192.168.1.254"), endpoint.ip);
    EXPECT_EQ(0x0506u, endpoint.port);
    EXPECT_EQ(0, convert("", 7, &endpoint));
    EXPECT_EQ(0u, endpoint.ip);
    EXPECT_EQ(7u, endpoint.port);
  }
}

TEST_F(Endpoint, KeepsItsPortWhenTheTextIsNoAddress) {
  for (const auto convert : {ipport_string_convert_h2n, ipport_string_convert_n2n}) {
    ipport endpoint = {1, 2};
    EXPECT_EQ(1, convert("router", 9, &endpoint));
    EXPECT_EQ(0xFFFFFFFFu, endpoint.ip);
    EXPECT_EQ(2u, endpoint.port);
    endpoint.ip = 1;
    EXPECT_EQ(1, convert(nullptr, 9, &endpoint));
    EXPECT_EQ(1u, endpoint.ip);
    EXPECT_EQ(2u, endpoint.port);
    EXPECT_EQ(1, convert("10.0.0.1", 9, nullptr));
  }
}

TEST_F(MacText, BecomesOneByteForEachPiece) {
  char text[] = "00:1a:2B:Ff:4:50";
  uint8_t bytes[8];
  memset(bytes, 0xEE, sizeof(bytes));
  EXPECT_EQ(nullptr, change_mac_format_to_uchar6(text, bytes));
  const uint8_t expected[8] = {0x00, 0x1a, 0x2b, 0xff, 0x04, 0x50, 0xEE, 0xEE};
  EXPECT_EQ(0, memcmp(expected, bytes, sizeof(bytes)));
  EXPECT_EQ(0, memcmp("00\0001a\0002B\000Ff\0004\00050", text, sizeof(text))); // cut in place
}

TEST_F(MacText, IsNotCounted) {
  char text[] = "1:2:3:4:5:6:7:8", one[] = "7f", none[] = "";
  uint8_t bytes[9];
  memset(bytes, 0xEE, sizeof(bytes));
  change_mac_format_to_uchar6(text, bytes);
  const uint8_t eight[9] = {1, 2, 3, 4, 5, 6, 7, 8, 0xEE};
  EXPECT_EQ(0, memcmp(eight, bytes, sizeof(bytes)));
  change_mac_format_to_uchar6(one, bytes);
  EXPECT_EQ(0x7f, bytes[0]);
  EXPECT_EQ(2, bytes[1]);
  change_mac_format_to_uchar6(none, bytes);
  EXPECT_EQ(0x7f, bytes[0]);
}

TEST_F(MacText, TakesTheLowByteOfANumberAndZeroForNone) {
  char text[] = "1ff:zz:0x12:fffffffff";
  uint8_t bytes[4] = {9, 9, 9, 9};
  change_mac_format_to_uchar6(text, bytes);
  EXPECT_EQ(0xff, bytes[0]);
  EXPECT_EQ(0x00, bytes[1]);
  EXPECT_EQ(0x12, bytes[2]);
  EXPECT_EQ(0xff, bytes[3]);
}

TEST_F(MacText, WithoutColonsIsAppended) {
  char text[] = "00:1a:2B:ff:4:50", out[64] = "mac=";
  EXPECT_EQ(nullptr, change_mac_format_without_colon(text, out));
  EXPECT_STREQ("mac=001a2Bff450", out);
  EXPECT_EQ(0, memcmp("00\0001a\0002B\000ff\0004\00050", text, sizeof(text)));
  char plain[] = "abc", none[] = "";
  out[0] = '\0';
  change_mac_format_without_colon(plain, out);
  EXPECT_STREQ("abc", out);
  change_mac_format_without_colon(none, out);
  EXPECT_STREQ("abc", out);
}

TEST_F(MacText, OfNullDoesNothing) {
  char text[] = "1:2", out[4] = "x";
  uint8_t bytes[2] = {7, 7};
  EXPECT_EQ(nullptr, change_mac_format_to_uchar6(nullptr, bytes));
  EXPECT_EQ(nullptr, change_mac_format_to_uchar6(text, nullptr));
  EXPECT_EQ(nullptr, change_mac_format_without_colon(nullptr, out));
  EXPECT_EQ(nullptr, change_mac_format_without_colon(text, nullptr));
  EXPECT_EQ(7, bytes[0]);
  EXPECT_STREQ("x", out);
  EXPECT_STREQ("1:2", text);
}

TEST_F(Atoi, ReadsDecimalNumbers) {
  EXPECT_EQ(42, my_atoi("42"));
  EXPECT_EQ(-42, my_atoi("  -42 apples"));
  EXPECT_EQ(10, my_atoi("010"));
  EXPECT_EQ(0, my_atoi("0x10"));
  EXPECT_EQ(0, my_atoi("apples"));
  EXPECT_EQ(0, my_atoi(""));
  EXPECT_EQ(0, my_atoi(nullptr));
  EXPECT_EQ(INT_MAX, my_atoi("2147483647"));
  EXPECT_EQ(INT_MIN, my_atoi("-2147483648"));
}

TEST_F(Atoi, StopsAtTheRangeOfAnInt) {
  EXPECT_EQ(INT_MAX, my_atoi("2147483648"));
  EXPECT_EQ(INT_MAX, my_atoi("99999999999999999999999"));
  EXPECT_EQ(INT_MIN, my_atoi("-2147483649"));
  EXPECT_EQ(INT_MIN, my_atoi("-99999999999999999999999"));
}
