// Lists of rules: adding, deleting, modifying.
#include <errno.h>

#include "iptables/rule_builders.h"

namespace {

using rules::bits;
using rules::Lines;
using rules::make_rule;
using rules::marking_rule;
using rules::traced;
using Indexes = std::vector<int>;

class Rules : public rules::World {
 protected:
  void SetUp() override {
    World::SetUp();
    add_tree("eth1");
  }
};

TEST_F(Rules, AreKeptAscendingByIndex) {
  for (const unsigned index : {5u, 2u, 9u})
    ASSERT_EQ(1u, add(index, marking_rule()));
  EXPECT_EQ((Indexes{2, 5, 9}), indexes());
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Rules, EveryIndexCanBeTakenInAnyOrder) {
  Indexes every;
  for (int i = 0; i < 256; i++) {
    const unsigned index = (static_cast<unsigned>(i) * 91 + 17) & 255; // takes each value once
    ASSERT_EQ(1u, add(index, marking_rule())) << index;
    every.push_back(i);
  }
  EXPECT_EQ(every, indexes());
}

TEST_F(Rules, BlocksAreCopiedToTheLastByte) {
  qos_match match;
  qos_target target;
  for (size_t i = 0; i < sizeof(match); i++)
    reinterpret_cast<unsigned char *>(&match)[i] = static_cast<unsigned char>(i * 7 + 1);
  for (size_t i = 0; i < sizeof(target); i++)
    reinterpret_cast<unsigned char *>(&target)[i] = static_cast<unsigned char>(i * 11 + 3);
  target.target_flags = ~bits(QOS_TARGET_MARK);
  const std::string match_bytes(reinterpret_cast<char *>(&match), sizeof(match));
  const std::string target_bytes(reinterpret_cast<char *>(&target), sizeof(target));

  ASSERT_EQ(1u, add_qos_rule("eth1", 7, &match, &target));
  memset(&match, 0, sizeof(match)); // the caller may reuse its blocks
  memset(&target, 0, sizeof(target));

  const qos_rule *rule = records().at(0);
  EXPECT_EQ(7, rule->index);
  EXPECT_EQ(0, memcmp(match_bytes.data(), &rule->match, 600));
  EXPECT_EQ(0, memcmp(target_bytes.data(), &rule->target, 24));
}

TEST_F(Rules, AnIndexThatExistsIsRefusedAndTheOldRuleStays) {
  qos_rule old = marking_rule();
  old.match.tos = 16;
  ASSERT_EQ(1u, add(4, old));
  for (const uint32_t mark : {3u, 77u}) { // the index is checked before the mark
    qos_rule other = marking_rule();
    other.target.mark = mark;
    EXPECT_EQ(0u, add(4, other));
    EXPECT_EQ(Lines{"quorra_iptables add_qos_rule: Index already exist!!\n"}, traced());
  }
  ASSERT_EQ(Indexes{4}, indexes());
  EXPECT_EQ(16u, records()[0]->match.tos);
  EXPECT_EQ(2u, records()[0]->target.mark);
}

TEST_F(Rules, AMarkMustBeAClassWithoutChildren) {
  const htb_params params = {1, 1, 0, 0, 0};
  ASSERT_EQ(0, add_class("eth1", 1, 65535, &params));
  const struct {
    uint32_t mark;
    uint32_t result;
  } cases[] = {{2, 1}, {3, 1},     {65535, 1},   {1, 0},           {0, 0},
               {4, 0}, {65534, 0}, {0x10002, 0}, {0xFFFFFFFFu, 0}, {0x80000003u, 0}};
  for (const auto &row : cases) {
    qos_rule rule = marking_rule();
    rule.target.mark = row.mark;
    EXPECT_EQ(row.result, add(9, rule)) << row.mark;
    EXPECT_EQ(row.result ? Lines() : Lines{"quorra_iptables add_qos_rule: Mark key not found!!\n"}, traced());
    EXPECT_EQ(row.result ? Indexes{9} : Indexes(), indexes()) << row.mark;
    EXPECT_EQ(row.result, del_qos_rule("eth1", 9));

    rule.target.target_flags = ~bits(QOS_TARGET_MARK); // no mark target, no check
    EXPECT_EQ(1u, add(9, rule)) << row.mark;
    EXPECT_EQ(1u, del_qos_rule("eth1", 9));
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Rules, AMarkFollowsTheTreeAsItIsNow) {
  const htb_params params = {1, 1, 0, 0, 0};
  ASSERT_EQ(0, add_class("eth1", 2, 20, &params));
  EXPECT_EQ(0u, add(1, marking_rule()));
  ASSERT_EQ(0, del_class("eth1", 20));
  EXPECT_EQ(1u, add(1, marking_rule()));
  ASSERT_EQ(0, del_class("eth1", 2));
  EXPECT_EQ(Indexes{1}, indexes()); // deleting a class deletes no rule
}

TEST_F(Rules, BandsCanBeMarksAndAQueueWithoutClassesHasNone) {
  add_tree("prio0", QOS_ROOT_PRIO);
  add_tree("fifo0", QOS_ROOT_PFIFO_FAST);
  qos_rule rule = marking_rule();
  for (uint32_t mark = 0; mark <= 4; mark++) {
    rule.target.mark = mark;
    EXPECT_EQ(mark >= 1 && mark <= 3 ? 1u : 0u, add(mark, rule, "prio0")) << mark;
    EXPECT_EQ(0u, add(mark, rule, "fifo0")) << mark;
  }
  EXPECT_EQ(1u, add(1, make_rule(0, bits(QOS_TARGET_TOS)), "fifo0"));
}

TEST_F(Rules, AnInterfaceWithoutTreeIsToldByTheLookupAndByTheOperation) {
  const qos_rule rule = marking_rule();
  EXPECT_EQ(0u, add(1, rule, "eth7"));
  EXPECT_EQ((Lines{"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                   "quorra_iptables add_qos_rule: QoS tree not found!!\n"}),
            traced());
  const Lines told_by_delete = {"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                                "quorra_iptables del_qos_rule: QoS tree not found!!\n"};
  EXPECT_EQ(0u, del_qos_rule("eth7", 1));
  EXPECT_EQ(told_by_delete, traced());
  EXPECT_EQ(0u, modify_qos_rule("eth7", 1, &rule.match, &rule.target));
  EXPECT_EQ(told_by_delete, traced());
}

TEST_F(Rules, NullBlocksAndNamesFail) {
  const qos_rule rule = marking_rule();
  ASSERT_EQ(1u, add(1, rule));
  EXPECT_EQ(0u, add_qos_rule("eth1", 2, nullptr, &rule.target));
  EXPECT_EQ(0u, add_qos_rule("eth1", 2, &rule.match, nullptr));
  EXPECT_EQ(0u, add_qos_rule("eth1", 2, nullptr, nullptr));
  EXPECT_EQ(Lines(), traced());
  EXPECT_EQ(Indexes{1}, indexes());

  EXPECT_EQ(0u, add_qos_rule(nullptr, 2, &rule.match, &rule.target));
  EXPECT_EQ("quorra_iptables add_qos_rule: QoS tree not found!!\n", traced().back());
  EXPECT_EQ(0u, del_qos_rule(nullptr, 1));
  EXPECT_EQ("quorra_iptables del_qos_rule: QoS tree not found!!\n", traced().back());
  EXPECT_EQ(0u, modify_qos_rule(nullptr, 1, &rule.match, &rule.target));
  EXPECT_EQ(Indexes{1}, indexes());
}

TEST_F(Rules, ANullBlockIsRefusedWhereItWouldBeRead) {
  const qos_rule rule = marking_rule();
  qos_rule wrong = rule;
  wrong.target.mark = 1;
  ASSERT_EQ(1u, add(1, rule));
  const Lines no_tree = {"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                         "quorra_iptables add_qos_rule: QoS tree not found!!\n"};
  const Lines exists = {"quorra_iptables add_qos_rule: Index already exist!!\n"};
  const Lines no_mark = {"quorra_iptables add_qos_rule: Mark key not found!!\n"};
  const Lines no_memory = {"quorra_iptables add_qos_rule: Memory allocate fail!!\n"};
  for (const qos_target *target : {&rule.target, static_cast<const qos_target *>(nullptr)}) {
    EXPECT_EQ(0u, add_qos_rule("eth7", 1, nullptr, target));
    EXPECT_EQ(no_tree, traced());
    EXPECT_EQ(0u, add_qos_rule("eth1", 1, nullptr, target));
    EXPECT_EQ(exists, traced());
  }
  EXPECT_EQ(0u, add_qos_rule("eth1", 2, nullptr, &wrong.target)); // the target is read before the match
  EXPECT_EQ(no_mark, traced());
  for (const qos_target *target : {&rule.target, static_cast<const qos_target *>(nullptr)}) {
    sandbox::fail_allocation(1);
    EXPECT_EQ(0u, add_qos_rule("eth1", 2, nullptr, target));
    sandbox::fail_allocation(0);
    EXPECT_EQ(target ? no_memory : Lines(), traced());
  }
  EXPECT_EQ(Indexes{1}, indexes());
}

TEST_F(Rules, AModifyWithANullBlockHasDeletedTheOldRule) {
  const qos_rule rule = marking_rule();
  ASSERT_EQ(1u, add(1, rule));
  ASSERT_EQ(1u, add(2, rule));
  ASSERT_EQ(1u, add(3, rule));
  EXPECT_EQ(0u, modify_qos_rule("eth1", 4, nullptr, nullptr));
  EXPECT_EQ((Indexes{1, 2, 3}), indexes());
  EXPECT_EQ(0u, modify_qos_rule("eth1", 1, nullptr, &rule.target));
  EXPECT_EQ((Indexes{2, 3}), indexes());
  EXPECT_EQ(0u, modify_qos_rule("eth1", 2, &rule.match, nullptr));
  EXPECT_EQ(Indexes{3}, indexes());
  EXPECT_EQ(Lines(), traced());
  EXPECT_EQ(0u, modify_qos_rule("eth7", 3, nullptr, nullptr));
  EXPECT_EQ((Lines{"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                   "quorra_iptables del_qos_rule: QoS tree not found!!\n"}),
            traced());
}

TEST_F(Rules, DeletingUnlinksThatRuleAlone) {
  for (const unsigned index : {0u, 1u, 2u, 3u, 255u})
    ASSERT_EQ(1u, add(index, marking_rule()));
  EXPECT_EQ(1u, del_qos_rule("eth1", 2));
  EXPECT_EQ((Indexes{0, 1, 3, 255}), indexes());
  EXPECT_EQ(1u, del_qos_rule("eth1", 0));
  EXPECT_EQ(1u, del_qos_rule("eth1", 255));
  EXPECT_EQ((Indexes{1, 3}), indexes());
  EXPECT_EQ(0u, del_qos_rule("eth1", 2));
  EXPECT_EQ(1u, add(2, marking_rule()));
  EXPECT_EQ((Indexes{1, 2, 3}), indexes());
  EXPECT_EQ(Lines(), traced()); // nothing is traced for a rule that does not exist
}

TEST_F(Rules, ModifyReplacesARuleInItsPlace) {
  for (const unsigned index : {1u, 2u, 3u})
    ASSERT_EQ(1u, add(index, marking_rule()));
  qos_rule changed = make_rule(bits(QOS_MATCH_TOS), bits(QOS_TARGET_TOS));
  changed.match.tos = 8;
  EXPECT_EQ(1u, modify_qos_rule("eth1", 2, &changed.match, &changed.target));
  EXPECT_EQ((Indexes{1, 2, 3}), indexes());
  EXPECT_EQ(8u, records()[1]->match.tos);
  EXPECT_EQ(bits(QOS_TARGET_TOS), records()[1]->target.target_flags);
  EXPECT_EQ(0u, records()[0]->match.tos);

  EXPECT_EQ(0u, modify_qos_rule("eth1", 4, &changed.match, &changed.target)); // there is none to replace
  EXPECT_EQ((Indexes{1, 2, 3}), indexes());
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Rules, AModifyWhoseAddFailsHasDeletedTheOldRule) {
  for (const unsigned index : {1u, 2u, 3u})
    ASSERT_EQ(1u, add(index, marking_rule()));
  qos_rule wrong = marking_rule();
  wrong.target.mark = 1;
  EXPECT_EQ(0u, modify_qos_rule("eth1", 2, &wrong.match, &wrong.target));
  EXPECT_EQ(Lines{"quorra_iptables add_qos_rule: Mark key not found!!\n"}, traced());
  EXPECT_EQ((Indexes{1, 3}), indexes());

  const qos_rule right = marking_rule();
  sandbox::fail_allocation(1);
  const uint32_t result = modify_qos_rule("eth1", 3, &right.match, &right.target);
  sandbox::fail_allocation(0);
  EXPECT_EQ(0u, result);
  EXPECT_EQ(Lines{"quorra_iptables add_qos_rule: Memory allocate fail!!\n"}, traced());
  EXPECT_EQ(Indexes{1}, indexes());
}

TEST_F(Rules, WithoutMemoryTheListStaysAsItWas) {
  ASSERT_EQ(1u, add(1, marking_rule()));
  ASSERT_EQ(1u, add(9, marking_rule()));
  const qos_rule rule = marking_rule();
  const auto add_rule = [&] { return add(5, rule); };
  const auto check = [](uint32_t result, bool failed) {
    EXPECT_EQ(failed ? 0u : 1u, result);
    EXPECT_EQ(failed ? Lines{"quorra_iptables add_qos_rule: Memory allocate fail!!\n"} : Lines(), traced());
    EXPECT_EQ(failed ? (Indexes{1, 9}) : (Indexes{1, 5, 9}), indexes());
  };
  const unsigned failures = sandbox::fail_each_allocation(add_rule, check);
  EXPECT_EQ(1u, failures); // a rule takes one allocation
  EXPECT_EQ((Indexes{1, 5, 9}), indexes());
}

TEST_F(Rules, InterfacesHaveListsOfTheirOwn) {
  add_tree("eth2", QOS_ROOT_HFSC);
  EXPECT_EQ(1u, add(1, marking_rule(), "eth1"));
  EXPECT_EQ(1u, add(1, marking_rule(), "eth2"));
  EXPECT_EQ(1u, add(2, marking_rule(), "eth2"));
  EXPECT_EQ(1u, del_qos_rule("eth2", 1));
  EXPECT_EQ(Indexes{1}, indexes("eth1"));
  EXPECT_EQ(Indexes{2}, indexes("eth2"));
}

TEST_F(Rules, OutliveTheirTreeWhenTheyAreNotDeletedFirst) {
  add_tree("eth2");
  ASSERT_EQ(1u, add(6, marking_rule(), "eth2"));
  qos_rule *rule = records("eth2").at(0);
  ASSERT_EQ(0, del_root_qdisc("eth2"));
  EXPECT_EQ(6, rule->index); // the record is not freed, although nothing leads to it
  EXPECT_EQ(2u, rule->target.mark);
  free(rule);

  add_tree("eth2");
  EXPECT_EQ(Indexes(), indexes("eth2"));
}

TEST_F(Rules, ADeletedScheduleLeavesTheRulesThatNameIt) {
  ASSERT_EQ(1u, rules::add_sched_of(3));
  qos_rule rule = marking_rule();
  rule.match.sched_index = 3;
  ASSERT_EQ(1u, add(1, rule));
  ASSERT_EQ(1u, del_sched(3));
  EXPECT_EQ(Indexes{1}, indexes());
  EXPECT_EQ(3, records()[0]->match.sched_index);
}

TEST_F(Rules, AConsoleThatCannotBeOpenedChangesNoResult) {
  ASSERT_EQ(1u, add(1, marking_rule()));
  qos_rule wrong = marking_rule();
  wrong.target.mark = 1;
  char text[128] = "untouched";
  {
    const sandbox::UnopenableConsole silence;
    EXPECT_EQ(0u, add(1, marking_rule()));
    EXPECT_EQ(0u, add(2, wrong));
    EXPECT_EQ(0u, add(2, marking_rule(), "eth7"));
    EXPECT_EQ(0u, del_qos_rule("eth7", 2));
    EXPECT_EQ(0u, modify_qos_rule("eth7", 2, &wrong.match, &wrong.target));
    EXPECT_EQ(0u, get_sched_str(1, text, sizeof(text) - 1));
    sandbox::fail_allocation(1);
    const uint32_t result = add(2, marking_rule());
    sandbox::fail_allocation(0);
    EXPECT_EQ(0u, result);
    EXPECT_EQ(1u, add(2, marking_rule()));
  }
  EXPECT_STREQ("untouched", text);
  EXPECT_EQ((Indexes{1, 2}), indexes());
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Rules, AFailureLeavesErrnoAlone) {
  const qos_rule rule = marking_rule();
  errno = E2BIG;
  add(1, rule, "eth7");
  EXPECT_EQ(E2BIG, errno);
  const sandbox::UnopenableConsole silence;
  errno = E2BIG;
  del_qos_rule("eth7", 1);
  EXPECT_EQ(E2BIG, errno);
}

} // namespace
