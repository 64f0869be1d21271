#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/interposed.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

INTERPOSE(readdir64, 1);
INTERPOSE(statvfs64, 2);

namespace {

RECORD_LAYOUT(disk_info, 784 + 2 * sizeof(void *), FIELD(path, 0, 512), FIELD(name, 512, 256), FIELD(total, 768, 8),
              FIELD(free, 776, 8), FIELD(list, 784, 2 * sizeof(void *)));

const std::string dir = "/run/disks";

class Disks : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    sandbox::clear_console();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    vemta_free_disk_info(&list);
    EXPECT_EQ(&list, list.next);
    EXPECT_EQ(&list, list.prev);
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    for (const std::string &path : mounted)
      umount2(path.c_str(), MNT_DETACH);
    sandbox::run("rm -rf " + dir);
  }

  void mount_disk(const std::string &name, const char *size) {
    const std::string path = dir + "/" + name, options = std::string("size=") + size;
    ASSERT_EQ(0, mkdir(path.c_str(), 0755));
    ASSERT_EQ(0, mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str())) << strerror(errno);
    mounted.push_back(path);
  }

  // Returns the records of the list, in its order.
  std::vector<const disk_info *> disks() const {
    std::vector<const disk_info *> found;
    for (const list_node *node = list.next; node != &list; node = node->next) {
      EXPECT_EQ(node, node->next->prev);
      found.push_back(
          reinterpret_cast<const disk_info *>(reinterpret_cast<const char *>(node) - offsetof(disk_info, list)));
    }
    return found;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const disk_info *disk : disks())
      found.push_back(disk->name);
    std::sort(found.begin(), found.end());
    return found;
  }
  const disk_info *disk(const std::string &name) const {
    for (const disk_info *one : disks())
      if (one->name == name)
        return one;
    return nullptr;
  }

  static void expect_trace(const std::string &message) {
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_TRUE(traces[0].has_process);
    EXPECT_EQ("vemta_usb", traces[0].file);
    EXPECT_EQ("vemta_get_disk_info", traces[0].func);
    EXPECT_EQ(message, traces[0].message);
    sandbox::clear_console();
  }

  list_node list = {&list, &list};
  std::vector<std::string> mounted;
  int descriptors = 0;
};

} // namespace

TEST_F(Disks, EveryMountIsARecordWithItsSizes) {
  mount_disk("usb1", "1m");
  mount_disk("usb2", "8g");
  sandbox::write_file(dir + "/usb1/file", std::string(65536, 'x'));
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  ASSERT_EQ((std::vector<std::string>{"usb1", "usb2"}), names());
  const disk_info *usb1 = disk("usb1"), *usb2 = disk("usb2");
  EXPECT_EQ(dir + "/usb1", usb1->path);
  EXPECT_EQ(1048576u, usb1->total);
  EXPECT_EQ(1048576u - 65536u, usb1->free);
  EXPECT_EQ(dir + "/usb2", usb2->path);
  EXPECT_EQ(8589934592u, usb2->total);
  EXPECT_EQ(8589934592u, usb2->free);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Disks, SizesAreBlocksOfTheirSizeWithWhatIsKeptForTheSuperuser) {
  ASSERT_EQ(0, mkdir((dir + "/a").c_str(), 0755));
  // Blocks of 4096 bytes in fragments of 512, some of them kept for the superuser.
  const interposed::StandIn hook(interposed::statvfs64_call, [](const char *, struct statvfs64 *status) {
    *status = {};
    status->f_bsize = 4096;
    status->f_frsize = 512;
    status->f_blocks = 0x123456789;
    status->f_bfree = 0x100000001;
    status->f_bavail = 5;
    return 0;
  });
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  ASSERT_EQ(1u, disks().size());
  EXPECT_EQ(0x123456789000u, disks()[0]->total);
  EXPECT_EQ(0x100000001000u, disks()[0]->free);
}

TEST_F(Disks, APlainEntryTellsAboutTheFileSystemThatHoldsIt) {
  mount_disk("outer", "2m");
  const std::string outer = dir + "/outer";
  ASSERT_EQ(0, mkdir((outer + "/sub").c_str(), 0755));
  sandbox::write_file(outer + "/file", "");
  EXPECT_EQ(0, vemta_get_disk_info(outer.c_str(), &list));
  ASSERT_EQ((std::vector<std::string>{"file", "sub"}), names());
  EXPECT_EQ(2097152u, disk("file")->total);
  EXPECT_EQ(2097152u, disk("sub")->total);
}

TEST_F(Disks, HiddenEntriesAreSkipped) {
  for (const char *name : {".hidden", "..twice", "...", "shown.1"})
    ASSERT_EQ(0, mkdir((dir + "/" + name).c_str(), 0755));
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(std::vector<std::string>{"shown.1"}, names());
}

TEST_F(Disks, AnEmptyDirectoryHasNone) {
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(&list, list.next);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Disks, AppendsInTheOrderOfTheDirectory) {
  for (const char *name : {"c", "a", "d", "b"})
    ASSERT_EQ(0, mkdir((dir + "/" + name).c_str(), 0755));
  std::vector<std::string> expected;
  DIR *entries = opendir(dir.c_str());
  while (const dirent *entry = readdir(entries))
    if (entry->d_name[0] != '.')
      expected.push_back(entry->d_name);
  closedir(entries);
  for (size_t i = 0; i < 4; i++)
    expected.push_back(expected[i]); // the second scan comes after the first
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  std::vector<std::string> found;
  for (const disk_info *one : disks())
    found.push_back(one->name);
  EXPECT_EQ(expected, found);
}

