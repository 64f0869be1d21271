// Requests split into entries whose values are decoded.
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "cgi/request.h"
#include "support/guarded_memory.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

using cgi::Request;
using sandbox::Against;
using sandbox::GuardedMemory;

namespace {

RECORD_LAYOUT(cgi_entry, 584, FIELD(name, 0, 65), FIELD(value, 65, 519));

using Entries = std::vector<cgi_entry>;

// The rules of splitting and decoding are written out once more here, over strings and offsets.

int nibble(int c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  return (c >= 'A' && c <= 'Z' ? c + 32 : c) - 87;
}

// Stores in `decoded` whether there was anything to decode.
std::string form_decoded(const std::string &value, bool &decoded) {
  std::string out;
  decoded = false;
  for (size_t i = 0; i < value.size();) {
    const auto there = [&](size_t offset) { return i + offset < value.size(); };
    const auto code = [&](size_t offset) { return static_cast<unsigned char>(value[i + offset]); };
    const auto add = [&](size_t offset) {
      out += static_cast<char>(nibble(code(offset)) * 16 + nibble(code(offset + 1)));
    };
    if (code(0) == '+') {
      out += ' ';
      decoded = true;
      i += 1;
    } else if (code(0) != '%') {
      out += value[i];
      i += 1;
    } else if (!there(1) || !there(2)) {
      i += 1;
    } else {
      decoded = true;
      const int digit = code(1);
      if (digit < '8') {
        add(1);
        i += 3;
      } else if (strchr("cCdD", digit) && there(4) && there(5)) {
        add(1), add(4);
        i += 6;
      } else if (strchr("eE", digit) && there(4) && there(5) && there(7) && there(8)) {
        add(1), add(4), add(7);
        i += 9;
      } else if (strchr("fF", digit) && there(4) && there(5) && there(7) && there(8) && there(10) && there(11)) {
        add(1), add(4), add(7), add(10);
        i += 12;
      } else {
        i += 3;
      }
    }
  }
  return out;
}

// Returns the records that `data` must leave in zeroed ones.
Entries split(const std::string &data, char value_mark, char entry_mark) {
  Entries entries(1, cgi_entry{});
  bool in_value = false;
  size_t position = 0;
  for (const char c : data) {
    if (c == value_mark) {
      in_value = true;
      position = 0;
    } else if (c == entry_mark) {
      entries.push_back(cgi_entry{});
      in_value = false;
      position = 0;
    } else if (in_value && position < 512) {
      entries.back().value[position++] = c;
    } else if (!in_value && position < 64) {
      entries.back().name[position++] = c;
    }
  }
  return entries;
}

Entries decoded_entries(const std::string &data) {
  Entries entries = split(data, '=', '&');
  for (cgi_entry &entry : entries) {
    bool decoded;
    const std::string before = entry.value, after = form_decoded(before, decoded);
    if (decoded) {
      memset(entry.value, 0, before.size());
      memcpy(entry.value, after.data(), after.size());
    }
  }
  return entries;
}

std::string bytes_of(const Entries &entries) {
  return std::string(reinterpret_cast<const char *>(entries.data()), entries.size() * sizeof(cgi_entry));
}

// Returns what becomes of a value.
std::string decoded(const std::string &value) {
  Request request("x=" + value, 1);
  EXPECT_EQ(1, request.parse());
  EXPECT_STREQ("x", request.entries()->name);
  return request.entries()->value;
}

void expect_as_told(const std::string &data) {
  const Entries golden = decoded_entries(data);
  Request request(data, static_cast<int>(golden.size()));
  EXPECT_EQ(golden.size(), static_cast<size_t>(request.parse())) << data;
  EXPECT_TRUE(bytes_of(golden) == request.records.bytes()) << testing::PrintToString(data);
}

} // namespace

TEST(EntryRecord, HasItsFieldsInPlace) {
  Request request("a=1&b=2", 2);
  EXPECT_EQ(2, request.parse());
  const std::string bytes = request.records.bytes();
  EXPECT_EQ('a', bytes[0]);
  EXPECT_EQ('1', bytes[65]);
  EXPECT_EQ('b', bytes[584]);
  EXPECT_EQ('2', bytes[584 + 65]);
}

