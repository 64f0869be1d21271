/*
 * CGI entries
 *
 * What a handler does first with a request: it splits a query string or a form body into entries, looks up their
 * values, and finds the handler that a name asks for. A GET request with "page=wan&id=7":
 *
 *   cgi_entry entries[16] = {0};
 *   if (num_delim(query, '&') >= 16)   // torvane/text.h
 *     return;
 *   int count = data_2_entries(entries, 16, strlen(query), query);
 *   const char *page = get_entry_value_by_name(entries, count, "page");   // "wan"
 *
 * Decoding makes text; it makes no text safe. Decoded values may hold any byte, control characters and quotes included:
 * check or escape them for where they go. For a page that is j_html_enc (torvane/cgi_response.h), for a command
 * hasInjectionString (torvane/text.h), for a file rm_dotdot (torvane/cgi_path.h).
 *
 * Nothing here traces or keeps state, so any thread may call the functions on data of its own. Times are linear in the
 * lengths of the texts.
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
 *   capacity  number of records
 *   len       bytes of `data`; 0 or less is an empty text
 *   data      the text; it needs no terminator
 *
 * Returns the number of entries, at least 1: an empty text makes one empty entry, and so does an "&" at the end for
 * which there is a record. Returns instead:
 *   `capacity`  bytes are left after that many entries; NOTHING has been decoded then
 *   0           `entries` is null, `data` is null and `len` above 0, or the capacity is 0 or less
 *
 * When bytes are left after the last record, prints "[bug on], index=%d, max_entries=%d\n" on standard output: twice
 * the capacity, or 0 and the capacity if that is below 0. In a CGI program this line goes into the response, so count
 * first: one more than the "&" that num_delim (torvane/text.h) counts, in text without zero bytes.
 *
 * "=" begins the value and "&" the next entry. A second "=" in an entry begins the value again, over what is there:
 * "a=12345=xy" gives "xy345". Names are not decoded. What is longer than a field is dropped without a word. Values are
 * decoded after they are cut, so a "%XX" may be cut in the middle. The codes:
 *
 *   +              a blank
 *   %XX            With 0 to 7 as first digit: that byte. With c or d, e, f: a character of two, three or four bytes,
 *                  whose other bytes follow as "%XX" each, where the "%" itself is not looked at. When one of these is
 *                  missing, and with 8, 9, a or b as first digit, the three characters "%XX" give nothing
 *   % at the end   dropped, also with one character after it (then that one is kept); but when there is nothing else to
 *                  decode in it, the whole value stays as it is, "%" included
 *
 * Digits are not checked. Other characters than digits make some byte, or nothing if their code is that of "8" or above
 * and they are none of c to f. "%00" makes a zero byte; read as a text, the value ends there.
 */
int data_2_entries(cgi_entry *entries, int capacity, int len, const char *data);

/*
 * Splits "name:value,name:value" (login data) into entries. Nothing is decoded.
 *
 *   entries   zeroed by the caller, AT LEAST ONE MORE than there are commas in `data`: the function knows no capacity,
 *             so count the commas first
 *   len       bytes of `data`; 0 or less is an empty text
 *   data      the text; it needs no terminator
 *
 * Returns the number of entries, which is the number of commas plus one; or 0 when `entries` is null, or `data` is null
 * and `len` above 0.
 *
 * ":" begins the value and "," the next entry. A second ":" in an entry begins the value again, over what is there:
 * "a:12345:xy" gives "xy345". What is longer than a field is dropped without a word.
 */
int data_2_authinfo(cgi_entry *entries, int len, const char *data);

/*
 * Returns the first of `count` entries with exactly this name, in the array; null when there is none, or for a null
 * array or name.
 */
cgi_entry *get_entry_by_name(cgi_entry *entries, int count, const char *name);

/*
 * Returns the value of the first of `count` entries with exactly this name. The text is part of the array. Returns null
 * when there is no such entry, or for a null array or name.
 */
char *get_entry_value_by_name(cgi_entry *entries, int count, const char *name);

/*
 * Copies a value straight from a query string, without decoding it. For a query that comes from outside, prefer
 * data_2_entries.
 *
 *   query  the query string
 *   name   what to look for
 *
 * The function looks for the first place where `name` occurs ANYWHERE in the query, passes over one character after it,
 * and copies what stands from there to the next "&" or the end. So the name "id" is also found in "uid=7" and in
 * "x=idle", and the one character passed over need not be a "=".
 *
 * Returns a text that the caller frees (free). It is empty when the query ends with the name. Returns null when the
 * name does not occur, either argument is null, or there is no memory.
 */
char *get_entry_value(const char *query, const char *name);

/*
 * Prints entries on standard output: the line "============= dump entries =================", "name=%16s, val=%s\n" for
 * each of `count` entries, and a line of 44 "=". Do not use it in a page: nothing is escaped. Null prints nothing.
 */
void dump_entries(const cgi_entry *entries, int count);

/*
 * Finds a handler by its exact name.
 *
 *   table  rows up to the one that ends the table (see cgi_handler)
 *   name   the name that is wanted
 *
 * Returns the ADDRESS of the `func` field of the first row with that name, to be called through; null when no row
 * before the end of the table has it, or for a null table or name.
 *
 *   void *(**handler)(void *) = (void *(**)(void *))get_cgi_func_ptr(table, name);
 *   if (handler)
 *     (*handler)(request);
 */
void *get_cgi_func_ptr(const cgi_handler *table, const char *name);

TORVANE_END

#endif
