/*
 * QoS records
 *
 * The codes, parameter blocks and records that make up a QoS tree. torvane/qos.h, which includes this header, has the
 * functions that build a tree of them and apply it.
 *
 * Programs fill in parameter blocks (root_params_*, htb_params, hfsc_params, leaf_qdisc) and pass them in, and the
 * library copies them. The library makes the records root_qdisc and qos_class; programs read them and never free them.
 */
#ifndef TORVANE_QOS_RECORDS_H
#define TORVANE_QOS_RECORDS_H

#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* Root types, with their names in reports. */
enum {
  QOS_ROOT_PFIFO_FAST = 0, /* "R_pfifo_fast": the kernel's default queue; takes no classes */
  QOS_ROOT_HTB = 1,        /* "R_HTB": hierarchical token bucket; takes classes with htb_params */
  QOS_ROOT_HFSC = 2,       /* "R_HFSC": hierarchical fair service curve; takes classes with hfsc_params */
  QOS_ROOT_PRIO = 3        /* "R_PRIO": priority bands; its classes are made with it */
};

/* Class types. A class gets its type from its root. */
enum { QOS_CLASS_HTB = 0, QOS_CLASS_HFSC = 1, QOS_CLASS_PRIO = 2 };

/* Types of leaf queueing disciplines, with their names in reports. */
enum {
  QOS_LEAF_PFIFO = 0, /* "L_pfifo": first in, first out, counted in packets */
  QOS_LEAF_SFQ = 1,   /* "L_SFQ": stochastic fairness queueing */
  QOS_LEAF_RED = 2,   /* "L_RED": random early detection */
  QOS_LEAF_TBF = 3    /* "L_TBF": token bucket filter */
};

/* Service curves of an HFSC class, with their names in tc: the `kind` of hfsc_curve_text (torvane/qos.h). */
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

/* The tree of one interface. It is the library's: valid until del_root_qdisc, and never to be freed. */
typedef struct root_qdisc {
  uint32_t link_rate[2]; /* speeds of the link, kbit/s; the first is the rate of default class 3 */
  uint32_t phy_rate[2];  /* physical speeds, kbit/s; the first is the rate of default classes 1 and 2 */
  char ifname[32];       /* interface name, at most 31 characters, always terminated */
  uint32_t type;         /* QOS_ROOT_* */
  list_node node;        /* in qos_root */
  list_node classes;     /* top-level classes (qos_class.node), in the order they were added */
  list_node rules;       /* rules (qos_rule.node of torvane/rules.h), ascending by index */
  union {
    root_params_pfifo pfifo;
    root_params_tree tree;
    root_params_prio prio;
  } params; /* by type */
} root_qdisc;

/* Parameters of an HTB class. */
typedef struct htb_params {
  uint32_t rate;   /* guaranteed rate, kbit/s; not 0 */
  uint32_t ceil;   /* rate when others leave room, kbit/s */
  uint32_t burst;  /* bytes; 0 leaves it to tc */
  uint32_t cburst; /* bytes; 0 leaves it to tc */
  uint32_t prio;   /* 0 is served first; the default classes have it */
} htb_params;

/* One service curve. It is set when `rate` is not 0. tc takes no `umax` without a `dmax`. */
typedef struct hfsc_curve {
  uint32_t umax; /* largest unit of work, bytes; 0 leaves it out */
  uint32_t dmax; /* its delay bound, milliseconds; 0 leaves it out */
  uint32_t rate; /* kbit/s */
} hfsc_curve;

/*
 * Parameters of an HFSC class: its service curves. The upper limit is always written, and besides it ONE of the others,
 * the first that is set: `sc`, then `ls`, then, on a class without children, `rt`.
 *
 * Give every class a rate for `ul`, because today's tc does not survive an upper limit of 0. Give it `sc` or `ls` too,
 * because tc refuses an upper limit next to `rt` alone.
 */
typedef struct hfsc_params {
  hfsc_curve ul, sc, ls, rt;
} hfsc_params;

/* The queueing discipline of a class without children: a type, and the parameters of that type. */
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

/* A class of a tree. It is the library's: valid until the class or its tree is deleted, and never to be freed. */
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

TORVANE_END

#endif
