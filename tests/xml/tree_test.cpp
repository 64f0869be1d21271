// Building and freeing trees. Everything here is watched for leaks and double frees by the address sanitizer.
#include <gtest/gtest.h>
#include <stddef.h>

#include <string>

#include "support/record_layout.h"
#include "torvane.h"
#include "xml/documents.h"

using documents::Document;
using documents::document;
using documents::element;
using sandbox::fail_each_allocation;

constexpr size_t pointer = sizeof(void *);

RECORD_LAYOUT(xml_text, pointer, FIELD(text, 0, pointer));
RECORD_LAYOUT(xml_attr, 3 * pointer, FIELD(name, 0, pointer), FIELD(value, pointer, pointer),
              FIELD(next, 2 * pointer, pointer));
RECORD_LAYOUT(xml_node, 7 * pointer, FIELD(name, 0, pointer), FIELD(text, pointer, pointer),
              FIELD(attrs, 2 * pointer, pointer), FIELD(attrs_tail, 3 * pointer, pointer),
              FIELD(children, 4 * pointer, pointer), FIELD(next, 5 * pointer, pointer),
              FIELD(last, 6 * pointer, pointer));
RECORD_LAYOUT(xml_doc, 2 * pointer, FIELD(version, 0, pointer), FIELD(root, pointer, pointer));
RECORD_LAYOUT(xml_doc_file, 2 * pointer, FIELD(version, 0, pointer), FIELD(fp, pointer, pointer));

namespace {

void free_node(xml_node *node) {
  document(node);
}

void free_text(xml_text *text) {
  if (!text)
    return;
  freeString(text->text);
  free(text);
}

} // namespace

TEST(XmlDocument, BeginsWithoutARoot) {
  xml_doc *doc = xmlNewDoc();
  ASSERT_NE(nullptr, doc);
  EXPECT_STREQ("1.0", doc->version);
  EXPECT_EQ(nullptr, doc->root);
  xmlFreeDoc(doc);
}

TEST(XmlDocument, SharesTheVersionText) {
  Document one(xmlNewDoc()), other(xmlNewDoc());
  EXPECT_EQ(one->version, other->version);
}

TEST(XmlDocument, FreesNothingForNull) {
  xmlFreeDoc(nullptr);
  xmlFreeDocFile(nullptr);
  xmlFreeBuf(nullptr);
}

TEST(XmlElement, HasACopyOfItsNameAndNothingElse) {
  char name[] = "ifname";
  xml_node *node = xmlNewNode(name);
  ASSERT_NE(nullptr, node);
  name[0] = 'x';
  EXPECT_STREQ("ifname", node->name);
  EXPECT_EQ(nullptr, node->text);
  EXPECT_EQ(nullptr, node->attrs);
  EXPECT_EQ(nullptr, node->attrs_tail);
  EXPECT_EQ(nullptr, node->children);
  EXPECT_EQ(nullptr, node->next);
  EXPECT_EQ(nullptr, node->last);
  free_node(node);
}

TEST(XmlElement, NeedsAName) {
  EXPECT_EQ(nullptr, xmlNewNode(""));
  EXPECT_EQ(nullptr, xmlNewNode(nullptr));
}

TEST(XmlText, IsACopy) {
  char content[] = "abcd";
  xml_text *text = xmlNewText(content);
  ASSERT_NE(nullptr, text);
  content[0] = 'x';
  EXPECT_STREQ("abcd", text->text);
  free_text(text);
}

TEST(XmlText, MayBeEmptyButNotNull) {
  xml_text *text = xmlNewText("");
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("", text->text);
  free_text(text);
  EXPECT_EQ(nullptr, xmlNewText(nullptr));
}

TEST(XmlText, BelongsToItsElement) {
  const Document doc = document(xmlNewNode("a"));
  xml_text *text = xmlNewText("abcd");
  xmlAddText(doc->root, text);
  EXPECT_EQ(text, doc->root->text);
}

