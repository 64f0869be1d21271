// Writes and runs the scripts that apply an interface's QoS tree and take it away again.
#include "base/script.h"
#include "base/trace.h"
#include "qos/qos.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/qos.h"
#include "torvane/rules.h" // this looks upwards, because a start script ends with the rules

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_qos";

constexpr char start_script[] = "/var/tmp/qos_start";
constexpr char stop_script[] = "/var/tmp/qos_stop";

constexpr txt_map_entry curve_names[] = {
    {QOS_CURVE_UL, "ul"}, {QOS_CURVE_SC, "sc"}, {QOS_CURVE_LS, "ls"}, {QOS_CURVE_RT, "rt"}, unknown_row};

// A leaf queueing discipline has a handle of its own, made from the id of its class.
unsigned leaf_handle(const qos_class &tc_class) {
  return static_cast<unsigned>(tc_class.id) << 4;
}

// This is meant: ids in commands are padded with blanks to three columns, and no blank follows the last burst. tc takes
// both.
void write_htb_class(FILE *out, const char *ifname, unsigned parent, const qos_class &tc_class) {
  const htb_params &htb = tc_class.params.htb;
  fprintf(out, "tc class add dev %s parent 1:0x%-3x classid 1:0x%-3x htb rate %ukbit ceil %ukbit prio %u ", ifname,
          parent, tc_class.id, htb.rate, htb.ceil, htb.prio);
  if (htb.burst != 0)
    fprintf(out, "burst %u ", htb.burst);
  if (htb.cburst != 0)
    fprintf(out, "cburst %u", htb.cburst);
  fputc('\n', out);
}

// Writes one curve besides the upper limit: `sc` stands for both of the others, and only a leaf can have `rt`.
void write_hfsc_class(FILE *out, const char *ifname, unsigned parent, const qos_class &tc_class) {
  const hfsc_params &hfsc = tc_class.params.hfsc;
  fprintf(out, "tc class add dev %s parent 1:0x%-3x classid 1:0x%-3x hfsc ", ifname, parent, tc_class.id);
  hfsc_curve_text(out, &hfsc.ul, QOS_CURVE_UL);
  if (hfsc.sc.rate != 0)
    hfsc_curve_text(out, &hfsc.sc, QOS_CURVE_SC);
  else if (hfsc.ls.rate != 0)
    hfsc_curve_text(out, &hfsc.ls, QOS_CURVE_LS);
  else if (hfsc.rt.rate != 0 && is_leaf(tc_class))
    hfsc_curve_text(out, &hfsc.rt, QOS_CURVE_RT);
  fputc('\n', out);
}

void write_leaf(FILE *out, const char *ifname, const qos_class &tc_class) {
  const auto &leaf = tc_class.leaf.params;
  fprintf(out, "tc qdisc add dev %s parent 1:0x%-3x handle 0x%x: ", ifname, tc_class.id, leaf_handle(tc_class));
  switch (tc_class.leaf.type) {
    case QOS_LEAF_PFIFO:
      fputs("pfifo ", out);
      if (leaf.pfifo.limit != 0)
        fprintf(out, "limit %u", leaf.pfifo.limit);
      fputc('\n', out);
      break;
    case QOS_LEAF_SFQ:
      fputs("sfq ", out);
      if (leaf.sfq.perturb != 0)
        fprintf(out, "perturb %d", leaf.sfq.perturb);
      fputc('\n', out);
      break;
    case QOS_LEAF_RED:
      fprintf(out, "red min %ub max %ub burst %u limit %ub avpkt %ub\n", leaf.red.min, leaf.red.max, leaf.red.burst,
              leaf.red.limit, leaf.red.avpkt);
      break;
    case QOS_LEAF_TBF:
      fprintf(out, "tbf latency %ums rate %ukbit burst %ub\n", leaf.tbf.latency, leaf.tbf.rate, leaf.tbf.burst);
      break;
    default:
      // This is meant: the line stays open, and the filter's command is appended to it.
      TRACE_AS("do_leaf2cmd", "An error occur at not define leaf qdisc type\n");
      break;
  }
}

void write_filter(FILE *out, const char *ifname, const qos_class &tc_class) {
  fprintf(out, "tc filter add dev %s parent 1:0 protocol ip prio 50 handle 0x%x fw classid 1:0x%x\n", ifname,
          tc_class.id, tc_class.id);
}

