// Percent and base64 coding, and the exported tables of codes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::GuardedMemory;

namespace {

std::string taken(char *text) {
  const std::string copy = text ? text : "(null)";
  free(text);
  return copy;
}

std::string encoded(const std::string &text) {
  GuardedMemory guarded(text);
  return taken(encodeURIComponent(guarded.data()));
}

std::string decoded(const std::string &text) {
  GuardedMemory guarded(text);
  return taken(decodeURIComponent(guarded.data()));
}

// Returns what becomes of one byte when it is coded, with printf's digits.
std::string golden_code(int code) {
  char text[16];
  const bool letter_or_digit = (code >= 48 && code <= 57) || (code >= 65 && code <= 90) || (code >= 97 && code <= 122);
  if (code >= 128)
    snprintf(text, sizeof(text), "%%%02X", static_cast<unsigned>(code));
  else if (letter_or_digit || strchr("-_.~!*()'", code))
    snprintf(text, sizeof(text), "%c", code);
  else
    snprintf(text, sizeof(text), "%%%02x", static_cast<unsigned>(code));
  return text;
}

int nibble(int c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  return (c >= 'A' && c <= 'Z' ? c + 32 : c) - 87;
}

bool is_digit(const std::string &text, size_t at) {
  return at < text.size() && strchr("0123456789abcdefABCDEF", text[at]) != nullptr;
}

// The rules of decoding are written out once more: pieces are appended to a zero-terminated text.
std::string golden_decoded(const std::string &text) {
  std::string out;
  const auto append = [&](const std::string &piece) { out += piece.c_str(); };
  for (size_t i = 0; i < text.size();) {
    const auto there = [&](size_t offset) { return i + offset < text.size(); };
    const auto byte = [&](size_t offset) {
      const auto code = [&](size_t at) { return static_cast<unsigned char>(text[i + at]); };
      return std::string(1, static_cast<char>(nibble(code(offset)) * 16 + nibble(code(offset + 1))));
    };
    if (text[i] != '%' || !is_digit(text, i + 1) || !is_digit(text, i + 2)) {
      out += text[i];
      i += 1;
      continue;
    }
    switch (text[i + 1]) {
      case 'c':
      case 'd':
      case 'C':
      case 'D':
        if (there(4) && there(5)) {
          append(byte(1) + byte(4));
          i += 6;
          continue;
        }
        break;
      case 'e':
      case 'E':
        if (there(4) && there(5) && there(7) && there(8)) {
          append(byte(1) + byte(4) + byte(7));
          i += 9;
          continue;
        }
        break;
      case 'f':
      case 'F':
        if (there(4) && there(5) && there(7) && there(8) && there(10) && there(11)) {
          append(byte(1) + byte(4) + byte(7) + byte(10));
          i += 12;
          continue;
        }
        break;
      case '8':
      case '9':
      case 'a':
      case 'b':
      case 'A':
      case 'B':
        break;
      default:
        append(byte(1));
        i += 3;
        continue;
    }
    append("%");
    i += 3;
  }
  return out;
}

std::string base64(const std::string &bytes) {
  GuardedMemory data(bytes.size());
  memcpy(data.data(), bytes.data(), bytes.size());
  unsigned length = static_cast<unsigned>(bytes.size());
  const std::string text = taken(encode_base64(&length, data.data()));
  EXPECT_EQ(bytes.size(), length);
  return text;
}

// Takes the bits out again, six by six.
std::string from_base64(const std::string &text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0, count = 0;
  for (const char c : text) {
    if (c == '=')
      break;
    const size_t value = alphabet.find(c);
    EXPECT_NE(std::string::npos, value) << c;
    bits = bits << 6 | static_cast<unsigned>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count);
      bits &= (1u << count) - 1;
    }
  }
  EXPECT_EQ(0u, bits) << "bits of no byte";
  return bytes;
}

} // namespace

TEST(CodeTables, PairCharactersWithTheirCodes) {
  const std::string characters(encoding_char, sizeof(encoding_char));
  EXPECT_EQ(" \"#$%&+,/:;<=>?@[\\]^`{|}~!()'", characters);
  ASSERT_EQ(29u, std::size(encoding_code));
  for (size_t i = 0; i < characters.size(); i++) {
    char golden[3];
    snprintf(golden, sizeof(golden), "%02X", static_cast<unsigned char>(characters[i]));
    EXPECT_STREQ(golden, encoding_code[i]) << i;
  }
}

TEST(EncodeUri, CodesEveryByte) {
  for (int code = 1; code < 256; code++) {
    const std::string byte(1, static_cast<char>(code));
    EXPECT_EQ(golden_code(code), encoded(byte)) << code;
    EXPECT_EQ("x" + golden_code(code) + golden_code(code) + "y", encoded("x" + byte + byte + "y")) << code;
  }
}

