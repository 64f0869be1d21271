// The guards of text that meets the shell: what each byte does to them, and where they write.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::Against;
using sandbox::GuardedMemory;

namespace {

// The characters that each function treats are listed by their codes, so that the library's tables are not used.

bool is_forbidden(int code) {
  switch (code) {
    case 10:  // newline
    case 12:  // form feed
    case 34:  // double quote
    case 35:  // #
    case 38:  // &
    case 39:  // single quote
    case 40:  // (
    case 41:  // )
    case 42:  // *
    case 59:  // ;
    case 60:  // <
    case 62:  // >
    case 63:  // ?
    case 91:  // [
    case 92:  // backslash
    case 93:  // ]
    case 94:  // ^
    case 96:  // backquote
    case 123: // {
    case 124: // |
    case 125: // }
    case 126: // ~
      return true;
    default:
      return false;
  }
}

// Returns whether escapeShellCommand puts a backslash before it: before the forbidden ones but the single quote, and
// before the dollar.
bool is_escaped(int code) {
  return code == 36 || (code != 39 && is_forbidden(code));
}

bool is_special(int code) {
  switch (code) {
    case 32:  // blank
    case 33:  // !
    case 34:  // double quote
    case 36:  // $
    case 38:  // &
    case 39:  // single quote
    case 40:  // (
    case 41:  // )
    case 42:  // *
    case 44:  // comma
    case 47:  // /
    case 58:  // :
    case 59:  // ;
    case 60:  // <
    case 61:  // =
    case 62:  // >
    case 63:  // ?
    case 64:  // @
    case 91:  // [
    case 92:  // backslash
    case 93:  // ]
    case 94:  // ^
    case 96:  // backquote
    case 123: // {
    case 124: // |
    case 125: // }
      return true;
    default:
      return false;
  }
}

std::string of_byte(int code) {
  return std::string(1, static_cast<char>(code));
}

// Returns what hasInjectionString prints, without the line number, and stores its result in `result`.
std::string printed_for(const char *text, int &result) {
  std::string printed;
  {
    sandbox::Captured out(1);
    result = hasInjectionString(text);
    printed = out.text();
  }
  const std::string head = "[vemta_string::hasInjectionString::";
  if (printed.compare(0, head.size(), head) != 0)
    return printed;
  const size_t digits = printed.find_first_not_of("0123456789", head.size());
  EXPECT_GT(digits, head.size());
  return printed.erase(head.size(), digits - head.size());
}

bool is_rejected(const std::string &text) {
  int result;
  const std::string printed = printed_for(text.c_str(), result);
  EXPECT_EQ(result ? "[vemta_string::hasInjectionString::] Injection string: " + text + "\n" : "", printed);
  EXPECT_TRUE(result == 0 || result == 1);
  return result == 1;
}

std::string escaped(const std::string &text) {
  GuardedMemory source(text), out(text.size() * 2 + 1);
  out.fill('\0');
  char *dst = out.data();
  EXPECT_EQ(0, escapeShellCommand(source.data(), &dst));
  EXPECT_EQ(out.data(), dst);
  return out.data();
}

// Converts into a buffer of twice the length, as callers do.
std::string converted(const std::string &text) {
  GuardedMemory source(text.size()), out(text.size() * 2);
  memcpy(source.data(), text.data(), text.size());
  const int count = SpecialCharConvert(source.data(), source.size(), out.data(), out.size());
  EXPECT_GE(count, 0);
  const std::string written = out.bytes();
  EXPECT_EQ(std::string(written.size() - static_cast<size_t>(count), '\0'), written.substr(static_cast<size_t>(count)));
  return written.substr(0, static_cast<size_t>(count));
}

} // namespace

TEST(InjectionString, IsToldForEveryForbiddenByteAnywhere) {
  for (int code = 1; code < 256; code++) {
    EXPECT_EQ(is_forbidden(code), is_rejected(of_byte(code))) << code;
    EXPECT_EQ(is_forbidden(code), is_rejected(of_byte(code) + "abc")) << code;
    EXPECT_EQ(is_forbidden(code), is_rejected("a" + of_byte(code) + "b")) << code;
    EXPECT_EQ(is_forbidden(code), is_rejected("abc" + of_byte(code))) << code;
  }
}

