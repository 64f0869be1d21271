/*
 * CGI responses
 *
 * Text on its way to the browser: HTML escaping, flat XML replies, and scripts that send the browser to another page.
 *
 *   char escaped[6 * 64 + 1] = "";
 *   j_html_enc(hostname, escaped, sizeof(escaped));
 *   printf("<td>%s</td>", escaped);
 *
 * All functions write to a buffer of the caller's. `size` is always the whole size of the buffer in bytes; source and
 * destination do not overlap. Nothing here allocates, prints or keeps state, and times are linear in the lengths of the
 * texts. Any thread may call the functions.
 */
#ifndef TORVANE_CGI_RESPONSE_H
#define TORVANE_CGI_RESPONSE_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Escapes text for HTML and XML, attribute values in quotes included: < > & " ' become &lt; &gt; &amp; &quot; &apos;.
 *
 *   src    the text
 *   dst    zeroed by the caller: plain characters are written without a terminator, entities with one
 *   size   bytes of `dst`; six times the length of the text plus one is always enough
 *
 * Returns:
 *   0  written, also when the text was cut
 *   1  a pointer is null or `size` is below 1; nothing is written
 *
 * The function stops before a character when `size` - 1 bytes are written, and never writes past `size`. An entity that
 * does not fit whole is cut and terminated, and nothing is written after it: with too little room the result may end in
 * half an entity ("&am").
 */
int j_html_enc(const char *src, char *dst, int size);

/*
 * Turns the entities &lt; &gt; &amp; &quot; &apos; into the characters that they stand for, once: &amp;lt; becomes
 * &lt;. Other entities and a lone & are copied.
 *
 *   src    the text
 *   dst    zeroed by the caller, because no terminator is written; only the first four bytes (all of a smaller buffer)
 *          are zeroed here
 *   size   bytes of `dst`; at most `size` - 1 characters are written
 *
 * Returns:
 *   0  written, also when the text was cut
 *   1  a pointer is null or `size` is below 1; nothing is written
 */
int j_html_dec(const char *src, char *dst, int size);

/*
 * Builds "<?xml version="1.0"?><root><tag>value</tag>...</root>" in one buffer over several calls.
 *
 *   buf     the text so far. It needs nothing before the first call
 *   size    bytes of `buf`
 *   tag     element name; written as it is
 *   value   its text; written as it is, so escape it first (j_html_enc). When tag or value is null, no element is added
 *   mode    0 for the first call (starts the text), 2 for the last (ends it with "</root>"), 1 in between. One element
 *           alone takes two calls: one of them with a null tag
 *
 * An element that is too long:
 *   - By exactly one byte, its terminator's: traces "buffer overflow.\n" and leaves the text as it was. If this was the
 *     last call, the text stays without its end.
 *   - By more: the element is cut to the room in silence.
 * When the end has no room, traces "buffer overflow.\n" and leaves it out. So a document that does not end in "</root>"
 * is broken: look before sending it.
 *
 * A buffer whose text is already as long as `size`, without a terminator, is left alone. A null buffer traces
 * "Null point, buf=%p, tag=%p, val=%p\n".
 */
void gen_xml(char *buf, int size, const char *tag, const char *value, int mode);

/*
 * Writes the page that sends the browser to a URL: "<script>location.replace('%s');</script>".
 *
 *   url   where to go
 *   dst   receives the script. All of it is set to zero first; a script that does not fit is cut and terminated
 *   size  bytes of `dst`
 *
 * A URL that holds a single quote or "</script>" (in small letters) is refused, and so are null pointers and a size
 * below 1: then `dst` stays as it was. Nothing else is screened. Backslashes, newlines, "</SCRIPT>", "<!--" and the URL
 * scheme "javascript:" pass, so check that a URL from outside is what it should be.
 */
void redirect_page(const char *url, char *dst, int size);

/*
 * Writes the page that sets the login cookie and sends the browser to a URL:
 * "<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('%s');</script>".
 *
 *   url   where to go. It is NOT screened: pass one of your own
 *   dst   receives the script. All of it is set to zero first; a script that does not fit is cut and terminated
 *   size  bytes of `dst`
 *
 * Null pointers and a size below 1 change nothing.
 */
void redirect_index_page(const char *url, char *dst, int size);

/*
 * Writes the page that sends the browser to the page that counts down:
 * "<script>location.replace('countdown.asp?page=%s&count=%d');</script>".
 *
 *   page    what to show after that. It is NOT screened and not percent-coded: pass one of your own
 *   dst     receives the script. All of it is set to zero first; a script that does not fit is cut and terminated
 *   size    bytes of `dst`
 *   count   seconds
 *
 * Null pointers and a size below 1 change nothing.
 */
void redirect_to_countdown_page(const char *page, char *dst, int size, int count);

TORVANE_END

#endif
