// These tests convert IPv6 addresses from and to texts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <memory>
#include <random>
#include <string>

#include "torvane.h"

namespace {

using Address = std::array<unsigned char, 16>;
using Groups = std::array<unsigned short, 8>;

// Returns "RESULT ADDRESS". The output buffer is full of other bytes before.
std::string converted(const std::string &text) {
  Address address;
  address.fill(0xff);
  const int result = StringToV6Addr(text.c_str(), address.data());
  char shown_text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, address.data(), shown_text, sizeof(shown_text));
  return std::to_string(result) + " " + shown_text;
}

} // namespace

TEST(StringToV6Addr, FollowsEveryRule) {
  const struct {
    const char *text, *result;
  } cases[] = {
      {"1:2:3:4:5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"2001:DB8:aBcD:EF01:2345:6789:a:ffff", "0 2001:db8:abcd:ef01:2345:6789:a:ffff"},
      {"0:0:0:0:0:0:0:0", "0 ::"},
      {"::1", "0 ::1"},
      {"::", "0 ::"},
      {"1::", "0 1::"},
      {"fe80::", "0 fe80::"},
      {"1::8", "0 1::8"},
      {"1:2::7:8", "0 1:2::7:8"},
      {"1:2:3:4:5:6:7::", "0 1:2:3:4:5:6:7:0"},
      {"::2:3:4:5:6:7:8", "0 0:2:3:4:5:6:7:8"},
      // A run of no zeros.
      {"1:2:3:4::5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"::1:2:3:4:5:6:7:8", "0 1:2:3:4:5:6:7:8"},
      {"1:2:3:4:5:6:7:8::", "0 1:2:3:4:5:6:7:8"},
      // A colon at the end.
      {"1:2:3:4:5:6:7:8:", "0 1:2:3:4:5:6:7:8"},
      {"1::2:", "0 1::2"},
      {"1:", "1 ::"},
      // A single colon at the start.
      {":", "1 ::"},
      {":1", "1 ::"},
      {":1:2:3:4:5:6:7:8", "1 ::"},
      // Two runs.
      {":::", "1 ::"},
      {":::1", "1 ::"},
      {"1:::2", "1 ::"},
      {"1::2::3", "1 ::"},
      {"::1::", "1 ::"},
      // Groups.
      {"::ffff", "0 ::ffff"},
      {"::10000", "1 ::"},
      {"::12345", "1 ::"},
      {"12345::", "1 ::"},
      {"::fffff:1", "1 ::"},
      {"::00001", "0 ::1"},
      {"::0000000000000abcd", "0 ::abcd"},
      {"::1.2.3.4:10000", "0 ::1"}, // not looked at behind the dot
      // Too many bytes, or too few.
      {"1:2:3:4:5:6:7:8:9", "1 ::"},
      {"1:2:3:4:5:6:7:8:9:", "1 ::"},
      {"::1:2:3:4:5:6:7:8:9", "1 ::"},
      {"", "1 ::"},
      {"1", "1 ::"},
      {"1:2:3:4:5:6:7", "1 ::"},
      // An IPv4 tail.
      {"::ffff:192.0.2.1", "0 ::"},
      {"::1.2.3.4", "0 ::"},
      {"1.2.3.4", "0 ::"},
      {"1:2:3:4:5:6:1.2.3.4", "0 ::"},
      {"::255.255.255.255", "0 ::"},
      {"::0.0.0.0", "0 ::"},
      {"::001.002.003.004", "0 ::"},
      {"1:2:1.2.3.4", "0 ::"}, // however few bytes stand before it
      // One that is not well-formed: its digits before the dot are a group.
      {"::1.2.3", "0 ::1"},
      {"::1.2.3.", "0 ::1"},
      {"::1.2.3.4.", "0 ::1"},
      {"::1.2.3.4.5", "0 ::1"},
      {"::1.2.3.256", "0 ::1"},
      {"::256.2.3.4", "0 ::256"},
      {"::1..2.3", "0 ::1"},
      {"::a.2.3.4", "0 ::a"},
      {"::1.2.3.a", "0 ::1"},
      {"::1.2.3.4/64", "0 ::1"},
      {"::1. 2.3.4", "0 ::1"},
      {"::.1.2.3.4", "0 ::"},
      {"fe80::7:.", "0 fe80::7"},
      {"1.2.3", "1 ::"},
      {".", "1 ::"},
      {"1:2:3:4:5:6:1.2.3", "1 ::"}, // 14 bytes
      // No room for one.
      {"1:2:3:4:5:6:7:1.2.3.4", "0 ::"},
      {"1:2:3:4:5:6:7:1.2", "0 ::"},
      {"1:2:3:4:5:6:7:8:1.2.3.4", "0 ::"},
      {"::2:3:4:5:6:7:8:1.2.3.4", "0 ::"},
      // Other characters.
      {"fe80::1/64", "0 ::"},
      {"fe80::1%eth0", "0 ::"},
      {"fe80::1\n", "0 ::"},
      {" fe80::1", "0 ::"},
      {"fe80::1 ", "0 ::"},
      {"g::", "0 ::"},
      {"::G", "0 ::"},
      {"-1::", "0 ::"},
      {"0x1::", "0 ::"},
      {"::1\xff", "0 ::"},
      {"1::2::/", "1 ::"}, // what comes first decides
      {"/1::2::", "0 ::"},
      {"::10000/", "1 ::"},
  };
  for (const auto &row : cases)
    EXPECT_EQ(row.result, converted(row.text)) << row.text;
}

TEST(StringToV6Addr, OfNothingOrIntoNothingFails) {
  Address address;
  address.fill(0xff);
  EXPECT_EQ(1, StringToV6Addr(nullptr, address.data()));
  EXPECT_EQ(Address{}, address);
  EXPECT_EQ(1, StringToV6Addr("::1", nullptr));
}

// The groups have random values and numbers of digits; a run of zeros is written as "::" or in full.
TEST(StringToV6Addr, ReadsValidTextsAsTheCLibraryDoes) {
  std::mt19937 random(6);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  for (int i = 0; i < 20000; i++) {
    const unsigned run_length = below(9), run_at = below(9 - run_length);
    std::string text;
    for (unsigned group = 0; group < 8; group++) {
      if (run_length > 0 && group == run_at) {
        text += "::";
        group += run_length - 1;
        continue;
      }
      char digits[8];
      snprintf(digits, sizeof(digits), "%0*x", static_cast<int>(1 + below(4)), below(0x10000) >> below(4) * 4);
      if (below(2))
        j_toupper(digits);
      if (!text.empty() && text.back() != ':')
        text += ':';
      text += digits;
    }
    Address expected = {}, address;
    ASSERT_EQ(1, inet_pton(AF_INET6, text.c_str(), expected.data())) << text;
    ASSERT_EQ(0, StringToV6Addr(text.c_str(), address.data())) << text;
    ASSERT_EQ(expected, address) << text;
  }
}

// A text that the C library accepts must read alike; any other text must give a result and do no harm.
TEST(StringToV6Addr, SurvivesAnyText) {
  std::mt19937 random(66);
  const std::string characters = "0123456789abcdefABCDEF::::::./%g\xff";
  for (int i = 0; i < 50000; i++) {
    std::string text;
    for (size_t length = random() % 24; length > 0; length--)
      text += characters[random() % characters.size()];
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    memcpy(exact.get(), text.c_str(), text.size() + 1);
    Address expected = {}, address;
    address.fill(0xff);
    const int result = StringToV6Addr(exact.get(), address.data());
    ASSERT_TRUE(result == 0 || (result == 1 && address == Address{})) << text;
    if (text.find('.') == std::string::npos && inet_pton(AF_INET6, text.c_str(), expected.data()) == 1) {
      ASSERT_EQ(0, result) << text;
      ASSERT_EQ(expected, address) << text;
    }
  }
}

TEST(V6AddrToString, WritesEightGroupsWithoutATerminator) {
  const struct {
    Groups groups;
    const char *text;
  } cases[] = {
      {{0, 0, 0, 0, 0, 0, 0, 1}, "0:0:0:0:0:0:0:1"},
      {{0, 0, 0, 0, 0, 0, 0, 0}, "0:0:0:0:0:0:0:0"},
      {{0x2001, 0xdb8, 0, 0xa, 0xab, 0xabc, 0xabcd, 0x10}, "2001:db8:0:a:ab:abc:abcd:10"},
      {{0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff}, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
  };
  for (const auto &row : cases) {
    char text[48];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(0, V6AddrToString(row.groups.data(), text));
    EXPECT_EQ(row.text + std::string(sizeof(text) - strlen(row.text), '#'), std::string(text, sizeof(text)));
  }
  const std::unique_ptr<char[]> exact(new char[39]); // the longest, without room for more
  EXPECT_EQ(0, V6AddrToString(cases[3].groups.data(), exact.get()));
}

TEST(V6AddrToString, WritesNothingForNullsAndSucceeds) {
  char text[48] = "#";
  const Groups groups = {};
  EXPECT_EQ(0, V6AddrToString(nullptr, text));
  EXPECT_EQ(0, V6AddrToString(groups.data(), nullptr));
  EXPECT_STREQ("#", text);
}
