/*
 * Word tables
 *
 * Texts by number from a file of lines "NUMBER[m]=TEXT" (kind 0) and "NUMBER[d]=TEXT" (kind 1), for example
 * "12[m]=Save". Lines that begin with a newline, a blank, ";" or "#" are skipped; every other line must have "=", a
 * lone carriage return included. The text is all after the first "=", without the newline at its end (a carriage return
 * stays); it may be empty. Lines have at most 4094 characters: of a longer one, each 4095 bytes are taken for a line of
 * their own. A zero byte ends the text of its line.
 *
 * A process has one file, opened by the first lookup and kept open. Not for several threads at once. A lookup reads the
 * file from its start. All messages go to standard output; nothing is traced.
 */
#ifndef TORVANE_WORDS_H
#define TORVANE_WORDS_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * The open file; null until the first lookup. After a malformed line or close_fp it keeps the handle that was closed,
 * which nothing may read, write or close; the library does not, and every later lookup gives 0. A program that wants to
 * start over, with this or another file, sets it to null; so does a child of fork(2), which shares its place in the
 * file with the parent.
 */
extern FILE *str_fp;

/*
 * Copies the text of a number to `dst`.
 *
 *   path  the file; it is opened when no lookup has opened one before, and otherwise only must be there and not empty
 *   kind  0 for "[m]", 1 for "[d]"; any other value looks up the empty key, a line "=TEXT"
 *   size  bytes of `dst`; a longer text is cut to `size` - 1 characters, and terminated. With 0 or less nothing is
 *         written
 *
 * Of lines with the same key the first counts. `dst` is left alone unless a text was found.
 *
 * Returns the text's whole length in bytes, however much of it fitted, or 0 when it was not found; or, with a message
 * printed, the message's length, which cannot be told from that of a text:
 *   "Unknown file name (%s).\n"         `path` is null ("(null)") or empty
 *   "buf is NULL\n"                     `dst` is null
 *   "Cannot open string file (%s)\n"    the file cannot be opened; the next lookup tries again
 *   "Parsing failed at line: %d \n"     a line without "=" came before the wanted one; lines are counted from 1. The
 *                                       file is closed, and this and every later lookup has failed (see str_fp)
 * So zero `dst` first, and take an empty text for not found.
 */
int get_words(const char *path, int num, int kind, char *dst, int size);

/* As get_words, but prints the text on standard output, without a newline, and returns how many bytes that were. */
int show_words(const char *path, int num, int kind);

/* Closes the file when it is open; str_fp keeps its value. */
void close_fp(void);

TORVANE_END

#endif
