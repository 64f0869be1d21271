/*
 * Lookup maps
 *
 * A map table is an array of rows ended by a row whose id is 0xFFFFFFFF; the value or text of that row is what a
 * lookup by id gives when nothing matches ("Unknown" in the library's own text tables). Lookups scan from the first
 * row and take the first match. Tables and texts are the caller's and are only read.
 */
#ifndef TORVANE_MAP_H
#define TORVANE_MAP_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct map_entry {
  uint32_t id;
  uint32_t value;
} map_entry;

typedef struct txt_map_entry {
  uint32_t id;
  const char *text;
} txt_map_entry;

/* The value of the first row with this id, or the end row's value. */
uint32_t MapById(const map_entry *table, uint32_t id);

/*
 * The reverse lookup: the id of the first row with this value. The scan stops at the first row whose VALUE is
 * 0xFFFFFFFF and then gives that row's id, so a table used in reverse must end with such a value and hold it nowhere
 * before. Tables that use 0xFFFFFFFF for "no such mapping" are for MapById only.
 */
uint32_t MapByEvt(const map_entry *table, uint32_t value);

/* The text of the first row with this id, or the end row's text. */
const char *TxtMapById(const txt_map_entry *table, uint32_t id);

/* The id of the first row with exactly this text; 0xFFFFFFFF when there is none or `text` is null. */
uint32_t TxtMapByTxt(const txt_map_entry *table, const char *text);

/* As TxtMapByTxt, compared with strCmpNoCase. */
uint32_t TxtMapByTxtNoCase(const txt_map_entry *table, const char *text);

/*
 * The id of the first row whose text is exactly `n` bytes long and equals the first `n` bytes of `text`, which needs
 * no terminator there; 0xFFFFFFFF when there is none or `text` is null.
 */
uint32_t TxtMapByTxtWithLen(const txt_map_entry *table, const char *text, uint32_t n);

/*
 * The id of the first row whose text occurs anywhere in `haystack` (an empty text occurs in every one); 0xFFFFFFFF
 * when there is none or `haystack` is null.
 */
uint32_t TxtMapByTxtStr(const txt_map_entry *table, const char *haystack);

/*
 * Compares two texts without regard to the case of the letters A to Z; no other byte is folded and no locale counts.
 *
 * Returns 0 when equal or both null, -1 when only `a` is null, 1 when only `b` is null, else the difference of the
 * first bytes that differ, as unsigned values after folding to lower case (`a` minus `b`).
 */
int strCmpNoCase(const char *a, const char *b);

TORVANE_END

#endif
