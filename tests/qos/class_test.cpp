// Classes of a tree and the leaf queues below them.
#include "qos/tree_builders.h"

namespace {

using sandbox::console_messages;
using trees::bytes_of;
using trees::Messages;
using trees::shape;

using Ids = std::vector<uint16_t>;

using Class = trees::Test;
using Leaf = trees::Test;

htb_params htb_of(const char *ifname, uint16_t id) {
  return class_find(ifname, id)->params.htb;
}

TEST_F(Class, IsAppendedToItsParentOrTheTopLevel) {
  trees::add_htb("eth1");
  EXPECT_EQ(0, trees::add_htb_class("eth1", 1, 4));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 0, 50));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 3, 31));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 3, 30));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 50, 65535));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 50, 0));
  EXPECT_EQ("1(2~10,3(31,30),4),50(65535,0)", shape("eth1"));
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Class, HtbClassGetsItsTwentyBytes) {
  trees::add_htb("eth1");
  const htb_params params = {1, 0xffffffffu, 3, 4, 5};
  ASSERT_EQ(0, trees::add_htb_class("eth1", 1, 4, params));
  const qos_class *tc_class = class_find("eth1", 4);
  EXPECT_EQ(4, tc_class->id);
  EXPECT_EQ(static_cast<uint32_t>(QOS_CLASS_HTB), tc_class->type);
  EXPECT_EQ(std::string(32, '\0'), bytes_of(tc_class->name, 32));
  EXPECT_EQ(bytes_of(&params, 20) + std::string(28, '\0'), bytes_of(&tc_class->params, 48));
  EXPECT_TRUE(list_empty(&tc_class->children));
  EXPECT_EQ(std::string(24, '\0'), bytes_of(&tc_class->leaf, 24));
}

TEST_F(Class, HfscClassGetsItsFourCurves) {
  trees::add_hfsc("eth1");
  const hfsc_params params = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 0xffffffffu}};
  ASSERT_EQ(0, add_class("eth1", 1, 4, trees::exact(params).get()));
  const qos_class *tc_class = class_find("eth1", 4);
  EXPECT_EQ(static_cast<uint32_t>(QOS_CLASS_HFSC), tc_class->type);
  EXPECT_EQ(bytes_of(&params, 48), bytes_of(&tc_class->params, 48));
  EXPECT_EQ(std::string(24, '\0'), bytes_of(&tc_class->leaf, 24));
}

TEST_F(Class, AddTellsWhyNot) {
  trees::add_htb("htb");
  trees::add_htb_class("htb", 3, 31);
  trees::add_htb_class("htb", 0, 50);
  trees::add_hfsc("hfsc");
  trees::add_pfifo_fast("pfifo");
  trees::add_prio("prio");
  trees::add_htb("unknown");
  root_qdisc_find_by_name("unknown")->type = 7;
  const htb_params params = {};
  const struct {
    const char *ifname;
    uint16_t parent, id;
    const void *params;
    int result;
  } cases[] = {
      {"htb", 9, 60, &params, 1},    // no such parent
      {"htb", 9, 1, &params, 1},     // the parent is checked before the id
      {"htb", 1, 1, &params, 2},     // its own parent
      {"htb", 1, 2, &params, 2},     // a child of the same parent
      {"htb", 2, 3, &params, 2},     // elsewhere
      {"htb", 1, 31, &params, 2},    // deeper
      {"htb", 1, 50, &params, 2},    // a top-level class
      {"hfsc", 2, 3, &params, 2},    //
      {"pfifo", 0, 1, &params, 4},   // its type has no classes but the library's
      {"pfifo", 9, 1, &params, 4},   // the type is checked before the parent
      {"prio", 0, 9, &params, 4},    //
      {"prio", 1, 1, &params, 4},    //
      {"unknown", 1, 9, &params, 4}, //
      {"htb", 1, 60, nullptr, 4},    // nothing is wrong but the block
      {"htb", 0, 60, nullptr, 4},    //
      {"htb", 2, 60, nullptr, 4},    // its parent is a leaf, and stays one
      {"htb", 9, 60, nullptr, 1},    // all else is checked before the block
      {"htb", 1, 31, nullptr, 2},    //
      {"pfifo", 0, 1, nullptr, 4},   //
  };
  for (const auto &c : cases)
    EXPECT_EQ(c.result, add_class(c.ifname, c.parent, c.id, c.params)) << c.ifname << " " << c.parent << ":" << c.id;
  EXPECT_EQ("1(2~10,3(31)),50", shape("htb"));
  EXPECT_EQ("1(2~10,3)", shape("hfsc"));
  EXPECT_EQ("", shape("pfifo"));
  EXPECT_EQ("1,2,3", shape("prio"));
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(1, add_class(nullptr, 0, 1, &params));
  sandbox::clear_console();
  EXPECT_EQ(1, add_class("eth9", 0, 1, nullptr));
  EXPECT_EQ(Messages{"eth9 not found!!\n"}, console_messages());
  root_qdisc_find_by_name("unknown")->type = QOS_ROOT_HTB;
}

