// Paths cleaned of their "." and ".." segments.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "support/guarded_memory.h"
#include "torvane.h"

using sandbox::Against;
using sandbox::GuardedMemory;

namespace {

struct Cleaned {
  std::string path;
  int result;
};

Cleaned cleaned(const std::string &path) {
  std::string buffer = path;
  const int result = rm_dotdot(buffer.data());
  return {buffer.c_str(), result};
}

// As an expected result, this stands for any number but 0 and 1. rm_dotdot gives such a number for longer paths.
constexpr int any_other = -1000;

// Takes the steps one after another as the manual describes them, however long that takes.
Cleaned cleaned_step_by_step(std::string path) {
  for (size_t at; (at = path.find("//")) != std::string::npos;)
    path.erase(at, 1);
  while (path.rfind("./", 0) == 0)
    path.erase(0, 2);
  for (size_t at; (at = path.find("/./")) != std::string::npos;)
    path.replace(at, 3, "/");
  for (;;) {
    if (path.rfind("../", 0) == 0) {
      path.erase(0, 3);
      continue;
    }
    const size_t at = path.find("/../");
    if (at == std::string::npos)
      break;
    const size_t before = at == 0 ? std::string::npos : path.rfind('/', at - 1);
    const size_t segment = before == std::string::npos ? 0 : before + 1;
    path.erase(segment, at + 4 - segment);
  }
  while (path.size() >= 4) {
    if (path.substr(path.size() - 3) != "/..")
      return {path, any_other};
    const size_t slash = path.rfind('/', path.size() - 4);
    if (slash == std::string::npos)
      return {path, 1};
    path.erase(slash);
  }
  return {path, static_cast<int>(path.size())};
}

bool agree(const Cleaned &golden, const Cleaned &other) {
  return golden.path == other.path &&
         (golden.result == any_other ? other.result != 0 && other.result != 1 : golden.result == other.result);
}

bool holds_dotdot(const std::string &path) {
  return ("/" + path + "/").find("/../") != std::string::npos;
}

// Calls `visit` with every text of the alphabet up to `longest` characters.
template <typename Visit>
void for_each_path(const std::string &alphabet, size_t longest, Visit visit) {
  std::string path;
  for (;;) {
    visit(path);
    size_t at = 0;
    while (at < path.size() && path[at] == alphabet.back())
      path[at++] = alphabet.front();
    if (at == longest)
      return;
    if (at == path.size())
      path += alphabet.front();
    else
      path[at] = alphabet[alphabet.find(path[at]) + 1];
  }
}

void expect(const char *golden, const char *path) {
  EXPECT_EQ(golden, cleaned(path).path) << path;
}

} // namespace

TEST(Path, LosesRunsOfSlashes) {
  expect("/a/b/", "//a///b//");
  expect("/", "////");
  expect("a/b", "a//b");
}

TEST(Path, LosesDotSegmentsThatASlashFollows) {
  expect("a", "./a");
  expect("a", "././/./a");
  expect("/a/b", "/./a/././b");
  expect("a/.", "a/.");
  expect(".", ".");
  expect("/.", "/.");
  expect("", "./");
  expect(".a/b.", ".a/b.");
  expect("a./b", "a./b");
}

TEST(Path, LosesDotDotSegmentsWithTheSegmentBefore) {
  expect("/a/c", "//a/./b/../c");
  expect("a/c", "a/b/../c");
  expect("c", "a/../c");
  expect("/c", "/a/../c");
  expect("d", "a/b/../../../c/../d");
  expect("c", "../../c");
  expect("x", "/../x");
  expect("x", "/a/../../x");
  expect("/b/", "/a/../b/");
  expect("a/..b/c", "a/..b/c");
  expect("a/b../c", "a/b../c");
  expect("a/.../c", "a/.../c");
}

TEST(Path, LosesALastDotDotWithTheSegmentAndSlashBefore) {
  expect("/a", "/a/b/..");
  expect("", "/a/..");
  expect("a", "a/b/..");
  expect("/a/b", "/a/b/c/./..");
  expect("/a", "/a/b/c/../..");
}