TEST(InjectionString, AllowsADollarBeforeAllButAParenthesis) {
  for (int code = 1; code < 256; code++)
    EXPECT_EQ(is_forbidden(code), is_rejected("$" + of_byte(code))) << code;
  EXPECT_TRUE(is_rejected("a$(b)"));
  EXPECT_FALSE(is_rejected("$HOME"));
  EXPECT_FALSE(is_rejected("$"));
}

TEST(InjectionString, KnowsTheUsualOnes) {
  for (const char *text : {"192.168.1.1", "a b!c", "$HOME", "", "a/b%=@", "-rf", "caf\xc3\xa9", "a\tb", "a\rb"})
    EXPECT_FALSE(is_rejected(text)) << text;
  for (const char *text : {"a$(b)", "a;b", "a|b", "a\nb", "x'y", "a&&b", "`id`", "a>b", "{a,b}", "~root"})
    EXPECT_TRUE(is_rejected(text)) << text;
}

TEST(InjectionString, IsNotInANullText) {
  int result;
  EXPECT_EQ("", printed_for(nullptr, result));
  EXPECT_EQ(0, result);
}

TEST(InjectionString, ReadsNoFurtherThanTheText) {
  for (const char *text : {"", "a", "$", "abc$", "a;"}) {
    GuardedMemory guarded{std::string(text)};
    int result;
    printed_for(guarded.data(), result);
    EXPECT_EQ(strchr(text, ';') != nullptr, result) << text;
  }
}

TEST(EscapeShellCommand, PutsABackslashBeforeEveryByteOfTheShell) {
  for (int code = 1; code < 256; code++) {
    if (code == '\'')
      continue;
    const std::string golden = (is_escaped(code) ? "\\" : "") + of_byte(code);
    EXPECT_EQ(golden, escaped(of_byte(code))) << code;
    EXPECT_EQ("a" + golden + "b" + golden, escaped("a" + of_byte(code) + "b" + of_byte(code))) << code;
  }
  EXPECT_EQ("a\\;b", escaped("a;b"));
  EXPECT_EQ("", escaped(""));
}

TEST(EscapeShellCommand, EndsAtTheFirstSingleQuote) {
  EXPECT_EQ("ab", escaped("ab'cd'ef"));
  EXPECT_EQ("ab", escaped("ab''"));
  EXPECT_EQ("ab", escaped("ab'cd'ef'gh"));
  EXPECT_EQ("", escaped("''"));
  EXPECT_EQ("", escaped("'a;b'"));
  EXPECT_EQ("a\\;", escaped("a;'b;c'd;"));
}

TEST(EscapeShellCommand, RepeatsAQuoteWithoutPartnerForEveryCharacterLeft) {
  EXPECT_EQ("a\\'\\'", escaped("a'b"));
  EXPECT_EQ("\\'", escaped("'"));
  EXPECT_EQ("abc\\'", escaped("abc'"));
  EXPECT_EQ("\\'\\'\\'\\'", escaped("';;;"));
  EXPECT_EQ("\\$\\'\\'\\'", escaped("$'$("));
}

TEST(EscapeShellCommand, WritesNoTerminatorAndNothingElse) {
  for (const Against side : sandbox::both_sides) {
    GuardedMemory out(4, side);
    char *dst = out.data();
    EXPECT_EQ(0, escapeShellCommand("a;b", &dst));
    EXPECT_EQ("a\\;b", out.bytes());
    GuardedMemory untouched(1, side);
    dst = untouched.data();
    EXPECT_EQ(0, escapeShellCommand("", &dst));
    EXPECT_EQ(std::string(1, GuardedMemory::filler), untouched.bytes());
  }
}