TEST(EncodeUri, KnowsItsGoldens) {
  EXPECT_EQ("a%20b%2f%C3%A9", encoded("a b/\xc3\xa9"));
  EXPECT_EQ("-_.~!*()'", encoded("-_.~!*()'"));
  EXPECT_EQ("%0a%7f%80%FF%25", encoded("\n\x7f\x80\xff%"));
  EXPECT_EQ("%3a%3B", encoded(":") + "%3B") << "ASCII has small digits";
  EXPECT_EQ("", encoded(""));
  EXPECT_EQ(nullptr, encodeURIComponent(nullptr));
}

TEST(DecodeUri, DecodesEveryPairOfBytesAsTold) {
  for (int first = 1; first < 256; first++)
    for (int second = 1; second < 256; second++) {
      const std::string text = {'a', '%', static_cast<char>(first), static_cast<char>(second), 'b'};
      char *result = decodeURIComponent(text.c_str());
      ASSERT_EQ(golden_decoded(text), result) << first << " " << second;
      free(result);
    }
}

TEST(DecodeUri, DecodesEveryPairInsideACharacterAsTold) {
  for (int first = 1; first < 256; first++)
    for (int second = 1; second < 256; second++)
      for (const char *before : {"%c3%", "%E4%B8%"}) {
        std::string text = before;
        text += {static_cast<char>(first), static_cast<char>(second), 'z'};
        char *result = decodeURIComponent(text.c_str());
        ASSERT_EQ(golden_decoded(text), result) << first << " " << second;
        free(result);
      }
}

TEST(DecodeUri, KnowsItsGoldens) {
  EXPECT_EQ("a b/\xc3\xa9", decoded("a%20b%2f%C3%A9"));
  EXPECT_EQ("a+b", decoded("a+b")) << "a plus is a plus";
  EXPECT_EQ("%zz", decoded("%zz"));
  EXPECT_EQ("%4", decoded("%4"));
  EXPECT_EQ("%", decoded("%"));
  EXPECT_EQ("%4g", decoded("%4g"));
  EXPECT_EQ("%A", decoded("%%41")) << "a percent sign that begins nothing is copied, and the next one decoded";
  EXPECT_EQ("a%b", decoded("a%80b"));
  EXPECT_EQ("%%%%", decoded("%80%9f%Ab%BF"));
  EXPECT_EQ("\xe4\xb8\xad", decoded("%E4%b8%AD"));
  EXPECT_EQ("\xf0\x9f\x98\x80", decoded("%f0%9F%98%80"));
  EXPECT_EQ("", decoded(""));
  EXPECT_EQ(nullptr, decodeURIComponent(nullptr));
}

TEST(DecodeUri, DoesNotLookAtWhatSeparatesTheBytesOfACharacter) {
  EXPECT_EQ("\xc3\xa9", decoded("%C3xA9"));
  EXPECT_EQ("\xe4\xb8\xad", decoded("%E4.B8+AD"));
  EXPECT_EQ("\xf0\x9f\x98\x80", decoded("%F0a9Fb98c80"));
}

TEST(DecodeUri, WritesAPercentSignForWhatIsCutShort) {
  EXPECT_EQ("%", decoded("%E4"));
  EXPECT_EQ("%%", decoded("%E4%B8")) << "the second one is a lone continuation byte";
  EXPECT_EQ("%%B", decoded("%E4%B"));
  EXPECT_EQ("%%%", decoded("%F0%9F%98"));
  EXPECT_EQ("%x", decoded("%F0x"));
  // A caller should not pass these, but nothing is read after their end either.
  EXPECT_EQ("%", decoded("%C3"));
  EXPECT_EQ("%%", decoded("%C3%"));
  EXPECT_EQ("%%A", decoded("%C3%A"));
}

TEST(DecodeUri, ReadsNoFurtherThanSequencesCutShortAtEveryLength) {
  for (const std::string whole :
       {"%C3%A9", "%dfxBf", "%E4%B8%AD", "%e4+b8=ad", "%F0%9F%98%80", "%f0a9fb98c80", "%8f%8f"})
    for (size_t length = 0; length <= whole.size(); length++)
      for (const std::string before : {"", "a", "%", "%4", "%C3%A9"}) {
        const std::string text = before + whole.substr(0, length);
        EXPECT_EQ(golden_decoded(text), decoded(text)) << text;
      }
}

TEST(DecodeUri, LetsAZeroByteEndACharacter) {
  EXPECT_EQ("ab", decoded("a%00b"));
  EXPECT_EQ("", decoded("%00%00"));
  EXPECT_EQ("\xc3z", decoded("%C3%00z"));
  EXPECT_EQ("\xe4z", decoded("%E4%00%ADz")) << "what comes after it in the character is gone";
  EXPECT_EQ("\xe4\xb8z", decoded("%E4%B8%00z"));
  EXPECT_EQ("\xf0z", decoded("%F0%00%98%80z"));
  EXPECT_EQ("\xf0\x9f\x98", decoded("%F0%9F%98%00"));
}

