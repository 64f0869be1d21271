// CGI requests: form entries, handlers by name, URI and base64 coding, paths.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "torvane/cgi_entries.h"
#include "torvane/cgi_path.h"
#include "torvane/cgi_uri.h"
#include "torvane/text.h"

namespace {

constexpr size_t longest_name = 64;   // characters of an entry's name that are stored
constexpr size_t longest_value = 512; // and of its value

static_assert(sizeof(cgi_entry) == 584 && offsetof(cgi_entry, value) == 65);

// Where the next byte of an entry goes.
class EntryCursor {
 public:
  explicit EntryCursor(cgi_entry *first) : entry_(first) {}

  void begin_value() {
    in_value_ = true;
    position_ = 0;
  }
  void next_entry() {
    entry_++;
    in_value_ = false;
    position_ = 0;
  }
  // What is too long is dropped.
  void store(char c) {
    if (position_ < (in_value_ ? longest_value : longest_name))
      (in_value_ ? entry_->value : entry_->name)[position_++] = c;
  }

 private:
  cgi_entry *entry_;
  bool in_value_ = false;
  size_t position_ = 0;
};

bool is_hex_digit(char c) {
  return isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool is_ascii_alphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The byte of two hexadecimal digits; of other characters, some byte.
char byte_of(const char *digits) {
  return static_cast<char>(from_hex(digits[0]) * 16 + from_hex(digits[1]));
}

// The bytes of one UTF-8 character as "%XX" each; the separators between the digit pairs may be anything.
constexpr size_t length_of_coded_byte = 3;

// How many bytes the character has whose first hexadecimal digit this is; 0 when no character begins so.
size_t bytes_by_first_digit(char digit) {
  if (static_cast<unsigned char>(digit) < '8')
    return 1;
  switch (tolower(static_cast<unsigned char>(digit))) {
    case 'c':
    case 'd':
      return 2;
    case 'e':
      return 3;
    case 'f':
      return 4;
    default:
      return 0;
  }
}

void decode_form_value(char (&value)[sizeof(cgi_entry::value)]) {
  const size_t length = strnlen(value, sizeof(value));
  char decoded[sizeof(value)];
  size_t count = 0;
  bool changed = false;
  for (size_t i = 0; i < length;) {
    if (value[i] != '%') {
      changed = changed || value[i] == '+';
      decoded[count++] = value[i] == '+' ? ' ' : value[i];
      i++;
    } else if (length - i < length_of_coded_byte) {
      i++; // dropped
    } else {
      changed = true;
      size_t bytes = bytes_by_first_digit(value[i + 1]);
      if (length - i < bytes * length_of_coded_byte)
        bytes = 0; // cut short
      for (size_t byte = 0; byte < bytes; byte++)
        decoded[count++] = byte_of(value + i + byte * length_of_coded_byte + 1);
      i += std::max<size_t>(bytes, 1) * length_of_coded_byte;
    }
  }
  if (!changed)
    return;
  memset(value, 0, length);
  memcpy(value, decoded, count);
}

// The three passes of rm_dotdot below work in place, each in one go. `out` never overtakes `in`, and what stands before
// `out` is what the pass has made of everything before `in`.

bool at_segment_start(const char *path, const char *out) {
  return out == path || out[-1] == '/';
}

void merge_slashes(char *path) {
  char *out = path;
  for (const char *in = path; *in; in++)
    if (*in != '/' || out == path || out[-1] != '/')
      *out++ = *in;
  *out = '\0';
}

void drop_dot_segments(char *path) {
  char *out = path;
  for (const char *in = path; *in;) {
    if (at_segment_start(path, out) && in[0] == '.' && in[1] == '/')
      in += 2;
    else
      *out++ = *in++;
  }
  *out = '\0';
}

// Every "../" takes the segment before it along, if there is one. Returns the path's length.
size_t resolve_dotdot_segments(char *path) {
  char *out = path;
  for (const char *in = path; *in;) {
    if (!at_segment_start(path, out) || strncmp(in, "../", 3) != 0) {
      *out++ = *in++;
      continue;
    }
    in += 3;
    if (out > path)
      out--;
    while (!at_segment_start(path, out))
      out--;
  }
  *out = '\0';
  return static_cast<size_t>(out - path);
}

} // namespace

extern "C" {

const char encoding_char[29] = {' ', '"', '#',  '$', '%', '&', '+', ',', '/', ':', ';', '<', '=', '>', '?',
                                '@', '[', '\\', ']', '^', '`', '{', '|', '}', '~', '!', '(', ')', '\''};

const char *const encoding_code[29] = {"20", "22", "23", "24", "25", "26", "2B", "2C", "2F", "3A",
                                       "3B", "3C", "3D", "3E", "3F", "40", "5B", "5C", "5D", "5E",
                                       "60", "7B", "7C", "7D", "7E", "21", "28", "29", "27"};

int data_2_entries(cgi_entry *entries, int capacity, int len, const char *data) {
  if (!entries || (!data && len > 0))
    return 0;
  EntryCursor cursor(entries);
  int index = 0;
  for (int i = 0; i < len; i++) {
    if (index >= capacity) {
      printf("[bug on], index=%d, max_entries=%d\n", index, capacity);
      return index;
    }
    if (data[i] == '=') {
      cursor.begin_value();
    } else if (data[i] == '&') {
      cursor.next_entry();
      index++;
    } else {
      cursor.store(data[i]);
    }
  }
  // A separator as the last byte may have opened an entry that is not there.
  const int count = index < capacity ? index + 1 : index;
  for (int i = 0; i < count; i++)
    decode_form_value(entries[i].value);
  return count;
}

int data_2_authinfo(cgi_entry *entries, int len, const char *data) {
  if (!entries || (!data && len > 0))
    return 0;
  EntryCursor cursor(entries);
  int count = 1;
  for (int i = 0; i < len; i++) {
    if (data[i] == ':') {
      cursor.begin_value();
    } else if (data[i] == ',') {
      cursor.next_entry();
      count++;
    } else {
      cursor.store(data[i]);
    }
  }
  return count;
}

cgi_entry *get_entry_by_name(cgi_entry *entries, int count, const char *name) {
  if (!entries || !name)
    return nullptr;
  for (int i = 0; i < count; i++)
    if (strncmp(entries[i].name, name, sizeof(entries[i].name)) == 0)
      return &entries[i];
  return nullptr;
}

char *get_entry_value_by_name(cgi_entry *entries, int count, const char *name) {
  cgi_entry *entry = get_entry_by_name(entries, count, name);
  return entry ? entry->value : nullptr;
}

char *get_entry_value(const char *query, const char *name) {
  const char *value = query && name ? strstr(query, name) : nullptr;
  if (!value)
    return nullptr;
  value += strlen(name);
  if (*value)
    value++; // over what should be the "="
  return strndup(value, strcspn(value, "&"));
}

void dump_entries(const cgi_entry *entries, int count) {
  if (!entries)
    return;
  puts("============= dump entries =================");
  for (int i = 0; i < count; i++)
    printf("name=%16.*s, val=%.*s\n", static_cast<int>(sizeof(entries[i].name)), entries[i].name,
           static_cast<int>(sizeof(entries[i].value)), entries[i].value);
  puts("============================================");
}

void *get_cgi_func_ptr(const cgi_handler *table, const char *name) {
  if (!table || !name)
    return nullptr;
  for (; table->func && table->name && strcmp(table->name, "unknow") != 0; table++)
    if (strcmp(table->name, name) == 0)
      return const_cast<void *>(static_cast<const void *>(&table->func));
  return nullptr;
}

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
    // Capitals for what is not ASCII, small letters for what is: programs compare with both.
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
    if (bytes == 0 || left < bytes * length_of_coded_byte) {
      *out++ = '%'; // no character, or cut short
      bytes = 1;
    } else {
      // A zero byte ends what this character gives; the next one goes over it.
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

int rm_dotdot(char *path) {
  if (!path)
    return 1;
  merge_slashes(path);
  drop_dot_segments(path);
  size_t length = resolve_dotdot_segments(path);
  while (length >= 4) {
    const int order = memcmp(path + length - 3, "/..", 3);
    if (order != 0)
      return order == 1 ? 2 : order; // 1 is said of paths that climb
    length -= 3;
    while (length > 0 && path[length - 1] != '/')
      length--;
    if (length == 0)
      return 1;
    path[--length] = '\0';
  }
  return static_cast<int>(length);
}

} // extern "C"
