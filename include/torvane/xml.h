/*
 * XML
 *
 * Documents built in memory and printed to a stream or a heap buffer; documents that a program writes itself and takes
 * as a buffer; and a search for the value of an element in any XML text. There is no parser.
 *
 *   xml_doc *doc = xmlNewDoc();
 *   doc->root = xmlNewNode("wancfg");
 *   xml_node *ifname = xmlAddChild(doc->root, xmlNewNode("ifname"));
 *   xmlAddText(ifname, xmlNewText("abcd"));
 *   xmlAddAttr(ifname, "id", "atm0");
 *   char *text = xmlPrepareBuf(doc);
 *   xmlFreeDoc(doc);
 *   char value[64] = "";
 *   get_element_value(text, value, sizeof(value) - 1, "wancfg/ifname");   // "<![CDATA[]]><![CDATA[abcd]]>"
 *   xmlFreeBuf(text);
 *
 * Texts, names and values are copied in. The tree owns its strings and every record linked into it; xmlFreeDoc frees
 * all of it. Lack of memory gives null (xmlAddAttr: no change) and is reported nowhere; the functions that take a node,
 * a text or a document take null for one and do nothing, so a chain of calls needs no test in between, but what could
 * not be linked then stays the caller's.
 *
 * The printed form. `<?xml version="1.0"?>`, a newline, and for each element of the root's chain its block:
 *
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[TEXT]]></NAME>       an element with text, or TEXT empty without
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[                     an element with children: their blocks, one
 *           ...                                                     tab deeper, and the end in a line of its own
 *   ]]></NAME>                                                      at the depth of the start
 *
 * A block ends with a newline and is indented with one tab for each level (tabCnt). Names and values are written as
 * they stand: quotes, "&" and angle brackets in them are the caller's business. In TEXT each "]]>" is written as
 * "]]]]><![CDATA[>", and nothing else is changed.
 *
 * Who can read it. get_element_value can, whatever the depth, as long as no text or value holds what looks like a tag
 * that is asked for, and no value a ">". It returns the markers with the content: strip the 21 characters
 * "<![CDATA[]]><![CDATA[" at its start and the 3 characters "]]>" at its end, and turn "]]]]><![CDATA[>" back into
 * "]]>". A parser of XML reads a document whose root has no children and no sibling, as long as names are XML names,
 * attributes have different names, values hold none of & < ", and texts are UTF-8 without control characters (other
 * than tab, newline and carriage return); it then finds the text as it was given, save that a carriage return, with or
 * without a newline behind it, comes as a newline. NO document in which an element has children is well-formed: the
 * children's start tags stand inside their parent's CDATA section, and their end tags outside. Nor is a document
 * without a root, or with a root that has siblings.
 *
 * Printing changes the tree: a text that held "]]>" is replaced by its escaped form, which the element owns from then
 * on and which holds as many "]]>" again. A second print, and xmlPrepareBuf is one, escapes it once more, and a reader
 * then finds the escaped form instead of the text. So print a document with such texts once, or give it the text again
 * (freeing the old record with its string) before the next time.
 *
 * While it prints, for every text that is not empty the printer writes "cnt = %d\n" with the number of "]]>" in it to
 * standard output, wherever the document itself goes, and when that is standard output too, in the middle of it: right
 * before the text. A CGI handler, whose standard output is the response, must send it elsewhere while it prints.
 *
 * Names. xmlNewDoc, xmlNewNode, xmlNewText, xmlAddChild and xmlFreeDoc are functions of libxml2 too, others altogether:
 * no source file can include both headers, and in a program that loads both libraries each name is that of the one
 * linked first. Keep them in different programs.
 *
 * Threads. tabCnt has no lock: print from one thread at a time. One tree is used by one thread at a time. The lookup
 * functions may be called from any thread. Printing and freeing use stack for each level of depth.
 */
#ifndef TORVANE_XML_H
#define TORVANE_XML_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct xml_text {
  char *text; /* from malloc */
} xml_text;

typedef struct xml_attr {
  char *name;  /* from malloc */
  char *value; /* from malloc */
  struct xml_attr *next;
} xml_attr;

typedef struct xml_node {
  char *name;                /* from malloc */
  xml_text *text;            /* or null */
  xml_attr *attrs;           /* first attribute */
  xml_attr *attrs_tail;      /* last attribute */
  struct xml_node *children; /* first child */
  struct xml_node *next;     /* next sibling */
  struct xml_node *last;     /* in a first child: the last of its siblings; elsewhere of no meaning */
} xml_node;

typedef struct xml_doc {
  const char *version; /* "1.0", a constant: never freed */
  xml_node *root;      /* null at first; the caller assigns it */
} xml_doc;

