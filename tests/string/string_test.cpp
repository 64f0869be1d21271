// The small text functions.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "torvane.h"

using sandbox::GuardedMemory;

namespace {

std::string of_byte(int code) {
  return std::string(1, static_cast<char>(code));
}

bool in_range(int code, char first, char last) {
  return code >= first && code <= last;
}

using Search = char *(*)(const char *, const char *);

// The library's own; the name alone may be the C library's or a sanitizer's.
Search own_strcasestr() {
  void *library = dlopen("libtorvane.so", RTLD_LAZY | RTLD_NOLOAD);
  if (!library) {
    ADD_FAILURE() << dlerror();
    return nullptr;
  }
  const auto search = reinterpret_cast<Search>(dlsym(library, "strcasestr"));
  dlclose(library); // the program has it too
  return search;
}

std::string replaced(const std::string &text, const char *pattern, const char *replacement, size_t room = 4096) {
  GuardedMemory buffer(room);
  memcpy(buffer.data(), text.c_str(), text.size() + 1);
  EXPECT_EQ(nullptr, j_replace(buffer.data(), pattern, replacement));
  return buffer.data();
}

// Replaces the first occurrence and starts again on the whole text, as the manual describes it.
std::string replaced_pass_by_pass(std::string text, const std::string &pattern, const std::string &replacement) {
  for (size_t at; (at = text.find(pattern)) != std::string::npos;) {
    const std::string next = text.substr(0, at) + replacement + text.substr(at + pattern.size());
    if (next.size() > 4095 || next == text)
      return text;
    text = next;
  }
  return text;
}

} // namespace

TEST(Digits, AreToldForEveryByte) {
  for (int code = 1; code < 256; code++) {
    const bool decimal = in_range(code, '0', '9');
    const bool hex = decimal || in_range(code, 'a', 'f') || in_range(code, 'A', 'F');
    for (const std::string &text : {of_byte(code), "1" + of_byte(code), of_byte(code) + "2"}) {
      EXPECT_EQ(hex, is_hex(text.c_str())) << code;
      EXPECT_EQ(decimal, is_number(text.c_str())) << code;
    }
  }
}

TEST(Digits, AreTheEmptyTextButNotNull) {
  EXPECT_EQ(1, is_hex(""));
  EXPECT_EQ(1, is_number(""));
  EXPECT_EQ(0, is_hex(nullptr));
  EXPECT_EQ(0, is_number(nullptr));
  EXPECT_EQ(1, is_hex("0123456789abcdefABCDEF"));
  EXPECT_EQ(0, is_number("-1"));
}

TEST(Count, OfACharacter) {
  for (int code = 1; code < 256; code++) {
    const char c = static_cast<char>(code);
    EXPECT_EQ(3, num_delim((of_byte(code) + of_byte(code) + (code == 'x' ? "y" : "x") + of_byte(code)).c_str(), c));
    EXPECT_EQ(0, num_delim(code == 'x' ? "y" : "x", c));
  }
  EXPECT_EQ(0, num_delim(nullptr, ','));
  EXPECT_EQ(0, num_delim("", ','));
  EXPECT_EQ(0, num_delim("abc", '\0'));
}

TEST(Count, OfAPattern) {
  EXPECT_EQ(2, num_delim_s("]]>]]>", "]]>"));
  EXPECT_EQ(2, num_delim_s("aaaa", "aa"));
  EXPECT_EQ(2, num_delim_s("aaaaa", "aa"));
  EXPECT_EQ(1, num_delim_s("aba", "aba"));
  EXPECT_EQ(1, num_delim_s("ababa", "aba"));
  EXPECT_EQ(0, num_delim_s("ab", "abc"));
  EXPECT_EQ(0, num_delim_s("", "a"));
  EXPECT_EQ(0, num_delim_s("abc", ""));
  EXPECT_EQ(0, num_delim_s("", ""));
  EXPECT_EQ(0, num_delim_s(nullptr, "a"));
  EXPECT_EQ(0, num_delim_s("a", nullptr));
}

TEST(Count, ReadsNoFurtherThanTheText) {
  GuardedMemory text(std::string("x]]>x]]>"));
  EXPECT_EQ(2, num_delim_s(text.data(), "]]>"));
  EXPECT_EQ(2, num_delim(text.data(), '>'));
}

TEST(Case, ChangesAsciiLettersAlone) {
  for (int code = 1; code < 256; code++) {
    const bool upper = in_range(code, 'A', 'Z'), lower = in_range(code, 'a', 'z');
    GuardedMemory text(of_byte(code));
    j_tolower(text.data());
    EXPECT_EQ(of_byte(upper ? code + 32 : code), text.data()) << code;
    GuardedMemory other(of_byte(code));
    j_toupper(other.data());
    EXPECT_EQ(of_byte(lower ? code - 32 : code), other.data()) << code;
  }
  char text[] = "MiXed-09_\xc3\x89";
  j_tolower(text);
  EXPECT_STREQ("mixed-09_\xc3\x89", text);
  j_toupper(text);
  EXPECT_STREQ("MIXED-09_\xc3\x89", text);
  j_tolower(nullptr);
  j_toupper(nullptr);
}

