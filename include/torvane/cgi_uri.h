/*
 * URI and base64 coding
 *
 * Percent coding of text for URIs, its decoding, and base64. The results are new texts, which the caller frees (free).
 *
 * Decoding makes text; it makes no text safe. A decoded text may hold control characters and quotes: check or escape it
 * for where it goes. For a page that is j_html_enc (torvane/cgi_response.h), for a command hasInjectionString
 * (torvane/text.h), for a file rm_dotdot (torvane/cgi_path.h).
 *
 * Nothing here traces or keeps state, so any thread may call the functions on data of its own. Times are linear in the
 * lengths of the texts.
 */
#ifndef TORVANE_CGI_URI_H
#define TORVANE_CGI_URI_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * The 29 characters that have to be percent-coded in a URI, without a terminator. encoding_code has the code of each at
 * the same index. The table is for programs that code by themselves; nothing in the library reads it, and
 * encodeURIComponent leaves five of these characters alone.
 */
extern const char encoding_char[29];

/*
 * The two hexadecimal digits of each character in encoding_char, at the same index, in capitals ("2F"). The table is
 * for programs that code by themselves; nothing in the library reads it.
 */
extern const char *const encoding_code[29];

/*
 * Percent-codes a text for use as part of a URI. ASCII letters, digits and - _ . ~ ! * ( ) ' stay; every other byte is
 * coded. Bytes above 7f get capital digits ("%C3"), ASCII characters small ones ("%2f").
 *
 * Returns the coded text, which the caller frees (free); null for null, or when there is no memory. It takes four times
 * the length of the text.
 */
char *encodeURIComponent(const char *text);

/*
 * Decodes percent-coded text. The rules are not those of data_2_entries (torvane/cgi_entries.h):
 *
 *   +      stays
 *   %XX    is decoded only when both are hexadecimal digits of either case; any other "%" stays, as do the characters
 *          after it. With 0 to 7 as first digit: that byte. With c or d, e, f: a character of two, three or four bytes,
 *          whose other bytes are taken from the second and third of each three characters that follow, whatever these
 *          are. When the text ends before they are all there, and with 8, 9, a or b as first digit, the three
 *          characters "%XX" become a single "%"
 *
 * A zero byte ends the character that it is part of, and leaves nothing of itself: "a%00b" gives "ab". What
 * encodeURIComponent made of UTF-8 comes back as it was; other bytes above 7f may not.
 *
 * Returns the decoded text, which the caller frees (free); null for null, or when there is no memory.
 */
char *decodeURIComponent(const char *text);

/*
 * Codes bytes in base64: the standard alphabet, padded with "=", without line breaks.
 *
 *   len    bytes of `data`. A 0 takes `data` for a text and stores the length of that text here, so 0 bytes can only
 *          be coded as ""
 *   data   any bytes
 *
 * Returns the coded text, which the caller frees (free); null when either pointer is null, `*len` is 0 and the text has
 * 4 GiB or more, or there is no memory for the result.
 */
char *encode_base64(unsigned *len, const void *data);

TORVANE_END

#endif
