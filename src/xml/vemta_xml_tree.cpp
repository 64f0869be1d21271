// Builds XML trees in memory: documents, elements, texts and attributes.
#include <stdlib.h>
#include <string.h>

#include "base/owners.h"
#include "torvane/text.h"
#include "torvane/xml.h"
#include "xml/xml.h"

using namespace torvane;

namespace {

// Returns a copy of the text in a block of its own, or null without memory.
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

// Frees an element, the elements after it and everything below them. An element's children first come between it and
// the next one, so that a deep document takes no more stack than a flat one.
void free_chain(xml_node *node) {
  while (node) {
    if (node->children) {
      xml_node *last = node->children;
      while (last->next)
        last = last->next;
      last->next = node->next;
      node->next = node->children;
    }
    xml_node *const next = node->next;
    freeString(node->name);
    free_text(node->text);
    for (xml_attr *attr = node->attrs; attr;) {
      xml_attr *const next_attr = attr->next;
      free_attr(attr);
      attr = next_attr;
    }
    free(node);
    node = next;
  }
}

} // namespace

extern "C" {

xml_doc *xmlNewDoc(void) {
  xml_doc *doc = allocate_zeroed<xml_doc>();
  if (doc)
    doc->version = xml_version;
  return doc;
}

xml_node *xmlNewNode(const char *name) {
  if (!name || !*name)
    return nullptr;
  HeapBlock<xml_node> node(allocate_zeroed<xml_node>());
  if (!node)
    return nullptr;
  node->name = duplicate(name);
  return node->name ? node.release() : nullptr;
}

xml_text *xmlNewText(const char *text) {
  if (!text)
    return nullptr;
  HeapBlock<xml_text> record(allocate_zeroed<xml_text>());
  if (!record)
    return nullptr;
  record->text = duplicate(text);
  return record->text ? record.release() : nullptr;
}

void xmlAddText(xml_node *node, xml_text *text) {
  if (node && text)
    node->text = text; // this is meant: an earlier text is not freed, and children are allowed
}

void xmlAddAttr(xml_node *node, const char *name, const char *value) {
  if (!node || !name || !value)
    return;
  xml_attr *attr = allocate_zeroed<xml_attr>();
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

void xmlFreeDoc(xml_doc *doc) {
  if (!doc)
    return;
  free_chain(doc->root);
  free(doc);
}

} // extern "C"
