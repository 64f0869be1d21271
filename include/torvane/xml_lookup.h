/*
 * XML lookup
 *
 * Values of elements, found in any XML text.
 */
#ifndef TORVANE_XML_LOOKUP_H
#define TORVANE_XML_LOOKUP_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * The content of the first element `name` in an XML text. A plain search: attributes, comments, CDATA and nesting mean
 * nothing to it.
 *
 *   text  needs no root and no declaration
 *   dest  `size` bytes, all zeroed first. The content is copied as it stands, nested tags and markers included, and cut
 *         at `size` bytes. NO TERMINATOR is written after a content of `size` bytes or more: pass a size that is one
 *         less than that of a zeroed buffer. A size of 0 or less stores nothing
 *   name  up to 509 bytes; more are not looked at in the end tag, and more than 510 not in the start tag
 *
 * The start tag is "<" and the name, followed by a blank, "/" or ">" (a tab or newline there is not recognised). At the
 * first place in the text where "<" and the name stand, be it the start of a longer name, case does not matter; at all
 * later ones it does. The tag ends with the first ">", also one inside a value; if "/" stands before that, the element
 * is empty. The content reaches to the first "</" with the name in the same case, also one of a nested element or of a
 * longer name ("</ifname>" ends "if").
 *
 * So: `if` in "<ifname>x</ifname><if>y</if>" gives "y"; `name` in "<Name>v</Name>" is not found, as its end has another
 * case; `<name/>` and `<name attr="1"/>` are found, with nothing in `dest`.
 *
 * Returns 1 when it was found. Returns 0, with `dest` zeroed, when there is no such element, its start tag does not end
 * before the text does, or it has no end tag; and 0, with `dest` as it was, for a null argument.
 */
int _get_element_value(const char *text, char *dest, int size, const char *name);

/*
 * The content of the element at a path of names with "/" between them, as _get_element_value: "wancfg/ifname" is the
 * first `ifname` in the content of the first `wancfg`. There is no way back: when that `wancfg` has none, the second is
 * not tried. A "/" at the end is ignored; one at the start, or two in a row, find nothing in well-formed text.
 *
 * Returns 1 when every element was found. Returns 0, tracing nothing, when one was not (`dest` is zeroed if it was the
 * last one, and else as it was) or an argument is null; and 0, tracing "cannot alloc memory, return error\n", without
 * memory: it takes a copy of the path and, for each "/", one of the content so far, two of them at a time.
 */
int get_element_value(const char *text, char *dest, int size, const char *path);

TORVANE_END

#endif
