/*
 * Quality of service
 *
 * Every interface has at most one tree: a root queueing discipline, classes under it, and a leaf queueing discipline on
 * every class without children. The tree also owns the interface's classification rules (torvane/rules.h). Building a
 * tree touches nothing but memory; start_qos turns it into a script and applies it.
 *
 *   const uint32_t speeds[4] = {20000, 100000, 100000, 100000};   // kbit/s: link, then physical
 *   const root_params_tree params = {.default_class = 3};
 *   const htb_params voice = {.rate = 2000, .ceil = 20000};
 *   if (add_root_qdisc(speeds, "eth1", QOS_ROOT_HTB, &params) == 0 && add_class("eth1", 1, 10, &voice) == 0)
 *     start_qos("eth1");
 *
 * Class ids. A class id has three uses:
 *   - it is the minor number of the class handle 1:id
 *   - it is the firewall mark that selects the class while the class is a leaf
 *   - shifted left by 4, it is the handle of the class's leaf queueing discipline
 * tc takes handles of 16 bits, so ids of leaves are good up to 0xfff. A leaf above that gets no queueing discipline of
 * its own.
 *
 * Results. The functions that change a tree return:
 *   0  done
 *   1  no such interface or class
 *   2  exists already
 *   3  out of memory, or an unknown root type
 *   4  not allowed here, or a null block
 * Each of them lists the codes that it can return. The functions that run scripts return 1 for success instead.
 *
 * Lookup. Most functions look the interface up with root_qdisc_find_by_name, which traces "%s not found!!\n" with the
 * name when it has no tree. "Traced by the lookup" means this line.
 *
 * Scripts. A tree is applied by a shell script of tc, ifconfig and iptables commands. It is made anew on every call,
 * with mode 0700, and run through the shell (see __system in torvane/process.h for what else happens while a command
 * runs). All interfaces share one start script, "/var/tmp/qos_start", and one stop script, "/var/tmp/qos_stop", so two
 * processes that start QoS at the same time replace each other's. The library does not look at what the commands in
 * a script report; they write their errors to the standard error of the calling process.
 *
 * A new script (made as "/var/tmp/qos_start:new" and renamed) takes the place of whatever is at its path, be it a link
 * or another user's file, without opening it; a directory stays, and the script cannot be created. The script can be
 * written to by its owner alone, but who may remove other users' files from /var/tmp can exchange it before it is run.
 * So the folder must be root's, and have the sticky bit (mode 1777) or be writable for root alone.
 *
 * Depth. Lookups, scripts and reports take stack for every level of classes: 5 bytes on a 32-bit machine and 10 on
 * a 64-bit one, in steps of 65 levels. Deleting takes none.
 *
 * Text. An interface name goes into shell scripts as it stands. Never pass one that came from a user without checking
 * it first.
 *
 * Threads. The trees belong to the process and have no lock. Use them from one thread, or hold a lock of your own
 * around every call.
 */
#ifndef TORVANE_QOS_H
#define TORVANE_QOS_H

#include <stdint.h>
#include <stdio.h>

#include "torvane/common.h"
#include "torvane/list.h"
#include "torvane/qos_records.h"

TORVANE_BEGIN

/* The trees of all interfaces (root_qdisc.node), in the order they were added. Statically empty. */
extern list_node qos_root;

/*
 * Returns the tree of an interface, valid until del_root_qdisc; null when it has none. Then traces "%s not found!!\n"
 * with the name.
 */
root_qdisc *root_qdisc_find_by_name(const char *ifname);

/*
 * Makes the tree of an interface.
 *
 *   speeds  link rate (two values), then physical rate (two values), kbit/s. Which of a pair is up and which is down is
 *           the caller's affair; the library uses the first of each, which tc does not take as 0
 *   ifname  interface name. At most 31 characters are kept, and a longer name is not found by its full text later; the
 *           kernel's own names have 15 at most
 *   type    QOS_ROOT_*
 *   params  the parameter block of that type: root_params_pfifo, root_params_tree (HTB, HFSC) or root_params_prio
 *
 * Returns:
 *   0  the tree exists now, even when memory ran out for some of its first classes
 *   1  `ifname` is null
 *   2  the interface has a tree already
 *   3  memory ran out or the type is unknown
 *   4  `speeds` or `params` is null
 * Whenever the result is not 0, nothing has changed. The checks come in this order: name, tree, memory, `speeds`, type,
 * `params`. An unknown type traces "Internel error occur at not define root qdisc type\n".
 *
 * HTB and HFSC trees start with three classes: 1 at the top and 2 below it at phy_rate[0], and 3 below 1 at
 * link_rate[0]. Class 2 carries SFQ with perturb 10. An HTB class gets rate and ceil alike, and bursts of 1000000 bytes
 * (class 1) or 6000 bytes; an HFSC class gets its `ul` and `sc` rates, all else 0. A PRIO tree gets one class per band,
 * with the ids 1 to `bands`.
 */
