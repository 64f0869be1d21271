#include <memory>

#include "iptables/rule_builders.h"

namespace {

using rules::add_sched_of;
using rules::Lines;
using rules::traced;

const bool no_schedules_at_start = list_empty(&sched_root) && sched_root.prev == &sched_root;

class Schedules : public rules::World {
 protected:
  static std::vector<qos_sched *> all() {
    std::vector<qos_sched *> found;
    for (list_node *node = sched_root.next; node != &sched_root; node = node->next) {
      EXPECT_EQ(node, node->next->prev);
      found.push_back(reinterpret_cast<qos_sched *>(reinterpret_cast<char *>(node) - offsetof(qos_sched, node)));
    }
    return found;
  }
};

std::string sched_text(uint8_t index) {
  char text[128] = "untouched";
  return get_sched_str(index, text, sizeof(text) - 1) ? text : "(none)";
}

TEST_F(Schedules, ThereAreNoneBeforeTheFirstIsAdded) {
  EXPECT_TRUE(no_schedules_at_start);
}

TEST_F(Schedules, AddReadsFourBytesAndLeavesTheRestZero) {
  const std::unique_ptr<uint8_t[]> four(new uint8_t[4]{3, 0x3E, 2, 8}); // a fifth byte must not be read
  ASSERT_EQ(1u, add_sched(four.get()));
  const uint8_t seven[7] = {4, 0xFF, 1, 22, 23, 24, 25};
  ASSERT_EQ(1u, add_sched(seven));

  const uint8_t expected[2][7] = {{3, 0x3E, 2, 8, 0, 0, 0}, {4, 0xFF, 1, 22, 0, 0, 0}};
  ASSERT_EQ(2u, all().size());
  for (size_t i = 0; i < 2; i++)
    EXPECT_EQ(0, memcmp(expected[i], &all()[i]->index, 7)) << i;
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, IndexZeroAndNullAreNoSchedules) {
  EXPECT_EQ(0u, add_sched_of(0));
  EXPECT_EQ(0u, add_sched(nullptr));
  EXPECT_TRUE(all().empty());
  ASSERT_EQ(1u, add_sched_of(1));
  EXPECT_EQ(nullptr, search_sched(0));
  EXPECT_EQ(0u, del_sched(0));
  EXPECT_EQ(1u, all().size());
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, StayInTheOrderTheyWereAddedUpToTheLastIndex) {
  for (int i = 255; i >= 1; i--)
    ASSERT_EQ(1u, add_sched_of(static_cast<uint8_t>(i), static_cast<uint8_t>(i / 2)));
  ASSERT_EQ(255u, all().size());
  for (int i = 255; i >= 1; i--) {
    const qos_sched *sched = all()[static_cast<size_t>(255 - i)];
    EXPECT_EQ(i, sched->index);
    EXPECT_EQ(sched, search_sched(static_cast<uint8_t>(i)));
  }
  EXPECT_EQ(1u, del_sched(128));
  EXPECT_EQ(nullptr, search_sched(128));
  EXPECT_EQ(0u, del_sched(128));
  EXPECT_EQ(254u, all().size());
  EXPECT_EQ(1u, del_all_sched());
  EXPECT_TRUE(list_empty(&sched_root));
  EXPECT_EQ(1u, del_all_sched()); // also when there is none
  EXPECT_EQ(nullptr, search_sched(1));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, OfTwoWithOneIndexTheOlderIsFoundAndDeletedFirst) {
  ASSERT_EQ(1u, add_sched_of(5, 0x01));
  ASSERT_EQ(1u, add_sched_of(6));
  ASSERT_EQ(1u, add_sched_of(5, 0x02));
  EXPECT_EQ(3u, all().size());
  EXPECT_EQ(0x01, search_sched(5)->days);
  EXPECT_EQ("-m time --timestart 00:00 --timestop 23:59 --days Sun ", sched_text(5));
  EXPECT_EQ(1u, del_sched(5));
  EXPECT_EQ(0x02, search_sched(5)->days);
  EXPECT_EQ("-m time --timestart 00:00 --timestop 23:59 --days Mon ", sched_text(5));
  EXPECT_EQ(1u, del_sched(5));
  EXPECT_EQ(0u, del_sched(5));
}

TEST_F(Schedules, WithoutMemoryNoneIsAdded) {
  ASSERT_EQ(1u, add_sched_of(1));
  const auto add_second = [] { return add_sched_of(2); };
  const auto check = [](uint32_t result, bool failed) {
    EXPECT_EQ(failed ? 0u : 1u, result);
    EXPECT_EQ(failed ? 1u : 2u, all().size());
  };
  const unsigned failures = sandbox::fail_each_allocation(add_second, check);
  EXPECT_EQ(1u, failures);
  EXPECT_EQ(2u, all().size());
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, TextHoldsHoursAndDays) {
  const struct {
    uint8_t days, all_day, start_hour, stop_hour, start_min, stop_min;
    const char *text;
  } cases[] = {
      {0x3E, 0, 8, 18, 0, 30, "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri "},
      {0, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 "},
      {0, 1, 9, 17, 15, 45, "-m time --timestart 00:00 --timestop 23:59 "},
      {0, 0, 0, 0, 0, 0, "-m time --timestart 0:00 --timestop 0:00 "},
      {0, 2, 23, 5, 59, 7, "-m time --timestart 23:59 --timestop 5:07 "},
      {0, 255, 10, 11, 1, 2, "-m time --timestart 10:01 --timestop 11:02 "},
      {0x80, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 "},
      {0x01, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Sun "},
      {0x02, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Mon "},
      {0x04, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Tue "},
      {0x08, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Wed "},
      {0x10, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Thu "},
      {0x20, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Fri "},
      {0x40, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Sat "},
      {0xC1, 1, 0, 0, 0, 0, "-m time --timestart 00:00 --timestop 23:59 --days Sun,Sat "},
      {0x7F, 0, 1, 2, 3, 4, "-m time --timestart 1:03 --timestop 2:04 --days Sun,Mon,Tue,Wed,Thu,Fri,Sat "},
      {0xFF, 0, 255, 255, 255, 255,
       "-m time --timestart 255:255 --timestop 255:255 --days Sun,Mon,Tue,Wed,Thu,Fri,Sat "},
  };
  for (const auto &row : cases) {
    ASSERT_EQ(1u, add_sched_of(9, row.days, row.all_day, row.start_hour));
    qos_sched *sched = search_sched(9);
    sched->stop_hour = row.stop_hour;
    sched->start_min = row.start_min;
    sched->stop_min = row.stop_min;
    EXPECT_EQ(row.text, sched_text(9));
    EXPECT_EQ(1u, del_sched(9));
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, TextIsWrittenWholeWithItsTerminatorOrNotAtAll) {
  add_office_hours(3, 0x3E);
  const std::string text = "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri ";
  const auto length = static_cast<uint32_t>(text.size());
  const std::string untouched(200, '\xA5');
  const std::string whole = text + '\0' + untouched.substr(length + 1);

  for (const uint32_t size : {0u, 1u, 10u, length - 2, length - 1}) {
    std::string dst = untouched;
    EXPECT_EQ(0u, get_sched_str(3, dst.data(), size)) << size;
    EXPECT_EQ(untouched, dst) << size;
    EXPECT_EQ(Lines{"quorra_iptables get_sched_str: schedule index not found!!\n"}, traced());
  }
  for (const uint32_t size : {length, length + 1, length + 2, 127u, 128u, 1000u, 0xFFFFFFFFu}) {
    std::string dst = untouched;
    EXPECT_EQ(1u, get_sched_str(3, dst.data(), size)) << size;
    EXPECT_EQ(whole, dst) << size;
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(Schedules, TheLongestTextFitsTheSizeThatIsAlwaysEnough) {
  ASSERT_EQ(1u, add_sched_of(1, 0xFF, 0, 255));
  qos_sched *sched = search_sched(1);
  sched->stop_hour = sched->start_min = sched->stop_min = 255;
  char text[84];
  EXPECT_EQ(1u, get_sched_str(1, text, 83));
}

TEST_F(Schedules, TextOfNoScheduleFailsAndIsTraced) {
  const Lines not_found = {"quorra_iptables get_sched_str: schedule index not found!!\n"};
  ASSERT_EQ(1u, add_sched_of(1));
  char text[128] = "untouched";
  for (const unsigned index : {0u, 2u, 255u}) {
    EXPECT_EQ(0u, get_sched_str(static_cast<uint8_t>(index), text, 127));
    EXPECT_EQ(not_found, traced());
  }
  EXPECT_STREQ("untouched", text);
  EXPECT_EQ(0u, get_sched_str(1, nullptr, 127));
  EXPECT_EQ(not_found, traced());
}

} // namespace
