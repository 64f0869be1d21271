// Element values found in XML text: every rule of the search, and texts that break them.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/proportional_time.h"
#include "support/sandbox.h"
#include "torvane.h"
#include "xml/documents.h"

using documents::Document;
using documents::document;
using documents::element;
using sandbox::expect_proportional;
using sandbox::GuardedMemory;
using sandbox::nanoseconds_per_byte;
using sandbox::repeated;

namespace {

constexpr char not_found[] = "(not found)";

using Lookup = int (*)(const char *, char *, int, const char *);

// Returns what the lookup finds. Readable memory ends with the text, and the destination has room for all of it.
std::string looked_up(Lookup lookup, const std::string &text, const std::string &name) {
  GuardedMemory guarded_text(text), guarded_name(name);
  GuardedMemory dest(text.size() + 1);
  memset(dest.data(), '?', text.size() + 1);
  const int found = lookup(guarded_text.data(), dest.data(), static_cast<int>(text.size() + 1), guarded_name.data());
  EXPECT_TRUE(found == 0 || found == 1);
  return found ? dest.data() : not_found;
}

std::string value(const std::string &text, const std::string &name) {
  return looked_up(_get_element_value, text, name);
}

std::string at_path(const std::string &text, const std::string &path) {
  return looked_up(get_element_value, text, path);
}

constexpr char good[] =
    "<?xml version=\"1.0\"?>\n<wancfg mode=\"a\">\n <ifname id=\"1\">ppp0</ifname>\n <if>eth0</if>\n "
    "<up/>\n</wancfg>\n";

class ElementPath : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
  void TearDown() override {
    EXPECT_EQ("", sandbox::console_text());
  }
};

} // namespace

TEST(ElementValue, IsTheContentOfTheFirst) {
  EXPECT_EQ("v", value("<a>v</a>", "a"));
  EXPECT_EQ("v", value("before<a>v</a>after", "a"));
  EXPECT_EQ("1", value("<a>1</a><a>2</a>", "a"));
  EXPECT_EQ("", value("<a></a>", "a"));
  EXPECT_EQ(" v\n", value("<a> v\n</a>", "a"));
  EXPECT_EQ("<b>v</b>", value("<a><b>v</b></a>", "a"));
  EXPECT_EQ("v", value("<a><b>v</b></a>", "b"));
}

TEST(ElementValue, NeedsTheElement) {
  for (const char *text : {"", "a", "<", "<a", "<b>v</b>", "a>v</a>", "</a>", "< a>v</a>", "<ab>v</ab>", "&lt;a>v</a>"})
    EXPECT_EQ(not_found, value(text, "a")) << text;
}

TEST(ElementValue, GoesPastLongerNames) {
  EXPECT_EQ("y", value("<ifname>x</ifname><if>y</if>", "if"));
  EXPECT_EQ("y", value("<ifname>x</ifname><ifs/><if-x>z</if-x><if>y</if>", "if"));
  EXPECT_EQ(not_found, value("<ifname>x</ifname>", "if"));
}

TEST(ElementValue, TakesBlankSlashAndBracketAsTheEndOfAName) {
  EXPECT_EQ("v", value("<a >v</a>", "a"));
  EXPECT_EQ("v", value("<a b=\"1\">v</a>", "a"));
  EXPECT_EQ("v", value("<a/b>v</a>", "a"));
  EXPECT_EQ("2", value("<a\tb=\"1\">1</a><a>2</a>", "a"));
  EXPECT_EQ("2", value("<a\nb=\"1\">1</a><a>2</a>", "a"));
  EXPECT_EQ(not_found, value("<a\r\n>1</a>", "a"));
}

TEST(ElementValue, IgnoresCaseAtTheFirstPlaceOnly) {
  EXPECT_EQ("v", value("<NAME>v</name>", "name"));
  EXPECT_EQ("v", value("<name>v</NAME>", "NAME"));
  EXPECT_EQ("2", value("<Names>1</Names><name>2</name>", "name")) << "the first place is a longer name";
  EXPECT_EQ(not_found, value("<Names>1</Names><Name>2</name>", "name"));
  EXPECT_EQ("3", value("<names>1</names><Name>2</name><name>3</name>", "name"));
}

TEST(ElementValue, EndTagKeepsItsCase) {
  EXPECT_EQ(not_found, value("<Name>v</Name>", "name"));
  EXPECT_EQ("v</Name>", value("<Name>v</Name></name>", "name"));
  EXPECT_EQ("v", value("<Name>v</Name>", "Name"));
}