TEST(Data2Entries, SplitsNamesAndValues) {
  Request request("a=1&b=2", 8);
  EXPECT_EQ(2, request.parse());
  EXPECT_STREQ("a", request.entries()[0].name);
  EXPECT_STREQ("1", request.entries()[0].value);
  EXPECT_STREQ("b", request.entries()[1].name);
  EXPECT_STREQ("2", request.entries()[1].value);
  EXPECT_EQ(std::string(6 * sizeof(cgi_entry), '\0'), request.records.bytes().substr(2 * sizeof(cgi_entry)));
}

TEST(Data2Entries, TakesExactlyTheBytesItIsGiven) {
  cgi_entry entries[2] = {};
  EXPECT_EQ(1, data_2_entries(entries, 2, 3, "a=12&b=2"));
  EXPECT_STREQ("1", entries[0].value);
}

TEST(Data2Entries, MakesOneEmptyEntryOfNothing) {
  for (const int len : {0, -1, INT_MIN}) {
    cgi_entry entries[2] = {};
    EXPECT_EQ(1, data_2_entries(entries, 2, len, "a=1"));
    EXPECT_STREQ("", entries[0].name);
    EXPECT_STREQ("", entries[0].value);
  }
  cgi_entry entry = {};
  EXPECT_EQ(1, data_2_entries(&entry, 1, 0, nullptr));
}

TEST(Data2Entries, TakesEmptyPiecesAsTheyCome) {
  for (const char *data : {"&", "&&", "=", "==", "a", "a&b", "a=&=b", "=1&2=", "&=&", "a=1&&b=2"})
    expect_as_told(data);
  Request request("&&", 3);
  EXPECT_EQ(3, request.parse());
}

TEST(Data2Entries, WritesOverTheValueAtASecondEqualSign) {
  EXPECT_EQ("xy345", decoded("12345=xy"));
  EXPECT_EQ("12345", decoded("12345="));
  EXPECT_EQ("abc", decoded("=abc"));
}

TEST(Data2Entries, KeepsWhatFits) {
  for (const size_t length : {63u, 64u, 65u, 70u, 5000u}) {
    Request request(std::string(length, 'n') + "=v", 1);
    EXPECT_EQ(1, request.parse());
    EXPECT_EQ(std::string(std::min<size_t>(length, 64), 'n'), request.entries()->name);
    EXPECT_STREQ("v", request.entries()->value);
  }
  for (const size_t length : {511u, 512u, 513u, 600u, 5000u}) {
    Request request("n=" + std::string(length, 'v') + "&m=w", 2);
    EXPECT_EQ(2, request.parse());
    EXPECT_EQ(std::string(std::min<size_t>(length, 512), 'v'), request.entries()[0].value);
    EXPECT_STREQ("w", request.entries()[1].value);
  }
}

TEST(Data2Entries, CutsACodeThatDoesNotFitWithTheRest) {
  EXPECT_EQ(std::string(509, 'v') + "/", decoded(std::string(509, 'v') + "%2f"));
  EXPECT_EQ(std::string(510, 'v') + "%2", decoded(std::string(510, 'v') + "%2f")) << "nothing decoded: as it is";
  EXPECT_EQ(" " + std::string(509, 'v') + "2", decoded("+" + std::string(509, 'v') + "%2f"));
  EXPECT_EQ(std::string(509, 'v'), decoded(std::string(509, 'v') + "%C3%A9"));
}

TEST(Data2Entries, StopsUndecodedWhenBytesAreLeftAfterItsCapacity) {
  sandbox::Captured out(1);
  Request request("a=%41&b=2&c=3", 2);
  EXPECT_EQ(2, request.parse());
  EXPECT_STREQ("%41", request.entries()[0].value);
  EXPECT_STREQ("2", request.entries()[1].value);
  EXPECT_EQ("[bug on], index=2, max_entries=2\n", out.text());
}

TEST(Data2Entries, DecodesWhenASeparatorAtTheEndFillsIt) {
  sandbox::Captured out(1);
  Request request("a=%41&b=2&", 2);
  EXPECT_EQ(2, request.parse());
  EXPECT_STREQ("A", request.entries()[0].value);
  EXPECT_EQ("", out.text());
  Request another("a=%41&b=2&&", 2);
  EXPECT_EQ(2, another.parse());
  EXPECT_STREQ("%41", another.entries()[0].value);
  EXPECT_EQ("[bug on], index=2, max_entries=2\n", out.text());
}

