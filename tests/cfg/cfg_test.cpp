#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

RECORD_LAYOUT(CfgEntry, 3 * sizeof(void *), FIELD(tag, 0, 4), FIELD(key, sizeof(void *), sizeof(void *)),
              FIELD(value, 2 * sizeof(void *), sizeof(void *)));

constexpr char path[] = "/run/test.cfg";

// The outcome of reading a file: the result, each key's value ("-" for null), and what was printed.
struct Outcome {
  int result;
  std::vector<std::string> values;
  std::string errors, output;
};

class Configuration : public testing::Test {
 protected:
  void SetUp() override {
    descriptors = sandbox::open_descriptors();
    sandbox::clear_console();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    EXPECT_EQ("", sandbox::console_text());
    unlink(path);
  }

  static Outcome read(const std::string &text, const std::vector<std::string> &keys) {
    sandbox::write_file(path, text);
    std::vector<CfgEntry> table;
    for (const std::string &key : keys)
      table.push_back({0xABCD, key.c_str(), nullptr});
    Outcome outcome;
    {
      sandbox::Captured errors(STDERR_FILENO);
      outcome.result = cfg_construct(path, table.data(), static_cast<int>(table.size()));
      outcome.errors = errors.text();
    }
    for (size_t i = 0; i < table.size(); i++) {
      outcome.values.push_back(table[i].value ? table[i].value : "-");
      EXPECT_EQ(0xABCDu, table[i].tag);
      EXPECT_EQ(keys[i].c_str(), table[i].key);
    }
    EXPECT_EQ(0, cfg_destory(table.data(), static_cast<int>(table.size())));
    for (const CfgEntry &row : table)
      EXPECT_EQ(nullptr, row.value);
    return outcome;
  }

  // Expects these values of a file about which nothing is printed.
  static void expect_values(const std::string &text, const std::vector<std::string> &keys,
                            const std::vector<std::string> &values) {
    const Outcome outcome = read(text, keys);
    EXPECT_EQ(0, outcome.result) << text;
    EXPECT_EQ(values, outcome.values) << text;
    EXPECT_EQ("", outcome.errors) << text;
  }

  int descriptors = 0;
};

} // namespace

TEST_F(Configuration, ALineIsAKeyAndAValue) {
  expect_values("name=value\n", {"name"}, {"value"});
  expect_values("b=2\na=1\n", {"a", "b", "c"}, {"1", "2", "-"});
}

TEST_F(Configuration, WhiteSpaceAroundKeyAndValueIsLeftOut) {
  expect_values("  name  =  some value  \n", {"name"}, {"some value"});
  expect_values("\t\v\f\r name \t=\v\f\r\t some\t value \t\v\f\r\n", {"name"}, {"some\t value"});
  expect_values("two words = x\n", {"two words"}, {"x"});
}

TEST_F(Configuration, TheKeyEndsAtTheFirstEqualsSign) {
  expect_values("a=b=c\n", {"a"}, {"b=c"});
  expect_values("a==\n", {"a"}, {"="});
  expect_values("a = = b\n", {"a"}, {"= b"});
}

TEST_F(Configuration, AValueMayBeEmpty) {
  expect_values("key=\n", {"key"}, {""});
  expect_values("key =  \t \n", {"key"}, {""});
  expect_values("key=", {"key"}, {""});
  expect_values("key=   ", {"key"}, {""}); // blanks before a value are dropped, also at the end of the file
}

TEST_F(Configuration, EmptyLinesAndCommentsAreIgnored) {
  expect_values("\n  \t\n# a=b\n   #a=c\n#\n\r\n", {"a"}, {"-"});
  expect_values("a=#1 # no comment\n", {"a"}, {"#1 # no comment"});
  expect_values("a#b=1\n", {"a#b"}, {"1"});
}

TEST_F(Configuration, QuotesAndBackslashesAreText) {
  expect_values("a=\"quoted\"\nb='x'\nc=\\n\\\nd=%s%n\n", {"a", "b", "c", "d"}, {"\"quoted\"", "'x'", "\\n\\", "%s%n"});
}

TEST_F(Configuration, AnEmptyFileIsRead) {
  expect_values("", {"a"}, {"-"});
}