TEST_F(Class, IdsAreUniquePerInterfaceOnly) {
  trees::add_htb("eth1");
  trees::add_htb("eth2");
  EXPECT_EQ(0, trees::add_htb_class("eth1", 1, 9));
  EXPECT_EQ(0, trees::add_htb_class("eth2", 1, 9));
}

TEST_F(Class, TopLevelMayRepeatAnIdAndTheFirstOnTheWalkIsFound) {
  trees::add_htb("eth1");
  qos_class *nested = class_find("eth1", 2);
  EXPECT_EQ(0, trees::add_htb_class("eth1", 0, 2, {22, 0, 0, 0, 0}));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 0, 5, {51, 0, 0, 0, 0}));
  EXPECT_EQ(0, trees::add_htb_class("eth1", 0, 5, {52, 0, 0, 0, 0}));
  EXPECT_EQ("1(2~10,3),2,5,5", shape("eth1"));
  EXPECT_EQ(nested, class_find("eth1", 2));
  EXPECT_EQ(51u, htb_of("eth1", 5).rate);

  EXPECT_EQ(0, del_class("eth1", 5));
  EXPECT_EQ(52u, htb_of("eth1", 5).rate);
  EXPECT_EQ(0, del_class("eth1", 2));
  EXPECT_EQ("1(3),2,5", shape("eth1"));
  EXPECT_EQ(22u, htb_of("eth1", 2).rate);
}

TEST_F(Class, SearchGoesDepthFirstParentsBeforeChildren) {
  // The top level is 7(8(9)), 9, 8. Each of 8 and 9 is there twice, and rates tell them apart.
  trees::add_bare_htb("eth1");
  trees::add_htb_class("eth1", 0, 7);
  trees::add_htb_class("eth1", 7, 8, {81, 0, 0, 0, 0});
  trees::add_htb_class("eth1", 8, 9, {91, 0, 0, 0, 0});
  trees::add_htb_class("eth1", 0, 9, {92, 0, 0, 0, 0});
  trees::add_htb_class("eth1", 0, 8, {82, 0, 0, 0, 0});
  EXPECT_EQ("7(8(9)),9,8", shape("eth1"));
  EXPECT_EQ(81u, htb_of("eth1", 8).rate);
  EXPECT_EQ(91u, htb_of("eth1", 9).rate);

  // A parent comes before a child with its id.
  trees::add_htb_class("eth1", 0, 5, {61, 0, 0, 0, 0});
  trees::add_htb_class("eth1", 5, 6, {62, 0, 0, 0, 0});
  class_find("eth1", 5)->id = 6;
  EXPECT_EQ(61u, htb_of("eth1", 6).rate);
}

