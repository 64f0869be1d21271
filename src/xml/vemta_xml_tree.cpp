// XML trees: built in memory, printed with every content in CDATA sections, handed out as heap buffers; and documents
// that their callers write into a temporary file.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "torvane/text.h"
#include "torvane/xml.h"

namespace {

constexpr char xml_version[] = "1.0";
constexpr char file_root[] = "root"; // of documents in a file

constexpr char cdata_end[] = "]]>";
constexpr char escaped_cdata_end[] = "]]]]><![CDATA[>"; // ends a section between the brackets and the ">"

char *duplicate(const char *text) {
  const size_t size = strlen(text) + 1;
  char *copy = static_cast<char *>(malloc(size));
  if (copy)
    memcpy(copy, text, size);
  return copy;
}

void free_attr(xml_attr *attr) {
  freeString(attr->name);
  freeString(attr->value);
  free(attr);
}

void free_text(xml_text *text) {
  if (!text)
    return;
  freeString(text->text);
  free(text);
}

void free_chain(xml_node *node) {
  while (node) {
    xml_node *const next = node->next;
    freeString(node->name);
    free_text(node->text);
    for (xml_attr *attr = node->attrs; attr;) {
      xml_attr *const next_attr = attr->next;
      free_attr(attr);
      attr = next_attr;
    }
    free_chain(node->children);
    free(node);
    node = next;
  }
}

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
  printf("cnt = %d\n", count); // on standard output, wherever the document goes
  if (count != 0)
    print_escaped(out, text, count);
  else
    fputs(text->text, out);
}

