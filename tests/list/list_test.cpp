#include <gtest/gtest.h>
#include <stddef.h>

#include <initializer_list>
#include <vector>

#include "support/record_layout.h"
#include "torvane.h"

RECORD_LAYOUT(list_node, 2 * sizeof(void *), FIELD(next, 0, sizeof(void *)),
              FIELD(prev, sizeof(void *), sizeof(void *)));

namespace {

// The fixture has two empty lists and five nodes.
class List : public testing::Test {
 protected:
  list_node head = {&head, &head};
  list_node other = {&other, &other};
  list_node n[5] = {};

  void fill(int count) {
    for (int i = 0; i < count; i++)
      list_add_tail(&n[i], &head);
  }

  // Expects the list of `of` to hold exactly these nodes of n, in both directions.
  void expect(const list_node &of, std::initializer_list<int> numbers) {
    std::vector<const list_node *> wanted, forwards, backwards;
    for (const int number : numbers)
      wanted.push_back(&n[number]);
    for (const list_node *at = of.next; at != &of && forwards.size() <= 5; at = at->next)
      forwards.push_back(at);
    for (const list_node *at = of.prev; at != &of && backwards.size() <= 5; at = at->prev)
      backwards.insert(backwards.begin(), at);
    EXPECT_EQ(wanted, forwards);
    EXPECT_EQ(wanted, backwards);
  }

  static void expect_links(const list_node &node, const list_node *next, const list_node *prev) {
    EXPECT_EQ(next, node.next);
    EXPECT_EQ(prev, node.prev);
  }
};

} // namespace

TEST_F(List, IsEmptyWhenItsHeadPointsToItself) {
  EXPECT_EQ(1, list_empty(&head));
  expect_links(head, &head, &head);
  list_add_tail(&n[0], &head);
  EXPECT_EQ(0, list_empty(&head));
  list_del(&n[0]);
  EXPECT_EQ(1, list_empty(&head));
}

TEST_F(List, EmptinessIsAQuestionOfTheNextPointerAlone) {
  const list_node next_only = {const_cast<list_node *>(&next_only), &other};
  EXPECT_EQ(1, list_empty(&next_only));
  const list_node prev_only = {&other, const_cast<list_node *>(&prev_only)};
  EXPECT_EQ(0, list_empty(&prev_only));
}

TEST_F(List, TheLibrarysOwnAreEmptyWithoutInitialisation) {
  EXPECT_EQ(1, list_empty(&qos_root));
  expect_links(qos_root, &qos_root, &qos_root);
  EXPECT_EQ(1, list_empty(&sched_root));
  expect_links(sched_root, &sched_root, &sched_root);
}

TEST_F(List, AddTailOnAnEmptyListLinksHeadAndNodeBothWays) {
  list_add_tail(&n[0], &head);
  expect_links(head, &n[0], &n[0]);
  expect_links(n[0], &head, &head);
}

TEST_F(List, AddTailAppends) {
  fill(3);
  expect(head, {0, 1, 2});
}

TEST_F(List, AddLinksBetweenTwoNeighboursAndTouchesNoOtherPointer) {
  list_node before = {&other, &n[3]}, after = {&n[4], &other};
  list_add(&n[0], &before, &after);
  expect_links(n[0], &after, &before);
  expect_links(before, &n[0], &n[3]);
  expect_links(after, &n[4], &n[0]);
  expect_links(other, &other, &other);
}

TEST_F(List, AddAppendsBeforeTheHeadAndInsertsBeforeANode) {
  list_add(&n[0], head.prev, &head);
  list_add(&n[1], head.prev, &head);
  expect(head, {0, 1});
  list_add(&n[2], n[1].prev, &n[1]);
  expect(head, {0, 2, 1});
  list_add(&n[3], n[0].prev, &n[0]);
  expect(head, {3, 0, 2, 1});
  list_add(&n[4], &head, head.next);
  expect(head, {4, 3, 0, 2, 1});
}

TEST_F(List, DelUnlinksAndLeavesTheEntrysOwnPointers) {
  fill(3);
  list_del(&n[1]);
  expect(head, {0, 2});
  expect_links(n[1], &n[2], &n[0]);
  list_del(&n[0]);
  expect(head, {2});
  expect_links(n[0], &n[2], &head);
  list_del(&n[2]);
  expect(head, {});
  expect_links(head, &head, &head);
  expect_links(n[2], &head, &head);
}

TEST_F(List, ReplaceTakesThePlaceAndLeavesTheOldPointers) {
  fill(3);
  list_replace(&n[1], &n[3]);
  expect(head, {0, 3, 2});
  expect_links(n[1], &n[2], &n[0]);
  list_replace(&n[0], &n[4]);
  expect(head, {4, 3, 2});
  expect_links(n[0], &n[3], &head);
  list_replace(&n[2], &n[1]);
  expect(head, {4, 3, 1});
  expect_links(n[2], &head, &n[3]);
}

TEST_F(List, ReplaceOfTheOnlyEntry) {
  fill(1);
  list_replace(&n[0], &n[1]);
  expect(head, {1});
  expect_links(head, &n[1], &n[1]);
  expect_links(n[1], &head, &head);
  expect_links(n[0], &head, &head);
}

TEST_F(List, ReplaceOfAHeadTakesOverItsEntries) {
  fill(2);
  list_replace(&head, &other);
  expect(other, {0, 1});
  expect_links(head, &n[0], &n[1]);
}

TEST_F(List, MoveGoesToTheEndNotTheFront) {
  fill(3);
  list_add_tail(&n[3], &other);
  list_add_tail(&n[4], &other);
  list_move(&n[1], &other);
  expect(head, {0, 2});
  expect(other, {3, 4, 1});
}

TEST_F(List, MoveWithinItsListPutsTheEntryLast) {
  fill(3);
  list_move(&n[0], &head);
  expect(head, {1, 2, 0});
  list_move(&n[2], &head);
  expect(head, {1, 0, 2});
  list_move(&n[2], &head);
  expect(head, {1, 0, 2});
}

TEST_F(List, MoveOfTheOnlyEntry) {
  fill(1);
  list_move(&n[0], &head);
  expect(head, {0});
  list_move(&n[0], &other);
  expect(head, {});
  EXPECT_EQ(1, list_empty(&head));
  expect(other, {0});
}

TEST_F(List, OneRecordMayBeOnSeveralListsAndOwnOne) {
  struct Record {
    int number;
    list_node by_name, by_age, children;
  } records[2] = {};
  for (int i = 0; i < 2; i++) {
    records[i].number = i;
    records[i].children = {&records[i].children, &records[i].children};
    list_add_tail(&records[i].by_name, &head);
    list_add(&records[i].by_age, &other, other.next);
  }
  list_add_tail(&n[0], &records[1].children);

  const auto number = [](const list_node *node, size_t offset) {
    return reinterpret_cast<const Record *>(reinterpret_cast<const char *>(node) - offset)->number;
  };
  EXPECT_EQ(0, number(head.next, offsetof(Record, by_name)));
  EXPECT_EQ(1, number(head.prev, offsetof(Record, by_name)));
  EXPECT_EQ(1, number(other.next, offsetof(Record, by_age)));
  EXPECT_EQ(0, number(other.prev, offsetof(Record, by_age)));
  EXPECT_EQ(1, list_empty(&records[0].children));
  expect(records[1].children, {0});

  list_del(&records[0].by_name);
  EXPECT_EQ(0, number(other.prev, offsetof(Record, by_age)));
  EXPECT_EQ(&records[1].by_name, head.next);
}
