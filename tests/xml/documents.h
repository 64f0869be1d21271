// Documents that tests build, and what printing them writes.
#pragma once

#include <memory>
#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace documents {

struct Free {
  void operator()(xml_doc *doc) const {
    xmlFreeDoc(doc);
  }
  void operator()(char *buffer) const {
    xmlFreeBuf(buffer);
  }
};

using Document = std::unique_ptr<xml_doc, Free>;
using Buffer = std::unique_ptr<char, Free>;

inline xml_node *element(const char *name, const char *text = nullptr) {
  xml_node *node = xmlNewNode(name);
  xmlAddText(node, xmlNewText(text));
  return node;
}

// Returns a document with this root, which may be null.
inline Document document(xml_node *root) {
  Document doc(xmlNewDoc());
  doc->root = root;
  return doc;
}

struct Printed {
  std::string text;            // the document
  std::string standard_output; // what went there meanwhile
};

inline Printed printed(const Document &doc) {
  sandbox::Captured standard_output(1);
  Printed result;
  result.text = sandbox::written([&](FILE *out) { printfXmlDoc(out, doc.get()); });
  result.standard_output = standard_output.text();
  return result;
}

inline std::string printed_text(const Document &doc) {
  return printed(doc).text;
}

constexpr char declaration[] = "<?xml version=\"1.0\"?>\n";

} // namespace documents
