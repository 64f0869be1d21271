// The event log: categories, their files and lines.
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/mounts.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "support/standard_descriptors.h"
#include "support/unprivileged.h"
#include "torvane.h"

using sandbox::exists;
using sandbox::read_file;

namespace {

RECORD_LAYOUT(log_entry, 264, FIELD(name, 0, 64), FIELD(file, 64, 64), FIELD(dir, 128, 128), FIELD(lines, 256, 2),
              FIELD(state, 260, 4));
static_assert(sizeof(logList) == 8 * sizeof(log_entry));

// These are the values that the program started with.
const bool was_init = isInit != 0 || isLogSysInit() != 0;
const int first_state = logList[0].state;

const std::string dir = "/run/events";

std::vector<std::string> files_in(const std::string &path) {
  std::vector<std::string> names;
  const std::string listed = sandbox::run("ls -A " + path).output;
  for (size_t at = 0, end; (end = listed.find('\n', at)) != std::string::npos; at = end + 1)
    names.push_back(listed.substr(at, end - at));
  return names;
}

size_t lines_of(const std::string &text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class EventLog : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    sandbox::run("rm -rf " + dir);
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    initLogSys();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    EXPECT_EQ("", sandbox::console_text());
    initLogSys();
    sandbox::run("rm -rf " + dir);
  }

  static int create(const std::string &name, const std::string &file, const std::string &where = dir) {
    return createLog(name.c_str(), file.c_str(), where.c_str());
  }
  static void put(unsigned index, int times = 1) {
    for (int i = 0; i < times; i++)
      putlog(index, "wan0", "up");
  }

  int descriptors = 0;
};

} // namespace

TEST_F(EventLog, IsNotInitialisedAtTheStartOfAProgram) {
  EXPECT_FALSE(was_init);
  EXPECT_EQ(0, first_state);
}

TEST_F(EventLog, InitialisingFreesEveryCategory) {
  memset(logList, 'x', sizeof(logList));
  isInit = 0;
  EXPECT_EQ(0, isLogSysInit());
  EXPECT_EQ(&isInit, initLogSys());
  EXPECT_EQ(1, isInit);
  EXPECT_EQ(1, isLogSysInit());
  log_entry expected = {};
  expected.state = -1;
  for (const log_entry &entry : logList)
    EXPECT_EQ(0, memcmp(&expected, &entry, sizeof(entry)));
}

TEST_F(EventLog, BeforeItIsInitialisedNoCategoryIsFreeAndTheFileIsCreatedAllTheSame) {
  memset(logList, 0, sizeof(logList));
  EXPECT_EQ(-1, create("wan", "wan.log"));
  EXPECT_TRUE(exists(dir + "/wan.log"));
  put(0);
  EXPECT_EQ("", read_file(dir + "/wan.log"));
}

TEST_F(EventLog, CreatingEmptiesTheFileAndTakesTheFirstFreeCategory) {
  sandbox::write_file(dir + "/wan.log", "left from before\n");
  EXPECT_EQ(0, create("wan", "wan.log"));
  EXPECT_EQ("", read_file(dir + "/wan.log"));
  EXPECT_STREQ("wan", logList[0].name);
  EXPECT_STREQ("wan.log", logList[0].file);
  EXPECT_STREQ(dir.c_str(), logList[0].dir);
  EXPECT_EQ(0, logList[0].lines);
  EXPECT_EQ(1, logList[0].state);
  EXPECT_EQ(-1, logList[1].state);
}

TEST_F(EventLog, HasEightCategoriesAndEmptiesTheNinthFileInVain) {
  for (int i = 0; i < 8; i++)
    EXPECT_EQ(i, create("log" + std::to_string(i), std::to_string(i)));
  const std::string before(reinterpret_cast<const char *>(logList), sizeof(logList));
  sandbox::write_file(dir + "/8", "left from before\n");
  EXPECT_EQ(-1, create("log8", "8"));
  EXPECT_TRUE(exists(dir + "/8"));
  EXPECT_EQ("", read_file(dir + "/8"));
  EXPECT_EQ(-1, create("log9", "9"));
  EXPECT_TRUE(exists(dir + "/9"));
  EXPECT_EQ(before, std::string(reinterpret_cast<const char *>(logList), sizeof(logList)));
  put(7);
  EXPECT_NE("", read_file(dir + "/7"));
}

TEST_F(EventLog, ACategoryInBetweenThatIsFreeIsTakenAndKeepsItsCount) {
  for (int i = 0; i < 4; i++)
    create("log", std::to_string(i));
  logList[2].state = -1;
  logList[2].lines = 55;
  EXPECT_EQ(2, create("log", "again"));
  EXPECT_EQ(55, logList[2].lines);
}

