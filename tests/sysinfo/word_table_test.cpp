#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace {

constexpr char path[] = "/run/words";

struct Found {
  int result;
  std::string text;    // what was stored, "-" for nothing
  std::string printed; // on standard output
};

bool operator==(const Found &a, const Found &b) {
  return a.result == b.result && a.text == b.text && a.printed == b.printed;
}

void PrintTo(const Found &found, std::ostream *out) {
  *out << found.result << " <" << found.text << "> printed <" << found.printed << ">";
}

class Words : public testing::Test {
 protected:
  void SetUp() override {
    descriptors = sandbox::open_descriptors();
    sandbox::clear_console();
  }
  void TearDown() override {
    start_over();
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    EXPECT_EQ("", sandbox::console_text());
    unlink(path);
  }

  // Every test starts as a new process would.
  static void start_over() {
    close_fp();
    str_fp = nullptr;
  }
  static void have_file(const std::string &text) {
    start_over();
    sandbox::write_file(path, text);
  }

  static Found get(int number, int kind, int size = 200, const char *file = path) {
    char buffer[6000] = "-";
    sandbox::Captured output(STDOUT_FILENO);
    const int result = get_words(file, number, kind, buffer, size);
    return {result, buffer, output.text()};
  }
  static Found show(int number, int kind, const char *file = path) {
    sandbox::Captured output(STDOUT_FILENO);
    const int result = show_words(file, number, kind);
    return {result, "-", output.text()};
  }

  // Expects that a text is found, copied and shown.
  static void expect_text(int number, int kind, const std::string &text) {
    const int length = static_cast<int>(text.size());
    EXPECT_EQ((Found{length, text, ""}), get(number, kind, 6000));
    EXPECT_EQ((Found{length, "-", text}), show(number, kind));
  }
  // Expects that nothing is found or printed.
  static void expect_none(int number, int kind) {
    EXPECT_EQ((Found{0, "-", ""}), get(number, kind));
    EXPECT_EQ((Found{0, "-", ""}), show(number, kind));
  }

  int descriptors = 0;
};

const Found parse_error(int line) {
  const std::string message = "Parsing failed at line: " + std::to_string(line) + " \n";
  return {static_cast<int>(message.size()), "-", message};
}

} // namespace

TEST_F(Words, AreFoundByNumberAndKind) {
  have_file("5[m]=Hello\n5[d]=World\n12[m]=Save\n-3[d]=minus\n");
  expect_text(5, 0, "Hello");
  expect_text(5, 1, "World");
  expect_text(12, 0, "Save");
  expect_text(-3, 1, "minus");
  expect_none(12, 1);
  expect_none(1, 0);
  expect_none(2, 0);
}

TEST_F(Words, NumbersMayHaveAllTheirDigits) {
  have_file("-2147483648[m]=least\n2147483647[d]=most\n");
  expect_text(INT_MIN, 0, "least");
  expect_text(INT_MAX, 1, "most");
}

TEST_F(Words, KeysAreComparedExactly) {
  have_file("05[m]=a\n5 [m]=b\n5[M]=c\n5[m] =d\n5=e\n15[m]=f\n\t5[m]=g\n5[m]=right\n");
  expect_text(5, 0, "right");
}

TEST_F(Words, OfOtherKindsAreTheLinesWithAnEmptyKey) {
  have_file("5[m]=Hello\n=nameless\n");
  for (const int kind : {2, -1, 7, INT_MAX}) {
    expect_text(5, kind, "nameless");
    expect_text(6, kind, "nameless");
  }
  have_file("5[m]=Hello\n");
  expect_none(5, 2);
}

TEST_F(Words, TextsKeepEqualsSignsAndWhiteSpace) {
  have_file("7[m]=a=b\n8[m]= two words \t\n9[m]==\n10[m]=100%s\n");
  expect_text(7, 0, "a=b");
  expect_text(8, 0, " two words \t");
  expect_text(9, 0, "=");
  expect_text(10, 0, "100%s");
}

TEST_F(Words, OneNewlineIsRemoved) {
  have_file("1[m]=text\r\n2[m]=last");
  expect_text(1, 0, "text\r");
  expect_text(2, 0, "last");
}

TEST_F(Words, AnEmptyTextIsFoundAndStored) {
  have_file("1[m]=\n2[m]=");
  EXPECT_EQ((Found{0, "", ""}), get(1, 0));
  EXPECT_EQ((Found{0, "", ""}), get(2, 0));
  EXPECT_EQ((Found{0, "-", ""}), show(1, 0));
}

