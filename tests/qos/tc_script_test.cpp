// Texts of the start and stop scripts, and the lines of classes in them.
#include <bit>

#include "qos/scripts.h"
#include "qos/tree_builders.h"
#include "support/script_goldens.h"

namespace {

using goldens::banner;
using goldens::chain_removal;
using goldens::chain_renewal;
using sandbox::console_messages;
using sandbox::read_file;
using sandbox::written;
using scripts::removal_of_root;
using scripts::start_script;
using scripts::stop_script;
using scripts::tools;
using trees::Messages;

using StartScript = trees::Test;
using StopScript = trees::Test;
using ClassLines = trees::Test;
using CurveText = trees::Test;

// The commands of trees::eight_marks.
constexpr char automatic_marks[] =
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 100 -j MARK --set-mark 0x2 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 200 -j MARK --set-mark 0x3 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 300 -j MARK --set-mark 0xff 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 400 -j MARK --set-mark 0x0 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 500 -j MARK --set-mark 0x5 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 600 -j MARK --set-mark 0xffff 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 700 -j MARK --set-mark 0x7 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 800 -j MARK --set-mark 0x8 2>/dev/null\n";

// Runs start_qos with stand-ins for its tools and returns the script.
std::string start_script_of(const char *ifname) {
  const sandbox::StandIns stand_ins(tools);
  EXPECT_EQ(1, start_qos(ifname));
  return read_file(start_script);
}

void add_rule(const char *ifname, uint8_t index, const qos_match &match, uint32_t mark) {
  qos_target target = {};
  target.target_flags = 1u << QOS_TARGET_MARK;
  target.mark = mark;
  ASSERT_EQ(1u, add_qos_rule(ifname, index, trees::exact(match).get(), trees::exact(target).get()));
}

std::string lines_of(const char *ifname, list_node *head) {
  return written([&](FILE *out) { do_leaf2cmd(out, ifname, head); });
}

std::string lines_of(const char *ifname) {
  return lines_of(ifname, &root_qdisc_find_by_name(ifname)->classes);
}

std::string first_line(const std::string &text) {
  return text.substr(0, text.find('\n') + 1);
}

TEST_F(StartScript, OfAFreshHtbTree) {
  trees::add_htb("eth1");
  EXPECT_EQ(std::string(banner) + removal_of_root +
                "tc qdisc add dev eth1 handle 1:0 root htb default 0x3\n"
                "tc class add dev eth1 parent 1:0x0   classid 1:0x1   htb rate 100000kbit ceil 100000kbit prio 0 "
                "burst 1000000 cburst 1000000\n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x2   htb rate 100000kbit ceil 100000kbit prio 0 "
                "burst 6000 cburst 6000\n"
                "tc qdisc add dev eth1 parent 1:0x2   handle 0x20: sfq perturb 10\n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x3   htb rate 20000kbit ceil 20000kbit prio 0 "
                "burst 6000 cburst 6000\n"
                "tc qdisc add dev eth1 parent 1:0x3   handle 0x30: pfifo \n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x3 fw classid 1:0x3\n" +
                chain_renewal,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfAFreshHfscTree) {
  trees::add_hfsc("eth1", 0xabcd, trees::eight_marks);
  EXPECT_EQ(std::string(banner) + removal_of_root +
                "tc qdisc add dev eth1 handle 1:0 root hfsc default 0xabcd\n"
                "tc class add dev eth1 parent 1:0x0   classid 1:0x1   hfsc ul rate 100000kbit sc rate 100000kbit \n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x2   hfsc ul rate 100000kbit sc rate 100000kbit \n"
                "tc qdisc add dev eth1 parent 1:0x2   handle 0x20: sfq perturb 10\n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x3   hfsc ul rate 20000kbit sc rate 20000kbit \n"
                "tc qdisc add dev eth1 parent 1:0x3   handle 0x30: pfifo \n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x3 fw classid 1:0x3\n" +
                chain_renewal + automatic_marks,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfAPrioTree) {
  trees::add_prio("eth1", 3, trees::eight_marks);
  const leaf_qdisc leaf = trees::red(1000, 2000, 3, 4000, 500);
  add_leaf_qdisc("eth1", 2, &leaf);
  EXPECT_EQ(std::string(banner) + removal_of_root +
                "tc qdisc add dev eth1 handle 1:0 root prio bands 3 priomap 1 2 2 2 1 2 0 0 1 1 1 1 1 1 1 255\n"
                "tc qdisc add dev eth1 parent 1:0x1   handle 0x10: pfifo \n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x1 fw classid 1:0x1\n"
                "tc qdisc add dev eth1 parent 1:0x2   handle 0x20: red min 1000b max 2000b burst 3 limit 4000b "
                "avpkt 500b\n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n"
                "tc qdisc add dev eth1 parent 1:0x3   handle 0x30: pfifo \n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x3 fw classid 1:0x3\n" +
                chain_renewal + automatic_marks,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfAPrioTreeWithoutBands) {
  trees::add_prio("eth1", 0);
  EXPECT_EQ(std::string(banner) + removal_of_root +
                "tc qdisc add dev eth1 handle 1:0 root prio bands 0 priomap 1 2 2 2 1 2 0 0 1 1 1 1 1 1 1 255\n" +
                chain_renewal,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfPfifoFastSetsTheQueueLengthAlone) {
  trees::add_pfifo_fast("eth1", 4294967295u);
  EXPECT_EQ(std::string(banner) + removal_of_root + "ifconfig eth1 txqueuelen 4294967295\n" + chain_renewal,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfAnUnknownRootTypeRenewsTheChainsAlone) {
  trees::add_htb("eth1", 3, trees::eight_marks);
  root_qdisc_find_by_name("eth1")->type = 7;
  EXPECT_EQ(std::string(banner) + removal_of_root + chain_renewal, start_script_of("eth1"));
  EXPECT_EQ(Messages{}, console_messages());
  root_qdisc_find_by_name("eth1")->type = QOS_ROOT_HTB;
}

TEST_F(StartScript, OfATreeWithEverythingInIt) {
  trees::add_htb("eth1", 31, trees::eight_marks);
  trees::add_htb("eth2");
  trees::add_htb_class("eth1", 3, 31, {500, 600, 0, 0, 7});
  trees::add_htb_class("eth1", 3, 0xffff, {700, 800, 1600, 0, 4294967295u});
  const leaf_qdisc tbf = trees::tbf(50, 500, 1600), limited = trees::pfifo(30);
  add_leaf_qdisc("eth1", 2, &limited);
  add_leaf_qdisc("eth1", 31, &tbf);

  qos_match match = {};
  match.match_flags = 1u << QOS_MATCH_PROTOCOL | 1u << QOS_MATCH_MAC;
  match.protocol = QOS_PROTO_BOTH;
  match.dport_min = 80;
  match.dport_max = 90;
  strcpy(match.src_mac, "00:11:22:33:44:55");
  const uint8_t schedule[7] = {5, 0x41, 1, 0, 0, 0, 0};
  add_sched(schedule);
  qos_match scheduled = {};
  scheduled.sched_index = 5;
  add_rule("eth1", 9, match, 0xffff);
  add_rule("eth1", 2, scheduled, 31);

  EXPECT_EQ(std::string(banner) + removal_of_root +
                "tc qdisc add dev eth1 handle 1:0 root htb default 0x1f\n"
                "tc class add dev eth1 parent 1:0x0   classid 1:0x1   htb rate 100000kbit ceil 100000kbit prio 0 "
                "burst 1000000 cburst 1000000\n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x2   htb rate 100000kbit ceil 100000kbit prio 0 "
                "burst 6000 cburst 6000\n"
                "tc qdisc add dev eth1 parent 1:0x2   handle 0x20: pfifo limit 30\n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n"
                "tc class add dev eth1 parent 1:0x1   classid 1:0x3   htb rate 20000kbit ceil 20000kbit prio 0 "
                "burst 6000 cburst 6000\n"
                "tc class add dev eth1 parent 1:0x3   classid 1:0x1f  htb rate 500kbit ceil 600kbit prio 7 \n"
                "tc qdisc add dev eth1 parent 1:0x1f  handle 0x1f0: tbf latency 50ms rate 500kbit burst 1600b\n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x1f fw classid 1:0x1f\n"
                "tc class add dev eth1 parent 1:0x3   classid 1:0xffff htb rate 700kbit ceil 800kbit "
                "prio 4294967295 burst 1600 \n"
                "tc qdisc add dev eth1 parent 1:0xffff handle 0xffff0: pfifo \n"
                "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0xffff fw classid 1:0xffff\n" +
                chain_renewal +
                "iptables -t mangle -A QOS_eth1 -m time --timestart 00:00 --timestop 23:59 --days Sun,Sat "
                "-j MARK --set-mark 0x1f \n"
                "iptables -t mangle -A QOS_eth1 -p tcp --dport 80:90 -m mac --mac-source 00:11:22:33:44:55 "
                "-j MARK --set-mark 0xffff \n"
                "iptables -t mangle -A QOS_eth1 -p udp --dport 80:90 -m mac --mac-source 00:11:22:33:44:55 "
                "-j MARK --set-mark 0xffff \n" +
                automatic_marks,
            start_script_of("eth1"));
}

TEST_F(StartScript, OfAnUnknownLeafTypeRunsItsOpenLineIntoTheFilter) {
  trees::add_htb("eth1");
  leaf_qdisc leaf = {};
  leaf.type = 4;
  add_leaf_qdisc("eth1", 2, &leaf);
  const std::string script = start_script_of("eth1");
  EXPECT_NE(
      std::string::npos,
      script.find("\ntc qdisc add dev eth1 parent 1:0x2   handle 0x20: tc filter add dev eth1 parent 1:0 protocol "
                  "ip prio 50 handle 0x2 fw classid 1:0x2\ntc class add dev eth1 parent 1:0x1   classid 1:0x3"))
      << script;
  const std::vector<sandbox::Trace> traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("An error occur at not define leaf qdisc type\n", traces[0].message);
  EXPECT_EQ("quorra_qos", traces[0].file);
  EXPECT_EQ("do_leaf2cmd", traces[0].func);
  EXPECT_TRUE(traces[0].has_process);
}

TEST_F(StopScript, RemovesTheRootAndTheChainsWhateverTheTree) {
  const uint32_t unknown = 4; // a PRIO tree is given this type
  for (uint32_t type = QOS_ROOT_PFIFO_FAST; type <= unknown; type++) {
    SCOPED_TRACE(type);
    const uint32_t real_type = type == unknown ? uint32_t{QOS_ROOT_PRIO} : type;
    trees::add_any("eth1", real_type);
    root_qdisc_find_by_name("eth1")->type = type;
    {
      const sandbox::StandIns stand_ins(tools);
      EXPECT_EQ(1, stop_qos("eth1"));
    }
    EXPECT_EQ(std::string(banner) + removal_of_root + chain_removal, read_file(stop_script));
    EXPECT_EQ(0700, sandbox::mode_of(stop_script));
    EXPECT_FALSE(sandbox::exists(start_script));
    root_qdisc_find_by_name("eth1")->type = real_type;
    trees::delete_all();
  }
}

TEST_F(StopScript, LeavesTreeAndRulesInMemory) {
  trees::add_htb("eth1", 3, trees::eight_marks);
  add_rule("eth1", 1, {}, 2);
  const sandbox::StandIns stand_ins(tools);
  EXPECT_EQ(1, stop_qos("eth1"));
  EXPECT_EQ("1(2~10,3)", trees::shape("eth1"));
  EXPECT_FALSE(list_empty(find_rule_list_by_name("eth1")));
  EXPECT_EQ(std::string(banner) + removal_of_root + chain_removal, read_file(stop_script));
}

TEST_F(ClassLines, HtbWritesBurstsThatAreNotZero) {
  trees::add_bare_htb("eth1");
  const struct {
    htb_params params;
    const char *line;
  } cases[] = {
      {{1, 2, 0, 0, 0}, "htb rate 1kbit ceil 2kbit prio 0 \n"},
      {{1, 2, 3000, 0, 4}, "htb rate 1kbit ceil 2kbit prio 4 burst 3000 \n"},
      {{1, 2, 0, 5000, 0}, "htb rate 1kbit ceil 2kbit prio 0 cburst 5000\n"},
      {{1, 2, 3000, 5000, 4}, "htb rate 1kbit ceil 2kbit prio 4 burst 3000 cburst 5000\n"},
      {{0, 0, 0, 0, 0}, "htb rate 0kbit ceil 0kbit prio 0 \n"},
      {{4294967295u, 4294967295u, 4294967295u, 4294967295u, 4294967295u},
       "htb rate 4294967295kbit ceil 4294967295kbit prio 4294967295 burst 4294967295 cburst 4294967295\n"},
  };
  for (const auto &c : cases) {
    trees::add_htb_class("eth1", 0, 5, c.params);
    EXPECT_EQ(std::string("tc class add dev eth1 parent 1:0x0   classid 1:0x5   ") + c.line,
              first_line(lines_of("eth1")));
    del_class("eth1", 5);
  }
}

TEST_F(ClassLines, HfscWritesTheUpperLimitAndTheFirstOtherCurveThatIsSet) {
  const hfsc_curve ul = {1, 2, 3}, sc = {4, 5, 6}, ls = {7, 8, 9}, rt = {10, 11, 12};
  const hfsc_curve none = {99, 99, 0}; // without a rate a curve is not set
  const struct {
    hfsc_params params;
    const char *on_leaf, *on_inner;
  } cases[] = {
      {{ul, none, none, none}, "ul umax 1b dmax 2ms rate 3kbit ", "ul umax 1b dmax 2ms rate 3kbit "},
      {{ul, sc, none, none},
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit ",
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit "},
      {{ul, none, ls, none},
       "ul umax 1b dmax 2ms rate 3kbit ls umax 7b dmax 8ms rate 9kbit ",
       "ul umax 1b dmax 2ms rate 3kbit ls umax 7b dmax 8ms rate 9kbit "},
      {{ul, none, none, rt},
       "ul umax 1b dmax 2ms rate 3kbit rt umax 10b dmax 11ms rate 12kbit ",
       "ul umax 1b dmax 2ms rate 3kbit "},
      {{ul, sc, ls, none},
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit ",
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit "},
      {{ul, sc, none, rt},
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit ",
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit "},
      {{ul, none, ls, rt},
       "ul umax 1b dmax 2ms rate 3kbit ls umax 7b dmax 8ms rate 9kbit ",
       "ul umax 1b dmax 2ms rate 3kbit ls umax 7b dmax 8ms rate 9kbit "},
      {{ul, sc, ls, rt},
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit ",
       "ul umax 1b dmax 2ms rate 3kbit sc umax 4b dmax 5ms rate 6kbit "},
      {{{}, {}, {}, {}}, "ul rate 0kbit ", "ul rate 0kbit "},
      {{{}, {}, {}, {0, 0, 77}}, "ul rate 0kbit rt rate 77kbit ", "ul rate 0kbit "},
      {{none, {}, {0, 1, 2}, {}},
       "ul umax 99b dmax 99ms rate 0kbit ls dmax 1ms rate 2kbit ",
       "ul umax 99b dmax 99ms rate 0kbit ls dmax 1ms rate 2kbit "},
      {{{4294967295u, 4294967295u, 4294967295u}, {}, {}, {}},
       "ul umax 4294967295b dmax 4294967295ms rate 4294967295kbit ",
       "ul umax 4294967295b dmax 4294967295ms rate 4294967295kbit "},
  };
  trees::add_bare_hfsc("eth1");
  for (const auto &c : cases) {
    SCOPED_TRACE(c.on_leaf);
    add_class("eth1", 0, 5, &c.params);
    const std::string head = "tc class add dev eth1 parent 1:0x0   classid 1:0x5   hfsc ";
    EXPECT_EQ(head + c.on_leaf + "\n", first_line(lines_of("eth1")));
    const hfsc_params below = {};
    add_class("eth1", 5, 6, &below);
    EXPECT_EQ(head + c.on_inner +
                  "\n"
                  "tc class add dev eth1 parent 1:0x5   classid 1:0x6   hfsc ul rate 0kbit \n"
                  "tc qdisc add dev eth1 parent 1:0x6   handle 0x60: pfifo \n"
                  "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x6 fw classid 1:0x6\n",
              lines_of("eth1"));
    del_class("eth1", 5);
  }
}

TEST_F(ClassLines, AnInterfaceWithoutANameGetsNone) {
  trees::add_htb("eth1");
  EXPECT_EQ("", lines_of(nullptr, &root_qdisc_find_by_name("eth1")->classes));
}

TEST_F(ClassLines, LeafIsWrittenByItsType) {
  const struct {
    leaf_qdisc leaf;
    const char *text;
  } cases[] = {
      {trees::pfifo(0), "pfifo \n"},
      {trees::pfifo(1), "pfifo limit 1\n"},
      {trees::pfifo(4294967295u), "pfifo limit 4294967295\n"},
      {trees::sfq(0), "sfq \n"},
      {trees::sfq(10), "sfq perturb 10\n"},
      {trees::sfq(255), "sfq perturb 255\n"},
      {trees::red(0, 0, 0, 0, 0), "red min 0b max 0b burst 0 limit 0b avpkt 0b\n"},
      {trees::red(1, 2, 3, 4, 4294967295u), "red min 1b max 2b burst 3 limit 4b avpkt 4294967295b\n"},
      {trees::tbf(0, 0, 0), "tbf latency 0ms rate 0kbit burst 0b\n"},
      {trees::tbf(1, 2, 4294967295u), "tbf latency 1ms rate 2kbit burst 4294967295b\n"},
  };
  trees::add_prio("eth1", 1);
  for (const auto &c : cases) {
    ASSERT_EQ(0, add_leaf_qdisc("eth1", 1, &c.leaf));
    EXPECT_EQ(std::string("tc qdisc add dev eth1 parent 1:0x1   handle 0x10: ") + c.text +
                  "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x1 fw classid 1:0x1\n",
              lines_of("eth1"));
  }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(ClassLines, UnknownLeafLeavesItsLineOpenAndIsTraced) {
  trees::add_prio("eth1", 2);
  for (const uint32_t type : {4u, 0x01000000u, 0xffffffffu}) {
    sandbox::clear_console();
    leaf_qdisc leaf = {};
    leaf.type = type;
    add_leaf_qdisc("eth1", 1, &leaf);
    EXPECT_EQ(
        "tc qdisc add dev eth1 parent 1:0x1   handle 0x10: "
        "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x1 fw classid 1:0x1\n"
        "tc qdisc add dev eth1 parent 1:0x2   handle 0x20: pfifo \n"
        "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n",
        lines_of("eth1"));
    EXPECT_EQ(Messages{"An error occur at not define leaf qdisc type\n"}, console_messages());
  }
}

TEST_F(ClassLines, PerturbIsTheFirstByteInMemory) {
  trees::add_prio("eth1", 1);
  leaf_qdisc leaf = {};
  leaf.type = QOS_LEAF_SFQ;
  const uint32_t word = 10;
  memcpy(&leaf.params, &word, sizeof(word));
  add_leaf_qdisc("eth1", 1, &leaf);
  EXPECT_EQ(std::string("tc qdisc add dev eth1 parent 1:0x1   handle 0x10: ") +
                (std::endian::native == std::endian::big ? "sfq \n" : "sfq perturb 10\n"),
            first_line(lines_of("eth1")));
}

TEST_F(ClassLines, IdsAreHexadecimalAndPaddedToThreeColumnsInTcsClassNumbers) {
  const struct {
    uint16_t id;
    const char *text;
  } cases[] = {
      {1,
       "tc class add dev eth1 parent 1:0x0   classid 1:0x1   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
       "tc class add dev eth1 parent 1:0x1   classid 1:0xabc htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"},
      {0xff,
       "tc class add dev eth1 parent 1:0x0   classid 1:0xff  htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
       "tc class add dev eth1 parent 1:0xff  classid 1:0xabc htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"},
      {0xfff,
       "tc class add dev eth1 parent 1:0x0   classid 1:0xfff htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
       "tc class add dev eth1 parent 1:0xfff classid 1:0xabc htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"},
      {0xffff,
       "tc class add dev eth1 parent 1:0x0   classid 1:0xffff htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
       "tc class add dev eth1 parent 1:0xffff classid 1:0xabc htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"},
  };
  trees::add_bare_htb("eth1");
  for (const auto &c : cases) {
    trees::add_htb_class("eth1", 0, c.id);
    trees::add_htb_class("eth1", c.id, 0xabc);
    EXPECT_EQ(std::string(c.text) +
                  "tc qdisc add dev eth1 parent 1:0xabc handle 0xabc0: pfifo \n"
                  "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0xabc fw classid 1:0xabc\n",
              lines_of("eth1"));
    del_class("eth1", c.id);
  }

  const struct {
    uint16_t id;
    const char *text;
  } leaves[] = {
      {1,
       "tc qdisc add dev eth1 parent 1:0x1   handle 0x10: pfifo \n"
       "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x1 fw classid 1:0x1\n"},
      {0xff,
       "tc qdisc add dev eth1 parent 1:0xff  handle 0xff0: pfifo \n"
       "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0xff fw classid 1:0xff\n"},
      {0xfff,
       "tc qdisc add dev eth1 parent 1:0xfff handle 0xfff0: pfifo \n"
       "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0xfff fw classid 1:0xfff\n"},
      {0xffff,
       "tc qdisc add dev eth1 parent 1:0xffff handle 0xffff0: pfifo \n"
       "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0xffff fw classid 1:0xffff\n"},
  };
  for (const auto &c : leaves) {
    trees::add_htb_class("eth1", 0, c.id);
    const std::string text = lines_of("eth1");
    EXPECT_EQ(c.text, text.substr(text.find('\n') + 1));
    del_class("eth1", c.id);
  }
}

TEST_F(ClassLines, AnyListFindsItsOwnerAndClassOneHangsFromTheRoot) {
  // In the tree 7(1(8(9)),10) class 1 is below another class.
  trees::add_prio("eth0", 2);
  trees::add_bare_htb("eth1");
  trees::add_htb("eth2");
  trees::add_htb_class("eth1", 0, 7);
  trees::add_htb_class("eth1", 7, 1);
  trees::add_htb_class("eth1", 1, 8);
  trees::add_htb_class("eth1", 8, 9);
  trees::add_htb_class("eth1", 7, 10);
  const std::string class_9 =
      "tc class add dev dummy parent 1:0x8   classid 1:0x9   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
      "tc qdisc add dev dummy parent 1:0x9   handle 0x90: pfifo \n"
      "tc filter add dev dummy parent 1:0 protocol ip prio 50 handle 0x9 fw classid 1:0x9\n";
  const std::string below_1 =
      "tc class add dev dummy parent 1:0x1   classid 1:0x8   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n" +
      class_9;
  const std::string below_7 =
      "tc class add dev dummy parent 1:0x0   classid 1:0x1   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n" +
      below_1 +
      "tc class add dev dummy parent 1:0x7   classid 1:0xa   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n"
      "tc qdisc add dev dummy parent 1:0xa   handle 0xa0: pfifo \n"
      "tc filter add dev dummy parent 1:0 protocol ip prio 50 handle 0xa fw classid 1:0xa\n";
  EXPECT_EQ(class_9, lines_of("dummy", &class_find("eth1", 8)->children));
  EXPECT_EQ(below_1, lines_of("dummy", &class_find("eth1", 1)->children));
  EXPECT_EQ(below_7, lines_of("dummy", &class_find("eth1", 7)->children));
  EXPECT_EQ(
      "tc class add dev dummy parent 1:0x0   classid 1:0x7   htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n" +
          below_7,
      lines_of("dummy", &root_qdisc_find_by_name("eth1")->classes));

  // The bands of another tree have their own numbers, and a list without classes has no lines.
  EXPECT_EQ(
      "tc qdisc add dev dummy parent 1:0x1   handle 0x10: pfifo \n"
      "tc filter add dev dummy parent 1:0 protocol ip prio 50 handle 0x1 fw classid 1:0x1\n"
      "tc qdisc add dev dummy parent 1:0x2   handle 0x20: pfifo \n"
      "tc filter add dev dummy parent 1:0 protocol ip prio 50 handle 0x2 fw classid 1:0x2\n",
      lines_of("dummy", &root_qdisc_find_by_name("eth0")->classes));
  EXPECT_EQ("", lines_of("dummy", &class_find("eth1", 9)->children));
}

TEST_F(ClassLines, LeafComesBackWhenTheLastChildIsGone) {
  trees::add_htb("eth1");
  del_class("eth1", 3);
  const std::string before = lines_of("eth1");
  trees::add_htb_class("eth1", 2, 9);
  EXPECT_EQ(std::string::npos, lines_of("eth1").find("0x20:"));
  EXPECT_EQ(std::string::npos, lines_of("eth1").find("handle 0x2 fw"));
  del_class("eth1", 9);
  EXPECT_EQ(before, lines_of("eth1"));
}

TEST_F(CurveText, IsNameThenWhatIsNotZeroThenTheRate) {
  const struct {
    hfsc_curve curve;
    uint32_t kind;
    const char *text;
  } cases[] = {
      {{0, 0, 1}, 0, "ul rate 1kbit "},
      {{0, 0, 1}, 1, "sc rate 1kbit "},
      {{0, 0, 1}, 2, "ls rate 1kbit "},
      {{0, 0, 1}, 3, "rt rate 1kbit "},
      {{0, 0, 1}, 4, "Unknown rate 1kbit "},
      {{0, 0, 1}, 0xffffffffu, "Unknown rate 1kbit "},
      {{0, 0, 0}, 0, "ul rate 0kbit "},
      {{5, 0, 0}, 1, "sc umax 5b rate 0kbit "},
      {{0, 6, 0}, 2, "ls dmax 6ms rate 0kbit "},
      {{5, 6, 7}, 3, "rt umax 5b dmax 6ms rate 7kbit "},
      {{4294967295u, 4294967295u, 4294967295u}, 3, "rt umax 4294967295b dmax 4294967295ms rate 4294967295kbit "},
  };
  for (const auto &c : cases)
    EXPECT_EQ(c.text, written([&](FILE *out) { hfsc_curve_text(out, &c.curve, c.kind); }));
}

} // namespace
