// What becomes of guarded text in a real shell: which arguments a command gets, and that no other command runs.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"

using sandbox::read_file;
using sandbox::write_file;

namespace {

using Texts = std::vector<std::string>;

// Every script begins with this. `p` records how many arguments it got and each of them, with a zero byte behind it,
// which no argument contains. If a command ran besides `p`, it would be "canary"; or the shell would complain that it
// does not exist, because PATH leads nowhere; or a part of the text would be missing in an argument.
constexpr char preamble[] =
    "PATH=/run/shell/nowhere HOME=/run/shell/home\n"
    "unset ENV BASH_ENV CDPATH OLDPWD\n"
    "cd /run/shell/work || exit 1\n"
    "canary() { printf ran >>/run/shell/canary; }\n"
    "p() { printf '%d\\0' $#; case $# in 0) ;; *) printf '%s\\0' \"$@\" ;; esac; }\n";

struct Run {
  std::string arguments;  // as `p` records them
  std::string complaints; // of the shell
  bool canary_ran;
  bool left_files; // in the working directory
};

Run run_script(const std::string &shell, const std::string &body) {
  static constexpr char dir[] = "/run/shell";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(std::string(dir) + "/work");
  std::filesystem::create_directory(std::string(dir) + "/home");
  write_file("/run/shell/script", preamble + body);
  const std::string command = "LC_ALL=C " + shell + " /run/shell/script >/run/shell/out 2>/run/shell/err </dev/null";
  if (system(command.c_str()) == -1)
    perror(shell.c_str());
  return {read_file("/run/shell/out"), read_file("/run/shell/err"), sandbox::exists("/run/shell/canary"),
          !std::filesystem::is_empty("/run/shell/work")};
}

// Returns what `p` records for these arguments.
std::string record(const Texts &arguments) {
  std::string text = std::to_string(arguments.size()) + '\0';
  for (const std::string &argument : arguments)
    text += argument + '\0';
  return text;
}

bool is_untouched(const Run &run) {
  return run.complaints.empty() && !run.canary_ran && !run.left_files;
}

using Guard = std::function<std::string(const std::string &)>;
using Arguments = std::function<Texts(const std::string &)>;

// Runs a script that passes each text, guarded, to a `p` of its own, which must get exactly the expected arguments.
void expect_arguments(const std::string &shell, const Texts &texts, const Guard &guard, const Arguments &arguments) {
  std::string body, expected;
  for (const std::string &text : texts) {
    body += "p " + guard(text) + "\n";
    expected += record(arguments(text));
  }
  const Run run = run_script(shell, body);
  EXPECT_EQ("", run.complaints.substr(0, 500));
  EXPECT_FALSE(run.canary_ran);
  EXPECT_FALSE(run.left_files);
  if (run.arguments == expected)
    return;
  // The first text that went wrong is reported.
  size_t at = 0;
  for (const std::string &text : texts) {
    const std::string wanted = record(arguments(text));
    if (run.arguments.compare(at, wanted.size(), wanted) != 0) {
      ADD_FAILURE() << shell << " passed " << testing::PrintToString(run.arguments.substr(at, wanted.size() + 10))
                    << " for " << testing::PrintToString(text);
      return;
    }
    at += wanted.size();
  }
  ADD_FAILURE() << shell << " ran more commands than there were texts";
}

std::string escaped(const std::string &text) {
  std::string out(text.size() * 2 + 1, '\0');
  char *dst = out.data();
  escapeShellCommand(text.c_str(), &dst);
  return out.c_str();
}

std::string converted(const std::string &text) {
  std::string out(text.size() * 2 + 1, '\0');
  const int count =
      SpecialCharConvert(text.data(), static_cast<int>(text.size()), out.data(), static_cast<int>(text.size() * 2));
  return out.substr(0, static_cast<size_t>(count));
}

std::string double_quoted(const std::string &text) {
  return "\"" + text + "\"";
}

// Returns what a shell makes of escapeShellCommand's output. Newlines are gone, and blanks and tabs separate words. A
// single quote ends the text; without a partner it is repeated for every character that is left.
Texts words_of(const std::string &text) {
  Texts words;
  std::string word;
  bool in_word = false;
  for (size_t i = 0; i < text.size(); i++) {
    const char c = text[i];
    if (c == ' ' || c == '\t') {
      if (in_word)
        words.push_back(word);
      word.clear();
      in_word = false;
    } else if (c == '\'') {
      if (text.find('\'', i + 1) == std::string::npos) {
        word += std::string(text.size() - i, '\'');
        in_word = true;
      }
      break;
    } else if (c != '\n') {
      word += c;
      in_word = true;
    }
  }
  if (in_word)
    words.push_back(word);
  return words;
}

Texts itself(const std::string &text) {
  return {text};
}

// Returns whether SpecialCharConvert does not turn the text into one word. Every shell replaces "~"; some also replace
// "~+", "~-" and "~" with a digit by directories that they remember.
bool is_beyond_converting(const std::string &text) {
  return text.empty() || text.find_first_of("\n\t") != std::string::npos || text[0] == '#' || text[0] == '~';
}

// A text of two characters can name these variables.
bool names_a_variable(const std::string &text) {
  return text.size() == 2 && text[0] == '$' &&
         (isalnum(static_cast<unsigned char>(text[1])) || strchr("_@!$-", text[1]));
}

const Texts &short_texts() {
  static const Texts *texts = [] {
    auto *all = new Texts;
    for (int first = 1; first < 256; first++) {
      all->push_back(std::string(1, static_cast<char>(first)));
      for (int second = 1; second < 256; second++)
        all->push_back({static_cast<char>(first), static_cast<char>(second)});
    }
    return all;
  }();
  return *texts;
}

// Each text would run the canary if it got through; bytes of every kind stand around it.
Texts hostile_texts(size_t count) {
  static const Texts pieces = {
      "canary", ";canary;",  "$(canary)",   "`canary`", "|canary", "&canary&", "\ncanary\n",  "&&canary", "||canary",
      ">file",  "<canary",   ">>file",      "$HOME",    "${HOME}", "$((1))",   "'",           "\"",       "\\",
      "\\\n",   "(canary)",  "{ canary; }", "*",        "?",       "[a]",      "!",           "!!",       "#",
      "~",      "<(canary)", "$'\\n'",      "$\"x\"",   "x=",      "<<canary", "\r",          "\t",       " ",
      "\f",     "\v",        "\x01",        "\x7f",     "\x81",    "\x88",     "caf\xc3\xa9", "-n",       "%s",
      "2>file", "eval",      "}",           ")"};
  std::minstd_rand random(20);
  Texts texts;
  for (size_t i = 0; i < count; i++) {
    std::string text;
    for (size_t left = 1 + random() % 6; left > 0; left--) {
      if (random() % 4 == 0)
        text += static_cast<char>(1 + random() % 255);
      else
        text += pieces[random() % pieces.size()];
    }
    texts.push_back(text);
  }
  return texts;
}

Texts those(const Texts &texts, const std::function<bool(const std::string &)> &wanted) {
  Texts some;
  std::copy_if(texts.begin(), texts.end(), std::back_inserter(some), wanted);
  return some;
}

bool accepted(const std::string &text) {
  return hasInjectionString(text.c_str()) == 0;
}

class Shell : public testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    const std::string program = shell.substr(0, shell.find(' '));
    if (access(program.c_str(), X_OK) != 0)
      GTEST_SKIP() << "no " << program;
  }
  const std::string shell = GetParam();
};

} // namespace