TEST(ElementValue, IsEmptyForAnEmptyElement) {
  EXPECT_EQ("", value("<name/>", "name"));
  EXPECT_EQ("", value("<name attr=\"1\"/>", "name"));
  EXPECT_EQ("", value("<name />", "name"));
  EXPECT_EQ("", value("<name/><name>v</name>", "name"));
  EXPECT_EQ("", value("<name a=\"b/>c\">v</name>", "name")) << "quotes mean nothing";
  EXPECT_EQ("v", value("<name a=\"b/c\"/ >v</name>", "name")) << "a slash with something between it and the bracket";
  EXPECT_EQ("/", value("<name>/</name>", "name"));
}

TEST(ElementValue, StartTagEndsAtTheFirstBracket) {
  EXPECT_EQ("c\">v", value("<a b=\">c\">v</a>", "a"));
  EXPECT_EQ(">v", value("<a>>v</a>", "a"));
}

TEST(ElementValue, RunsToTheFirstEndTagOfThatName) {
  EXPECT_EQ("<a>1", value("<a><a>1</a>2</a>", "a"));
  EXPECT_EQ("1", value("<if>1</ifname>2</if>", "if")) << "the end of a longer name too";
  EXPECT_EQ("1", value("<a>1</a", "a"));
  EXPECT_EQ(not_found, value("<a>1", "a"));
  EXPECT_EQ(not_found, value("</a><a>1", "a"));
  EXPECT_EQ(not_found, value("<a>1< /a>", "a"));
  EXPECT_EQ(not_found, value("<a>1</b>", "a"));
}

TEST(ElementValue, DoesNotLookAgainAfterAFailedFirstMatch) {
  EXPECT_EQ(not_found, value("<Name>1</Name><name>2</Name>", "name"));
  EXPECT_EQ("1</Name><name>2", value("<Name>1</Name><name>2</name>", "name"));
}

TEST(ElementValue, MeansNothingByCommentsAndSections) {
  EXPECT_EQ("1", value("<!-- <a>1</a> --><a>2</a>", "a"));
  EXPECT_EQ("1", value("<![CDATA[<a>1</a>]]><a>2</a>", "a"));
  EXPECT_EQ("<![CDATA[]]><![CDATA[v]]>", value("<a><![CDATA[]]><![CDATA[v]]></a>", "a"));
}

TEST(ElementValue, OfAStartTagThatDoesNotEndIsNotFound) {
  for (const char *text : {"<a ", "<a/", "<a b=\"1\"", "<a b=\"/", "<a /", "<a ////", "<a </a"})
    EXPECT_EQ(not_found, value(text, "a")) << text;
  EXPECT_EQ(not_found, value("<a </a>", "a")) << "that tag ends, the element does not";
}

TEST(ElementValue, ZeroesTheDestination) {
  for (const char *text : {"<a>v</a>", "<a/>", "<b>", "<a>v", "<a "}) {
    GuardedMemory dest(8);
    memset(dest.data(), '?', 8);
    const int found = _get_element_value(text, dest.data(), 8, "a");
    EXPECT_EQ(std::string(found && strlen(text) > 4 ? "v" : "") + std::string(found && strlen(text) > 4 ? 7 : 8, '\0'),
              dest.bytes())
        << text;
  }
}

TEST(ElementValue, IsCutAtTheSizeWithoutATerminator) {
  const std::string text = "<a>0123456789</a>";
  for (int size = 1; size <= 12; size++) {
    GuardedMemory dest(static_cast<size_t>(size));
    memset(dest.data(), '?', static_cast<size_t>(size));
    EXPECT_EQ(1, _get_element_value(text.c_str(), dest.data(), size, "a"));
    EXPECT_EQ(std::string("0123456789\0\0", 12).substr(0, static_cast<size_t>(size)), dest.bytes());
    memset(dest.data(), '?', static_cast<size_t>(size));
    EXPECT_EQ(1, get_element_value(("<b>" + text + "</b>").c_str(), dest.data(), size, "b/a"));
    EXPECT_EQ(std::string("0123456789\0\0", 12).substr(0, static_cast<size_t>(size)), dest.bytes());
  }
}

TEST(ElementValue, StoresNothingInNoRoom) {
  for (const int size : {0, -1, -2147483647 - 1}) {
    char dest[4] = {'?', '?', '?', '?'};
    EXPECT_EQ(1, _get_element_value("<a>v</a>", dest, size, "a"));
    EXPECT_EQ(0, _get_element_value("<a>v</a>", dest, size, "b"));
    EXPECT_EQ(1, get_element_value("<a>v</a>", dest, size, "a"));
    EXPECT_EQ("????", std::string(dest, 4));
  }
}

