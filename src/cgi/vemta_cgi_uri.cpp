// Codes and decodes URI components, and codes base64.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "cgi/coded_bytes.h"
#include "torvane/cgi_uri.h"

using namespace torvane;

namespace {

bool is_hex_digit(char c) {
  return isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool is_ascii_alphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

} // namespace

extern "C" {

// This is meant: programs read these two tables, and nothing here does. The first one has no terminator.
const char encoding_char[29] = {' ', '"', '#',  '$', '%', '&', '+', ',', '/', ':', ';', '<', '=', '>', '?',
                                '@', '[', '\\', ']', '^', '`', '{', '|', '}', '~', '!', '(', ')', '\''};

const char *const encoding_code[29] = {"20", "22", "23", "24", "25", "26", "2B", "2C", "2F", "3A",
                                       "3B", "3C", "3D", "3E", "3F", "40", "5B", "5C", "5D", "5E",
                                       "60", "7B", "7C", "7D", "7E", "21", "28", "29", "27"};

char *encodeURIComponent(const char *text) {
  if (!text)
    return nullptr;
  const size_t length = strlen(text);
  if (length > (SIZE_MAX - 1) / 4)
    return nullptr;
  char *result = static_cast<char *>(malloc(length * 4 + 1));
  if (!result)
    return nullptr;
  char *out = result;
  for (; *text; text++) {
    const char c = *text;
    if (is_ascii_alphanumeric(c) || strchr("-_.~!*()'", c)) {
      *out++ = c;
      continue;
    }
    // This is meant: bytes above 7f get capital digits and ASCII characters small ones. Programs compare with both.
    const unsigned code = static_cast<unsigned char>(c);
    const char *digits = code >= 0x80 ? "0123456789ABCDEF" : "0123456789abcdef";
    *out++ = '%';
    *out++ = digits[code >> 4];
    *out++ = digits[code & 15];
  }
  *out = '\0';
  return result;
}

char *decodeURIComponent(const char *text) {
  if (!text)
    return nullptr;
  size_t left = strlen(text);
  char *result = static_cast<char *>(malloc(left + 1));
  if (!result)
    return nullptr;
  char *out = result;
  while (left > 0) {
    if (*text != '%' || !is_hex_digit(text[1]) || !is_hex_digit(text[2])) {
      *out++ = *text++;
      left--;
      continue;
    }
    size_t bytes = bytes_by_first_digit(text[1]);
    // This is meant: what is no character leaves a "%" here, and nothing in the entries of forms.
    if (bytes == 0 || left < bytes * length_of_coded_byte) {
      *out++ = '%'; // no character begins so, or the text ends within it
      bytes = 1;
    } else {
      // A zero byte ends what this character gives. The next character goes over it.
      for (size_t byte = 0; byte < bytes; byte++) {
        const char decoded = byte_of(text + byte * length_of_coded_byte + 1);
        if (decoded == '\0')
          break;
        *out++ = decoded;
      }
    }
    text += bytes * length_of_coded_byte;
    left -= bytes * length_of_coded_byte;
  }
  *out = '\0';
  return result;
}

char *encode_base64(unsigned *len, const void *data) {
  if (!len || !data)
    return nullptr;
  size_t left = *len;
  if (left == 0) {
    left = strlen(static_cast<const char *>(data));
    if (left > UINT32_MAX)
      return nullptr;
    *len = static_cast<unsigned>(left);
  }
  if (left / 3 > SIZE_MAX / 4 - 2)
    return nullptr;
  char *result = static_cast<char *>(malloc(left / 3 * 4 + 5)); // a padded group and the terminator
  if (!result)
    return nullptr;

  constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto *in = static_cast<const unsigned char *>(data);
  char *out = result;
  for (; left >= 3; left -= 3, in += 3) {
    *out++ = alphabet[in[0] >> 2];
    *out++ = alphabet[(in[0] & 3) << 4 | in[1] >> 4];
    *out++ = alphabet[(in[1] & 15) << 2 | in[2] >> 6];
    *out++ = alphabet[in[2] & 63];
  }
  if (left > 0) {
    const int second = left == 2 ? in[1] : 0;
    *out++ = alphabet[in[0] >> 2];
    *out++ = alphabet[(in[0] & 3) << 4 | second >> 4];
    *out++ = left == 2 ? alphabet[(second & 15) << 2] : '=';
    *out++ = '=';
  }
  *out = '\0';
  return result;
}

} // extern "C"