TEST(Position, IsThatOfTheFirstOccurrence) {
  EXPECT_EQ(0u, strpos("abc", "a"));
  EXPECT_EQ(2u, strpos("abcabc", "cab"));
  EXPECT_EQ(1u, strpos("abab", "ba"));
  EXPECT_EQ(0u, strpos("abc", ""));
  EXPECT_EQ(0u, strpos("", ""));
}

TEST(Position, OfWhatIsMissingIsAllOnes) {
  EXPECT_EQ(0xffffffffu, strpos("abc", "x"));
  EXPECT_EQ(0xffffffffu, strpos("", "x"));
  EXPECT_EQ(0xffffffffu, strpos(nullptr, "x"));
  EXPECT_EQ(0xffffffffu, strpos("abc", nullptr));
  static_assert(std::is_same_v<unsigned, decltype(strpos("", ""))>);
}

TEST(Replace, TakesEveryOccurrence) {
  EXPECT_EQ("a&b&c", replaced("a&amp;b&amp;c", "&amp;", "&"));
  EXPECT_EQ("a%20b%20", replaced("a b ", " ", "%20"));
  EXPECT_EQ("", replaced("aaa", "a", ""));
  EXPECT_EQ("xbx", replaced("aba", "a", "x"));
  EXPECT_EQ("abc", replaced("abc", "x", "y"));
  EXPECT_EQ("", replaced("", "x", "y"));
}

TEST(Replace, LooksAgainAtWhatAReplacementCompletes) {
  EXPECT_EQ("", replaced("ccatat", "cat", ""));
  EXPECT_EQ("bbaa", replaced("aabb", "ab", "ba"));
  EXPECT_EQ("/a", replaced("////a", "//", "/"));
}

TEST(Replace, UsesNoMoreRoomThanTheResult) {
  EXPECT_EQ("aXXb", replaced("a.b", ".", "XX", 5));
  EXPECT_EQ("b", replaced("aab", "a", "", 4));
}

TEST(Replace, StopsBeforeAResultOf4096Bytes) {
  // The text grows by one byte in each pass, up to 4095 characters.
  EXPECT_EQ(std::string(4095, 'x'), replaced(std::string(4093, 'x') + "a", "a", "xx", 4096));
  EXPECT_EQ(std::string(4094, 'x') + "a", replaced(std::string(4094, 'x') + "a", "a", "xx", 4096));
  EXPECT_EQ(std::string(4094, 'x') + "a", replaced(std::string(4092, 'x') + "aa", "a", "xx", 4096));
  // These replacements hold the pattern.
  EXPECT_EQ(std::string(4094, 'b') + "a", replaced("a", "a", "ba"));
  EXPECT_EQ(std::string(4095, 'a'), replaced("a", "a", "aa"));
  // A text that is too long stays, unless the pass makes it fit.
  EXPECT_EQ(std::string(5000, 'x') + "a", replaced(std::string(5000, 'x') + "a", "a", "", 5002));
  EXPECT_EQ(std::string(4095, 'x'), replaced(std::string(4095, 'x') + "a", "a", "", 5000));
}

TEST(Replace, LeavesTheTextForWhatCannotBeReplaced) {
  char text[] = "abc";
  EXPECT_EQ(nullptr, j_replace(nullptr, "a", "b"));
  EXPECT_EQ(nullptr, j_replace(text, nullptr, "b"));
  EXPECT_EQ(nullptr, j_replace(text, "a", nullptr));
  EXPECT_EQ(nullptr, j_replace(text, "", "b"));
  EXPECT_EQ(nullptr, j_replace(text, "a", "a"));
  EXPECT_STREQ("abc", text);
}

TEST(Replace, DoesAsItIsToldPassByPass) {
  std::minstd_rand random(1);
  const auto text_of = [&](size_t longest) {
    std::string text(random() % (longest + 1), 'a');
    for (char &c : text)
      c = "ab"[random() % 2];
    return text;
  };
  for (int round = 0; round < 200; round++) {
    const std::string text = text_of(12), pattern = "a" + text_of(2), replacement = text_of(3);
    EXPECT_EQ(replaced_pass_by_pass(text, pattern, replacement), replaced(text, pattern.c_str(), replacement.c_str()))
        << text << " " << pattern << " " << replacement;
  }
}

TEST(Strcasestr, IsTheLibrarysOwn) {
  const Search search = own_strcasestr();
  ASSERT_NE(nullptr, search);
  EXPECT_EQ(nullptr, search("abc", "")) << "the C library's finds an empty pattern everywhere";
}

TEST(Strcasestr, FindsTheFirstPlaceWithoutRegardToCase) {
  const Search search = own_strcasestr();
  ASSERT_NE(nullptr, search);
  const char *text = "Content-LENGTH: 12, content-length: 13";
  EXPECT_EQ(text, search(text, "content-length"));
  EXPECT_EQ(text + 8, search(text, "length"));
  EXPECT_EQ(text + 36, search(text, "13"));
  EXPECT_EQ(nullptr, search(text, "content_length"));
  EXPECT_EQ(nullptr, search("aab", "aabb"));
  EXPECT_EQ(nullptr, search("", "a"));
  EXPECT_EQ(nullptr, search("", ""));
  EXPECT_EQ(nullptr, search(nullptr, "a"));
  EXPECT_EQ(nullptr, search("a", nullptr));
}

