/*
 * XML
 *
 * Documents built in memory and printed to a stream or a heap buffer, and documents that a program writes itself and
 * takes as a buffer. There is no parser; torvane/xml_lookup.h searches XML text for the value of an element.
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
 * Texts, names and values are copied in. The tree owns its strings and every record linked into it, and xmlFreeDoc
 * frees all of it. Lack of memory gives null (xmlAddAttr: no change) and is reported nowhere. The functions that take
 * a node, a text or a document take null for one and do nothing, so a chain of calls needs no test in between; but what
 * could not be linked then stays the caller's.
 *
 * The printed form. First comes `<?xml version="1.0"?>` and a newline, then the block of each element of the root's
 * chain:
 *
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[TEXT]]></NAME>       an element with text; without one TEXT is empty
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[                     an element with children: their blocks, one
 *           ...                                                     tab deeper, and the end in a line of its own
 *   ]]></NAME>                                                      at the depth of the start
 *
 * A block ends with a newline and is indented with one tab for each level (tabCnt). Names and values are written as
 * they stand: quotes, "&" and angle brackets in them are the caller's business. In TEXT each "]]>" is written as
 * "]]]]><![CDATA[>", and nothing else is changed.
 *
 * Who can read it.
 *   - get_element_value (torvane/xml_lookup.h) can, whatever the depth, as long as no text or value holds what looks
 *     like a tag that is asked for, and no value a ">". It returns the markers with the content: strip the 21
 *     characters "<![CDATA[]]><![CDATA[" at its start and the 3 characters "]]>" at its end, and turn "]]]]><![CDATA[>"
 *     back into "]]>".
 *   - A parser of XML reads a document whose root has no children and no sibling, as long as names are XML names,
 *     attributes have different names, values hold none of & < ", and texts are UTF-8 without control characters (other
 *     than tab, newline and carriage return). It then finds the text as it was given, save that a carriage return, with
 *     or without a newline behind it, comes as a newline.
 *   - NO document in which an element has children is well-formed: the children's start tags stand inside their
 *     parent's CDATA section, and their end tags outside. Nor is a document without a root, or whose root has siblings.
 *
 * Printing changes the tree. A text that held "]]>" is replaced by its escaped form, which the element owns from then
 * on and which holds as many "]]>" again. A second print (xmlPrepareBuf is one) escapes it once more, and a reader then
 * finds the escaped form instead of the text. So print a document with such texts once, or give it the text again
 * before the next time, freeing the old record with its string.
 *
 * Printing writes to standard output. Right before every text that is not empty the printer writes "cnt = %d\n" to
 * standard output, with the number of "]]>" in the text, wherever the document itself goes. When the document goes to
 * standard output too, the line lands in the middle of it. A CGI handler, whose standard output is the response, must
 * send it elsewhere while it prints.
 *
 * Names. xmlNewDoc, xmlNewNode, xmlNewText, xmlAddChild and xmlFreeDoc are functions of libxml2 too, others altogether,
 * so no source file can include both headers. A program that needs libxml2 beside this library includes the headers of
 * the services that it uses, without torvane/xml.h (and so without <torvane.h>); the names in torvane/xml_lookup.h do
 * not clash. In a program that loads both libraries each of these names is that of the library linked first: link
 * libxml2 first, and keep the trees of this header in a different program.
 *
 * Threads. tabCnt has no lock: print from one thread at a time. One tree is used by one thread at a time.
 *
 * Depth. Printing takes stack for every level of elements: 5 bytes on a 32-bit machine and 10 on a 64-bit one, in steps
 * of 65 levels. Freeing takes none.
 */
#ifndef TORVANE_XML_H
#define TORVANE_XML_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* The text of an element. */
typedef struct xml_text {
  char *text; /* from malloc */
} xml_text;

/* One attribute of an element. */
typedef struct xml_attr {
  char *name;  /* from malloc */
  char *value; /* from malloc */
  struct xml_attr *next;
} xml_attr;

/* An element. It prints its children if it has any, and else its text. */
typedef struct xml_node {
  char *name;                /* from malloc */
  xml_text *text;            /* or null */
  xml_attr *attrs;           /* first attribute */
  xml_attr *attrs_tail;      /* last attribute */
  struct xml_node *children; /* first child */
  struct xml_node *next;     /* next sibling */
  struct xml_node *last;     /* in a first child: the last of its siblings; elsewhere of no meaning */
} xml_node;

/* A document that is built in memory. */
typedef struct xml_doc {
  const char *version; /* "1.0", a constant: never freed */
  xml_node *root;      /* null at first; the caller assigns it */
} xml_doc;

/* A document that the caller writes as text. */
typedef struct xml_doc_file {
  const char *version; /* "1.0", a constant */
  FILE *fp;            /* where the caller writes; null when there is no file (any more) */
} xml_doc_file;

/*
 * The depth at which the next element is printed, in tabs. It is 0 at the start, and 0 again after each complete print.
 * It has no lock.
 */
extern int tabCnt;

/*
 * Makes a document without a root; the caller assigns `root`. Returns the document, which is the caller's until
 * xmlFreeDoc; null when there is no memory.
 */
xml_doc *xmlNewDoc(void);

/*
 * Makes an element with a copy of the name. Returns the element, which is the caller's until it is linked into a tree;
 * null for a null or empty name, or when there is no memory.
 */
