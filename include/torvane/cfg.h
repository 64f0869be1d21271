/*
 * Configuration files
 *
 * Reads a text file of KEY = VALUE lines into a table of the keys that the caller expects. How a file is read:
 *
 * - White space before and after the key and before the value is left out, and so is white space at the end of a line.
 *   A last line without a newline keeps its white space at the end.
 * - The key ends at the first "="; the value is the rest of the line, with any further "=", and may be empty. There are
 *   no quotes and no escapes. A key is compared whole and with regard to case. "=value" has the empty key.
 * - Empty lines and lines that begin with "#" are ignored; "#" elsewhere is text.
 * - A carriage return is white space, so files with CRLF lines read alike.
 * - Of a line longer than 1022 bytes, the first 1023 are one line, white space at its end kept, and what follows is a
 *   line of its own, with the next number. A zero byte ends the text of its line.
 *
 * White space is what isspace(3) says in the process's locale. Nothing is traced. Any thread, on tables of its own.
 */
#ifndef TORVANE_CFG_H
#define TORVANE_CFG_H

#include <stdint.h>
#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct CfgEntry {
  uint32_t tag;    /* the caller's own; not looked at */
  const char *key; /* the caller's; a row whose key is null is never found */
  char *value;     /* null, or from malloc; the library's, until cfg_destory frees it */
} CfgEntry;

/*
 * Reads the file `path` into the `rows` rows of `table`. Of rows with the same key the first is set; when a key comes
 * again, in the file or in another one read into the same table, the later value replaces the earlier, which is freed.
 * Rows whose key does not come stay as they are.
 *
 * Goes on to the end of the file whatever it meets, and says:
 *   on standard error   "parsing error file, line %d : %s\n" with the line's number, counted from 1, and for a line
 *                       without "=" its text, for an unknown key the key
 *   on standard output  "[cfg_parse_file::131] cannot alloc memory\n" when memory runs out for a value; the row stays
 *                       as it was, and the result does not tell
 *
 * Returns
 *   0  read; lines without "=" do not count
 *   1  `path` is null
 *   3  the file cannot be opened (a directory can, and is empty; so is what cannot be read)
 *   4  `table` is null
 *   5  read, and at least one key was not in the table
 */
int cfg_construct(const char *path, CfgEntry *table, int rows);

/*
 * The same from an open stream, from where it stands to its end; it stays open. Returns 0 or 5 likewise, 4 for a null
 * `table` and 3 for a null `file`.
 */
int cfg_parse_file(FILE *file, CfgEntry *table, int rows);

/* Frees the values of a table and sets them to null. Returns 0, also for a null table. */
int cfg_destory(CfgEntry *table, int rows);

TORVANE_END

#endif
