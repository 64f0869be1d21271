// Lists what is mounted under a directory, with size and free space.
#define _FILE_OFFSET_BITS 64 // large disks and 64-bit file numbers on 32-bit targets too

#include <dirent.h>
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>

#include "base/fields.h"
#include "base/owners.h"
#include "base/records.h"
#include "base/text_writer.h"
#include "base/trace.h"
#include "torvane/disk.h"
#include "torvane/list.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "vemta_usb";

using Disks = Records<disk_info, offsetof(disk_info, list)>;

void append_disk(list_node *list, const char *path, const char *name, const struct statvfs &status) {
  disk_info *disk = allocate_zeroed<disk_info>();
  if (!disk)
    return;
  set_text(disk->path, path);
  set_text(disk->name, name);
  disk->total = static_cast<uint64_t>(status.f_blocks) * status.f_bsize;
  disk->free = static_cast<uint64_t>(status.f_bfree) * status.f_bsize;
  list_add_tail(&disk->list, list);
}

} // namespace

extern "C" {

int vemta_get_disk_info(const char *dir, list_node *list) {
  if (!dir) {
    TRACE("dir_path is null\n");
    return 1;
  }
  if (!list) {
    TRACE("list head is null\n");
    return 1;
  }
  const Directory entries(opendir(dir));
  if (!entries) {
    TRACE("Cannot open dir: %s\n", dir);
    return 1;
  }
  // readdir is safe, because no other thread has this stream. Only errno tells its end from an error.
  errno = 0;
  while (const dirent *entry = readdir(entries.get())) {
    if (entry->d_name[0] != '.') {
      char path[1024];
      TextWriter(path).append("%s/%s", dir, entry->d_name);
      struct statvfs status;
      if (statvfs(path, &status) == 0)
        append_disk(list, path, entry->d_name, status);
      else
        TRACE("Cannot statvfs %s\n", path);
    }
    errno = 0;
  }
  // The text is spelled as users know it; this is meant. An error is no failure of the scan: what was found stays.
  if (errno != 0)
    TRACE("Error occuried when readdir_r (%d)\n", errno);
  return 0;
}

void vemta_free_disk_info(list_node *list) {
  if (!list)
    return;
  for (disk_info &disk : Disks(list)) {
    list_del(&disk.list);
    free(&disk);
  }
}

} // extern "C"
