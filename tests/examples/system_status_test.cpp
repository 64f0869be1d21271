// These tests run the status command, and look at what it prints and how it ends.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "support/example.h"
#include "support/sandbox.h"

namespace {

using sandbox::Outcome;

const std::string no_flash = "FLASH: none, there is no /proc/mtd\n";
const std::string disk_heading = "DISK                                 SIZE       USED       FREE   USE\n";

// Measuring for a fifth of a second is enough for a load.
Outcome run(const std::string &arguments) {
  return sandbox::run(sandbox::example("system_status") + " -i 0.2 " + arguments);
}

// Checks the form of the load at the end of the output and removes it.
std::string before_load(const std::string &output) {
  static const std::regex load("CPU LOAD: (\\d\\d?\\.\\d|100\\.0)% over 0\\.2 s\n$");
  EXPECT_TRUE(std::regex_search(output, load)) << output;
  return std::regex_replace(output, load, "");
}

// Runs the command where /proc holds a recorded table of partitions and the machine's counters.
Outcome run_with_flash(const std::string &table, const std::string &environment = "") {
  sandbox::write_file("/run/mtd", table);
  mkdir("/run/proc", 0755);
  const Outcome outcome = sandbox::run(
      "unshare -m sh -c 'mount --bind /proc /run/proc && mount -t tmpfs tmpfs /proc && "
      "ln -s /run/proc/self /run/proc/stat /run/proc/sys /proc && cp /run/mtd /proc && " +
      environment + " exec " + sandbox::example("system_status") + " -i 0.2'");
  rmdir("/run/proc");
  unlink("/run/mtd");
  return outcome;
}

constexpr char recorded[] = R"(dev:    size   erasesize  name
mtd0: 00040000 00020000 "boot"
mtd3: 00b00000 00020000 "root fs"
mtd12: 00020000 00020000 "factory"
)";

class SystemStatus : public testing::Test {
 protected:
  void SetUp() override {
    if (sandbox::exists("/proc/mtd"))
      GTEST_SKIP() << "this machine has flash partitions of its own";
    sandbox::clear_console();
    ASSERT_EQ(0, mkdir("/run/disks", 0755));
  }
  void TearDown() override {
    umount2("/run/disks/usb1", MNT_DETACH);
    umount2("/run/disks/usb2", MNT_DETACH);
    sandbox::run("rm -rf /run/disks");
    for (const char *device : {"/dev/mtd0", "/dev/mtd3", "/dev/mtd12"})
      unlink(device);
  }
  static void mount_disk(const char *path, const char *size) {
    ASSERT_EQ(0, mkdir(path, 0755));
    ASSERT_EQ(0, mount("tmpfs", path, "tmpfs", 0, size)) << strerror(errno);
  }
};

} // namespace

TEST_F(SystemStatus, WithoutFlashOrDirectoriesShowsTheLoad) {
  const Outcome outcome = run("");
  EXPECT_EQ(no_flash, before_load(outcome.output));
  EXPECT_EQ(0, outcome.status);
}

TEST_F(SystemStatus, ShowsDisksInTheOrderOfTheirNames) {
  mount_disk("/run/disks/usb2", "size=3g");
  mount_disk("/run/disks/usb1", "size=1m");
  sandbox::write_file("/run/disks/usb1/file", std::string(262144, 'x'));
  mkdir("/run/disks/.hidden", 0755);
  const Outcome outcome = run("/run/disks");
  EXPECT_EQ(no_flash + disk_heading +
                "/run/disks/usb1                   1.0 MiB  256.0 KiB  768.0 KiB   25%\n"
                "/run/disks/usb2                   3.0 GiB        0 B    3.0 GiB    0%\n",
            before_load(outcome.output));
  EXPECT_EQ(0, outcome.status);
}

TEST_F(SystemStatus, AnEmptyDirectoryHasAHeadingAlone) {
  const Outcome outcome = run("/run/disks");
  EXPECT_EQ(no_flash + disk_heading, before_load(outcome.output));
  EXPECT_EQ(0, outcome.status);
}

TEST_F(SystemStatus, ADirectoryThatCannotBeOpenedIsToldAndTheOthersAreShown) {
  mount_disk("/run/disks/usb1", "size=1m");
  const Outcome outcome = run("/run/absent /run/disks");
  EXPECT_NE(std::string::npos, outcome.output.find("system_status: cannot open /run/absent\n"));
  EXPECT_NE(std::string::npos,
            outcome.output.find("/run/disks/usb1                   1.0 MiB        0 B    1.0 MiB    0%\n"));
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(std::vector<std::string>{"Cannot open dir: /run/absent\n"}, sandbox::console_messages());
}

