// Documents deeper than any program's: what is printed, and the stack that printing and freeing take.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "support/sandbox.h"
#include "support/stack_use.h"
#include "torvane.h"
#include "xml/documents.h"

using documents::Document;
using documents::document;
using documents::element;

namespace {

// Returns a document with one element per level, between two without children.
Document levels_of(unsigned levels) {
  Document doc = document(xmlNewNode("root"));
  xml_node *parent = doc->root;
  for (unsigned level = 1; level <= levels; level++) {
    const std::string name = "level" + std::to_string(level);
    xmlAddChild(parent, xmlNewNode("before"));
    xml_node *middle = xmlAddChild(parent, xmlNewNode(name.c_str()));
    xmlAddChild(parent, xmlNewNode("behind"));
    parent = middle;
  }
  return doc;
}

std::string line(unsigned tabs, const std::string &text) {
  return std::string(tabs, '\t') + text + "\n";
}

std::string printed_levels(unsigned levels) {
  std::string text = std::string(documents::declaration) + "<root><![CDATA[]]><![CDATA[\n";
  for (unsigned level = 1; level < levels; level++) {
    text += line(level, "<before><![CDATA[]]><![CDATA[]]></before>");
    text += line(level, "<level" + std::to_string(level) + "><![CDATA[]]><![CDATA[");
  }
  const std::string deepest = "level" + std::to_string(levels);
  text += line(levels, "<before><![CDATA[]]><![CDATA[]]></before>");
  text += line(levels, "<" + deepest + "><![CDATA[]]><![CDATA[]]></" + deepest + ">");
  text += line(levels, "<behind><![CDATA[]]><![CDATA[]]></behind>");
  for (unsigned level = levels - 1; level >= 1; level--) {
    text += line(level, "]]></level" + std::to_string(level) + ">");
    text += line(level, "<behind><![CDATA[]]><![CDATA[]]></behind>");
  }
  return text + "]]></root>\n";
}

Document chain_of(unsigned levels) {
  Document doc = document(xmlNewNode("a"));
  xml_node *parent = doc->root;
  for (unsigned level = 1; level < levels; level++)
    parent = xmlAddChild(parent, xmlNewNode("a"));
  return doc;
}

void print_to_nowhere(const Document &doc) {
  FILE *out = fopen("/dev/null", "we");
  printfXmlDoc(out, doc.get());
  fclose(out);
}

} // namespace

TEST(XmlDepth, ChangesNoOrder) {
  for (const unsigned levels : {1u, 2u, 62u, 63u, 64u, 65u, 66u, 127u, 128u, 129u, 130u, 131u, 200u}) {
    EXPECT_EQ(printed_levels(levels), documents::printed_text(levels_of(levels))) << levels;
    EXPECT_EQ(0, tabCnt);
  }
}

TEST(XmlDepth, TakesLittleStack) {
  constexpr unsigned print_levels = 1000, free_levels = 20000; // a deep document has mostly tabs
  const Document deep = chain_of(print_levels), flat = chain_of(1);
  sandbox::expect_little_stack_per_level(
      "printfXmlDoc", print_levels, [&] { print_to_nowhere(deep); }, [&] { print_to_nowhere(flat); });
  xml_doc *to_free = chain_of(free_levels).release(), *little = chain_of(1).release();
  sandbox::expect_little_stack_per_level(
      "xmlFreeDoc", free_levels, [&] { xmlFreeDoc(to_free); }, [&] { xmlFreeDoc(little); });
}

// The library keeps `last` in first children alone, and programs may link a root's siblings themselves.
TEST(XmlDepth, FreeingNeedsNoLastChild) {
  const Document doc = levels_of(3);
  doc->root->next = xmlNewNode("sibling");
  doc->root->next->children = element("child", "text");
  doc->root->next->children->next = element("other", "text");
}