TEST_F(Words, TheFirstLineOfAKeyCounts) {
  have_file("1[m]=first\n1[m]=second\n");
  expect_text(1, 0, "first");
}

TEST_F(Words, SkippedLinesMayStandAnywhere) {
  have_file("\n# 1[m]=no\n;1[m]=no\n 1[m]=no\n1[m]=yes\n\n;\n#\n \n2[m]=end\n");
  expect_text(1, 0, "yes");
  expect_text(2, 0, "end");
}

TEST_F(Words, AMalformedLineBeforeTheWantedOneEndsLookupsForGood) {
  for (const char *line : {"malformed\n", "\t\n", "\r\n", "\t# no comment\n", "5[m]\n"}) {
    have_file(std::string("# comment\n1[m]=one\n\n") + line + "5[m]=five\n");
    expect_text(1, 0, "one"); // its line comes before the malformed one
    FILE *const handle = str_fp;
    EXPECT_EQ(parse_error(4), get(5, 0)) << line;
    EXPECT_EQ(descriptors, sandbox::open_descriptors()); // closed
    EXPECT_EQ(handle, str_fp);
    expect_none(1, 0);
    expect_none(5, 0);
    close_fp();
    EXPECT_EQ(handle, str_fp);
    expect_none(1, 0);
  }
}

TEST_F(Words, AMalformedLineIsToldWhenTextsAreShownToo) {
  have_file("malformed\n5[m]=five\n");
  EXPECT_EQ(parse_error(1), show(5, 0));
  expect_none(5, 0);
}

TEST_F(Words, AMalformedLineAfterTheWantedOneDoesNoHarm) {
  have_file("5[m]=five\nmalformed\n");
  expect_text(5, 0, "five");
  expect_text(5, 0, "five");
}

TEST_F(Words, AMalformedLastLineIsMetByWhatIsNotFound) {
  have_file("5[m]=five\nmalformed");
  EXPECT_EQ(parse_error(2), get(6, 0));
  expect_none(5, 0);
}

TEST_F(Words, AClosedHandleIsNeverUsedAgain) {
  have_file("malformed\n");
  EXPECT_EQ(parse_error(1), get(5, 0));
  // The C library may reuse the memory for another stream, which does not belong to the library under test.
  sandbox::write_file("/run/other", "5[m]=another's\n");
  FILE *others[4];
  for (FILE *&other : others)
    other = fopen("/run/other", "r");
  expect_none(5, 0);
  close_fp();
  for (FILE *other : others) {
    EXPECT_EQ(0, ftell(other));
    EXPECT_EQ('5', getc(other));
    fclose(other);
  }
  unlink("/run/other");
}

TEST_F(Words, AProgramThatForgetsTheHandleStartsOver) {
  have_file("malformed\n");
  EXPECT_EQ(parse_error(1), get(5, 0));
  sandbox::write_file(path, "5[m]=five\n");
  str_fp = nullptr;
  expect_text(5, 0, "five"); // perhaps at the same address
  close_fp();
  expect_none(5, 0);
  str_fp = nullptr;
  expect_text(5, 0, "five");
}

TEST_F(Words, TheFirstFileStaysOpenAndOtherPathsAreNotLookedAt) {
  have_file("1[m]=one\n");
  EXPECT_EQ(nullptr, str_fp);
  expect_text(1, 0, "one");
  FILE *const handle = str_fp;
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ(descriptors + 1, sandbox::open_descriptors());
  EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(handle), F_GETFD));
  EXPECT_EQ((Found{3, "one", ""}), get(1, 0, 200, "/run/absent"));
  EXPECT_EQ((Found{3, "-", "one"}), show(1, 0, "/run/absent"));
  EXPECT_EQ(handle, str_fp);
  EXPECT_EQ(descriptors + 1, sandbox::open_descriptors());
}

