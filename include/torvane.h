/*
 * libtorvane: what the daemons, command-line tools and CGI handlers of a home router share.
 *
 * This header is the manual. One section per module:
 *
 *   Console trace            __stdprintf_info__, my_gettid
 *   Event log                createLog, putlog, __syslogprintf
 *   Lists and maps           list_*, strCmpNoCase, MapBy*, TxtMapBy*
 *   QoS tree                 root queueing disciplines, classes, leaf queueing disciplines
 *   QoS scripts and report   start_qos, stop_qos, restart_qos, show_ifqos
 *   Rules and schedules      add_qos_rule, add_sched and their kin
 *   Rule scripts and report  restart_rule, renew_qos_rule, show_rule
 *   Process helpers          commands through the shell, signals, probes, UUIDs
 *   IPC helpers              System V shared memory, and the semaphore that is the library's lock
 *   Strings                  guards and escapers for text that meets the shell, small text functions
 *   Interfaces               addresses, flags and names of the kernel's interfaces
 *   Address conversions      IPv4 text, endpoints, masks, MAC text
 *   Sockets                  open, listen, connect, send, receive
 *   Select service           socket_select: a thread that watches sockets for its handlers
 *   Bandwidth monitor        rates and histories per interface
 *   IPv6 addresses           netlink dump, addresses and gateway by interface, text
 *   DNS client               dnsQuery4: several servers and names at once
 *   Timers                   callbacks at whole seconds of the monotonic clock
 *   Thread pool              workers on a bounded queue; a counter that limits threads
 *   Tracked memory           xmalloc and its kin: blocks that a program can list
 *   Configuration files      keys and values into a declared table
 *   Storage and load         flash partitions, file systems, CPU load
 *   Word tables              texts by number from a file
 *   CGI requests             form entries, URI and base64 coding, paths
 *   CGI responses            HTML escaping, flat XML replies, redirects
 *   XML                      documents built and printed; element lookup in text
 *
 * Usable from C99 and C++. Link with -ltorvane; the library itself needs only libc.
 *
 * What holds everywhere
 * ---------------------
 * Results.    Every module has its own result codes, and two of them have opposite senses: the QoS tree
 *             operations return 0 for success, the rule, schedule and script operations return 1 for success.
 *             Each function says which it is.
 * Traces.     "Traces TEXT" below means: the library opens "/dev/console" in mode "a" (and close-on-exec), writes a
 *             coloured header (see __stdprintf_info__) and TEXT, and closes the console again, once per trace. A
 *             console that cannot be opened suppresses that line and changes nothing else; errno is what it was
 *             before the trace.
 * Ownership.  Records that the library makes (root_qdisc, qos_class, qos_rule, qos_sched) are the library's: use the
 *             pointers until the record is deleted, and never free them. Blocks passed in are copied; the caller
 *             keeps its own.
 * Null.       Unless a function says otherwise, an interface name that is null names no interface (what writes commands
 *             writes none for it), a null block or buffer makes the operation fail with the result named in its
 *             description, and FILE, record and list-head pointers must be valid.
 * Threads.    The QoS trees, rules and schedules are process-global and have no lock: use them from one thread, or
 *             hold a lock of your own around every call (downdown and upup make one that also works between
 *             processes). Functions that keep no state may be called from any thread; where a function is not safe
 *             to call at any time from any thread, its description says so.
 * Names.      Interface names, MAC texts, domain and URL texts go into shell scripts as they stand. Never pass text
 *             that came from a user without checking it first.
 * Byte order. IPv4 addresses in rules are plain numbers with the first octet in the top byte, on every host.
 */
#ifndef TORVANE_H
#define TORVANE_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>

#if defined(__GNUC__)
#define TORVANE_PRINTF(format_at, values_at) __attribute__((format(printf, format_at, values_at)))
#pragma GCC visibility push(default)
#else
#define TORVANE_PRINTF(format_at, values_at)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------------------------
 * Console trace
 * ------------------------------------------------------------------------------------------------------------------
 * The line that every module of the library writes when it reports something. A program that wants its own lines to
 * look alike writes the header with __stdprintf_info__ to a stream that it opened on "/dev/console", then the message
 * with its newline, and closes the stream: header and message, as far as they fit its buffer, then leave in one
 * write, and the lines of several threads and processes stay whole.
 */

/*
 * Writes the trace header to `stream`: no newline, and the stream stays open and unflushed.
 *
 *   stream  where to write; the caller's
 *   file    source-file name without its ending, left-justified in 20 columns; not null
 *   line    source line, right-justified in 5
 *   func    function name without parentheses, right-justified in 16; not null
 *
 * Wider texts are printed whole. The header carries the process id and the kernel thread id, and its colour is
 * 31 + thread id modulo 8 (the value 38 is written as it stands), so that the lines of one thread share a colour.
 * For process 312, thread 315 it reads, between the escape sequences that start and end the colour:
 * "[312  |315   quorra_qos          :   97 root_qdisc_find_by_name()]:::".
 *
 * Returns the number of bytes written, or a negative number when the stream reports an error.
 * Any thread; concurrent writers to one stream are kept apart by the stream's own lock.
 */
int __stdprintf_info__(FILE *stream, const char *file, int line, const char *func);

/* The calling thread's kernel thread id (that of the main thread is the process id). Never fails. Any thread. */
int my_gettid(void);

/* ------------------------------------------------------------------------------------------------------------------
 * Event log
 * ------------------------------------------------------------------------------------------------------------------
 * Two ways of recording events. Up to eight categories of lines, each in a file of its own that is moved aside after
 * every 128 lines; and messages to the system logger, shown on the console too.
 *
 * Categories are process-global and have no lock: do not make categories, or write to the same one, from several
 * threads at once. Nothing here is traced but what the semaphore's functions have to say.
 */

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

/* ------------------------------------------------------------------------------------------------------------------
 * Lists and maps
 * ------------------------------------------------------------------------------------------------------------------
 * A circular doubly linked list whose nodes are embedded in the records they chain, and tables that map a 32-bit id
 * to a value or a text and back. Nothing here allocates, frees, locks or traces.
 *
 * A list is a head node that is part of no record; an empty list's head points to itself in both fields, and a list
 * is made empty by setting it so. From a node back to its record one subtracts the node's offset in the record
 * (offsetof). List operations do not check their pointers; the caller serialises the use of a list.
 */
typedef struct list_node {
  struct list_node *next;
  struct list_node *prev;
} list_node;

/* 1 when the list of `head` has no entry, else 0. Do not ask it of an entry that list_del has unlinked. */
int list_empty(const list_node *head);

/* Links `node` between two adjacent nodes: (node, head->prev, head) appends, (node, x->prev, x) inserts before x. */
void list_add(list_node *node, list_node *prev, list_node *next);

/* Links `node` at the end of the list of `head`. */
void list_add_tail(list_node *node, list_node *head);

/* Unlinks `entry` from its neighbours. The entry's own two pointers stay as they were. */
void list_del(list_node *entry);

/* `replacement` takes the place of `old` between its neighbours. The pointers in `old` stay as they were. */
void list_replace(list_node *old, list_node *replacement);

/* Unlinks `entry` and links it at the END of the list of `head`, which may be the list it was on. */
void list_move(list_node *entry, list_node *head);

/*
 * Compares two texts without regard to the case of the letters A to Z; no other byte is folded and no locale counts.
 *
 * Returns 0 when equal or both null, -1 when only `a` is null, 1 when only `b` is null, else the difference of the
 * first bytes that differ, as unsigned values after folding to lower case (`a` minus `b`).
 */
int strCmpNoCase(const char *a, const char *b);

/*
 * A map table is an array of rows ended by a row whose id is 0xFFFFFFFF; the value or text of that row is what a
 * lookup by id gives when nothing matches ("Unknown" in the library's own text tables). Lookups scan from the first
 * row and take the first match. Tables and texts are the caller's and are only read.
 */
typedef struct map_entry {
  uint32_t id;
  uint32_t value;
} map_entry;

typedef struct txt_map_entry {
  uint32_t id;
  const char *text;
} txt_map_entry;

/* The value of the first row with this id, or the end row's value. */
uint32_t MapById(const map_entry *table, uint32_t id);

/*
 * The reverse lookup: the id of the first row with this value. The scan stops at the first row whose VALUE is
 * 0xFFFFFFFF and then gives that row's id, so a table used in reverse must end with such a value and hold it nowhere
 * before. Tables that use 0xFFFFFFFF for "no such mapping" are for MapById only.
 */
uint32_t MapByEvt(const map_entry *table, uint32_t value);

/* The text of the first row with this id, or the end row's text. */
const char *TxtMapById(const txt_map_entry *table, uint32_t id);

/* The id of the first row with exactly this text; 0xFFFFFFFF when there is none or `text` is null. */
uint32_t TxtMapByTxt(const txt_map_entry *table, const char *text);

/* As TxtMapByTxt, compared with strCmpNoCase. */
uint32_t TxtMapByTxtNoCase(const txt_map_entry *table, const char *text);

/*
 * The id of the first row whose text is exactly `n` bytes long and equals the first `n` bytes of `text`, which needs
 * no terminator there; 0xFFFFFFFF when there is none or `text` is null.
 */
uint32_t TxtMapByTxtWithLen(const txt_map_entry *table, const char *text, uint32_t n);

/*
 * The id of the first row whose text occurs anywhere in `haystack` (an empty text occurs in every one); 0xFFFFFFFF
 * when there is none or `haystack` is null.
 */
uint32_t TxtMapByTxtStr(const txt_map_entry *table, const char *haystack);

/* ------------------------------------------------------------------------------------------------------------------
 * QoS tree
 * ------------------------------------------------------------------------------------------------------------------
 * Per interface one tree: a root queueing discipline, under it classes, and on every class without children a leaf
 * queueing discipline. The tree also owns the interface's classification rules. Building a tree touches nothing but
 * memory; start_qos below turns it into a script and applies it.
 *
 * A class id is at once the minor number of the class handle 1:id, the firewall mark that selects the class while it
 * is a leaf, and, shifted left by 4, the handle of its leaf queueing discipline. tc takes handles of 16 bits: ids of
 * leaves are good up to 0xfff, a leaf above that gets no queueing discipline of its own.
 *
 * Results of the tree operations unless one says otherwise:
 *   0  done
 *   1  no such interface or class
 *   2  exists already
 *   3  out of memory, or an unknown root type
 *   4  not allowed here, or a null block
 */

/* Root types, as reports name them. */
enum {
  QOS_ROOT_PFIFO_FAST = 0, /* "R_pfifo_fast": the kernel's default queue; takes no classes */
  QOS_ROOT_HTB = 1,        /* "R_HTB": hierarchical token bucket; takes classes with htb_params */
  QOS_ROOT_HFSC = 2,       /* "R_HFSC": hierarchical fair service curve; takes classes with hfsc_params */
  QOS_ROOT_PRIO = 3        /* "R_PRIO": priority bands; its classes are made with it */
};

/* Class types. A class gets its type from its root. */
enum { QOS_CLASS_HTB = 0, QOS_CLASS_HFSC = 1, QOS_CLASS_PRIO = 2 };

/* Leaf queueing disciplines. */
enum {
  QOS_LEAF_PFIFO = 0, /* "L_pfifo": first in, first out, counted in packets */
  QOS_LEAF_SFQ = 1,   /* "L_SFQ": stochastic fairness queueing */
  QOS_LEAF_RED = 2,   /* "L_RED": random early detection */
  QOS_LEAF_TBF = 3    /* "L_TBF": token bucket filter */
};

/* Service curves of an HFSC class, the `kind` of hfsc_curve_text. */
enum {
  QOS_CURVE_UL = 0, /* "ul": upper limit */
  QOS_CURVE_SC = 1, /* "sc": real time and link sharing in one */
  QOS_CURVE_LS = 2, /* "ls": link sharing */
  QOS_CURVE_RT = 3  /* "rt": real time, on classes without children */
};

/* Marks for connections whose connection mark is 100, 200, ... 800, in that order; used when `enable` is not 0. */
typedef struct automark {
  uint8_t enable;
  uint16_t mark[8];
} automark;

/* Parameters of QOS_ROOT_PFIFO_FAST. */
typedef struct root_params_pfifo {
  uint32_t txqueuelen; /* transmit queue length of the interface, packets */
} root_params_pfifo;

/* Parameters of QOS_ROOT_HTB and QOS_ROOT_HFSC. */
typedef struct root_params_tree {
  uint16_t default_class; /* class id that takes traffic without a mark */
  struct automark automark;
} root_params_tree;

/* Parameters of QOS_ROOT_PRIO. */
typedef struct root_params_prio {
  uint8_t bands;       /* number of bands; the kernel takes 2 to 16 */
  uint8_t priomap[16]; /* band, counted from 0, of each of the 16 packet priorities */
  struct automark automark;
} root_params_prio;

typedef struct root_qdisc {
  uint32_t link_rate[2]; /* speeds of the link, kbit/s; the first is the rate of default class 3 */
  uint32_t phy_rate[2];  /* physical speeds, kbit/s; the first is the rate of default classes 1 and 2 */
  char ifname[32];       /* interface name, at most 31 characters, always terminated */
  uint32_t type;         /* QOS_ROOT_* */
  list_node node;        /* in qos_root */
  list_node classes;     /* top-level classes (qos_class.node), in the order they were added */
  list_node rules;       /* rules (qos_rule.node), ascending by index */
  union {
    root_params_pfifo pfifo;
    root_params_tree tree;
    root_params_prio prio;
  } params; /* by type */
} root_qdisc;

typedef struct htb_params {
  uint32_t rate;   /* guaranteed rate, kbit/s; not 0 */
  uint32_t ceil;   /* rate when others leave room, kbit/s */
  uint32_t burst;  /* bytes; 0 leaves it to tc */
  uint32_t cburst; /* bytes; 0 leaves it to tc */
  uint32_t prio;   /* 0 is served first; the default classes have it */
} htb_params;

/* One service curve; set when `rate` is not 0. tc takes no `umax` without a `dmax`. */
typedef struct hfsc_curve {
  uint32_t umax; /* largest unit of work, bytes; 0 leaves it out */
  uint32_t dmax; /* its delay bound, milliseconds; 0 leaves it out */
  uint32_t rate; /* kbit/s */
} hfsc_curve;

/*
 * The upper limit is always written, and besides it ONE of the others, the first that is set: `sc`, then `ls`, then, on
 * a class without children, `rt`. Give every class a rate for `ul`, as today's tc does not survive an upper limit of 0,
 * and `sc` or `ls`, as it refuses one next to `rt` alone.
 */
typedef struct hfsc_params {
  hfsc_curve ul, sc, ls, rt;
} hfsc_params;

typedef struct leaf_qdisc {
  uint32_t type; /* QOS_LEAF_* */
  union {
    struct {
      uint32_t limit; /* packets; 0 leaves it to tc */
    } pfifo;
    struct {
      uint8_t perturb; /* seconds between changes of the hash, 0 for never; ONE byte, the first of the block */
    } sfq;
    struct {
      uint32_t min, max; /* average queue sizes between which packets are marked or dropped, bytes */
      uint32_t burst;    /* packets */
      uint32_t limit;    /* hard queue size, bytes; not 0 */
      uint32_t avpkt;    /* average packet, bytes; not 0 */
    } red;
    struct {
      uint32_t latency; /* milliseconds; none of the three may be 0 */
      uint32_t rate;    /* kbit/s */
      uint32_t burst;   /* bytes */
    } tbf;
  } params; /* by type */
} leaf_qdisc;

typedef struct qos_class {
  uint32_t type;      /* QOS_CLASS_* */
  char name[32];      /* "Class1", "Class2", ... on the bands of a PRIO root, else empty */
  uint16_t id;        /* unique in its tree, save for top-level classes added twice */
  list_node node;     /* in the parent's `children` or the root's `classes` */
  list_node children; /* child classes (qos_class.node), in the order they were added */
  union {
    htb_params htb;
    hfsc_params hfsc;
  } params;        /* by type; a PRIO class has none */
  leaf_qdisc leaf; /* in use only while `children` is empty; kept, and used again, when it gets empty */
} qos_class;

/* Every interface's tree (root_qdisc.node), in the order they were added. Statically empty. */
extern list_node qos_root;

/*
 * The tree of the interface `ifname`, valid until del_root_qdisc, or null. Traces "%s not found!!\n" with the name
 * when there is none.
 */
root_qdisc *root_qdisc_find_by_name(const char *ifname);

/*
 * Makes the tree of an interface.
 *
 *   speeds  link rate (two values), then physical rate (two values), kbit/s; which of a pair is up and which is down
 *           is the caller's affair, the library uses the first of each, which tc does not take as 0
 *   ifname  interface name; at most 31 characters are kept, and a longer name is not found by its full text later (the
 *           kernel's own names have 15 at most)
 *   type    QOS_ROOT_*
 *   params  the parameter block of that type: root_params_pfifo, root_params_tree (HTB, HFSC) or root_params_prio
 *
 * HTB and HFSC trees start with three classes: 1 at the top and 2 below it at phy_rate[0], and 3 below 1 at
 * link_rate[0]; class 2 carries SFQ with perturb 10. An HTB class gets rate and ceil alike, bursts of 1000000 bytes
 * (class 1) or 6000 bytes; an HFSC class gets its `ul` and `sc` rates, all else 0. A PRIO tree gets one class per
 * band, with the ids 1 to `bands`.
 *
 * Returns 0 when the tree exists now, even when memory ran out for some of those classes; 2 when the interface had
 * one; 3 when memory ran out or the type is unknown (then traces "Internel error occur at not define root qdisc
 * type\n"); 1 when `ifname` is null; 4 when `speeds` or `params` is null. Whenever the result is not 0 nothing has
 * changed.
 */
int add_root_qdisc(const uint32_t speeds[4], const char *ifname, uint32_t type, const void *params);

/*
 * Deletes the tree of an interface with all its classes. Its rules are NOT freed: delete them first, or their memory
 * is lost. The running system is not touched (stop_qos).
 *
 * Returns 0, or 1 when there is no tree (traced by the lookup). A tree whose `type` was overwritten with an unknown
 * code is deleted, but its classes are not; traces "Internel error occur at not define root qdisc type\n".
 */