TEST(ElementValue, NullArgumentsTouchNothing) {
  char dest[4] = {'?', '?', '?', '?'};
  for (const Lookup lookup : {_get_element_value, get_element_value}) {
    EXPECT_EQ(0, lookup(nullptr, dest, 4, "a"));
    sandbox::fail_allocation(1);
    EXPECT_EQ(0, lookup("<a>v</a>", nullptr, 4, "a"));
    EXPECT_FALSE(sandbox::allocation_failed()) << "it did not begin";
    sandbox::fail_allocation(0);
    EXPECT_EQ(0, lookup("<a>v</a>", dest, 4, nullptr));
    EXPECT_EQ("????", std::string(dest, 4));
  }
}

TEST(ElementValue, LooksAt510CharactersOfANameAtItsStartAnd509AtItsEnd) {
  for (const size_t length : {508u, 509u, 510u}) {
    const std::string name(length, 'n');
    EXPECT_EQ("v", value("<" + name + ">v</" + name + ">", name)) << length;
    EXPECT_EQ(not_found, value("<" + name + "x>v</" + name + ">", name)) << length;
  }
  const std::string n509(509, 'n'), n510(510, 'n'), n511(511, 'n'), n1000(1000, 'n');
  EXPECT_EQ("v", value("<" + n510 + ">v</" + n509 + ">", n510)) << "the end tag is cut by one";
  EXPECT_EQ(not_found, value("<" + n509 + ">v</" + n509.substr(1) + ">", n509));
  EXPECT_EQ(not_found, value("<" + n511 + ">v</" + n511 + ">", n511)) << "a longer name than the pattern";
  EXPECT_EQ("v", value("<" + n510 + ">v</" + n510 + ">", n511)) << "the cut name is the one that is sought";
  EXPECT_EQ("v", value("<" + n510 + ">v</" + n510 + ">", n1000));
  EXPECT_EQ("v", at_path("<x><" + n510 + ">v</" + n510 + "></x>", "x/" + n1000));
}

TEST(ElementValue, TakesAnEmptyNameByTheSameRules) {
  EXPECT_EQ(" y ", value("<a><b>x</b> y </a>", ""));
  EXPECT_EQ(not_found, value("<a>", ""));
}

TEST(ElementValue, NameIsNotAFormat) {
  EXPECT_EQ("v", value("<%s%n>v</%s%n>", "%s%n"));
}

TEST(ElementValue, OfEveryTruncationNeedsTheStartOfTheEndTag) {
  const std::string text = good;
  for (size_t length = 0; length <= text.size(); length++) {
    const std::string cut = text.substr(0, length);
    EXPECT_EQ(length >= text.find("</ifname") + 8 ? "ppp0" : not_found, value(cut, "ifname")) << cut;
    EXPECT_EQ(length >= text.find("</if>") + 4 ? "eth0" : not_found, value(cut, "if")) << cut;
    EXPECT_EQ(length >= text.find("<up/>") + 5 ? "" : not_found, value(cut, "up")) << cut;
    EXPECT_EQ(length >= text.find("</wancfg") + 8 ? "eth0" : not_found, at_path(cut, "wancfg/if")) << cut;
  }
}

TEST_F(ElementPath, LeadsToTheFirstInTheFirst) {
  EXPECT_EQ("ppp0", at_path(good, "wancfg/ifname"));
  EXPECT_EQ("eth0", at_path(good, "wancfg/if"));
  EXPECT_EQ("", at_path(good, "wancfg/up"));
  EXPECT_EQ("v", at_path("<a>v</a>", "a"));
  EXPECT_EQ("v", at_path("<a><b><c>v</c></b></a>", "a/b/c"));
  EXPECT_EQ("2", at_path("<c>1</c><a><b><c>2</c></b><c>3</c></a>", "a/b/c"));
  EXPECT_EQ("3", at_path("<x><b>1</b></x><y><b>3</b></y>", "y/b"));
}

TEST_F(ElementPath, DoesNotTryTheNextOuterElement) {
  EXPECT_EQ(not_found, at_path("<a><x/></a><a><b>v</b></a>", "a/b"));
  EXPECT_EQ(not_found, at_path("<a/><a><b>v</b></a>", "a/b"));
}

