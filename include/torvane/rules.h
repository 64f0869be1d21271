/*
 * Rules and schedules
 *
 * A rule says which packets that leave an interface get which firewall mark, TOS, DSCP or VLAN tag. The rules belong to
 * the interface's tree (root_qdisc.rules in torvane/qos_records.h), ascending by index. A rule may name a schedule,
 * a numbered time window; schedules are one list for all interfaces.
 *
 *   qos_match match = {.match_flags = 1u << QOS_MATCH_PROTOCOL, .protocol = QOS_PROTO_UDP};
 *   match.dport_min = match.dport_max = 5060;
 *   qos_target target = {.target_flags = 1u << QOS_TARGET_MARK, .mark = 10};   // class 10 of the tree
 *   if (add_qos_rule("eth1", 1, &match, &target))
 *     restart_rule("eth1");
 *
 * Order. Every packet passes every rule, in ascending order. Setting a mark does not end the walk, so the LAST rule
 * that matches decides the mark. Automatic marks come before all rules and lose to any that matches. A TOS or DSCP that
 * one rule sets is what later rules see. So put general rules first and exceptions last.
 *
 * Chains. An interface's rules become two chains of the mangle table. QOS_<interface> has a command per rule and
 * target. QOS_<interface>_AUTO re-marks connections that carry a connection mark by the tree's automatic marks. Packets
 * that leave the interface, forwarded or sent by the router itself, go to the first chain. Its first entry sends those
 * with a connection mark on to the second.
 *
 * Commands. They are those of the router's own firewall. Today's iptables (1.8) refuses some of their words: the days
 * of a schedule ("--days"), "--precedence", "--set-precedence", a DSCP class as a target ("--set-dscp EF"), and the
 * matches and targets that come with the firmware (VLAN, domain, urlfilter, MKVLAN). A refused command is lost alone.
 *
 * Text. Interface names, MAC addresses, domains and URLs go into shell scripts as they stand. Never pass text that came
 * from a user without checking it first.
 *
 * Results. 1 is done and 0 is failed: the opposite of the tree operations in torvane/qos.h, made to be tested as truth
 * values. An interface without a tree traces "%s not found!!\n" with its name, here called the lookup's own trace.
 *
 * Threads. Rules and schedules belong to the process and have no lock. Use them from one thread, or hold a lock of your
 * own around every call.
 */
#ifndef TORVANE_RULES_H
#define TORVANE_RULES_H

#include <stdint.h>
#include <stdio.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* Match kinds, with their names in traces: BIT NUMBERS of qos_match.match_flags (set with 1u << QOS_MATCH_IP). */
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

/* Protocols: qos_match.protocol. */
enum { QOS_PROTO_TCP = 0, QOS_PROTO_UDP = 1, QOS_PROTO_ICMP = 2, QOS_PROTO_BOTH = 3, QOS_PROTO_ALL = 4 };

/* Connection-tracking helpers: qos_match.alg. */
enum { QOS_ALG_SIP = 0, QOS_ALG_Q931 = 1, QOS_ALG_FTP = 2 };

/* TCP flags: BIT NUMBERS of qos_match.tcp_flag_mask and tcp_flag_set. */
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
 * What a rule matches. Only fields whose bit is set in `match_flags` count; `sched_index` has no bit and always counts.
 * An address or port range with a bound of 0 is left out without a word. Zero the record first. A text that fills its
 * field needs no terminator.
 *
 * Today's kernels refuse to match a MAC address in these chains: the router's own packets pass them too, and have none.
 *
 * TOS ids: 16 "Minimize-Delay", 8 "Maximize-Throughput", 4 "Maximize-Reliability", 2 "Minimize-Cost",
 * 0 "Normal-Service".
 *
 * DSCP class ids: 0 to 7 "CS0" to "CS7", 8 "BE", 9 to 11 "AF11" to "AF13", 12 to 14 "AF21" to "AF23", 15 to 17 "AF31"
 * to "AF33", 18 to 20 "AF41" to "AF43", 21 "EF".
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

/* What a rule does with a packet. One command is written per target. Zero the record first. */
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

/* A rule of an interface. It is the library's: valid until it is deleted, and never to be freed. */
typedef struct qos_rule {
  list_node node; /* in root_qdisc.rules */
  uint8_t index;
  qos_match match;
  qos_target target;
} qos_rule;

/* A schedule. It is the library's: valid until it is deleted, and never to be freed. */
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

/* All schedules (qos_sched.node), in the order they were added. Statically empty. */
extern list_node sched_root;

/*
 * Adds a rule to an interface.
 *
 *   ifname  interface name
 *   index   the rule's number, unique on the interface; commands are written in its order
 *   match   a qos_match (600 bytes), copied
 *   target  a qos_target (24 bytes), copied
 *
 * Returns 1, or 0 with the list unchanged and a trace that tells why:
 *   "QoS tree not found!!\n"     the interface has no tree (after the lookup's own trace)
 *   "Index already exist!!\n"    the interface has a rule with this index
 *   "Mark key not found!!\n"     the mark target is set, and `mark` is no class without children (check_Key in
 *                                torvane/qos.h; a mark above 0xffff is none)
 *   "Memory allocate fail!!\n"   memory ran out
 * The checks come in this order. A null `target` gives 0 without a trace where its mark would be looked at, and a null
 * `match` does so last of all.
 */
uint32_t add_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target);