struct Script {
  FILE *out;
  const char *ifname;
};

bool write_class(qos_class &tc_class, uint16_t owner, void *context) {
  const Script &script = *static_cast<Script *>(context);
  FILE *const out = script.out;
  const char *const ifname = script.ifname;
  // This is meant: class 1 hangs on the root, wherever in the tree it stands.
  const unsigned parent = tc_class.id == 1 ? 0 : owner;
  if (tc_class.type == QOS_CLASS_HTB)
    write_htb_class(out, ifname, parent, tc_class);
  else if (tc_class.type == QOS_CLASS_HFSC)
    write_hfsc_class(out, ifname, parent, tc_class);

  if (is_leaf(tc_class)) {
    write_leaf(out, ifname, tc_class);
    write_filter(out, ifname, tc_class);
  }
  return false;
}

void write_classes(FILE *out, const char *ifname, list_node *head, uint16_t owner) {
  Script script = {out, ifname};
  walk_classes(head, owner, write_class, &script);
}

void write_root_removal(FILE *out, const char *ifname) {
  fprintf(out, "tc qdisc del dev %s root 2>/dev/null\n", ifname);
}

void write_root(FILE *out, root_qdisc *root) {
  const auto &params = root->params;
  switch (root->type) {
    case QOS_ROOT_PFIFO_FAST:
      fprintf(out, "ifconfig %s txqueuelen %u\n", root->ifname, params.pfifo.txqueuelen);
      return;
    case QOS_ROOT_HTB:
      fprintf(out, "tc qdisc add dev %s handle 1:0 root htb default 0x%x\n", root->ifname, params.tree.default_class);
      break;
    case QOS_ROOT_HFSC:
      fprintf(out, "tc qdisc add dev %s handle 1:0 root hfsc default 0x%x\n", root->ifname, params.tree.default_class);
      break;
    case QOS_ROOT_PRIO:
      fprintf(out, "tc qdisc add dev %s handle 1:0 root prio bands %d priomap", root->ifname, params.prio.bands);
      for (const uint8_t band : params.prio.priomap)
        fprintf(out, " %d", band);
      fputc('\n', out);
      break;
    default:
      return;
  }
  write_classes(out, root->ifname, &root->classes, 0);
}

} // namespace

extern "C" {

void hfsc_curve_text(FILE *out, const hfsc_curve *curve, uint32_t kind) {
  fprintf(out, "%s ", TxtMapById(curve_names, kind));
  if (curve->umax != 0)
    fprintf(out, "umax %ub ", curve->umax);
  if (curve->dmax != 0)
    fprintf(out, "dmax %ums ", curve->dmax);
  fprintf(out, "rate %ukbit ", curve->rate);
}

void do_leaf2cmd(FILE *out, const char *ifname, list_node *head) {
  if (ifname)
    write_classes(out, ifname, head, owner_of(head));
}

// This is meant: functions that run scripts return 1 for success, and those that change a tree return 0.

int start_qos(const char *ifname) {
  root_qdisc *root = root_qdisc_find_by_name(ifname);
  if (!root)
    return 0;
  FILE *out = open_script(start_script);
  if (!out)
    return 0;
  write_root_removal(out, root->ifname);
  write_root(out, root);
  renew_qos_rule(out, root->ifname, &root->rules);
  return run_script(out, start_script);
}

int stop_qos(const char *ifname) {
  const root_qdisc *root = root_qdisc_find_by_name(ifname);
  if (!root)
    return 0;
  FILE *out = open_script(stop_script);
  if (!out)
    return 0;
  write_root_removal(out, root->ifname);
  remove_qos_rule(out, root->ifname);
  return run_script(out, stop_script);
}

int restart_qos(const char *ifname) {
  return stop_qos(ifname) ? start_qos(ifname) : 0;
}

void restart_qos_all(void) {
  if (list_empty(&qos_root)) {
    TRACE("Qos list empty!!\n");
    return;
  }
  for (const root_qdisc &root : roots()) {
    restart_qos(root.ifname);
    TRACE("Start %s's Qos!!\n", root.ifname);
  }
}

} // extern "C"
