// These tests run the job runner with job files, and look at what it prints.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/example.h"
#include "support/sandbox.h"

namespace {

constexpr char jobs_path[] = "/run/jobs";

sandbox::Outcome run(const std::string &arguments) {
  return sandbox::run(sandbox::example("job_runner") + " " + arguments);
}

sandbox::Outcome run_jobs(const std::string &jobs, const std::string &arguments = "") {
  sandbox::write_file(jobs_path, jobs);
  return run(arguments + " " + jobs_path);
}

std::vector<std::string> lines_of(const std::string &text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

// Removes the times, which are longer on a busy machine.
std::vector<std::string> events(const std::string &text) {
  static const std::regex time("^ *\\d+s  ");
  std::vector<std::string> lines = lines_of(text);
  for (std::string &line : lines)
    line = std::regex_replace(line, time, "");
  return lines;
}

int time_of(const std::string &text, const std::string &event) {
  for (const std::string &line : lines_of(text))
    if (line.find(event) != std::string::npos)
      return std::stoi(line);
  return -1;
}

using Lines = std::vector<std::string>;

class JobRunner : public testing::Test {
 protected:
  void TearDown() override {
    for (const char *left : {"/run/done", "/run/order", "/run/many", "/run/one", "/run/two"})
      unlink(left);
    EXPECT_EQ("", sandbox::run("ipcs -s | grep 0x || true").output); // no semaphore is left
  }
};

} // namespace

TEST_F(JobRunner, RunsACommandAndTellsItsStatus) {
  const auto outcome = run_jobs("0 echo done >/run/done\n");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ((Lines{"line 1  start  echo done >/run/done", "line 1  end    status 0"}), events(outcome.output));
  EXPECT_EQ("done\n", sandbox::read_file("/run/done"));
}

TEST_F(JobRunner, TellsStatusesAndSignals) {
  EXPECT_EQ((Lines{"line 1  start  exit 7", "line 1  end    status 7"}), events(run_jobs("0 exit 7\n").output));
  EXPECT_EQ((Lines{"line 1  start  kill -9 $$", "line 1  end    signal 9"}), events(run_jobs("0 kill -9 $$\n").output));
}

// A timer may run up to two seconds late, so the jobs are three seconds apart.
TEST_F(JobRunner, RunsEachJobAtItsTimeWhateverTheOrderOfTheLines) {
  const auto outcome = run_jobs("4 echo c >>/run/order\n0 echo a >>/run/order\n1 echo b >>/run/order\n", "-w 1");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("a\nb\nc\n", sandbox::read_file("/run/order"));
  EXPECT_LE(0, time_of(outcome.output, "line 2  start"));
  EXPECT_LE(1, time_of(outcome.output, "line 3  start"));
  EXPECT_LE(4, time_of(outcome.output, "line 1  start"));
}

TEST_F(JobRunner, WorkersRunJobsSideBySide) {
  ASSERT_EQ(0, mkfifo("/run/one", 0600));
  ASSERT_EQ(0, mkfifo("/run/two", 0600));
  // Each job waits for the other.
  const auto outcome = run_jobs("0 echo >/run/one; read line </run/two\n0 read line </run/one; echo >/run/two\n");
  EXPECT_EQ(0, outcome.status);
  Lines ends;
  for (const std::string &line : events(outcome.output))
    if (line.find("end") != std::string::npos)
      ends.push_back(line);
  std::sort(ends.begin(), ends.end());
  EXPECT_EQ((Lines{"line 1  end    status 0", "line 2  end    status 0"}), ends);
}

TEST_F(JobRunner, ManyJobsWaitForFewWorkers) {
  std::string jobs;
  for (int i = 0; i < 60; i++)
    jobs += "0 echo " + std::to_string(i) + " >>/run/many\n";
  const auto outcome = run_jobs(jobs, "-w 1");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(120u, events(outcome.output).size());
  Lines written = lines_of(sandbox::read_file("/run/many"));
  EXPECT_EQ(60u, written.size());
  std::sort(written.begin(), written.end());
  EXPECT_TRUE(std::unique(written.begin(), written.end()) == written.end());
}

TEST_F(JobRunner, ReadsStandardInputAndLinesThatSayNothing) {
  const auto outcome = run_jobs("# comment\n\n  \t\n  0 \t echo from standard input  \n  # 0 echo no\n", "<");
  EXPECT_EQ(0, outcome.status);
  const Lines expected = {"line 4  start  echo from standard input", "from standard input", "line 4  end    status 0"};
  EXPECT_EQ(expected, events(outcome.output));
}

TEST_F(JobRunner, WithoutJobsItEndsAtOnce) {
  const auto outcome = run_jobs("# nothing\n");
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", outcome.output);
}

TEST_F(JobRunner, TheLastLineNeedsNoNewline) {
  const auto outcome = run_jobs("0 true");
  EXPECT_EQ((Lines{"line 1  start  true", "line 1  end    status 0"}), events(outcome.output));
}

TEST_F(JobRunner, RunsNothingOfAFileWithABadLine) {
  const std::string delay = "the delay is no number of seconds up to 86400", path = jobs_path;
  const auto outcome =
      run_jobs("0 echo >/run/ran\nsoon echo\n1\n-1 echo\n2  \n86401 echo\n99999999999 echo\n1s echo\n0 " +
               std::string(1001, 'x') + "\n86400 " + std::string(1000, 'x') + "\n");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ((Lines{path + ":2: " + delay, path + ":3: no command", path + ":4: " + delay, path + ":5: no command",
                   path + ":6: " + delay, path + ":7: " + delay, path + ":8: " + delay,
                   path + ":9: the command is longer than 1000 bytes"}),
            lines_of(outcome.output));
  EXPECT_FALSE(sandbox::exists("/run/ran"));
}

TEST_F(JobRunner, ALineWithANulIsNoText) {
  const auto outcome = run_jobs(std::string("0 echo a\0b\n", 11));
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("/run/jobs:1: not a line of text\n", outcome.output);
}

TEST_F(JobRunner, TellsWhyItCannotReadTheFile) {
  const auto missing = run("/run/no/such/file");
  EXPECT_EQ(1, missing.status);
  EXPECT_EQ("/run/no/such/file: No such file or directory\n", missing.output);
  const auto directory = run("/run");
  EXPECT_EQ(1, directory.status);
  EXPECT_EQ("/run: Is a directory\n", directory.output);
}

TEST_F(JobRunner, RefusesWrongArguments) {
  for (const char *arguments : {"-w 0", "-w 65", "-w two", "-w", "-x", "-w -1", "one two"}) {
    const auto outcome = run(std::string(arguments) + " </dev/null");
    EXPECT_EQ(2, outcome.status) << arguments;
    EXPECT_NE(std::string::npos, outcome.output.find("usage: ")) << arguments;
  }
}

TEST_F(JobRunner, StoppedByASignalItLeavesNoSemaphore) {
  for (const char *who :
       {"$PPID", "$(awk '$1 == \"PPid:\" { print $2 }' /proc/$PPID/status)"}) { // who works, who waits
    const auto outcome = run_jobs("0 kill -TERM " + std::string(who) + "\n100 true\n");
    EXPECT_EQ(143, outcome.status) << who;
  }
}
