/*
 * XML lookup
 *
 * The value of an element, found in any XML text by a plain search for its tags:
 *
 *   char value[64] = "";
 *   get_element_value("<lan><if>eth0</if></lan>", value, sizeof(value) - 1, "lan/if");   // "eth0"
 *
 * Attributes, comments, CDATA sections and nesting mean nothing to the search. A value in a document that
 * torvane/xml.h printed comes with its CDATA markers; that header says how to strip them.
 *
 * The functions keep no state, and any thread may call them. A program may include this header beside those of libxml2.
 */
#ifndef TORVANE_XML_LOOKUP_H
#define TORVANE_XML_LOOKUP_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Copies the content of the first element with a given name out of an XML text.
 *
 *   text  the text; it needs no root and no declaration
 *   dest  receives the content as it stands, nested tags and markers included; it is zeroed first
 *   size  bytes of `dest`. A longer content is cut at that many, and NO TERMINATOR is written after a content of `size`
 *         bytes or more: pass a size that is one less than that of a zeroed buffer. A size of 0 or less stores nothing
 *   name  up to 509 bytes; more are not looked at in the end tag, and more than 510 not in the start tag
 *
 * Returns:
 *   1  found
 *   0  there is no such element, its start tag does not end before the text does, or it has no end tag; `dest` is
 *      zeroed. Or an argument is null; `dest` is as it was
 *
 * The start tag is "<" and the name, followed by a blank, "/" or ">"; a tab or newline there is not recognised. At the
 * first place in the text where "<" and the name stand, be it the start of a longer name, case does not matter; at all
 * later ones it does. The tag ends with the first ">", also one inside a value; if "/" stands directly before that, the
 * element is empty. The content reaches to the first "</" with the name in the same case, also that of a nested element
 * or of a longer name ("</ifname>" ends "if").
 *
 * So `if` in "<ifname>x</ifname><if>y</if>" gives "y". `name` in "<Name>v</Name>" is not found, because its end has
 * another case. `<name/>` and `<name attr="1"/>` are found, with nothing in `dest`.
 */
int _get_element_value(const char *text, char *dest, int size, const char *name);

/*
 * Copies the content of the element at a path out of an XML text. The path "wancfg/ifname" is the first `ifname` in the
 * content of the first `wancfg`; each name is looked for as _get_element_value says, whose limits hold here too.
 *
 *   text  the text; it needs no root and no declaration
 *   dest  receives the content as it stands, nested tags and markers included
 *   size  bytes of `dest`. A longer content is cut at that many, and NO TERMINATOR is written after a content of `size`
 *         bytes or more: pass a size that is one less than that of a zeroed buffer. A size of 0 or less stores nothing
 *   path  names with "/" between them. A "/" at the end is ignored; one at the start, or two in a row, find nothing in
 *         well-formed text
 *
 * Returns:
 *   1  every element was found
 *   0  an element was not found, memory ran out, or an argument is null. `dest` is zeroed if the last element of the
 *      path was the one that was not found, and else as it was
 *
 * There is no way back: when the first `wancfg` has no `ifname`, the second is not tried. Lack of memory traces
 * "cannot alloc memory, return error\n"; nothing else is traced. The function takes a copy of the path and, for each
 * "/", one of the content so far, two of them at a time.
 */
int get_element_value(const char *text, char *dest, int size, const char *path);

TORVANE_END

#endif