int add_root_qdisc(const uint32_t speeds[4], const char *ifname, uint32_t type, const void *params);

/*
 * Deletes the tree of an interface with all its classes. Its rules are NOT freed: delete them first, or their memory is
 * lost. The running system is not touched (stop_qos does that).
 *
 * Returns:
 *   0  deleted
 *   1  the interface has no tree (traced by the lookup)
 *
 * A tree whose `type` was overwritten with an unknown code is deleted, but its classes are not. Then traces
 * "Internel error occur at not define root qdisc type\n".
 */
int del_root_qdisc(const char *ifname);

/*
 * Adds a class to a tree of type HTB or HFSC.
 *
 *   ifname     interface name
 *   parent_id  an existing class, or 0 for the top level
 *   class_id   the new class. With a parent it must be new in the whole tree. With parent 0 this is not checked, and
 *              lookups find the first class with the id, parents before children
 *   params     htb_params or hfsc_params, by the tree's type
 *
 * Returns:
 *   0  added
 *   1  the interface (traced by the lookup) or the parent does not exist
 *   2  `class_id` exists
 *   3  memory ran out
 *   4  the tree's type takes no classes, or `params` is null, which is looked at last
 * On failure nothing has changed.
 *
 * The new class has no children and a pfifo leaf without limit. A leaf that gets its first child stops being one: its
 * leaf queueing discipline and filter are no longer written.
 */
int add_class(const char *ifname, uint16_t parent_id, uint16_t class_id, const void *params);

/*
 * Deletes a class and everything below it. It may be the default class or the mark of a rule; this is not checked.
 *
 * Returns:
 *   0  deleted
 *   1  the interface (traced by the lookup) or the class does not exist
 */
int del_class(const char *ifname, uint16_t class_id);

/*
 * Sets the leaf queueing discipline of a class without children.
 *
 *   ifname    interface name
 *   class_id  the class
 *   leaf      what to set; copied. Its type code is not checked
 *
 * Returns:
 *   0  set
 *   1  the interface (traced by the lookup) or the class does not exist
 *   4  the class has children, or `leaf` is null
 */
int add_leaf_qdisc(const char *ifname, uint16_t class_id, const leaf_qdisc *leaf);

/*
 * Sets the leaf queueing discipline of a class back to what a new class has: pfifo without limit.
 *
 * Returns:
 *   0  set back
 *   1  the interface (traced by the lookup) or the class does not exist, or the class has children
 */
int del_leaf_qdisc(const char *ifname, uint16_t class_id);

/*
 * Returns 1 when the class exists and has no children, so that it can take marked traffic; else 0. An unknown interface
 * is traced by the lookup.
 */
int check_Key(const char *ifname, uint16_t class_id);

/*
 * Copies the automatic marks of an interface.
 *
 *   ifname  interface name
 *   out     receives the marks, whether they are enabled or not
 *
 * Returns:
 *   1  copied, and they are enabled
 *   0  copied, and they are not enabled
 *   0  the interface does not exist (traced by the lookup) or has a type without automatic marks (pfifo_fast or
 *      unknown), or `out` is null; `out` is left alone
 */
int get_automark_value(const char *ifname, automark *out);

/*
 * Returns the head of an interface's rule list, valid until del_root_qdisc; null when the interface has no tree (traced
 * by the lookup). The records are qos_rule in torvane/rules.h.
 */
list_node *find_rule_list_by_name(const char *ifname);

/*
 * Returns the class with this id in an interface's tree, valid until it is deleted, or null. Parents come before their
 * children, siblings in the order they were added. An unknown interface is traced by the lookup.
 */
qos_class *class_find(const char *ifname, uint16_t class_id);

/*
 * Returns the class with this id below one list head, valid until it is deleted, or null. Parents come before their
 * children, siblings in the order they were added. `head` is the `classes` of a tree or the `children` of a class.
 */