int del_root_qdisc(const char *ifname);

/*
 * Adds a class to a tree of type HTB or HFSC.
 *
 *   parent_id  an existing class, or 0 for the top level
 *   class_id   the new class; with a parent it must be new in the whole tree. With parent 0 this is not checked, and
 *              lookups find the first class with the id, parents before children
 *   params     htb_params or hfsc_params, by the tree's type
 *
 * The new class has no children and a pfifo leaf without limit. A leaf that gets its first child stops being one: its
 * leaf queueing discipline and filter are no longer written.
 *
 * Returns 0; 1 when the interface (traced by the lookup) or the parent does not exist; 2 when `class_id` exists; 3
 * when memory runs out; 4 when the tree's type takes no classes or `params` is null. On failure nothing has changed.
 */
int add_class(const char *ifname, uint16_t parent_id, uint16_t class_id, const void *params);

/*
 * Deletes a class and everything below it. That it may be the default class or the mark of a rule is not checked.
 * Returns 0, or 1 when the interface (traced by the lookup) or the class does not exist.
 */
int del_class(const char *ifname, uint16_t class_id);

/*
 * Sets the leaf queueing discipline of a class without children. The leaf's type code is not checked.
 * Returns 0; 1 when the interface (traced by the lookup) or the class does not exist; 4 when the class has children
 * or `leaf` is null.
 */
int add_leaf_qdisc(const char *ifname, uint16_t class_id, const leaf_qdisc *leaf);

/*
 * Sets a leaf back to what a new class has: pfifo without limit.
 * Returns 0, or 1 when the interface (traced by the lookup) or the class does not exist or the class has children.
 */
int del_leaf_qdisc(const char *ifname, uint16_t class_id);

/*
 * 1 when the class exists and has no children, so that it can take marked traffic; else 0. An unknown interface is
 * traced by the lookup.
 */
int check_Key(const char *ifname, uint16_t class_id);

/*
 * Copies the automatic marks of an interface to `out`.
 * Returns 1 when they are enabled, else 0. `out` is left alone, with the result 0, when the interface does not exist
 * (traced by the lookup), has a type without automatic marks (pfifo_fast or unknown), or `out` is null.
 */
int get_automark_value(const char *ifname, automark *out);

/* The head of an interface's rule list, valid until del_root_qdisc; null, traced by the lookup, when it has no tree. */
list_node *find_rule_list_by_name(const char *ifname);

/*
 * The class with this id, valid until it is deleted, or null: parents before children, siblings in the order they
 * were added. An unknown interface is traced by the lookup.
 */
qos_class *class_find(const char *ifname, uint16_t class_id);

/* The same search below one list head: a tree's `classes` or a class's `children`. */
qos_class *class_find_in_list(list_node *head, uint16_t class_id);

/* ------------------------------------------------------------------------------------------------------------------
 * QoS scripts and report
 * ------------------------------------------------------------------------------------------------------------------
 * A tree is applied by a shell script of tc, ifconfig and iptables commands, made anew on every call with mode 0700
 * and run through the shell (see __system for what else happens while a command runs). There is one start and one
 * stop script for all interfaces, "/var/tmp/qos_start" and "/var/tmp/qos_stop": two processes that start QoS at the
 * same time overwrite each other's. What the commands in a script report is not looked at; they write their errors to
 * the standard error of the calling process.
 */

/*
 * Writes and runs the start script: removes the interface's root queueing discipline, makes the tree's (for
 * pfifo_fast: sets the interface's queue length), its classes, leaves and one firewall-mark filter per leaf, then
 * renews the rule chains (renew_qos_rule).
 *
 * A leaf with an unknown type code traces "An error occur at not define leaf qdisc type\n" and spoils its own tc
 * command and its filter's, which is appended to it.
 *
 * Returns 1 when the script was written and run; 0 when the interface has no tree (traced by the lookup; no file is
 * touched), and, with nothing traced, when the script cannot be created (the previous one, if any, stays) or could
 * not be written whole (what there is of it stays and is not run).
 */
int start_qos(const char *ifname);

/*
 * Writes and runs the stop script, which removes the interface's root queueing discipline, hooks and rule chains. The
 * tree and the rules in memory stay, and so does the queue length that a pfifo_fast tree has set. Returns as start_qos.
 */
int stop_qos(const char *ifname);

/* stop_qos, then start_qos. Returns 0 without starting when the stop returned 0, else what start_qos returned. */
int restart_qos(const char *ifname);

/*
 * Restarts every interface in turn; after each, whatever came of it, traces "Start %s's Qos!!\n" with its name.
 * Traces "Qos list empty!!\n" when no interface has a tree.
 */
void restart_qos_all(void);

/*
 * Writes one service curve as tc takes it: its name by QOS_CURVE_* ("Unknown" for another `kind`), then umax and dmax
 * as far as they are not 0, then the rate, each followed by a blank and the whole without a newline.
 */
void hfsc_curve_text(FILE *out, const hfsc_curve *curve, uint32_t kind);

/*
 * Writes the tc commands of every class below a list head, parents before children, for the interface `ifname`.
 * `head` is the `classes` of a tree in qos_root or the `children` of a class; the owner of the list is the parent in
 * the commands (1:0 for a tree's own list and for class 1).
 */
void do_leaf2cmd(FILE *out, const char *ifname, list_node *head);

/*
 * Traces an interface's tree: name, speeds, root type and its parameters, then what show_class gives. An unknown
 * interface gives the one line "didn't found qos setting in this interface!\n", an unknown root type "An error occur
 * at not define root qdisc type\n" in place of the parameters and classes.
 */
void show_ifqos(const char *ifname);

/* Traces the classes and leaves of an interface's tree, or "didn't found qos setting in this interface!\n". */
void show_class(const char *ifname);

/*
 * Traces the classes below a list head (as do_leaf2cmd takes it) with their handles PARENT:ID, and the leaf of each
 * class without children; the lines of leaves carry the function name "show_leaf". A line whose console cannot be
 * opened is left out alone.
 */
void draw_class(list_node *head);

/* ------------------------------------------------------------------------------------------------------------------
 * Rules and schedules
 * ------------------------------------------------------------------------------------------------------------------
 * A rule says which packets that leave an interface get which firewall mark, TOS, DSCP or VLAN tag. An interface's
 * rules are in root_qdisc.rules, ascending by index. A rule may name a schedule, a numbered time window; schedules
 * are one list for all interfaces.
 *
 * Every packet passes every rule, in ascending order: setting a mark does not end the walk, so the LAST rule that
 * matches decides the mark. Automatic marks come before all rules and lose to any that matches, and a TOS or DSCP that
 * one rule sets is what later rules see. General rules first, exceptions last.
 *
 * The commands are those of the router's own firewall. Today's iptables (1.8) refuses some of their words: the days of
 * a schedule ("--days"), "--precedence", "--set-precedence", a DSCP class as a target ("--set-dscp EF"), and the
 * matches and targets that come with the firmware (VLAN, domain, urlfilter, MKVLAN). A refused command is lost alone.
 *
 * Results: 1 done, 0 failed; the opposite of the tree operations, made to be tested as truth values.
 */

/* Match kinds: BIT NUMBERS of qos_match.match_flags (set with 1u << QOS_MATCH_IP). */
enum {
  QOS_MATCH_802_1P = 0,   /* "QF_802_1P": prio_1p */
  QOS_MATCH_802_1Q = 1,   /* "QF_802_1Q": vlan_id */
  QOS_MATCH_MAC = 2,      /* "QF_MAC": src_mac */
  QOS_MATCH_IP = 3,       /* "QF_IP": the four addresses */
  QOS_MATCH_DSCP = 4,     /* "QF_DSCP": dscp_mode, dscp */
  QOS_MATCH_TOS = 5,      /* "QF_TOS": tos, precedence */
  QOS_MATCH_ALG = 6,      /* "QF_ALG": alg */
  QOS_MATCH_PKTLEN = 7,   /* "QF_PKTLEN": pkt_len */
  QOS_MATCH_PROTOCOL = 8, /* "QF_PROTOCOL": protocol, ports, TCP flags */
  QOS_MATCH_DOMAIN = 9,   /* "QF_DOMAIN": domain */
  QOS_MATCH_URL = 10      /* "QF_URL": url */
};

/* qos_match.protocol */
enum { QOS_PROTO_TCP = 0, QOS_PROTO_UDP = 1, QOS_PROTO_ICMP = 2, QOS_PROTO_BOTH = 3, QOS_PROTO_ALL = 4 };

/* qos_match.alg: connection-tracking helpers */
enum { QOS_ALG_SIP = 0, QOS_ALG_Q931 = 1, QOS_ALG_FTP = 2 };

/* Bit numbers of the TCP flag bytes. */
enum { QOS_TCP_SYN = 0, QOS_TCP_ACK = 1, QOS_TCP_FIN = 2, QOS_TCP_RST = 3, QOS_TCP_URG = 4, QOS_TCP_PSH = 5 };

/* Targets: BIT NUMBERS of qos_target.target_flags. */
enum {
  QOS_TARGET_MARK = 0, /* mark */
  QOS_TARGET_TOS = 1,  /* set_mode is the TOS id, set_value the precedence */
  QOS_TARGET_DSCP = 2, /* set_mode is 0 for a raw value, 1 for a class id, in set_value */
  QOS_TARGET_VLAN = 3, /* vlan_prio, vlan_tag_id, vlan_double */
  QOS_TARGET_LOG = 4   /* makes no command: drawing the rule traces "LOG target not implement!!\n" */
};

/*
 * What a rule matches; only fields whose bit is set in `match_flags` count, and a range with a bound of 0 is left out
 * without a word. Zero the record first. Texts need no terminator when they fill their field. Today's kernels refuse to
 * match a MAC address in these chains: the router's own packets pass them too, and have none.
 *
 * TOS ids: 16 "Minimize-Delay", 8 "Maximize-Throughput", 4 "Maximize-Reliability", 2 "Minimize-Cost",
 * 0 "Normal-Service". DSCP class ids: 0 to 7 "CS0" to "CS7", 8 "BE", 9 to 11 "AF11" to "AF13", 12 to 14 "AF21" to
 * "AF23", 15 to 17 "AF31" to "AF33", 18 to 20 "AF41" to "AF43", 21 "EF".
 */
typedef struct qos_match {
  uint32_t match_flags;                /* bits by QOS_MATCH_* */
  uint8_t prio_1p;                     /* 802.1p priority */
  uint16_t vlan_id;                    /* 802.1Q VLAN id */
  char src_mac[20];                    /* "00:11:22:33:44:55", given to iptables as it stands */
  uint32_t src_ip_start, src_ip_end;   /* inclusive; the range counts when both are not 0 */
  uint32_t dst_ip_start, dst_ip_end;   /* first octet in the top byte: 192.168.1.2 is 0xC0A80102 */
  uint32_t dscp_mode;                  /* 0: `dscp` holds a raw value; 1: a DSCP class id; else nothing is matched */
  uint32_t dscp;                       /* a raw value is the FIRST BYTE of the field in memory */
  uint32_t tos;                        /* TOS id */
  uint8_t precedence;                  /* IP precedence */
  uint32_t protocol;                   /* QOS_PROTO_*; a rule with another code is not written */
  uint16_t sport_min, sport_max;       /* inclusive; a port range counts when both its ends are not 0 */
  uint16_t dport_min, dport_max;       /* ports count with TCP, UDP and both */
  uint8_t tcp_flag_mask, tcp_flag_set; /* flags examined, and those of them that must be set; count if both not 0 */
  uint32_t pkt_len;                    /* bytes: minimum in the upper 16 bits, maximum in the lower 16 */
  uint32_t alg;                        /* QOS_ALG_* */
  char url[256];                       /* URL text */
  char domain[256];                    /* domain name */
  uint8_t sched_index;                 /* schedule number; 0 for always */
} qos_match;

/* What a rule does with a packet; one command is written per target. Zero the record first. */
typedef struct qos_target {
  uint32_t target_flags; /* bits by QOS_TARGET_* */
  uint32_t mark;         /* class id of a leaf of the interface's tree */
  uint32_t set_mode;     /* by target; TOS comes before DSCP, and both read it when both bits are set */
  uint32_t set_value;    /* a precedence or raw DSCP value is the FIRST BYTE of the field in memory */
  uint8_t vlan_prio;     /* 802.1p priority of the tag to add */
  uint16_t vlan_tag_id;  /* VLAN id of the tag to add */
  uint8_t vlan_double;   /* not 0: a double tag */
  uint8_t : 8;           /* padding */
  uint8_t log;           /* not 0: the report says that the rule logs; nothing else does */
} qos_target;

typedef struct qos_rule {
  list_node node; /* in root_qdisc.rules */
  uint8_t index;
  qos_match match;
  qos_target target;
} qos_rule;

typedef struct qos_sched {
  list_node node;     /* in sched_root */
  uint8_t index;      /* 1 to 255; 0 is no schedule */
  uint8_t days;       /* bit 0 Sunday to bit 6 Saturday; none of them set means every day */
  uint8_t all_day;    /* 1: the whole day; else from start to stop */
  uint8_t start_hour; /* hours 0 to 23, minutes 0 to 59; the kernel takes them as UTC */
  uint8_t stop_hour;
  uint8_t start_min;
  uint8_t stop_min;
} qos_sched;

/* Every schedule (qos_sched.node), in the order they were added. Statically empty. */
extern list_node sched_root;

/*
 * Adds a rule to an interface.
 *
 *   index   the rule's number, unique on the interface; commands are written in its order
 *   match   a qos_match (600 bytes), copied
 *   target  a qos_target (24 bytes), copied
 *
 * Returns 1; or 0 with the list unchanged, and a trace that tells why: "QoS tree not found!!\n" (after the lookup's
 * own), "Index already exist!!\n", "Mark key not found!!\n" when the mark target is set and `mark` is no class
 * without children (check_Key; a mark above 0xffff is none), "Memory allocate fail!!\n". A null `match` or `target`
 * gives 0 without a trace.
 */
uint32_t add_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target);

/*
 * Replaces a rule: del_qos_rule, then add_qos_rule, and 0 as soon as one of them gives 0. When the add fails the old
 * rule is gone. A null `match` or `target` gives 0 before anything is deleted.
 */
uint32_t modify_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target);

/*
 * Deletes a rule. Returns 1; 0 when it does not exist, or, tracing "QoS tree not found!!\n" after the lookup's own,
 * when the interface has no tree.
 */
uint32_t del_qos_rule(const char *ifname, uint8_t index);

/*
 * Adds a schedule from bytes in the order of the fields of qos_sched: index, days, all_day, start_hour. Only these
 * FOUR are read; stop_hour, start_min and stop_min start at 0, and a caller that needs them sets them in the record
 * that search_sched gives. A second schedule with the same index is taken, and lookups find the older.
 *
 * Returns 1; 0 when the index is 0, `sched` is null or memory runs out. Traces nothing.
 */
uint32_t add_sched(const uint8_t *sched);

/* The first schedule with this index, valid until it is deleted; null for index 0 or when there is none. */
qos_sched *search_sched(uint8_t index);

/* Deletes the first schedule with this index; rules that name it stay. Returns 1, or 0 when there is none. */
uint32_t del_sched(uint8_t index);

/* Deletes every schedule. Returns 1. */
uint32_t del_all_sched(void);

/*
 * Writes a schedule as options of the iptables time match, with a blank at the end, for example
 * "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri ".
 *
 *   dst   where the text and its terminator go: room for `size` + 1 bytes (note the one)
 *   size  longest text wanted, in bytes without the terminator; 82 is always enough
 *
 * Returns 1; or 0, with `dst` untouched and the trace "schedule index not found!!\n", when there is no such schedule,
 * when the text is longer than `size`, or when `dst` is null.
 */
uint32_t get_sched_str(uint8_t index, char *dst, uint32_t size);

/*
 * Writes the names of the TCP flags that are set (bits by QOS_TCP_*, others ignored), each followed by a comma:
 * "SYN,ACK,". All 32 bytes of `out` are written, zeroes after the text. A null `out` is ignored.
 */
void tcp_flag_text(char out[32], uint8_t flags);

/* ------------------------------------------------------------------------------------------------------------------
 * Rule scripts and report
 * ------------------------------------------------------------------------------------------------------------------
 * An interface's rules become two chains of the mangle table: QOS_<interface> with a command per rule and target, and
 * QOS_<interface>_AUTO, which re-marks connections that carry a connection mark by the tree's automatic marks. Packets
 * that leave the interface, forwarded or sent by the router itself, go to the first chain, whose first entry sends
 * those with a connection mark on to the second.
 */

/*
 * Writes the commands that renew an interface's chains to an open script: flushes, deletes and makes both chains,
 * hooks them in once, then the rules of the list (draw_rule) and, when enabled, the eight automatic marks. A name has
 * at most 31 characters, as in a tree; an unknown one is traced by the lookup of the marks.
 */
void renew_qos_rule(FILE *out, const char *ifname, list_node *rules);

/* Writes the commands that unhook and delete an interface's chains to an open script. */
void remove_qos_rule(FILE *out, const char *ifname);

/*
 * Writes the rules of one interface alone to "/var/tmp/qos_rule_" followed by its name, with mode 0700, and runs that
 * script; the queueing disciplines are not touched.
 *
 * Returns 1 when it was written and run; 0, tracing "QoS struct not fuond!!\n" (after the lookup's own) when the
 * interface has no tree, "Can't open tmp file!!\n" when the script cannot be created, and nothing when it could not
 * be written whole (what there is of it stays and is not run).
 */
uint32_t restart_rule(const char *ifname);

/*
 * Writes the commands that append one rule to the chain named `chain` to an open script: one per target, and two (TCP,
 * then UDP) per target when it matches both protocols; none when it has no target or an unknown protocol code (then its
 * targets are not looked at either).
 *
 * Traces, and goes on without the part: "get %s match type\n" with the kind's name for a match bit that makes no
 * option of its own ("QF_PROTOCOL" always, "Unknown" for bits 11 to 31); "LOG target not implement!!\n"; "match buffer
 * is too small or index not found, schedule string doesn't attach %d %d!!\n" with 1024 and the length of the options
 * so far when the schedule cannot be written, after get_sched_str's own trace.
 */
