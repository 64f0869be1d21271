/*
 * Word tables
 *
 * Texts by number from a file of lines "NUMBER[m]=TEXT" (kind 0) and "NUMBER[d]=TEXT" (kind 1):
 *
 *   ; buttons
 *   12[m]=Save
 *   12[d]=Writes the settings to flash
 *
 *   char label[64] = "";
 *   get_words("/etc/words", 12, 0, label, sizeof(label));   // "Save"
 *
 * A line that begins with a newline, a blank, ";" or "#" is skipped. Every other line must have "=", also one that is
 * a lone carriage return. The text is all after the first "=", without the newline at its end; a carriage return there
 * stays. The text may be empty, and a zero byte ends the text of its line.
 *
 * A line has at most 4094 characters. Of a longer one, each 4095 bytes are taken for a line of their own.
 *
 * A process has one file: the first lookup opens it, and it is kept open. Every lookup reads the file from its start.
 * Use the functions from one thread at a time. All messages go to standard output; nothing is traced.
 */
#ifndef TORVANE_WORDS_H
#define TORVANE_WORDS_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * The open file. It is null until the first lookup.
 *
 * After a malformed line or close_fp it keeps the handle that was closed. Nothing may read, write or close that handle;
 * the library does not, and every later lookup gives 0.
 *
 * A program that wants to start over, with this file or another, sets str_fp to null. A child of fork(2) does so too,
 * because it shares the place in the file with its parent.
 */
extern FILE *str_fp;

/*
 * Copies the text of a number to a buffer.
 *
 *   path  the file. It is opened if no lookup has opened one before; otherwise its name is only checked for being there
 *         and not empty
 *   num   the number
 *   kind  0 for "[m]", 1 for "[d]"; any other value looks up the empty key, a line "=TEXT"
 *   dst   receives the text; it is left alone when no text is found
 *   size  bytes of `dst`. A longer text is cut to `size` - 1 characters, and terminated. With 0 or less nothing is
 *         written
 *
 * Returns the length of the whole text in bytes, however much of it fitted, or 0 when the text was not found. After
 * a message it returns the length of that message, which cannot be told from the length of a text:
 *   "Unknown file name (%s).\n"         `path` is null ("(null)") or empty
 *   "buf is NULL\n"                     `dst` is null
 *   "Cannot open string file (%s)\n"    the file cannot be opened; the next lookup tries again
 *   "Parsing failed at line: %d \n"     a line without "=" came before the wanted one; lines are counted from 1. The
 *                                       file is closed, and this and every later lookup has failed (see str_fp)
 * So zero `dst` first, and take an empty text for not found.
 *
 * If several lines have the same key, the first one counts. Use it from one thread at a time.
 */
int get_words(const char *path, int num, int kind, char *dst, int size);

/*
 * Prints the text of a number on standard output, without a newline.
 *
 *   path  the file. It is opened if no lookup has opened one before; otherwise its name is only checked for being there
 *         and not empty
 *   num   the number
 *   kind  0 for "[m]", 1 for "[d]"; any other value looks up the empty key, a line "=TEXT"
 *
 * Returns the number of bytes printed, or 0 when the text was not found. After a message it returns the length of that
 * message, which cannot be told from the length of a text:
 *   "Unknown file name (%s).\n"         `path` is null ("(null)") or empty
 *   "Cannot open string file (%s)\n"    the file cannot be opened; the next lookup tries again
 *   "Parsing failed at line: %d \n"     a line without "=" came before the wanted one; lines are counted from 1. The
 *                                       file is closed, and this and every later lookup has failed (see str_fp)
 *
 * If several lines have the same key, the first one counts. Use it from one thread at a time.
 */
int show_words(const char *path, int num, int kind);

/*
 * Closes the file if it is open. str_fp keeps its value, and every later lookup gives 0 until the program sets str_fp
 * to null.
 */
void close_fp(void);

TORVANE_END

#endif
