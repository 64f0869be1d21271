// The intrusive list and the lookup maps that every other module stands on.
#include <string.h>

#include "torvane.h"

namespace {

constexpr uint32_t end_id = 0xFFFFFFFFu; // id of the row that ends a table, and what a failed lookup by text gives

unsigned char fold_case(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// The first row whose text satisfies `matches`, or the end row.
template <typename Matches>
const txt_map_entry *find_text(const txt_map_entry *table, Matches matches) {
  const txt_map_entry *row = table;
  while (row->id != end_id && !matches(row->text))
    row++;
  return row;
}

} // namespace

extern "C" {

int list_empty(const list_node *head) {
  return head->next == head;
}

void list_add(list_node *node, list_node *prev, list_node *next) {
  next->prev = node;
  node->next = next;
  node->prev = prev;
  prev->next = node;
}

void list_add_tail(list_node *node, list_node *head) {
  list_add(node, head->prev, head);
}

void list_del(list_node *entry) {
  entry->prev->next = entry->next;
  entry->next->prev = entry->prev;
}

void list_replace(list_node *old, list_node *replacement) {
  list_add(replacement, old->prev, old->next);
}

void list_move(list_node *entry, list_node *head) {
  list_del(entry);
  list_add_tail(entry, head);
}

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
  while (row->id != end_id && row->id != id)
    row++;
  return row->value;
}

uint32_t MapByEvt(const map_entry *table, uint32_t value) {
  const map_entry *row = table;
  while (row->value != end_id && row->value != value)
    row++;
  return row->id;
}

const char *TxtMapById(const txt_map_entry *table, uint32_t id) {
  const txt_map_entry *row = table;
  while (row->id != end_id && row->id != id)
    row++;
  return row->text;
}

uint32_t TxtMapByTxt(const txt_map_entry *table, const char *text) {
  if (!text)
    return end_id;
  return find_text(table, [text](const char *candidate) { return strcmp(candidate, text) == 0; })->id;
}

uint32_t TxtMapByTxtNoCase(const txt_map_entry *table, const char *text) {
  if (!text)
    return end_id;
  return find_text(table, [text](const char *candidate) { return strCmpNoCase(candidate, text) == 0; })->id;
}

uint32_t TxtMapByTxtWithLen(const txt_map_entry *table, const char *text, uint32_t n) {
  if (!text)
    return end_id;
  return find_text(
             table,
             [text, n](const char *candidate) { return strlen(candidate) == n && strncmp(candidate, text, n) == 0; })
      ->id;
}

uint32_t TxtMapByTxtStr(const txt_map_entry *table, const char *haystack) {
  if (!haystack)
    return end_id;
  return find_text(table, [haystack](const char *candidate) { return strstr(haystack, candidate) != nullptr; })->id;
}

} // extern "C"