TEST(EscapeShellCommand, TakesAtMostTwiceTheLength) {
  for (const std::string &text : {std::string(1000, ';'), std::string(1000, '\''), std::string(1000, '\n')}) {
    GuardedMemory out(2 * text.size());
    char *dst = out.data();
    EXPECT_EQ(0, escapeShellCommand(text.c_str(), &dst));
  }
  GuardedMemory unpaired(2000);
  char *dst = unpaired.data();
  EXPECT_EQ(0, escapeShellCommand(("'" + std::string(999, 'x')).c_str(), &dst));
  EXPECT_EQ("\\'", unpaired.bytes().substr(1998));
}

TEST(EscapeShellCommand, RefusesNulls) {
  char buffer[4] = "abc";
  char *dst = buffer, *none = nullptr;
  EXPECT_EQ(1, escapeShellCommand(nullptr, &dst));
  EXPECT_EQ(1, escapeShellCommand("a", nullptr));
  EXPECT_EQ(1, escapeShellCommand("a", &none));
  EXPECT_EQ(1, escapeShellCommand(nullptr, nullptr));
  EXPECT_STREQ("abc", buffer);
}

TEST(SpecialCharConvert, PutsABackslashBeforeTheTwentySix) {
  int specials = 0;
  for (int code = 0; code < 256; code++) {
    const std::string golden = (is_special(code) ? "\\" : "") + of_byte(code);
    EXPECT_EQ(golden, converted(of_byte(code))) << code;
    EXPECT_EQ("x" + golden + golden + "y", converted("x" + of_byte(code) + of_byte(code) + "y")) << code;
    specials += is_special(code);
  }
  EXPECT_EQ(26, specials);
}

TEST(SpecialCharConvert, ZeroesTheDestinationAndCountsWhatItWrites) {
  char out[9] = "--------";
  EXPECT_EQ(4, SpecialCharConvert("a b", 3, out, 8));
  EXPECT_EQ(std::string("a\\ b\0\0\0\0\0", 9), std::string(out, 9));
}

TEST(SpecialCharConvert, TakesLengthsNotTerminators) {
  EXPECT_EQ(std::string("a\0\\ b", 5), converted(std::string("a\0 b", 4)));
  EXPECT_EQ("", converted(""));
}

TEST(SpecialCharConvert, StopsWhenTheSizeIsUsedUp) {
  for (const Against side : sandbox::both_sides) {
    GuardedMemory out(4, side);
    EXPECT_EQ(4, SpecialCharConvert("abcd", 4, out.data(), 4));
    EXPECT_EQ("abcd", out.bytes());
    EXPECT_EQ(4, SpecialCharConvert(";;;;", 4, out.data(), 4));
    EXPECT_EQ("\\;\\;", out.bytes());
  }
}

TEST(SpecialCharConvert, GoesOneByteFurtherWithAnEscapedByteInTheLastPlace) {
  GuardedMemory larger(5);
  EXPECT_EQ(5, SpecialCharConvert("abc;", 4, larger.data(), 4));
  EXPECT_EQ("abc\\;", larger.bytes());
  EXPECT_EQ(5, SpecialCharConvert(";a;;", 4, larger.data(), 4));
  EXPECT_EQ("\\;a\\;", larger.bytes());
  GuardedMemory exact(4);
  EXPECT_TRUE(sandbox::faults([&] { SpecialCharConvert("abc;", 4, exact.data(), 4); }));
}

TEST(SpecialCharConvert, RefusesTooSmallASizeAndNulls) {
  char out[4] = "abc";
  EXPECT_EQ(-1, SpecialCharConvert("abcd", 4, out, 3));
  EXPECT_EQ(-1, SpecialCharConvert(nullptr, 1, out, 4));
  EXPECT_EQ(-1, SpecialCharConvert("a", 1, nullptr, 4));
  EXPECT_EQ(-1, SpecialCharConvert("a", -2, out, -1));
  EXPECT_STREQ("abc", out);
  EXPECT_EQ(0, SpecialCharConvert("a", 0, out, 0));
  EXPECT_STREQ("abc", out);
  EXPECT_EQ(0, SpecialCharConvert("a", -1, out, 4));
  EXPECT_EQ(std::string(4, '\0'), std::string(out, 4));
}
