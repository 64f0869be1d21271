/*
 * Lists
 *
 * These functions work on circular, doubly linked lists. The links stand inside the records that they chain, so putting
 * a record on a list needs no memory. The QoS trees, rules and schedules of the library are such lists (see
 * torvane/qos_records.h and torvane/rules.h).
 *
 * A list begins with a head: a node that is part of no record. In an empty list both pointers of the head point to the
 * head itself, and a program makes a list empty by setting them so. To get from a node back to its record, subtract
 * the node's offset in the record (offsetof):
 *
 *     struct job {
 *       int number;
 *       list_node node;
 *     };
 *
 *     list_node jobs = {&jobs, &jobs};     // an empty list
 *     struct job first = {1, {NULL, NULL}};
 *
 *     list_add_tail(&first.node, &jobs);
 *     for (list_node *at = jobs.next; at != &jobs; at = at->next) {
 *       struct job *job = (struct job *)((char *)at - offsetof(struct job, node));
 *       printf("%d\n", job->number);
 *     }
 *
 * The functions do not check their pointers. They allocate nothing, free nothing and trace nothing. They take no lock
 * either: while several threads use a list, the program must let one at a time in.
 */
#ifndef TORVANE_LIST_H
#define TORVANE_LIST_H

#include "torvane/common.h"

TORVANE_BEGIN

/* The links of one record, or the head of a list. */
typedef struct list_node {
  struct list_node *next; /* the node after this one; from the last one, the head */
  struct list_node *prev; /* the node before this one; from the first one, the head */
} list_node;

/*
 * Tells whether a list is empty.
 *
 *   head  head of the list. Do not pass an entry that list_del has unlinked: its pointers still name other nodes
 *
 * Returns:
 *   1  the list has no entry
 *   0  the list has at least one entry
 */
int list_empty(const list_node *head);

/*
 * Links a node between two nodes that stand next to each other.
 *
 *   node  node to link, not on a list
 *   prev  node that will stand before it
 *   next  node that will stand after it
 *
 * list_add(node, head->prev, head) puts it at the end of a list; list_add(node, x->prev, x) puts it before `x`.
 */
void list_add(list_node *node, list_node *prev, list_node *next);

/*
 * Links a node at the end of a list.
 *
 *   node  node to link, not on a list
 *   head  head of the list
 */
void list_add_tail(list_node *node, list_node *head);

/*
 * Takes an entry off its list.
 *
 *   entry  an entry of a list. Its own two pointers stay as they were, and its record is not freed
 */
void list_del(list_node *entry);

/*
 * Puts a node in the place of an entry.
 *
 *   old          an entry of a list. Its own two pointers stay as they were, but it is no longer on the list
 *   replacement  node that takes its place, not on a list
 */
void list_replace(list_node *old, list_node *replacement);

/*
 * Takes an entry off its list and links it at the END of a list.
 *
 *   entry  an entry of a list
 *   head   head of the list where it will stand; this may be the list that it stands on now
 */
void list_move(list_node *entry, list_node *head);

TORVANE_END

#endif
