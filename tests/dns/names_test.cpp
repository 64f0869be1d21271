// These tests turn names into labels and back.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/dns_message.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using dns::Bytes;
using dns::labels;
using dns::pointer;

// Returns the bytes that dnsNameToLabels writes.
Bytes encoded(const std::string &name) {
  std::vector<unsigned char> out(name.size() + 2 + 8, 0xEE);
  dnsNameToLabels(out.data(), name.c_str());
  size_t end = out.size();
  while (end > 0 && out[end - 1] == 0xEE)
    end--;
  return {reinterpret_cast<const char *>(out.data()), end};
}

Bytes bytes(std::initializer_list<int> values) {
  Bytes out;
  for (const int value : values)
    out += static_cast<char>(value);
  return out;
}

struct Name {
  bool read;
  std::string text;
  int consumed;
};

// Reads a name from a message in a buffer. Zeroes follow the message as far as a name can reach through a pointer.
Name read_at(size_t at, const Bytes &message) {
  std::vector<unsigned char> buffer(16640);
  memcpy(buffer.data(), message.data(), message.size());
  Name name = {false, "", -1};
  char *text = dnsReadName(buffer.data() + at, buffer.data(), &name.consumed);
  if (text) {
    name.read = true;
    name.text = text;
    memset(text, 0xEE, 256); // the caller owns all of it
    free(text);
  }
  return name;
}

void expect_name(const std::string &text, int consumed, size_t at, const Bytes &message) {
  const Name name = read_at(at, message);
  EXPECT_TRUE(name.read) << text;
  EXPECT_EQ(text, name.text);
  EXPECT_EQ(consumed, name.consumed) << text;
}

void expect_none(size_t at, const Bytes &message) {
  const Name name = read_at(at, message);
  EXPECT_FALSE(name.read) << name.text;
  EXPECT_EQ(1, name.consumed);
}

} // namespace

TEST(NameToLabels, WritesLengthsAndTexts) {
  EXPECT_EQ(Bytes("\3www\7example\3com\0", 17), encoded("www.example.com"));
  EXPECT_EQ(Bytes("\1a\0", 3), encoded("a"));
  EXPECT_EQ(Bytes("\4host\0", 6), encoded("host"));
  EXPECT_EQ(Bytes("\1a\1b\1c\0", 7), encoded("a.b.c"));
}

TEST(NameToLabels, AnEmptyNameIsTheZeroByteAlone) {
  EXPECT_EQ(Bytes("\0", 1), encoded(""));
}

TEST(NameToLabels, ADotAtTheEndGivesAnEmptyLabel) {
  EXPECT_EQ(Bytes("\7example\3com\0\0", 14), encoded("example.com."));
  EXPECT_EQ(Bytes("\0\0\0", 3), encoded("."));
}

TEST(NameToLabels, EmptyLabelsInTheMiddleAndAtTheStart) {
  EXPECT_EQ(Bytes("\1a\0\1b\0", 6), encoded("a..b"));
  EXPECT_EQ(Bytes("\0\1a\0", 4), encoded(".a"));
}

TEST(NameToLabels, LengthsAreNotLookedAt) {
  for (const size_t length : {63u, 64u, 191u, 192u, 255u}) {
    const std::string label(length, 'x');
    EXPECT_EQ(bytes({static_cast<int>(length)}) + label + Bytes(1, '\0'), encoded(label)) << length;
  }
  const std::string label(300, 'x');
  EXPECT_EQ(bytes({300 - 256}) + label + bytes({1, 'y', 0}), encoded(label + ".y"));
}

TEST(NameToLabels, BytesAreTakenAsTheyAre) {
  EXPECT_EQ(Bytes("\2\303\204\2 -\0", 7), encoded("\303\204. -"));
}

TEST(NameToLabels, NullDoesNothing) {
  unsigned char out[4] = {1, 2, 3, 4};
  dnsNameToLabels(nullptr, "www.test");
  dnsNameToLabels(out, nullptr);
  EXPECT_EQ(0, memcmp(out, "\1\2\3\4", 4));
}

TEST(ReadName, PlainNames) {
  expect_name("www.example.com", 17, 0, labels("www.example.com"));
  expect_name("a", 3, 0, labels("a"));
  expect_name("", 1, 0, labels(""));
  expect_name("www.test", 10, 5, Bytes(5, 'x') + labels("www.test") + Bytes(5, 'x'));
}

TEST(ReadName, APointerTakesTwoBytes) {
  expect_name("www.test", 2, 10, labels("www.test") + pointer(0));
  expect_name("test", 2, 10, labels("www.test") + pointer(4));
}

TEST(ReadName, LabelsBeforeAPointer) {
  expect_name("ftp.test", 6, 10, labels("www.test") + Bytes("\3ftp") + pointer(4));
  expect_name("a.b.www.test", 6, 10, labels("www.test") + Bytes("\1a\1b") + pointer(0));
}

TEST(ReadName, APointerToAPointer) {
  const Bytes message = labels("www.test") + Bytes("\3ftp") + pointer(4) + pointer(10) + pointer(16);
  expect_name("ftp.test", 2, 18, message);
  expect_name("ftp.test", 2, 16, message);
}

TEST(ReadName, APointerForwards) {
  expect_name("www.test", 2, 0, pointer(2) + labels("www.test"));
  expect_name("ftp.www.test", 6, 0, Bytes("\3ftp") + pointer(6) + labels("www.test"));
}

