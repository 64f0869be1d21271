// Takes CGI requests apart: form entries, and handlers by name.
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "cgi/coded_bytes.h"
#include "torvane/cgi_entries.h"

using namespace torvane;

namespace {

constexpr size_t longest_name = 64;   // characters of an entry's name that are stored
constexpr size_t longest_value = 512; // characters of its value that are stored

static_assert(sizeof(cgi_entry) == 584 && offsetof(cgi_entry, value) == 65);

// Knows where the next byte of an entry goes. This is meant: no terminator is written, and a second "=" goes over the
// start of the value. Callers zero their entries.
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
  // Stores a character of the name or the value. What is too long is dropped.
  void store(char c) {
    if (position_ < (in_value_ ? longest_value : longest_name))
      (in_value_ ? entry_->value : entry_->name)[position_++] = c;
  }

 private:
  cgi_entry *entry_;
  bool in_value_ = false;
  size_t position_ = 0;
};

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

} // namespace

extern "C" {

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
  // A separator as the last byte may have opened an entry that the array does not have. This is meant: no data at all
  // makes one empty entry.
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
  // This is meant: the name may stand within a longer one, and any character may take the place of the "=".
  value += strlen(name);
  if (*value)
    value++;
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
  // This is meant: tables of programs end at the name "unknow", spelled so, and the result is the address of the field
  // that holds the function.
  for (; table->func && table->name && strcmp(table->name, "unknow") != 0; table++)
    if (strcmp(table->name, name) == 0)
      return const_cast<void *>(static_cast<const void *>(&table->func));
  return nullptr;
}

} // extern "C"