TEST_P(Shell, ShowsWhatRunsUnguarded) {
  EXPECT_TRUE(run_script(shell, "p a;canary\n").canary_ran);
  EXPECT_EQ(record({"x"}), run_script(shell, "p $(canary)x\n").arguments);
  EXPECT_FALSE(is_untouched(run_script(shell, "p >file\n")));
  EXPECT_FALSE(is_untouched(run_script(shell, "p a\nb\n")));
  EXPECT_EQ(record({}) + record({"", " \x01"}), run_script(shell, "p\np '' ' \x01'\n").arguments);
}

TEST_P(Shell, GetsTheWordsOfEveryShortEscapedText) {
  expect_arguments(shell, short_texts(), escaped, words_of);
}

TEST_P(Shell, GetsTheWordsOfHostileEscapedTexts) {
  expect_arguments(shell, hostile_texts(10000), escaped, words_of);
}

TEST_P(Shell, GetsEveryShortConvertedTextAsOneWord) {
  expect_arguments(shell, those(short_texts(), std::not_fn(is_beyond_converting)), converted, itself);
}

TEST_P(Shell, GetsHostileConvertedTextsAsOneWord) {
  expect_arguments(shell, those(hostile_texts(20000), std::not_fn(is_beyond_converting)), converted, itself);
}

