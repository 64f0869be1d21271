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

// Prints the element and those after it.
void print_chain(FILE *out, xml_node *node) {
  for (; node; node = node->next) {
    printTabs(out, tabCnt);
    fprintf(out, "<%s", node->name);
    for (const xml_attr *attr = node->attrs; attr; attr = attr->next)
      fprintf(out, " %s=\"%s\"", attr->name, attr->value);
    // This is meant: an empty section precedes the content, children stand inside a section, and no value is escaped.
    fputs("><![CDATA[]]><![CDATA[", out);
    if (node->children) {
      putc('\n', out);
      tabCnt++;
      print_chain(out, node->children);
      tabCnt--;
      printTabs(out, tabCnt);
    } else if (node->text) {
      print_text(out, node->text);
    }
    fprintf(out, "]]></%s>\n", node->name);
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