TEST(Path, GivesOneWhenItsLastDotDotHasNoSlashBeforeItsSegment) {
  EXPECT_EQ(1, cleaned("a/..").result);
  expect("a/..", "a/..");
  EXPECT_EQ(1, cleaned("../abc/..").result);
  expect("abc/..", "../abc/..");
  EXPECT_EQ(1, cleaned("a/b/../..").result);
  expect("a/..", "a/b/../..");
  EXPECT_EQ(1, rm_dotdot(nullptr));
}

TEST(Path, GivesTheLengthOfShortResults) {
  EXPECT_EQ(0, cleaned("").result);
  EXPECT_EQ(0, cleaned("/a/..").result);
  EXPECT_EQ(0, cleaned("./").result);
  EXPECT_EQ(1, cleaned("/").result) << "which callers take for a path that climbs";
  EXPECT_EQ(1, cleaned("a").result);
  EXPECT_EQ(2, cleaned("/a").result);
  EXPECT_EQ(3, cleaned("abc").result);
  EXPECT_EQ(3, cleaned("/a/").result);
}

TEST(Path, GivesAnotherNumberForLongerResults) {
  for (int last = 1; last < 256; last++)
    for (const std::string &path :
         {"/abc" + std::string(1, static_cast<char>(last)), "ab" + std::string(1, static_cast<char>(last)) + "..",
          "ab/" + std::string(1, static_cast<char>(last)) + ".", "ab/." + std::string(1, static_cast<char>(last))}) {
      const Cleaned result = cleaned(path);
      if (result.path == path && path.substr(path.size() - 3) != "/..") {
        EXPECT_NE(0, result.result) << path;
        EXPECT_NE(1, result.result) << path;
      }
    }
  EXPECT_NE(1, cleaned("/v1.0..").result);
}

TEST(Path, OfTwoKindsStillClimbsWithoutAOne) {
  EXPECT_EQ(2, cleaned("..").result);
  expect("..", "..");
  EXPECT_EQ(3, cleaned("/..").result);
  expect("/..", "/..");
  EXPECT_EQ(2, cleaned("/../..").result);
  expect("..", "/a/../../..");
  expect("..", "../..");
}

TEST(Path, IsWhatTheStepsMakeOfIt) {
  size_t paths = 0;
  for_each_path("/.a", 9, [&](const std::string &path) {
    paths++;
    const Cleaned golden = cleaned_step_by_step(path), result = cleaned(path);
    ASSERT_TRUE(agree(golden, result)) << path << ": " << result.path << " " << result.result << ", not " << golden.path
                                       << " " << golden.result;
    // As the header promises, no ".." is left but in these.
    ASSERT_TRUE(!holds_dotdot(result.path) || result.result == 1 || result.path == ".." || result.path == "/..")
        << path;
    ASSERT_LE(result.path.size(), path.size());
  });
  EXPECT_EQ((19683u * 3 - 1) / 2, paths);
}

TEST(Path, OfWholeSegmentsIsWhatTheStepsMakeOfIt) {
  static const std::string segments[] = {"..", ".", "", "a", "bb", "...", ".c", "d."};
  for_each_path("01234567", 5, [&](const std::string &choice) {
    std::string path;
    for (const char c : choice)
      path += segments[c - '0'] + "/";
    for (const std::string &whole : {path, "/" + path, path.substr(0, path.empty() ? 0 : path.size() - 1)}) {
      const Cleaned golden = cleaned_step_by_step(whole), result = cleaned(whole);
      ASSERT_TRUE(agree(golden, result)) << whole;
    }
  });
}

TEST(Path, IsCleanedInItsOwnBytes) {
  for (const char *path : {"", "/", "a", "..", "/..", "../", "/../", "a/..", "/a/b/..", "////", "././.", "/./../x/.."})
    for (const Against side : sandbox::both_sides) {
      GuardedMemory memory(strlen(path) + 1, side);
      memcpy(memory.data(), path, strlen(path) + 1);
      rm_dotdot(memory.data());
      EXPECT_EQ(cleaned_step_by_step(path).path, memory.data());
    }
}
