// Keeps the event log's category files, and moves each aside every 128 lines.
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "base/fields.h"
#include "base/high_descriptor.h"
#include "base/owners.h"
#include "torvane/event_log.h"

using namespace torvane;

namespace {

constexpr int32_t entry_free = -1;
constexpr int32_t entry_used = 1;
constexpr unsigned entry_count = sizeof(logList) / sizeof(logList[0]);
constexpr unsigned lines_per_file = 128;

constexpr size_t entry_path_size = 196; // bytes: room for a directory, "/" and a file name of an entry

unsigned long seconds_since_epoch() {
  return static_cast<unsigned long>(time(nullptr));
}

// Returns whether the path is whole. A path that was cut names another file, so it must not be used.
bool make_path(char *path, size_t size, const char *dir, const char *file) {
  return static_cast<size_t>(snprintf(path, size, "%s/%s", dir, file)) < size;
}

} // namespace

extern "C" {

log_entry logList[8];
unsigned char isInit;

unsigned char *initLogSys(void) {
  memset(logList, 0, sizeof(logList));
  for (log_entry &entry : logList)
    entry.state = entry_free;
  isInit = 1;
  return &isInit;
}

int isLogSysInit(void) {
  return isInit;
}

int createLog(const char *name, const char *file, const char *dir) {
  if (!name || !file || !dir)
    return -2;
  char path[PATH_MAX];
  if (!make_path(path, sizeof(path), dir, file))
    return -2;
  // This is meant: the file is made or emptied first, so that happens also when no entry is free. It is closed at once,
  // so it may have any descriptor.
  if (!Descriptor(open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)))
    return -2;
  for (unsigned i = 0; i < entry_count; i++) {
    log_entry &entry = logList[i];
    if (entry.state != entry_free)
      continue;
    set_text(entry.name, name);
    set_text(entry.file, file);
    set_text(entry.dir, dir);
    entry.state = entry_used;
    return static_cast<int>(i);
  }
  return -1;
}

void putlog(unsigned index, const char *field1, const char *field2) {
  if (index >= entry_count || logList[index].state != entry_used || !field1 || !field2)
    return;
  log_entry &entry = logList[index];
  char path[entry_path_size];
  if (!make_path(path, sizeof(path), entry.dir, entry.file))
    return;
  FILE *file = open_stream(open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666), "a");
  if (!file)
    return;
  fprintf(file, "%s|%s|%lu\n", field1, field2, seconds_since_epoch());
  entry.lines++;
  fclose(file);
  if (entry.lines != lines_per_file)
    return;

  char moved[entry_path_size + 24]; // "_" and the 20 digits of the largest number
  snprintf(moved, sizeof(moved), "%s_%lu", path, seconds_since_epoch());
  rename(path, moved);
  entry.lines = 0; // also when the renaming failed: the next try is 128 lines away
}

} // extern "C"
