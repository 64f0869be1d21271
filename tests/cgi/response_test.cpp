// HTML escaping, XML replies and redirects, into buffers of every size.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::Against;
using sandbox::GuardedMemory;

namespace {

// Sizes beyond anything written in these tests would hide what is written past them.
constexpr char filler = GuardedMemory::filler;

std::string entity(char c) {
  switch (c) {
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '&':
      return "&amp;";
    case '"':
      return "&quot;";
    case '\'':
      return "&apos;";
    default:
      return "";
  }
}

// All the bytes of a destination of `size` bytes full of `filler`, after the rules were followed to the letter: the
// test for the end is one for equality, entities go through snprintf.
std::string golden_encoded(const std::string &text, int size) {
  std::string out(static_cast<size_t>(size), filler);
  int position = 0;
  for (const char c : text) {
    if (position == size - 1)
      break;
    const std::string code = entity(c);
    const int room = size - position;
    if (code.empty()) {
      if (room > 0)
        out[static_cast<size_t>(position)] = c;
      position++;
      continue;
    }
    if (room > 0) {
      char piece[8];
      memset(piece, filler, sizeof(piece));
      snprintf(piece, std::min<size_t>(static_cast<size_t>(room), sizeof(piece)), "%s", code.c_str());
      const size_t written = std::min<size_t>(code.size() + 1, static_cast<size_t>(room));
      out.replace(static_cast<size_t>(position), written, piece, written);
    }
    position += static_cast<int>(code.size());
  }
  return out;
}

std::string golden_decoded(std::string text, int size) {
  std::string out(static_cast<size_t>(size), filler);
  for (size_t i = 0; i < 4 && i < out.size(); i++)
    out[i] = '\0';
  for (int written = 0; written < size - 1 && !text.empty(); written++) {
    char c = text[0];
    size_t length = 1;
    for (const char candidate : {'<', '>', '&', '"', '\''})
      if (text.rfind(entity(candidate), 0) == 0) {
        c = candidate;
        length = entity(candidate).size();
      }
    out[static_cast<size_t>(written)] = c;
    text.erase(0, length);
  }
  return out;
}

using Convert = int (*)(const char *, char *, int);

std::string converted(Convert convert, const std::string &text, int size, Against side) {
  GuardedMemory source(text), out(static_cast<size_t>(size), side);
  EXPECT_EQ(0, convert(source.data(), out.data(), size));
  return out.bytes();
}

// Encodes into a zeroed buffer with room for everything, as callers have it.
std::string whole(Convert convert, const std::string &text) {
  GuardedMemory source(text), out(text.size() * 6 + 1);
  out.fill('\0');
  EXPECT_EQ(0, convert(source.data(), out.data(), out.size()));
  return out.data();
}

void expect_at_every_size(Convert convert, std::string (*golden)(std::string, int), const std::string &text) {
  for (int size = 1; size <= static_cast<int>(text.size()) * 6 + 2; size++)
    for (const Against side : sandbox::both_sides)
      ASSERT_EQ(golden(text, size), converted(convert, text, size, side)) << text << " " << size;
}

std::string golden_encoded_copy(std::string text, int size) {
  return golden_encoded(text, size);
}

// Returns the traces of gen_xml since the last clear.
std::vector<std::string> traces() {
  for (const sandbox::Trace &trace : sandbox::console()) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ("vemta_cgi", trace.file);
    EXPECT_EQ("gen_xml", trace.func);
  }
  return sandbox::console_messages();
}

const std::vector<std::string> none, overflow = {"buffer overflow.\n"};

class GenXml : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
};

constexpr char xml_head[] = "<?xml version=\"1.0\"?><root>"; // 27 characters

} // namespace

TEST(HtmlEncode, CodesEveryByte) {
  for (int code = 1; code < 256; code++) {
    const char c = static_cast<char>(code);
    const std::string golden = entity(c).empty() ? std::string(1, c) : entity(c);
    EXPECT_EQ(golden, whole(j_html_enc, std::string(1, c)));
    EXPECT_EQ("a" + golden + golden + "b", whole(j_html_enc, std::string("a") + c + c + "b"));
  }
  EXPECT_EQ("", whole(j_html_enc, ""));
}