typedef struct xml_doc_file {
  const char *version; /* "1.0", a constant */
  FILE *fp;            /* where the caller writes; null when there is no file (any more) */
} xml_doc_file;

/* Depth at which the next element is printed, in tabs: 0 at the start, and again after each complete print. */
extern int tabCnt;

/* A new document without a root; null when there is no memory. The caller's, until xmlFreeDoc. */
xml_doc *xmlNewDoc(void);

/* A new element; null for a null or empty name, or without memory. The caller's, until it is linked. */
xml_node *xmlNewNode(const char *name);

/* A new text; null for a null text (an empty one is a text), or without memory. The caller's, until xmlAddText. */
xml_text *xmlNewText(const char *text);

/*
 * Makes `text` the element's text. One that was there before is forgotten and not freed: set a text once, or free the
 * old record and its string first. An element that has children keeps them, and prints only them.
 */
void xmlAddText(xml_node *node, xml_text *text);

/*
 * Appends an attribute with copies of name and value. The order of calls is the order of output, and a name given twice
 * is written twice. A null argument, or no memory for any part of it, changes nothing.
 */
void xmlAddAttr(xml_node *node, const char *name, const char *value);

/*
 * Appends `child`, a single element that is linked nowhere else, to the children of `parent`, in constant time.
 *
 * Returns `child`; or null, nothing linked and the child still the caller's, when either is null or the parent has a
 * text: an element holds text or children, and a text cannot be followed by children.
 */
xml_node *xmlAddChild(xml_node *parent, xml_node *child);

/* Writes `count` tabs, none for 0 and less, to `stream`, or to standard output when it is null. */
void printTabs(FILE *stream, int count);

/*
 * Prints the document, or its first line alone when it has no root, to `stream`, or to standard output when it is null.
 * The stream stays open and unflushed; whether all was written the caller asks it (ferror, fflush). A null document
 * prints nothing. Changes texts and writes to standard output as told above; when there is no memory for the escaped
 * form of a text, the output is the same and the text stays as it was.
 */
void printfXmlDoc(FILE *stream, const xml_doc *doc);

/*
 * Prints the document into a buffer, by way of the file "/var/xml_SECONDS" with the time of day in whole seconds, which
 * is made or emptied, read back and removed. Two calls in one second, of any threads or processes, use the same file:
 * hold a lock around it where that can be.
 *
 * Returns the document with a terminator, to be freed with xmlFreeBuf; or null
 *   - for a null document, or when the file cannot be opened;
 *   - when it cannot be written whole (a full /var); the file is removed;
 *   - without memory for the buffer; then the file stays on disk, and open: one descriptor is lost.
 */
char *xmlPrepareBuf(const xml_doc *doc);

/* Frees a buffer of xmlPrepareBuf or xmlFileToBuf; null is ignored. */
void xmlFreeBuf(char *buf);

/* Frees the document and all that is linked into it; null is ignored. */
void xmlFreeDoc(xml_doc *doc);

/*
 * A document that the caller writes as text: a temporary file (tmpfile(3), without a name; it is closed on exec),
 * into which `<?xml version="1.0"?>`, a newline, "<root>" and a newline have been written. The caller writes its
 * elements to `fp`, then calls xmlFileToBuf.
 *
 * Returns the record, with a null `fp` when the file cannot be made; null without memory for it. To be freed with
 * xmlFreeDocFile.
 */
xml_doc_file *xmlNewDocFile(void);

/*
 * Frees the record and not its file: a document that is given up without (a successful) xmlFileToBuf needs its `fp`
 * closed first. Null is ignored.
 */
void xmlFreeDocFile(xml_doc_file *doc);

/*
 * Ends the document with "</root>", without a newline, and reads it into a buffer.
 *
 *   len  receives the length in bytes, without the terminator
 *
 * Returns the buffer, to be freed with xmlFreeBuf; the file is closed and `fp` null from then on. Or null, with `*len`
 * as it was and the file still open: when the file could not be written whole, or without memory; and, with nothing
 * done, when an argument or `fp` is null. A second attempt would end the document twice.
 */
char *xmlFileToBuf(xml_doc_file *doc, unsigned *len);

/*
 * An example that runs: builds a small document, prints it to "output.txt" in the working directory and to a buffer,
 * and prints "buf=%s\n" with that to standard output, after the four "cnt = 0\n" of the two prints. Returns 0; or 1
 * when the file cannot be opened, or there is no buffer: then it prints "internal error in xmlPrepareBuf.\n" instead.
 */
int xml_test_main(void);

TORVANE_END

#endif