TEST_F(Configuration, ALastLineWithoutANewlineKeepsItsWhiteSpace) {
  expect_values("a=1\nb= 2 \t", {"a", "b"}, {"1", "2 \t"});
}

TEST_F(Configuration, CarriageReturnsGo) {
  expect_values("a=1\r\nb = 2 \r\n\r\n# c\r\n", {"a", "b"}, {"1", "2"});
  expect_values("a=1\r", {"a"}, {"1\r"});
}

TEST_F(Configuration, KeysAreComparedWholeAndWithCase) {
  const Outcome outcome = read("Name=1\nnam=2\nnames=3\nname=4\n", {"name"});
  EXPECT_EQ(5, outcome.result);
  EXPECT_EQ(std::vector<std::string>{"4"}, outcome.values);
  EXPECT_EQ("parsing error file, line 1 : Name\nparsing error file, line 2 : nam\nparsing error file, line 3 : names\n",
            outcome.errors);
}

TEST_F(Configuration, AnUnknownKeyIsReportedAndTheRestIsRead) {
  const Outcome outcome = read("# comment\n\n  other key \t= 1\na=2\n", {"a"});
  EXPECT_EQ(5, outcome.result);
  EXPECT_EQ(std::vector<std::string>{"2"}, outcome.values);
  EXPECT_EQ("parsing error file, line 3 : other key\n", outcome.errors);
}

TEST_F(Configuration, ALineWithoutEqualsIsReportedAndDoesNotCount) {
  const Outcome outcome = read("a=1\n  what is this  \nb=2\nend ", {"a", "b"});
  EXPECT_EQ(0, outcome.result);
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), outcome.values);
  EXPECT_EQ("parsing error file, line 2 : what is this\nparsing error file, line 4 : end \n", outcome.errors);
}

TEST_F(Configuration, TheEmptyKeyIsAKeyLikeAnyOther) {
  const Outcome outcome = read("=value\n", {"a"});
  EXPECT_EQ(5, outcome.result);
  EXPECT_EQ("parsing error file, line 1 : \n", outcome.errors);
  expect_values("  = value\n", {"a", ""}, {"-", "value"});
}

TEST_F(Configuration, ALaterValueReplacesAnEarlierOne) {
  // In a child, because nobody has the earlier values any more, and a sanitizer would miss them in this process.
  EXPECT_EQ(0, sandbox::in_child([] {
              const Outcome outcome = read("a=1\na=22222\nb=x\na=3\n", {"a", "b"});
              return outcome.result == 0 && outcome.values == std::vector<std::string>{"3", "x"} ? 0 : 1;
            }));
}

TEST_F(Configuration, AnEarlierValueIsReplacedAndNotFreed) {
  static char literal[] = "default";
  char *const allocated = strdup("own");
  CfgEntry table[] = {{0, "a", literal}, {0, "b", allocated}, {0, "c", literal}};
  sandbox::write_file(path, "a=1\nb=2\n");
  EXPECT_EQ(0, cfg_construct(path, table, 3));
  EXPECT_STREQ("1", table[0].value);
  EXPECT_STREQ("2", table[1].value);
  EXPECT_EQ(literal, table[2].value);
  EXPECT_STREQ("own", allocated);
  free(allocated);

  char *const first = table[0].value;
  sandbox::write_file(path, "a=3\n");
  EXPECT_EQ(0, cfg_construct(path, table, 3));
  EXPECT_STREQ("3", table[0].value);
  EXPECT_STREQ("1", first);
  free(first);
  table[2].value = nullptr;
  cfg_destory(table, 3);
}

TEST_F(Configuration, OfRowsWithTheSameKeyTheFirstIsSet) {
  expect_values("a=2\n", {"b", "a", "a"}, {"-", "2", "-"});
}

