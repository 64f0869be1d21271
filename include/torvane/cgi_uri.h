/*
 * URI and base64 coding
 *
 * Percent coding and base64.
 */
#ifndef TORVANE_CGI_URI_H
#define TORVANE_CGI_URI_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Characters that have to be percent-coded in a URI (29, no terminator), and at the same index the two hexadecimal
 * digits of each. For programs that code by themselves; nothing in the library reads them, and encodeURIComponent
 * leaves five of them alone.
 */
extern const char encoding_char[29];
extern const char *const encoding_code[29];

/*
 * Percent-codes every byte of `text` but ASCII letters, digits and - _ . ~ ! * ( ) '. Bytes above 7f are coded with
 * capital digits ("%C3"), ASCII characters with small ones ("%2f").
 *
 * Returns text that the caller frees (free); null for null or when there is no memory (it takes four times the length).
 */
char *encodeURIComponent(const char *text);

/*
 * Decodes percent-coded text. Not as values of entries are decoded:
 *
 *   +      stays
 *   %XX    is decoded only when both are hexadecimal digits (either case); any other "%" stays, as do the characters
 *          after it. 0 to 7 as first digit: that byte. c or d, e, f: a character of two, three or four bytes, whose
 *          other bytes are taken from the second and third of each three characters that follow, whatever these are.
 *          When the text ends before they are all there, and for 8, 9, a or b as first digit, the three characters
 *          "%XX" become a single "%"
 *
 * A zero byte ends the character that it is part of, and leaves nothing of itself: "a%00b" gives "ab". What
 * encodeURIComponent made of UTF-8 comes back as it was; other bytes above 7f may not.
 *
 * Returns text that the caller frees (free); null for null or when there is no memory.
 */
char *decodeURIComponent(const char *text);

/*
 * Base64 in the standard alphabet, padded with "=", without line breaks.
 *
 *   len    in: bytes of `data`; 0 takes it for a text and stores its length here. So 0 bytes can be coded only as ""
 *   data   any bytes
 *
 * Returns text that the caller frees (free); null when either pointer is null, the text of a 0 is longer than 4 GiB, or
 * there is no memory for the result.
 */
char *encode_base64(unsigned *len, const void *data);

TORVANE_END

#endif