xml_node *xmlNewNode(const char *name);

/*
 * Makes a text record with a copy of the text; an empty text is a text. Returns the record, which is the caller's until
 * xmlAddText; null for a null text, or when there is no memory.
 */
xml_text *xmlNewText(const char *text);

/*
 * Makes `text` the element's text; the element owns it from then on. A null argument changes nothing.
 *
 * A text that was there before is forgotten and not freed: set a text once, or free the old record and its string
 * first. An element that has children keeps them, and prints only them.
 */
void xmlAddText(xml_node *node, xml_text *text);

/*
 * Appends an attribute with copies of name and value to an element. The order of calls is the order of output, and
 * a name given twice is written twice. A null argument, or no memory for any part of it, changes nothing.
 */
void xmlAddAttr(xml_node *node, const char *name, const char *value);

/*
 * Appends an element to the children of another, in constant time.
 *
 *   parent  an element without a text
 *   child   a single element that is linked nowhere else; the tree owns it from then on
 *
 * Returns `child`; or null when either is null or the parent has a text. Then nothing is linked and the child is still
 * the caller's. An element holds text or children, and a text cannot be followed by children.
 */
xml_node *xmlAddChild(xml_node *parent, xml_node *child);

/* Writes `count` tabs, none for 0 and less, to `stream`, or to standard output when `stream` is null. */
void printTabs(FILE *stream, int count);

/*
 * Prints a document to a stream. A document without a root is its first line alone; a null document prints nothing.
 *
 *   stream  where to print, or null for standard output. It stays open and unflushed; ask it whether all was written
 *           (ferror, fflush)
 *   doc     the document. The printer replaces each text that holds "]]>" by its escaped form, so print such a document
 *           once (see "Printing changes the tree" at the top of torvane/xml.h)
 *
 * Before every text that is not empty, writes "cnt = %d\n" to standard output. When there is no memory for the escaped
 * form of a text, the output is the same and the text stays as it was. Print from one thread at a time.
 */
void printfXmlDoc(FILE *stream, const xml_doc *doc);

/*
 * Prints a document into a buffer. The printer replaces each text that holds "]]>" by its escaped form, so print such
 * a document once (see "Printing changes the tree" at the top of torvane/xml.h).
 *
 * Returns the document with a terminator, to be freed with xmlFreeBuf; or null in these cases:
 *   - the document is null, or the file cannot be opened
 *   - the file cannot be written whole (a full /var); it is removed
 *   - there is no memory for the buffer; the file stays on disk, and open: one descriptor is lost
 *
 * The document passes through the file "/var/xml_SECONDS", with the time of day in whole seconds, which is made anew,
 * read back and removed. It is made as "/var/xml_SECONDS:new" and renamed, and takes the place of whatever is there, be
 * it a link or another user's file, without opening it; a directory stays, and the file cannot be made. It is closed on
 * exec, and never descriptor 0, 1 or 2. Two calls in one second, of any threads or processes, use the same names, and
 * one of them may fail: hold a lock around the call where that can be. Nobody but root should be able to write to /var.
 *
 * Before every text that is not empty, writes "cnt = %d\n" to standard output. Print from one thread at a time.
 */
char *xmlPrepareBuf(const xml_doc *doc);

/* Frees a buffer of xmlPrepareBuf or xmlFileToBuf. Null is ignored. */
void xmlFreeBuf(char *buf);

/* Frees a document and all that is linked into it. Null is ignored. */
void xmlFreeDoc(xml_doc *doc);

/*
 * Begins a document that the caller writes as text. The library makes a temporary file (tmpfile(3), without a name; it
 * is closed on exec, and never descriptor 0, 1 or 2) and writes `<?xml version="1.0"?>`, a newline, "<root>" and
 * a newline into it. The caller writes its elements to `fp`, then calls xmlFileToBuf.
 *
 * Returns the record, to be freed with xmlFreeDocFile. Its `fp` is null when the file cannot be made. Returns null
 * when there is no memory for the record.
 */
xml_doc_file *xmlNewDocFile(void);

/*
 * Frees the record of xmlNewDocFile and not its file: a document that is given up without a successful xmlFileToBuf
 * needs its `fp` closed first. Null is ignored.
 */
void xmlFreeDocFile(xml_doc_file *doc);

/*
 * Ends a document of xmlNewDocFile with "</root>", without a newline, and reads it into a buffer.
 *
 *   doc  the document; its file is closed and its `fp` null after success
 *   len  receives the length in bytes, without the terminator; it is left alone on failure
 *
 * Returns the buffer, to be freed with xmlFreeBuf; or null in these cases:
 *   - the file could not be written whole, or there is no memory. The file is still open then, and a second attempt
 *     would end the document twice
 *   - an argument or `fp` is null; nothing is done
 */
char *xmlFileToBuf(xml_doc_file *doc, unsigned *len);

/*
 * Runs an example: builds a small document, prints it to "output.txt" in the working directory and to a buffer, and
 * prints "buf=%s\n" with that buffer to standard output, after the four "cnt = 0\n" of the two prints.
 *
 * Returns:
 *   0  done
 *   1  "output.txt" cannot be opened, or there is no buffer; without a buffer it prints
 *      "internal error in xmlPrepareBuf.\n" instead
 */
int xml_test_main(void);

TORVANE_END

#endif