TEST_F(Words, CloseEndsLookupsAndKeepsTheHandle) {
  have_file("1[m]=one\n");
  close_fp(); // nothing is open
  EXPECT_EQ(nullptr, str_fp);
  expect_text(1, 0, "one");
  FILE *const handle = str_fp;
  close_fp();
  EXPECT_EQ(handle, str_fp);
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
  expect_none(1, 0);
  close_fp(); // closes nothing twice
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

TEST_F(Words, APathThatNamesNoFileIsTold) {
  have_file("1[m]=one\n");
  const std::string null_name = "Unknown file name ((null)).\n", empty_name = "Unknown file name ().\n";
  EXPECT_EQ((Found{28, "-", null_name}), get(1, 0, 200, nullptr));
  EXPECT_EQ((Found{22, "-", empty_name}), get(1, 0, 200, ""));
  EXPECT_EQ((Found{28, "-", null_name}), show(1, 0, nullptr));
  EXPECT_EQ((Found{22, "-", empty_name}), show(1, 0, ""));
  expect_text(1, 0, "one");
  EXPECT_EQ((Found{28, "-", null_name}), get(1, 0, 200, nullptr)); // also while a file is open
  EXPECT_EQ((Found{22, "-", empty_name}), show(1, 0, ""));
}

TEST_F(Words, ANullDestinationIsTold) {
  have_file("1[m]=one\n");
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(12, get_words(path, 1, 0, nullptr, 100));
  EXPECT_EQ("buf is NULL\n", output.text());
  EXPECT_EQ(nullptr, str_fp);                            // nothing was opened
  EXPECT_EQ(28, get_words(nullptr, 1, 0, nullptr, 100)); // the path is checked first
  EXPECT_EQ("buf is NULL\nUnknown file name ((null)).\n", output.text());
}

TEST_F(Words, AFileThatCannotBeOpenedIsToldAndTriedAgain) {
  const std::string message = "Cannot open string file (/run/absent)\n";
  EXPECT_EQ((Found{38, "-", message}), get(1, 0, 200, "/run/absent"));
  EXPECT_EQ((Found{38, "-", message}), show(1, 0, "/run/absent"));
  EXPECT_EQ(nullptr, str_fp);
  have_file("1[m]=one\n");
  expect_text(1, 0, "one");
}

TEST_F(Words, ALongTextIsCutAndItsWholeLengthTold) {
  have_file("1[m]=0123456789\n");
  EXPECT_EQ((Found{10, "0123456789", ""}), get(1, 0, 11));
  EXPECT_EQ((Found{10, "012345678", ""}), get(1, 0, 10));
  EXPECT_EQ((Found{10, "0", ""}), get(1, 0, 2));
  EXPECT_EQ((Found{10, "", ""}), get(1, 0, 1));
  for (const int size : {0, -1, INT_MIN})
    EXPECT_EQ((Found{10, "-", ""}), get(1, 0, size)); // untouched
  char exact[5] = {'#', '#', '#', '#', '#'};
  EXPECT_EQ(10, get_words(path, 1, 0, exact, 4));
  EXPECT_EQ(std::string("012\0#", 5), std::string(exact, 5));
}

TEST_F(Words, LinesOf4094CharactersAreWholeAndLongerOnesAreSplit) {
  const std::string key = "1[m]=", fits(4094 - key.size(), 'x');
  have_file(key + fits + "\n2[m]=two\n");
  expect_text(1, 0, fits);
  expect_text(2, 0, "two");
  // The newline is left over and reads as an empty line.
  have_file(key + fits + "y\n2[m]=two\n");
  expect_text(1, 0, fits + "y");
  expect_text(2, 0, "two");
  have_file(key + fits + "yz\n2[m]=two\n");
  expect_text(1, 0, fits + "y");
  EXPECT_EQ(parse_error(2), get(2, 0));
  have_file(key + fits + "y2[m]=inside\n3[m]=three\nbad\n");
  expect_text(2, 0, "inside");
  expect_text(3, 0, "three");
  EXPECT_EQ(parse_error(4), get(4, 0)); // counted as they were read
}

TEST_F(Words, AZeroByteEndsTheTextOfItsLine) {
  using namespace std::string_literals;
  have_file("1[m]=a\0b\n2[m]=two\n"s);
  expect_text(1, 0, "a");
  expect_text(2, 0, "two");
  have_file("1[m]=a\n\0\n2[m]=two\n"s);
  EXPECT_EQ(parse_error(2), get(2, 0));
}

TEST_F(Words, AnEmptyFileHasNone) {
  have_file("");
  expect_none(1, 0);
  have_file("# nothing\n");
  expect_none(1, 0);
}

TEST_F(Words, ADirectoryHasNone) {
  EXPECT_EQ((Found{0, "-", ""}), get(1, 0, 200, "/run"));
  EXPECT_EQ((Found{0, "-", ""}), show(1, 0, "/run"));
}