void draw_rule(FILE *out, qos_rule *rule, const char *chain);

/*
 * Traces every rule of an interface, ascending: its number, matches, schedule and targets; the lines carry the
 * function names "show_rule", "show_match" and "show_target". Traces "QoS tree not found, no rule found!!\n" (after
 * the lookup's own) when the interface has no tree. A line whose console cannot be opened is left out alone.
 */
void show_rule(const char *ifname);

/* ------------------------------------------------------------------------------------------------------------------
 * Process helpers
 * ------------------------------------------------------------------------------------------------------------------
 * Commands go to "/bin/sh -c" as they are: quoting values is the caller's work. The functions with a format hold a
 * command of at most 1023 bytes; a longer one is not run cut short but refused: traces "command too long\n" and returns
 * -1 (null from _system_read), as does a null format.
 */

/*
 * Formats a command and runs it with system(3): waits for it; meanwhile the process ignores SIGINT and SIGQUIT, and the
 * calling thread blocks SIGCHLD.
 *
 *   file, line, func  source position of the caller, for a trace macro of the caller's; not used
 *
 * Returns what system(3) returned: a wait status; when no process can be made -1 or the status of exit code 127, by the
 * C library. Any thread.
 */
int __system(const char *file, int line, const char *func, const char *fmt, ...) TORVANE_PRINTF(4, 5);

/*
 * Formats a command, traces "sys cmd:%s\n" with it, runs it with "/bin/sh -c" from a vfork and waits for any one
 * child: in a process with other children that may be another one.
 *
 * Returns the length of the command in bytes, whatever came of running it. Not for processes whose children are
 * waited for elsewhere at the same time.
 */
