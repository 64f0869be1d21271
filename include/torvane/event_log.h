/*
 * Event log
 *
 * This service records events in two ways. Categories are files of lines, at most eight of them; after every 128 lines
 * the library moves a file aside and starts a new one. Messages go to the system logger and appear on the console too.
 *
 *     initLogSys();
 *     int wan = createLog("wan", "wan.log", "/var/log");
 *
 *     if (wan >= 0)
 *       putlog((unsigned)wan, "ppp0", "link is up");                 // "ppp0|link is up|1700000000"
 *     __syslogprintf(lock, "daemon", "daemon", __LINE__, __func__, LOG_TYPE_NOTICE, "%s is up", "wan0");
 *
 * The categories are global to the process and have no lock. Do not make categories, or write to the same one, from
 * several threads at once. This service traces nothing of its own; only the semaphore's functions trace
 * (torvane/ipc.h).
 */
#ifndef TORVANE_EVENT_LOG_H
#define TORVANE_EVENT_LOG_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* A category of lines. */
typedef struct log_entry {
  char name[64];  /* category, at most 63 characters */
  char file[64];  /* file name inside the directory, at most 63 characters */
  char dir[128];  /* directory, at most 127 characters */
  uint16_t lines; /* lines written since the file was last moved aside, or since initLogSys */
  int32_t state;  /* -1: free; 1: in use; 0, before initLogSys, is neither */
} log_entry;

/* The categories. createLog fills them from the first on, and no call releases a single one. */
extern log_entry logList[8];

/* 1 once initLogSys has run, else 0. */
extern unsigned char isInit;

/*
 * Makes all eight categories free. Call it once, before createLog. A second call forgets every category; their files
 * stay as they are.
 *
 * Returns the address of isInit, which nobody needs.
 */
unsigned char *initLogSys(void);

/*
 * Tells whether initLogSys has run. createLog and putlog do not ask this themselves.
 *
 * Returns:
 *   1  it has run
 *   0  it has not
 */
int isLogSysInit(void);

/*
 * Creates the file "DIR/FILE" and binds it to the first free category. A file that exists is EMPTIED: first move away
 * what an earlier run has left.
 *
 *   name  what the category is called; kept in the table and used for nothing else
 *   file  file name
 *   dir   directory, without a "/" at its end
 *
 * Returns:
 *   0 to 7  the category's index, for putlog
 *   -1      no category is free, because all eight are in use or initLogSys has not run. The file has been created or
 *           emptied all the same
 *   -2      the file cannot be opened, its path is too long for the system (PATH_MAX bytes with its terminator), or an
 *           argument is null; no file is created or emptied
 *
 * The file that this call creates or empties is exactly the one that was named. Texts that are longer than the fields
 * of log_entry are cut in the table, so lines go to a file of the cut name.
 */
int createLog(const char *name, const char *file, const char *dir);

/*
 * Appends the line "FIELD1|FIELD2|SECONDS" to the file of a category, with the seconds since the epoch. A file that is
 * gone is created anew.
 *
 *   index           category, from createLog
 *   field1, field2  texts of the line. They are written as they stand: keep "|" and newlines out of them
 *
 * It does nothing, and reports nothing, when the index is 8 or more, the category is not in use, the file cannot be
 * opened, or a text is null.
 *
 * After the 128th line the file is renamed: "_" and the seconds since the epoch are appended to its path. The next line
 * starts a new file. Nothing ever deletes the renamed files. One that is renamed in the same second as the one before
 * replaces it. After a rename that failed the file goes on growing, and the next try comes 128 lines later.
 *
 * The library counts lines in memory, so the count starts at 0 again when the process does. It also counts lines that
 * could not be written because the disk was full.
 */
void putlog(unsigned index, const char *field1, const char *field2);

/* Types of messages, and the priorities with which they reach the system logger. */
enum {
  LOG_TYPE_SYSTEM_ACTIVITY = 0,   /* "ltSystemActivity": LOG_INFO */
  LOG_TYPE_DEBUG_INFORMATION = 1, /* "ltDebugInformation": LOG_DEBUG */
  LOG_TYPE_ATTACKS = 2,           /* "ltAttacks": LOG_WARNING */
  LOG_TYPE_DROPPED_PACKETS = 3,   /* "ltDroppedPackets": LOG_WARNING */
  LOG_TYPE_NOTICE = 4             /* "ltNotice": LOG_NOTICE */
};

/*
 * Shows a message on the console and sends it to the system logger as "[TYPE]MESSAGE\n", for example
 * "[ltNotice]wan0 is up\n". The facility is LOG_USER, and the process id goes with it.
 *
 *   semid             semaphore of sem_create, made once at start-up. It is held while the system logger is open, so
 *                     that processes that share it do not mix up their identities
 *   ident             sender that the system logger names; read only during the call. With null it is what the C
 *                     library's openlog(3) makes of it: the program's name, or none
 *   file, line, func  source position of the caller, for the console, which shows "(null)" for a text that is null
 *   type              LOG_TYPE_*. With another value the system logger gets nothing, and all else happens
 *   fmt               printf format of the message, which is cut after 1023 bytes
 *
 * Returns:
 *   0  the semaphore was given back
 *   1  the semaphore could not be given back, which upup traces and writes to standard error; or `fmt` is null, and
 *      nothing is done
 *
 * A semaphore that cannot be taken is reported by downdown, and the message is sent all the same.
 *
 * On the console the message stands as it is, without a newline of its own, after "[SYS]" and the short header of
 * torvane/trace.h: coloured, "[THREAD FILE:LINE FUNC()]:::", with the kernel's thread id and no process id. A console
 * that cannot be opened is skipped.
 *
 * Safe from any thread if every user of the system logger takes the same semaphore. Each call uses openlog(3) and
 * closelog(3), which undo an openlog of the program's own. A thread that is cancelled during the call ends after it.
 */
int __syslogprintf(int semid, const char *ident, const char *file, int line, const char *func, int type,
                   const char *fmt, ...) TORVANE_PRINTF(7, 8);

/*
 * Returns the type of message with a given name, compared exactly: "ltNotice" is 4 (LOG_TYPE_NOTICE). It returns -1 for
 * any other text and for null.
 */
int syslogType(const char *text);

/* Does nothing. It is there for programs that call it on one platform. */
void syslogprintf_cortina(void);

TORVANE_END

#endif
