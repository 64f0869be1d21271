// A real parser takes some printed documents, and these tests tell which and what it finds in them. They use only its
// event interface, because its functions for trees have names that this library exports with other types.
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"
#include "xml/documents.h"

// libxml2's header declares functions of these names with other types.
#define xmlNewDoc parser_xmlNewDoc
#define xmlNewNode parser_xmlNewNode
#define xmlNewText parser_xmlNewText
#define xmlAddChild parser_xmlAddChild
#define xmlFreeDoc parser_xmlFreeDoc
#include <libxml/parser.h>
#undef xmlNewDoc
#undef xmlNewNode
#undef xmlNewText
#undef xmlAddChild
#undef xmlFreeDoc

using documents::Document;
using documents::document;
using documents::element;
using documents::printed_text;

namespace {

struct Parsed {
  bool well_formed = false;
  std::string root, text; // the root's name, and all text in it
  std::string attributes; // of every element: name=value;
  int elements = 0;
};

const char *as_text(const xmlChar *text) {
  return reinterpret_cast<const char *>(text);
}

void add_element(void *parsed, const xmlChar *name, const xmlChar **attributes) {
  auto *into = static_cast<Parsed *>(parsed);
  if (into->elements++ == 0)
    into->root = as_text(name);
  for (; attributes && *attributes; attributes += 2)
    into->attributes += std::string(as_text(attributes[0])) + "=" + as_text(attributes[1]) + ";";
}

void add_characters(void *parsed, const xmlChar *text, int length) {
  static_cast<Parsed *>(parsed)->text.append(as_text(text), static_cast<size_t>(length));
}

void be_silent(void *, const char *, ...) {}

Parsed parsed(const std::string &text) {
  Parsed result;
  xmlSAXHandler handler;
  memset(&handler, 0, sizeof(handler));
  handler.startElement = add_element;
  handler.characters = add_characters;
  handler.cdataBlock = add_characters;
  handler.error = be_silent;
  handler.warning = be_silent;
  handler.fatalError = be_silent;
  result.well_formed = xmlSAXUserParseMemory(&handler, &result, text.data(), static_cast<int>(text.size())) == 0;
  return result;
}

bool well_formed(const std::string &text) {
  return parsed(text).well_formed;
}

} // namespace

TEST(XmlParser, ReadsARootWithText) {
  const Document doc = document(element("wancfg", "abcd"));
  xmlAddAttr(doc->root, "id", "atm0");
  xmlAddAttr(doc->root, "class", "a > b 'c'");
  const Parsed found = parsed(printed_text(doc));
  EXPECT_TRUE(found.well_formed);
  EXPECT_EQ("wancfg", found.root);
  EXPECT_EQ("abcd", found.text);
  EXPECT_EQ("id=atm0;class=a > b 'c';", found.attributes);
  EXPECT_EQ(1, found.elements);
}

TEST(XmlParser, ReadsARootWithoutText) {
  const Parsed found = parsed(printed_text(document(xmlNewNode("a"))));
  EXPECT_TRUE(found.well_formed);
  EXPECT_EQ("", found.text);
}

TEST(XmlParser, FindsTheTextAsItWasGiven) {
  for (const char *text : {"]]>", "a]]>b", "]]>]]>", "]]]>", "]]]]>", "]", "]]", "a]]", "<b>", "</a>", "<![CDATA[x]]>",
                           "&amp; & &#0;", "\"'", "\xc3\xa4\xe2\x82\xac", "\t\n ", "<!-- -->", "<?x?>"}) {
    const Document doc = document(element("a", text));
    const Parsed found = parsed(printed_text(doc));
    EXPECT_TRUE(found.well_formed) << text;
    EXPECT_EQ(text, found.text);
    EXPECT_EQ(1, found.elements) << text;
  }
}

TEST(XmlParser, FindsNewlinesForCarriageReturns) {
  const Parsed found = parsed(printed_text(document(element("a", "1\r2\r\n3"))));
  EXPECT_TRUE(found.well_formed);
  EXPECT_EQ("1\n2\n3", found.text);
}

