/*
 * CGI responses
 *
 * Text on its way to the browser, in buffers of the caller: nothing here allocates, prints or keeps state. `size` is
 * always the whole size of `dst` in bytes; source and destination do not overlap. Times are linear. Any thread.
 */
#ifndef TORVANE_CGI_RESPONSE_H
#define TORVANE_CGI_RESPONSE_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Escapes text for HTML and XML, attribute values in quotes included: < > & " ' become &lt; &gt; &amp; &quot; &apos;.
 *
 *   dst    zeroed by the caller: plain characters are written without a terminator, entities with one
 *   size   six times the length of the text plus one is always enough
 *
 * Before each character it stops if `size` - 1 bytes are written. An entity that does not fit whole is cut and
 * terminated, and nothing is written after it: with too little room the result may end in half an entity ("&am").
 * Never writes past `size`.
 *
 * Returns 0, also when the text was cut; 1, with nothing written, when a pointer is null or `size` is below 1.
 */
int j_html_enc(const char *src, char *dst, int size);

/*
 * The other way: &lt; &gt; &amp; &quot; &apos; become the characters they stand for, once (&amp;lt; becomes &lt;).
 * Other entities and a lone & are copied. Writes at most `size` - 1 characters.
 *
 *   dst    zeroed by the caller: no terminator is written; the first four bytes (of a smaller buffer, all) are zeroed
 *          here
 *
 * Returns 0, also when the text was cut; 1, with nothing written, when a pointer is null or `size` is below 1.
 */
int j_html_dec(const char *src, char *dst, int size);

/*
 * Builds "<?xml version="1.0"?><root><tag>value</tag>...</root>" in one buffer over several calls.
 *
 *   buf     the text so far; `size` bytes. It needs nothing before the first call
 *   tag     element name; written as it is
 *   value   its text; written as it is, so escape it first (j_html_enc). When either is null, no element is added
 *   mode    0 the first call (starts the text), 2 the last (ends it with "</root>"), 1 in between. One element alone
 *           takes two calls: one of them with a null tag
 *
 * When the element is exactly one byte too long, its terminator's, traces "buffer overflow.\n" and leaves the text as
 * it was, without its end when this was the last call. A longer one is cut to the room instead, in silence. When the
 * end has no room, traces "buffer overflow.\n" and leaves it out. So a document that does not end in "</root>" is
 * broken: look before sending it. A buffer whose text is already as long as `size`, without a terminator, is left
 * alone. A null buffer traces "Null point, buf=%p, tag=%p, val=%p\n".
 */
void gen_xml(char *buf, int size, const char *tag, const char *value, int mode);

/*
 * Writes the page that sends the browser elsewhere: "<script>location.replace('%s');</script>" with the URL. Sets all
 * of `dst` to zero first; a script that does not fit is cut and terminated.
 *
 * A URL that holds a single quote or "</script>" (in small letters) is refused, as are null pointers and a size below
 * 1: then `dst` stays as it was. Nothing else is screened. Backslashes, newlines, "</SCRIPT>", "<!--" and the URL
 * scheme "javascript:" pass; check a URL that came from outside for what it should be.
 */
void redirect_page(const char *url, char *dst, int size);

/*
 * The same with the login cookie set on the way: "<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('%s');
 * </script>" in one line. The URL is NOT screened: pass one of your own. Null pointers and a size below 1 change
 * nothing.
 */
void redirect_index_page(const char *url, char *dst, int size);

/*
 * To the page that counts down: "<script>location.replace('countdown.asp?page=%s&count=%d');</script>".
 *
 *   page    what to show after that; NOT screened and not percent-coded: pass one of your own
 *   count   seconds
 *
 * Null pointers and a size below 1 change nothing; else all of `dst` is set to zero first, and the script cut to it.
 */
void redirect_to_countdown_page(const char *page, char *dst, int size, int count);

TORVANE_END

#endif
