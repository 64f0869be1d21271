/*
 * Quality of service
 *
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
 *
 * A tree is applied by a shell script of tc, ifconfig and iptables commands, made anew on every call with mode 0700
 * and run through the shell (see __system for what else happens while a command runs). There is one start and one
 * stop script for all interfaces, "/var/tmp/qos_start" and "/var/tmp/qos_stop": two processes that start QoS at the
 * same time overwrite each other's. What the commands in a script report is not looked at; they write their errors to
 * the standard error of the calling process.
 */
#ifndef TORVANE_QOS_H
#define TORVANE_QOS_H

#include <stdint.h>
#include <stdio.h>

#include "torvane/common.h"
#include "torvane/list.h"
#include "torvane/qos_records.h"

TORVANE_BEGIN

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

TORVANE_END

#endif
