/*
 * Event log
 *
 * Two ways of recording events. Up to eight categories of lines, each in a file of its own that is moved aside after
 * every 128 lines; and messages to the system logger, shown on the console too.
 *
 * Categories are process-global and have no lock: do not make categories, or write to the same one, from several
 * threads at once. Nothing here is traced but what the semaphore's functions have to say.
 */
#ifndef TORVANE_EVENT_LOG_H
#define TORVANE_EVENT_LOG_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct log_entry {
  char name[64];  /* category, at most 63 characters */
  char file[64];  /* file name inside the directory, at most 63 characters */
  char dir[128];  /* directory, at most 127 characters */
  uint16_t lines; /* lines written since the file was last moved aside, or since initLogSys */
  int32_t state;  /* -1: free; 1: in use; 0, before initLogSys, is neither */
} log_entry;

/* The categories. Filled from the first on, and never released. */
extern log_entry logList[8];

/* 1 once initLogSys has run, else 0. */
extern unsigned char isInit;

/*
 * Makes all eight categories free; call it once, before createLog. A second call forgets every category; their files
 * stay as they are. Returns the address of isInit, which nobody needs.
 */
unsigned char *initLogSys(void);

/* isInit. Nothing asks it for you: createLog and putlog do not. */
int isLogSysInit(void);

/*
 * Creates the file "DIR/FILE", or EMPTIES it when it is there (move what an earlier run has left out of the way first),
 * and binds it to the first free category.
 *
 *   name  what the category is called; kept in the table and used for nothing else
 *   file  file name
 *   dir   directory, without a "/" at its end
 *
 * Longer texts than the fields of log_entry hold are cut in the table, so that lines go to a file of the cut name; the
 * file that is created here has the whole name, as far as its path has at most 195 characters, and is cut there.
 *
 * Returns the category's index, 0 to 7; -2 when the file cannot be opened or an argument is null; -1 when no category
 * is free (all eight in use, or initLogSys has not run): the file has been created or emptied all the same.
 */
int createLog(const char *name, const char *file, const char *dir);

/*
 * Appends the line "FIELD1|FIELD2|SECONDS" with the seconds since the epoch to a category's file, which is created when
 * it is gone. The texts are written as they stand: keep "|" and newlines out of them.
 *
 *   index  from createLog
 *
 * The 128th line is still written; then the file is renamed to its path with "_" and the seconds since the epoch
 * appended, and the next line starts a new one. Nothing ever deletes the renamed files, and one that is renamed in the
 * same second as the one before replaces it. The count is kept in memory: it starts at 0 again with the process. It
 * also counts lines that could not be written (a full disk), and starts again at 0 after a rename that failed: that
 * file just goes on growing.
 *
 * Does nothing, without a word, when the index is 8 or more, the category is not in use, the file cannot be opened, or
 * a text is null.
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
 * Shows a message on the console and sends it to the system logger (facility LOG_USER, with the process id) as
 * "[TYPE]MESSAGE\n", for example "[ltNotice]wan0 is up\n".
 *
 *   semid             a semaphore of sem_create, held while the system logger is open, so that the identities of
 *                     processes that share it do not get mixed up; make it once, at start-up
 *   ident             whom the system logger names as sender; read during the call alone
 *   file, line, func  source position of the caller, for the console
 *   type              LOG_TYPE_*; with another value the system logger gets nothing, and all else happens
 *   fmt               a printf format, for a message of at most 1023 bytes; what is longer is cut
 *
 * On the console the message stands as it is, without a newline of its own, after "[SYS]" and the coloured header
 * "[THREAD FILE:LINE FUNC()]:::" of the older modules, with the kernel thread id and no process id. A console that
 * cannot be opened is skipped.
 *
 * Returns what giving the semaphore back returned: 0, or 1 (traced and told as upup does). A semaphore that cannot be
 * taken is reported by downdown, and the message is sent all the same. A null text gives 1, and nothing is done.
 *
 * Any thread, as far as all that use the system logger share the semaphore: openlog(3) and closelog(3) are called each
 * time, and undo an openlog of the program's own. A thread that is cancelled meanwhile ends after it.
 */
int __syslogprintf(int semid, const char *ident, const char *file, int line, const char *func, int type,
                   const char *fmt, ...) TORVANE_PRINTF(7, 8);

/* The type of a name as in the table above ("ltNotice" is 4), compared exactly; -1 for any other text and for null. */
int syslogType(const char *text);

/* Does nothing; programs built for one platform call it. */
void syslogprintf_cortina(void);

TORVANE_END

#endif
