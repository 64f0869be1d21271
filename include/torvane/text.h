/*
 * Text
 *
 * Two groups of functions: guards and escapers for text on its way to the shell, and small text functions. None of them
 * traces or keeps state, and any thread may call them. Character classes and cases are those of the process's locale,
 * which is plain ASCII unless the program calls setlocale. Each function takes time in proportion to the lengths of its
 * texts unless its description says otherwise.
 *
 * Text that came from a user must not reach a shell as it stands. Choose the guard in this order:
 *
 *   1. Refuse text that hasInjectionString reports wherever the program can refuse, and put accepted text in double
 *      quotes. A shell then runs nothing of it and passes it on as one word, except that it replaces "$NAME" and its
 *      like ("$1", "$$"). Without quotes the shell runs nothing either, but splits the text at blanks and tabs.
 *   2. Where refusing is not possible, escape the text with escapeShellCommand or SpecialCharConvert. Both are for
 *      arguments outside quotes, and both list the texts that they cannot protect.
 *
 *     if (hasInjectionString(host))
 *       return -1;
 *     __system(__FILE__, __LINE__, __func__, "ping -c 1 -- \"%s\"", host);
 *
 * None of the three looks at a "-" at the start, which turns an argument into an option. Put "--" before the text, or
 * check first that it is what it should be: an address, a number, a name.
 *
 * What this header says about shells comes from the library's tests: they give every text of one and two bytes, and
 * many longer ones, to dash, bash and the busybox shell in the C locale.
 */
#ifndef TORVANE_TEXT_H
#define TORVANE_TEXT_H

#include <stdint.h>
#include <string.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Tells whether a text holds something that a shell could run, and reports such a text on standard output.
 *
 *   text  text to check
 *
 * It looks for these characters, for newline and form feed, and for "$(" (a "$" alone may stay):
 *
 *   ` & " # * ? ~ > ^ < ) ( { } [ ] \ ; ' |
 *
 * Returns:
 *   1  the text holds one of them
 *   0  the text holds none, or `text` is null
 *
 * For result 1 it prints "[%s::%s::%d] Injection string: %s\n" on standard output, with "vemta_string",
 * "hasInjectionString", a source line and the text. In a CGI program standard output is the response: there the line
 * goes into the page, unescaped.
 */
int hasInjectionString(const char *text);

/*
 * Copies a text with a backslash before each character that has a meaning for the shell, so that the copy can stand as
 * an argument outside quotes.
 *
 *   text  text to copy
 *   dst   points to the pointer to the output. The output has at least twice the length of the text plus one byte; the
 *         caller zeroes it first, as no terminator is written. The pointer is not moved
 *
 * The characters are newline, form feed and these:
 *
 *   " # $ & ( ) * ; < > ? [ \ ] ^ ` { | } ~
 *
 * No other command runs, whatever the text holds. The shell passes the text on as it is, with these exceptions:
 *
 *   blank, tab     separate words: text that holds them becomes several arguments. Empty text, or text of nothing but
 *                  blanks and tabs, becomes no argument
 *   newline        is lost: the copy holds backslash-newline, which a shell removes
 *   single quote   ends the output, and what follows it is lost. If another single quote follows, nothing more is
 *                  written. If none follows, a backslash and a quote are written once for each character from the quote
 *                  to the end of the text. Refuse text with a single quote first
 *
 * Returns:
 *   0  copied
 *   1  `text`, `dst` or the pointer that `dst` points to is null
 */
int escapeShellCommand(const char *text, char **dst);

/*
 * Copies bytes with a backslash before each special character, so that outside quotes the copy is one word.
 *
 *   src   `len` bytes; they need no terminator
 *   len   bytes to copy
 *   dst   receives the copy: a buffer that is ONE BYTE LARGER than `size`
 *   size  bytes of `dst` that are zeroed and filled; twice `len` or more when nothing may be cut. The function looks
 *         for room before each source byte, so a byte with its backslash may go one byte past `size`
 *
 * The special characters are the blank and these 25:
 *
 *   ` \ / ' " ; | ! @ $ ^ & ( ) = , : * ? < > [ ] { }
 *
 * The shell passes the text on as one word, with these exceptions. Refuse such text first; hasInjectionString reports
 * all of it except the tab and the empty text.
 *
 *   newline          ends the command: WHAT FOLLOWS IT IS RUN as the next command
 *   tab              separates words
 *   # at the start   makes the rest of the line a comment, including what stands after the text
 *   ~ at the start   makes the shell replace "~", "~NAME" and in bash "~+", "~-", "~0" by the path of a folder; "~/x"
 *                    stays as it is
 *   empty text       is no word at all
 *
 * Returns:
 *   -1            `size` is below `len` or negative, or a pointer is null; nothing is written
 *   other values  the number of bytes written
 */