TEST_F(EventLog, AFileThatCannotBeOpenedTakesNoCategory) {
  EXPECT_EQ(-2, create("wan", "wan.log", dir + "/absent"));
  EXPECT_EQ(-2, create("wan", "events", "/run")); // a directory
  EXPECT_EQ(-1, logList[0].state);
  for (int i = 0; i < 8; i++)
    create("log", std::to_string(i));
  EXPECT_EQ(-2, create("wan", "wan.log", dir + "/absent")); // the file is opened before a category is looked for
}

TEST_F(EventLog, ADirectoryWithoutPermissionRefuses) {
  ASSERT_EQ(0, chmod(dir.c_str(), 0500));
  EXPECT_EQ(
      0, sandbox::without_privilege([] { return create("wan", "wan.log") == -2 && logList[0].state == -1 ? 0 : 1; }));
  EXPECT_FALSE(exists(dir + "/wan.log"));
}

TEST_F(EventLog, AReadOnlyFileSystemRefusesAndLinesAreNotCounted) {
  const std::string small = dir + "/small";
  ASSERT_EQ(0, mkdir(small.c_str(), 0755));
  const sandbox::OwnFiles disk(small, 0, "size=64k");
  ASSERT_EQ(0, create("wan", "wan.log", small));
  put(0);
  disk.make_read_only();
  put(0);
  EXPECT_EQ(1, logList[0].lines);
  EXPECT_EQ(1u, lines_of(read_file(small + "/wan.log")));
  EXPECT_EQ(-2, create("lan", "lan.log", small));
}

TEST_F(EventLog, NullTextsCreateAndWriteNothing) {
  EXPECT_EQ(-2, createLog(nullptr, "a", dir.c_str()));
  EXPECT_EQ(-2, createLog("a", nullptr, dir.c_str()));
  EXPECT_EQ(-2, createLog("a", "a", nullptr));
  EXPECT_EQ(std::vector<std::string>{}, files_in(dir));
  EXPECT_EQ(-1, logList[0].state);
  ASSERT_EQ(0, create("wan", "wan.log"));
  putlog(0, nullptr, "b");
  putlog(0, "a", nullptr);
  EXPECT_EQ("", read_file(dir + "/wan.log"));
  EXPECT_EQ(0, logList[0].lines);
}

TEST_F(EventLog, NamesAreCutToTheirFields) {
  const std::string longest(63, 'n');
  ASSERT_EQ(0, create(longest, "a"));
  EXPECT_EQ(longest, logList[0].name);
  ASSERT_EQ(1, create(longest + "o", "b"));
  EXPECT_EQ(longest, logList[1].name);
  EXPECT_EQ('\0', logList[1].name[63]);
  EXPECT_STREQ("b", logList[1].file);
}

TEST_F(EventLog, LinesOfAnOverlongFileNameGoToTheCutName) {
  const std::string longest(63, 'f');
  ASSERT_EQ(0, create("a", longest));
  put(0);
  EXPECT_EQ(1u, lines_of(read_file(dir + "/" + longest)));
  ASSERT_EQ(1, create("b", longest + "g"));
  EXPECT_TRUE(exists(dir + "/" + longest + "g"));
  EXPECT_EQ(longest, logList[1].file);
  EXPECT_EQ('\0', logList[1].file[63]);
  put(1);
  EXPECT_EQ(2u, lines_of(read_file(dir + "/" + longest)));
  EXPECT_EQ("", read_file(dir + "/" + longest + "g"));
}

TEST_F(EventLog, OfAnOverlongDirectoryTheFirst127CharactersCount) {
  const std::string fits = dir + "/" + std::string(127 - dir.size() - 1, 'd');
  ASSERT_EQ(127u, fits.size());
  ASSERT_EQ(0, mkdir(fits.c_str(), 0755));
  ASSERT_EQ(0, mkdir((fits + "e").c_str(), 0755));
  const std::string file(63, 'f');
  ASSERT_EQ(0, create("a", file, fits)); // no path can be longer
  put(0, 128);
  const auto files = files_in(fits);
  ASSERT_EQ(1u, files.size());
  EXPECT_EQ(file + "_", files[0].substr(0, 64)); // the new name is not cut either
  EXPECT_GE(files[0].size(), 64u + 10);
  ASSERT_EQ(1, create("b", "x", fits + "e"));
  EXPECT_TRUE(exists(fits + "e/x"));
  EXPECT_EQ(fits, logList[1].dir);
  put(1);
  EXPECT_EQ("", read_file(fits + "e/x"));
  EXPECT_EQ(1u, lines_of(read_file(fits + "/x")));
}

