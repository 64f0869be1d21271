// Prints XML documents, with every text in CDATA sections.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "torvane/text.h"
#include "torvane/xml.h"

namespace {

constexpr char cdata_end[] = "]]>";
constexpr char escaped_cdata_end[] = "]]]]><![CDATA[>"; // ends a section between the brackets and the ">"

// Writes the text with its `count` ends of CDATA sections escaped, and makes the escaped form the element's text.
// Without memory for that the output is the same, and the text stays as it was.
void print_escaped(FILE *out, xml_text *text, int count) {
  constexpr size_t growth = sizeof(escaped_cdata_end) - sizeof(cdata_end);
  char *const escaped = static_cast<char *>(calloc(1, growth * static_cast<size_t>(count) + strlen(text->text) + 1));
  char *end = escaped;
  const auto put = [&](const char *bytes, size_t length) {
    fwrite(bytes, 1, length, out);
    if (end)
      end = static_cast<char *>(memcpy(end, bytes, length)) + length;
  };

  const char *rest = text->text;
  while (const char *found = strstr(rest, cdata_end)) {
    put(rest, static_cast<size_t>(found - rest));
    put(escaped_cdata_end, strlen(escaped_cdata_end));
    rest = found + strlen(cdata_end);
  }
  put(rest, strlen(rest));

  if (escaped) {
    freeString(text->text);
    text->text = escaped;
  }
}

void print_text(FILE *out, xml_text *text) {
  if (!*text->text)
    return;
  const int count = num_delim_s(text->text, cdata_end);
  printf("cnt = %d\n", count); // this is meant: it goes to standard output, wherever the document goes
  if (count != 0)
    print_escaped(out, text, count);
  else
    fputs(text->text, out);
}

// Prints the start tag and what stands before the content. This is meant: an empty section precedes the content,
// children stand inside a section, and no value is escaped.
void print_start(FILE *out, const xml_node *node) {
  printTabs(out, tabCnt);
  fprintf(out, "<%s", node->name);
  for (const xml_attr *attr = node->attrs; attr; attr = attr->next)
    fprintf(out, " %s=\"%s\"", attr->name, attr->value);
  fputs("><![CDATA[]]><![CDATA[", out);
}

void print_end(FILE *out, const xml_node *node) {
  fprintf(out, "]]></%s>\n", node->name);
}

// Prints the end of an element that has children.
void print_end_below(FILE *out, const xml_node *node) {
  tabCnt--;
  printTabs(out, tabCnt);
  print_end(out, node);
}

// Prints the element and those after it. An element does not know its parent, so the walk keeps those that it came down
// through. It calls itself only when there is no room for one more: that takes far less stack than a call for every
// level.
void print_chain(FILE *out, xml_node *node) {
  constexpr size_t room = 64;
  xml_node *above[room];
  size_t depth = 0;
  for (;;) {
    if (!node) {
      if (depth == 0)
        return;
      node = above[--depth];
      print_end_below(out, node);
      node = node->next;
      continue;
    }
    print_start(out, node);
    if (!node->children) {
      if (node->text)
        print_text(out, node->text);
      print_end(out, node);
      node = node->next;
      continue;
    }
    putc('\n', out);
    tabCnt++;
    if (depth < room) {
      above[depth++] = node;
      node = node->children;
    } else {
      print_chain(out, node->children);
      print_end_below(out, node);
      node = node->next;
    }
  }
}

} // namespace

extern "C" {

int tabCnt;

void printTabs(FILE *stream, int count) {
  FILE *const out = stream ? stream : stdout;
  for (int i = 0; i < count; i++)
    putc('\t', out);
}

void printfXmlDoc(FILE *stream, const xml_doc *doc) {
  if (!doc)
    return;
  FILE *const out = stream ? stream : stdout;
  fprintf(out, "<?xml version=\"%s\"?>\n", doc->version);
  print_chain(out, doc->root);
}

} // extern "C"
