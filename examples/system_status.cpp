// Prints what a router's status page shows of its hardware: flash partitions, disks and CPU load.
//
//   system_status [-i SECONDS] [DIRECTORY...]
//
//   -i SECONDS  interval over which the load is measured, 0.1 to 60; 1 by default
//   DIRECTORY   directory in which disks are mounted: each of its entries is shown with the file system that it is on
//
// Exit status:
//   0  everything was shown
//   1  something could not be shown; the reason stands in its place or on standard error
//   2  the arguments are wrong
#include <mtd/mtd-user.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <torvane/cpu.h>
#include <torvane/disk.h>
#include <torvane/flash.h>
#include <torvane/list.h>

#include "units.h"

namespace {

std::string readable(uint64_t bytes) {
  static constexpr const char *names[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  return in_units(bytes, {names, 1024, 1024});
}

struct Partition {
  uint32_t number;
  std::string name;
};

// Reads a line of /proc/mtd such as `mtd3: 00b00000 00020000 "rootfs"`. Returns false for the heading.
bool read_partition(const char *line, Partition &partition) {
  unsigned number;
  char name[64];
  // NOLINTNEXTLINE(cert-err34-c): the kernel writes these numbers, so that they fit
  if (sscanf(line, "mtd%u: %*x %*x \"%63[^\"]\"", &number, name) != 2)
    return false;
  partition = {number, name};
  return true;
}

bool show_partition(const Partition &partition) {
  // The number from the table is used here. getMtdInfoByName would find it by the name, but only for partitions 0 to 9,
  // and it takes a part of a name for the whole.
  mtd_info_user info;
  char device[16 + 1] = "?";
  const bool told = getMtdInfo(&partition.number, &info) != 0; // on failure it prints the reason
  const std::string size = told ? readable(info.size) : "?";
  if (told)
    setQueryMtdInfo(&info, device, sizeof(device) - 1, MTD_QUERY_NAME, &partition.number);
  printf("%-24s %-12s %10s\n", partition.name.c_str(), device, size.c_str());
  return told;
}

bool show_flash() {
  const std::unique_ptr<FILE, decltype(&fclose)> table(fopen("/proc/mtd", "re"), fclose);
  if (!table) {
    puts("FLASH: none, there is no /proc/mtd");
    return true;
  }
  printf("%-24s %-12s %10s\n", "FLASH", "DEVICE", "SIZE");
  bool complete = true;
  char line[256];
  while (fgets(line, sizeof(line), table.get())) {
    Partition partition;
    if (read_partition(line, partition) && !show_partition(partition))
      complete = false;
  }
  return complete;
}

void show_disk(const disk_info &disk) {
  const uint64_t used = disk.total - disk.free;
  // File systems that exist only in the kernel, such as /proc, have no size.
  const double share = disk.total == 0 ? 0 : 100 * static_cast<double>(used) / static_cast<double>(disk.total);
  printf("%-30s %10s %10s %10s %4.0f%%\n", disk.path, readable(disk.total).c_str(), readable(used).c_str(),
         readable(disk.free).c_str(), share);
}

disk_info *disk_of(list_node *node) {
  return reinterpret_cast<disk_info *>(reinterpret_cast<char *>(node) - offsetof(disk_info, list));
}

// Shows all directories that can be opened. Returns false if one of them cannot.
bool show_disks(const std::vector<const char *> &directories) {
  if (directories.empty())
    return true;
  bool complete = true;
  list_node found = {&found, &found};
  for (const char *directory : directories) {
    if (vemta_get_disk_info(directory, &found) != 0) {
      fprintf(stderr, "system_status: cannot open %s\n", directory);
      complete = false;
    }
  }
  std::vector<const disk_info *> disks;
  for (list_node *node = found.next; node != &found; node = node->next)
    disks.push_back(disk_of(node));
  // The entries of a directory come in no particular order.
  std::sort(disks.begin(), disks.end(),
            [](const disk_info *a, const disk_info *b) { return strcmp(a->path, b->path) < 0; });
  printf("%-30s %10s %10s %10s %5s\n", "DISK", "SIZE", "USED", "FREE", "USE");
  for (const disk_info *disk : disks)
    show_disk(*disk);
  vemta_free_disk_info(&found);
  return complete;
}

using Sample = std::unique_ptr<cpu_sample, decltype(&free)>;

bool show_load(double seconds) {
  const Sample before(cpu_utility_get_stat(), free);
  usleep(static_cast<useconds_t>(seconds * 1e6));
  const Sample after(cpu_utility_get_stat(), free);
  const float load = cpu_utility_calculate(before.get(), after.get()); // this is -1 if a sample could not be taken
  if (load < 0 || std::isnan(load)) {
    puts("CPU LOAD: unknown");
    return false;
  }
  printf("CPU LOAD: %.1f%% over %.1f s\n", static_cast<double>(load), seconds);
  return true;
}

int usage() {
  fputs("usage: system_status [-i SECONDS] [DIRECTORY...]\n", stderr);
  return 2;
}

} // namespace

int main(int argc, char **argv) {
  double seconds = 1;
  for (int option; (option = getopt(argc, argv, "i:")) != -1;) {
    char *end = nullptr;
    if (option == 'i')
      seconds = strtod(optarg, &end);
    if (option != 'i' || end == optarg || *end != '\0' || !(seconds >= 0.1 && seconds <= 60))
      return usage();
  }
  const std::vector<const char *> directories(argv + optind, argv + argc);
  const bool flash = show_flash();
  const bool disks = show_disks(directories);
  const bool load = show_load(seconds);
  return flash && disks && load ? 0 : 1;
}