TEST_F(ElementPath, LooksOnlyInsideTheOuterElement) {
  EXPECT_EQ(not_found, at_path("<a>1</a><b>2</b>", "a/b"));
  EXPECT_EQ(not_found, at_path("<a><b>v</a></b>", "a/b"));
}

TEST_F(ElementPath, FollowsNestedElementsOfOneName) {
  EXPECT_EQ(not_found, at_path("<a><a>1</a></a>", "a/a")) << "the first end tag ends the outer one";
  EXPECT_EQ("", at_path("<a><a/></a>", "a/a"));
}

TEST_F(ElementPath, IgnoresOneSlashAtItsEnd) {
  EXPECT_EQ("ppp0", at_path(good, "wancfg/ifname/"));
  EXPECT_EQ("v", at_path("<a>v</a>", "a/"));
  EXPECT_EQ(not_found, at_path("<a>v</a>", "a//"));
}

TEST_F(ElementPath, HasNoSlashAtItsStartAndNoTwoInARow) {
  EXPECT_EQ(not_found, at_path(good, "/wancfg/ifname"));
  EXPECT_EQ(not_found, at_path(good, "/wancfg"));
  EXPECT_EQ(not_found, at_path(good, "wancfg//ifname"));
  EXPECT_EQ(not_found, at_path(good, "//wancfg"));
  EXPECT_EQ(not_found, at_path(good, "/"));
  EXPECT_EQ(not_found, at_path(good, "///"));
  EXPECT_EQ("v", at_path("</a>v<//a>", "/a")) << "the slash is part of the name that is sought";
  EXPECT_EQ("v", at_path("<x></a>v<//a></x>", "x//a"));
  EXPECT_EQ("v", at_path("</a><b>v</b><//a>", "/a/b"));
}

TEST_F(ElementPath, FindsNothingInAnEmptyText) {
  for (const char *path : {"", "a", "a/b", "a/b/c", "/"})
    EXPECT_EQ(not_found, at_path("", path)) << path;
}

TEST_F(ElementPath, EmptiesTheDestinationOnlyForTheLastElement) {
  char dest[4] = {'?', '?', '?', '?'};
  EXPECT_EQ(0, get_element_value("<a>v</a>", dest, 4, "x/b"));
  EXPECT_EQ("????", std::string(dest, 4));
  EXPECT_EQ(0, get_element_value("<a>v</a>", dest, 4, "a/b"));
  EXPECT_EQ(std::string(4, '\0'), std::string(dest, 4));
}

TEST_F(ElementPath, MayHaveThousandsOfNames) {
  constexpr size_t depth = 3000;
  std::string text = "v", path;
  for (size_t i = 0; i < depth; i++) { // names of one length, so that none is the start of another
    const std::string name = "n" + std::to_string(100000 + i);
    text.insert(0, "<" + name + ">");
    text += "</" + name + ">";
    path.insert(0, name + "/");
  }
  EXPECT_EQ("v", at_path(text, path));
  EXPECT_EQ(not_found, at_path(good, repeated("wancfg/", 1000 * 1000)));
}

TEST(ElementPathAllocation, FailureIsTracedAndFindsNothing) {
  char dest[8];
  const auto look = [&] { return get_element_value("<a><b><c>v</c></b></a>", dest, 8, "a/b/c"); };
  sandbox::clear_console();
  unsigned failures = 0;
  EXPECT_EQ(3u, sandbox::fail_each_allocation(look,
                                              [&](int found, bool failed) {
                                                failures += failed;
                                                EXPECT_EQ(failed ? 0 : 1, found);
                                              }))
      << "a copy of the path, and one for each slash";
  const auto traces = sandbox::console();
  ASSERT_EQ(failures, traces.size());
  for (const sandbox::Trace &trace : traces) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ("vemta_xml", trace.file);
    EXPECT_EQ("get_element_value", trace.func);
    EXPECT_EQ("cannot alloc memory, return error\n", trace.message);
  }
  EXPECT_STREQ("v", dest);
}

TEST(ElementPathAllocation, FailureWithoutAConsoleFindsNothing) {
  const sandbox::UnopenableConsole console;
  char dest[8];
  EXPECT_EQ(2u, sandbox::fail_each_allocation([&] { return get_element_value("<a><b>v</b></a>", dest, 8, "a/b"); },
                                              [](int found, bool failed) { EXPECT_EQ(failed ? 0 : 1, found); }));
}