TEST(Data2Entries, WithoutRoomTouchesNothing) {
  sandbox::Captured out(1);
  cgi_entry entry;
  memset(&entry, 'x', sizeof(entry));
  EXPECT_EQ(0, data_2_entries(&entry, 0, 3, "a=1"));
  EXPECT_EQ(0, data_2_entries(&entry, -1, 3, "a=1"));
  EXPECT_EQ("[bug on], index=0, max_entries=0\n[bug on], index=0, max_entries=-1\n", out.text());
  EXPECT_EQ(0, data_2_entries(&entry, 0, 0, ""));
  EXPECT_EQ(0, data_2_entries(nullptr, 5, 3, "a=1"));
  EXPECT_EQ(0, data_2_entries(&entry, 1, 3, nullptr));
  EXPECT_EQ(std::string(sizeof(entry), 'x'), std::string(reinterpret_cast<char *>(&entry), sizeof(entry)));
}

TEST(Data2Entries, WritesNothingOutsideItsEntries) {
  for (const Against side : sandbox::both_sides)
    for (const char *data : {"a=1&b=2", "a=%E4%B8%AD&b=+", "&", "a=1&b=%", "a=1&b=%2", "a=%00&b=%C3"}) {
      Request request(data, 2, side);
      EXPECT_EQ(2, request.parse()) << data;
    }
}

TEST(FormDecoder, KnowsItsGoldens) {
  EXPECT_EQ("\xe4\xb8\xad", decoded("%E4%B8%AD"));
  EXPECT_EQ("", decoded("%E4"));
  EXPECT_EQ("a b", decoded("a+b"));
  EXPECT_EQ("caf\xc3\xa9", decoded("caf%c3%A9"));
  EXPECT_EQ("\xf0\x9f\x98\x80!", decoded("%F0%9f%98%80!"));
  EXPECT_EQ("<>\"'&", decoded("%3C%3e%22%27%26"));
  EXPECT_EQ("ab", decoded("a%80b")) << "a lone continuation byte";
  EXPECT_EQ("ab", decoded("a%BFb"));
  EXPECT_EQ("ab c", decoded("a%F0b+c")) << "three characters are skipped, the rest is kept";
}

TEST(FormDecoder, DoesNotLookAtWhatSeparatesTheBytesOfACharacter) {
  EXPECT_EQ("\xc3\xa9", decoded("%C3xA9"));
  EXPECT_EQ("\xe4\xb8\xad", decoded("%E4.B8+AD"));
  EXPECT_EQ("\xf0\x9f\x98\x80", decoded("%F0a9Fb98c80"));
}

TEST(FormDecoder, LeavesAValueWithNothingDecodedAsItIs) {
  EXPECT_EQ("a%", decoded("a%"));
  EXPECT_EQ("a%4", decoded("a%4"));
  EXPECT_EQ("%", decoded("%"));
  EXPECT_EQ(" a", decoded("+a%")) << "with something decoded the percent sign is dropped";
  EXPECT_EQ(" a4", decoded("+a%4"));
  EXPECT_EQ("a", decoded("%80a%")) << "what is skipped counts as decoded";
}

TEST(FormDecoder, ZeroesTheValueOverItsFormerLength) {
  Request request("x=%41%42c", 1);
  EXPECT_EQ(1, request.parse());
  EXPECT_EQ(std::string("ABc") + std::string(516, '\0'), std::string(request.entries()->value, 519));
  Request zero("x=a%00bc", 1);
  EXPECT_EQ(1, zero.parse());
  EXPECT_EQ(std::string("a\0bc", 4) + std::string(515, '\0'), std::string(zero.entries()->value, 519));
}

TEST(FormDecoder, DoesNotReadPastAFieldWithoutTerminator) {
  GuardedMemory records(sizeof(cgi_entry));
  records.fill('+');
  auto *entry = reinterpret_cast<cgi_entry *>(records.data());
  EXPECT_EQ(1, data_2_entries(entry, 1, 0, ""));
  EXPECT_EQ(std::string(519, ' '), std::string(entry->value, 519));
}

