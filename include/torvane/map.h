/*
 * Lookup maps
 *
 * A map table pairs 32-bit ids with values or with texts, and these functions look a pair up from either side. A table
 * is an array of rows that ends with a row whose id is 0xFFFFFFFF. When no row has the id that is looked up, the lookup
 * returns the value or the text of that end row ("Unknown" in the library's own text tables):
 *
 *     static const txt_map_entry colours[] = {{1, "red"}, {2, "green"}, {0xFFFFFFFF, "Unknown"}};
 *
 *     TxtMapById(colours, 2);          // "green"
 *     TxtMapById(colours, 7);          // "Unknown"
 *     TxtMapByTxt(colours, "red");     // 1
 *
 * A lookup scans the table from its first row and takes the first row that matches. Tables and texts belong to the
 * caller, and the library only reads them. The pointer to the table must be valid, and each row before the end row must
 * have a text where a text is looked up. The functions keep no state, allocate nothing and trace nothing; any thread
 * may call them.
 */
#ifndef TORVANE_MAP_H
#define TORVANE_MAP_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* A row of a table that maps ids to values. */
typedef struct map_entry {
  uint32_t id;    /* 0xFFFFFFFF in the end row */
  uint32_t value; /* in the end row: the result for an id that no row has */
} map_entry;

/* A row of a table that maps ids to texts. */
typedef struct txt_map_entry {
  uint32_t id;      /* 0xFFFFFFFF in the end row */
  const char *text; /* in the end row: the result for an id that no row has */
} txt_map_entry;

/*
 * Returns the value that belongs to an id.
 *
 *   table  rows up to one with the id 0xFFFFFFFF
 *   id     id to look up
 *
 * Returns the value of the first row with this id, or the end row's value when there is none.
 */
uint32_t MapById(const map_entry *table, uint32_t id);

/*
 * Returns the id that belongs to a value: the reverse of MapById.
 *
 *   table  rows up to one whose VALUE is 0xFFFFFFFF; no row before may have that value, as the scan ends there
 *   value  value to look up
 *
 * Returns the id of the first row with this value, or the id of the row with the value 0xFFFFFFFF when there is none.
 *
 * A table for reverse lookups must therefore end with the value 0xFFFFFFFF. A table that uses this value for "no such
 * mapping" is for MapById only.
 */
uint32_t MapByEvt(const map_entry *table, uint32_t value);

/*
 * Returns the text that belongs to an id.
 *
 *   table  rows up to one with the id 0xFFFFFFFF
 *   id     id to look up
 *
 * Returns the text of the first row with this id, or the end row's text when there is none. The text is the table's.
 */
const char *TxtMapById(const txt_map_entry *table, uint32_t id);

/*
 * Returns the id that belongs to a text, compared exactly.
 *
 *   table  rows up to one with the id 0xFFFFFFFF
 *   text   text to look up
 *
 * Returns the id of the first row with exactly this text, or 0xFFFFFFFF when there is none or `text` is null.
 */
uint32_t TxtMapByTxt(const txt_map_entry *table, const char *text);

/*
 * Returns the id that belongs to a text, compared without regard to the case of the letters A to Z (strCmpNoCase).
 *
 *   table  rows up to one with the id 0xFFFFFFFF
 *   text   text to look up
 *
 * Returns the id of the first row with this text, or 0xFFFFFFFF when there is none or `text` is null.
 */
uint32_t TxtMapByTxtNoCase(const txt_map_entry *table, const char *text);

/*
 * Returns the id that belongs to a text of a given length.
 *
 *   table  rows up to one with the id 0xFFFFFFFF
 *   text   text to look up; it needs no terminator after its `n` bytes
 *   n      length of the text in bytes
 *
 * Returns the id of the first row whose text is exactly `n` bytes long and equals the first `n` bytes of `text`, or
 * 0xFFFFFFFF when there is none or `text` is null.
 */
uint32_t TxtMapByTxtWithLen(const txt_map_entry *table, const char *text, uint32_t n);

/*
 * Returns the id of the first row whose text occurs anywhere in another text.
 *
 *   table     rows up to one with the id 0xFFFFFFFF. A row with an empty text occurs in every text
 *   haystack  text to search
 *
 * Returns that id, or 0xFFFFFFFF when no row's text occurs in `haystack` or `haystack` is null.
 */
uint32_t TxtMapByTxtStr(const txt_map_entry *table, const char *haystack);

/*
 * Compares two texts without regard to the case of the letters A to Z. It folds no other byte and looks at no locale.
 *
 *   a, b  texts to compare; either may be null
 *
 * Returns:
 *   0             the texts are equal, or both are null
 *   -1            only `a` is null
 *   1             only `b` is null
 *   other values  the texts differ: the difference of the first bytes that do (`a` minus `b`), as unsigned values after
 *                 folding to lower case. Such a difference may also be 1 or -1
 */
int strCmpNoCase(const char *a, const char *b);

TORVANE_END

#endif
