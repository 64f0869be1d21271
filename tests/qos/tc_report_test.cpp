#include <algorithm>

#include "qos/tree_builders.h"

namespace {

using trees::Messages;

using Report = trees::Test;

// Returns what a report writes to the console, each line after the function in its header: "draw_class|class: ...\n".
template <typename Writer>
std::string report_of(Writer report) {
  sandbox::clear_console();
  report();
  std::string text;
  for (const sandbox::Trace &trace : sandbox::console()) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ(getpid(), trace.process);
    EXPECT_EQ("quorra_qos", trace.file);
    text += trace.func + "|" + trace.message;
  }
  return text;
}

std::string report_of_interface(const char *ifname) {
  return report_of([=] { show_ifqos(ifname); });
}

std::string report_of_classes(const char *ifname) {
  return report_of([=] { show_class(ifname); });
}

std::string report_of_list(list_node *head) {
  return report_of([=] { draw_class(head); });
}

constexpr char fresh_htb_classes[] =
    "draw_class|class:           C_HTB handle   1:1       100000 kbps     100000 kbps    1000000 byte    1000000 byte "
    "prio: 0\n"
    "draw_class|class:           C_HTB handle   1:2       100000 kbps     100000 kbps       6000 byte       6000 byte "
    "prio: 0\n"
    "show_leaf|leaf qdisc:      L_SFQ perturb = 10 sec\n"
    "draw_class|class:           C_HTB handle   1:3        20000 kbps      20000 kbps       6000 byte       6000 byte "
    "prio: 0\n"
    "show_leaf|leaf qdisc:      L_pfifo limit = 0\n";

TEST_F(Report, OfAFreshHtbTree) {
  trees::add_htb("eth1");
  EXPECT_EQ(std::string("show_ifqos|Interface:       eth1\n"
                        "show_ifqos|Speed:           PHY=    100000/200000     kbit/s, LINK=     20000/30000      "
                        "kbit/s\n"
                        "show_ifqos|Root QDisc Type: R_HTB\n"
                        "show_ifqos|Default Class ID:3\n") +
                fresh_htb_classes,
            report_of_interface("eth1"));
  EXPECT_EQ(fresh_htb_classes, report_of_classes("eth1"));
  EXPECT_EQ(fresh_htb_classes, report_of_list(&root_qdisc_find_by_name("eth1")->classes));
}

TEST_F(Report, OfAnHfscTree) {
  trees::add_hfsc("eth1", 65535);
  const hfsc_params params = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {4294967295u, 4294967295u, 4294967295u}};
  add_class("eth1", 3, 1000, &params);
  EXPECT_EQ(
      "show_ifqos|Interface:       eth1\n"
      "show_ifqos|Speed:           PHY=    100000/200000     kbit/s, LINK=     20000/30000      kbit/s\n"
      "show_ifqos|Root QDisc Type: R_HFSC\n"
      "show_ifqos|Default Class ID:65535\n"
      "draw_class|class:           C_HFSC handle   1:1  \n"
      "draw_class|                 ul:        0 byte/        0 ms/   100000 kbps   sc:        0 byte/        0 ms/   "
      "100000 kbps\n"
      "draw_class|                 ls:        0 byte/        0 ms/        0 kbps   rt:        0 byte/        0 ms/   "
      "     0 kbps\n"
      "draw_class|class:           C_HFSC handle   1:2  \n"
      "draw_class|                 ul:        0 byte/        0 ms/   100000 kbps   sc:        0 byte/        0 ms/   "
      "100000 kbps\n"
      "draw_class|                 ls:        0 byte/        0 ms/        0 kbps   rt:        0 byte/        0 ms/   "
      "     0 kbps\n"
      "show_leaf|leaf qdisc:      L_SFQ perturb = 10 sec\n"
      "draw_class|class:           C_HFSC handle   1:3  \n"
      "draw_class|                 ul:        0 byte/        0 ms/    20000 kbps   sc:        0 byte/        0 ms/   "
      " 20000 kbps\n"
      "draw_class|                 ls:        0 byte/        0 ms/        0 kbps   rt:        0 byte/        0 ms/   "
      "     0 kbps\n"
      "draw_class|class:           C_HFSC handle   3:1000\n"
      "draw_class|                 ul:        1 byte/        2 ms/        3 kbps   sc:        4 byte/        5 ms/   "
      "     6 kbps\n"
      "draw_class|                 ls:        7 byte/        8 ms/        9 kbps   rt:4294967295 "
      "byte/4294967295 ms/4294967295 kbps\n"
      "show_leaf|leaf qdisc:      L_pfifo limit = 0\n",
      report_of_interface("eth1"));
}