TEST_F(Class, SearchStaysBelowTheGivenList) {
  trees::add_htb("eth1");
  trees::add_htb_class("eth1", 3, 31);
  trees::add_htb_class("eth1", 0, 50);
  list_node *top = &root_qdisc_find_by_name("eth1")->classes;
  list_node *below_1 = &class_find("eth1", 1)->children;
  list_node *below_3 = &class_find("eth1", 3)->children;
  EXPECT_EQ(class_find("eth1", 50), class_find_in_list(top, 50));
  EXPECT_EQ(class_find("eth1", 31), class_find_in_list(top, 31));
  EXPECT_EQ(class_find("eth1", 31), class_find_in_list(below_1, 31));
  EXPECT_EQ(class_find("eth1", 31), class_find_in_list(below_3, 31));
  EXPECT_EQ(nullptr, class_find_in_list(below_1, 1));
  EXPECT_EQ(nullptr, class_find_in_list(below_3, 2));
  EXPECT_EQ(nullptr, class_find_in_list(&class_find("eth1", 2)->children, 2));
  EXPECT_EQ(nullptr, class_find("eth1", 999));
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Class, DeletionTakesTheWholeSubtreeAndNothingElse) {
  trees::add_htb("eth1");
  for (const uint16_t id : Ids{20, 21, 22})
    trees::add_htb_class("eth1", 2, id);
  for (const uint16_t id : Ids{210, 211})
    trees::add_htb_class("eth1", 21, id);
  trees::add_htb_class("eth1", 211, 2110);
  EXPECT_EQ("1(2(20,21(210,211(2110)),22),3)", shape("eth1"));
  EXPECT_EQ(0, del_class("eth1", 210));
  EXPECT_EQ("1(2(20,21(211(2110)),22),3)", shape("eth1"));
  EXPECT_EQ(0, del_class("eth1", 21));
  EXPECT_EQ("1(2(20,22),3)", shape("eth1"));
  for (const uint16_t gone : Ids{21, 210, 211, 2110})
    EXPECT_EQ(1, del_class("eth1", gone)) << gone;
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(0, del_class("eth1", 1));
  EXPECT_EQ("", shape("eth1"));
  EXPECT_EQ(1, del_class("eth1", 1));
}

TEST_F(Class, DeletionOfABandOrTheDefaultClassIsNotPrevented) {
  trees::add_prio("prio");
  EXPECT_EQ(0, del_class("prio", 2));
  EXPECT_EQ("1,3", shape("prio"));
  trees::add_htb("htb", 3);
  EXPECT_EQ(0, del_class("htb", 3));
  EXPECT_EQ(3, root_qdisc_find_by_name("htb")->params.tree.default_class);
}

TEST_F(Class, WithoutMemoryTheTreeStaysAsItWas) {
  trees::add_htb("htb");
  trees::add_hfsc("hfsc");
  const hfsc_params params = {};
  for (const char *ifname : {"htb", "hfsc"})
    for (const uint16_t parent : Ids{0, 1, 2}) {
      const auto add_ninth = [&] { return add_class(ifname, parent, 9, &params); };
      const auto check = [&](int result, bool failed) {
        EXPECT_EQ(failed ? 3 : 0, result);
        EXPECT_EQ(failed, shape(ifname) == "1(2~10,3)");
      };
      const unsigned failures = sandbox::fail_each_allocation(add_ninth, check);
      EXPECT_LT(0u, failures);
      EXPECT_EQ(0, del_class(ifname, 9));
    }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Class, LackOfMemoryComesBeforeANullBlock) {
  trees::add_htb("eth1");
  const auto add_without_block = [] { return add_class("eth1", 2, 9, nullptr); };
  const auto check = [](int result, bool failed) {
    EXPECT_EQ(failed ? 3 : 4, result);
    EXPECT_EQ("1(2~10,3)", shape("eth1"));
  };
  EXPECT_EQ(1u, sandbox::fail_each_allocation(add_without_block, check));
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Leaf, IsCopiedWholeWhateverItsType) {
  trees::add_htb("eth1");
  trees::add_prio("eth2");
  for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 0xffffffffu}) {
    leaf_qdisc leaf;
    memset(&leaf, 0xa5, sizeof(leaf));
    leaf.type = type;
    EXPECT_EQ(0, add_leaf_qdisc("eth1", 3, trees::exact(leaf).get()));
    EXPECT_EQ(bytes_of(&leaf, 24), bytes_of(&class_find("eth1", 3)->leaf, 24));
    EXPECT_EQ(0, add_leaf_qdisc("eth2", 1, &leaf));
    EXPECT_EQ(bytes_of(&leaf, 24), bytes_of(&class_find("eth2", 1)->leaf, 24));
  }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(Leaf, AddTellsWhyNot) {
  trees::add_htb("eth1");
  const leaf_qdisc leaf = trees::sfq(5);
  EXPECT_EQ(1, add_leaf_qdisc("eth1", 9, &leaf));
  EXPECT_EQ(4, add_leaf_qdisc("eth1", 1, &leaf));
  EXPECT_EQ(4, add_leaf_qdisc("eth1", 3, nullptr));
  EXPECT_EQ(4, add_leaf_qdisc("eth1", 1, nullptr));
  EXPECT_EQ(1, add_leaf_qdisc("eth1", 9, nullptr));
  EXPECT_EQ(std::string(24, '\0'), bytes_of(&class_find("eth1", 1)->leaf, 24));
  EXPECT_EQ("1(2~10,3)", shape("eth1"));
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(1, add_leaf_qdisc(nullptr, 3, &leaf));
  sandbox::clear_console();
  EXPECT_EQ(1, add_leaf_qdisc("eth9", 3, nullptr));
  EXPECT_EQ(Messages{"eth9 not found!!\n"}, console_messages());
}

