#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "support/record_layout.h"
#include "torvane.h"

RECORD_LAYOUT(map_entry, 8, FIELD(id, 0, 4), FIELD(value, 4, 4));
RECORD_LAYOUT(txt_map_entry, 2 * sizeof(void *), FIELD(id, 0, 4), FIELD(text, sizeof(void *), sizeof(void *)));

namespace {

constexpr uint32_t none = 0xFFFFFFFFu;

constexpr txt_map_entry letters[] = {
    {5, "r"}, {6, "rt"}, {7, "RT"}, {0, "rtx2"}, {6, "again six"}, {8, "rt"}, {none, "Unknown"}, {9, "past the end"},
};

} // namespace

TEST(CompareNoCase, NullAndEdgeCases) {
  const struct {
    const char *a, *b;
    int result;
  } cases[] = {{nullptr, nullptr, 0},  {nullptr, "", -1},     {nullptr, "a", -1},     {"", nullptr, 1},
               {"a", nullptr, 1},      {"", "", 0},           {"ABC", "abc", 0},      {"abc", "ABC", 0},
               {"aBcD", "AbCd", 0},    {"a", "B", -1},        {"B", "a", 1},          {"A", "b", -1},
               {"Z", "z", 0},          {"[", "{", -32},       {"@", "`", -32},        {"A", "_", 2},
               {"ab", "abC", -99},     {"abC", "ab", 99},     {"", "A", -97},         {"A", "", 97},
               {"abcX", "ABCd", 20},   {"\xC4", "\xE4", -32}, {"\xFF", "a", 158},     {"a", "\x80", -31},
               {"eth0 ", "ETH0", ' '}, {"1", "2", -1},        {"same1Z", "SAME1z", 0}};
  for (const auto &c : cases)
    EXPECT_EQ(c.result, strCmpNoCase(c.a, c.b)) << (c.a ? c.a : "null") << " and " << (c.b ? c.b : "null");
}

TEST(CompareNoCase, FoldsTheLettersAToZAndNoOtherByte) {
  int folded[256];
  for (int c = 0; c < 256; c++)
    folded[c] = c;
  const char upper[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ", lower[] = "abcdefghijklmnopqrstuvwxyz";
  for (int i = 0; i < 26; i++)
    folded[static_cast<int>(upper[i])] = lower[i];

  for (int a = 0; a < 256; a++)
    for (int b = 0; b < 256; b++) {
      const char left[] = {static_cast<char>(a), '\0'}, right[] = {static_cast<char>(b), '\0'};
      ASSERT_EQ(folded[a] - folded[b], strCmpNoCase(left, right)) << a << " and " << b;
    }
}

TEST(CompareNoCase, StopsAtTheEndOfTheTexts) {
  const char a[] = "ab\0left", b[] = "AB\0right";
  EXPECT_EQ(0, strCmpNoCase(a, b));
}

TEST(MapById, GivesTheFirstRowsValueElseTheEndRows) {
  const map_entry table[] = {{1, 10}, {2, none}, {0x80000000u, 30}, {1, 40}, {0, 0}, {none, 99}, {7, 70}};
  EXPECT_EQ(10u, MapById(table, 1));
  EXPECT_EQ(none, MapById(table, 2));
  EXPECT_EQ(30u, MapById(table, 0x80000000u));
  EXPECT_EQ(0u, MapById(table, 0));
  EXPECT_EQ(99u, MapById(table, 7)); // this row comes after the end row
  EXPECT_EQ(99u, MapById(table, 12345));
  EXPECT_EQ(99u, MapById(table, none));
}

TEST(MapByEvt, GivesTheIdOfTheFirstRowWithTheValue) {
  const map_entry table[] = {{1, 10}, {2, 20}, {3, 20}, {0, 0}, {none, none}};
  EXPECT_EQ(1u, MapByEvt(table, 10));
  EXPECT_EQ(2u, MapByEvt(table, 20));
  EXPECT_EQ(0u, MapByEvt(table, 0));
  EXPECT_EQ(none, MapByEvt(table, 21));
  EXPECT_EQ(none, MapByEvt(table, none));
}

TEST(MapByEvt, StopsAtTheFirstValueOfAllOnesWhateverItsId) {
  const map_entry early[] = {{1, 10}, {2, none}, {3, 30}, {none, 7}, {none, none}};
  EXPECT_EQ(1u, MapByEvt(early, 10));
  EXPECT_EQ(2u, MapByEvt(early, 30));
  EXPECT_EQ(2u, MapByEvt(early, 7));
  EXPECT_EQ(2u, MapByEvt(early, none));

  const map_entry late[] = {{1, 10}, {none, 7}, {3, 30}, {9, none}};
  EXPECT_EQ(none, MapByEvt(late, 7));
  EXPECT_EQ(3u, MapByEvt(late, 30));
  EXPECT_EQ(9u, MapByEvt(late, 31));
}

TEST(TextMap, ByIdGivesTheFirstRowsTextElseUnknown) {
  EXPECT_STREQ("r", TxtMapById(letters, 5));
  EXPECT_STREQ("rt", TxtMapById(letters, 6));
  EXPECT_STREQ("rtx2", TxtMapById(letters, 0));
  EXPECT_EQ(letters[1].text, TxtMapById(letters, 6)); // not a copy, but the table's text
  for (const uint32_t id : {4u, 9u, 0x7FFFFFFFu, none})
    EXPECT_STREQ("Unknown", TxtMapById(letters, id)) << id;
}

TEST(TextMap, ByTextComparesExactly) {
  EXPECT_EQ(5u, TxtMapByTxt(letters, "r"));
  EXPECT_EQ(6u, TxtMapByTxt(letters, "rt"));
  EXPECT_EQ(7u, TxtMapByTxt(letters, "RT"));
  EXPECT_EQ(0u, TxtMapByTxt(letters, "rtx2"));
  for (const char *text : {"R", "Rt", "rtx", "rtx22", "", "Unknown", "past the end"})
    EXPECT_EQ(none, TxtMapByTxt(letters, text)) << text;
  EXPECT_EQ(none, TxtMapByTxt(letters, nullptr));
}

TEST(TextMap, ByTextNoCaseTakesTheFirstRowThatIsEqualButForCase) {
  EXPECT_EQ(5u, TxtMapByTxtNoCase(letters, "R"));
  EXPECT_EQ(6u, TxtMapByTxtNoCase(letters, "RT"));
  EXPECT_EQ(6u, TxtMapByTxtNoCase(letters, "rT"));
  EXPECT_EQ(0u, TxtMapByTxtNoCase(letters, "RTX2"));
  for (const char *text : {"rtx", "", "unknown", "PAST THE END"})
    EXPECT_EQ(none, TxtMapByTxtNoCase(letters, text)) << text;
  EXPECT_EQ(none, TxtMapByTxtNoCase(letters, nullptr));
  const txt_map_entry with_null[] = {{7, nullptr}, {none, "Unknown"}};
  EXPECT_EQ(7u, TxtMapByTxtNoCase(with_null, nullptr)); // two nulls are equal
  EXPECT_EQ(none, TxtMapByTxtNoCase(with_null, ""));
}

TEST(TextMap, ByTextWithLengthNeedsTheExactLength) {
  EXPECT_EQ(6u, TxtMapByTxtWithLen(letters, "rtx", 2));
  EXPECT_EQ(5u, TxtMapByTxtWithLen(letters, "rtx", 1));
  EXPECT_EQ(0u, TxtMapByTxtWithLen(letters, "rtx2 and more", 4));
  EXPECT_EQ(7u, TxtMapByTxtWithLen(letters, "RTX2", 2));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "rtx", 3));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "rtx2", 0));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "rt", 4));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "r\0", 2));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "Unknown", 7));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, "rt", none));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, nullptr, 2));
  EXPECT_EQ(none, TxtMapByTxtWithLen(letters, nullptr, 0));

  const txt_map_entry with_empty[] = {{1, "a"}, {2, ""}, {none, "Unknown"}};
  EXPECT_EQ(2u, TxtMapByTxtWithLen(with_empty, "anything", 0));
}

