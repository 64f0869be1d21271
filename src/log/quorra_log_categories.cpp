// Event log: category files that are moved aside every 128 lines, and messages to the system logger.
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include "base/fields.h"
#include "base/lock.h"
#include "base/trace.h"
#include "torvane/event_log.h"
#include "torvane/map.h"

namespace {

constexpr char trace_module[] = "quorra_log";

constexpr int32_t entry_free = -1;
constexpr int32_t entry_used = 1;
constexpr unsigned entry_count = sizeof(logList) / sizeof(logList[0]);
constexpr unsigned lines_per_file = 128;

constexpr size_t path_size = 196; // a directory, "/" and a file name of an entry, and then some

constexpr txt_map_entry log_types[] = {
    {2, "ltAttacks"},        {0, "ltSystemActivity"}, {1, "ltDebugInformation"}, {2, "ltAttacks"},
    {3, "ltDroppedPackets"}, {4, "ltNotice"},         {UINT32_MAX, "UNKNOWN"},
};

// By log type.
constexpr int priorities[] = {LOG_INFO, LOG_DEBUG, LOG_WARNING, LOG_WARNING, LOG_NOTICE};
constexpr int type_count = sizeof(priorities) / sizeof(priorities[0]);

unsigned long seconds_since_epoch() {
  return static_cast<unsigned long>(time(nullptr));
}

void make_path(char (&path)[path_size], const char *dir, const char *file) {
  path[0] = '\0';
  snprintf(path, sizeof(path), "%s/%s", dir, file);
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
  char path[path_size];
  make_path(path, dir, file);
  FILE *created = fopen(path, "w+e");
  if (!created)
    return -2;
  fclose(created);
  for (unsigned i = 0; i < entry_count; i++) {
    log_entry &entry = logList[i];
    if (entry.state != entry_free)
      continue;
    torvane::set_text(entry.name, name);
    torvane::set_text(entry.file, file);
    torvane::set_text(entry.dir, dir);
    entry.state = entry_used;
    return static_cast<int>(i);
  }
  return -1;
}

void putlog(unsigned index, const char *field1, const char *field2) {
  if (index >= entry_count || logList[index].state != entry_used || !field1 || !field2)
    return;
  log_entry &entry = logList[index];
  char path[path_size];
  make_path(path, entry.dir, entry.file);
  FILE *file = fopen(path, "a+e");
  if (!file)
    return;
  fprintf(file, "%s|%s|%lu\n", field1, field2, seconds_since_epoch());
  entry.lines++;
  fclose(file);
  if (entry.lines != lines_per_file)
    return;

  char moved[path_size + 24]; // "_" and the 20 digits of the largest number
  snprintf(moved, sizeof(moved), "%s_%lu", path, seconds_since_epoch());
  rename(path, moved);
  entry.lines = 0; // whatever came of it: the next try is 128 lines away
}

int __syslogprintf(int semid, const char *ident, const char *file, int line, const char *func, int type,
                   const char *fmt, ...) {
  if (!ident || !file || !func || !fmt)
    return 1;
  char message[1024] = {};
  va_list values;
  va_start(values, fmt);
  vsnprintf(message, sizeof(message), fmt, values);
  va_end(values);

  torvane::trace_event(file, line, func, "%s", message);
  // The system logger's socket may block. Whoever is cancelled there must not take the semaphore along.
  const int cancellability = TAKE_LOCK(semid);
  openlog(ident, LOG_PID, LOG_USER);
  if (type >= 0 && type < type_count)
    syslog(priorities[type], "[%s]%s\n", TxtMapById(log_types, static_cast<uint32_t>(type)), message);
  closelog();
  return GIVE_LOCK(semid, cancellability) ? 0 : 1;
}

int syslogType(const char *text) {
  return static_cast<int>(TxtMapByTxt(log_types, text));
}

void syslogprintf_cortina(void) {}

} // extern "C"
