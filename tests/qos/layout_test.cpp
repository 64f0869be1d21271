// Programs and library share these records byte for byte: sizes and offsets are the interface, checked by the compiler.
#include <gtest/gtest.h>
#include <stddef.h>

#include "torvane.h"

#define SIZE(record, bytes) static_assert(sizeof(record) == (bytes))
#define FIELD(record, field, offset, bytes) \
  static_assert(offsetof(record, field) == (offset) && sizeof(record::field) == (bytes))

// Records without pointers are alike on every machine.

SIZE(automark, 18);
FIELD(automark, enable, 0, 1);
FIELD(automark, mark, 2, 16);

SIZE(root_params_pfifo, 4);
FIELD(root_params_pfifo, txqueuelen, 0, 4);

SIZE(root_params_tree, 20);
FIELD(root_params_tree, default_class, 0, 2);
FIELD(root_params_tree, automark, 2, 18);

SIZE(root_params_prio, 36);
FIELD(root_params_prio, bands, 0, 1);
FIELD(root_params_prio, priomap, 1, 16);
FIELD(root_params_prio, automark, 18, 18);

SIZE(htb_params, 20);
FIELD(htb_params, rate, 0, 4);
FIELD(htb_params, ceil, 4, 4);
FIELD(htb_params, burst, 8, 4);
FIELD(htb_params, cburst, 12, 4);
FIELD(htb_params, prio, 16, 4);

SIZE(hfsc_curve, 12);
FIELD(hfsc_curve, umax, 0, 4);
FIELD(hfsc_curve, dmax, 4, 4);
FIELD(hfsc_curve, rate, 8, 4);

SIZE(hfsc_params, 48);
FIELD(hfsc_params, ul, 0, 12);
FIELD(hfsc_params, sc, 12, 12);
FIELD(hfsc_params, ls, 24, 12);
FIELD(hfsc_params, rt, 36, 12);

SIZE(leaf_qdisc, 24);
FIELD(leaf_qdisc, type, 0, 4);
FIELD(leaf_qdisc, params, 4, 20);

using leaf_params = decltype(leaf_qdisc::params);
using leaf_pfifo = decltype(leaf_params::pfifo);
using leaf_sfq = decltype(leaf_params::sfq);
using leaf_red = decltype(leaf_params::red);
using leaf_tbf = decltype(leaf_params::tbf);
FIELD(leaf_params, pfifo, 0, 4);
FIELD(leaf_pfifo, limit, 0, 4);
FIELD(leaf_params, sfq, 0, 1);
FIELD(leaf_sfq, perturb, 0, 1);
FIELD(leaf_params, red, 0, 20);
FIELD(leaf_red, min, 0, 4);
FIELD(leaf_red, max, 4, 4);
FIELD(leaf_red, burst, 8, 4);
FIELD(leaf_red, limit, 12, 4);
FIELD(leaf_red, avpkt, 16, 4);
FIELD(leaf_params, tbf, 0, 12);
FIELD(leaf_tbf, latency, 0, 4);
FIELD(leaf_tbf, rate, 4, 4);
FIELD(leaf_tbf, burst, 8, 4);

using root_params = decltype(root_qdisc::params);
SIZE(root_params, 36);
FIELD(root_params, pfifo, 0, 4);
FIELD(root_params, tree, 0, 20);
FIELD(root_params, prio, 0, 36);

using class_params = decltype(qos_class::params);
SIZE(class_params, 48);
FIELD(class_params, htb, 0, 20);
FIELD(class_params, hfsc, 0, 48);

SIZE(qos_match, 600);
FIELD(qos_match, match_flags, 0, 4);
FIELD(qos_match, prio_1p, 4, 1);
FIELD(qos_match, vlan_id, 6, 2);
FIELD(qos_match, src_mac, 8, 20);
FIELD(qos_match, src_ip_start, 28, 4);
FIELD(qos_match, src_ip_end, 32, 4);
FIELD(qos_match, dst_ip_start, 36, 4);
FIELD(qos_match, dst_ip_end, 40, 4);
FIELD(qos_match, dscp_mode, 44, 4);
FIELD(qos_match, dscp, 48, 4);
FIELD(qos_match, tos, 52, 4);
FIELD(qos_match, precedence, 56, 1);
FIELD(qos_match, protocol, 60, 4);
FIELD(qos_match, sport_min, 64, 2);
FIELD(qos_match, sport_max, 66, 2);
FIELD(qos_match, dport_min, 68, 2);
FIELD(qos_match, dport_max, 70, 2);
FIELD(qos_match, tcp_flag_mask, 72, 1);
FIELD(qos_match, tcp_flag_set, 73, 1);
FIELD(qos_match, pkt_len, 76, 4);
FIELD(qos_match, alg, 80, 4);
FIELD(qos_match, url, 84, 256);
FIELD(qos_match, domain, 340, 256);
FIELD(qos_match, sched_index, 596, 1);

SIZE(qos_target, 24);
FIELD(qos_target, target_flags, 0, 4);
FIELD(qos_target, mark, 4, 4);
FIELD(qos_target, set_mode, 8, 4);
FIELD(qos_target, set_value, 12, 4);
FIELD(qos_target, vlan_prio, 16, 1);
FIELD(qos_target, vlan_tag_id, 18, 2);
FIELD(qos_target, vlan_double, 20, 1);
FIELD(qos_target, log, 22, 1);

// Records with pointers, on machines with pointers of 32 bits.

#if __SIZEOF_POINTER__ == 4
SIZE(list_node, 8);
FIELD(list_node, next, 0, 4);
FIELD(list_node, prev, 4, 4);

SIZE(root_qdisc, 112);
FIELD(root_qdisc, link_rate, 0, 8);
FIELD(root_qdisc, phy_rate, 8, 8);
FIELD(root_qdisc, ifname, 16, 32);
FIELD(root_qdisc, type, 48, 4);
FIELD(root_qdisc, node, 52, 8);
FIELD(root_qdisc, classes, 60, 8);
FIELD(root_qdisc, rules, 68, 8);
FIELD(root_qdisc, params, 76, 36);

SIZE(qos_class, 128);
FIELD(qos_class, type, 0, 4);
FIELD(qos_class, name, 4, 32);
FIELD(qos_class, id, 36, 2);
FIELD(qos_class, node, 40, 8);
FIELD(qos_class, children, 48, 8);
FIELD(qos_class, params, 56, 48);
FIELD(qos_class, leaf, 104, 24);

SIZE(qos_rule, 636);
FIELD(qos_rule, node, 0, 8);
FIELD(qos_rule, index, 8, 1);
FIELD(qos_rule, match, 12, 600);
FIELD(qos_rule, target, 612, 24);

SIZE(qos_sched, 16);
FIELD(qos_sched, node, 0, 8);
FIELD(qos_sched, index, 8, 1);
FIELD(qos_sched, days, 9, 1);
FIELD(qos_sched, all_day, 10, 1);
FIELD(qos_sched, start_hour, 11, 1);
FIELD(qos_sched, stop_hour, 12, 1);
FIELD(qos_sched, start_min, 13, 1);
FIELD(qos_sched, stop_min, 14, 1);
#endif