TEST(FormDecoder, DecodesEveryPairOfBytesAsTold) {
  for (int first = 0; first < 256; first++) {
    Entries records;
    std::string data;
    // One request holds all seconds of one first, so that there are only 256 requests.
    for (int second = 0; second < 256; second++) {
      data += second ? "&n=a%" : "n=a%";
      data += {static_cast<char>(first), static_cast<char>(second), 'b'};
    }
    expect_as_told(data);
  }
}

TEST(FormDecoder, DecodesEveryByteAsTold) {
  for (int code = 0; code < 256; code++)
    for (const std::string around : {"", "+", "%41"})
      expect_as_told("n=" + around + std::string(1, static_cast<char>(code)) + around);
}

TEST(FormDecoder, SkipsSequencesCutShortAtEveryLength) {
  for (const std::string whole :
       {"%C3%A9", "%dfxBf", "%E4%B8%AD", "%e4+b8=ad", "%F0%9F%98%80", "%f0a9fb98c80", "%8f%8f"})
    for (size_t length = 0; length <= whole.size(); length++)
      for (const std::string before : {"", "a", "+", "%"})
        expect_as_told("n=" + before + whole.substr(0, length));
}

TEST(FormDecoder, DecodesAnythingAsTold) {
  std::mt19937 random(7);
  static constexpr char usual[] = "%%%%+=&0123456789abcdefABCDEF8cCeEfFgz";
  for (int round = 0; round < 2000; round++) {
    std::string data(random() % 120, 'x');
    for (char &c : data)
      c = random() % 8 ? usual[random() % (sizeof(usual) - 1)] : static_cast<char>(random());
    expect_as_told(data);
  }
}

TEST(Data2Authinfo, SplitsNamesAndValuesAtColonsAndCommas) {
  cgi_entry entries[4] = {};
  const std::string data = "admin:se%41cret+1,user=x:pass&word,last";
  EXPECT_EQ(3, data_2_authinfo(entries, static_cast<int>(data.size()), data.data()));
  EXPECT_STREQ("admin", entries[0].name);
  EXPECT_STREQ("se%41cret+1", entries[0].value) << "nothing is decoded";
  EXPECT_STREQ("user=x", entries[1].name);
  EXPECT_STREQ("pass&word", entries[1].value);
  EXPECT_STREQ("last", entries[2].name);
  EXPECT_STREQ("", entries[2].value);
  EXPECT_STREQ("", entries[3].name);
}

TEST(Data2Authinfo, FillsOneEntryMoreThanThereAreCommas) {
  std::mt19937 random(9);
  for (int round = 0; round < 500; round++) {
    std::string data(random() % 300, 'x');
    for (char &c : data)
      c = ":,ab%+&="[random() % 8];
    const Entries golden = split(data, ':', ',');
    for (const Against side : sandbox::both_sides) {
      Request request(data, static_cast<int>(golden.size()), side);
      EXPECT_EQ(request.capacity, data_2_authinfo(request.entries(), request.data.size(), request.data.data()));
      EXPECT_TRUE(bytes_of(golden) == request.records.bytes()) << data;
    }
  }
}

TEST(Data2Authinfo, KeepsWhatFits) {
  Request request(std::string(70, 'n') + ":" + std::string(600, 'v'), 1);
  EXPECT_EQ(1, data_2_authinfo(request.entries(), request.data.size(), request.data.data()));
  EXPECT_EQ(std::string(64, 'n'), request.entries()->name);
  EXPECT_EQ(std::string(512, 'v'), request.entries()->value);
}

TEST(Data2Authinfo, TakesNothing) {
  cgi_entry entry = {};
  EXPECT_EQ(1, data_2_authinfo(&entry, 0, ""));
  EXPECT_EQ(1, data_2_authinfo(&entry, -5, "a:b"));
  EXPECT_EQ(1, data_2_authinfo(&entry, 0, nullptr));
  EXPECT_EQ(0, data_2_authinfo(&entry, 1, nullptr));
  EXPECT_EQ(0, data_2_authinfo(nullptr, 1, "a"));
  EXPECT_STREQ("", entry.name);
}