TEST(XmlText, IsOverwrittenAndNotFreed) {
  const Document doc = document(xmlNewNode("a"));
  xml_text *first = xmlNewText("first"), *second = xmlNewText("second");
  xmlAddText(doc->root, first);
  xmlAddText(doc->root, second);
  EXPECT_EQ(second, doc->root->text);
  EXPECT_STREQ("first", first->text);
  free_text(first);
}

TEST(XmlText, StaysWhenNullIsAdded) {
  const Document doc = document(element("a", "text"));
  xml_text *text = doc->root->text;
  xmlAddText(doc->root, nullptr);
  EXPECT_EQ(text, doc->root->text);
  xmlAddText(nullptr, nullptr);
  xmlAddText(nullptr, text);
}

TEST(XmlText, MayBeAddedToAnElementWithChildren) {
  const Document doc = document(xmlNewNode("a"));
  xml_node *child = xmlAddChild(doc->root, xmlNewNode("b"));
  xmlAddText(doc->root, xmlNewText("text"));
  EXPECT_EQ(child, doc->root->children);
  EXPECT_STREQ("text", doc->root->text->text);
}

TEST(XmlAttribute, IsACopyAppendedInOrder) {
  const Document doc = document(xmlNewNode("a"));
  char name[] = "id", value[] = "atm0";
  xmlAddAttr(doc->root, name, value);
  name[0] = value[0] = 'x';
  const xml_attr *first = doc->root->attrs;
  ASSERT_NE(nullptr, first);
  EXPECT_STREQ("id", first->name);
  EXPECT_STREQ("atm0", first->value);
  EXPECT_EQ(nullptr, first->next);
  EXPECT_EQ(first, doc->root->attrs_tail);

  xmlAddAttr(doc->root, "class", "");
  xmlAddAttr(doc->root, "id", "again");
  EXPECT_EQ(first, doc->root->attrs);
  const xml_attr *second = first->next;
  ASSERT_NE(nullptr, second);
  EXPECT_STREQ("class", second->name);
  EXPECT_STREQ("", second->value);
  ASSERT_NE(nullptr, second->next);
  EXPECT_STREQ("id", second->next->name);
  EXPECT_STREQ("again", second->next->value);
  EXPECT_EQ(second->next, doc->root->attrs_tail);
  EXPECT_EQ(nullptr, second->next->next);
}

TEST(XmlAttribute, NeedsAllThreeArguments) {
  const Document doc = document(xmlNewNode("a"));
  xmlAddAttr(nullptr, "id", "atm0");
  xmlAddAttr(doc->root, nullptr, "atm0");
  xmlAddAttr(doc->root, "id", nullptr);
  EXPECT_EQ(nullptr, doc->root->attrs);
  EXPECT_EQ(nullptr, doc->root->attrs_tail);
}

TEST(XmlChild, IsAppendedAndReturned) {
  const Document doc = document(xmlNewNode("a"));
  xml_node *children[3];
  for (xml_node *&child : children) {
    child = xmlNewNode("b");
    EXPECT_EQ(child, xmlAddChild(doc->root, child));
    EXPECT_EQ(children[0], doc->root->children);
    EXPECT_EQ(child, children[0]->last);
  }
  EXPECT_EQ(children[1], children[0]->next);
  EXPECT_EQ(children[2], children[1]->next);
  EXPECT_EQ(nullptr, children[2]->next);
  EXPECT_EQ(nullptr, children[1]->last) << "kept in the first child alone";
  EXPECT_EQ(nullptr, children[2]->last);
}

TEST(XmlChild, IsRefusedByAnElementWithText) {
  const Document parent = document(element("a", "text")), child = document(xmlNewNode("b"));
  EXPECT_EQ(nullptr, xmlAddChild(parent->root, child->root));
  EXPECT_EQ(nullptr, parent->root->children);
  EXPECT_STREQ("text", parent->root->text->text);
  EXPECT_EQ(nullptr, child->root->next);
  EXPECT_EQ(nullptr, child->root->last);
}