TEST(HtmlEncode, KnowsItsGoldens) {
  char out[16] = {};
  EXPECT_EQ(0, j_html_enc("a<b", out, sizeof(out)));
  EXPECT_STREQ("a&lt;b", out);
  EXPECT_EQ("&lt;script&gt;alert(&quot;&apos;&amp;&quot;)&lt;/script&gt;",
            whole(j_html_enc, "<script>alert(\"'&\")</script>"));
  EXPECT_EQ("&amp;lt;", whole(j_html_enc, "&lt;")) << "coded twice is coded twice";
}

TEST(HtmlEncode, StopsBeforeTheLastByte) {
  char out[5] = "----";
  EXPECT_EQ(0, j_html_enc("abcdef", out, 4));
  EXPECT_EQ(std::string("abc-\0", 5), std::string(out, 5)) << "three characters and no terminator";
  EXPECT_EQ(0, j_html_enc("abc", out, 1));
  EXPECT_STREQ("abc-", out);
}

TEST(HtmlEncode, CutsAnEntityAndWritesNothingAfterIt) {
  char out[8] = "-------";
  EXPECT_EQ(0, j_html_enc("ab\"<cd", out, 6));
  EXPECT_EQ(std::string("ab&qu\0-\0", 8), std::string(out, 8));
  // The text ends exactly before the last byte, so that the next character is not begun.
  memset(out, '-', 7);
  EXPECT_EQ(0, j_html_enc("<&", out, 5));
  EXPECT_EQ(std::string("&lt;\0--\0", 8), std::string(out, 8));
  // With one byte more, the ampersand's entity has room for its terminator alone.
  memset(out, '-', 7);
  EXPECT_EQ(0, j_html_enc("<&", out, 6));
  EXPECT_EQ(std::string("&lt;&\0-\0", 8), std::string(out, 8));
}

TEST(HtmlEncode, WritesAsToldIntoEverySize) {
  static constexpr char alphabet[] = "a<&\"";
  for (size_t length = 0; length <= 4; length++)
    for (size_t number = 0; number < (1u << 2 * length); number++) {
      std::string text;
      for (size_t i = 0; i < length; i++)
        text += alphabet[number >> 2 * i & 3];
      expect_at_every_size(j_html_enc, golden_encoded_copy, text);
    }
  expect_at_every_size(j_html_enc, golden_encoded_copy, "<a href=\"x?y=1&z=2\" title='>'>");
}

TEST(HtmlEncode, RefusesNullsAndSizesBelowOne) {
  char out[4] = "abc";
  EXPECT_EQ(1, j_html_enc(nullptr, out, 4));
  EXPECT_EQ(1, j_html_enc("x", nullptr, 4));
  EXPECT_EQ(1, j_html_enc("x", out, 0));
  EXPECT_EQ(1, j_html_enc("x", out, -1));
  EXPECT_EQ(1, j_html_enc("x", out, INT_MIN));
  EXPECT_STREQ("abc", out);
}

TEST(HtmlDecode, DecodesTheFiveEntities) {
  EXPECT_EQ("<&x", whole(j_html_dec, "&lt;&amp;x"));
  EXPECT_EQ("<>&\"'", whole(j_html_dec, "&lt;&gt;&amp;&quot;&apos;"));
  EXPECT_EQ("&lt;", whole(j_html_dec, "&amp;lt;")) << "once";
  EXPECT_EQ("&<", whole(j_html_dec, "&&lt;"));
}

TEST(HtmlDecode, CopiesEverythingElse) {
  for (int code = 1; code < 256; code++) {
    const std::string byte(1, static_cast<char>(code));
    EXPECT_EQ(byte, whole(j_html_dec, byte));
    EXPECT_EQ("<" + byte + "&" + byte + ">", whole(j_html_dec, "&lt;" + byte + "&" + byte + "&gt;"));
  }
  for (const char *text : {"&nbsp;", "&lt", "&LT;", "&#60;", "&", "&&", "&;", "&am", "&amp", "&quot", "lt;", ""})
    EXPECT_EQ(text, whole(j_html_dec, text));
}