TEST_F(Disks, FreeingEmptiesTheList) {
  for (const char *name : {"a", "b", "c"})
    ASSERT_EQ(0, mkdir((dir + "/" + name).c_str(), 0755));
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(3u, disks().size());
  vemta_free_disk_info(&list);
  EXPECT_EQ(0u, disks().size());
  vemta_free_disk_info(&list);
  vemta_free_disk_info(nullptr);
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(3u, disks().size());
}

TEST_F(Disks, ADanglingLinkIsReportedAndTheRestIsRead) {
  ASSERT_EQ(0, mkdir((dir + "/a").c_str(), 0755));
  ASSERT_EQ(0, symlink("/run/absent", (dir + "/dangling").c_str()));
  ASSERT_EQ(0, mkdir((dir + "/z").c_str(), 0755));
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ((std::vector<std::string>{"a", "z"}), names());
  expect_trace("Cannot statvfs " + dir + "/dangling\n");
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(4u, disks().size());
}

TEST_F(Disks, BadArgumentsAreReported) {
  EXPECT_EQ(1, vemta_get_disk_info(nullptr, &list));
  expect_trace("dir_path is null\n");
  EXPECT_EQ(1, vemta_get_disk_info(nullptr, nullptr));
  expect_trace("dir_path is null\n");
  EXPECT_EQ(1, vemta_get_disk_info(dir.c_str(), nullptr));
  expect_trace("list head is null\n");
  EXPECT_EQ(1, vemta_get_disk_info("/run/absent", &list));
  expect_trace("Cannot open dir: /run/absent\n");
  EXPECT_EQ(1, vemta_get_disk_info("", &list));
  expect_trace("Cannot open dir: \n");
  sandbox::write_file(dir + "/file", "");
  EXPECT_EQ(1, vemta_get_disk_info((dir + "/file").c_str(), &list));
  expect_trace("Cannot open dir: " + dir + "/file\n");
  EXPECT_EQ(0u, disks().size());
}

TEST_F(Disks, ADirectoryThatFailsHalfWayIsReportedAndWhatWasReadStays) {
  for (const char *name : {"a", "b", "c"})
    ASSERT_EQ(0, mkdir((dir + "/" + name).c_str(), 0755));
  static int entries;
  entries = 4; // two of them are "." and ".."
  const interposed::StandIn hook(interposed::readdir64_call, [](DIR *directory) -> dirent64 * {
    if (entries-- > 0)
      return interposed::readdir64_call.real(directory);
    errno = EIO;
    return nullptr;
  });
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  EXPECT_EQ(2u, disks().size());
  expect_trace("Error occuried when readdir_r (5)\n");
}

TEST_F(Disks, AnErrnoLeftByAnEntryIsNotTheDirectorys) {
  ASSERT_EQ(0, symlink("/run/absent", (dir + "/dangling").c_str()));
  errno = EBADF;
  EXPECT_EQ(0, vemta_get_disk_info(dir.c_str(), &list));
  expect_trace("Cannot statvfs " + dir + "/dangling\n");
}

TEST_F(Disks, AnEntryWithoutMemoryIsLeftOut) {
  for (const char *name : {"a", "b"})
    ASSERT_EQ(0, mkdir((dir + "/" + name).c_str(), 0755));
  std::vector<size_t> counts;
  const unsigned failures = sandbox::fail_each_allocation([&] { return vemta_get_disk_info(dir.c_str(), &list); },
                                                          [&](int result, bool) {
                                                            if (result == 0)
                                                              counts.push_back(disks().size());
                                                            vemta_free_disk_info(&list);
                                                          });
  EXPECT_EQ((std::vector<size_t>{1, 1, 2}), counts);
  EXPECT_GE(failures, 2u);
  for (const std::string &message : sandbox::console_messages()) // the directory's own memory
    EXPECT_EQ("Cannot open dir: " + dir + "\n", message);
}

TEST_F(Disks, LongPathsAreCutToTheirField) {
  const std::string part(255, 'p');
  const std::string long_dir = dir + "/" + part + "/" + part;
  ASSERT_EQ(0, mkdir((dir + "/" + part).c_str(), 0755));
  ASSERT_EQ(0, mkdir(long_dir.c_str(), 0755));
  const std::string name(255, 'n');
  ASSERT_EQ(0, mkdir((long_dir + "/" + name).c_str(), 0755));
  EXPECT_EQ(0, vemta_get_disk_info(long_dir.c_str(), &list));
  ASSERT_EQ(1u, disks().size());
  EXPECT_EQ((long_dir + "/" + name).substr(0, 511), disks()[0]->path);
  EXPECT_EQ(name, disks()[0]->name);
}

TEST_F(Disks, PathsPast1023CharactersAreCutAndAskedSo) {
  std::string deep = dir;
  for (int i = 0; i < 4; i++) {
    deep += "/" + std::string(250, 'p');
    ASSERT_EQ(0, mkdir(deep.c_str(), 0755));
  }
  const std::string name(100, 'n');
  ASSERT_EQ(0, mkdir((deep + "/" + name).c_str(), 0755));
  EXPECT_EQ(0, vemta_get_disk_info(deep.c_str(), &list));
  EXPECT_EQ(0u, disks().size());
  expect_trace("Cannot statvfs " + (deep + "/" + name).substr(0, 1023) + "\n");
}