TEST(XmlChild, IsRefusedByAnElementWithEmptyText) {
  const Document parent = document(element("a", "")), child = document(xmlNewNode("b"));
  EXPECT_EQ(nullptr, xmlAddChild(parent->root, child->root));
  EXPECT_EQ(nullptr, parent->root->children);
}

TEST(XmlChild, IsRefusedWhenTextCameAfterChildren) {
  const Document parent = document(xmlNewNode("a")), child = document(xmlNewNode("c"));
  xml_node *first = xmlAddChild(parent->root, xmlNewNode("b"));
  xmlAddText(parent->root, xmlNewText("text"));
  EXPECT_EQ(nullptr, xmlAddChild(parent->root, child->root));
  EXPECT_EQ(nullptr, first->next);
  EXPECT_EQ(first, first->last);
}

TEST(XmlChild, NeedsBothElements) {
  const Document doc = document(xmlNewNode("a"));
  EXPECT_EQ(nullptr, xmlAddChild(nullptr, doc->root));
  EXPECT_EQ(nullptr, xmlAddChild(doc->root, nullptr));
  EXPECT_EQ(nullptr, xmlAddChild(nullptr, nullptr));
  EXPECT_EQ(nullptr, doc->root->children);
}

TEST(XmlTree, IsFreedWithEverythingInIt) {
  const Document doc = document(xmlNewNode("root"));
  for (int i = 0; i < 10; i++) {
    xml_node *child = xmlAddChild(doc->root, xmlNewNode("child"));
    xmlAddAttr(child, "name", "value");
    xmlAddAttr(child, "other", "value");
    for (int j = 0; j < 10; j++)
      xmlAddChild(child, element("grandchild", "text"));
  }
  doc->root->next = element("sibling of the root", "text");
}

TEST(XmlTree, MayHaveAMillionSiblings) {
  const Document doc = document(xmlNewNode("root"));
  for (int i = 0; i < 1000 * 1000; i++)
    ASSERT_NE(nullptr, xmlAddChild(doc->root, xmlNewNode("b")));
}

TEST(XmlAllocation, FailureGivesNullAndLeavesNothing) {
  EXPECT_EQ(1u, fail_each_allocation(xmlNewDoc, [](xml_doc *doc, bool failed) {
              EXPECT_EQ(failed, !doc);
              xmlFreeDoc(doc);
            }));
  EXPECT_EQ(2u, fail_each_allocation([] { return xmlNewNode("name"); },
                                     [](xml_node *node, bool failed) {
                                       EXPECT_EQ(failed, !node);
                                       free_node(node);
                                     }));
  EXPECT_EQ(2u, fail_each_allocation([] { return xmlNewText("text"); },
                                     [](xml_text *text, bool failed) {
                                       EXPECT_EQ(failed, !text);
                                       free_text(text);
                                     }));
}

TEST(XmlAllocation, FailureAddsNoAttribute) {
  const Document doc = document(xmlNewNode("a"));
  const auto add = [&] {
    xml_attr *before = doc->root->attrs_tail;
    xmlAddAttr(doc->root, "name", "value");
    return before;
  };
  const auto check = [&](xml_attr *before, bool failed) {
    if (failed) {
      EXPECT_EQ(before, doc->root->attrs_tail);
      if (before)
        EXPECT_EQ(nullptr, before->next);
      else
        EXPECT_EQ(nullptr, doc->root->attrs);
    } else {
      ASSERT_NE(nullptr, doc->root->attrs_tail);
      EXPECT_STREQ("name", doc->root->attrs_tail->name);
      EXPECT_STREQ("value", doc->root->attrs_tail->value);
    }
  };
  EXPECT_EQ(3u, fail_each_allocation(add, check)) << "to an element without attributes";
  EXPECT_EQ(3u, fail_each_allocation(add, check)) << "to one with an attribute";
  EXPECT_EQ(doc->root->attrs->next, doc->root->attrs_tail);
}
