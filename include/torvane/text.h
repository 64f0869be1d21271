/*
 * Strings
 *
 * Guards and escapers for text on its way to the shell, and small text functions. Nothing here traces or keeps state;
 * any thread may call it. Character classes and cases are those of the process's locale (the plain ASCII ones unless
 * the program calls setlocale). Times are linear in the lengths of the texts unless a function says otherwise.
 *
 * Which guard: refuse text that hasInjectionString reports wherever a refusal is possible, and put what it accepts in
 * double quotes: a shell then passes it on as one word, but for "$NAME" and its like ("$1", "$$"), which it replaces,
 * and runs nothing. Without quotes nothing runs either, but blanks and tabs make several words of it. The two escapers
 * are for arguments outside quotes. None of the three looks at a "-" at the start, which makes an option of an
 * argument: put "--" before it, or test the text for what it should be (an address, a number, a name) first.
 *
 * The tests of the library give every text of one and two bytes and many longer ones to dash, bash and the busybox
 * shell (in the C locale); what is said below of the shell is what they found.
 */
#ifndef TORVANE_TEXT_H
#define TORVANE_TEXT_H

#include <stdint.h>
#include <string.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * 1 when `text` holds one of these, which it then also prints on standard output as "[%s::%s::%d] Injection string:
 * %s\n" with "vemta_string", "hasInjectionString", a source line and the text; else 0, also for null. In a CGI program
 * standard output is the response: there, the line goes into the page, unescaped.
 *
 *   ` & " # * ? ~ > ^ < ) ( { } [ ] \ ; ' |   newline, form feed, and "$(" (a "$" alone may stay)
 */
int hasInjectionString(const char *text);

/*
 * Copies `text` with a backslash before every character that the shell would take for its own (newline, form feed, and
 * " # $ & ( ) * ; < > ? [ \ ] ^ ` { | } ~), for use as arguments outside quotes. No other command runs, whatever the
 * text. The shell passes the text on as it is, with these exceptions:
 *
 *   blank, tab     separate words: text with these is several arguments, and text of nothing else, or empty, is none
 *   newline        goes: it comes out as backslash-newline, which a shell takes away
 *   single quote   the output ends at the first one. If another one follows it, nothing more is written; if not, a
 *                  backslash and a quote are written once for each character from there to the end. So what follows
 *                  is lost: refuse such text first
 *
 *   dst  points to the pointer to the output: at least twice the length of the text plus one byte, zeroed by the
 *        caller, as no terminator is written. The pointer is not moved
 *
 * Returns 0; or 1 when `text`, `dst` or the pointer there is null.
 */
int escapeShellCommand(const char *text, char **dst);

/*
 * Copies `len` bytes with a backslash before each of these 26 characters, so that outside quotes they make one word:
 *
 *   ` blank \ / ' " ; | ! @ $ ^ & ( ) = , : * ? < > [ ] { }
 *
 *   src   `len` bytes; needs no terminator
 *   size  bytes of `dst` that are zeroed and filled. Room is looked at before each source byte, so a byte with its
 *         backslash may go ONE BYTE PAST `size`: pass a buffer that is one byte larger than `size`, and twice `len`
 *         or more as `size` when nothing may be cut
 *
 * The shell passes the text on as one word, with these exceptions; refuse such text first (hasInjectionString does, but
 * for the tab and the empty text):
 *
 *   newline             ends the command: WHAT FOLLOWS IT IS RUN as the next one
 *   tab                 separates words
 *   # at the start      makes the rest of the line a comment, what stands after the text included
 *   ~ at the start      "~", "~NAME" and in bash "~+", "~-", "~0" are replaced by a folder's path; "~/x" is not
 *   empty text          no word at all
 *
 * Returns the number of bytes written; or -1, with nothing written, when `size` is below `len` or negative, or a
 * pointer is null.
 */
int SpecialCharConvert(const char *src, int len, char *dst, int size);

/* 1 when every character is a hexadecimal digit, or there is none; else 0, also for null. */
int is_hex(const char *text);

/* 1 when every character is a decimal digit, or there is none; else 0, also for null. */
int is_number(const char *text);

/* How often the character `c` occurs; 0 for null. */
int num_delim(const char *text, char c);

/*
 * How often `pattern` occurs, from left to right and without overlaps ("aa" is 2 times in "aaaa"); 0 when either is
 * null or the pattern is empty.
 */
int num_delim_s(const char *text, const char *pattern);

/* Change the text in place to lower or upper case; null is ignored. */
void j_tolower(char *text);
void j_toupper(char *text);

/* Offset in bytes of the first occurrence of `pattern`; 0xFFFFFFFF when there is none or either is null. */
unsigned strpos(const char *text, const char *pattern);

/*
 * Replaces every occurrence of `pattern` in place, the first one first, and looks again from the start of the text
 * after each, until there is none or the next result would not fit 4096 bytes with its terminator: then the text stays
 * as the pass before left it. A replacement that holds the pattern therefore grows the text up to that size.
 *
 *   text  in a buffer with room for the result: 4096 bytes are always enough
 *
 * A null argument, an empty pattern and a replacement equal to the pattern change nothing. Returns null, always. Each
 * pass is linear; there is one for each occurrence, those that replacements complete included, and of those there may
 * be as many as the square of the length ("ab" by "ba" in 4000 bytes of a's and b's: millions).
 */
char *j_replace(char *text, const char *pattern, const char *replacement);

/*
 * The first place in `text` where `pattern` stands, without regard to case; null when there is none, the pattern is
 * empty, or either is null. Takes at most text length times pattern length. Not the C library's function of that name,
 * which finds an empty pattern everywhere; that is the one a program gets when it is linked before this library.
 */
#if !defined(__USE_GNU) || !defined(__CORRECT_ISO_CPP_STRING_H_PROTO) /* else <string.h> has it once per constness */
char *strcasestr(const char *text, const char *pattern);
#endif

/* free(3); null is ignored. */
void freeString(void *text);

/*
 * Copies the bytes `start` up to, not including, `end` of `src` to `dst`, without a terminator.
 *
 *   src   holds at least `end` bytes
 *   size  bytes of `dst`
 *
 * Returns `size` when `end` is before `start`; 1, with nothing copied, when the bytes do not fit, `start` is negative
 * or a pointer is null; else the address `dst` as a number.
 */
intptr_t substring(const char *src, int start, int end, char *dst, int size);

/* 0 when both texts are there and equal, else 1 (also for two nulls). */
int j_strcmp(const char *a, const char *b);

/* The lower-case hexadecimal digit of the low four bits. */
char to_hex(char value);

/* The value of a hexadecimal digit of either case. For any other character its lower-case code minus 87: no error. */
char from_hex(char c);

TORVANE_END

#endif
