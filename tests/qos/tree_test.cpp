// Trees, their automatic marks, and how they are found.
#include "qos/tree_builders.h"

namespace {

using sandbox::console_messages;
using trees::bytes_of;
using trees::Messages;
using trees::shape;

const std::string ifname_31(31, 'x');

using RootQdisc = trees::Test;
using Automark = trees::Test;
using Lookup = trees::Test;

// Makes a tree while one allocation after the other fails. Returns the outcomes as "result:classes", without
// repetitions.
Messages outcomes_of_failed_allocations(uint32_t type, const void *params) {
  Messages outcomes;
  const auto add_root = [=] { return add_root_qdisc(trees::speeds, "eth1", type, params); };
  const auto note = [&](int result, bool) {
    const std::string outcome = std::to_string(result) + ":" + shape("eth1");
    if (outcomes.empty() || outcomes.back() != outcome)
      outcomes.push_back(outcome);
    if (result == 0) {
      EXPECT_EQ(type, root_qdisc_find_by_name("eth1")->type);
      EXPECT_EQ(0, del_root_qdisc("eth1"));
    }
  };
  sandbox::fail_each_allocation(add_root, note);
  return outcomes;
}

TEST_F(RootQdisc, KeepsSpeedsNameTypeAndTheParametersOfItsType) {
  const struct {
    uint32_t type;
    size_t params_size;
  } cases[] = {{QOS_ROOT_PFIFO_FAST, 4}, {QOS_ROOT_HTB, 20}, {QOS_ROOT_HFSC, 20}, {QOS_ROOT_PRIO, 36}};
  for (const auto &expected : cases) {
    SCOPED_TRACE(expected.type);
    std::unique_ptr<char[]> params(new char[expected.params_size]);
    for (size_t i = 0; i < expected.params_size; i++)
      params[i] = static_cast<char>(i + 1);
    std::unique_ptr<uint32_t[]> speeds(new uint32_t[4]{11, 12, 13, 0xffffffffu});

    ASSERT_EQ(0, add_root_qdisc(speeds.get(), "eth1", expected.type, params.get()));
    const root_qdisc *root = root_qdisc_find_by_name("eth1");
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(11u, root->link_rate[0]);
    EXPECT_EQ(12u, root->link_rate[1]);
    EXPECT_EQ(13u, root->phy_rate[0]);
    EXPECT_EQ(0xffffffffu, root->phy_rate[1]);
    EXPECT_EQ("eth1" + std::string(28, '\0'), bytes_of(root->ifname, 32));
    EXPECT_EQ(expected.type, root->type);
    EXPECT_TRUE(list_empty(&root->rules));
    EXPECT_EQ(bytes_of(params.get(), expected.params_size) + std::string(36 - expected.params_size, '\0'),
              bytes_of(&root->params, 36));
    EXPECT_EQ(0, del_root_qdisc("eth1"));
  }
}

TEST_F(RootQdisc, HtbStartsWithThreeClassesAndFairQueueingOnTheSecond) {
  ASSERT_EQ(0, trees::add_htb("eth1"));
  EXPECT_EQ("1(2~10,3)", shape("eth1"));
  const struct {
    uint16_t id;
    uint32_t rate, burst;
    int is_leaf;
  } classes[] = {{1, 100000, 1000000, 0}, {2, 100000, 6000, 1}, {3, 20000, 6000, 1}};
  for (const auto &expected : classes) {
    SCOPED_TRACE(expected.id);
    const qos_class *tc_class = class_find("eth1", expected.id);
    const htb_params &htb = tc_class->params.htb;
    EXPECT_EQ(static_cast<uint32_t>(QOS_CLASS_HTB), tc_class->type);
    EXPECT_EQ(std::string(32, '\0'), bytes_of(tc_class->name, 32));
    EXPECT_EQ(expected.rate, htb.rate);
    EXPECT_EQ(expected.rate, htb.ceil);
    EXPECT_EQ(expected.burst, htb.burst);
    EXPECT_EQ(expected.burst, htb.cburst);
    EXPECT_EQ(0u, htb.prio);
    EXPECT_EQ(expected.is_leaf, check_Key("eth1", expected.id));
  }
  EXPECT_EQ(static_cast<uint32_t>(QOS_LEAF_PFIFO), class_find("eth1", 3)->leaf.type);
  EXPECT_EQ(0u, class_find("eth1", 3)->leaf.params.pfifo.limit);
}

TEST_F(RootQdisc, HfscStartsWithThreeClassesAndFairQueueingOnTheSecond) {
  ASSERT_EQ(0, trees::add_hfsc("eth1"));
  EXPECT_EQ("1(2~10,3)", shape("eth1"));
  const struct {
    uint16_t id;
    uint32_t rate;
    int is_leaf;
  } classes[] = {{1, 100000, 0}, {2, 100000, 1}, {3, 20000, 1}};
  for (const auto &expected : classes) {
    SCOPED_TRACE(expected.id);
    const qos_class *tc_class = class_find("eth1", expected.id);
    const hfsc_params params = {{0, 0, expected.rate}, {0, 0, expected.rate}, {0, 0, 0}, {0, 0, 0}};
    EXPECT_EQ(static_cast<uint32_t>(QOS_CLASS_HFSC), tc_class->type);
    EXPECT_EQ('\0', tc_class->name[0]);
    EXPECT_EQ(bytes_of(&params, 48), bytes_of(&tc_class->params, 48));
    EXPECT_EQ(expected.is_leaf, check_Key("eth1", expected.id));
  }
}

TEST_F(RootQdisc, PrioHasOneTopLevelClassPerBand) {
  for (const unsigned bands : {0u, 1u, 3u, 16u, 255u}) {
    SCOPED_TRACE(bands);
    ASSERT_EQ(0, trees::add_prio("eth1", static_cast<uint8_t>(bands)));
    root_qdisc *root = root_qdisc_find_by_name("eth1");
    unsigned band = 0;
    for (list_node *node = root->classes.next; node != &root->classes; node = node->next) {
      const qos_class *tc_class = trees::class_of(node);
      band++;
      EXPECT_EQ(band, tc_class->id);
      EXPECT_EQ(static_cast<uint32_t>(QOS_CLASS_PRIO), tc_class->type);
      EXPECT_EQ("Class" + std::to_string(band), tc_class->name);
      EXPECT_TRUE(list_empty(&tc_class->children));
      EXPECT_EQ(std::string(24, '\0'), bytes_of(&tc_class->leaf, 24));
      EXPECT_EQ(1, check_Key("eth1", tc_class->id));
    }
    EXPECT_EQ(bands, band);
    EXPECT_EQ(0, del_root_qdisc("eth1"));
  }
}

TEST_F(RootQdisc, PfifoFastHasNoClasses) {
  ASSERT_EQ(0, trees::add_pfifo_fast("eth1"));
  EXPECT_EQ("", shape("eth1"));
}

TEST_F(RootQdisc, TreesAreKeptInTheOrderTheyWereAddedAndFoundByTheirExactNames) {
  trees::add_htb("eth2");
  trees::add_prio("eth1");
  trees::add_pfifo_fast("eth10");
  EXPECT_EQ("eth2 eth1 eth10 ", trees::interfaces());
  EXPECT_EQ(trees::root_of(qos_root.next->next), root_qdisc_find_by_name("eth1"));
  EXPECT_EQ(trees::root_of(qos_root.prev), root_qdisc_find_by_name("eth10"));
  for (const char *other : {"ETH1", "eth", "eth100", ""})
    EXPECT_EQ(nullptr, root_qdisc_find_by_name(other)) << other;
}

TEST_F(RootQdisc, SecondTreeOfAnInterfaceIsRefusedAndChangesNothing) {
  trees::add_htb("eth1", 2);
  add_class("eth1", 2, 9, trees::exact(htb_params{}).get());
  const uint32_t others[4] = {1, 2, 3, 4};
  for (uint32_t type = QOS_ROOT_PFIFO_FAST; type <= 4; type++)
    EXPECT_EQ(2, add_root_qdisc(others, "eth1", type, trees::exact(root_params_prio{}).get())) << type;
  const root_qdisc *root = root_qdisc_find_by_name("eth1");
  EXPECT_EQ("eth1 ", trees::interfaces());
  EXPECT_EQ("1(2(9),3)", shape("eth1"));
  EXPECT_EQ(static_cast<uint32_t>(QOS_ROOT_HTB), root->type);
  EXPECT_EQ(20000u, root->link_rate[0]);
  EXPECT_EQ(2, root->params.tree.default_class);
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(RootQdisc, UnknownTypeIsTracedAndMakesNoTree) {
  for (const uint32_t type : {4u, 5u, 0x100u, 0x7fffffffu, 0xffffffffu}) {
    SCOPED_TRACE(type);
    sandbox::clear_console();
    EXPECT_EQ(3, add_root_qdisc(trees::speeds, "eth1", type, trees::exact(root_params_prio{}).get()));
    EXPECT_EQ("", trees::interfaces());
    const std::vector<sandbox::Trace> traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_EQ("Internel error occur at not define root qdisc type\n", traces[0].message);
    EXPECT_EQ("quorra_qos", traces[0].file);
    EXPECT_EQ("add_root_qdisc", traces[0].func);
    EXPECT_TRUE(traces[0].has_process);
  }
}

TEST_F(RootQdisc, NullArgumentsMakeNoTree) {
  const root_params_tree params = {};
  EXPECT_EQ(1, add_root_qdisc(trees::speeds, nullptr, QOS_ROOT_HTB, &params));
  EXPECT_EQ(4, add_root_qdisc(nullptr, "eth1", QOS_ROOT_HTB, &params));
  for (uint32_t type = QOS_ROOT_PFIFO_FAST; type <= QOS_ROOT_PRIO; type++)
    EXPECT_EQ(4, add_root_qdisc(trees::speeds, "eth1", type, nullptr));
  EXPECT_EQ("", trees::interfaces());
}

TEST_F(RootQdisc, ANullArgumentIsRefusedWhereItWouldBeRead) {
  trees::add_htb("eth1");
  EXPECT_EQ(2, add_root_qdisc(nullptr, "eth1", QOS_ROOT_HTB, nullptr));
  EXPECT_EQ(4, add_root_qdisc(nullptr, "eth2", 4, nullptr)); // the speeds are read before the type
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(3, add_root_qdisc(trees::speeds, "eth2", 4, nullptr)); // an unknown type has no parameters
  EXPECT_EQ(Messages{"Internel error occur at not define root qdisc type\n"}, console_messages());
  EXPECT_EQ("eth1 ", trees::interfaces());
}

TEST_F(RootQdisc, LackOfMemoryComesBeforeWhatIsWrongWithTheArguments) {
  const root_params_tree params = {};
  const struct {
    const uint32_t *speeds;
    uint32_t type;
    const void *params;
    int result;
  } cases[] = {{nullptr, QOS_ROOT_HTB, &params, 4},
               {trees::speeds, QOS_ROOT_HTB, nullptr, 4},
               {trees::speeds, QOS_ROOT_PFIFO_FAST, nullptr, 4},
               {trees::speeds, 4, &params, 3}};
  for (const auto &c : cases) {
    sandbox::clear_console();
    sandbox::fail_allocation(1);
    EXPECT_EQ(3, add_root_qdisc(c.speeds, "eth1", c.type, c.params));
    EXPECT_TRUE(sandbox::allocation_failed());
    EXPECT_EQ(Messages{}, console_messages());
    sandbox::fail_allocation(0);
    EXPECT_EQ(c.result, add_root_qdisc(c.speeds, "eth1", c.type, c.params));
  }
  EXPECT_EQ("", trees::interfaces());
}

TEST_F(RootQdisc, NameOf31CharactersIsKeptWhole) {
  ASSERT_EQ(0, trees::add_htb(ifname_31.c_str()));
  EXPECT_EQ(ifname_31 + '\0', bytes_of(root_qdisc_find_by_name(ifname_31.c_str())->ifname, 32));
  EXPECT_EQ(2, trees::add_htb(ifname_31.c_str()));
}

TEST_F(RootQdisc, LongerNameIsCutTo31CharactersAndFoundByThem) {
  for (const size_t length : {32u, 33u, 64u, 4096u}) {
    SCOPED_TRACE(length);
    const std::string name(length, 'x');
    ASSERT_EQ(0, trees::add_htb(name.c_str()));
    EXPECT_EQ(nullptr, root_qdisc_find_by_name(name.c_str()));
    const root_qdisc *root = root_qdisc_find_by_name(ifname_31.c_str());
    ASSERT_NE(nullptr, root);
    EXPECT_EQ(ifname_31 + '\0', bytes_of(root->ifname, 32));
    EXPECT_EQ("1(2~10,3)", shape(ifname_31.c_str()));
    EXPECT_EQ(0, del_root_qdisc(ifname_31.c_str()));
  }
}

TEST_F(RootQdisc, WithoutMemoryThereIsNoTreeOrOneWithTheClassesThatCouldBeMade) {
  static const root_params_prio params = {4, {}, {}}; // as long as the longest block
  EXPECT_EQ((Messages{"3:none", "0:"}), outcomes_of_failed_allocations(QOS_ROOT_PFIFO_FAST, &params));
  // Without class 1 there is no parent for 2 and 3.
  const Messages tree = {"3:none", "0:", "0:1(3)", "0:1(2~10)", "0:1(2~10,3)"};
  EXPECT_EQ(tree, outcomes_of_failed_allocations(QOS_ROOT_HTB, &params));
  EXPECT_EQ(tree, outcomes_of_failed_allocations(QOS_ROOT_HFSC, &params));
  EXPECT_EQ((Messages{"3:none", "0:", "0:1", "0:1,2", "0:1,2,3", "0:1,2,3,4"}),
            outcomes_of_failed_allocations(QOS_ROOT_PRIO, &params));
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(RootQdisc, DeletionTakesTheTreeOutOfTheMiddleOfTheOthers) {
  const char *const names[] = {"eth0", "eth1", "eth2", "eth3"};
  for (uint32_t type = QOS_ROOT_PFIFO_FAST; type <= QOS_ROOT_PRIO; type++)
    trees::add_any(names[type], type);
  EXPECT_EQ(0, del_root_qdisc("eth1"));
  EXPECT_EQ("eth0 eth2 eth3 ", trees::interfaces());
  EXPECT_EQ(0, del_root_qdisc("eth3"));
  EXPECT_EQ("eth0 eth2 ", trees::interfaces());
  EXPECT_EQ(0, del_root_qdisc("eth0"));
  EXPECT_EQ(0, del_root_qdisc("eth2"));
  EXPECT_EQ(&qos_root, qos_root.next);
  EXPECT_EQ(&qos_root, qos_root.prev);
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(1, del_root_qdisc("eth1"));
  EXPECT_EQ(1, del_root_qdisc(nullptr));
}

TEST_F(RootQdisc, DeletionTakesDuplicateTopLevelClassesToo) {
  trees::add_htb("eth1");
  trees::add_htb_class("eth1", 0, 2);
  trees::add_htb_class("eth1", 0, 1);
  trees::add_htb_class("eth1", 0, 1);
  EXPECT_EQ("1(2~10,3),2,1,1", shape("eth1"));
  EXPECT_EQ(0, del_root_qdisc("eth1"));
  EXPECT_EQ("", trees::interfaces());
}

TEST_F(RootQdisc, DeletionWithAnOverwrittenTypeLeavesTheClasses) {
  trees::add_htb("eth1");
  qos_class *top = class_find("eth1", 1);
  root_qdisc_find_by_name("eth1")->type = 4;
  EXPECT_EQ(0, del_root_qdisc("eth1"));
  EXPECT_EQ("", trees::interfaces());
  const std::vector<sandbox::Trace> traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("Internel error occur at not define root qdisc type\n", traces[0].message);
  EXPECT_EQ("del_root_qdisc", traces[0].func);

  // Another tree adopts the classes that are left, and its deletion frees them.
  trees::add_bare_htb("eth2");
  list_add_tail(&top->node, &root_qdisc_find_by_name("eth2")->classes);
  EXPECT_EQ("1(2~10,3)", shape("eth2"));
}

TEST_F(RootQdisc, DeletionLeavesTheRules) {
  trees::add_htb("eth1");
  ASSERT_EQ(1u, add_qos_rule("eth1", 7, trees::exact(qos_match{}).get(), trees::exact(qos_target{}).get()));
  qos_rule *rule = trees::rule_of(find_rule_list_by_name("eth1")->next);
  EXPECT_EQ(0, del_root_qdisc("eth1"));
  EXPECT_EQ(7, rule->index);

  trees::add_htb("eth2");
  list_add_tail(&rule->node, find_rule_list_by_name("eth2"));
  EXPECT_EQ(1u, del_qos_rule("eth2", 7));
}

TEST_F(Automark, IsCopiedWholeAndTellsWhetherItIsOn) {
  for (const uint32_t type : {QOS_ROOT_HTB, QOS_ROOT_HFSC, QOS_ROOT_PRIO})
    for (const unsigned enable : {0u, 1u, 2u, 255u}) {
      SCOPED_TRACE(std::to_string(type) + " " + std::to_string(enable));
      std::string marks =
          "?\x99"
          "ABCDEFGHIJKLMNOP"; // the byte after `enable` is padding and is copied too
      marks[0] = static_cast<char>(enable);
      std::string params(type == QOS_ROOT_PRIO ? 18 : 2, '\1');
      params += marks;
      ASSERT_EQ(0, add_root_qdisc(trees::speeds, "eth1", type, params.data()));
      auto out = std::make_unique<automark>();
      EXPECT_EQ(enable != 0, get_automark_value("eth1", out.get()));
      EXPECT_EQ(marks, bytes_of(out.get(), 18));
      EXPECT_EQ(0, del_root_qdisc("eth1"));
    }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Automark, LeavesTheRecordAloneWhereThereIsNone) {
  trees::add_pfifo_fast("pfifo", 0xffffffffu);
  trees::add_htb("unknown", 3, trees::eight_marks);
  root_qdisc_find_by_name("unknown")->type = 4;
  for (const char *ifname : {"pfifo", "unknown", "eth9", static_cast<const char *>(nullptr)}) {
    automark out;
    memset(&out, 0x5a, sizeof(out));
    EXPECT_EQ(0, get_automark_value(ifname, &out));
    EXPECT_EQ(std::string(18, '\x5a'), bytes_of(&out, 18));
  }
  root_qdisc_find_by_name("unknown")->type = QOS_ROOT_HTB;
  EXPECT_EQ(0, get_automark_value("unknown", nullptr));
}

TEST_F(Lookup, RuleListIsThatOfTheInterface) {
  trees::add_htb("eth1");
  trees::add_pfifo_fast("eth2");
  EXPECT_EQ(&root_qdisc_find_by_name("eth1")->rules, find_rule_list_by_name("eth1"));
  EXPECT_EQ(&root_qdisc_find_by_name("eth2")->rules, find_rule_list_by_name("eth2"));
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(nullptr, find_rule_list_by_name(nullptr));
}

TEST_F(Lookup, UnknownInterfaceIsTracedOnceByEveryOperation) {
  static const htb_params params = {};
  static const leaf_qdisc leaf = {};
  static automark marks;
  const struct {
    const char *name;
    bool (*fails)();
  } operations[] = {
      {"root_qdisc_find_by_name", [] { return root_qdisc_find_by_name("eth9") == nullptr; }},
      {"del_root_qdisc", [] { return del_root_qdisc("eth9") == 1; }},
      {"add_class", [] { return add_class("eth9", 0, 1, &params) == 1; }},
      {"add_class below", [] { return add_class("eth9", 1, 2, &params) == 1; }},
      {"del_class", [] { return del_class("eth9", 1) == 1; }},
      {"add_leaf_qdisc", [] { return add_leaf_qdisc("eth9", 1, &leaf) == 1; }},
      {"del_leaf_qdisc", [] { return del_leaf_qdisc("eth9", 1) == 1; }},
      {"check_Key", [] { return check_Key("eth9", 1) == 0; }},
      {"get_automark_value", [] { return get_automark_value("eth9", &marks) == 0; }},
      {"find_rule_list_by_name", [] { return find_rule_list_by_name("eth9") == nullptr; }},
      {"class_find", [] { return class_find("eth9", 1) == nullptr; }},
  };
  for (const bool list_is_empty : {true, false}) {
    if (!list_is_empty) {
      trees::add_htb("eth1");
      trees::add_prio("eth2");
    }
    for (const auto &operation : operations) {
      SCOPED_TRACE(operation.name);
      sandbox::clear_console();
      EXPECT_TRUE(operation.fails());
      const std::vector<sandbox::Trace> traces = sandbox::console();
      ASSERT_EQ(1u, traces.size());
      EXPECT_EQ("eth9 not found!!\n", traces[0].message);
      EXPECT_TRUE(traces[0].has_process);
      EXPECT_EQ("quorra_qos", traces[0].file);
      EXPECT_EQ("root_qdisc_find_by_name", traces[0].func);
    }
  }
}

TEST_F(Lookup, NullNameIsTracedAsSuch) {
  trees::add_htb("eth1");
  EXPECT_EQ(nullptr, root_qdisc_find_by_name(nullptr));
  const std::vector<sandbox::Trace> traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("(null) not found!!\n", traces[0].message);
  EXPECT_EQ("quorra_qos", traces[0].file);
  EXPECT_EQ("root_qdisc_find_by_name", traces[0].func);
  EXPECT_TRUE(traces[0].has_process);
}

TEST_F(Lookup, FailuresWithoutAConsoleKeepTheirResults) {
  trees::add_htb("eth1");
  {
    const sandbox::UnopenableConsole no_console;
    EXPECT_EQ(nullptr, root_qdisc_find_by_name("eth9"));
    EXPECT_EQ(3, add_root_qdisc(trees::speeds, "eth9", 4, trees::exact(root_params_prio{}).get()));
    EXPECT_EQ(1, del_class("eth9", 1));
  }
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ("eth1 ", trees::interfaces());
}

} // namespace