TEST(ElementPathAllocation, OneNameTakesOneCopy) {
  char dest[8];
  sandbox::clear_console();
  EXPECT_EQ(1u, sandbox::fail_each_allocation([&] { return get_element_value("<a>v</a>", dest, 8, "a/"); },
                                              [](int found, bool failed) { EXPECT_EQ(failed ? 0 : 1, found); }));
}

TEST(ElementOfPrinted, CarriesTheMarkers) {
  const Document doc = document(xmlNewNode("wancfg"));
  xml_node *ifname = xmlAddChild(doc->root, element("ifname", "abcd"));
  xmlAddAttr(ifname, "id", "atm0");
  xmlAddAttr(ifname, "class", "ioio");
  xmlAddChild(xmlAddChild(doc->root, xmlNewNode("ptAddr")), element("ipaddr", "a]]>b"));
  xmlAddChild(doc->root, xmlNewNode("empty"));
  const std::string text = documents::printed_text(doc);
  EXPECT_EQ("<![CDATA[]]><![CDATA[abcd]]>", at_path(text, "wancfg/ifname"));
  EXPECT_EQ("<![CDATA[]]><![CDATA[a]]]]><![CDATA[>b]]>", at_path(text, "wancfg/ptAddr/ipaddr"));
  EXPECT_EQ("<![CDATA[]]><![CDATA[]]>", at_path(text, "wancfg/empty"));
  EXPECT_EQ("<![CDATA[]]><![CDATA[\n\t\t<ipaddr><![CDATA[]]><![CDATA[a]]]]><![CDATA[>b]]></ipaddr>\n\t]]>",
            at_path(text, "wancfg/ptAddr"));
}

namespace {

// Removes the markers as the manual describes it.
std::string without_markers(std::string content) {
  const std::string start = "<![CDATA[]]><![CDATA[", end = "]]>", escaped = "]]]]><![CDATA[>";
  EXPECT_EQ(21u, start.size());
  EXPECT_EQ(start, content.substr(0, start.size()));
  EXPECT_EQ(end, content.substr(content.size() - end.size()));
  content = content.substr(start.size(), content.size() - start.size() - end.size());
  for (size_t at = 0; (at = content.find(escaped, at)) != std::string::npos; at += end.size())
    content.replace(at, escaped.size(), end);
  return content;
}

} // namespace

TEST(ElementOfPrinted, IsTheTextThatWasGivenOnceTheMarkersAreGone) {
  for (const char *text : {"x", "", "]]>", "]]]>", "]]>]]>", "a]]>b]]>c", "]]", ">", "<b>", "&amp;", "\t\r\n \xff",
                           "]]]]><![CDATA[>", "<![CDATA[]]><![CDATA["}) {
    const Document doc = document(xmlNewNode("a"));
    xmlAddChild(doc->root, element("b1", "other"));
    xmlAddChild(xmlAddChild(doc->root, xmlNewNode("c")), element("d", text));
    EXPECT_EQ(text, without_markers(at_path(documents::printed_text(doc), "a/c/d")));
  }
}

TEST(ElementPathTime, IsInProportionToTheText) {
  if (!sandbox::times_are_real)
    GTEST_SKIP() << "times mean nothing with a sanitizer";
  struct {
    const char *what, *before, *piece, *after, *path;
  } const cases[] = {
      {"long content", "<a><b>", "content ", "</b></a>", "a/b"},
      {"longer names", "<a>", "<ifname>x</ifname>", "<if>y</if></a>", "a/if"},
      {"not there", "<a>", "<x>y</x>", "</a>", "a/if"},
      {"start tags without end", "<a>", "<b ", "</a>", "a/b"},
      {"half tags", "<a>", "<<<<</</", "</a>", "a/<<b"},
      {"no end tag", "<a>", "</", "", "a"},
      {"one tag without end", "<a ", "/ x=\"", "", "a"},
      {"deep path", "<a><b><c><d><e><f>", "text", "</f></e></d></c></b></a>", "a/b/c/d/e/f"},
  };
  const auto time_for = [](const std::string &text, const char *path) {
    std::string dest(text.size() + 1, '\0');
    const int size = static_cast<int>(dest.size());
    return nanoseconds_per_byte(text.size(), [&] { get_element_value(text.c_str(), dest.data(), size, path); });
  };
  for (const auto &c : cases) {
    const auto text = [&](size_t size) { return c.before + repeated(c.piece, size / strlen(c.piece)) + c.after; };
    expect_proportional(c.what, time_for(text(10000), c.path), time_for(text(1000000), c.path));
  }
}
