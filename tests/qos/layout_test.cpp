// Programs and library share these records byte for byte: sizes and offsets are the interface, checked by the compiler.
#include "support/record_layout.h"
#include "torvane.h"

namespace {

// Records without pointers are the same on every machine.

RECORD_LAYOUT(automark, 18, FIELD(enable, 0, 1), FIELD(mark, 2, 16));
RECORD_LAYOUT(root_params_pfifo, 4, FIELD(txqueuelen, 0, 4));
RECORD_LAYOUT(root_params_tree, 20, FIELD(default_class, 0, 2), FIELD(automark, 2, 18));
RECORD_LAYOUT(root_params_prio, 36, FIELD(bands, 0, 1), FIELD(priomap, 1, 16), FIELD(automark, 18, 18));
RECORD_LAYOUT(htb_params, 20, FIELD(rate, 0, 4), FIELD(ceil, 4, 4), FIELD(burst, 8, 4), FIELD(cburst, 12, 4),
              FIELD(prio, 16, 4));
RECORD_LAYOUT(hfsc_curve, 12, FIELD(umax, 0, 4), FIELD(dmax, 4, 4), FIELD(rate, 8, 4));
RECORD_LAYOUT(hfsc_params, 48, FIELD(ul, 0, 12), FIELD(sc, 12, 12), FIELD(ls, 24, 12), FIELD(rt, 36, 12));
RECORD_LAYOUT(leaf_qdisc, 24, FIELD(type, 0, 4), FIELD(params, 4, 20));

using leaf_params = decltype(leaf_qdisc::params);
using leaf_pfifo = decltype(leaf_params::pfifo);
using leaf_sfq = decltype(leaf_params::sfq);
using leaf_red = decltype(leaf_params::red);
using leaf_tbf = decltype(leaf_params::tbf);
RECORD_FIELDS(leaf_params, FIELD(pfifo, 0, 4), FIELD(sfq, 0, 1), FIELD(red, 0, 20), FIELD(tbf, 0, 12));
RECORD_FIELDS(leaf_pfifo, FIELD(limit, 0, 4));
RECORD_FIELDS(leaf_sfq, FIELD(perturb, 0, 1));
RECORD_FIELDS(leaf_red, FIELD(min, 0, 4), FIELD(max, 4, 4), FIELD(burst, 8, 4), FIELD(limit, 12, 4),
              FIELD(avpkt, 16, 4));
RECORD_FIELDS(leaf_tbf, FIELD(latency, 0, 4), FIELD(rate, 4, 4), FIELD(burst, 8, 4));

using root_params = decltype(root_qdisc::params);
using class_params = decltype(qos_class::params);
RECORD_LAYOUT(root_params, 36, FIELD(pfifo, 0, 4), FIELD(tree, 0, 20), FIELD(prio, 0, 36));
RECORD_LAYOUT(class_params, 48, FIELD(htb, 0, 20), FIELD(hfsc, 0, 48));

RECORD_LAYOUT(qos_match, 600, FIELD(match_flags, 0, 4), FIELD(prio_1p, 4, 1), FIELD(vlan_id, 6, 2),
              FIELD(src_mac, 8, 20), FIELD(src_ip_start, 28, 4), FIELD(src_ip_end, 32, 4), FIELD(dst_ip_start, 36, 4),
              FIELD(dst_ip_end, 40, 4), FIELD(dscp_mode, 44, 4), FIELD(dscp, 48, 4), FIELD(tos, 52, 4),
              FIELD(precedence, 56, 1), FIELD(protocol, 60, 4), FIELD(sport_min, 64, 2), FIELD(sport_max, 66, 2),
              FIELD(dport_min, 68, 2), FIELD(dport_max, 70, 2), FIELD(tcp_flag_mask, 72, 1), FIELD(tcp_flag_set, 73, 1),
              FIELD(pkt_len, 76, 4), FIELD(alg, 80, 4), FIELD(url, 84, 256), FIELD(domain, 340, 256),
              FIELD(sched_index, 596, 1));
RECORD_LAYOUT(qos_target, 24, FIELD(target_flags, 0, 4), FIELD(mark, 4, 4), FIELD(set_mode, 8, 4),
              FIELD(set_value, 12, 4), FIELD(vlan_prio, 16, 1), FIELD(vlan_tag_id, 18, 2), FIELD(vlan_double, 20, 1),
              FIELD(log, 22, 1));

// These records hold pointers, so their layouts are told for machines whose pointers have 32 bits.

RECORD_LAYOUT_32(root_qdisc, 112, FIELD(link_rate, 0, 8), FIELD(phy_rate, 8, 8), FIELD(ifname, 16, 32),
                 FIELD(type, 48, 4), FIELD(node, 52, 8), FIELD(classes, 60, 8), FIELD(rules, 68, 8),
                 FIELD(params, 76, 36));
RECORD_LAYOUT_32(qos_class, 128, FIELD(type, 0, 4), FIELD(name, 4, 32), FIELD(id, 36, 2), FIELD(node, 40, 8),
                 FIELD(children, 48, 8), FIELD(params, 56, 48), FIELD(leaf, 104, 24));
RECORD_LAYOUT_32(qos_rule, 636, FIELD(node, 0, 8), FIELD(index, 8, 1), FIELD(match, 12, 600), FIELD(target, 612, 24));
RECORD_LAYOUT_32(qos_sched, 16, FIELD(node, 0, 8), FIELD(index, 8, 1), FIELD(days, 9, 1), FIELD(all_day, 10, 1),
                 FIELD(start_hour, 11, 1), FIELD(stop_hour, 12, 1), FIELD(start_min, 13, 1), FIELD(stop_min, 14, 1));

RECORD_FIELDS(qos_rule, FIELD(node, 0, sizeof(list_node)), FIELD(index, sizeof(list_node), 1));
RECORD_FIELDS(qos_sched, FIELD(index, sizeof(list_node), 1), FIELD(stop_min, sizeof(list_node) + 6, 1));

} // namespace
