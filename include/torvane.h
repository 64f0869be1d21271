/*
 * libtorvane: what the daemons, command-line tools and CGI handlers of a home router share.
 *
 * The headers are the manual. Each service has one that is complete on its own, and this header includes them all. A
 * program includes <torvane.h>, or only the headers of the services that it uses. The includes at the end of this file
 * are the index.
 *
 * All headers are usable from C99 and C++. Link with -ltorvane; the library itself needs only libc.
 *
 * What holds everywhere
 * ---------------------
 * Results.    Every module has its own result codes, and each function lists its own. Two modules have opposite senses:
 *             the operations on QoS trees (torvane/qos.h) return 0 for success, while those on rules, schedules and
 *             scripts (torvane/qos.h, torvane/rules.h) return 1 for success.
 * Traces.     Where a description says that a function traces a text, the library opens "/dev/console" for appending and
 *             close-on-exec, writes a coloured header (torvane/trace.h) and the text, and closes the console again. It
 *             does so once for each trace. When the console cannot be opened, that line is missing and nothing else
 *             changes. A console that is absent is not made, and a terminal does not become the process's controlling
 *             terminal by being traced to. A trace leaves errno as it was. Texts are quoted as printf formats: "%d"
 *             stands for a number, "%s" for a text, "\n" for a newline.
 *             A trace takes as long as the console does. A serial line whose output is stopped, or a pipe that nobody
 *             reads, holds the thread that traces, and it cannot be cancelled, until the console takes the line; give
 *             such a machine another console. No semaphore is held meanwhile, with two exceptions: addTimer, delTimer
 *             and modTimer once the timer service has ended (torvane/timer.h), and a downdown that is told to trace its
 *             success (torvane/ipc.h).
 * Files.      When the program has closed descriptors 0, 1 or 2, a file that the library writes is moved off them at once.
 *             So what is printed to standard output or standard error does not get into the file. When no other
 *             descriptor is free, the file counts as one that cannot be opened.
 * Ownership.  Blocks that a program passes in are copied, and the program keeps its own. Records that the library makes
 *             (root_qdisc, qos_class, qos_rule, qos_sched) belong to the library: a program may use their pointers
 *             until the record is deleted, and must never free them.
 * Null.       A null interface name names no interface, and code that writes commands writes no name for it. A null
 *             block or buffer makes the operation fail with the result that its description names. Pointers to FILE,
 *             to records and to list heads must be valid. Descriptions name the exceptions to these rules.
 * Threads.    The QoS trees, rules and schedules are global to the process and have no lock: use them from one thread,
 *             or hold a lock of your own around every call. downdown and upup (torvane/ipc.h) are such a lock, and it
 *             works between processes too. Functions that keep no state may be called from any thread. Where calling a
 *             function at any time from any thread is not safe, its description says so.
 * fork.       A thread of the library never holds a lock of the process while it waits for a semaphore, the console or
 *             a socket, except task_enqueue while it prints. So a child that is forked from a program with threads may
 *             use the library. The C library has locks of its own, and a child that is forked while another thread has
 *             one of them waits for it without end: that of the system logger (__syslogprintf), of popen(3)
 *             (_system_read, exec_system), of rand(3) (the random numbers), and of each stdio stream (whatever prints
 *             on standard output or standard error). Traces, __system, downdown and upup, tracked memory, timers,
 *             the interface queries and the XML builders use none of them.
 * Names.      Interface names, MAC texts, domain and URL texts go into shell scripts as they stand. Never pass text
 *             that came from a user without checking it first; torvane/text.h has guards.
 * Byte order. IPv4 addresses in rules are plain numbers with the first octet in the top byte, on every host.
 */
#ifndef TORVANE_H
#define TORVANE_H

/* Programs have always got these with this header. */
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>

/* The services, in the order of their dependencies. */
/* clang-format off */
#include "torvane/list.h"           /* intrusive lists */
#include "torvane/map.h"            /* tables that map ids to values and texts */
#include "torvane/text.h"           /* guards and escapers for text that meets the shell, small text functions */
#include "torvane/process.h"        /* commands through the shell, signals, probes, UUIDs */
#include "torvane/ipc.h"            /* System V shared memory, and the semaphore that is the library's lock */
#include "torvane/trace.h"          /* the console trace: the header of a line, the thread's id */
#include "torvane/event_log.h"      /* event files, messages to the system logger */
#include "torvane/address.h"        /* IPv4 addresses, endpoints, masks and MAC addresses as text */
#include "torvane/interface.h"      /* addresses, flags and names of the kernel's interfaces */
#include "torvane/socket.h"         /* sockets: open, listen, connect, send, receive */
#include "torvane/select.h"         /* the select service: a thread that watches sockets for its handlers */
#include "torvane/monitor.h"        /* the bandwidth monitor: rates and histories of interfaces */
#include "torvane/ipv6.h"           /* IPv6 addresses of interfaces, the gateway, address text */
#include "torvane/dns.h"            /* a DNS client that asks several servers for several names at once */
#include "torvane/timer.h"          /* callbacks at whole seconds of the monotonic clock */
#include "torvane/threadpool.h"     /* workers on a bounded queue; a counter that limits threads */
#include "torvane/memory.h"         /* tracked memory: blocks that a program can list */
#include "torvane/cfg.h"            /* configuration files: keys and values into a declared table */
#include "torvane/flash.h"          /* flash partitions */
#include "torvane/disk.h"           /* size and free space of file systems */
#include "torvane/cpu.h"            /* CPU load */
#include "torvane/words.h"          /* word tables: texts by number from a file */
#include "torvane/cgi_entries.h"    /* CGI requests: form entries, handlers by name */
#include "torvane/cgi_uri.h"        /* percent coding and base64 */
#include "torvane/cgi_path.h"       /* paths that stay below their root */
#include "torvane/cgi_response.h"   /* CGI responses: HTML escaping, flat XML replies, redirects */
#include "torvane/xml.h"            /* XML documents built and printed */
#include "torvane/xml_lookup.h"     /* the value of an element in XML text */
#include "torvane/qos.h"            /* quality of service: trees of queueing disciplines, their scripts and reports */
#include "torvane/rules.h"          /* classification rules and schedules, their scripts and reports */
/* clang-format on */

#endif