TEST(TextMap, ByTextWithLengthReadsNoFurtherThanTheLength) {
  const std::unique_ptr<char[]> exact(new char[2]);
  memcpy(exact.get(), "rt", 2);
  EXPECT_EQ(6u, TxtMapByTxtWithLen(letters, exact.get(), 2));
  EXPECT_EQ(5u, TxtMapByTxtWithLen(letters, exact.get(), 1));
}

TEST(TextMap, ByTextStrFindsTheRowsTextInTheHaystack) {
  const txt_map_entry table[] = {{1, "eth"}, {2, "eth0"}, {3, "wan"}, {none, "Unknown"}, {4, "tail"}};
  EXPECT_EQ(1u, TxtMapByTxtStr(table, "eth0")); // the first row that occurs, not the longest
  EXPECT_EQ(1u, TxtMapByTxtStr(table, "wan over eth1"));
  EXPECT_EQ(3u, TxtMapByTxtStr(table, "my-wan"));
  for (const char *haystack : {"", "wa", "ETH0", "Unknown", "tail"})
    EXPECT_EQ(none, TxtMapByTxtStr(table, haystack)) << haystack;
  EXPECT_EQ(none, TxtMapByTxtStr(table, nullptr));
}

TEST(TextMap, AnEmptyTextOccursInEveryHaystack) {
  const txt_map_entry table[] = {{1, "eth"}, {2, ""}, {3, "wan"}, {none, "Unknown"}};
  EXPECT_EQ(1u, TxtMapByTxtStr(table, "eth0"));
  EXPECT_EQ(2u, TxtMapByTxtStr(table, "wan"));
  EXPECT_EQ(2u, TxtMapByTxtStr(table, ""));
}

TEST(TextMap, WithTheEndRowAloneFindsNothing) {
  const map_entry numbers[] = {{none, 42}};
  EXPECT_EQ(42u, MapById(numbers, 0));
  const map_entry reverse[] = {{none, none}};
  EXPECT_EQ(none, MapByEvt(reverse, 0));
  const txt_map_entry texts[] = {{none, nullptr}}; // the end row's text is never compared
  EXPECT_EQ(nullptr, TxtMapById(texts, 0));
  EXPECT_EQ(none, TxtMapByTxt(texts, ""));
  EXPECT_EQ(none, TxtMapByTxtNoCase(texts, ""));
  EXPECT_EQ(none, TxtMapByTxtWithLen(texts, "", 0));
  EXPECT_EQ(none, TxtMapByTxtStr(texts, "any"));
}