TEST_F(EventLog, APathIsOpenedWholeHoweverLongItIs) {
  for (const size_t length : {195u, 196u, 198u, 250u}) {
    const std::string file(length - dir.size() - 1, 'p'), shorter = file.substr(1);
    sandbox::write_file(dir + "/" + shorter, "another's\n");
    initLogSys();
    EXPECT_EQ(0, create("a", file));
    EXPECT_EQ((std::vector<std::string>{shorter, file}), files_in(dir));
    EXPECT_EQ("another's\n", read_file(dir + "/" + shorter));
    sandbox::run("rm " + dir + "/*");
  }
}

TEST_F(EventLog, APathTooLongForTheSystemIsRefusedAndEmptiesNothing) {
  std::string long_dir = dir;
  while (long_dir.size() < PATH_MAX - 100)
    long_dir += "/.";
  const std::string file(PATH_MAX - 1 - long_dir.size() - 1, 'p');
  sandbox::write_file(dir + "/" + file, "another's\n");
  for (const std::string &longer : {file + "q", file + "/", file + std::string(70, 'q'), std::string(100000, 'q')})
    EXPECT_EQ(-2, create("a", longer, long_dir));
  EXPECT_EQ(std::vector<std::string>{file}, files_in(dir));
  EXPECT_EQ("another's\n", read_file(dir + "/" + file));
  EXPECT_EQ(-1, logList[0].state);

  EXPECT_EQ(0, create("a", file, long_dir)); // the longest that the system takes
  EXPECT_EQ("", read_file(dir + "/" + file));
}

TEST_F(EventLog, ALineIsTwoFieldsAndTheSecondsSinceTheEpoch) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  ASSERT_EQ(1, create("lan", "lan.log"));
  const time_t before = time(nullptr);
  putlog(0, "wan0", "up 100%s");
  putlog(0, "", "");
  putlog(1, "a|b", "c\nd");
  const time_t after = time(nullptr);
  const std::string text = read_file(dir + "/wan.log");
  long first = 0, second = 0;
  int end = 0;
  ASSERT_EQ(2, sscanf(text.c_str(), "wan0|up 100%%s|%ld\n||%ld%n", &first, &second, &end)) << text;
  EXPECT_EQ("\n", text.substr(static_cast<size_t>(end)));
  EXPECT_LE(before, first);
  EXPECT_LE(first, second);
  EXPECT_LE(second, after);
  EXPECT_EQ(0u, read_file(dir + "/lan.log").find("a|b|c\nd|1"));
  EXPECT_EQ(2, logList[0].lines);
  EXPECT_EQ(1, logList[1].lines);
}

TEST_F(EventLog, AppendsToWhatAnotherProgramHasWritten) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  sandbox::write_file(dir + "/wan.log", "another's\n");
  put(0);
  EXPECT_EQ(0u, read_file(dir + "/wan.log").find("another's\nwan0|up|"));
}

TEST_F(EventLog, AFileThatIsGoneIsMadeAnew) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  unlink((dir + "/wan.log").c_str());
  put(0);
  EXPECT_EQ(1u, lines_of(read_file(dir + "/wan.log")));
}

TEST_F(EventLog, ADirectoryThatIsGoneIsPassedOverWithoutACount) {
  ASSERT_EQ(0, mkdir((dir + "/sub").c_str(), 0755));
  ASSERT_EQ(0, create("wan", "wan.log", dir + "/sub"));
  sandbox::run("rm -r " + dir + "/sub");
  put(0);
  EXPECT_EQ(0, logList[0].lines);
  EXPECT_FALSE(exists(dir + "/sub"));
}

TEST_F(EventLog, WritesToNothingButCategoriesInUse) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  for (const unsigned index : {1u, 7u, 8u, 9u, UINT_MAX, 0x80000000u})
    put(index);
  logList[0].state = 0;
  put(0);
  logList[0].state = 2;
  put(0);
  EXPECT_EQ(std::vector<std::string>{"wan.log"}, files_in(dir));
  EXPECT_EQ("", read_file(dir + "/wan.log"));
  EXPECT_EQ(0, logList[0].lines);
}

