// Finds flash partitions by name, and tells their numbers, devices and sizes.
#include <fcntl.h>
#include <limits.h>
#include <mtd/mtd-user.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "base/high_descriptor.h"
#include "base/owners.h"
#include "base/text_writer.h"
#include "base/trace.h"
#include "torvane/flash.h"
#include "torvane/process.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "sulnor_convert";

// These texts stand before the number, by query kind.
constexpr const char *name_prefixes[] = {"", "/dev/mtd", "/dev/mtdblock", "mtd", "mtdblock"};

// This is meant: the reason belongs to the result -1 and not to errno. Readers of these lines know them so.
const char *reason_of_failure() {
  return strerror(-1);
}

template <size_t Size>
void write_name(char (&field)[Size], uint32_t kind, uint32_t num) {
  TextWriter(field).append("%s%u", name_prefixes[kind], num);
}

void write_all(void *out, uint32_t size_of_partition, uint32_t num) {
  mtd_query all = {};
  write_name(all.dev, MTD_QUERY_DEV, num);
  write_name(all.block_dev, MTD_QUERY_BLOCK_DEV, num);
  write_name(all.name, MTD_QUERY_NAME, num);
  write_name(all.block_name, MTD_QUERY_BLOCK_NAME, num);
  all.num = num;
  all.size = size_of_partition;
  memcpy(out, &all, sizeof(all));
}

// Returns 1, or 0 when there is no item or no place for it.
int store(void *out, const void *item, size_t size) {
  if (!out || !item)
    return 0;
  memcpy(out, item, size);
  return 1;
}

} // namespace

extern "C" {

int parseMtdNumByCmd(const char *name, uint32_t *num) {
  if (!name || !num)
    return 0;
  // This is meant: only one digit is taken, and the name may be part of others, whose digits then join.
  FILE *command = _system_read("cat /proc/mtd | grep %s | awk '{printf substr($1,4,1)}'", name);
  if (!command)
    return 0;
  char digits[16];
  const bool found = fgets(digits, sizeof(digits), command) != nullptr;
  _system_close(command);
  if (!found)
    return 0;
  char *end;
  const long value = strtol(digits, &end, 10);
  // This is meant: the number is stored before it is known to be one, and is 0 then. The largest is that of a 32-bit
  // long, on every host.
  *num = static_cast<uint32_t>(std::min<long>(value, INT32_MAX));
  if (end == digits) {
    TRACE("string(%s) to digital error!!\n", digits);
    return 0;
  }
  return 1;
}

int getMtdInfo(const uint32_t *num, struct mtd_info_user *info) {
  if (!num || !info)
    return 0;
  char path[32];
  TextWriter(path).append("/dev/mtd%d", static_cast<int>(*num));
  // This is meant: the device is opened for writing too, though nothing is written. All the less may it be the
  // descriptor of standard output, which says below that it does not answer.
  const Descriptor fd(keep_above_standard(open(path, O_RDWR | O_CLOEXEC)));
  if (!fd) {
    printf("open mtd device fail!! reason:%s\n", reason_of_failure());
    return 0;
  }
  if (ioctl(fd.get(), MEMGETINFO, info) == -1) {
    printf("ioctl error!! fd:%d, reason:%s\n", fd.get(), reason_of_failure());
    return 0;
  }
  return 1;
}

int setQueryMtdInfo(const struct mtd_info_user *info, void *out, uint32_t size, uint32_t kind, const uint32_t *num) {
  // Only the pointers that a kind uses are looked at, each where it is first used.
  switch (kind) {
    case MTD_QUERY_ALL:
      if (!info || !out || !num)
        return 0;
      write_all(out, info->size, *num);
      return 1;
    case MTD_QUERY_DEV:
    case MTD_QUERY_BLOCK_DEV:
    case MTD_QUERY_NAME:
    case MTD_QUERY_BLOCK_NAME: {
      if (!num)
        return 0;
      char buffer[64];
      TextWriter text(buffer);
      text.append("%s%d", name_prefixes[kind], static_cast<int>(*num));
      if (text.length() > size) {
        // This is meant: the line has no newline.
        TRACE("over size!! querySize:%d > outputSize:%d", static_cast<int>(text.length()), static_cast<int>(size));
        return 0;
      }
      return store(out, buffer, text.length() + 1); // the terminator may be one past `size`: this is meant
    }
    case MTD_QUERY_NUM:
      return store(out, num, sizeof(*num));
    case MTD_QUERY_SIZE:
      return store(out, info ? &info->size : nullptr, sizeof(info->size));
    default:
      TRACE("none case!!\n");
      return 0;
  }
}

int getMtdInfoByName(const char *name, void *out, uint32_t size, uint32_t kind) {
  if (!name || !out) {
    TRACE("Null Input\n");
    return 0;
  }
  uint32_t num;
  if (!parseMtdNumByCmd(name, &num)) {
    TRACE("Parse mtd device name fail!!\n");
    return 0;
  }
  struct mtd_info_user info = {};
  if (!getMtdInfo(&num, &info))
    return 0;
  if (!setQueryMtdInfo(&info, out, size, kind, &num)) {
    TRACE("query mtd info fail!!\n");
    return 0;
  }
  return 1;
}

} // extern "C"
