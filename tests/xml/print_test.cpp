// The printed form, byte for byte, and what goes to standard output meanwhile.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/proportional_time.h"
#include "support/sandbox.h"
#include "torvane.h"
#include "xml/documents.h"

using documents::declaration;
using documents::Document;
using documents::document;
using documents::element;
using documents::Printed;
using documents::printed;
using documents::printed_text;
using sandbox::expect_proportional;
using sandbox::nanoseconds_per_byte;
using sandbox::repeated;

namespace {

std::string tabs(FILE *stream, int count) {
  sandbox::Captured standard_output(1);
  printTabs(stream, count);
  return standard_output.text();
}

} // namespace

TEST(PrintTabs, WritesThatMany) {
  for (const int count : {1, 2, 3, 100})
    EXPECT_EQ(std::string(static_cast<size_t>(count), '\t'),
              sandbox::written([&](FILE *out) { printTabs(out, count); }));
}

TEST(PrintTabs, WritesNoneForNoneAndLess) {
  for (const int count : {0, -1, -2147483647 - 1}) {
    EXPECT_EQ("", sandbox::written([&](FILE *out) { printTabs(out, count); }));
    EXPECT_EQ("", tabs(nullptr, count));
  }
}

TEST(PrintTabs, WritesToStandardOutputForANullStream) {
  EXPECT_EQ("\t\t\t", tabs(nullptr, 3));
}

TEST(PrintXml, WithoutARootIsTheDeclarationAlone) {
  const Printed out = printed(document(nullptr));
  EXPECT_EQ("<?xml version=\"1.0\"?>\n", out.text);
  EXPECT_EQ("", out.standard_output);
}

TEST(PrintXml, OfNullIsNothing) {
  const Printed out = printed(nullptr);
  EXPECT_EQ("", out.text);
  EXPECT_EQ("", out.standard_output);
}

TEST(PrintXml, TakesTheVersionOfTheDocument) {
  const Document doc = document(nullptr);
  doc->version = "1.1";
  EXPECT_EQ("<?xml version=\"1.1\"?>\n", printed_text(doc));
}

TEST(PrintXml, ElementWithoutTextOrChildren) {
  const Printed out = printed(document(xmlNewNode("name")));
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<name><![CDATA[]]><![CDATA[]]></name>\n", out.text);
  EXPECT_EQ("", out.standard_output);
}

TEST(PrintXml, ElementWithText) {
  const Printed out = printed(document(element("a", "abcd")));
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<a><![CDATA[]]><![CDATA[abcd]]></a>\n", out.text);
  EXPECT_EQ("cnt = 0\n", out.standard_output);
}

TEST(PrintXml, ElementWithEmptyTextReportsNoCount) {
  const Printed out = printed(document(element("a", "")));
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<a><![CDATA[]]><![CDATA[]]></a>\n", out.text);
  EXPECT_EQ("", out.standard_output);
}

TEST(PrintXml, AttributesInOrder) {
  const Document doc = document(xmlNewNode("a"));
  xml_node *child = xmlAddChild(doc->root, element("ifname", "abcd"));
  xmlAddAttr(child, "id", "atm0");
  xmlAddAttr(child, "class", "ioio");
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a><![CDATA[]]><![CDATA[\n"
      "\t<ifname id=\"atm0\" class=\"ioio\"><![CDATA[]]><![CDATA[abcd]]></ifname>\n"
      "]]></a>\n",
      printed_text(doc));
}

TEST(PrintXml, NamesAndValuesAndTextAsTheyStand) {
  const Document doc = document(element("<&\"'%s>", "a<b>&\"'%d\t\n\xff]]]"));
  xmlAddAttr(doc->root, "%n", "\"<>&'\n%s");
  xmlAddAttr(doc->root, "", "");
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<<&\"'%s> %n=\"\"<>&'\n%s\" =\"\"><![CDATA[]]><![CDATA[a<b>&\"'%d\t\n\xff]]]]]></<&\"'%s>>\n",
      printed_text(doc));
}