TEST_F(Leaf, DeletionResetsItToPfifoWithoutLimit) {
  trees::add_htb("eth1");
  leaf_qdisc leaf;
  memset(&leaf, 0xa5, sizeof(leaf));
  add_leaf_qdisc("eth1", 3, &leaf);
  EXPECT_EQ(0, del_leaf_qdisc("eth1", 3));
  EXPECT_EQ(std::string(24, '\0'), bytes_of(&class_find("eth1", 3)->leaf, 24));
  EXPECT_EQ(0, del_leaf_qdisc("eth1", 2));
  EXPECT_EQ("1(2,3)", shape("eth1"));
  EXPECT_EQ(0, del_leaf_qdisc("eth1", 2)) << "again";

  EXPECT_EQ(1, del_leaf_qdisc("eth1", 9));
  EXPECT_EQ(1, del_leaf_qdisc("eth1", 1));
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(1, del_leaf_qdisc(nullptr, 3));
}

TEST_F(Leaf, IsKeptWhileTheClassHasChildrenAndCountsAgainAfterwards) {
  trees::add_htb("eth1");
  trees::add_htb_class("eth1", 2, 20);
  trees::add_htb_class("eth1", 2, 21);
  const leaf_qdisc other = trees::pfifo(5);
  EXPECT_EQ(4, add_leaf_qdisc("eth1", 2, &other));
  EXPECT_EQ(1, del_leaf_qdisc("eth1", 2));
  EXPECT_EQ(0, check_Key("eth1", 2));
  EXPECT_EQ("1(2(20,21),3)", shape("eth1"));
  const leaf_qdisc fair = trees::sfq(10);
  EXPECT_EQ(bytes_of(&fair, 24), bytes_of(&class_find("eth1", 2)->leaf, 24));

  del_class("eth1", 20);
  EXPECT_EQ(0, check_Key("eth1", 2));
  del_class("eth1", 21);
  EXPECT_EQ(1, check_Key("eth1", 2));
  EXPECT_EQ("1(2~10,3)", shape("eth1"));
  EXPECT_EQ(0, add_leaf_qdisc("eth1", 2, &other));
}

TEST_F(Leaf, KeyIsAClassWithoutChildren) {
  trees::add_htb("htb");
  trees::add_prio("prio", 2);
  trees::add_pfifo_fast("pfifo");
  const struct {
    const char *ifname;
    uint16_t id;
    int is_key;
  } cases[] = {{"htb", 1, 0},  {"htb", 2, 1},  {"htb", 3, 1},   {"htb", 4, 0},
               {"prio", 1, 1}, {"prio", 3, 0}, {"pfifo", 1, 0}, {"htb", 0, 0}};
  for (const auto &c : cases)
    EXPECT_EQ(c.is_key, check_Key(c.ifname, c.id)) << c.ifname << " " << c.id;
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(0, check_Key(nullptr, 1));
}

} // namespace