int _execl(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/*
 * Formats a command and starts it with its standard output readable from the stream that is returned; all output
 * streams of the process are flushed first. Returns null when it cannot be started. End it with _system_close.
 *
 * Any thread; but the flush waits for every thread that is inside a call on a stream, such as one that reads the output
 * of a slow command.
 */
FILE *_system_read(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/* Closes a stream of _system_read and waits for its command. Returns its wait status, or -1 (also for null). */
int _system_close(FILE *stream);

/*
 * Starts a command of any length, reads nothing of its output, and waits for it to end. Prints "execute command (%s)
 * success\n" on standard output when it could be started, else "execute command (%s) fail\n" ("(null)" for null).
 *
 * For commands that print nothing: the first thing that one writes to its standard output is likely to end it with
 * SIGPIPE in the middle of its work.
 *
 * Returns 0 when the command could be started, whatever its exit status; else -1, also for null.
 */
int exec_system(const char *command);

/*
 * kill(2), guarded: for the process ids 0, -1 and 1 it signals nothing, traces "kill %d\n" with the id and returns -1.
 * Other negative ids address process groups as usual.
 *
 *   file, line, func  source position of the caller, for a trace macro of the caller's; not used
 *
 * Returns what kill(2) returned. Any thread.
 */
int __kill(const char *file, int line, const char *func, int pid, int sig);

/* 1 when stat(2) on `path` succeeds, else 0, also for null. Any thread. */
int _isFileExist(const char *path);

/*
 * Always 0, also for a module that is loaded: its reading of "/proc/modules" goes on while the stream is at its end,
 * which a stream just opened never is. Kept for callers built on that answer. Traces "open /proc/modules fail!\n" when
 * the file cannot be opened. Any thread.
 */
int _isModuleExist(const char *name);

/*
 * Traces what a signal action does: "Default\n", "Ignore\n", or "This signal is not using default or ignore
 * handler\n".
 *
 *   action  a record whose first word, of pointer size, is the handler (SIG_DFL, SIG_IGN or a function). Where struct
 *           sigaction begins with its flags, as on MIPS, pass the address of its handler field. Null traces nothing
 */
void show_handler(const void *action);

/*
 * A number from rand(3), seeded once per process from "/dev/urandom", or from the time when that cannot be read. Not
 * for secrets. Two threads that make the first call at once may both seed.
 */
int get_random(void);

/*
 * Makes four UUIDs from a MAC address: fixed fields, then the MAC's bytes, the last of them plus 0, 1, 2 and 3.
 *
 *   mac  6 bytes
 *   out  280 bytes, or null to store nothing: four texts of 32 digits in 33 bytes each, then from byte 132 four texts
 *        with dashes of 36 characters in 37 bytes each, all terminated
 *
 * A sum above 255 is written with its three digits and the text is cut to its field, so the UUIDs of a MAC that ends in
 * fe or ff are not all different.
 *
 * Returns 0, or -1 when `mac` is null. Any thread.
 */
int WscGenerateUUID(const unsigned char *mac, char *out);

/* ------------------------------------------------------------------------------------------------------------------
 * IPC helpers
 * ------------------------------------------------------------------------------------------------------------------
 * System V objects by key, readable and writable by everyone (mode 0666). They outlive the processes that made them,
 * until sem_delete, ipcrm or a reboot. Results: 0 success, 1 failure. Traces here have a short header without the
 * process id. Safe from any thread and any number of processes.
 */

/*
 * Opens the shared-memory segment of `key`, or creates it with `size` bytes; it is not attached (shmat(2)).
 *
 *   id  receives the segment's id, -1 on failure
 *
 * Returns 0; or 1, tracing "key=%d shmget fail\n", for example when an existing segment is smaller than `size`. A null
 * `id` gives 1 and makes nothing.
 */
int shm_create(int key, int size, int *id);

/*
 * Opens or creates the semaphore of `key` and sets it free, EVERY time: a second caller releases the lock that
 * another holds, so create it once, at start-up, before the processes that share it run.
 *
 *   id  receives the set's id, -1 when it cannot be had
 *
 * Returns 0; or 1, tracing "key=%d semget fail\n" or "semid=%d semctl fail\n". A null `id` gives 1 and makes nothing.
 */
int sem_create(int key, int *id);

/* Removes a semaphore; whoever waits for it fails. Returns 0, also when there was none. */
int sem_delete(int id);

/*
 * Takes the semaphore, waiting while another holds it. When a process ends, however it ends, the kernel gives back
 * what it had taken.
 *
 *   file, line, func  source position of the caller, for the traces; the texts are not null
 *   trace             low byte not 0: traces the start and the end with the caller's position
 *
 * Returns 0; or 1 when the semaphore is gone or the wait was interrupted by a signal (it is not tried again; errno is
 * EINTR): then traces "%s:%d:::%s:::semid=%d down fail\n" and writes the reason to standard error ("sem down: ...").
 * After a failure nothing is taken, and nothing may be given back. Interruptions need no handler: while system(3) or
 * __system runs in another thread, its SIGCHLD may interrupt the wait in this one. The library's own modules begin an
 * interrupted wait again.
 *
 * Not recursive: a thread that takes it twice waits for ever. The process that took it gives it back: if another one
 * does, the kernel gives it back once more when the taker ends, and two holders get in from then on.
 */
int downdown(int id, const char *file, int line, const char *func, int trace);

/*
 * Gives the semaphore back; parameters as downdown. Nothing checks that it was taken: every up without a down lets one
 * more holder in. Returns 0; or 1, traced and told likewise ("sem up: ...").
 */
int upup(int id, const char *file, int line, const char *func, int trace);

/* ------------------------------------------------------------------------------------------------------------------
 * Strings
 * ------------------------------------------------------------------------------------------------------------------
 * Guards and escapers for text on its way to the shell, and small text functions. Nothing here traces or keeps state;
 * any thread may call it. Character classes and cases are those of the process's locale (the plain ASCII ones unless
 * the program calls setlocale). Times are linear in the lengths of the texts unless a function says otherwise.
 *
 * Which guard: refuse text that hasInjectionString reports wherever a refusal is possible, and put what it accepts in
 * double quotes: a shell then passes it on as one word, but for "$NAME" and its like ("$1", "$$"), which it replaces,
 * and runs nothing. Without quotes nothing runs either, but blanks and tabs make several words of it. The two escapers
 * are for arguments outside quotes. None of the three looks at a "-" at the start, which makes an option of an
 * argument: put "--" before it, or test the text for what it should be (an address, a number, a name) first.
 *
 * The tests of the library give every text of one and two bytes and many longer ones to dash, bash and the busybox
 * shell (in the C locale); what is said below of the shell is what they found.
 */

/*
 * 1 when `text` holds one of these, which it then also prints on standard output as "[%s::%s::%d] Injection string:
 * %s\n" with "vemta_string", "hasInjectionString", a source line and the text; else 0, also for null. In a CGI program
 * standard output is the response: there, the line goes into the page, unescaped.
 *
 *   ` & " # * ? ~ > ^ < ) ( { } [ ] \ ; ' |   newline, form feed, and "$(" (a "$" alone may stay)
 */
int hasInjectionString(const char *text);

/*
 * Copies `text` with a backslash before every character that the shell would take for its own (newline, form feed, and
 * " # $ & ( ) * ; < > ? [ \ ] ^ ` { | } ~), for use as arguments outside quotes. No other command runs, whatever the
 * text. The shell passes the text on as it is, with these exceptions:
 *
 *   blank, tab     separate words: text with these is several arguments, and text of nothing else, or empty, is none
 *   newline        goes: it comes out as backslash-newline, which a shell takes away
 *   single quote   the output ends at the first one. If another one follows it, nothing more is written; if not, a
 *                  backslash and a quote are written once for each character from there to the end. So what follows
 *                  is lost: refuse such text first
 *
 *   dst  points to the pointer to the output: at least twice the length of the text plus one byte, zeroed by the
 *        caller, as no terminator is written. The pointer is not moved
 *
 * Returns 0; or 1 when `text`, `dst` or the pointer there is null.
 */
int escapeShellCommand(const char *text, char **dst);

/*
 * Copies `len` bytes with a backslash before each of these 26 characters, so that outside quotes they make one word:
 *
 *   ` blank \ / ' " ; | ! @ $ ^ & ( ) = , : * ? < > [ ] { }
 *
 *   src   `len` bytes; needs no terminator
 *   size  bytes of `dst` that are zeroed and filled. Room is looked at before each source byte, so a byte with its
 *         backslash may go ONE BYTE PAST `size`: pass a buffer that is one byte larger than `size`, and twice `len`
 *         or more as `size` when nothing may be cut
 *
 * The shell passes the text on as one word, with these exceptions; refuse such text first (hasInjectionString does, but
 * for the tab and the empty text):
 *
 *   newline             ends the command: WHAT FOLLOWS IT IS RUN as the next one
 *   tab                 separates words
 *   # at the start      makes the rest of the line a comment, what stands after the text included
 *   ~ at the start      "~", "~NAME" and in bash "~+", "~-", "~0" are replaced by a folder's path; "~/x" is not
 *   empty text          no word at all
 *
 * Returns the number of bytes written; or -1, with nothing written, when `size` is below `len` or negative, or a
 * pointer is null.
 */
int SpecialCharConvert(const char *src, int len, char *dst, int size);

/* 1 when every character is a hexadecimal digit, or there is none; else 0, also for null. */
int is_hex(const char *text);

/* 1 when every character is a decimal digit, or there is none; else 0, also for null. */
int is_number(const char *text);

/* How often the character `c` occurs; 0 for null. */
int num_delim(const char *text, char c);

/*
 * How often `pattern` occurs, from left to right and without overlaps ("aa" is 2 times in "aaaa"); 0 when either is
 * null or the pattern is empty.
 */
int num_delim_s(const char *text, const char *pattern);

/* Change the text in place to lower or upper case; null is ignored. */
void j_tolower(char *text);
void j_toupper(char *text);

/* Offset in bytes of the first occurrence of `pattern`; 0xFFFFFFFF when there is none or either is null. */
unsigned strpos(const char *text, const char *pattern);

/*
 * Replaces every occurrence of `pattern` in place, the first one first, and looks again from the start of the text
 * after each, until there is none or the next result would not fit 4096 bytes with its terminator: then the text stays
 * as the pass before left it. A replacement that holds the pattern therefore grows the text up to that size.
 *
 *   text  in a buffer with room for the result: 4096 bytes are always enough
 *
 * A null argument, an empty pattern and a replacement equal to the pattern change nothing. Returns null, always. Each
 * pass is linear; there is one for each occurrence, those that replacements complete included, and of those there may
 * be as many as the square of the length ("ab" by "ba" in 4000 bytes of a's and b's: millions).
 */
char *j_replace(char *text, const char *pattern, const char *replacement);

/*
 * The first place in `text` where `pattern` stands, without regard to case; null when there is none, the pattern is
 * empty, or either is null. Takes at most text length times pattern length. Not the C library's function of that name,
 * which finds an empty pattern everywhere; that is the one a program gets when it is linked before this library.
 */
#if !defined(__USE_GNU) || !defined(__CORRECT_ISO_CPP_STRING_H_PROTO) /* else <string.h> has it once per constness */
char *strcasestr(const char *text, const char *pattern);
#endif

/* free(3); null is ignored. */
void freeString(void *text);

/*
 * Copies the bytes `start` up to, not including, `end` of `src` to `dst`, without a terminator.
 *
 *   src   holds at least `end` bytes
 *   size  bytes of `dst`
 *
 * Returns `size` when `end` is before `start`; 1, with nothing copied, when the bytes do not fit, `start` is negative
 * or a pointer is null; else the address `dst` as a number.
 */
intptr_t substring(const char *src, int start, int end, char *dst, int size);

/* 0 when both texts are there and equal, else 1 (also for two nulls). */
int j_strcmp(const char *a, const char *b);

/* The lower-case hexadecimal digit of the low four bits. */
char to_hex(char value);

/* The value of a hexadecimal digit of either case. For any other character its lower-case code minus 87: no error. */
char from_hex(char c);

/* ------------------------------------------------------------------------------------------------------------------
 * Interfaces
 * ------------------------------------------------------------------------------------------------------------------
 * What the kernel knows about its IPv4 interfaces. Nothing here keeps state; any thread may call it. Results: 0
 * success, 1 failure; on a failure nothing is written unless the function says otherwise. Traces here have the short
 * header, without the process id.
 *
 * Addresses and masks are IPv4 in network byte order in memory, as in a struct in_addr; for text see ip2string.
 *
 * Every query by name opens a raw socket for itself and closes it again: the process needs the right to do so
 * (CAP_NET_RAW), and without it, as without a free descriptor, every query gives 1. Names are cut to the 15 characters
 * that a request to the kernel holds; "eth0:1" names the address with that label.
 */

/*
 * The interface's first IPv4 address; its netmask; its broadcast address. 1 when there is no such interface or it has
 * no address; a broadcast address that was never set is 0.0.0.0, and a success.
 */
int get_ip_by_ifname(const char *ifname, uint32_t *out);
int get_mask_by_ifname(const char *ifname, uint32_t *out);
int get_bcast_by_ifname(const char *ifname, uint32_t *out);

/*
 * A free address for an alias: the next host address above the interface's own, wrapping inside its subnet, neither the
 * network's nor the broadcast address. Whether another machine has it is not looked at.
 *
 * NEVER RETURNS for a subnet without two host addresses: masks 255.255.255.254 and 255.255.255.255 (get_mask_by_ifname
 * tells). Each address that it tries is written to `out`.
 *
 * Returns 0; or 1, tracing "CHECK!!\n", when address or mask cannot be had.
 */
int get_aliasIp_by_ifname(const char *ifname, uint32_t *out);

/* The interface's flags (IFF_UP and its kin), the kernel's 16 bits with their sign extended. */
int get_flag_by_ifname(const char *ifname, int32_t *out);

/*
 * The channel of a wireless interface, by its driver's private request 0x8BE1 (SIOCIWFIRSTPRIV + 1): length 1, flags
 * 0x712, and a pointer to 4 bytes, 0 before, that the driver fills. What other drivers take that request for is their
 * affair: ask only interfaces of the driver that has it.
 */
int get_chan_by_ifname(const char *ifname, int32_t *out);

/*
 * The first 6 bytes of the interface's hardware address. On other than Ethernet interfaces that may not be all of it.
 *
 *   size  bytes of `out`; below 6 gives 1, and the kernel is not asked
 */
int get_mac_by_ifname(const char *ifname, uint8_t *out, int size);

/*
 * Gives an Ethernet interface the hardware address `mac` (6 bytes). 1, with nothing changed, when there is no such
 * interface, it is not Ethernet, or the kernel refuses (no CAP_NET_ADMIN; some drivers while the interface is up).
 */
int set_mac_by_ifname(const char *ifname, const uint8_t *mac);

/* Not implemented, kept for programs that call them: they look at nothing, do nothing and return 1. */
int set_ip_by_ifname(const char *ifname, uint32_t value);
int set_mask_by_ifname(const char *ifname, uint32_t value);
int set_bcast_by_ifname(const char *ifname, uint32_t value);
int set_mtu_by_ifname(const char *ifname, uint32_t value);
int get_mtu_by_ifname(const char *ifname, uint32_t *out);

/*
 * Meant to give the name of the interface with the address `ip`; finds only interfaces whose names have exactly 15
 * characters. The name that it asks for is the rest of the interface's line in "/proc/net/dev", with a line feed in
 * place of the colon, and the kernel cuts that after 15 characters. That whole rest, counters included, is also what
 * `out` receives. getifaddrs(3) does what one wants.
 *
 *   size  bytes of `out`; a line and its terminator have up to 255
 *
 * Returns 0; or 1 when no interface is found, the text does not fit `size`, or "/proc/net/dev" cannot be opened.
 */
int get_ifname_by_ip(uint32_t ip, char *out, int size);

/*
 * The names of all interfaces, up or not, in the order of "/proc/net/dev", joined by ",".
 *
 *   out   always terminated; an empty text when there is no interface
 *   size  bytes of `out`, all of which are cleared first; the list and its terminator may fill them exactly
 *
 * Returns 0; 1 when "/proc/net/dev" cannot be opened or `size` is 0 or less (`out` is left alone); 1, tracing "buffer
 * too small!!\n", when the list does not fit: then `out` holds the names that do, the last of them perhaps with its
 * comma.
 */
int get_netdev_name(char *out, int size);

/*
 * Always 1, "not one of the kernel's interfaces", also for those that are: its test for an empty list is the wrong way
 * round. Kept for callers built on that answer; if_nametoindex(3) does what one wants. Reads the list by
 * get_netdev_name into 1024 bytes, with its trace when it does not fit.
 */
int check_netdev_name(const char *name);

/* ------------------------------------------------------------------------------------------------------------------
 * Address conversions
 * ------------------------------------------------------------------------------------------------------------------
 * IPv4 addresses, endpoints and MAC addresses as numbers and as texts. Nothing here keeps state; any thread may call
 * it. Results: 0 success, 1 failure (also for null arguments), unless a function says otherwise.
 */

/* An IPv4 endpoint, both fields in network byte order in memory, as in a struct sockaddr_in. Address 0 is "any". */
typedef struct ipport {
  uint32_t ip;
  uint16_t port;
} ipport;

/*
 * The number of leading one bits of a mask. `mask` is a number with the first octet in the top byte, so a mask from
 * get_mask_by_ifname goes through ntohl first.
 *
 * Returns 0 and a prefix of 0 to 32; or 1 and a prefix of 0 when ones follow a zero bit.
 */
int netmask_convert_prefix(uint32_t mask, uint8_t *prefix);

/*
 * Fill an endpoint with address and port just as they are given. Both do the same and neither changes the byte order:
 * pass the port through htons. The name of the second is from hosts where the orders are one.
 */
int ipport_convert_n2n(uint32_t ip, uint16_t port, ipport *out);
int ipport_convert_h2n(uint32_t ip, uint16_t port, ipport *out);

/*
 * Fill an endpoint from an address text, as string2ip reads it, and a port just as it is given (pass it through htons).
 * Both do the same. On a failure the port is left alone; the address is as string2ip leaves it.
 */
int ipport_string_convert_h2n(const char *text, uint16_t port, ipport *out);
int ipport_string_convert_n2n(const char *text, uint16_t port, ipport *out);

/*
 * Reads an address text as inet_addr(3) does: four numbers, or fewer (then the last one fills the rest), decimal,
 * octal with a leading 0 or hexadecimal with 0x; some C libraries do not look at text behind a blank. An empty text is
 * 0.0.0.0.
 *
 *   out  network byte order; 0xFFFFFFFF after a failure, untouched when `text` is null
 *
 * Returns 0; or 1 for any other text. All ones can be written as "255.255.255.255" alone: other spellings give 1.
 */
int string2ip(const char *text, uint32_t *out);

/*
 * Writes an address (network byte order) as four decimal numbers with dots, and a terminator.
 *
 *   size  bytes of `out`; below 16 nothing is written, whatever the address: traces "buffer size too small!!\n" (with
 *         the short header) and gives 1
 */
int ip2string(uint32_t ip, char *out, int size);

/*
 * Writes one byte for each piece of `text` between colons, read as hexadecimal (a piece that is no number is 0, the low
 * 8 bits of a larger one count; empty pieces are passed over).
 *
 *   text  cut in place: colons become terminators
 *   out   as many bytes as `text` has pieces. They are NOT counted: look at foreign text first
 *
 * Returns null, always. Nothing is done when an argument is null.
 */
void *change_mac_format_to_uchar6(char *text, uint8_t *out);

/*
 * Appends the pieces of `text` between colons to the text in `out` ("00:1a:2b" appends "001a2b").
 *
 *   text  cut in place: colons become terminators
 *   out   holds a text already, an empty one as a rule, and has room for `text` behind it
 *
 * Returns null, always. Nothing is done when an argument is null.
 */
void *change_mac_format_without_colon(char *text, char *out);

/* The decimal number that `text` starts with, cut to the range of an int; 0 for null and when there is none. */
int my_atoi(const char *text);

/* ------------------------------------------------------------------------------------------------------------------
 * Sockets
 * ------------------------------------------------------------------------------------------------------------------
 * IPv4 stream (TCP) and datagram (UDP) sockets as plain descriptors. Who got one closes it, with socket_close. Results:
 * 0 success, 1 failure, unless a function says otherwise. Nothing here keeps state: any thread may call it, but one
 * descriptor must not be read, written or closed by two threads at once.
 *
 * Traces here have the short header, without the process id; their words are those of LogStrMap.
 */

/* Bits of `opts`. Each call looks at those named with it and ignores the others. */
enum {
  SOCKET_OPT_TCP = 0x1,          /* open, listen, connect: a stream socket; without it a datagram socket */
  SOCKET_OPT_REUSE = 0x2,        /* open: SO_REUSEADDR */
  SOCKET_OPT_BIND = 0x4,         /* open, connect: bind to the local endpoint */
  SOCKET_OPT_SENDTO = 0x100,     /* send, datagram: to the given endpoint, not to the connected peer */
  SOCKET_OPT_DONTWAIT = 0x200,   /* send: MSG_DONTWAIT */
  SOCKET_OPT_NOSIGNAL = 0x400,   /* send: MSG_NOSIGNAL, no SIGPIPE when the peer has gone */
  SOCKET_OPT_RECVFROM = 0x10000, /* receive, datagram: from anyone, on a socket without a peer */
  SOCKET_OPT_PEEK = 0x20000,     /* receive: MSG_PEEK, what is read stays queued */
  SOCKET_OPT_WAITALL = 0x40000,  /* receive: MSG_WAITALL */
  SOCKET_OPT_ONESHOT = 0x80000   /* socket_select: an accepted connection is watched until its first data */
};

/*
 * The words of the socket traces, for TxtMapById: 0 "malloc fail!!", 1 "error args!!", 2 "socket", 3 "error",
 * 4 "open error", 5 "listen error", 6 "bind error", 7 "accept error", 8 "socketopt error", 9 "pthread create error",
 * 10 "pthread handler set error", 11 "send error", 12 "recv error", and for any other id "*unknown*".
 */
extern const txt_map_entry LogStrMap[];

/*
 * Opens a socket. Stream sockets are non-blocking and close-on-exec; datagram sockets are neither.
 *
 *   ifname  the local address is this interface's (get_ip_by_ifname); null: the address of `local`
 *   local   the local endpoint, not null: its port, and its address unless `ifname` is given. Used with
 *           SOCKET_OPT_BIND alone, but an interface that is given must have an address all the same
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_REUSE, SOCKET_OPT_BIND
 *   fd      receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open. Traces "Can't resolve ifname=%s\n" (no socket was made then); "socket open
 * error!!\n"; "socket setsocketopt error SOCKET_OPT_REUSE failed. fd=%d\n"; "socket bind error
 * fd=%d,ip=%u.%u.%u.%u,port=%d\n" with the endpoint in `local`, also when the address was an interface's. A null
 * `local` or `fd` gives 1 without a trace.
 */
int socket_open(const char *ifname, ipport *local, unsigned opts, int *fd);

/*
 * Opens a socket, binds it to `local` with SO_REUSEADDR, and listens.
 *
 *   local    its port must not be 0; address 0 is every interface
 *   opts     SOCKET_OPT_TCP; without it there is no listening, and the result is 1
 *   backlog  connections that wait for accept, 1 or more
 *   fd       receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open, tracing "error args!!\n" (port 0, backlog below 1, a null `local` or `fd`; no
 * socket is made), "socket open error\n" after the trace of socket_open, or "socket listen error\n".
 */
int socket_listen(ipport *local, unsigned opts, int backlog, int *fd);

/*
 * Opens a socket and connects it to `remote`.
 *
 * For datagram sockets. A stream socket is non-blocking, and Linux answers "in progress" to such a connect on every
 * path, loopback included; that is taken for a failure like any other. So WITH SOCKET_OPT_TCP THIS FAILS, although the
 * peer may see a connection come and go. For a stream: socket_open, then connect(2), wait until it is writable, and
 * look at SO_ERROR; or socket(2) and a blocking connect(2). All other calls here take such descriptors.
 *
 *   local   the local endpoint for SOCKET_OPT_BIND; null: any
 *   remote  neither its address nor its port may be 0
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_BIND; SO_REUSEADDR is never set
 *   fd      receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open, tracing "error args!!\n" (no endpoint to go to, a null `fd`; no socket is
 * made), "socket open error\n" after the trace of socket_open, or nothing when it was the connect that failed.
 */
int socket_connect(ipport *local, ipport *remote, unsigned opts, int *fd);

/*
 * Reads and forgets what waits on the socket (2048 bytes at a time), shuts both directions down, closes. The reading
 * keeps the close from becoming a reset that takes from the peer what was sent last. It goes on as long as more
 * arrives. The shutdown ends the connection for every holder of the socket: copies made by dup(2), children that
 * inherited it. Returns 0, always, for a bad descriptor too.
 */
int socket_close(int fd);

/*
 * The socket's own endpoint; its peer's. `out` may be null, to ask only whether there is one. 1, with `out` untouched,
 * when there is none, as for the peer of a socket that is not connected.
 */
int get_socket_local(int fd, ipport *out);
int get_socket_peer(int fd, ipport *out);

/* 0 when the socket is connected, else 1, also for what is no socket. */
int get_socket_state(int fd);

/* Adds O_NONBLOCK to the descriptor's status flags. Returns what the last fcntl(2) did: 0, or -1 with errno. */
int set_nonblock_sock(int fd);

/*
 * Sends a whole buffer.
 *
 *   opts  SOCKET_OPT_SENDTO, SOCKET_OPT_DONTWAIT, SOCKET_OPT_NOSIGNAL. Without the last, sending to a stream whose peer
 *         has gone ends a process that does not handle SIGPIPE
 *   len   bytes to send; receives the number sent, except after a failure before the sending (below). 0 or a negative
 *         number sends nothing and succeeds with 0
 *   to    with SOCKET_OPT_SENDTO on a datagram socket the destination, else ignored
 *
 * Whatever the kernel cannot take at once is sent piece by piece. When it says EAGAIN or EINTR the call sleeps 100
 * microseconds and tries again, 2000 times in all, so a peer that reads nothing holds it for a good 0.2 seconds (on a
 * blocking socket for as long as the kernel waits); then it gives 1 without a trace.
 *
 * Returns 0 when all was sent. 1 before anything is sent, `*len` untouched: traces "socket send error\n" (a negative
 * descriptor, what is no socket, a datagram socket without peer and without SOCKET_OPT_SENDTO, or with it and a null
 * `to`), "socket Can't handle SO_TYPE=%d\n" (neither datagram nor stream); nothing is traced for a null `len` or
 * `buf`. 1 for any other error of the kernel: it is told on standard error as "sendto:: REASON\n". The descriptor stays
 * open in every case.
 */
int socket_send(int fd, unsigned opts, const void *buf, int *len, ipport *to);

/*
 * Receives until `*len` bytes are there.
 *
 *   opts  SOCKET_OPT_RECVFROM, SOCKET_OPT_PEEK, SOCKET_OPT_WAITALL. With SOCKET_OPT_PEEK and less queued than asked for
 *         the same bytes are read again and again until `buf` is full of them
 *   buf   `*len` bytes
 *   len   bytes wanted; receives the number that came, except after a failure before the receiving (below). 0 or a
 *         negative number receives nothing and succeeds with 0
 *   from  with SOCKET_OPT_RECVFROM on a datagram socket not null, but not filled: the sender is not told. recvfrom(2)
 *         tells it
 *
 * Datagrams are strung together; what does not fit the rest of `buf` is lost with its datagram. EAGAIN and EINTR are
 * tried again at once and without limit: on a non-blocking socket this call keeps the processor busy until the bytes
 * have come. DOES NOT END when a stream's peer closes: it traces "Recv Zero Bytes\n" over and over (once for an empty
 * datagram). For streams take socket_recv_tcp, or read what the select service reports.
 *
 * Returns 0 when all is there. 1 before anything is received, `*len` untouched: traces "socket send error\n" (a
 * negative descriptor, what is no socket), "getsockopt SO_TYPE Error\n" (a datagram socket without peer and without
 * SOCKET_OPT_RECVFROM, or with it and a null `from`), "socket Can't handle SO_TYPE=%d\n"; nothing is traced for a null
 * `len` or `buf`. 1 for any other error of the kernel, tracing "socket recv error errno=%d\n". The descriptor stays
 * open in every case.
 */
int socket_recv(int fd, unsigned opts, void *buf, int *len, ipport *from);

/*
 * Receives from a stream until `*len` bytes are there or the peer closes.
 *
 *   opts  ignored
 *   buf   `*len` bytes
 *   len   bytes wanted; receives the number that came. 0 or a negative number receives nothing and succeeds with 0
 *
 * When the kernel says EAGAIN or EINTR the call sleeps 100 microseconds and tries again, 200 times in all.
 *
 * Returns 0 when all is there, or, tracing "Recv Zero Bytes\n", when the peer closed: then `*len` is less than was
 * asked for. 1, tracing: "socket send error\n" (a negative descriptor, `*len` untouched); "more then 200 times
 * EAGAIN[%d/%d]\n" with the bytes that came and those wanted; "socket recv error errno=%d\n" for any other error of the
 * kernel. 1 without a trace for a null `len` or `buf`. The descriptor stays open in every case.
 */
int socket_recv_tcp(int fd, unsigned opts, void *buf, int *len);

/* ------------------------------------------------------------------------------------------------------------------
 * Select service
 * ------------------------------------------------------------------------------------------------------------------
 * A thread that waits with select(2) and calls handlers. Given a listening socket it accepts connections and watches
 * them too; given any other socket it watches that one alone. All handlers of a service run on its thread, one at a
 * time: among themselves they need no lock, and while one works or waits the others wait. Reading, writing and closing
 * is theirs; the service closes no socket, not even the one it was given when it ends.
 */

/*
 * What the service calls. `tid` is the kernel thread id of its thread.
 *
 * A time-out is no end of the service: it goes on until a handler writes 1 (no other value) to the exit flag, the only
 * socket's peer closes, select fails, or the thread is cancelled.
 */
typedef struct socket_handler_set {
  /*
   * A connection was accepted, and is watched from now on. It is blocking, and not close-on-exec. `peer` is valid
   * during the call; `new_highest` is 1 when no descriptor of this service was higher, else 0. At most one a cycle.
   */
  void (*on_accept)(int tid, int fd, ipport *peer, int new_highest);

  /*
   * Bytes wait: read some or all of them. What is left waiting is reported again in the next cycle. To have an accepted
   * connection watched no longer, after closing it for instance, write 1 to `remove` (0 before): a descriptor that is
   * closed but still watched makes select fail, and so ends the service. The only socket of a service without a
   * listening one stays watched whatever is written there; close it no earlier than in on_close or on_exit.
   */
  void (*on_data)(int tid, int fd, uint8_t *remove);

  /*
   * Readable with no byte waiting: the peer has closed or reset the connection, or an empty datagram came. Not watched
   * any longer after this call; close it here. So a connection whose last bytes are left unread is not reported closed.
   */
  void (*on_close)(int tid, int fd);

  /*
   * The end of every cycle. `watched` is null after a time-out; else the set of watched descriptors, valid during the
   * call, in which descriptors may be set or cleared. Set only such as lie between the lowest and the highest
   * descriptor that the service was given or accepted. One above is not watched until another one above it is accepted.
   * One below, or any without a listening socket, is watched but never reported: once it is readable no wait lasts any
   * more. `exit_flag` starts as 0 and keeps what is written there.
   */
  void (*on_cycle)(int tid, fd_set *watched, int *exit_flag);

  /* Nothing happened for as long as the time-out. `watched` as above. on_cycle follows. */
  void (*on_timeout)(int tid, fd_set *watched);

  /*
   * code 1: cancellation could not be set up; on_exit follows. code 2: select failed, a watched descriptor is not open
   * for instance. The reason goes to standard error ("SOCKET_EXIT_SELECT_ERR:: REASON"), and one last cycle is run as
   * if every watched descriptor were ready: connections without data get on_close though nobody closed them, an only
   * socket without data ends the service with code 3, and with a listening socket the thread keeps asking for one more
   * connection, without pause when it is non-blocking, and ends when that has come.
   */
  void (*on_error)(int tid, int code);

  /* The last call. code 0: the usual end. code 3: the only socket was closed by its peer; on_close came before. */
  void (*on_exit)(int tid, int code);
} socket_handler_set;

/*
 * Starts a service on its own detached thread, with the system's default stack.
 *
 *   fd            a socket below 1024 (FD_SETSIZE). It must stay open until on_exit. When listening it should be
 *                 non-blocking, as socket_listen makes it
 *   opts          SOCKET_OPT_ONESHOT: an accepted connection is not watched any longer when its data is reported, and
 *                 may be set again in on_cycle. No effect without a listening socket
 *   timeout_sec, timeout_usec  the longest wait of a cycle; both 0 for no end. Negative ones make select fail
 *   handlers      copied. All are needed, except on_accept without a listening socket, on_timeout without a time-out,
 *                 and on_cycle without a listening socket (it is then left out, and no handler can end the service)
 *   thread        receives the thread's handle, on success only, for pthread_cancel while the service surely runs. The
 *                 first handlers may run before it is stored
 *
 * Returns 0 when the thread runs; traces "main process get thread id=%d\n" with its handle. Else 1, with nothing
 * started and `fd` open, tracing "error args!!\n" (a null `handlers` or `thread`); "pthread handler set error\n" (a
 * handler is missing, or `fd` is 1024 or more); "malloc fail!!\n"; "fd %d isn't a Socket FD\n"; "getsockopt fail\n"; or
 * "pthread create error\n". These have the short header.
 *
 * The thread traces, with the process id, "[%d|%d]Thread Create[socket_select_hdlr]\n" (process, thread) as it starts
 * and "Exit pid=%d,ppid=%d\n" (process, parent) as it ends, before on_exit with code 0 and after it with code 3; when
 * on_cycle ends it after a time-out also "get ExitFlag pid=%d,ppid=%d\n" before that; and "fd %d can't be watched,
 * closed\n" for an accepted connection with a descriptor of 1024 or more, which no handler hears of. A connection that
 * cannot be accepted is told on standard error ("accept:: REASON") and the cycle goes on: without free descriptors that
 * is over and over, as the connection keeps waiting. When a connection has vanished before it is accepted a
 * non-blocking listening socket is asked without pause until the next one comes.
 *
 * Cancellation. The thread can be cancelled asynchronously, at any instruction that is not the library's own use of
 * stdio or free. A handler that takes a lock, allocates, or uses streams must switch cancellation off meanwhile
 * (pthread_setcancelstate), or what it holds stays taken for ever. A cancelled service calls no on_exit, loses its
 * record (about 100 bytes) and leaves its connections open. The exit flag is the better way; a time-out bounds how long
 * it takes until that is looked at.
 */
int socket_select(int fd, unsigned opts, int timeout_sec, int timeout_usec, const socket_handler_set *handlers,
                  pthread_t *thread);

/* The service's thread function; for socket_select only. `ctx` is its record, which it frees. Returns null. */
void *socket_select_hdlr(void *ctx);

/* ------------------------------------------------------------------------------------------------------------------
 * Bandwidth monitor
 * ------------------------------------------------------------------------------------------------------------------
 * A thread that reads the byte counters of listed interfaces from "/proc/net/dev" every period and keeps their rates,
 * bytes per second, and when asked a history of them.
 *
 * Life: init_bm, any number of adds, bm_start, then queries, adds and deletes from any thread; at last the exit bit,
 * set under the semaphore: when its sleep is over the thread frees the interface records and ends.
 *
 * The semaphore (downdown(head->semid, ...)) guards the monitor, every record and every history; the functions here
 * take it themselves. Take it to change `period`, `history` or `exit`, or to read a record or a history. The thread
 * holds it for a whole pass and never while it sleeps. A wait for it that a signal interrupts is told by downdown and
 * begun again. When it is gone a function does nothing and returns 0, and the thread makes no passes; the exit bit ends
 * the thread even then.
 *
 * Signals that are handled on the thread cut its sleep short, and the rates of that pass are still divided by the whole
 * period. It inherits the signal mask of the thread that calls bm_start: block them there meanwhile.
 *
 * Between processes: with the monitor in shared memory others may, under the semaphore, change `period` and `history`
 * and set the exit bit. Interface records come from the heap of the process that adds them: add, delete, query and
 * follow the list in the process that runs the thread alone.
 *
 * Results: 1 done, 0 not, unlike most of the library; bm_start and get_rxtx_by_ifname return 0 for success. Null
 * arguments make a function fail with nothing touched. Any thread may call these functions.
 */

typedef struct bm_head {
  list_node link;    /* the interfaces (bm_iface.link), in the order they were added */
  uint8_t count;     /* adds so far, modulo 256; a delete does not lower it */
  uint8_t history;   /* not 0: every rate goes into the interface's history */
  uint8_t period;    /* seconds from pass to pass, and the divisor of the rates: 1 to 255. A 0 is taken as 1 */
  uint8_t exit;      /* bit 0 ends the thread */
  int32_t semid;     /* semaphore, System V */
  uint32_t reserved; /* 0 */
} bm_head;

typedef struct bm_iface {
  list_node link;   /* in bm_head.link */
  char name[32];    /* at most 31 characters, always terminated */
  uint64_t prev_rx; /* bytes received and sent at the last pass */
  uint64_t prev_tx;
  uint64_t rx_rate; /* bytes per second */
  uint64_t tx_rate;
  uint16_t flags;         /* bit 0: a pass has found the interface */
  list_node history;      /* its samples (bm_sample.link), the oldest first */
  uint16_t history_count; /* how many there are: at most 257 */
} bm_iface;

typedef struct bm_sample {
  list_node link;
  uint64_t rx_rate; /* bytes per second */
  uint64_t tx_rate;
} bm_sample;

/* Counters of one interface, in the order of their columns in "/proc/net/dev". */
typedef struct rxtx_stats {
  uint64_t rx_bytes;
  uint64_t rx_packets;
  uint32_t rx_errors;
  uint32_t rx_drops;
  uint32_t rx_fifo;
  uint32_t rx_frame;
  uint32_t rx_compressed;
  uint32_t rx_multicast;
  uint64_t tx_bytes;
  uint64_t tx_packets;
  uint32_t tx_errors;
  uint32_t tx_drops;
  uint32_t tx_fifo;
  uint32_t tx_collisions;
  uint32_t tx_carrier;
  uint32_t tx_compressed;
} rxtx_stats;

/*
 * Makes a monitor of memory whose contents do not count: no interfaces, count, exit bit and reserved word 0.
 *
 *   head     the caller's; it must last until the thread has ended, or until the process does
 *   semkey   key of the semaphore, which is opened or made, and set free (sem_create). It stays when the monitor ends:
 *            sem_delete(head->semid) when nobody uses it any more
 *   period   seconds, 1 to 255
 *   history  0 or 1
 *
 * Returns 1; or 0 when the semaphore cannot be had (traced by sem_create).
 */
int init_bm(bm_head *head, int semkey, unsigned char period, unsigned char history);

/*
 * Starts bmThread as a detached thread and traces, with the short header, "main process get thread id=%d\n" with its
 * handle.
 *
 * Returns 0; or 1, with nothing traced, when there is no thread.
 */
int bm_start(bm_head *head);

/*
 * The monitor's thread, for bm_start or a thread of the caller's own (to be joined, say). One for each monitor.
 *
 *   head  the bm_head; with null it returns at once
 *
 * Traces "[%d|%d]Thread Create[%s]\n" with the process id, the thread id and "bmThread", then passes until the exit
 * bit. A pass goes through the interfaces in order and reads each one's counters (one reading of the file each). The
 * first that finds an interface takes its counts; every further one sets its rates to the difference, modulo 2^64,
 * divided by the period, without the remainder. An interface that is not in the file keeps what it has, and the
 * difference when it comes back still counts as one period. After a pass the period is read anew for the sleep that
 * follows and the rates after it. Without memory a sample is left out of the history. A history of 257 samples loses
 * its oldest for the next; switching the history off keeps what is there.
 *
 * At the end it traces "bmThread Exit\n", frees the interface records and returns null. The samples of their
 * histories are NOT freed: delete the interfaces first (del_bm_by_iface frees them), or keep hold of them and free(3)
 * each one. A program that has interfaces listed sees the end by taking the semaphore until list_empty(&head->link):
 * from then on the thread touches neither monitor nor semaphore.
 */
void *bmThread(void *head);

/*
 * Lists an interface, at the end. One that is listed already is deleted first: its rates and its history start again,
 * and when there is no memory for the new record it is gone. The interface need not exist (yet).
 *
 *   name  at most 31 characters
 *
 * Returns 1; or 0 for a longer name, or without memory. Two threads that add one name at once may list it twice.
 */
int add_bm_by_iface(const char *name, bm_head *head);

/* Unlinks and frees the first record of exactly this name, and its history. Returns 1, or 0 when there is none. */
int del_bm_by_iface(const char *name, bm_head *head);

/*
 * The rates of an interface.
 *
 *   out  receives both rates; its link is not written, nor anything on failure
 *
 * Returns 1; or 0 when it is not listed or no pass has found it yet. After the first pass that did both rates are 0.
 */
int query_bm_by_iface(const char *name, bm_head *head, bm_sample *out);

/*
 * The counters of an interface now, read from the first line of "/proc/net/dev" in which its name occurs ANYWHERE: eth0
 * takes the line of veth0 or eth0.1 when that comes first. Columns that are not there are 0; a number too large for its
 * field is the largest that fits.
 *
 * Returns 0; or 1 when the file cannot be opened (`out` stays as it was) or has no such line (`out` is zeroed).
 */
int get_rxtx_by_ifname(const char *name, rxtx_stats *out);

/* ------------------------------------------------------------------------------------------------------------------
 * IPv6 addresses
 * ------------------------------------------------------------------------------------------------------------------
 * Three ways to the addresses of an interface, and address text. getifaddr_netlink asks the kernel for everything it
 * knows, IPv4 addresses too; get_ip6_by_ifname reads one address from "/proc/net/if_inet6"; j_get_ip6_by_ifname and
 * get_gw6_by_ifname run the ip tool, with the interface's name as it stands in a shell command.
 *
 * An address is 16 bytes in network order, or eight 16-bit groups, each a number of the host's, the first one first.
 *
 * Results: 0 success, 1 failure. Null arguments give 1 with nothing touched, unless a function says otherwise. No
 * shared state: any thread may call these functions.
 */

struct nlmsghdr; /* <linux/netlink.h>, for those who handle messages themselves */

typedef struct v6_ifaddr {
  uint8_t addr[16]; /* an IPv4 address is in the first 4 bytes */
  uint32_t info;    /* numbers, from the most significant bit:
                     *   info >> 24      prefix length
                     *   info >> 22 & 3  family: 1 IPv4, 2 IPv6, 0 another
                     *   info >> 19 & 7  scope: 1 universe, 2 site, 3 link, 4 host, 5 nowhere, 0 another
                     *   info >> 16 & 7  state: 0 without duplicate address detection, 2 tentative, 3 found duplicate,
                     *                   4 permanent, 5 none of these (an address with a lifetime); the first that holds
                     *   info & 0xffff   0 in an array that was zeroed */
} v6_ifaddr;

/*
 * Handles one message of a dump for read_ifc_results.
 *
 *   msg      a whole message: at least 16 bytes, and as many as its nlmsg_len says
 *   ifindex  as passed to read_ifc_results
 *   found    how many messages were taken before
 *   entries  as passed to read_ifc_results
 *
 * Returns 1 when it took the message, which then counts towards the maximum.
 */
typedef int (*ifc_entry_handler)(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * Has the kernel list its addresses, in its order, from entry 1 on.
 *
 *   ifname   "" for all interfaces; a name that no interface has means all of them TOO
 *   family   low 16 bits: 2 IPv4, 10 IPv6, anything else both
 *   mode     1; with any other value nothing is asked and the result is 0
 *   entries  zeroed by the caller. Entry 0 is the filter and is not written: a prefix length, family or scope in it
 *            that is not 0 keeps only addresses with that value
 *   count    entries in the array, so at most `count` - 1 addresses; the others are read and dropped
 *
 * How many there were is not told: walk the entries from 1 on and stop at the first with a zero address. An address
 * that the filter rejects may have left codes, and no address, in the entry behind the last one.
 *
 * Prints on standard output "unknown rta_type: %d\n" for each attribute of a kind that it does not know: today's
 * kernels send one (8) with every address, and another (11) with some.
 *
 * Returns 0, also when reading ended early (as read_ifc_results says); or 1 when `count` is 0 or less, after
 * "socket(): Create failed.\n" or after "socket(): Send packet failed.\n", traced. The socket is closed in every case.
 */
int getifaddr_netlink(const char *ifname, int family, int mode, v6_ifaddr *entries, int count);

/*
 * Reads the datagrams of a dump and hands its messages to a handler.
 *
 *   sock     netlink socket with the request sent; stays open
 *   bufsize  bytes of the largest datagram; what is longer is cut by the kernel. 0 or less reads nothing
 *   ifindex, entries  for the handler
 *   max      how many messages the handler may take; it is not called any more after that
 *
 * Ends at the NLMSG_DONE message, wherever in a datagram it stands; otherwise it waits for the next datagram, for ever
 * if the socket has no time-out. A message whose length is below 16 or beyond its datagram ends that datagram. The
 * kernel's error messages are messages like others: a refused request has no end either. Ends early, tracing
 * "recv(): Receive failed.\n", also when a signal interrupts it; tracing "received an uncomplete netlink packet\n" at a
 * datagram of less than 16 bytes; and with nothing traced when there is no memory for the buffer.
 */
void read_ifc_results(int sock, int bufsize, unsigned ifindex, v6_ifaddr *entries, int max, ifc_entry_handler handler);

/*
 * The handler of getifaddr_netlink: puts the address of a message into entry `found` + 1 unless the filter in entry 0
 * rejects it or `ifindex` is neither 0 nor its interface. The type of the message does not count.
 *
 * An address attribute is taken when it is at least as long as an address of the family, the last of several; the
 * attributes end at one whose length is below 4 or beyond the message. Prints as getifaddr_netlink says.
 *
 * Returns 1 when the address was taken. Else 0: a message shorter than 24 bytes, a negative `found` and null write
 * nothing; a rejected message has written the codes that passed (in the order family, scope, prefix length).
 */
int process_ifaddr_ip(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries);

/*
 * One IPv6 address of an interface from "/proc/net/if_inet6".
 *
 *   ifname  compared with the first 12 characters of the names in the file: a longer one is not found
 *   which   0 the first global address, 1 the first link-local address, 2 the second global address; others find none
 *   groups  receives the address; not written when there is none
 *
 * Of an interface whose index is above 255 nothing is found: the file's columns are read as two digits. Global is what
 * the kernel calls so: unique local addresses (fc00::/7) are among them.
 *
 * Returns 0; or 1 when there is no such address or no such file.
 */
int get_ip6_by_ifname(const char *ifname, int which, unsigned short groups[8]);

/*
 * One IPv6 address of an interface, from the output of "ip -6 address show dev IFNAME" (with grep and awk): what stands
 * second in the lines with the word "link" or "global", the tool's own heading among them when it holds that word, as
 * for an interface whose name does.
 *
 *   ifname  goes into a shell command as it stands
 *   which   1 the first link-local address, 2 the second global address, any other value the first global one
 *   addr    16 bytes; zeroed when there is none
 *
 * Returns 0 when the tool named one, even if StringToV6Addr cannot read it (then `addr` is zero); else 1. A command
 * that is too long is refused and traced by _system_read.
 */
int j_get_ip6_by_ifname(const char *ifname, int which, unsigned char addr[16]);

/*
 * The gateway of the first default IPv6 route through an interface, from the output of "ip -6 route show match ::/0 dev
 * IFNAME" (with grep and awk). Parameters and results as j_get_ip6_by_ifname; the text "0:0:0:0:0:0:0:0" is no gateway.
 */
int get_gw6_by_ifname(const char *ifname, unsigned char addr[16]);

/*
 * Reads the text of an IPv6 address. Cut it first at whatever follows the address ("/64", "%eth0", a newline): with
 * those at its end the result is 0 and the address zero.
 *
 *   text  null gives 1
 *   addr  16 bytes, zeroed first; null gives 1
 *
 * Returns 0 for an address; and 0 with `addr` all zero for a text with a character that belongs to none, for one with a
 * well-formed IPv4 address as its tail ("::ffff:192.0.2.1") and for a dot after more than 12 bytes. Any other dot ends
 * the address, whatever follows it: the digits before it are the last group.
 * Returns 1 with `addr` all zero for a single ":" at the start, a group above ffff (leading zeros do not count), a
 * second "::", more than 16 bytes, and fewer without a "::". A single ":" at the end is not seen; a "::" may stand for
 * no group at all.
 */
int StringToV6Addr(const char *text, unsigned char addr[16]);

/*
 * Writes an address as eight groups in lower-case hexadecimal, without leading zeros and without "::".
 *
 *   text  at least 40 bytes, zeroed by the caller: NO terminator is written
 *
 * Returns 0; 1 when an argument is null.
 */
int V6AddrToString(const unsigned short groups[8], char *text);

/* ------------------------------------------------------------------------------------------------------------------
 * DNS client
 * ------------------------------------------------------------------------------------------------------------------
 * The same names asked of up to five servers at once, over UDP to port 53, and every address they answer with filed by
 * server and by name. For resolving names, and for finding out whether a server answers at all. Nothing is cached and
 * neither the system's resolver nor its configuration is used.
 *
 * A reply is taken from whoever sends it to the socket of a server: id, flags, response code, sender and question are
 * not compared with what was asked. Ask only over networks, and servers, that you trust with the answer.
 *
 * Calls on different records may run at once in any threads. The thread needs about 12 KiB of stack.
 */

/*
 * Question and result in one block of 3592 bytes, the same on every machine. Fill the first six fields; addresses are
 * in network byte order in memory.
 *
 * The slot of an answer is the index of the first name, of those in use, that equals the owner name of the FIRST
 * answer in the same reply, byte for byte (as strcmp: servers usually repeat the name as it was asked, in its case and
 * without a dot at the end). So the address behind an alias is in the slot of the alias when it comes in the same
 * reply. When no name equals it, the slot is `nameCount`, the one after the last name: with ten names that is the first
 * slot of the next server, and for the fifth server it is none, the address is then counted and not stored. An answer
 * overwrites the one before it in its slot, also within one reply.
 */
typedef struct DnsQuery {
  uint32_t servers[5];           /* IPv4 addresses of the servers */
  char names[10][256];           /* dotted text, no dot at the end; 256 bytes need no terminator */
  uint8_t stopOnMatch;           /* not 0: stop waiting when a reply has an address for one of the names */
  uint8_t timeoutSec;            /* seconds that each wait for a reply lasts; 0 takes what is there already */
  uint8_t serverCount;           /* servers in use, 1 to 5; more are taken as 5 */
  uint8_t nameCount;             /* names in use, 1 to 10; more are taken as 10 */
  int32_t ipv4Count;             /* A answers, also those that were overwritten or not stored */
  uint32_t ipv4Result[5][10];    /* IPv4 addresses by server and slot; 0: none */
  int32_t ipv6Count;             /* AAAA answers, likewise */
  uint8_t ipv6Result[5][10][16]; /* IPv6 addresses by server and slot; all 0: none */
} DnsQuery;

/*
 * Asks every server for the A, then the AAAA addresses of every name: zeroes the counts and results, calls
 * dnsQuery4_main with the types 1 and 28, and traces "ipv4 result count = %d\n" and "ipv6 result count = %d\n" after
 * each.
 *
 * Time: each call waits for at least one silence of `timeoutSec`, unless stopOnMatch cuts it short, and aliases without
 * an address make it up to four; so two to eight times `timeoutSec`, and 1 ms for each query. With stopOnMatch the
 * first name that is answered ends the wait for all: ask for one name then.
 *
 * Returns 1 when one of the two calls gave 1, which is NOT to say that there is an address (look at the counts); else
 * 0, also for null.
 */
int dnsQuery4(DnsQuery *query);

/*
 * As dnsQuery4, without the traces of the counts, to see whether anybody is there. Returns 1 when any reply was
 * received from any server, also one that says no or cannot be understood; else 0, also for null.
 */
int dnsQuery4_checkServerResponseOnly(DnsQuery *query);

/*
 * One type of question to all servers. Adds to the counts and results of `query`, which the caller has zeroed.
 *
 *   responded  set to 1 when a reply is received; never cleared
 *   qtype      1 for A, 28 for AAAA. Answers of both types are filed whichever was asked
 *
 * It runs in passes. A pass opens one UDP socket per server and sends one query for each name to each server, with a
 * pause of 1 ms after each; then it waits until `timeoutSec` seconds have gone by without a reply, beginning anew with
 * each one that comes (servers that keep sending keep it waiting) and after a signal. With `stopOnMatch` it ends when a
 * reply has an address for one of the names. A server that sends an empty datagram is not listened to any more in this
 * pass.
 *
 * The names that CNAME answers lead to are noted, up to ten; each further one is dropped, and traces "cnamecnt reached
 * limit %d\n" with 10. Whenever one or more sockets have something to receive, the list begins anew, so it holds what
 * came last. When a pass ends and the record holds no address at all, not even from a call before, while there are such
 * names, the next pass asks for them; up to three times. (What it finds goes to slot `nameCount`, unless the alias's
 * target is one of the names.) A further pass that gets no reply leaves the list as it is, and it is asked again.
 *
 * A reply that cannot be understood is dropped whole, nothing of it is filed or counted: one that runs past the bytes
 * received (2048 are taken of a datagram), a name whose labels take 256 bytes or more, pointers that form a loop, a
 * label longer than the rest of its name, an A answer of less than 4 or an AAAA answer of less than 16 bytes (of longer
 * ones the first bytes are taken). Only the first 20 answers are looked at. The data of answers of other types than 1
 * and 28 is read as a name, and the next answer is taken to begin where that name ends.
 *
 * Queries have consecutive ids, from 301 at the start of the process, 65535 followed by 0. Threads that ask at the same
 * time may send the same id.
 *
 * Returns 1 when the record holds an address or there is no alias left to ask for: also when no server replied, and
 * when all said no. Returns 0:
 *   when there still are only aliases after four passes;
 *   when a socket cannot be opened: the sockets that this pass has opened already STAY OPEN and are lost;
 *   when a query cannot be sent: writes "sendto failed: REASON" to standard error (perror), closes its sockets. One
 *   server without a route thus ends the call for all, before any reply is read: ask doubtful servers alone;
 *   when select(2) fails, or a socket's number is 1024 (FD_SETSIZE) or above, which select cannot watch: closes them;
 *   when `query` or `responded` is null.
 * A reply that cannot be received is told on standard error ("recvfrom failed: REASON") and the pass goes on. Without a
 * server or a name there is nothing to ask, and the call ends as if nobody replied.
 */
int dnsQuery4_main(DnsQuery *query, int *responded, uint16_t qtype);

/*
 * Writes a dotted name as labels: for each a byte with its length, then its text; then a zero byte.
 *
 *   out   length of `name` plus 2 bytes
 *   name  an empty one gives the zero byte alone; a dot at the end, or two in a row, gives an empty label there.
 *         Nothing is refused: labels over 63 bytes, which servers do not understand, are written with the low 8 bits
 *         of their length
 *
 * Does nothing when either is null. Any thread.
 */
void dnsNameToLabels(unsigned char *out, const char *name);

/*
 * Reads a name in a DNS message, following compression pointers, as dotted text without a dot at the end.
 *
 *   at        where the name begins, inside the message
 *   message   start of the message
 *   consumed  receives the bytes that the name takes at `at`: up to its zero byte, or its first pointer, inclusive; 1
 *             when null is returned
 *
 * The end of the message is not known here. The name and everything that its pointers lead to (they reach 16383 bytes
 * into the message) must be readable memory; for messages from a network that is only so when the message stands at the
 * start of a zeroed buffer of 16640 bytes. No more than 256 bytes of labels are read, and loops are noticed.
 *
 * Returns a new 256-byte buffer that the caller frees; or null when memory runs out, the labels take 256 bytes or more,
 * the pointers form a loop, a label is longer than the rest of its name, `at` lies before `message`, or a pointer is
 * null (then nothing is stored). Any thread.
 */
char *dnsReadName(const unsigned char *at, const unsigned char *message, int *consumed);

/* ------------------------------------------------------------------------------------------------------------------
 * Timers
 * ------------------------------------------------------------------------------------------------------------------
 * Callbacks at whole seconds of the monotonic clock. One timer thread per process sleeps until the earliest timer is
 * due or a notification comes, and at every wake-up, also when nothing is due, starts a short-lived runner thread that
 * calls what is due, one after the other. Runners of several wake-ups run side by side: a slow callback delays the due
 * timers behind it only until the next wake-up, and two callbacks may run at the same time. Timers with the same expiry
 * are started in the order in which they were added or last modified; every one is started exactly once per arming.
 *
 * Timers are one-shot. A timer that has fired stays linked (retired) until it is deleted; modTimer arms it again. The
 * lists are unsorted and walked at every wake-up: good for some dozens of timers.
 *
 * A timer never runs before its second, and may run up to two seconds after it began: the sleep is counted in whole
 * seconds from the moment it is computed, and keeps the microseconds that were left of the one before when a
 * notification cut that short.
 *
 * Locking. One System V semaphore, made by the program with sem_create and free (1) at the start, guards all lists.
 * addTimer, delTimer, modTimer and destoryTimerThread take it; __delTimer and __modTimer are for callers that hold it
 * already (downdown); callbacks run without it and may call any of these. A thread that is cancelled inside one of
 * them goes on to its end first. A down or up that fails is traced by downdown and upup, and the work is done all the
 * same, without a lock. Runners take the semaphore once more after their last callback, also when the service has been
 * ended: delete it from another process, when this one has ended.
 *
 * A child of fork(2) has the lists and the mark that the service runs, but no timer thread, and can never start one:
 * its notifications reach the parent's thread. Start the service after daemon(3).
 *
 * Ending the service cancels a thread, for which the GNU C library loads libgcc_s.so.1 when the program has not.
 *
 * Before createTimerThread has returned 1 the operations on timers must not be called: the semaphore's id and the
 * descriptors are 0 until then, so they would work on semaphore 0 and send to standard input.
 *
 * Both kinds of threads are detached, have stacks of 1 MiB and inherit the signal mask of the thread that starts them:
 * block signals around createTimerThread. A handler that runs on the timer thread in the last second of its sleep makes
 * it sleep on until the next notification; a signal that interrupts a wait for the semaphore is told by downdown, and
 * the wait begun again. Such a signal is also the SIGCHLD of a system(3) or __system in another thread: the kernel
 * gives it to any thread that does not block it, handled or not.
 */
typedef struct TimerNode {
  list_node node;                                 /* zeroed, or linked by the service */
  void (*callback)(uint32_t arg1, uint32_t arg2); /* run when due; null runs nothing */
  uint32_t arg1;
  uint32_t arg2;
  uint32_t expire; /* second of getCurrentTime's clock; due from that second on, for 2^31 - 1 seconds */
} TimerNode;

typedef struct TimerThreadConfig {
  int semid;        /* the semaphore that guards the timers */
  pthread_t thread; /* any value */
} TimerThreadConfig;

/*
 * Starts the timer service of this process. Call it once, from one thread.
 *
 *   config  copied
 *
 * Returns 1; or 0: it was started before (also when it has been ended since: it can be started once per process only),
 * `config` is null, there is no socket pair ("can't create signal pipe\n", also when its descriptor is beyond what
 * select takes), or there is no thread ("CHECK!!\n": the two descriptors of the socket pair stay open, and calling
 * again makes another pair). The descriptors are close-on-exec.
 *
 * The timer thread traces "[%d|%d]Thread Create[%s]\n" with process id, thread id and "timerThread", then "Timer Thread
 * Running\n". If it cannot make itself cancellable it traces "CHECK!!\n" and ends. A select that fails is told on
 * standard error ("Timer Select:: ...") and traced "CHECK!!\n". If a runner cannot be started it traces "CHECK!!\n",
 * and what is due waits for the next wake-up.
 */
int createTimerThread(const TimerThreadConfig *config);

/*
 * Ends the service for good: cancels the timer thread, retires every timer, and closes the socket pair. No callback is
 * started from then on but one that a runner has already taken; those that run go on. The timer thread ends at once or,
 * when it is in the middle of its lists, as soon as the semaphore is free.
 *
 * Timers may still be deleted. Those added or modified afterwards never run; the notification of each operation fails,
 * and is traced. Calling it again retires those, and cancels and closes nothing.
 *
 * Returns 0, also when the service never ran; or 1 when the semaphore could not be given back.
 */
int destoryTimerThread(void);

/*
 * Arms a timer that is on no list: callback, arguments and expiry are set by the caller, usually with
 * getCurrentTime(NULL) plus a delay. An expiry that has come already runs at once.
 *
 *   timer  the caller's, in place and unchanged until delTimer; a timer already added must not be added again
 *
 * A timer that waits with the expiry 0 counts as none when the sleep is computed; it runs at the first wake-up at or
 * after its time.
 *
 * Returns 0; or 1 when the semaphore could not be given back, or `timer` is null.
 */
int addTimer(TimerNode *timer);

/*
 * Takes a timer off its list, in whatever state, and makes its node point to itself, so that deleting it again is
 * harmless; so is deleting a timer that was never added when its node is zeroed. Afterwards the record may be freed.
 * A callback that a runner has taken already still runs, or is running, with copies of the two arguments.
 *
 * Returns as addTimer.
 */
int delTimer(TimerNode *timer);

/*
 * delTimer for a caller that holds the semaphore. The node keeps naming its old neighbours: not to be called twice, nor
 * followed by delTimer or a modification, until the timer is added again. Null does nothing.
 */
void __delTimer(TimerNode *timer);

/*
 * Arms a timer anew, in whatever state: waiting, due, fired, deleted with delTimer, or zeroed and never added. What it
 * was due for before and no runner has taken is forgotten. It goes behind the timers that are armed.
 *
 *   expire  second of getCurrentTime's clock
 *
 * Returns as addTimer.
 */
int modTimer(TimerNode *timer, uint32_t expire);

/* modTimer for a caller that holds the semaphore. Null does nothing. */
void __modTimer(TimerNode *timer, uint32_t expire);

/* Seconds of the monotonic clock, cut to whole ones and to 32 bits; also stored in `out` unless null. Any thread. */
uint32_t getCurrentTime(uint32_t *out);

/*
 * The steps of the service, for tests and for programs that wake the timer thread themselves.
 *
 * sendNotifyToTimerThread wakes the timer thread; `code` is 0 for added, 1 for deleted, 2 for modified, and only told
 * in the trace. Call it with the semaphore taken where the service may be ended at the same time. When the socket is
 * full it takes the oldest notification out and tries again, so that it never waits for the timer thread. When nothing
 * can be sent it traces "[%d]Could not send signal: %d\n" with the code twice; what was to be notified of stands, and
 * is seen at the next wake-up.
 *
 * reSchedule takes the semaphore, finds out which timers are due, and returns the seconds until the earliest of the
 * others, 0 when there is none. When the expiry is a smaller number than the clock, which has yet to wrap, the result
 * is one second less.
 *
 * launchProcessTimerListThread starts a runner thread; processTimerListThread is that thread: it takes the semaphore
 * for each due timer that it takes and returns null when there is none left. timerThread is the timer thread; its
 * argument is not looked at; it is cancellable at any moment while it waits, and returns null when it finds the service
 * ended.
 */
void sendNotifyToTimerThread(int code);
uint32_t reSchedule(void);
void launchProcessTimerListThread(void);
void *processTimerListThread(void *unused);
void *timerThread(void *config);

/* ------------------------------------------------------------------------------------------------------------------
 * Thread pool
 * ------------------------------------------------------------------------------------------------------------------
 * A fixed number of worker threads that take tasks, in the order queued, from a ring of fixed size; and, apart from it,
 * a counter that limits threads which a program starts itself. Nothing here traces.
 *
 * Results of the pool: 0 success, -1 no pool or no function, -2 a lock, signal or broadcast failed, -3 the queue is
 * full, -4 shutting down, -5 a thread could not be joined. Results of the limit: 0 or -2.
 *
 * Any thread may queue tasks, tasks included. A task returns to end; one that ends its thread (pthread_exit), or never
 * ends, takes a worker away, and the pool can then not be freed, or its destruction waits for ever.
 */
typedef struct ThreadPoolTask {
  void *(*function)(void *argument); /* its result is ignored */
  void *argument;
} ThreadPoolTask;

/* To be read only; with `lock` taken while the pool runs. */
typedef struct ThreadPool {
  pthread_mutex_t lock;
  pthread_cond_t notify; /* signalled for each task, broadcast at shutdown */
  pthread_t *threads;    /* threadCount of them */
  ThreadPoolTask *queue; /* queueSize slots, a ring */
  int threadCount;       /* workers that were started */
  int queueSize;
  int head;     /* slot of the next task to take */
  int tail;     /* next free slot */
  int count;    /* tasks that wait */
  int shutdown; /* 0 running, 1 immediate, 2 graceful */
  int started;  /* workers alive */
} ThreadPool;

/*
 * Makes a pool and starts its workers, joinable and with the signal mask of the caller.
 *
 *   threads     number of workers; with 0 nothing is ever run
 *   queue_size  tasks that can wait; with 0 every task is refused as "queue full"
 *   stack_kib   stack of each worker in KiB, 0 for the C library's default. What the system refuses fails: negative,
 *               too large, or below PTHREAD_STACK_MIN (with the GNU C library 16 KiB on x86, 128 KiB on MIPS)
 *
 * Returns the pool, which ends with threadpool_destroy; or null when a number is negative, memory is short or a worker
 * cannot be started: those that were started are ended again, and nothing stays allocated.
 */
ThreadPool *threadpool_init(int threads, int queue_size, int stack_kib);

/*
 * Queues a task.
 *
 *   argument  handed to `function`; the caller's. When the pool is shut down at once its tasks may never run
 *
 * Returns 0; -1 when `pool` or `function` is null; -2 when the lock fails (nothing is queued), or waking a worker or
 * unlocking does (the task is queued); -3 when the queue is full, whether or not the pool is shutting down, printing
 * "queue full!!!!\n" on standard output; -4 when the pool is shutting down, printing "shutting down!!!!\n". Both are
 * printed with the pool locked: a standard output that blocks holds up the workers.
 */
int task_enqueue(ThreadPool *pool, void *(*function)(void *), void *argument);

/*
 * Ends the pool: bit 0 of `flags` set, the workers run what is queued first; else each ends with the task it is in, and
 * what is queued never runs. Waits for them and frees the pool. Not to be called from a task of the pool, nor while
 * another thread is inside task_enqueue: the pool may be freed under it.
 *
 * Returns 0: the pool is gone (unless a task ended its thread: then it is not freed). -1 when it is null.
 * -2 when the lock, or telling the workers, fails: nothing is freed, and when the broadcast failed the pool stays
 * locked. -4 when it is being ended already: the pool is then LEFT LOCKED, by this caller, so that workers still at
 * work, and the first caller who waits for them, never finish. -5 when a worker could not be joined: nothing is freed.
 */
int threadpool_destroy(ThreadPool *pool, int flags);

/*
 * Frees a pool whose workers have all ended; threadpool_destroy does it. Waits for whoever holds the lock.
 *
 * Returns 0; or -1 when it is null or workers are alive.
 */
int threadpool_free(ThreadPool *pool);

/* The thread of a worker. Returns null when the pool is shut down, or `pool` is null. */
void *threadpool_worker(void *pool);

typedef struct ThreadLimit {
  pthread_mutex_t lock;
  int current; /* 0 at first */
  int maximum;
} ThreadLimit;

/*
 * A counter from 0 to `maximum` that starts and stops nothing itself: raise it before a thread is started, lower it
 * when the thread ends. With a maximum of 0 or less it cannot be raised.
 *
 * Returns the counter, which ends with threadlimit_free; or null when memory is short.
 */
ThreadLimit *threadlimit_init(int maximum);

/* Raises the counter: 0; or -2 when it stands at its maximum, the lock fails or `limit` is null. Waits for no room. */
int threadlimit_inc(ThreadLimit *limit);

/* Lowers the counter: 0; or -2 when it stands at 0, the lock fails or `limit` is null. */
int threadlimit_dec(ThreadLimit *limit);

/* Frees the counter, whatever it stands at, as soon as nobody holds its lock: 0; or -2 when it is null. */
int threadlimit_free(ThreadLimit *limit);

/* ------------------------------------------------------------------------------------------------------------------
 * Tracked memory
 * ------------------------------------------------------------------------------------------------------------------
 * Allocations that a program can list, for finding what it does not give back: up to 256 live blocks, each zeroed, with
 * its size and a flag of the caller's, in one pool for the process.
 *
 * The pool lives from xmem_init until xfree frees its last block; then xmem_init makes the next. Any thread may call
 * the functions at any time, save xprint. They hold the pool's semaphore while they work, "pintakrel_mem" in its
 * traces: other processes that use the same key wait meanwhile, and a key of one's own spares them that. When it cannot
 * be taken or given back, downdown and upup say so and the work is done all the same. Nothing else is traced. A child
 * of fork(2) shares the semaphore, and its xfree of the last block deletes it for the parent too.
 *
 * A search of the table takes at most 256 steps.
 */

/* The pool. The functions keep it to themselves; it is here for debuggers. */
typedef struct XmemPool {
  int32_t semid;    /* of sem_create; -1 when it could not be had */
  list_node blocks; /* live records (XmemRecord.node), the newest first */
} XmemPool;

/* One of the 256 places of the table. */
typedef struct XmemRecord {
  void *ptr;        /* the block; null: the record is free */
  uint32_t size;    /* bytes; of one element for xcalloc */
  uint32_t members; /* elements: 1, or the count of xcalloc */
  uint32_t flag;    /* the caller's */
  list_node node;   /* in XmemPool.blocks while the block is live */
} XmemRecord;

/* Trace group of the module, 3 at first. For its callers; the library never reads it. */
extern int G_nTraceGroupVEMTA_MEM;

/*
 * Makes the pool, and with sem_create the semaphore of the key `semkey`, which that sets free: call it at start-up.
 *
 * Returns 0; -1 when memory runs out; -1 when the semaphore cannot be had (traced by sem_create): there is a pool then
 * and it hands out blocks, with every taking of its semaphore reported as failed, until another xmem_init succeeds; -1,
 * with nothing changed, when there is a pool with a semaphore already.
 */
int xmem_init(int semkey);

/*
 * A zeroed block of `size` bytes, to be given back with xfree and never with free.
 *
 *   flag  kept with the block for xprint
 *
 * Returns null when the size is 0, there is no pool, 256 blocks are live, or memory runs out.
 */
void *xmalloc(uint32_t size, uint32_t flag);

/*
 * A zeroed block of `count` elements of `size` bytes. Null as xmalloc, also when the count is 0 or the product is more
 * than can be addressed.
 */
void *xcalloc(uint32_t count, uint32_t size, uint32_t flag);

/*
 * Frees a block and returns a new one of `size` bytes in its record, ZEROED: nothing of the old contents is carried
 * over. Size and flag are the new ones, and the block keeps its place in the order of xprint.
 *
 * Returns null, with the block left alone, when the size is 0, there is no pool, or `block` is null or not tracked.
 * Also returns null when memory runs out: then the old block is freed and its record with it. That does not end the
 * pool, even when it was the last.
 */
void *xrealloc(void *block, uint32_t size, uint32_t flag);

/*
 * Frees a block of xmalloc, xcalloc or xrealloc; with null, EVERY live block. A block that is not tracked is left
 * alone.
 *
 * When no block is live afterwards (also when none was before) the pool ends: the semaphore is deleted, so that other
 * processes that use it fail from then on, and every function here returns null until xmem_init. Does nothing without a
 * pool.
 */
void xfree(void *block);

/*
 * Prints every live block on standard output, the newest first: a line of 51 asterisks, number from 0, address, flag,
 * size and members, and the bytes of each member in hexadecimal, eight to a line. Prints "POOL EMPTY\n" when there is
 * none. Takes no lock: no other thread may use the pool meanwhile.
 */
void xprint(void);

/* ------------------------------------------------------------------------------------------------------------------
 * Configuration files
 * ------------------------------------------------------------------------------------------------------------------
 * Reads a text file of KEY = VALUE lines into a table of the keys that the caller expects. How a file is read:
 *
 * - White space before and after the key and before the value is left out, and so is white space at the end of a line.
 *   A last line without a newline keeps its white space at the end.
 * - The key ends at the first "="; the value is the rest of the line, with any further "=", and may be empty. There are
 *   no quotes and no escapes. A key is compared whole and with regard to case. "=value" has the empty key.
 * - Empty lines and lines that begin with "#" are ignored; "#" elsewhere is text.
 * - A carriage return is white space, so files with CRLF lines read alike.
 * - Of a line longer than 1022 bytes, the first 1023 are one line, white space at its end kept, and what follows is a
 *   line of its own, with the next number. A zero byte ends the text of its line.
 *
 * White space is what isspace(3) says in the process's locale. Nothing is traced. Any thread, on tables of its own.
 */

typedef struct CfgEntry {
  uint32_t tag;    /* the caller's own; not looked at */
  const char *key; /* the caller's; a row whose key is null is never found */
  char *value;     /* null, or from malloc; the library's, until cfg_destory frees it */
} CfgEntry;

/*
 * Reads the file `path` into the `rows` rows of `table`. Of rows with the same key the first is set; when a key comes
 * again, in the file or in another one read into the same table, the later value replaces the earlier, which is freed.
 * Rows whose key does not come stay as they are.
 *
 * Goes on to the end of the file whatever it meets, and says:
 *   on standard error   "parsing error file, line %d : %s\n" with the line's number, counted from 1, and for a line
 *                       without "=" its text, for an unknown key the key
 *   on standard output  "[cfg_parse_file::131] cannot alloc memory\n" when memory runs out for a value; the row stays
 *                       as it was, and the result does not tell
 *
 * Returns
 *   0  read; lines without "=" do not count
 *   1  `path` is null
 *   3  the file cannot be opened (a directory can, and is empty; so is what cannot be read)
 *   4  `table` is null
 *   5  read, and at least one key was not in the table
 */
int cfg_construct(const char *path, CfgEntry *table, int rows);

/*
 * The same from an open stream, from where it stands to its end; it stays open. Returns 0 or 5 likewise, 4 for a null
 * `table` and 3 for a null `file`.
 */
int cfg_parse_file(FILE *file, CfgEntry *table, int rows);

/* Frees the values of a table and sets them to null. Returns 0, also for a null table. */
int cfg_destory(CfgEntry *table, int rows);

/* ------------------------------------------------------------------------------------------------------------------
 * Storage and load
 * ------------------------------------------------------------------------------------------------------------------
 * Flash (MTD) partitions by name, size and free space of file systems, CPU load.
 */

/* What is asked about a flash partition, and what is written for it. */
enum {
  MTD_QUERY_ALL = 0,        /* an mtd_query, 104 bytes */
  MTD_QUERY_DEV = 1,        /* text "/dev/mtdN" */
  MTD_QUERY_BLOCK_DEV = 2,  /* text "/dev/mtdblockN" */
  MTD_QUERY_NAME = 3,       /* text "mtdN" */
  MTD_QUERY_BLOCK_NAME = 4, /* text "mtdblockN" */
  MTD_QUERY_NUM = 5,        /* uint32_t: N */
  MTD_QUERY_SIZE = 6        /* uint32_t: size in bytes */
};

typedef struct mtd_query {
  char dev[32];        /* "/dev/mtdN" */
  char block_dev[32];  /* "/dev/mtdblockN" */
  char name[16];       /* "mtdN" */
  char block_name[16]; /* "mtdblockN", cut to 15 characters for numbers above 9999999 */
  uint32_t num;        /* N */
  uint32_t size;       /* bytes */
} mtd_query;

/* The kernel's record of a partition; <mtd/mtd-user.h> declares it. */
struct mtd_info_user;

/*
 * Finds the number of a partition with "cat /proc/mtd | grep NAME | awk '{printf substr($1,4,1)}'" (_system_read, which
 * see for what happens besides).
 *
 *   name  a pattern of grep and a word of the shell, as it stands: never text that was not checked
 *   num   receives the number
 *
 * The command takes ONE digit of every line in which the name occurs anywhere. So partitions 10 and above are not found
 * by their number (12 reads as 1); a name that is part of another's also finds that one, and the digits of all matches
 * run together into one number (partitions 2 and 5 give 25); at most 15 of them are read, and a number above 2147483647
 * reads as that one. Choose names of which none contains another. To ask for the exact name, its quotes included, pass
 * the pattern with its shell quotes: "'\"kernel\"'".
 *
 * What cat and grep complain of goes to standard error.
 *
 * Returns 1; 0, with `num` left alone, when nothing was found, the command cannot be run (one too long to run is traced
 * by _system_read), an argument is null, or what was found has no digit: then traces "string(%s) to digital error!!\n".
 */
int parseMtdNumByCmd(const char *name, uint32_t *num);

/*
 * Asks the kernel about the partition `*num`: opens "/dev/mtdN" for reading and writing and closes it again.
 *
 * Returns 1 with `info` filled; or 0, printing on standard output "open mtd device fail!! reason:%s\n" or "ioctl
 * error!! fd:%d, reason:%s\n". The reason is always the C library's text for error number -1. A null argument gives 0
 * and prints nothing.
 */
int getMtdInfo(const uint32_t *num, struct mtd_info_user *info);

/*
 * Writes one item about a partition to `out`.
 *
 *   info  from getMtdInfo; its size is all that is used
 *   size  for texts: the longest that is taken, WITHOUT its terminator, so that `out` needs `size` + 1 bytes. It is not
 *         looked at for the other kinds: `out` has room for an mtd_query or a uint32_t, in any alignment
 *   kind  MTD_QUERY_*
 *   num   the partition's number
 *
 * Returns 1; or 0 with `out` left alone: for a longer text, traces "over size!! querySize:%d > outputSize:%d" with both
 * lengths and NO newline; for another kind, "none case!!\n". A null argument gives 0 without a trace.
 */
int setQueryMtdInfo(const struct mtd_info_user *info, void *out, uint32_t size, uint32_t kind, const uint32_t *num);

/*
 * All three in one: the number of the partition `name`, the kernel's record, one item of it to `out`. `size` and `kind`
 * as setQueryMtdInfo takes them; the device is opened for every kind.
 *
 * Returns 1; or 0, after what the failed step says itself, tracing "Null Input\n" (null `name` or `out`), "Parse mtd
 * device name fail!!\n" or "query mtd info fail!!\n"; nothing of its own when getMtdInfo fails.
 */
int getMtdInfoByName(const char *name, void *out, uint32_t size, uint32_t kind);

/* One entry of a directory, and the file system that it is on. */
typedef struct disk_info {
  char path[512]; /* "DIR/NAME", cut to 511 characters */
  char name[256]; /* name of the entry */
  uint64_t total; /* size, bytes */
  uint64_t free;  /* free space, bytes, with what is kept back for the superuser */
  list_node list; /* in the caller's list */
} disk_info;

/*
 * Appends a record to `list` for every entry of the directory `dir` whose name does not begin with ".", in the order in
 * which the directory gives them. An entry on which nothing is mounted tells about the file system that it is on. What
 * is in the list already stays: free it between two scans.
 *
 * Traces "Cannot statvfs %s\n" with the path, and leaves the entry out, when its file system cannot be asked (a
 * dangling symbolic link); paths are cut to 1023 characters. An entry for which memory runs out is left out without a
 * word.
 *
 * Returns 0; also when reading the directory fails half-way, which traces "Error occuried when readdir_r (%d)\n" with
 * the error number. Returns 1, tracing "dir_path is null\n", "list head is null\n" or "Cannot open dir: %s\n". Any
 * thread, on a list of its own.
 */
int vemta_get_disk_info(const char *dir, list_node *list);

/* Unlinks and frees every record of `list`, which is empty then. Null is ignored. */
void vemta_free_disk_info(list_node *list);

/* The first line of "/proc/stat": time that all CPUs have spent since start-up, in clock ticks. */
typedef struct cpu_sample {
  uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
} cpu_sample;

/*
 * The counters as they are now, to be released with free; those that the kernel does not tell are 0.
 *
 * Returns null when "/proc/stat" cannot be opened or read, memory runs out, or its first line does not contain "cpu".
 * When it opened but could not be read, or had no "cpu", the file STAYS OPEN: a program that gets null again and again
 * runs out of descriptors. Any thread.
 */
cpu_sample *cpu_utility_get_stat(void);

/*
 * The share of the time between two samples in which the CPUs were not idle, in percent: 0 to 100. Waiting for devices
 * (iowait) counts as load. Samples without a tick between them give NaN. The differences are unsigned: a counter that
 * stepped back gives a huge negative number, and samples in the wrong order are not noticed. Returns -1.0 when one is
 * null. Any thread.
 */
float cpu_utility_calculate(const cpu_sample *prev, const cpu_sample *cur);

/* ------------------------------------------------------------------------------------------------------------------
 * Word tables
 * ------------------------------------------------------------------------------------------------------------------
 * Texts by number from a file of lines "NUMBER[m]=TEXT" (kind 0) and "NUMBER[d]=TEXT" (kind 1), for example
 * "12[m]=Save". Lines that begin with a newline, a blank, ";" or "#" are skipped; every other line must have "=", a
 * lone carriage return included. The text is all after the first "=", without the newline at its end (a carriage return
 * stays); it may be empty. Lines have at most 4094 characters: of a longer one, each 4095 bytes are taken for a line of
 * their own. A zero byte ends the text of its line.
 *
 * A process has one file, opened by the first lookup and kept open. Not for several threads at once. A lookup reads the
 * file from its start. All messages go to standard output; nothing is traced.
 */

/*
 * The open file; null until the first lookup. After a malformed line or close_fp it keeps the handle that was closed,
 * which nothing may read, write or close; the library does not, and every later lookup gives 0. A program that wants to
 * start over, with this or another file, sets it to null; so does a child of fork(2), which shares its place in the
 * file with the parent.
 */
extern FILE *str_fp;

/*
 * Copies the text of a number to `dst`.
 *
 *   path  the file; it is opened when no lookup has opened one before, and otherwise only must be there and not empty
 *   kind  0 for "[m]", 1 for "[d]"; any other value looks up the empty key, a line "=TEXT"
 *   size  bytes of `dst`; a longer text is cut to `size` - 1 characters, and terminated. With 0 or less nothing is
 *         written
 *
 * Of lines with the same key the first counts. `dst` is left alone unless a text was found.
 *
 * Returns the text's whole length in bytes, however much of it fitted, or 0 when it was not found; or, with a message
 * printed, the message's length, which cannot be told from that of a text:
 *   "Unknown file name (%s).\n"         `path` is null ("(null)") or empty
 *   "buf is NULL\n"                     `dst` is null
 *   "Cannot open string file (%s)\n"    the file cannot be opened; the next lookup tries again
 *   "Parsing failed at line: %d \n"     a line without "=" came before the wanted one; lines are counted from 1. The
 *                                       file is closed, and this and every later lookup has failed (see str_fp)
 * So zero `dst` first, and take an empty text for not found.
 */
int get_words(const char *path, int num, int kind, char *dst, int size);

/* As get_words, but prints the text on standard output, without a newline, and returns how many bytes that were. */
int show_words(const char *path, int num, int kind);

/* Closes the file when it is open; str_fp keeps its value. */
void close_fp(void);

/* malloc(3) and realloc(3). */
void *j_malloc(size_t size);
void *j_realloc(void *block, size_t size);

/* ------------------------------------------------------------------------------------------------------------------
 * CGI requests
 * ------------------------------------------------------------------------------------------------------------------
 * What a handler does with a request: query strings and form bodies split into entries, handlers found by name, percent
 * and base64 coding, and paths that stay below their root. Nothing here traces or keeps state: any thread, on data of
 * its own. Times are linear in the lengths of the texts.
 *
 * Decoding makes text; it makes no text safe. Decoded values may hold any byte, control characters and quotes included:
 * check or escape them for where they go (a page: j_html_enc, a command: hasInjectionString, a file: rm_dotdot).
 */

/*
 * One name and its value. Both are cut to what is stored of them: 64 and 512 characters. The splitting functions write
 * no terminators, so set the whole array to zero first; then both are terminated texts.
 */
typedef struct cgi_entry {
  char name[65];
  char value[519];
} cgi_entry;

/* A handler by its name. A table ends with a row whose `func` is null, or whose name is null or "unknow". */
typedef struct cgi_handler {
  const char *name;
  void *(*func)(void *);
} cgi_handler;

/*
 * Characters that have to be percent-coded in a URI (29, no terminator), and at the same index the two hexadecimal
 * digits of each. For programs that code by themselves; nothing in the library reads them, and encodeURIComponent
 * leaves five of them alone.
 */
extern const char encoding_char[29];
extern const char *const encoding_code[29];

/*
 * Splits "name=value&name=value" into entries and decodes the values.
 *
 *   entries   `capacity` records, zeroed by the caller
 *   len       bytes of `data`, which needs no terminator; 0 or less is an empty text
 *
 * "=" begins the value and "&" the next entry. A second "=" in an entry begins the value again, over what is there:
 * "a=12345=xy" gives "xy345". Names are not decoded. What is longer than a field is dropped without a word, so what was
 * coded may be cut in the middle of a "%XX". Values are decoded after they are cut:
 *
 *   +              a blank
 *   %XX            0 to 7 as first digit: that byte. c or d, e, f: a character of two, three or four bytes, whose other
 *                  bytes follow as "%XX" each, where the "%" itself is not looked at. When one of these is missing, and
 *                  for 8, 9, a or b as first digit, the three characters "%XX" give nothing
 *   % at the end   dropped, also with one character after it (then that one is kept); but when there is nothing else to
 *                  decode in it, the whole value stays as it is, "%" included
 *
 * Digits are not checked: other characters than digits make some byte, or nothing where their code is that of "8" or
 * above and they are none of c to f. "%00" makes a zero byte, at which the value ends for whoever reads it as text.
 *
 * Returns the number of entries, at least 1: an empty text makes one empty entry. When bytes are left after `capacity`
 * entries, prints "[bug on], index=%d, max_entries=%d\n" (twice the capacity) on standard output, and returns the
 * capacity WITHOUT having decoded anything. In a CGI program that line goes into the response: count first (num_delim
 * with "&", on text without zero bytes). 0 when `entries` is null, `data` is null and `len` above 0, or the
 * capacity is 0 or less.
 */
int data_2_entries(cgi_entry *entries, int capacity, int len, const char *data);

/*
 * Splits "name:value,name:value" (login data) into entries, as data_2_entries with ":" and "," for "=" and "&", but
 * decodes nothing and knows no capacity.
 *
 *   entries   zeroed by the caller, AT LEAST ONE MORE than there are commas in `data`: count them first
 *
 * Returns the number of entries, which is the number of commas plus one; 0 when `entries` is null, or `data` is null
 * and `len` above 0.
 */
int data_2_authinfo(cgi_entry *entries, int len, const char *data);

/* The first of `count` entries with exactly this name; null when there is none, or for a null array or name. */
cgi_entry *get_entry_by_name(cgi_entry *entries, int count, const char *name);

/* The value of that entry, in the array; null when there is none. */
char *get_entry_value_by_name(cgi_entry *entries, int count, const char *name);

/*
 * A copy of a value straight from a query string: of what stands between one character after the first place where
 * `name` occurs ANYWHERE in the query, and the next "&" or the end. The name "id" is also found in "uid=7" and in
 * "x=idle", and the one character passed over need not be a "=". Not decoded. Prefer data_2_entries for what comes
 * from outside.
 *
 * Returns text that the caller frees (free); empty when the query ends with the name. Null when the name does not
 * occur, either argument is null, or there is no memory.
 */
char *get_entry_value(const char *query, const char *name);

/*
 * Prints entries on standard output: the line "============= dump entries =================", "name=%16s, val=%s\n" for
 * each, and a line of 44 "=". Not into a page: nothing is escaped. Null prints nothing.
 */
void dump_entries(const cgi_entry *entries, int count);

/*
 * Finds a handler by its exact name. Returns the ADDRESS of the `func` field of the first row that has it, to be called
 * through; null when no row before the end of the table has it, or for a null table or name.
 *
 *   void *(**handler)(void *) = (void *(**)(void *))get_cgi_func_ptr(table, name);
 *   if (handler)
 *     (*handler)(request);
 */
void *get_cgi_func_ptr(const cgi_handler *table, const char *name);

/*
 * Percent-codes every byte of `text` but ASCII letters, digits and - _ . ~ ! * ( ) '. Bytes above 7f are coded with
 * capital digits ("%C3"), ASCII characters with small ones ("%2f").
 *
 * Returns text that the caller frees (free); null for null or when there is no memory (it takes four times the length).
 */
char *encodeURIComponent(const char *text);

/*
 * Decodes percent-coded text. Not as values of entries are decoded:
 *
 *   +      stays
 *   %XX    is decoded only when both are hexadecimal digits (either case); any other "%" stays, as do the characters
 *          after it. 0 to 7 as first digit: that byte. c or d, e, f: a character of two, three or four bytes, whose
 *          other bytes are taken from the second and third of each three characters that follow, whatever these are.
 *          When the text ends before they are all there, and for 8, 9, a or b as first digit, the three characters
 *          "%XX" become a single "%"
 *
 * A zero byte ends the character that it is part of, and leaves nothing of itself: "a%00b" gives "ab". What
 * encodeURIComponent made of UTF-8 comes back as it was; other bytes above 7f may not.
 *
 * Returns text that the caller frees (free); null for null or when there is no memory.
 */
char *decodeURIComponent(const char *text);

/*
 * Base64 in the standard alphabet, padded with "=", without line breaks.
 *
 *   len    in: bytes of `data`; 0 takes it for a text and stores its length here. So 0 bytes can be coded only as ""
 *   data   any bytes
 *
 * Returns text that the caller frees (free); null when either pointer is null, the text of a 0 is longer than 4 GiB, or
 * there is no memory for the result.
 */
char *encode_base64(unsigned *len, const void *data);

/*
 * Cleans a path in place: runs of "/" become one, "." segments go where a "/" follows them, and every ".." segment
 * that a "/" follows goes together with the segment before it. Where there is none before it, it goes alone, and so
 * does the root: "/../x" becomes "x", a RELATIVE path. A ".." at the end takes its segment and the "/" before that
 * along: "/a/b/.." becomes "/a". Purely text: links in the file system are not looked at.
 *
 * Returns 1 when a ".." at the end has no "/" before its segment; the path still ends in "/.." then. Also 1, with
 * nothing wrong, for every result of one character ("/" as well as "a"), because results shorter than 4 bytes return
 * their length: 0 to 3. Otherwise another number that is not 0. Null gives 1.
 *
 * What callers may rely on: after any other result than 1 the path holds no ".." segment, with the exception of the two
 * whole paths ".." (returned 2) and "/.." (returned 3), which only a comparison tells from harmless ones. To keep
 * requests below a root, refuse 1 and these two, and join the rest to the root with a "/" of your own.
 */
int rm_dotdot(char *path);

/* ------------------------------------------------------------------------------------------------------------------
 * CGI responses
 * ------------------------------------------------------------------------------------------------------------------
 * Text on its way to the browser, in buffers of the caller: nothing here allocates, prints or keeps state. `size` is
 * always the whole size of `dst` in bytes; source and destination do not overlap. Times are linear. Any thread.
 */

/*
 * Escapes text for HTML and XML, attribute values in quotes included: < > & " ' become &lt; &gt; &amp; &quot; &apos;.
 *
 *   dst    zeroed by the caller: plain characters are written without a terminator, entities with one
 *   size   six times the length of the text plus one is always enough
 *
 * Before each character it stops if `size` - 1 bytes are written. An entity that does not fit whole is cut and
 * terminated, and nothing is written after it: with too little room the result may end in half an entity ("&am").
 * Never writes past `size`.
 *
 * Returns 0, also when the text was cut; 1, with nothing written, when a pointer is null or `size` is below 1.
 */
int j_html_enc(const char *src, char *dst, int size);

/*
 * The other way: &lt; &gt; &amp; &quot; &apos; become the characters they stand for, once (&amp;lt; becomes &lt;).
 * Other entities and a lone & are copied. Writes at most `size` - 1 characters.
 *
 *   dst    zeroed by the caller: no terminator is written; the first four bytes (of a smaller buffer, all) are zeroed
 *          here
 *
 * Returns 0, also when the text was cut; 1, with nothing written, when a pointer is null or `size` is below 1.
 */
int j_html_dec(const char *src, char *dst, int size);

/*
 * Builds "<?xml version="1.0"?><root><tag>value</tag>...</root>" in one buffer over several calls.
 *
 *   buf     the text so far; `size` bytes. It needs nothing before the first call
 *   tag     element name; written as it is
 *   value   its text; written as it is, so escape it first (j_html_enc). When either is null, no element is added
 *   mode    0 the first call (starts the text), 2 the last (ends it with "</root>"), 1 in between. One element alone
 *           takes two calls: one of them with a null tag
 *
 * When the element is exactly one byte too long, its terminator's, traces "buffer overflow.\n" and leaves the text as
 * it was, without its end when this was the last call. A longer one is cut to the room instead, in silence. When the
 * end has no room, traces "buffer overflow.\n" and leaves it out. So a document that does not end in "</root>" is
 * broken: look before sending it. A buffer whose text is already as long as `size`, without a terminator, is left
 * alone. A null buffer traces "Null point, buf=%p, tag=%p, val=%p\n".
 */
void gen_xml(char *buf, int size, const char *tag, const char *value, int mode);

/*
 * Writes the page that sends the browser elsewhere: "<script>location.replace('%s');</script>" with the URL. Sets all
 * of `dst` to zero first; a script that does not fit is cut and terminated.
 *
 * A URL that holds a single quote or "</script>" (in small letters) is refused, as are null pointers and a size below
 * 1: then `dst` stays as it was. Nothing else is screened. Backslashes, newlines, "</SCRIPT>", "<!--" and the URL
 * scheme "javascript:" pass; check a URL that came from outside for what it should be.
 */
void redirect_page(const char *url, char *dst, int size);

/*
 * The same with the login cookie set on the way: "<script>\tdocument.cookie = 'hasLogin=1';\tlocation.replace('%s');
 * </script>" in one line. The URL is NOT screened: pass one of your own. Null pointers and a size below 1 change
 * nothing.
 */
void redirect_index_page(const char *url, char *dst, int size);

/*
 * To the page that counts down: "<script>location.replace('countdown.asp?page=%s&count=%d');</script>".
 *
 *   page    what to show after that; NOT screened and not percent-coded: pass one of your own
 *   count   seconds
 *
 * Null pointers and a size below 1 change nothing; else all of `dst` is set to zero first, and the script cut to it.
 */
void redirect_to_countdown_page(const char *page, char *dst, int size, int count);

/* ------------------------------------------------------------------------------------------------------------------
 * XML
 * ------------------------------------------------------------------------------------------------------------------
 * Documents built in memory and printed to a stream or a heap buffer; documents that a program writes itself and takes
 * as a buffer; and a search for the value of an element in any XML text. There is no parser.
 *
 *   xml_doc *doc = xmlNewDoc();
 *   doc->root = xmlNewNode("wancfg");
 *   xml_node *ifname = xmlAddChild(doc->root, xmlNewNode("ifname"));
 *   xmlAddText(ifname, xmlNewText("abcd"));
 *   xmlAddAttr(ifname, "id", "atm0");
 *   char *text = xmlPrepareBuf(doc);
 *   xmlFreeDoc(doc);
 *   char value[64] = "";
 *   get_element_value(text, value, sizeof(value) - 1, "wancfg/ifname");   // "<![CDATA[]]><![CDATA[abcd]]>"
 *   xmlFreeBuf(text);
 *
 * Texts, names and values are copied in. The tree owns its strings and every record linked into it; xmlFreeDoc frees
 * all of it. Lack of memory gives null (xmlAddAttr: no change) and is reported nowhere; the functions that take a node,
 * a text or a document take null for one and do nothing, so a chain of calls needs no test in between, but what could
 * not be linked then stays the caller's.
 *
 * The printed form. `<?xml version="1.0"?>`, a newline, and for each element of the root's chain its block:
 *
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[TEXT]]></NAME>       an element with text, or TEXT empty without
 *   <NAME ATTR="VALUE"...><![CDATA[]]><![CDATA[                     an element with children: their blocks, one
 *           ...                                                     tab deeper, and the end in a line of its own
 *   ]]></NAME>                                                      at the depth of the start
 *
 * A block ends with a newline and is indented with one tab for each level (tabCnt). Names and values are written as
 * they stand: quotes, "&" and angle brackets in them are the caller's business. In TEXT each "]]>" is written as
 * "]]]]><![CDATA[>", and nothing else is changed.
 *
 * Who can read it. get_element_value can, whatever the depth, as long as no text or value holds what looks like a tag
 * that is asked for, and no value a ">". It returns the markers with the content: strip the 21 characters
 * "<![CDATA[]]><![CDATA[" at its start and the 3 characters "]]>" at its end, and turn "]]]]><![CDATA[>" back into
 * "]]>". A parser of XML reads a document whose root has no children and no sibling, as long as names are XML names,
 * attributes have different names, values hold none of & < ", and texts are UTF-8 without control characters (other
 * than tab, newline and carriage return); it then finds the text as it was given, save that a carriage return, with or
 * without a newline behind it, comes as a newline. NO document in which an element has children is well-formed: the
 * children's start tags stand inside their parent's CDATA section, and their end tags outside. Nor is a document
 * without a root, or with a root that has siblings.
 *
 * Printing changes the tree: a text that held "]]>" is replaced by its escaped form, which the element owns from then
 * on and which holds as many "]]>" again. A second print, and xmlPrepareBuf is one, escapes it once more, and a reader
 * then finds the escaped form instead of the text. So print a document with such texts once, or give it the text again
 * (freeing the old record with its string) before the next time.
 *
 * While it prints, for every text that is not empty the printer writes "cnt = %d\n" with the number of "]]>" in it to
 * standard output, wherever the document itself goes, and when that is standard output too, in the middle of it: right
 * before the text. A CGI handler, whose standard output is the response, must send it elsewhere while it prints.
 *
 * Names. xmlNewDoc, xmlNewNode, xmlNewText, xmlAddChild and xmlFreeDoc are functions of libxml2 too, others altogether:
 * no source file can include both headers, and in a program that loads both libraries each name is that of the one
 * linked first. Keep them in different programs.
 *
 * Threads. tabCnt has no lock: print from one thread at a time. One tree is used by one thread at a time. The lookup
 * functions may be called from any thread. Printing and freeing use stack for each level of depth.
 */
typedef struct xml_text {
  char *text; /* from malloc */
} xml_text;

typedef struct xml_attr {
  char *name;  /* from malloc */
  char *value; /* from malloc */
  struct xml_attr *next;
} xml_attr;

typedef struct xml_node {
  char *name;                /* from malloc */
  xml_text *text;            /* or null */
  xml_attr *attrs;           /* first attribute */
  xml_attr *attrs_tail;      /* last attribute */
  struct xml_node *children; /* first child */
  struct xml_node *next;     /* next sibling */
  struct xml_node *last;     /* in a first child: the last of its siblings; elsewhere of no meaning */
} xml_node;

typedef struct xml_doc {
  const char *version; /* "1.0", a constant: never freed */
  xml_node *root;      /* null at first; the caller assigns it */
} xml_doc;

typedef struct xml_doc_file {
  const char *version; /* "1.0", a constant */
  FILE *fp;            /* where the caller writes; null when there is no file (any more) */
} xml_doc_file;

/* Depth at which the next element is printed, in tabs: 0 at the start, and again after each complete print. */
extern int tabCnt;

/* A new document without a root; null when there is no memory. The caller's, until xmlFreeDoc. */
xml_doc *xmlNewDoc(void);

/* A new element; null for a null or empty name, or without memory. The caller's, until it is linked. */
xml_node *xmlNewNode(const char *name);

/* A new text; null for a null text (an empty one is a text), or without memory. The caller's, until xmlAddText. */
xml_text *xmlNewText(const char *text);

/*
 * Makes `text` the element's text. One that was there before is forgotten and not freed: set a text once, or free the
 * old record and its string first. An element that has children keeps them, and prints only them.
 */
void xmlAddText(xml_node *node, xml_text *text);

/*
 * Appends an attribute with copies of name and value. The order of calls is the order of output, and a name given twice
 * is written twice. A null argument, or no memory for any part of it, changes nothing.
 */
void xmlAddAttr(xml_node *node, const char *name, const char *value);

/*
 * Appends `child`, a single element that is linked nowhere else, to the children of `parent`, in constant time.
 *
 * Returns `child`; or null, nothing linked and the child still the caller's, when either is null or the parent has a
 * text: an element holds text or children, and a text cannot be followed by children.
 */
xml_node *xmlAddChild(xml_node *parent, xml_node *child);

/* Writes `count` tabs, none for 0 and less, to `stream`, or to standard output when it is null. */
void printTabs(FILE *stream, int count);

/*
 * Prints the document, or its first line alone when it has no root, to `stream`, or to standard output when it is null.
 * The stream stays open and unflushed; whether all was written the caller asks it (ferror, fflush). A null document
 * prints nothing. Changes texts and writes to standard output as told above; when there is no memory for the escaped
 * form of a text, the output is the same and the text stays as it was.
 */
void printfXmlDoc(FILE *stream, const xml_doc *doc);

/*
 * Prints the document into a buffer, by way of the file "/var/xml_SECONDS" with the time of day in whole seconds, which
 * is made or emptied, read back and removed. Two calls in one second, of any threads or processes, use the same file:
 * hold a lock around it where that can be.
 *
 * Returns the document with a terminator, to be freed with xmlFreeBuf; or null
 *   - for a null document, or when the file cannot be opened;
 *   - when it cannot be written whole (a full /var); the file is removed;
 *   - without memory for the buffer; then the file stays on disk, and open: one descriptor is lost.
 */
char *xmlPrepareBuf(const xml_doc *doc);

/* Frees a buffer of xmlPrepareBuf or xmlFileToBuf; null is ignored. */
void xmlFreeBuf(char *buf);

/* Frees the document and all that is linked into it; null is ignored. */
void xmlFreeDoc(xml_doc *doc);

/*
 * A document that the caller writes as text: a temporary file (tmpfile(3), without a name; it is closed on exec),
 * into which `<?xml version="1.0"?>`, a newline, "<root>" and a newline have been written. The caller writes its
 * elements to `fp`, then calls xmlFileToBuf.
 *
 * Returns the record, with a null `fp` when the file cannot be made; null without memory for it. To be freed with
 * xmlFreeDocFile.
 */
xml_doc_file *xmlNewDocFile(void);

/*
 * Frees the record and not its file: a document that is given up without (a successful) xmlFileToBuf needs its `fp`
 * closed first. Null is ignored.
 */
void xmlFreeDocFile(xml_doc_file *doc);

/*
 * Ends the document with "</root>", without a newline, and reads it into a buffer.
 *
 *   len  receives the length in bytes, without the terminator
 *
 * Returns the buffer, to be freed with xmlFreeBuf; the file is closed and `fp` null from then on. Or null, with `*len`
 * as it was and the file still open: when the file could not be written whole, or without memory; and, with nothing
 * done, when an argument or `fp` is null. A second attempt would end the document twice.
 */
char *xmlFileToBuf(xml_doc_file *doc, unsigned *len);

/*
 * An example that runs: builds a small document, prints it to "output.txt" in the working directory and to a buffer,
 * and prints "buf=%s\n" with that to standard output, after the four "cnt = 0\n" of the two prints. Returns 0; or 1
 * when the file cannot be opened, or there is no buffer: then it prints "internal error in xmlPrepareBuf.\n" instead.
 */
int xml_test_main(void);

/*
 * The content of the first element `name` in an XML text. A plain search: attributes, comments, CDATA and nesting mean
 * nothing to it.
 *
 *   text  needs no root and no declaration
 *   dest  `size` bytes, all zeroed first. The content is copied as it stands, nested tags and markers included, and cut
 *         at `size` bytes. NO TERMINATOR is written after a content of `size` bytes or more: pass a size that is one
 *         less than that of a zeroed buffer. A size of 0 or less stores nothing
 *   name  up to 509 bytes; more are not looked at in the end tag, and more than 510 not in the start tag
 *
 * The start tag is "<" and the name, followed by a blank, "/" or ">" (a tab or newline there is not recognised). At the
 * first place in the text where "<" and the name stand, be it the start of a longer name, case does not matter; at all
 * later ones it does. The tag ends with the first ">", also one inside a value; if "/" stands before that, the element
 * is empty. The content reaches to the first "</" with the name in the same case, also one of a nested element or of a
 * longer name ("</ifname>" ends "if").
 *
 * So: `if` in "<ifname>x</ifname><if>y</if>" gives "y"; `name` in "<Name>v</Name>" is not found, as its end has another
 * case; `<name/>` and `<name attr="1"/>` are found, with nothing in `dest`.
 *
 * Returns 1 when it was found. Returns 0, with `dest` zeroed, when there is no such element, its start tag does not end
 * before the text does, or it has no end tag; and 0, with `dest` as it was, for a null argument.
 */
int _get_element_value(const char *text, char *dest, int size, const char *name);

/*
 * The content of the element at a path of names with "/" between them, as _get_element_value: "wancfg/ifname" is the
 * first `ifname` in the content of the first `wancfg`. There is no way back: when that `wancfg` has none, the second is
 * not tried. A "/" at the end is ignored; one at the start, or two in a row, find nothing in well-formed text.
 *
 * Returns 1 when every element was found. Returns 0, tracing nothing, when one was not (`dest` is zeroed if it was the
 * last one, and else as it was) or an argument is null; and 0, tracing "cannot alloc memory, return error\n", without
 * memory: it takes a copy of the path and, for each "/", one of the content so far, two of them at a time.
 */
int get_element_value(const char *text, char *dest, int size, const char *path);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