TEST_F(Report, OfAPrioTree) {
  trees::add_prio("eth1");
  EXPECT_EQ(
      "show_ifqos|Interface:       eth1\n"
      "show_ifqos|Speed:           PHY=    100000/200000     kbit/s, LINK=     20000/30000      kbit/s\n"
      "show_ifqos|Root QDisc Type: R_PRIO\n"
      "show_ifqos|Band:            3\n"
      "show_ifqos|PrioMap:\t        1,2,2,2,1,2,0,0,1,1,1,1,1,1,1,255\n"
      "show_leaf|leaf qdisc:      L_pfifo limit = 0\n"
      "show_leaf|leaf qdisc:      L_pfifo limit = 0\n"
      "show_leaf|leaf qdisc:      L_pfifo limit = 0\n",
      report_of_interface("eth1"));
}

TEST_F(Report, OfPfifoFastHasNoClasses) {
  const uint32_t fastest[4] = {4294967295u, 4294967294u, 4294967293u, 0};
  const root_params_pfifo params = {4294967295u};
  add_root_qdisc(fastest, "a-name-of-thirty-one-characters", QOS_ROOT_PFIFO_FAST, &params);
  EXPECT_EQ(
      "show_ifqos|Interface:       a-name-of-thirty-one-characters\n"
      "show_ifqos|Speed:           PHY=4294967293/0          kbit/s, LINK=4294967295/4294967294 kbit/s\n"
      "show_ifqos|Root QDisc Type: R_pfifo_fast\n"
      "show_ifqos|Queue length:    4294967295\n",
      report_of_interface("a-name-of-thirty-one-characters"));
  EXPECT_EQ("", report_of_classes("a-name-of-thirty-one-characters"));
}

TEST_F(Report, OfAnUnknownRootTypeEndsWithAnError) {
  trees::add_htb("eth1");
  root_qdisc_find_by_name("eth1")->type = 4;
  EXPECT_EQ(
      "show_ifqos|Interface:       eth1\n"
      "show_ifqos|Speed:           PHY=    100000/200000     kbit/s, LINK=     20000/30000      kbit/s\n"
      "show_ifqos|Root QDisc Type: Unknown\n"
      "show_ifqos|An error occur at not define root qdisc type\n",
      report_of_interface("eth1"));
  EXPECT_EQ(fresh_htb_classes, report_of_classes("eth1"));
  root_qdisc_find_by_name("eth1")->type = QOS_ROOT_HTB;
}

TEST_F(Report, UnknownInterfaceIsOneLine) {
  for (const bool list_is_empty : {true, false}) {
    if (!list_is_empty)
      trees::add_htb("eth1");
    for (const char *ifname : {"eth9", static_cast<const char *>(nullptr)}) {
      EXPECT_EQ("show_ifqos|didn't found qos setting in this interface!\n", report_of_interface(ifname));
      EXPECT_EQ("show_class|didn't found qos setting in this interface!\n", report_of_classes(ifname));
    }
  }
}

TEST_F(Report, LeafLineIsThatOfItsType) {
  leaf_qdisc unknown = {};
  unknown.type = 4;
  const struct {
    leaf_qdisc leaf;
    const char *line;
  } cases[] = {
      {trees::pfifo(4294967295u), "leaf qdisc:      L_pfifo limit = 4294967295\n"},
      {trees::sfq(0), "leaf qdisc:      L_SFQ perturb = 0 sec\n"},
      {trees::sfq(255), "leaf qdisc:      L_SFQ perturb = 255 sec\n"},
      {trees::red(1, 2, 3, 4, 5), "leaf qdisc:      L_RED 1 byte, 2 byte, 3 packets, 4 byte, 5 byte\n"},
      {trees::red(4294967295u, 4294967294u, 4294967293u, 4294967292u, 4294967291u),
       "leaf qdisc:      L_RED 4294967295 byte, 4294967294 byte, 4294967293 packets, 4294967292 byte, 4294967291 "
       "byte\n"},
      {trees::tbf(1, 2, 3), "leaf qdisc:      L_TBF 1 ms, 2 kbps, 3 byte\n"},
      {trees::tbf(4294967295u, 4294967294u, 4294967293u),
       "leaf qdisc:      L_TBF 4294967295 ms, 4294967294 kbps, 4294967293 byte\n"},
      {unknown, "An error occur at not define leaf qdisc type\n"},
  };
  trees::add_prio("eth1", 1);
  for (const auto &c : cases) {
    add_leaf_qdisc("eth1", 1, &c.leaf);
    EXPECT_EQ(std::string("show_leaf|") + c.line, report_of_classes("eth1"));
  }
}

TEST_F(Report, LeafOfAClassWithChildrenIsNotShownUntilTheyAreGone) {
  trees::add_htb("eth1");
  trees::add_htb_class("eth1", 2, 20);
  EXPECT_EQ(std::string::npos, report_of_classes("eth1").find("L_SFQ"));
  del_class("eth1", 20);
  EXPECT_EQ(fresh_htb_classes, report_of_classes("eth1"));
}

TEST_F(Report, HtbNumbersWidenTheirColumns) {
  trees::add_bare_htb("eth1");
  trees::add_htb_class("eth1", 0, 65534);
  trees::add_htb_class("eth1", 65534, 65535, {4294967295u, 4294967294u, 4294967293u, 4294967292u, 4294967291u});
  EXPECT_EQ(
      "draw_class|class:           C_HTB handle   0:65534          1 kbps          2 kbps          3 byte          4 "
      "byte prio: 5\n"
      "draw_class|class:           C_HTB handle 65534:65535 4294967295 kbps 4294967294 kbps 4294967293 byte "
      "4294967292 byte prio:4294967291\n"
      "show_leaf|leaf qdisc:      L_pfifo limit = 0\n",
      report_of_classes("eth1"));
}