TEST(PrintXml, ChildrenOneTabDeeperInOrder) {
  const Document doc = document(xmlNewNode("root"));
  xmlAddChild(doc->root, element("one", "1"));
  xml_node *two = xmlAddChild(doc->root, xmlNewNode("two"));
  xmlAddChild(doc->root, xmlNewNode("three"));
  xmlAddAttr(two, "n", "2");
  xmlAddChild(xmlAddChild(two, xmlNewNode("deep")), element("deeper", "x"));
  xmlAddChild(two, element("last", "y"));
  const Printed out = printed(doc);
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<root><![CDATA[]]><![CDATA[\n"
      "\t<one><![CDATA[]]><![CDATA[1]]></one>\n"
      "\t<two n=\"2\"><![CDATA[]]><![CDATA[\n"
      "\t\t<deep><![CDATA[]]><![CDATA[\n"
      "\t\t\t<deeper><![CDATA[]]><![CDATA[x]]></deeper>\n"
      "\t\t]]></deep>\n"
      "\t\t<last><![CDATA[]]><![CDATA[y]]></last>\n"
      "\t]]></two>\n"
      "\t<three><![CDATA[]]><![CDATA[]]></three>\n"
      "]]></root>\n",
      out.text);
  EXPECT_EQ("cnt = 0\ncnt = 0\ncnt = 0\n", out.standard_output);
}

TEST(PrintXml, ChildrenAndNotTheTextBesideThem) {
  const Document doc = document(xmlNewNode("a"));
  xmlAddChild(doc->root, xmlNewNode("b"));
  xmlAddText(doc->root, xmlNewText("not seen ]]>"));
  const Printed out = printed(doc);
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a><![CDATA[]]><![CDATA[\n"
      "\t<b><![CDATA[]]><![CDATA[]]></b>\n"
      "]]></a>\n",
      out.text);
  EXPECT_EQ("", out.standard_output);
  EXPECT_STREQ("not seen ]]>", doc->root->text->text);
}

TEST(PrintXml, SiblingsOfTheRoot) {
  const Document doc = document(element("a", "1"));
  doc->root->next = element("b", "2");
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a><![CDATA[]]><![CDATA[1]]></a>\n"
      "<b><![CDATA[]]><![CDATA[2]]></b>\n",
      printed_text(doc));
}

TEST(PrintXml, ToStandardOutputForANullStream) {
  const Document doc = document(xmlNewNode("a"));
  xmlAddAttr(doc->root, "id", "1");
  xmlAddChild(doc->root, xmlNewNode("b"));
  sandbox::Captured standard_output(1);
  printfXmlDoc(nullptr, doc.get());
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a id=\"1\"><![CDATA[]]><![CDATA[\n"
      "\t<b><![CDATA[]]><![CDATA[]]></b>\n"
      "]]></a>\n",
      standard_output.text());
}

TEST(PrintXml, ToStandardOutputHasTheCountsInTheMiddle) {
  const Document doc = document(element("a", "abcd"));
  doc->root->next = element("b", "x]]>");
  sandbox::Captured standard_output(1);
  printfXmlDoc(nullptr, doc.get());
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a><![CDATA[]]><![CDATA[cnt = 0\nabcd]]></a>\n"
      "<b><![CDATA[]]><![CDATA[cnt = 1\nx]]]]><![CDATA[>]]></b>\n",
      standard_output.text());
}

TEST(PrintXml, LeavesTheStreamOpen) {
  const Document doc = document(xmlNewNode("a"));
  const std::string once = printed_text(doc);
  EXPECT_EQ(once + "|" + once, sandbox::written([&](FILE *out) {
              printfXmlDoc(out, doc.get());
              fputc('|', out);
              printfXmlDoc(out, doc.get());
            }));
}

TEST(PrintXml, EscapesTheEndsOfSections) {
  struct {
    const char *text, *escaped;
    int count;
  } const cases[] = {
      {"]]>", "]]]]><![CDATA[>", 1},
      {"a]]>b", "a]]]]><![CDATA[>b", 1},
      {"]]>tail", "]]]]><![CDATA[>tail", 1},
      {"head]]>", "head]]]]><![CDATA[>", 1},
      {"]]>]]>", "]]]]><![CDATA[>]]]]><![CDATA[>", 2},
      {"a]]>b]]>c", "a]]]]><![CDATA[>b]]]]><![CDATA[>c", 2},
      {"]]]>", "]]]]]><![CDATA[>", 1},
      {"]]>>", "]]]]><![CDATA[>>", 1},
      {"]]", "]]", 0},
      {"]>", "]>", 0},
      {"]] >", "]] >", 0},
      {"<![CDATA[x]]>", "<![CDATA[x]]]]><![CDATA[>", 1},
  };
  for (const auto &c : cases) {
    const Document doc = document(element("a", c.text));
    const Printed out = printed(doc);
    EXPECT_EQ(std::string(declaration) + "<a><![CDATA[]]><![CDATA[" + c.escaped + "]]></a>\n", out.text) << c.text;
    EXPECT_EQ("cnt = " + std::to_string(c.count) + "\n", out.standard_output) << c.text;
    EXPECT_STREQ(c.escaped, doc->root->text->text) << "the escaped form is the element's text";
  }
}

