// The self-test that the library carries.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/child_process.h"
#include "support/mounts.h"
#include "support/sandbox.h"
#include "torvane.h"
#include "xml/buffers.h"

using buffers::files_of;
using buffers::small_document;
using sandbox::Captured;
using sandbox::open_descriptors;
using sandbox::OwnFiles;
using sandbox::read_file;

namespace {

class XmlTestMain : public buffers::Test {};

// Runs xml_test_main in a child, in the folder /run/example, with standard output in the file /run/standard_output.
template <typename Before>
int run_example(Before before) {
  mkdir("/run/example", 0700);
  return sandbox::in_child([&] {
    if (chdir("/run/example") != 0 || !freopen("/run/standard_output", "we", stdout))
      return 100;
    before();
    const int descriptors = open_descriptors();
    const int result = xml_test_main();
    fflush(stdout);
    return result + (open_descriptors() == descriptors ? 0 : 50);
  });
}

} // namespace

TEST_F(XmlTestMain, PrintsToFileAndBuffer) {
  const OwnFiles var("/var");
  EXPECT_EQ(0, run_example([] {}));
  EXPECT_EQ(small_document, read_file("/run/example/output.txt"));
  EXPECT_EQ("cnt = 0\ncnt = 0\ncnt = 0\ncnt = 0\nbuf=" + std::string(small_document) + "\n",
            read_file("/run/standard_output"));
  EXPECT_TRUE(files_of("/var").empty());
  unlink("/run/example/output.txt");
}

TEST_F(XmlTestMain, ReplacesAnOlderFile) {
  const OwnFiles var("/var");
  EXPECT_EQ(0, run_example([] { sandbox::write_file("output.txt", std::string(100000, '?')); }));
  EXPECT_EQ(small_document, read_file("/run/example/output.txt"));
  unlink("/run/example/output.txt");
}

TEST_F(XmlTestMain, KeepsItsFilesOffAClosedStandardOutput) {
  const OwnFiles var("/var");
  EXPECT_EQ(0, run_example([] {
              setvbuf(stdout, nullptr, _IONBF, 0);
              close(1);
            }));
  EXPECT_EQ(small_document, read_file("/run/example/output.txt"));
  EXPECT_TRUE(files_of("/var").empty());
  unlink("/run/example/output.txt");
}

TEST_F(XmlTestMain, FailsWithoutABuffer) {
  const OwnFiles var("/var", MS_RDONLY);
  EXPECT_EQ(1, run_example([] {}));
  EXPECT_EQ(small_document, read_file("/run/example/output.txt"));
  EXPECT_EQ("cnt = 0\ncnt = 0\ninternal error in xmlPrepareBuf.\n", read_file("/run/standard_output"));
  unlink("/run/example/output.txt");
}

TEST_F(XmlTestMain, FailsWithoutItsFile) {
  const OwnFiles var("/var");
  mkdir("/run/example", 0700);
  mkdir("/run/example/output.txt", 0700);
  EXPECT_EQ(1, run_example([] {}));
  EXPECT_EQ("", read_file("/run/standard_output"));
  rmdir("/run/example/output.txt");
}

// This runs in the test's own process, so that leaks are seen. The descriptor that one failure costs is given back.
TEST_F(XmlTestMain, EndsInOrderWhicheverAllocationFails) {
  const OwnFiles var("/var");
  mkdir("/run/example", 0700);
  ASSERT_EQ(0, chdir("/run/example"));
  const int before = open_descriptors();
  unsigned refused = 0, lost = 0;
  {
    const Captured standard_output(1);
    printf("-\n"); // standard output has its buffer from now on
    fflush(stdout);
    sandbox::fail_each_allocation(xml_test_main, [&](int result, bool failed) {
      EXPECT_TRUE(result == 0 || failed);
      refused += result != 0;
      for (const std::string &file : files_of("/var")) {
        lost++;
        unlink(file.c_str());
      }
    });
  }
  EXPECT_GE(refused, 3u) << "output.txt, the document, the buffer at least";
  EXPECT_EQ(1u, lost);
  EXPECT_EQ(before + 1, open_descriptors());
  for (int fd = 3; fd < 100 && open_descriptors() > before; fd++) {
    char path[32], target[64] = "";
    snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    if (readlink(path, target, sizeof(target) - 1) > 0 && strncmp(target, "/var/xml_", 9) == 0)
      close(fd);
  }
  unlink("/run/example/output.txt");
  EXPECT_EQ(0, chdir("/"));
}
