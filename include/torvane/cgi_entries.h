/*
 * CGI entries
 *
 * What a handler does with a request: query strings and form bodies split into entries, handlers found by name, percent
 * and base64 coding, and paths that stay below their root. Nothing here traces or keeps state: any thread, on data of
 * its own. Times are linear in the lengths of the texts.
 *
 * Decoding makes text; it makes no text safe. Decoded values may hold any byte, control characters and quotes included:
 * check or escape them for where they go (a page: j_html_enc, a command: hasInjectionString, a file: rm_dotdot).
 */
#ifndef TORVANE_CGI_ENTRIES_H
#define TORVANE_CGI_ENTRIES_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * One name and its value. Both are cut to what is stored of them: 64 and 512 characters. The splitting functions write
 * no terminators, so set the whole array to zero first; then both are terminated texts.
 */
typedef struct cgi_entry {
  char name[65];
  char value[519];
} cgi_entry;

/* A handler by its name. A table ends with a row whose `func` is null, or whose name is null or "unknow". */
typedef struct cgi_handler {
  const char *name;
  void *(*func)(void *);
} cgi_handler;

/*
 * Splits "name=value&name=value" into entries and decodes the values.
 *
 *   entries   `capacity` records, zeroed by the caller
 *   len       bytes of `data`, which needs no terminator; 0 or less is an empty text
 *
 * "=" begins the value and "&" the next entry. A second "=" in an entry begins the value again, over what is there:
 * "a=12345=xy" gives "xy345". Names are not decoded. What is longer than a field is dropped without a word, so what was
 * coded may be cut in the middle of a "%XX". Values are decoded after they are cut:
 *
 *   +              a blank
 *   %XX            0 to 7 as first digit: that byte. c or d, e, f: a character of two, three or four bytes, whose other
 *                  bytes follow as "%XX" each, where the "%" itself is not looked at. When one of these is missing, and
 *                  for 8, 9, a or b as first digit, the three characters "%XX" give nothing
 *   % at the end   dropped, also with one character after it (then that one is kept); but when there is nothing else to
 *                  decode in it, the whole value stays as it is, "%" included
 *
 * Digits are not checked: other characters than digits make some byte, or nothing where their code is that of "8" or
 * above and they are none of c to f. "%00" makes a zero byte, at which the value ends for whoever reads it as text.
 *
 * Returns the number of entries, at least 1: an empty text makes one empty entry. When bytes are left after `capacity`
 * entries, prints "[bug on], index=%d, max_entries=%d\n" (twice the capacity) on standard output, and returns the
 * capacity WITHOUT having decoded anything. In a CGI program that line goes into the response: count first (num_delim
 * with "&", on text without zero bytes). 0 when `entries` is null, `data` is null and `len` above 0, or the
 * capacity is 0 or less.
 */
int data_2_entries(cgi_entry *entries, int capacity, int len, const char *data);

/*
 * Splits "name:value,name:value" (login data) into entries, as data_2_entries with ":" and "," for "=" and "&", but
 * decodes nothing and knows no capacity.
 *
 *   entries   zeroed by the caller, AT LEAST ONE MORE than there are commas in `data`: count them first
 *
 * Returns the number of entries, which is the number of commas plus one; 0 when `entries` is null, or `data` is null
 * and `len` above 0.
 */
int data_2_authinfo(cgi_entry *entries, int len, const char *data);

/* The first of `count` entries with exactly this name; null when there is none, or for a null array or name. */
cgi_entry *get_entry_by_name(cgi_entry *entries, int count, const char *name);

/* The value of that entry, in the array; null when there is none. */
char *get_entry_value_by_name(cgi_entry *entries, int count, const char *name);

/*
 * A copy of a value straight from a query string: of what stands between one character after the first place where
 * `name` occurs ANYWHERE in the query, and the next "&" or the end. The name "id" is also found in "uid=7" and in
 * "x=idle", and the one character passed over need not be a "=". Not decoded. Prefer data_2_entries for what comes
 * from outside.
 *
 * Returns text that the caller frees (free); empty when the query ends with the name. Null when the name does not
 * occur, either argument is null, or there is no memory.
 */
char *get_entry_value(const char *query, const char *name);

/*
 * Prints entries on standard output: the line "============= dump entries =================", "name=%16s, val=%s\n" for
 * each, and a line of 44 "=". Not into a page: nothing is escaped. Null prints nothing.
 */
void dump_entries(const cgi_entry *entries, int count);

/*
 * Finds a handler by its exact name. Returns the ADDRESS of the `func` field of the first row that has it, to be called
 * through; null when no row before the end of the table has it, or for a null table or name.
 *
 *   void *(**handler)(void *) = (void *(**)(void *))get_cgi_func_ptr(table, name);
 *   if (handler)
 *     (*handler)(request);
 */
void *get_cgi_func_ptr(const cgi_handler *table, const char *name);

TORVANE_END

#endif