TEST(PrintXml, EscapesAgainWhatItEscaped) {
  const Document doc = document(element("a", "x]]>y"));
  printed(doc);
  const Printed out = printed(doc);
  EXPECT_EQ("<?xml version=\"1.0\"?>\n<a><![CDATA[]]><![CDATA[x]]]]]]><![CDATA[><![CDATA[>y]]></a>\n", out.text);
  EXPECT_EQ("cnt = 1\n", out.standard_output);
  EXPECT_STREQ("x]]]]]]><![CDATA[><![CDATA[>y", doc->root->text->text);
}

TEST(PrintXml, KeepsATextWithNothingToEscape) {
  const Document doc = document(element("a", "abcd"));
  const char *before = doc->root->text->text;
  const std::string first = printed_text(doc);
  EXPECT_EQ(before, doc->root->text->text);
  EXPECT_EQ(first, printed_text(doc));
}

TEST(PrintXml, PrintsTheSameWithoutMemoryForTheEscapedForm) {
  Document doc;
  FILE *out = fopen("/run/document", "w+e");
  setvbuf(out, nullptr, _IONBF, 0); // allocates no buffer
  sandbox::Captured standard_output(1);
  printf("-\n"); // and standard output has its own by now
  const auto print = [&] {
    printfXmlDoc(out, doc.get());
    return 0;
  };
  doc = document(element("a", "x]]>y"));
  unsigned attempts = 0;
  const unsigned failures = sandbox::fail_each_allocation(print, [&](int, bool failed) {
    attempts++;
    EXPECT_STREQ(failed ? "x]]>y" : "x]]]]><![CDATA[>y", doc->root->text->text);
  });
  fclose(out);
  EXPECT_EQ(1u, failures);
  EXPECT_EQ(repeated("<?xml version=\"1.0\"?>\n<a><![CDATA[]]><![CDATA[x]]]]><![CDATA[>y]]></a>\n", attempts),
            sandbox::read_file("/run/document"));
  EXPECT_EQ("-\n" + repeated("cnt = 1\n", attempts), standard_output.text());
  unlink("/run/document");
}

TEST(PrintXml, BeginsAtTheDepthOfTheCounterAndReturnsToIt) {
  const Document doc = document(xmlNewNode("a"));
  xmlAddChild(doc->root, xmlNewNode("b"));
  ASSERT_EQ(0, tabCnt);
  tabCnt = 2;
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "\t\t<a><![CDATA[]]><![CDATA[\n"
      "\t\t\t<b><![CDATA[]]><![CDATA[]]></b>\n"
      "\t\t]]></a>\n",
      printed_text(doc));
  EXPECT_EQ(2, tabCnt);
  tabCnt = -1;
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<a><![CDATA[]]><![CDATA[\n"
      "<b><![CDATA[]]><![CDATA[]]></b>\n"
      "]]></a>\n",
      printed_text(doc));
  EXPECT_EQ(-1, tabCnt);
  tabCnt = 0;
}

TEST(PrintXml, GoesAsDeepAsTheTree) {
  constexpr size_t depth = 2000;
  const Document doc = document(xmlNewNode("a"));
  xml_node *at = doc->root;
  for (size_t i = 1; i < depth; i++)
    at = xmlAddChild(at, xmlNewNode("a"));
  const std::string text = printed_text(doc);
  EXPECT_EQ(0, tabCnt);
  const std::string innermost = std::string(depth - 1, '\t') + "<a><![CDATA[]]><![CDATA[]]></a>\n";
  EXPECT_NE(std::string::npos, text.find("\n" + innermost));
}

TEST(PrintXml, FailsQuietlyOnAFullDisk) {
  const Document doc = document(element("a", std::string(100000, 'x').c_str()));
  FILE *full = fopen("/dev/full", "we");
  ASSERT_NE(nullptr, full);
  sandbox::Captured standard_output(1);
  printfXmlDoc(full, doc.get());
  EXPECT_TRUE(ferror(full));
  fclose(full);
  EXPECT_EQ(0, tabCnt);
}

TEST(PrintXml, TakesTimeInProportionToTheText) {
  if (!sandbox::times_are_real)
    GTEST_SKIP() << "times mean nothing with a sanitizer";
  const auto time_for = [](const std::string &text) {
    const Document doc = document(xmlNewNode("a"));
    FILE *null = fopen("/dev/null", "we");
    sandbox::Captured standard_output(1);
    const double each = nanoseconds_per_byte(text.size(), [&] {
      if (xml_text *escaped = doc->root->text) {
        freeString(escaped->text);
        free(escaped);
      }
      xmlAddText(doc->root, xmlNewText(text.c_str()));
      printfXmlDoc(null, doc.get());
    });
    fclose(null);
    return each;
  };
  for (const std::string piece : {"]]>", "]]]", "x]]>y]", "plain text"})
    expect_proportional("printing " + piece, time_for(repeated(piece, 10000 / piece.size())),
                        time_for(repeated(piece, 1000000 / piece.size())));
}