TEST(HtmlDecode, WritesAsToldIntoEverySize) {
  for (const char *text :
       {"", "a", "abcdef", "&lt;", "a&lt;&gt;b&amp;c&quot;d&apos;e", "&amp;&amp;&amp;", "&l&lt;t;&q"})
    expect_at_every_size(j_html_dec, golden_decoded, text);
}

TEST(HtmlDecode, ZeroesFourBytesAndWritesNoTerminator) {
  char out[8] = "-------";
  EXPECT_EQ(0, j_html_dec("a", out, 8));
  EXPECT_EQ(std::string("a\0\0\0---\0", 8), std::string(out, 8));
  memset(out, '-', 7);
  EXPECT_EQ(0, j_html_dec("abcde", out, 7));
  EXPECT_EQ(std::string("abcde--\0", 8), std::string(out, 8));
  memset(out, '-', 7);
  EXPECT_EQ(0, j_html_dec("abc", out, 2));
  EXPECT_EQ(std::string("a\0-----\0", 8), std::string(out, 8)) << "of a smaller buffer only what there is";
}

TEST(HtmlDecode, RefusesNullsAndSizesBelowOne) {
  char out[4] = "abc";
  EXPECT_EQ(1, j_html_dec(nullptr, out, 4));
  EXPECT_EQ(1, j_html_dec("x", nullptr, 4));
  EXPECT_EQ(1, j_html_dec("x", out, 0));
  EXPECT_EQ(1, j_html_dec("x", out, INT_MIN));
  EXPECT_STREQ("abc", out);
}

TEST(HtmlDecode, GivesBackWhatWasCoded) {
  std::string text;
  for (int code = 1; code < 256; code++)
    text += static_cast<char>(code);
  EXPECT_EQ(text, whole(j_html_dec, whole(j_html_enc, text)));
}

TEST_F(GenXml, BuildsTheReplyOverItsCalls) {
  char buffer[256];
  memset(buffer, filler, sizeof(buffer));
  gen_xml(buffer, sizeof(buffer), "a", "1", 0);
  EXPECT_STREQ("<?xml version=\"1.0\"?><root><a>1</a>", buffer);
  gen_xml(buffer, sizeof(buffer), "b", "2", 1);
  gen_xml(buffer, sizeof(buffer), "c", "3", 2);
  EXPECT_STREQ("<?xml version=\"1.0\"?><root><a>1</a><b>2</b><c>3</c></root>", buffer);
  EXPECT_EQ(none, traces());
}

TEST_F(GenXml, AppendsInEveryModeButFirstAndLast) {
  for (const int mode : {1, 3, -1, INT_MAX, INT_MIN}) {
    char buffer[64] = "x";
    gen_xml(buffer, sizeof(buffer), "t", "v", mode);
    EXPECT_STREQ("x<t>v</t>", buffer);
  }
}

TEST_F(GenXml, TakesATagAndAValueOrNeither) {
  char buffer[64];
  gen_xml(buffer, sizeof(buffer), nullptr, "v", 0);
  EXPECT_STREQ(xml_head, buffer);
  gen_xml(buffer, sizeof(buffer), "t", nullptr, 1);
  EXPECT_STREQ(xml_head, buffer);
  gen_xml(buffer, sizeof(buffer), nullptr, nullptr, 2);
  EXPECT_STREQ("<?xml version=\"1.0\"?><root></root>", buffer);
  EXPECT_EQ(none, traces());
}

TEST_F(GenXml, WritesValuesAsTheyAre) {
  char buffer[64] = "";
  gen_xml(buffer, sizeof(buffer), "t", "a<&>%s", 1);
  EXPECT_STREQ("<t>a<&>%s</t>", buffer);
  buffer[0] = '\0';
  gen_xml(buffer, sizeof(buffer), "", "", 1);
  EXPECT_STREQ("<></>", buffer);
}