TEST_F(SystemStatus, WrongCallsAreRefused) {
  for (const char *arguments : {"-x", "-i", "-i soon", "-i 0", "-i 61", "-i -1", "-i 1s", "-i nan", "-i ''"}) {
    const Outcome outcome = sandbox::run(sandbox::example("system_status") + " " + arguments);
    EXPECT_EQ(2, outcome.status) << arguments;
    EXPECT_NE(std::string::npos, outcome.output.find("usage: system_status [-i SECONDS] [DIRECTORY...]\n"))
        << arguments;
  }
}

TEST_F(SystemStatus, PartitionsWhoseDeviceDoesNotAnswerHaveNoSize) {
  sandbox::write_file("/dev/mtd3", "");
  const Outcome outcome = run_with_flash(recorded);
  // The library's own message stands before the line of each.
  const std::string reason = strerror(-1);
  std::string output = std::regex_replace(outcome.output, std::regex("fd:\\d+"), "fd:N");
  EXPECT_EQ(
      "FLASH                    DEVICE             SIZE\n"
      "open mtd device fail!! reason:" +
          reason +
          "\n"
          "boot                     ?                     ?\n"
          "ioctl error!! fd:N, reason:" +
          reason +
          "\n"
          "root fs                  ?                     ?\n"
          "open mtd device fail!! reason:" +
          reason +
          "\n"
          "factory                  ?                     ?\n",
      before_load(output));
  EXPECT_EQ(1, outcome.status);
}

TEST_F(SystemStatus, PartitionsAreShownWithTheirSizes) {
  if (sandbox::example("").find("qemu") != std::string::npos)
    GTEST_SKIP() << "the stand-in of the flash driver is not for emulated programs";
  // A file stands in for the flash device, and a library loaded before all others answers for it.
  sandbox::write_file("/run/flash.c",
                      "#include <linux/ioctl.h>\n#include <mtd/mtd-user.h>\n#include <sys/stat.h>\n"
                      "int ioctl(int fd, unsigned long request, struct mtd_info_user *info) {\n"
                      "  struct stat status;\n"
                      "  if (request != MEMGETINFO || fstat(fd, &status) != 0) return -1;\n"
                      "  info->size = (unsigned)status.st_size;\n  return 0;\n}\n");
  if (sandbox::run("cc -shared -fPIC -o /run/flash.so /run/flash.c").status != 0)
    GTEST_SKIP() << "no C compiler for a stand-in of the flash driver";
  sandbox::write_file("/dev/mtd0", std::string(0x40000, 'x'));
  sandbox::write_file("/dev/mtd3", std::string(0xb80000, 'x'));
  sandbox::write_file("/dev/mtd12", std::string(1000, 'x'));
  const Outcome outcome = run_with_flash(recorded, "LD_PRELOAD=/run/flash.so");
  EXPECT_EQ(
      "FLASH                    DEVICE             SIZE\n"
      "boot                     mtd0          256.0 KiB\n"
      "root fs                  mtd3           11.5 MiB\n"
      "factory                  mtd12            1000 B\n",
      before_load(outcome.output));
  EXPECT_EQ(0, outcome.status);
  unlink("/run/flash.c");
  unlink("/run/flash.so");
}

TEST_F(SystemStatus, ATableWithoutPartitionsHasAHeadingAlone) {
  const Outcome outcome = run_with_flash("dev:    size   erasesize  name\n");
  EXPECT_EQ("FLASH                    DEVICE             SIZE\n", before_load(outcome.output));
  EXPECT_EQ(0, outcome.status);
}

TEST_F(SystemStatus, WithoutCountersTheLoadIsUnknown) {
  sandbox::write_file("/run/stat", "cpu 1 2 3 4 5 6 7 8\n"); // the counters stand still
  ASSERT_EQ(0, mount("/run/stat", "/proc/stat", nullptr, MS_BIND, nullptr)) << strerror(errno);
  EXPECT_EQ(no_flash + "CPU LOAD: unknown\n", run("").output);
  EXPECT_EQ(1, run("").status);
  sandbox::write_file("/run/stat", "");
  EXPECT_EQ(no_flash + "CPU LOAD: unknown\n", run("").output);
  EXPECT_EQ(1, run("").status);
  umount2("/proc/stat", MNT_DETACH);
  unlink("/run/stat");
}