TEST_F(EventLog, The128thLineMovesTheFileAsideAndThe129thStartsANewOne) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  put(0, 127);
  EXPECT_EQ(127, logList[0].lines);
  EXPECT_EQ(std::vector<std::string>{"wan.log"}, files_in(dir));
  EXPECT_EQ(127u, lines_of(read_file(dir + "/wan.log")));

  const time_t before = time(nullptr);
  put(0);
  const time_t after = time(nullptr);
  EXPECT_EQ(0, logList[0].lines);
  const auto files = files_in(dir);
  ASSERT_EQ(1u, files.size());
  ASSERT_EQ("wan.log_", files[0].substr(0, 8));
  const std::string seconds = files[0].substr(8);
  EXPECT_EQ(std::to_string(std::stol(seconds)), seconds);
  EXPECT_LE(before, std::stol(seconds));
  EXPECT_GE(after, std::stol(seconds));
  EXPECT_EQ(128u, lines_of(read_file(dir + "/" + files[0])));

  put(0);
  EXPECT_EQ(1, logList[0].lines);
  EXPECT_EQ(1u, lines_of(read_file(dir + "/wan.log")));
  EXPECT_EQ(128u, lines_of(read_file(dir + "/" + files[0])));
  EXPECT_EQ(2u, files_in(dir).size());
}

TEST_F(EventLog, CategoriesAreCountedApart) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  ASSERT_EQ(1, create("lan", "lan.log"));
  put(0, 127);
  put(1, 127);
  EXPECT_EQ((std::vector<std::string>{"lan.log", "wan.log"}), files_in(dir));
  put(1);
  EXPECT_EQ(127, logList[0].lines);
  EXPECT_TRUE(exists(dir + "/wan.log"));
  EXPECT_FALSE(exists(dir + "/lan.log"));
}

TEST_F(EventLog, ARenameThatFailsStartsTheCountAnew) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  const std::string path = dir + "/wan.log";
  const sandbox::Replaced unmovable(path, path);
  put(0, 128);
  EXPECT_EQ(0, logList[0].lines);
  EXPECT_EQ(std::vector<std::string>{"wan.log"}, files_in(dir));
  put(0);
  EXPECT_EQ(1, logList[0].lines);
  EXPECT_EQ(129u, lines_of(read_file(path)));
}

TEST_F(EventLog, AFullDiskLosesLinesAndCountsThem) {
  const std::string small = dir + "/small";
  ASSERT_EQ(0, mkdir(small.c_str(), 0755));
  const sandbox::OwnFiles disk(small, 0, "size=64k");
  ASSERT_EQ(0, create("wan", "wan.log", small));
  sandbox::write_file(small + "/filler", std::string(65536, 'x'));
  put(0, 127);
  EXPECT_EQ(127, logList[0].lines);
  EXPECT_EQ("", read_file(small + "/wan.log"));
  put(0);
  EXPECT_EQ(0, logList[0].lines);
  EXPECT_FALSE(exists(small + "/wan.log"));
  unlink((small + "/filler").c_str());
  put(0);
  EXPECT_EQ(1u, lines_of(read_file(small + "/wan.log")));
}

TEST_F(EventLog, WithoutMemoryOrDescriptorsNothingHappens) {
  ASSERT_EQ(0, create("wan", "wan.log"));
  sandbox::fail_allocation(1);
  put(0);
  EXPECT_TRUE(sandbox::allocation_failed());
  sandbox::fail_allocation(0);
  {
    const sandbox::NoDescriptors none;
    put(0);
    EXPECT_EQ(-2, create("lan", "lan.log"));
  }
  EXPECT_EQ(0, logList[0].lines);
  EXPECT_EQ("", read_file(dir + "/wan.log"));
  EXPECT_EQ(-1, logList[1].state);
}

TEST_F(EventLog, FilesTakeNoDescriptorOfStandardInputOutputOrError) {
  EXPECT_EQ(0, sandbox::without_standard_descriptors([] {
              const bool created = create("wan", "wan.log") == 0;
              put(0, 129);
              return created && logList[0].lines == 1 && sandbox::standard_descriptors_are_closed() ? 0 : 1;
            }));
  const auto files = files_in(dir);
  ASSERT_EQ(2u, files.size());
  EXPECT_EQ(1u, lines_of(read_file(dir + "/" + files[0])));
  EXPECT_EQ(128u, lines_of(read_file(dir + "/" + files[1])));

  sandbox::run("rm " + dir + "/*");
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors([] {
              const bool created = create("wan", "wan.log") == 0; // the file is closed at once
              put(0);
              return created && logList[0].lines == 0 && sandbox::standard_descriptors_are_closed() ? 0 : 1;
            }));
  EXPECT_EQ("", read_file(dir + "/wan.log"));
}