// These are the exceptions: some first characters of a text, and a newline or tab anywhere.
TEST_P(Shell, MakesSomethingElseOfConvertedTextsThatAreBeyondIt) {
  const auto run = [&](const std::string &text) { return run_script(shell, "p " + converted(text) + "\n"); };
  EXPECT_EQ(record({}), run("").arguments);
  EXPECT_EQ(record({}), run("#a").arguments);
  EXPECT_EQ(record({"a", "b"}), run("a\tb").arguments);
  EXPECT_EQ(record({"/run/shell/home"}), run("~").arguments);
  EXPECT_NE(record({"~root"}), run("~root").arguments);
  EXPECT_EQ(record({"a~"}), run("a~").arguments);
  EXPECT_EQ(record({"~/a"}), run("~/a").arguments) << "the slash is escaped, so this names no home";
  EXPECT_TRUE(run("a\ncanary").canary_ran);
  EXPECT_TRUE(run("\ncanary").canary_ran);
}

// No other short text is an exception. A newline or tab counts anywhere, a hash at the start.
TEST_P(Shell, MakesSomethingElseOfEveryConvertedTextThatIsBeyondIt) {
  for (int code = 0; code < 256; code += 16) { // a process for each: every sixteenth byte, and none
    const std::string byte(code ? 1 : 0, static_cast<char>(code));
    for (const std::string &text : {"\n" + byte, byte + "\n", "\t" + byte, byte + "\t", "#" + byte})
      EXPECT_NE(record({text}), run_script(shell, "p " + converted(text) + "\n").arguments) << code;
  }
}

// A short text that begins with a tilde is replaced if it names a directory that the shell knows.
TEST_P(Shell, ReplacesAFewTildes) {
  Texts texts = {"~"};
  for (int code = 1; code < 256; code++)
    if (code != '\n' && code != '\t')
      texts.push_back({'~', static_cast<char>(code)});
  std::string body, replaced;
  for (const std::string &text : texts)
    body += "p " + converted(text) + "\n";
  const auto run = run_script(shell, body);
  EXPECT_TRUE(is_untouched(run));
  size_t at = 0;
  for (const std::string &text : texts) {
    ASSERT_EQ(std::string("1\0", 2), run.arguments.substr(at, 2)) << "one word each";
    at += 2;
    if (run.arguments.c_str() + at != text)
      replaced += text;
    at = run.arguments.find('\0', at) + 1;
  }
  EXPECT_EQ(run.arguments.size(), at);
  if (shell == "/bin/bash")
    EXPECT_EQ("~~+~-~0", replaced);
  else
    EXPECT_EQ("~", replaced);
}

TEST_P(Shell, GetsAcceptedTextsInDoubleQuotesAsTheyAre) {
  sandbox::Captured out(1); // what is rejected is printed
  const auto fits = [](const std::string &text) { return accepted(text) && !names_a_variable(text); };
  const Texts texts = those(short_texts(), fits);
  EXPECT_EQ(233u * 233 + 233 - 67, texts.size());
  expect_arguments(shell, texts, double_quoted, itself);
  const auto is_plain = [](const std::string &text) { return accepted(text) && text.find('$') == std::string::npos; };
  expect_arguments(shell, those(hostile_texts(10000), is_plain), double_quoted, itself);
}

TEST_P(Shell, ReplacesVariablesInAcceptedTextsAndRunsNothing) {
  sandbox::Captured out(1);
  for (const std::string &text : those(short_texts(), names_a_variable))
    EXPECT_TRUE(is_untouched(run_script(shell, "p " + double_quoted(text) + "\n"))) << text;
  EXPECT_EQ(record({"/run/shell/home"}), run_script(shell, "p " + double_quoted("$HOME") + "\n").arguments);
  std::string body;
  for (const std::string &text : those(hostile_texts(10000), accepted))
    body += "p " + double_quoted(text) + "\n";
  EXPECT_TRUE(is_untouched(run_script(shell, body)));
}

TEST_P(Shell, RunsNothingFromAcceptedTextsWithoutQuotes) {
  sandbox::Captured out(1);
  std::string body;
  for (const Texts &texts : {short_texts(), hostile_texts(10000)})
    for (const std::string &text : those(texts, accepted))
      body += "p " + text + "\n";
  EXPECT_TRUE(is_untouched(run_script(shell, body)));
}

INSTANTIATE_TEST_SUITE_P(Shells, Shell, testing::Values("/bin/dash", "/bin/bash", "/bin/busybox ash"),
                         [](const auto &shell) {
                           const std::string name = shell.param;
                           return name.substr(name.find_last_of("/ ") + 1);
                         });