TEST_F(GenXml, TracesANullBuffer) {
  gen_xml(nullptr, 10, nullptr, nullptr, 0);
  EXPECT_EQ((std::vector<std::string>{"Null point, buf=(nil), tag=(nil), val=(nil)\n"}), traces());
  sandbox::clear_console();
  const char tag[] = "t", value[] = "v";
  char golden[128];
  snprintf(golden, sizeof(golden), "Null point, buf=(nil), tag=%p, val=%p\n", static_cast<const void *>(tag),
           static_cast<const void *>(value));
  gen_xml(nullptr, 10, tag, value, 2);
  EXPECT_EQ((std::vector<std::string>{golden}), traces());
}

// "<tt>vvv</tt>" takes 12 characters and its terminator one byte more.
TEST_F(GenXml, RefusesAnElementThatMissesItsPlaceByItsTerminator) {
  for (const int mode : {1, 2})
    for (const Against side : sandbox::both_sides) {
      sandbox::clear_console();
      GuardedMemory buffer(15, side);
      strcpy(buffer.data(), "abc");
      gen_xml(buffer.data(), 15, "tt", "vvv", mode);
      EXPECT_STREQ("abc", buffer.data());
      EXPECT_EQ(overflow, traces()) << "and the last call does not close the document";
    }
}

TEST_F(GenXml, AppendsAnElementThatFitsExactly) {
  GuardedMemory buffer(16);
  strcpy(buffer.data(), "abc");
  gen_xml(buffer.data(), 16, "tt", "vvv", 1);
  EXPECT_STREQ("abc<tt>vvv</tt>", buffer.data());
  EXPECT_EQ(none, traces());
}

TEST_F(GenXml, CutsALongerElementInSilence) {
  for (int size = 4; size < 15; size++) {
    GuardedMemory buffer(static_cast<size_t>(size));
    strcpy(buffer.data(), "abc");
    gen_xml(buffer.data(), size, "tt", "vvv", 1);
    EXPECT_EQ(std::string("abc<tt>vvv</tt>").substr(0, static_cast<size_t>(size) - 1), buffer.data()) << size;
  }
  GuardedMemory buffer(20);
  buffer.data()[0] = '\0';
  gen_xml(buffer.data(), 20, "t", "a value that is far too long", 1);
  EXPECT_STREQ("<t>a value that is ", buffer.data());
  EXPECT_EQ(none, traces());
  gen_xml(buffer.data(), 20, nullptr, nullptr, 2);
  EXPECT_STREQ("<t>a value that is ", buffer.data());
  EXPECT_EQ(overflow, traces());
}

TEST_F(GenXml, ClosesTheDocumentWhenTheEndFits) {
  for (int size = 4; size <= 20; size++) {
    sandbox::clear_console();
    GuardedMemory buffer(static_cast<size_t>(size));
    strcpy(buffer.data(), "abc");
    gen_xml(buffer.data(), size, nullptr, nullptr, 2);
    if (size >= 11) {
      EXPECT_STREQ("abc</root>", buffer.data());
      EXPECT_EQ(none, traces());
    } else {
      EXPECT_STREQ("abc", buffer.data());
      EXPECT_EQ(overflow, traces()) << size;
    }
  }
}

TEST_F(GenXml, CutsItsHeadToTheSize) {
  for (int size = 1; size <= 30; size++)
    for (const Against side : sandbox::both_sides) {
      GuardedMemory buffer(static_cast<size_t>(size), side);
      gen_xml(buffer.data(), size, nullptr, nullptr, 0);
      EXPECT_EQ(std::string(xml_head).substr(0, static_cast<size_t>(size) - 1), buffer.data());
    }
}