TEST(XmlParser, FindsTheEscapedTextAfterASecondPrint) {
  const Document doc = document(element("a", "x]]>y"));
  printed_text(doc);
  const Parsed found = parsed(printed_text(doc));
  EXPECT_TRUE(found.well_formed);
  EXPECT_EQ("x]]]]><![CDATA[>y", found.text);
}

TEST(XmlParser, RefusesTextsThatAreNotXmlText) {
  for (const char *text : {"\x01", "\x1b", "\xff", "\xe4"})
    EXPECT_FALSE(well_formed(printed_text(document(element("a", text)))));
}

TEST(XmlParser, RefusesWhatIsNoNameOrValue) {
  for (const char *name : {"a b", "1a", "<", "a&b", "-a"})
    EXPECT_FALSE(well_formed(printed_text(document(xmlNewNode(name))))) << name;
  for (const char *value : {"\"", "<", "&", "&x"}) {
    const Document doc = document(xmlNewNode("a"));
    xmlAddAttr(doc->root, "b", value);
    EXPECT_FALSE(well_formed(printed_text(doc))) << value;
  }
  const Document doc = document(xmlNewNode("a"));
  xmlAddAttr(doc->root, "b", "1");
  EXPECT_TRUE(well_formed(printed_text(doc)));
  xmlAddAttr(doc->root, "b", "2");
  EXPECT_FALSE(well_formed(printed_text(doc))) << "the same attribute twice";
}

TEST(XmlParser, RefusesNoRootAndMoreThanOne) {
  EXPECT_FALSE(well_formed(printed_text(document(nullptr))));
  const Document doc = document(element("a", "1"));
  doc->root->next = element("b", "2");
  EXPECT_FALSE(well_formed(printed_text(doc)));
}

namespace {

// Returns every tree of `size` elements, as the numbers of the elements' parents. Element 0 is the root.
void for_each_tree(size_t size, std::vector<size_t> &parents, void (*visit)(const std::vector<size_t> &)) {
  if (parents.size() == size) {
    visit(parents);
    return;
  }
  for (size_t parent = 0; parent < parents.size(); parent++) {
    parents.push_back(parent);
    for_each_tree(size, parents, visit);
    parents.pop_back();
  }
}

// Names that are all the same come nearest to being well-formed by accident; different ones are tried too.
void expect_refused(const std::vector<size_t> &parents) {
  for (const bool same : {true, false}) {
    std::vector<xml_node *> nodes;
    std::string shape;
    for (size_t i = 0; i < parents.size(); i++) {
      nodes.push_back(xmlNewNode(same ? "a" : std::string(1, static_cast<char>('a' + i)).c_str()));
      if (i > 0)
        xmlAddChild(nodes[parents[i]], nodes[i]);
      shape += std::to_string(parents[i]) + " ";
    }
    EXPECT_FALSE(well_formed(printed_text(document(nodes[0])))) << shape;
  }
}

} // namespace

TEST(XmlParser, RefusesEveryDocumentWithChildren) {
  for (size_t size = 2; size <= 6; size++) {
    std::vector<size_t> parents = {0};
    for_each_tree(size, parents, expect_refused);
  }
}

TEST(XmlParser, ReadsADocumentOfAFileWithChildlessElements) {
  xml_doc_file *doc = xmlNewDocFile();
  fputs("<a>1</a>\n<b c=\"d\"><![CDATA[2]]></b>", doc->fp);
  unsigned length = 0;
  const documents::Buffer buffer(xmlFileToBuf(doc, &length));
  xmlFreeDocFile(doc);
  const Parsed found = parsed(buffer.get());
  EXPECT_TRUE(found.well_formed);
  EXPECT_EQ("root", found.root);
  EXPECT_EQ("\n1\n2", found.text);
  EXPECT_EQ(3, found.elements);
}