int SpecialCharConvert(const char *src, int len, char *dst, int size);

/*
 * Tells whether a text consists of hexadecimal digits.
 *
 * Returns:
 *   1  every character is a hexadecimal digit, or the text is empty
 *   0  the text holds another character, or `text` is null
 */
int is_hex(const char *text);

/*
 * Tells whether a text consists of decimal digits.
 *
 * Returns:
 *   1  every character is a decimal digit, or the text is empty
 *   0  the text holds another character, or `text` is null
 */
int is_number(const char *text);

/* Returns how often the character `c` occurs in `text`; 0 when `text` is null. */
int num_delim(const char *text, char c);

/*
 * Returns how often a pattern occurs in a text, counted from left to right without overlaps: "aa" occurs 2 times in
 * "aaaa". It returns 0 when the pattern is empty or either argument is null.
 */
int num_delim_s(const char *text, const char *pattern);

/* Changes a text to lower case in place. A null `text` is ignored. */
void j_tolower(char *text);

/* Changes a text to upper case in place. A null `text` is ignored. */
void j_toupper(char *text);

/*
 * Returns the offset in bytes of the first occurrence of `pattern` in `text`, or 0xFFFFFFFF when there is none or
 * either argument is null.
 */
unsigned strpos(const char *text, const char *pattern);

/*
 * Replaces every occurrence of a pattern in place.
 *
 *   text         text to change, in a buffer with room for the result: 4096 bytes are always enough
 *   pattern      text to look for
 *   replacement  text to put in its place
 *
 * Returns null, always.
 *
 * Each pass replaces the first occurrence and looks again from the start of the text. It stops when there is no
 * occurrence left, or when the next result with its terminator would not fit 4096 bytes; the text then stays as the
 * last pass left it. A replacement that holds the pattern therefore grows the text up to that size. A null argument, an
 * empty pattern, or a replacement equal to the pattern changes nothing.
 *
 * A pass takes time in proportion to the length of the text, and there is one pass for each occurrence, also for those
 * that replacements complete. There may be as many as the square of the length: replacing "ab" by "ba" in 4000 bytes of
 * a's and b's takes millions of passes.
 */
char *j_replace(char *text, const char *pattern, const char *replacement);

#if !defined(__USE_GNU) || !defined(__CORRECT_ISO_CPP_STRING_H_PROTO) /* else <string.h> has it once per constness */
/*
 * Finds the first place where a text holds a pattern, without regard to case.
 *
 *   text     text to search
 *   pattern  text to look for
 *
 * Returns a pointer into `text`, or null when there is no such place, the pattern is empty, or either argument is null.
 *
 * It takes at most as many steps as the text's length times the pattern's. The C library has a function of this name
 * too, which finds an empty pattern in every text; a program gets that one when the C library stands before this
 * library in its link order.
 */
char *strcasestr(const char *text, const char *pattern);
#endif

/* Frees a text that came from malloc, as free(3) does. A null `text` is ignored. */
void freeString(void *text);

/*
 * Copies a part of a text, without a terminator.
 *
 *   src    text of at least `end` bytes
 *   start  offset of the first byte to copy
 *   end    offset after the last byte to copy
 *   dst    receives the bytes
 *   size   bytes of `dst`
 *
 * Returns:
 *   the address `dst` as a number  copied
 *   `size`                         `end` is before `start`; this is looked at first, and nothing is copied
 *   1                              the bytes do not fit, `start` is negative, or a pointer is null; nothing is copied
 */
intptr_t substring(const char *src, int start, int end, char *dst, int size);

/*
 * Tells whether two texts differ.
 *
 * Returns:
 *   0  both texts are there and equal
 *   1  the texts differ, or at least one is null (also when both are)
 */
int j_strcmp(const char *a, const char *b);

/* Returns the lower-case hexadecimal digit of the low four bits of `value`. */
char to_hex(char value);

/*
 * Returns the value of a hexadecimal digit of either case. It reports no error: for any other character it returns that
 * character's lower-case code minus 87.
 */
char from_hex(char c);

TORVANE_END

#endif