TEST_F(Configuration, LinesOf1022CharactersAreWholeAndLongerOnesAreSplit) {
  const std::string start = "a=", fits(1022 - start.size(), 'x');
  expect_values(start + fits + "\nb=1\n", {"a", "b"}, {fits, "1"});
  // Of 1023 characters the newline is left over and reads as an empty line.
  expect_values(start + fits + "y\nb=1\n", {"a", "b"}, {fits + "y", "1"});
  expect_values(start + fits + " \nb=1\n", {"a", "b"}, {fits + " ", "1"});
  // Of 1024 characters the last one is left over too.
  Outcome outcome = read(start + fits + "yz\nb\n", {"a", "b"});
  EXPECT_EQ(0, outcome.result);
  EXPECT_EQ((std::vector<std::string>{fits + "y", "-"}), outcome.values);
  EXPECT_EQ("parsing error file, line 2 : z\nparsing error file, line 3 : b\n", outcome.errors);
  // What is left over is read like any line.
  outcome = read(start + fits + "y b = 2 \nc=3\n\nd\n", {"a", "b", "c"});
  EXPECT_EQ((std::vector<std::string>{fits + "y", "2", "3"}), outcome.values);
  EXPECT_EQ("parsing error file, line 5 : d\n", outcome.errors);
  expect_values(start + std::string(1021, 'x') + "# no more\n", {"a"}, {std::string(1021, 'x')});
}

TEST_F(Configuration, AVeryLongLineIsReadInPieces) {
  const Outcome outcome = read("a=" + std::string(1023 * 5 - 2, 'x') + "b=1\nc\n", {"a", "b"});
  EXPECT_EQ((std::vector<std::string>{std::string(1021, 'x'), "1"}), outcome.values);
  std::string expected;
  for (int line = 2; line <= 5; line++)
    expected += "parsing error file, line " + std::to_string(line) + " : " + std::string(1023, 'x') + "\n";
  EXPECT_EQ(expected + "parsing error file, line 7 : c\n", outcome.errors);
}

TEST_F(Configuration, AZeroByteEndsTheTextOfItsLine) {
  using namespace std::string_literals;
  const Outcome outcome = read("a=1\0 2\n\0b=3\nb = 4 \0\nc\0=5\n\xff\xfe=\x80\n"s, {"a", "b", "\xff\xfe"});
  EXPECT_EQ(0, outcome.result);
  EXPECT_EQ((std::vector<std::string>{"1", "4 ", "\x80"}), outcome.values);
  EXPECT_EQ("parsing error file, line 4 : c\n", outcome.errors);
}

TEST_F(Configuration, RubbishIsReadToItsEnd) {
  std::string rubbish;
  for (unsigned i = 0, x = 1; i < 200000; i++, x = x * 1103515245 + 12345)
    rubbish += static_cast<char>(x >> 16);
  const Outcome outcome = read(rubbish + "\nlast = 1\n", {"last", "a"});
  EXPECT_EQ(5, outcome.result);
  EXPECT_EQ((std::vector<std::string>{"1", "-"}), outcome.values);
}

TEST_F(Configuration, RowsWithoutAKeyAreNeverFound) {
  sandbox::write_file(path, "a=1\n");
  CfgEntry table[] = {{0, nullptr, nullptr}, {0, "a", nullptr}};
  EXPECT_EQ(0, cfg_construct(path, table, 2));
  EXPECT_EQ(nullptr, table[0].value);
  EXPECT_STREQ("1", table[1].value);
  cfg_destory(table, 2);
}

TEST_F(Configuration, TheRowCountIsWhatCounts) {
  sandbox::write_file(path, "b=1\n");
  CfgEntry table[] = {{0, "a", nullptr}, {0, "b", nullptr}};
  sandbox::Captured errors(STDERR_FILENO);
  for (const int rows : {1, 0, -1})
    EXPECT_EQ(5, cfg_construct(path, table, rows));
  EXPECT_EQ(nullptr, table[1].value);
}

TEST_F(Configuration, SaysWhyItCannotBegin) {
  CfgEntry table[] = {{0, "a", nullptr}};
  EXPECT_EQ(4, cfg_construct(path, nullptr, 1));
  EXPECT_EQ(4, cfg_construct(nullptr, nullptr, 1));
  EXPECT_EQ(1, cfg_construct(nullptr, table, 1));
  EXPECT_EQ(3, cfg_construct("/run/absent.cfg", table, 1));
  EXPECT_EQ(3, cfg_construct("", table, 1));
  const sandbox::NoDescriptors none;
  sandbox::write_file(path, "a=1\n");
  EXPECT_EQ(3, cfg_construct(path, table, 1));
}