TEST_F(GenXml, LeavesABufferAloneThatIsFullAlready) {
  for (const int mode : {1, 2}) {
    GuardedMemory buffer(8);
    gen_xml(buffer.data(), 8, "t", "v", mode);
    EXPECT_EQ(std::string(8, filler), buffer.bytes());
  }
  EXPECT_EQ(overflow, traces()) << "from the last call";
  char text[16] = "longer than six";
  gen_xml(text, 6, "t", "v", 1);
  EXPECT_STREQ("longer than six", text);
}

TEST_F(GenXml, TouchesNothingWithoutASize) {
  for (const int size : {0, -1, INT_MIN})
    for (const int mode : {0, 1, 2}) {
      GuardedMemory buffer(0);
      gen_xml(buffer.data(), size, "t", "v", mode);
    }
}

TEST_F(GenXml, WorksWithoutAConsole) {
  const sandbox::UnopenableConsole away;
  gen_xml(nullptr, 0, nullptr, nullptr, 0);
  char buffer[4] = "abc";
  gen_xml(buffer, 4, nullptr, nullptr, 2);
  EXPECT_STREQ("abc", buffer);
}

namespace {

// Calls all three on a destination of exactly `size` bytes.
std::string page_of(void (*redirect)(const char *, char *, int), const char *url, int size) {
  GuardedMemory out(static_cast<size_t>(size));
  redirect(url, out.data(), size);
  return out.bytes();
}

void countdown_30(const char *page, char *dst, int size) {
  redirect_to_countdown_page(page, dst, size, 30);
}

std::string padded(const std::string &text, size_t size) {
  return text.substr(0, size - 1) + std::string(size - std::min(text.size(), size - 1), '\0');
}

} // namespace

TEST(Redirect, WritesItsScriptIntoEverySize) {
  const struct {
    void (*redirect)(const char *, char *, int);
    std::string golden;
  } rows[] = {
      {redirect_page, "<script>location.replace('index.asp');</script>"},
      {redirect_index_page, "<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('index.asp');</script>"},
      {countdown_30, "<script>location.replace('countdown.asp?page=index.asp&count=30');</script>"},
  };
  for (const auto &row : rows)
    for (size_t size = 1; size < row.golden.size() + 20; size++)
      EXPECT_EQ(padded(row.golden, size), page_of(row.redirect, "index.asp", static_cast<int>(size)));
}

TEST(Redirect, RefusesUrlsThatWouldEndTheScript) {
  const std::string untouched(200, filler);
  for (const char *url : {"a'b", "'", "</script>", "x</script><script>alert(1)", "a.asp?x='"})
    EXPECT_EQ(untouched, page_of(redirect_page, url, 200)) << url;
  for (const char *url : {"", "a\"b", "</SCRIPT>", "</script", "a\\", "javascript:x"})
    EXPECT_EQ(padded("<script>location.replace('" + std::string(url) + "');</script>", 200),
              page_of(redirect_page, url, 200));
}

TEST(Redirect, ScreensOnlyThePlainPage) {
  EXPECT_EQ(padded("<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('a'b');</script>", 200),
            page_of(redirect_index_page, "a'b", 200));
  EXPECT_EQ(padded("<script>location.replace('countdown.asp?page=a'b&count=30');</script>", 200),
            page_of(countdown_30, "a'b", 200));
}

TEST(Redirect, CountsDownFromAnyNumber) {
  for (const int count : {0, -1, INT_MAX, INT_MIN}) {
    char out[128];
    redirect_to_countdown_page("p", out, sizeof(out), count);
    EXPECT_EQ("<script>location.replace('countdown.asp?page=p&count=" + std::to_string(count) + "');</script>",
              std::string(out));
  }
}

TEST(Redirect, TouchesNothingForNullsAndNoSize) {
  char out[4] = "abc";
  for (const auto redirect : {redirect_page, redirect_index_page, countdown_30}) {
    redirect(nullptr, out, 4);
    redirect("url", nullptr, 4);
    redirect("url", out, 0);
    redirect("url", out, -1);
    redirect("url", out, INT_MIN);
  }
  EXPECT_STREQ("abc", out);
}