TEST(Strcasestr, TakesEveryByteAsItselfButLetters) {
  const Search search = own_strcasestr();
  ASSERT_NE(nullptr, search);
  const auto folded = [](int code) { return in_range(code, 'A', 'Z') ? code + 32 : code; };
  for (int code = 1; code < 256; code++)
    for (int other = 1; other < 256; other++) {
      const char text[] = {static_cast<char>(code), '\0'}, pattern[] = {static_cast<char>(other), '\0'};
      EXPECT_EQ(folded(code) == folded(other), search(text, pattern) != nullptr) << code << " " << other;
    }
}

TEST(Strcasestr, ReadsNoFurtherThanTheTexts) {
  const Search search = own_strcasestr();
  ASSERT_NE(nullptr, search);
  GuardedMemory text(std::string("abcAB")), pattern(std::string("abx"));
  EXPECT_EQ(nullptr, search(text.data(), pattern.data()));
  EXPECT_EQ(text.data() + 3, search(text.data() + 1, "ab"));
}

TEST(FreeString, TakesNull) {
  freeString(nullptr);
  freeString(strdup("freed"));
}

TEST(Substring, CopiesWithoutTerminator) {
  for (const sandbox::Against side : sandbox::both_sides) {
    GuardedMemory out(3, side);
    EXPECT_EQ(reinterpret_cast<intptr_t>(out.data()), substring("abcdef", 1, 4, out.data(), 3));
    EXPECT_EQ("bcd", out.bytes());
    EXPECT_EQ(reinterpret_cast<intptr_t>(out.data()), substring("xyz", 0, 1, out.data(), 3));
    EXPECT_EQ("xcd", out.bytes());
    EXPECT_EQ(reinterpret_cast<intptr_t>(out.data()), substring("xyz", 2, 2, out.data(), 3));
    EXPECT_EQ("xcd", out.bytes());
  }
}

TEST(Substring, ThatDoesNotFitIsNotCopied) {
  char out[4] = "---";
  EXPECT_EQ(1, substring("abcdef", 0, 4, out, 3));
  EXPECT_EQ(1, substring("abcdef", 0, INT_MAX, out, 3));
  EXPECT_EQ(1, substring("abcdef", -1, 2, out, 3));
  EXPECT_EQ(1, substring("abcdef", INT_MIN, INT_MAX, out, 3));
  EXPECT_EQ(1, substring("abcdef", 0, 0, out, -1));
  EXPECT_EQ(1, substring(nullptr, 0, 1, out, 3));
  EXPECT_EQ(1, substring("abc", 0, 1, nullptr, 3));
  EXPECT_STREQ("---", out);
}

TEST(Substring, WithItsEndBeforeItsStartGivesTheSize) {
  char out[4] = "---";
  EXPECT_EQ(3, substring("abcdef", 4, 2, out, 3));
  EXPECT_EQ(77, substring(nullptr, 1, 0, nullptr, 77));
  EXPECT_STREQ("---", out);
}

TEST(Compare, IsZeroForEqualTextsAlone) {
  EXPECT_EQ(0, j_strcmp("", ""));
  EXPECT_EQ(0, j_strcmp("abc", "abc"));
  EXPECT_EQ(1, j_strcmp("abc", "abd"));
  EXPECT_EQ(1, j_strcmp("abd", "abc"));
  EXPECT_EQ(1, j_strcmp("abc", "ab"));
  EXPECT_EQ(1, j_strcmp("ab", "abc"));
  EXPECT_EQ(1, j_strcmp("ABC", "abc"));
  EXPECT_EQ(1, j_strcmp("abc", nullptr));
  EXPECT_EQ(1, j_strcmp(nullptr, "abc"));
  EXPECT_EQ(1, j_strcmp(nullptr, nullptr));
}

TEST(HexDigits, AreThoseOfTheLowFourBits) {
  const std::string digits = "0123456789abcdef";
  for (int code = 0; code < 256; code++)
    EXPECT_EQ(digits[static_cast<size_t>(code % 16)], to_hex(static_cast<char>(code))) << code;
}

TEST(HexDigits, HaveTheirValuesAndOtherCharactersTheirCodes) {
  for (int code = 0; code < 256; code++) {
    const int lower = in_range(code, 'A', 'Z') ? code + 32 : code;
    const int value = in_range(code, '0', '9') ? code - 48 : lower - 87;
    EXPECT_EQ(static_cast<char>(value), from_hex(static_cast<char>(code))) << code;
  }
  EXPECT_EQ(15, from_hex('F'));
  EXPECT_EQ(15, from_hex('f'));
  EXPECT_EQ(10, from_hex('A'));
  EXPECT_EQ(9, from_hex('9'));
}
