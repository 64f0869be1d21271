// Looks up ids, values and texts in map tables, from the first row to the end row.
#include <string.h>

#include "base/map_table.h"
#include "torvane/map.h"

using namespace torvane;

namespace {

unsigned char fold_case(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// Returns the id of the first row whose text satisfies `matches`, or the id of the end row.
template <typename Matches>
uint32_t id_of_text(const txt_map_entry *table, Matches matches) {
  const txt_map_entry *row = table;
  while (row->id != map_end && !matches(row->text))
    row++;
  return row->id;
}

} // namespace

extern "C" {

int strCmpNoCase(const char *a, const char *b) {
  if (!a)
    return b ? -1 : 0;
  if (!b)
    return 1;

  unsigned char x, y;
  do {
    x = fold_case(static_cast<unsigned char>(*a++));
    y = fold_case(static_cast<unsigned char>(*b++));
  } while (x != 0 && x == y);
  return x - y;
}

uint32_t MapById(const map_entry *table, uint32_t id) {
  const map_entry *row = table;
  while (row->id != map_end && row->id != id)
    row++;
  return row->value;
}

// This is meant: the first row with the value 0xffffffff ends the search, whatever its id. A table that has this value
// before its end row is good for lookups by id alone.
uint32_t MapByEvt(const map_entry *table, uint32_t value) {
  const map_entry *row = table;
  while (row->value != map_end && row->value != value)
    row++;
  return row->id;
}

const char *TxtMapById(const txt_map_entry *table, uint32_t id) {
  const txt_map_entry *row = table;
  while (row->id != map_end && row->id != id)
    row++;
  return row->text;
}

uint32_t TxtMapByTxt(const txt_map_entry *table, const char *text) {
  if (!text)
    return map_end;
  return id_of_text(table, [text](const char *row_text) { return strcmp(row_text, text) == 0; });
}

uint32_t TxtMapByTxtNoCase(const txt_map_entry *table, const char *text) {
  return id_of_text(table, [text](const char *row_text) { return strCmpNoCase(row_text, text) == 0; });
}

uint32_t TxtMapByTxtWithLen(const txt_map_entry *table, const char *text, uint32_t n) {
  if (!text)
    return map_end;
  return id_of_text(
      table, [text, n](const char *row_text) { return strlen(row_text) == n && strncmp(row_text, text, n) == 0; });
}

uint32_t TxtMapByTxtStr(const txt_map_entry *table, const char *haystack) {
  if (!haystack)
    return map_end;
  return id_of_text(table, [haystack](const char *row_text) { return strstr(haystack, row_text) != nullptr; });
}

} // extern "C"
