// Reports an interface's QoS tree on the console. Every line is a trace of its own.
#include "base/trace.h"
#include "qos/qos.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/qos.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_qos";

// These are the names that the console shows for the parts of the report.
constexpr char class_part[] = "draw_class";
constexpr char leaf_part[] = "show_leaf";

// The texts are spelled as users know them, "kbps" for kbit/s and the tab in "PrioMap" included; this is meant.
constexpr char no_setting[] = "didn't found qos setting in this interface!\n";

constexpr txt_map_entry root_type_names[] = {{QOS_ROOT_PFIFO_FAST, "R_pfifo_fast"},
                                             {QOS_ROOT_HTB, "R_HTB"},
                                             {QOS_ROOT_HFSC, "R_HFSC"},
                                             {QOS_ROOT_PRIO, "R_PRIO"},
                                             unknown_row};

constexpr txt_map_entry class_type_names[] = {
    {QOS_CLASS_HTB, "C_HTB"}, {QOS_CLASS_HFSC, "C_HFSC"}, {QOS_CLASS_PRIO, "C_PRIO"}, unknown_row};

constexpr txt_map_entry leaf_type_names[] = {{QOS_LEAF_PFIFO, "L_pfifo"},
                                             {QOS_LEAF_SFQ, "L_SFQ"},
                                             {QOS_LEAF_RED, "L_RED"},
                                             {QOS_LEAF_TBF, "L_TBF"},
                                             unknown_row};

void report_leaf(const leaf_qdisc &leaf) {
  const char *name = TxtMapById(leaf_type_names, leaf.type);
  const auto &params = leaf.params;
  switch (leaf.type) {
    case QOS_LEAF_PFIFO:
      TRACE_AS(leaf_part, "leaf qdisc:      %s limit = %u\n", name, params.pfifo.limit);
      break;
    case QOS_LEAF_SFQ:
      TRACE_AS(leaf_part, "leaf qdisc:      %s perturb = %d sec\n", name, params.sfq.perturb);
      break;
    case QOS_LEAF_RED:
      TRACE_AS(leaf_part, "leaf qdisc:      %s %u byte, %u byte, %u packets, %u byte, %u byte\n", name, params.red.min,
               params.red.max, params.red.burst, params.red.limit, params.red.avpkt);
      break;
    case QOS_LEAF_TBF:
      TRACE_AS(leaf_part, "leaf qdisc:      %s %u ms, %u kbps, %u byte\n", name, params.tbf.latency, params.tbf.rate,
               params.tbf.burst);
      break;
    default:
      TRACE_AS(leaf_part, "An error occur at not define leaf qdisc type\n");
      break;
  }
}

bool report_class(qos_class &tc_class, uint16_t owner, void *) {
  const char *name = TxtMapById(class_type_names, tc_class.type);
  // This is meant: the report shows class 1 as 1:1, while its parent in scripts is 0.
  const unsigned parent = tc_class.id == 1 ? 1 : owner;
  if (tc_class.type == QOS_CLASS_HTB) {
    const htb_params &htb = tc_class.params.htb;
    TRACE_AS(class_part, "class:           %s handle %3d:%-3d %10u kbps %10u kbps %10u byte %10u byte prio:%2u\n", name,
             parent, tc_class.id, htb.rate, htb.ceil, htb.burst, htb.cburst, htb.prio);
  } else if (tc_class.type == QOS_CLASS_HFSC) {
    const hfsc_params &hfsc = tc_class.params.hfsc;
    TRACE_AS(class_part, "class:           %s handle %3d:%-3d\n", name, parent, tc_class.id);
    TRACE_AS(class_part, "                 ul:%9u byte/%9u ms/%9u kbps   sc:%9u byte/%9u ms/%9u kbps\n", hfsc.ul.umax,
             hfsc.ul.dmax, hfsc.ul.rate, hfsc.sc.umax, hfsc.sc.dmax, hfsc.sc.rate);
    TRACE_AS(class_part, "                 ls:%9u byte/%9u ms/%9u kbps   rt:%9u byte/%9u ms/%9u kbps\n", hfsc.ls.umax,
             hfsc.ls.dmax, hfsc.ls.rate, hfsc.rt.umax, hfsc.rt.dmax, hfsc.rt.rate);
  }
  if (is_leaf(tc_class))
    report_leaf(tc_class.leaf);
  return false;
}

void report_classes(list_node *head, uint16_t owner) {
  walk_classes(head, owner, report_class, nullptr);
}

} // namespace

extern "C" {

void draw_class(list_node *head) {
  report_classes(head, owner_of(head));
}

void show_class(const char *ifname) {
  root_qdisc *root = find_root(ifname);
  if (!root) {
    TRACE(no_setting);
    return;
  }
  report_classes(&root->classes, 0);
}

void show_ifqos(const char *ifname) {
  root_qdisc *root = find_root(ifname);
  if (!root) {
    TRACE(no_setting);
    return;
  }
  TRACE("Interface:       %s\n", root->ifname);
  TRACE("Speed:           PHY=%10u/%-10u kbit/s, LINK=%10u/%-10u kbit/s\n", root->phy_rate[0], root->phy_rate[1],
        root->link_rate[0], root->link_rate[1]);
  TRACE("Root QDisc Type: %s\n", TxtMapById(root_type_names, root->type));

  switch (root->type) {
    case QOS_ROOT_PFIFO_FAST:
      TRACE("Queue length:    %u\n", root->params.pfifo.txqueuelen);
      return;
    case QOS_ROOT_HTB:
    case QOS_ROOT_HFSC:
      TRACE("Default Class ID:%d\n", root->params.tree.default_class);
      break;
    case QOS_ROOT_PRIO: {
      const uint8_t *map = root->params.prio.priomap;
      TRACE("Band:            %d\n", root->params.prio.bands);
      TRACE("PrioMap:\t        %d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d\n", map[0], map[1], map[2], map[3],
            map[4], map[5], map[6], map[7], map[8], map[9], map[10], map[11], map[12], map[13], map[14], map[15]);
      break;
    }
    default:
      TRACE("An error occur at not define root qdisc type\n");
      return;
  }
  report_classes(&root->classes, 0);
}

} // extern "C"