TEST(ReadName, PointersUseAllFourteenBits) {
  Bytes message = pointer(0x3FFF - 1);
  message.resize(0x3FFF - 1, 'x');
  message += labels("far.test");
  expect_name("far.test", 2, 0, message);
}

TEST(ReadName, APointerToTheRootEndsTheName) {
  expect_name("www", 6, 1, Bytes(1, '\0') + Bytes("\3www") + pointer(0));
  expect_name("", 2, 1, Bytes(1, '\0') + pointer(0));
}

TEST(ReadName, LabelsOver63AreLabels) {
  const std::string label(191, 'x');
  expect_name(label + ".y", 195, 0, bytes({191}) + label + bytes({1, 'y', 0}));
}

// The reader tells length bytes from characters only when the name is complete, so a high byte inside a label counts as
// a pointer.
TEST(ReadName, AHighByteInALabelIsAPointerToo) {
  expect_name("abww.test", 5, 10, labels("www.test") + Bytes("\4ab") + pointer(2));
}

TEST(ReadName, ReadsUpTo255BytesOfLabels) {
  const std::string label(63, 'x'), last(62, 'y');
  const Bytes three = Bytes("\77") + label + Bytes("\77") + label + Bytes("\77") + label; // 192 bytes
  const std::string text = label + "." + label + "." + label + ".";
  expect_name(text + last, 256, 0, three + Bytes("\76") + last + Bytes(1, '\0'));
  expect_none(0, three + Bytes("\77") + label + Bytes(1, '\0'));
  expect_none(0, three + Bytes("\77") + label + three);
  // A pointer makes it no longer: 192 bytes, then 63 or 64 elsewhere.
  expect_name(text + last, 194, 64, Bytes("\76") + last + Bytes(1, '\0') + three + pointer(0));
  expect_none(65, Bytes("\77") + label + Bytes(1, '\0') + three + pointer(0));
}

TEST(ReadName, ALabelLongerThanTheRestIsNoName) {
  expect_none(0, Bytes("\4www\0", 5));
  expect_none(0, Bytes("\3www\1\0", 6));
  expect_none(0, bytes({191, 'x', 0}));
}

TEST(ReadName, LoopsAreNoNames) {
  expect_none(0, pointer(0));
  expect_none(3, Bytes(3, 'x') + pointer(3));
  expect_none(0, pointer(2) + pointer(0));
  expect_none(0, Bytes("\1a") + pointer(0));
  expect_none(2, pointer(4) + pointer(0) + pointer(2));
}

TEST(ReadName, ALongWayRoundIsNoLoop) {
  Bytes message = labels("www.test");
  unsigned to = 0;
  for (int i = 0; i < 5000; i++) {
    const unsigned at = static_cast<unsigned>(message.size());
    message += pointer(to);
    to = at;
  }
  expect_name("www.test", 2, to, message);
}

TEST(ReadName, ReadsNothingBehindTheName) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char *memory =
      static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_EQ(0, mprotect(memory + page, page, PROT_NONE));
  for (const Bytes &tail : {labels("www.test"), Bytes("\3ftp") + pointer(0), pointer(0)}) {
    memcpy(memory, labels("www.test").data(), 10);
    char *at = memory + page - tail.size();
    memcpy(at, tail.data(), tail.size());
    int consumed;
    char *name =
        dnsReadName(reinterpret_cast<unsigned char *>(at), reinterpret_cast<unsigned char *>(memory), &consumed);
    ASSERT_NE(nullptr, name);
    EXPECT_EQ(static_cast<int>(tail.size()), consumed);
    free(name);
  }
  munmap(memory, 2 * page);
}

TEST(ReadName, ReadsAsFarInAsTheMessageGoes) {
  const Bytes message = Bytes(60000, 'x') + labels("www.test");
  std::vector<unsigned char> buffer(message.begin(), message.end());
  buffer.resize(buffer.size() + 300);
  int consumed;
  char *name = dnsReadName(buffer.data() + 60000, buffer.data(), &consumed);
  EXPECT_STREQ("www.test", name);
  EXPECT_EQ(10, consumed);
  free(name);
}

TEST(ReadName, WithoutMemoryThereIsNoName) {
  const Bytes message = labels("www.test");
  const auto *start = reinterpret_cast<const unsigned char *>(message.data());
  int consumed = -1;
  const unsigned failures = sandbox::fail_each_allocation([&] { return dnsReadName(start, start, &consumed); },
                                                          [&](char *name, bool failed) {
                                                            EXPECT_EQ(failed, name == nullptr);
                                                            EXPECT_EQ(failed ? 1 : 10, consumed);
                                                            free(name);
                                                          });
  EXPECT_EQ(1u, failures);
}

TEST(ReadName, NullAndPlacesBeforeTheMessageGiveNull) {
  unsigned char message[] = "\3www";
  int consumed = 42;
  EXPECT_EQ(nullptr, dnsReadName(nullptr, message, &consumed));
  EXPECT_EQ(nullptr, dnsReadName(message, nullptr, &consumed));
  EXPECT_EQ(nullptr, dnsReadName(message, message, nullptr));
  EXPECT_EQ(nullptr, dnsReadName(message, message + 1, &consumed));
  EXPECT_EQ(42, consumed);
}