TEST(DecodeUri, DecodesAnythingAsTold) {
  std::mt19937 random(3);
  static constexpr char usual[] = "%%%%+00123456789abcdefABCDEFgz";
  for (int round = 0; round < 2000; round++) {
    std::string text(random() % 60, 'x');
    for (char &c : text)
      c = random() % 8 ? usual[random() % (sizeof(usual) - 1)] : static_cast<char>(1 + random() % 255);
    ASSERT_EQ(golden_decoded(text), decoded(text)) << text;
  }
}

TEST(DecodeUri, GivesBackWhatWasCoded) {
  std::string ascii;
  for (char c = 1; c < 127; c++)
    ascii += c;
  EXPECT_EQ(ascii, decoded(encoded(ascii)));
  const std::string utf8 = "\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xe4\xb8\xad \xef\xbf\xbf \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf";
  EXPECT_EQ(utf8, decoded(encoded(utf8)));
}

TEST(Base64, KnowsItsGoldens) {
  EXPECT_EQ("YQ==", base64("a"));
  EXPECT_EQ("YWI=", base64("ab"));
  EXPECT_EQ("Zm9v", base64("foo"));
  EXPECT_EQ("Zm9vYg==", base64("foob"));
  EXPECT_EQ("Zm9vYmE=", base64("fooba"));
  EXPECT_EQ("Zm9vYmFy", base64("foobar"));
  EXPECT_EQ("+/+/", base64("\xfb\xff\xbf"));
  EXPECT_EQ("AAAA", base64(std::string(3, '\0')));
  EXPECT_EQ("AA==", base64(std::string(1, '\0')));
  EXPECT_EQ("//8=", base64("\xff\xff"));
  EXPECT_EQ("YWRtaW46c2VjcmV0", base64("admin:secret"));
}

TEST(Base64, HoldsEveryByteAtEveryPlace) {
  for (int code = 0; code < 256; code++)
    for (size_t place = 0; place < 3; place++)
      for (size_t length = place + 1; length <= 4; length++) {
        std::string bytes(length, '\x55');
        bytes[place] = static_cast<char>(code);
        const std::string text = base64(bytes);
        EXPECT_EQ((length + 2) / 3 * 4, text.size());
        EXPECT_EQ((3 - length % 3) % 3, static_cast<size_t>(std::count(text.begin(), text.end(), '=')));
        EXPECT_EQ(bytes, from_base64(text));
      }
}

TEST(Base64, HoldsDataOfEveryLength) {
  std::mt19937 random(4);
  std::string bytes;
  while (bytes.size() < 400) {
    bytes += static_cast<char>(random());
    EXPECT_EQ(bytes, from_base64(base64(bytes)));
  }
}

TEST(Base64, TakesALengthOfZeroForAText) {
  GuardedMemory text(std::string("hello"));
  unsigned length = 0;
  EXPECT_EQ("aGVsbG8=", taken(encode_base64(&length, text.data())));
  EXPECT_EQ(5u, length);
  length = 0;
  EXPECT_EQ("", taken(encode_base64(&length, "")));
  EXPECT_EQ(0u, length);
}

TEST(Base64, IsNullForNulls) {
  unsigned length = 3;
  EXPECT_EQ(nullptr, encode_base64(&length, nullptr));
  EXPECT_EQ(nullptr, encode_base64(nullptr, "abc"));
  EXPECT_EQ(3u, length);
}

// Without memory for the result no byte of the data is looked at, which would fault. With pointers of 32 bits, the size
// of the result is larger than any size_t.
TEST(Base64, IsNullForLengthsBeyondMemory) {
  for (const unsigned whole : {0xffffffffu, 0xfffffffeu, 0xc0000000u, 0xbffffff0u}) {
    GuardedMemory data(16);
    unsigned length = whole;
    sandbox::fail_allocation(1);
    char *text = encode_base64(&length, data.data());
    sandbox::fail_allocation(0);
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(whole, length);
    free(text);
  }
  for (const unsigned whole : {0xffffffffu, 0xc0000000u}) { // the size for the second one wraps to five bytes
    if (sizeof(size_t) > 4)
      break;
    GuardedMemory data(16);
    unsigned length = whole;
    EXPECT_EQ(nullptr, encode_base64(&length, data.data()));
  }
}

TEST(Coding, IsNullWithoutMemory) {
  const auto check = [](char *text, bool failed) {
    EXPECT_EQ(failed, text == nullptr);
    free(text);
  };
  EXPECT_EQ(1u, sandbox::fail_each_allocation([] { return encodeURIComponent("a b"); }, check));
  EXPECT_EQ(1u, sandbox::fail_each_allocation([] { return decodeURIComponent("a%20b"); }, check));
  const auto code = [] {
    unsigned length = 0;
    return encode_base64(&length, "abc");
  };
  EXPECT_EQ(1u, sandbox::fail_each_allocation(code, check));
  EXPECT_EQ("", sandbox::console_text());
}
