/*
 * Configuration files
 *
 * Reads a text file of KEY = VALUE lines into a table of the keys that the caller expects.
 *
 *   CfgEntry table[] = {{0, "wan.interface", NULL}, {1, "wan.mtu", NULL}};
 *   if (cfg_construct("/etc/router.conf", table, 2) == 0 && table[1].value)
 *     mtu = atoi(table[1].value);
 *   cfg_destory(table, 2);
 *
 * How a file is read:
 *
 * - White space before and after the key, before the value, and at the end of a line is left out. A last line without a
 *   newline keeps its white space at the end.
 * - The key ends at the first "="; the value is the rest of the line, with any further "=", and may be empty. There are
 *   no quotes and no escapes. A key is compared whole and with regard to case. "=value" has the empty key.
 * - Empty lines and lines that begin with "#", after white space too, are ignored; "#" elsewhere is text.
 * - A carriage return is white space, so files with CRLF lines read alike.
 * - Of a line longer than 1022 bytes, the first 1023 are one line and keep the white space at their end. What follows
 *   is a line of its own, with the next number.
 * - A zero byte ends the text of its line, and the white space before it is kept.
 *
 * Who frees what:
 *
 * - A value that a file has set is from malloc. The caller frees it with cfg_destory, together with the others.
 * - Reading never frees a value that it replaces, so a table may hold defaults that are literals. An allocated default
 *   that a file replaces stays allocated: keep a pointer to it and free it.
 * - Nobody frees the earlier values of a key that comes several times in one file; they stay allocated until the process
 *   ends. To read a file again, call cfg_destory first.
 * - cfg_destory frees EVERY value. First set those to null that are still literals or somebody else's:
 *
 *     for (i = 0; i < rows; i++)
 *       if (table[i].value == defaults[i])
 *         table[i].value = NULL;
 *     cfg_destory(table, rows);
 *
 * White space is what isspace(3) says in the process's locale. Nothing is traced. All functions are safe from any
 * thread that works on a table of its own.
 */
#ifndef TORVANE_CFG_H
#define TORVANE_CFG_H

#include <stdint.h>
#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* A row of the caller's table: one key that is expected, and its value once a file has set it. */
typedef struct CfgEntry {
  uint32_t tag;    /* the caller's own; not looked at */
  const char *key; /* the caller's; a row whose key is null is never found */
  char *value;     /* null or a default of the caller's; from malloc once a file has set it */
} CfgEntry;

/*
 * Reads a configuration file into a table.
 *
 *   path   the file
 *   table  the caller's. The values in it may be null, defaults of the caller's, or from an earlier call
 *   rows   rows of `table`
 *
 * Returns:
 *   0  read; lines without "=" make no difference to the result
 *   1  `path` is null
 *   3  the file cannot be opened. A directory can be opened and counts as empty, like a file that cannot be read
 *   4  `table` is null, whatever `path` is
 *   5  read, and at least one key was not in the table
 *
 * If several rows have the same key, the first is set. If a key comes again, in this file or in another one read into
 * the same table, the later value replaces the earlier, which is NOT freed. Rows whose key does not come stay as they
 * are.
 *
 * The function goes on to the end of the file whatever it meets, and writes:
 *   on standard error   "parsing error file, line %d : %s\n" with the line's number, counted from 1, and the text of a
 *                       line without "=", or a key that is not in the table
 *   on standard output  "[cfg_parse_file::131] cannot alloc memory\n" when memory runs out for a value; the row stays
 *                       as it was, and the result does not tell
 */
int cfg_construct(const char *path, CfgEntry *table, int rows);

/*
 * Reads configuration lines from an open stream into a table, from where the stream stands to its end.
 *
 *   file   the stream; it stays open
 *   table  the caller's. The values in it may be null, defaults of the caller's, or from an earlier call
 *   rows   rows of `table`
 *
 * Returns:
 *   0  read; lines without "=" make no difference to the result
 *   3  `file` is null
 *   4  `table` is null, whatever `file` is
 *   5  read, and at least one key was not in the table
 *
 * If several rows have the same key, the first is set. If a key comes again, here or in another file read into the same
 * table, the later value replaces the earlier, which is NOT freed. Rows whose key does not come stay as they are.
 *
 * The function goes on to the end of the stream whatever it meets, and writes:
 *   on standard error   "parsing error file, line %d : %s\n" with the line's number, counted from 1 where the reading
 *                       began, and the text of a line without "=", or a key that is not in the table
 *   on standard output  "[cfg_parse_file::131] cannot alloc memory\n" when memory runs out for a value; the row stays
 *                       as it was, and the result does not tell
 */
int cfg_parse_file(FILE *file, CfgEntry *table, int rows);

/*
 * Frees the values of a table and sets them to null. The keys and the table itself stay the caller's.
 *
 *   table  its values are null or from malloc, none a literal; null does nothing
 *   rows   rows of `table`
 *
 * Returns 0.
 */
int cfg_destory(CfgEntry *table, int rows);

TORVANE_END

#endif