TEST_F(Configuration, ADirectoryReadsAsEmpty) {
  CfgEntry table[] = {{0, "a", nullptr}};
  EXPECT_EQ(0, cfg_construct("/run", table, 1));
  EXPECT_EQ(nullptr, table[0].value);
}

TEST_F(Configuration, AStreamIsReadFromWhereItStandsAndStaysOpen) {
  sandbox::write_file(path, "a=1\nb=2\nc=3\n");
  FILE *file = fopen(path, "r");
  char line[16];
  ASSERT_NE(nullptr, fgets(line, sizeof(line), file));
  CfgEntry table[] = {{0, "a", nullptr}, {0, "b", nullptr}, {0, "c", nullptr}};
  EXPECT_EQ(0, cfg_parse_file(file, table, 3));
  EXPECT_TRUE(feof(file));
  rewind(file);
  EXPECT_EQ('a', getc(file));
  EXPECT_EQ(4, cfg_parse_file(file, nullptr, 3));
  EXPECT_EQ('=', getc(file));
  fclose(file);
  EXPECT_EQ(3, cfg_parse_file(nullptr, table, 3));
  EXPECT_EQ(nullptr, table[0].value);
  EXPECT_STREQ("2", table[1].value);
  EXPECT_STREQ("3", table[2].value);
  cfg_destory(table, 3);
}

TEST_F(Configuration, SeveralFilesAreReadIntoOneTable) {
  CfgEntry table[] = {{0, "a", nullptr}, {0, "b", nullptr}};
  sandbox::write_file(path, "a=1\nb=2\n");
  EXPECT_EQ(0, cfg_construct(path, table, 2));
  char *const replaced = table[1].value;
  sandbox::write_file(path, "b=3\n");
  EXPECT_EQ(0, cfg_construct(path, table, 2));
  free(replaced);
  EXPECT_STREQ("1", table[0].value);
  EXPECT_STREQ("3", table[1].value);
  EXPECT_EQ(0, cfg_destory(table, 2));
  EXPECT_EQ(nullptr, table[0].value);
  EXPECT_EQ(nullptr, table[1].value);
  EXPECT_EQ(0, cfg_destory(table, 2));
  EXPECT_EQ(0, cfg_destory(nullptr, 2));
}

TEST_F(Configuration, ValuesThatFindNoMemoryAreReportedAndLeaveTheirRows) {
  sandbox::write_file(path, "a=new\nb=2\n");
  static char buffer[256];
  setvbuf(stdout, buffer, _IOFBF, sizeof(buffer)); // printing allocates nothing
  std::vector<std::string> values, messages;
  for (unsigned n = 1; n < 100; n++) {
    char old[] = "old";
    CfgEntry table[] = {{0, "a", old}, {0, "b", nullptr}};
    sandbox::Captured output(STDOUT_FILENO);
    sandbox::fail_allocation(n);
    const int result = cfg_construct(path, table, 2);
    const bool failed = sandbox::allocation_failed();
    sandbox::fail_allocation(0);
    if (result == 0) { // otherwise the file could not be opened
      values.push_back(std::string(table[0].value) + "," + (table[1].value ? table[1].value : "-"));
      messages.push_back(output.text());
    } else {
      EXPECT_EQ(3, result);
    }
    if (table[0].value == old)
      table[0].value = nullptr;
    cfg_destory(table, 2);
    if (!failed)
      break;
  }
  // The C library reads a file also without the buffer that it tries to allocate.
  const std::string message = "[cfg_parse_file::131] cannot alloc memory\n";
  ASSERT_GE(values.size(), 3u);
  const size_t last = values.size() - 1;
  EXPECT_EQ("old,2", values[last - 2]);
  EXPECT_EQ(message, messages[last - 2]);
  EXPECT_EQ("new,-", values[last - 1]);
  EXPECT_EQ(message, messages[last - 1]);
  EXPECT_EQ("new,2", values[last]);
  EXPECT_EQ("", messages[last]);
}