/*
 * Replaces a rule: deletes it (del_qos_rule), then adds the new one (add_qos_rule). When the add fails, for a null
 * block as for any other reason, the old rule is gone.
 *
 *   ifname  interface name
 *   index   number of the rule
 *   match   a qos_match (600 bytes), copied
 *   target  a qos_target (24 bytes), copied
 *
 * Returns:
 *   1  replaced
 *   0  there is no such rule, or the new one was refused; add_qos_rule and del_qos_rule list their traces
 */
uint32_t modify_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target);

/*
 * Deletes a rule.
 *
 * Returns:
 *   1  deleted
 *   0  the rule does not exist
 *   0  the interface has no tree; traces "QoS tree not found!!\n" after the lookup's own trace
 */
uint32_t del_qos_rule(const char *ifname, uint8_t index);

/*
 * Adds a schedule.
 *
 *   sched  bytes in the order of the fields of qos_sched: index, days, all_day, start_hour. Only these FOUR are read.
 *          stop_hour, start_min and stop_min start at 0; a caller that needs them sets them in the record that
 *          search_sched gives
 *
 * Returns:
 *   1  added, also when the index is in use already; lookups find the older schedule then
 *   0  the index is 0, `sched` is null or memory ran out
 *
 * Traces nothing.
 */
uint32_t add_sched(const uint8_t *sched);

/* Returns the first schedule with this index, valid until it is deleted; null for index 0 or when there is none. */
qos_sched *search_sched(uint8_t index);

/* Deletes the first schedule with this index. Rules that name it stay. Returns 1, or 0 when there is none. */
uint32_t del_sched(uint8_t index);

/* Deletes every schedule. Rules that name them stay. Returns 1. */
uint32_t del_all_sched(void);

/*
 * Writes a schedule as options of the iptables time match, with a blank at the end, for example
 * "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri ".
 *
 *   index  number of the schedule
 *   dst    where the text and its terminator go: room for `size` + 1 bytes (note the one)
 *   size   longest text wanted, in bytes without the terminator; 82 is always enough
 *
 * Returns:
 *   1  written
 *   0  there is no such schedule, the text is longer than `size`, or `dst` is null; `dst` is untouched, and
 *      "schedule index not found!!\n" is traced
 */
uint32_t get_sched_str(uint8_t index, char *dst, uint32_t size);

/*
 * Writes the names of the TCP flags that are set, each followed by a comma: "SYN,ACK,".
 *
 *   out    all 32 bytes are written, zeroes after the text; null is ignored
 *   flags  bits by QOS_TCP_*; others are ignored
 */
void tcp_flag_text(char out[32], uint8_t flags);

/*
 * Writes the commands that renew an interface's chains to an open script. They flush, delete and make both chains and
 * hook them in once; then come the rules of the list (draw_rule) and, when enabled, the eight automatic marks.
 *
 *   out     an open stream
 *   ifname  interface name of at most 31 characters, as in a tree. Without a tree there are no automatic marks, and the
 *           lookup traces "%s not found!!\n". Null writes nothing
 *   rules   head of a list of qos_rule
 */
void renew_qos_rule(FILE *out, const char *ifname, list_node *rules);

/* Writes the commands that unhook and delete an interface's chains to an open script. A null name writes nothing. */
void remove_qos_rule(FILE *out, const char *ifname);

/*
 * Applies the rules of one interface alone; the queueing disciplines are not touched. Writes the commands of
 * renew_qos_rule to "/var/tmp/qos_rule_" followed by the interface's name, with mode 0700, and runs that script, which
 * is made like those of a tree (torvane/qos.h says how, and who may write to the folder).
 *
 * Returns:
 *   1  the script was written and run
 *   0  the interface has no tree; traces "QoS struct not fuond!!\n" after the lookup's own trace
 *   0  the script cannot be created; traces "Can't open tmp file!!\n"
 *   0  the script could not be written whole; nothing is traced, and what there is of it stays and is not run
 */
uint32_t restart_rule(const char *ifname);

/*
 * Writes the commands that append one rule to a chain to an open script: one per target, and two (TCP, then UDP) per
 * target when the rule matches both protocols. A rule without a target makes none. Nor does one with an unknown
 * protocol code, and then its targets are not looked at either.
 *
 *   out    an open stream
 *   rule   the rule
 *   chain  name of the chain
 *
 * Traces, and goes on without the part:
 *   "get %s match type\n"            for match bits without an option here: QOS_MATCH_PROTOCOL always ("QF_PROTOCOL"),
 *                                    bits 11 to 31 ("Unknown")
 *   "LOG target not implement!!\n"   for the target QOS_TARGET_LOG
 *   "match buffer is too small or index not found, schedule string doesn't attach %d %d!!\n"
 *                                    when the schedule cannot be written, after get_sched_str's own trace; with 1024
 *                                    and the length of the options so far
 */
void draw_rule(FILE *out, qos_rule *rule, const char *chain);

/*
 * Traces every rule of an interface, ascending: its number, matches, schedule and targets. The lines carry the function
 * names "show_rule", "show_match" and "show_target".
 *
 * Traces "QoS tree not found, no rule found!!\n" (after the lookup's own trace) when the interface has no tree. A rule
 * whose schedule does not exist gives get_sched_str's trace in place of the schedule. A line whose console cannot be
 * opened is left out alone.
 */
void show_rule(const char *ifname);

TORVANE_END

#endif