// The element and those after it.
void print_chain(FILE *out, xml_node *node) {
  for (; node; node = node->next) {
    printTabs(out, tabCnt);
    fprintf(out, "<%s", node->name);
    for (const xml_attr *attr = node->attrs; attr; attr = attr->next)
      fprintf(out, " %s=\"%s\"", attr->name, attr->value);
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

// Bytes that the stream holds, with all of them written; it stands at its start afterwards. -1 when they could not be.
long finished_length(FILE *stream) {
  if (fseek(stream, 0, SEEK_END) != 0 || ferror(stream))
    return -1;
  const long length = ftell(stream);
  return length >= 0 && fseek(stream, 0, SEEK_SET) == 0 ? length : -1;
}

// The next `length` bytes of the stream, and zeros after them.
char *read_whole(FILE *stream, long length) {
  char *buffer = static_cast<char *>(calloc(1, static_cast<size_t>(length) + 1));
  if (buffer)
    buffer[fread(buffer, 1, static_cast<size_t>(length), stream)] = '\0';
  return buffer;
}

// The example's way to say "a new element, there": null, with nothing left over, when there is no memory.
xml_node *add_element(xml_node *parent, const char *name) {
  xml_node *const node = xmlNewNode(name);
  if (xmlAddChild(parent, node))
    return node;
  free_chain(node);
  return nullptr;
}

void add_text(xml_node *node, const char *content) {
  if (node)
    xmlAddText(node, xmlNewText(content));
}

} // namespace

extern "C" {

int tabCnt; // depth of the printer

xml_doc *xmlNewDoc(void) {
  xml_doc *doc = static_cast<xml_doc *>(calloc(1, sizeof(*doc)));
  if (doc)
    doc->version = xml_version;
  return doc;
}

xml_node *xmlNewNode(const char *name) {
  if (!name || !*name)
    return nullptr;
  xml_node *node = static_cast<xml_node *>(calloc(1, sizeof(*node)));
  if (!node)
    return nullptr;
  node->name = duplicate(name);
  if (!node->name) {
    free(node);
    return nullptr;
  }
  return node;
}

xml_text *xmlNewText(const char *text) {
  if (!text)
    return nullptr;
  xml_text *record = static_cast<xml_text *>(malloc(sizeof(*record)));
  if (!record)
    return nullptr;
  record->text = duplicate(text);
  if (!record->text) {
    free(record);
    return nullptr;
  }
  return record;
}

void xmlAddText(xml_node *node, xml_text *text) {
  if (node && text)
    node->text = text;
}

void xmlAddAttr(xml_node *node, const char *name, const char *value) {
  if (!node || !name || !value)
    return;
  xml_attr *attr = static_cast<xml_attr *>(calloc(1, sizeof(*attr)));
  if (!attr)
    return;
  attr->name = duplicate(name);
  attr->value = duplicate(value);
  if (!attr->name || !attr->value) {
    free_attr(attr);
    return;
  }
  if (node->attrs)
    node->attrs_tail->next = attr;
  else
    node->attrs = attr;
  node->attrs_tail = attr;
}

xml_node *xmlAddChild(xml_node *parent, xml_node *child) {
  if (!parent || !child || parent->text)
    return nullptr;
  if (parent->children)
    parent->children->last->next = child;
  else
    parent->children = child;
  parent->children->last = child;
  return child;
}

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

char *xmlPrepareBuf(const xml_doc *doc) {
  if (!doc)
    return nullptr;
  char path[128];
  snprintf(path, sizeof(path), "%s/xml_%lu", "/var", static_cast<unsigned long>(time(nullptr)));
  FILE *file = fopen(path, "w+e");
  if (!file)
    return nullptr;
  printfXmlDoc(file, doc);

  char *buffer = nullptr;
  const long length = finished_length(file);
  if (length >= 0) {
    buffer = read_whole(file, length);
    if (!buffer)
      return nullptr; // the file stays, open and on disk: the document is not lost
  }
  fclose(file);
  unlink(path);
  return buffer;
}

void xmlFreeBuf(char *buf) {
  free(buf);
}

void xmlFreeDoc(xml_doc *doc) {
  if (!doc)
    return;
  free_chain(doc->root);
  free(doc);
}

xml_doc_file *xmlNewDocFile(void) {
  xml_doc_file *doc = static_cast<xml_doc_file *>(malloc(sizeof(*doc)));
  if (!doc)
    return nullptr;
  doc->version = xml_version;
  doc->fp = tmpfile();
  if (doc->fp) {
    fcntl(fileno(doc->fp), F_SETFD, FD_CLOEXEC);
    fprintf(doc->fp, "<?xml version=\"%s\"?>\n<%s>\n", doc->version, file_root);
  }
  return doc;
}

void xmlFreeDocFile(xml_doc_file *doc) {
  free(doc);
}

char *xmlFileToBuf(xml_doc_file *doc, unsigned *len) {
  if (!doc || !doc->fp || !len)
    return nullptr;
  fseek(doc->fp, 0, SEEK_END);
  fprintf(doc->fp, "</%s>", file_root);
  const long length = finished_length(doc->fp);
  char *buffer = length >= 0 ? read_whole(doc->fp, length) : nullptr;
  if (!buffer)
    return nullptr;
  fclose(doc->fp);
  doc->fp = nullptr;
  *len = static_cast<unsigned>(length);
  return buffer;
}

int xml_test_main(void) {
  FILE *output = fopen("output.txt", "w+e");
  if (!output)
    return 1;
  xml_doc *doc = xmlNewDoc();
  if (doc)
    doc->root = xmlNewNode("wancfg");
  xml_node *const root = doc ? doc->root : nullptr;

  xml_node *const ifname = add_element(root, "ifname");
  add_text(ifname, "abcd");
  xmlAddAttr(ifname, "id", "atm0");
  xmlAddAttr(ifname, "class", "ioio");

  xml_node *const pt_addr = add_element(root, "ptAddr");
  add_text(add_element(pt_addr, "ipaddr"), "aabb");

  printfXmlDoc(output, doc);
  char *const buffer = xmlPrepareBuf(doc);
  if (buffer)
    printf("buf=%s\n", buffer);
  else
    puts("internal error in xmlPrepareBuf.");
  xmlFreeDoc(doc);
  xmlFreeBuf(buffer);
  fclose(output);
  return buffer ? 0 : 1;
}

} // extern "C"