qos_class *class_find_in_list(list_node *head, uint16_t class_id);

/*
 * Writes and runs the start script of an interface. The script removes the interface's root queueing discipline and
 * makes that of the tree (for pfifo_fast: sets the interface's queue length), its classes, its leaves and one
 * firewall-mark filter per leaf. Then it renews the rule chains (renew_qos_rule in torvane/rules.h).
 *
 * Returns:
 *   1  the script was written and run
 *   0  the interface has no tree (traced by the lookup); no file is touched
 *   0  the script cannot be created (nothing is traced); the previous one, if any, stays
 *   0  the script could not be written whole (nothing is traced); what there is of it stays and is not run
 *
 * A leaf with an unknown type code traces "An error occur at not define leaf qdisc type\n". It spoils its own tc
 * command and its filter's, which is appended to it. For a tree whose `type` was overwritten with an unknown code, the
 * script makes no queueing discipline and no classes, in silence.
 */
int start_qos(const char *ifname);

/*
 * Writes and runs the stop script of an interface, which removes its root queueing discipline, hooks and rule chains.
 * The tree and the rules in memory stay, and so does the queue length that a pfifo_fast tree has set.
 *
 * Returns:
 *   1  the script was written and run
 *   0  the interface has no tree (traced by the lookup); no file is touched
 *   0  the script cannot be created (nothing is traced); the previous one, if any, stays
 *   0  the script could not be written whole (nothing is traced); what there is of it stays and is not run
 */
int stop_qos(const char *ifname);

/*
 * Stops an interface (stop_qos), then starts it (start_qos).
 *
 * Returns:
 *   1  both scripts were written and run
 *   0  the stop returned 0, and nothing was started; or the start returned 0
 *
 * An interface without a tree is traced by the lookup.
 */
int restart_qos(const char *ifname);

/*
 * Restarts every interface in turn (restart_qos). After each one, whatever came of it, traces "Start %s's Qos!!\n" with
 * its name. Traces "Qos list empty!!\n" when no interface has a tree.
 */
void restart_qos_all(void);

/*
 * Writes one service curve as tc takes it, for example "sc umax 1500b dmax 20ms rate 1000kbit ". The name comes first
 * ("Unknown" for a `kind` that is none), then umax and dmax if they are not 0, then the rate. A blank follows each, and
 * there is no newline.
 *
 *   out    an open stream
 *   curve  the curve
 *   kind   QOS_CURVE_*
 */
void hfsc_curve_text(FILE *out, const hfsc_curve *curve, uint32_t kind);

/*
 * Writes the tc commands of every class below a list head, parents before children, to an open script. Each class
 * without children has its leaf queueing discipline and its filter with it.
 *
 *   out     an open stream
 *   ifname  interface name for the commands; null writes nothing
 *   head    the `classes` of a tree in qos_root or the `children` of a class. The owner of the list is the parent in
 *           the commands: 1:0 for a tree's own list. Class 1 always has the parent 1:0
 *
 * A leaf with an unknown type code traces "An error occur at not define leaf qdisc type\n". It spoils its own tc
 * command and its filter's, which is appended to it.
 */
void do_leaf2cmd(FILE *out, const char *ifname, list_node *head);

/*
 * Traces an interface's tree: name, speeds, root type and its parameters, then its classes and leaves (show_class).
 *
 * An unknown interface gives the one line "didn't found qos setting in this interface!\n". An unknown root type gives
 * "An error occur at not define root qdisc type\n" in place of the parameters and classes.
 */
void show_ifqos(const char *ifname);

/* Traces the classes and leaves of an interface's tree, or "didn't found qos setting in this interface!\n". */
void show_class(const char *ifname);

/*
 * Traces the classes below a list head with their handles PARENT:ID, and the leaf of each class without children.
 *
 *   head  the `classes` of a tree in qos_root or the `children` of a class. The owner of the list is PARENT: 0 for
 *         a tree's own list. Class 1 always has the PARENT 1
 *
 * A PRIO class has no line of its own, only that of its leaf. The lines of leaves carry the function name "show_leaf".
 * An unknown leaf type gives "An error occur at not define leaf qdisc type\n". A line whose console cannot be opened is
 * left out alone.
 */
void draw_class(list_node *head);

TORVANE_END

#endif