TEST_F(Report, AnyListFindsItsOwnerAndClassOneShowsItselfAsParent) {
  // The tree is 7(1(8(9)),10), then another 1 at the top. Class 1 is shown as 1:1 anywhere.
  trees::add_prio("eth0", 1);
  trees::add_bare_htb("eth1");
  trees::add_htb_class("eth1", 0, 7);
  trees::add_htb_class("eth1", 7, 1);
  trees::add_htb_class("eth1", 1, 8);
  trees::add_htb_class("eth1", 8, 9);
  trees::add_htb_class("eth1", 7, 10);
  trees::add_htb_class("eth1", 0, 1);
  const std::string numbers = "          1 kbps          2 kbps          3 byte          4 byte prio: 5\n";
  const std::string leaf = "show_leaf|leaf qdisc:      L_pfifo limit = 0\n";
  const std::string class_9 = "draw_class|class:           C_HTB handle   8:9  " + numbers + leaf;
  const std::string below_1 = "draw_class|class:           C_HTB handle   1:8  " + numbers + class_9;
  const std::string below_7 = "draw_class|class:           C_HTB handle   1:1  " + numbers + below_1 +
                              "draw_class|class:           C_HTB handle   7:10 " + numbers + leaf;
  EXPECT_EQ(class_9, report_of_list(&class_find("eth1", 8)->children));
  EXPECT_EQ(below_1, report_of_list(&class_find("eth1", 1)->children));
  EXPECT_EQ(below_7, report_of_list(&class_find("eth1", 7)->children));
  const std::string all = "draw_class|class:           C_HTB handle   0:7  " + numbers + below_7 +
                          "draw_class|class:           C_HTB handle   1:1  " + numbers + leaf;
  EXPECT_EQ(all, report_of_list(&root_qdisc_find_by_name("eth1")->classes));
  EXPECT_EQ(all, report_of_classes("eth1"));
  EXPECT_EQ("", report_of_list(&class_find("eth1", 9)->children));
}

TEST_F(Report, ChangesNothing) {
  trees::add_htb("eth1", 3, trees::eight_marks);
  const std::string first = report_of_interface("eth1");
  EXPECT_EQ(first, report_of_interface("eth1"));
  EXPECT_EQ("1(2~10,3)", trees::shape("eth1"));
  EXPECT_FALSE(sandbox::exists("/var/tmp/qos_start"));
  EXPECT_FALSE(sandbox::exists("/var/tmp/qos_stop"));
}

TEST_F(Report, OpensAndClosesTheConsoleOncePerLine) {
  trees::add_hfsc("eth1");
  sandbox::ConsoleWatch watch;
  show_ifqos("eth1");
  const sandbox::ConsoleWatch::Counts counts = watch.counts();
  EXPECT_EQ(15, counts.opens); // 4 lines of the interface, 3 of each class, 2 leaves
  EXPECT_EQ(15, counts.closes);
  EXPECT_EQ(15u, sandbox::console().size());
}

TEST_F(Report, WithoutAConsoleNothingIsWrittenAndNothingBreaks) {
  trees::add_htb("eth1");
  const int descriptors = sandbox::open_descriptors();
  {
    const sandbox::UnopenableConsole no_console;
    errno = 0;
    show_ifqos("eth1");
    show_class("eth1");
    show_ifqos("eth9");
    EXPECT_EQ(0, errno);
  }
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
  EXPECT_EQ(fresh_htb_classes, report_of_classes("eth1"));
}

// A stream for which there is no memory fails to open, and its line alone is missing.
TEST_F(Report, ALineWhoseConsoleCannotBeOpenedIsSkippedAlone) {
  trees::add_htb("eth1");
  show_ifqos("eth1");
  const Messages whole = sandbox::console_messages();
  ASSERT_EQ(9u, whole.size());
  std::vector<bool> was_missing(whole.size());
  for (unsigned n = 1;; n++) {
    SCOPED_TRACE(n);
    sandbox::clear_console();
    sandbox::fail_allocation(n);
    show_ifqos("eth1");
    const bool failed = sandbox::allocation_failed();
    sandbox::fail_allocation(0);
    const Messages lines = sandbox::console_messages();
    if (lines != whole) {
      const auto at = std::mismatch(lines.begin(), lines.end(), whole.begin()).second;
      Messages without_it = whole;
      without_it.erase(without_it.begin() + (at - whole.begin()));
      EXPECT_EQ(without_it, lines);
      was_missing[static_cast<size_t>(at - whole.begin())] = true;
    }
    if (!failed)
      break;
  }
  EXPECT_EQ(std::vector<bool>(whole.size(), true), was_missing);
}

} // namespace
