// These tests take the steps of the timer service's threads one at a time, and look at its lists. No thread runs here.
#include <gtest/gtest.h>
#include <stddef.h>

#include <regex>

#include "controls.h"
#include "support/record_layout.h"

using controls::fired;
using controls::scenario;
using controls::set_clock;
using controls::start_service_without_thread;
using controls::timer;
using controls::told;
using controls::wake_up;

constexpr size_t word = sizeof(void *);

RECORD_FIELDS(TimerNode, FIELD(node, 0, 2 * word), FIELD(callback, 2 * word, word), FIELD(arg1, 3 * word, 4),
              FIELD(arg2, 3 * word + 4, 4), FIELD(expire, 3 * word + 8, 4));
RECORD_LAYOUT_32(TimerNode, 24, FIELD(expire, 20, 4));
RECORD_LAYOUT(TimerThreadConfig, 2 * sizeof(pthread_t), FIELD(semid, 0, 4),
              FIELD(thread, sizeof(pthread_t), sizeof(pthread_t)));

namespace {

// Returns the sleep that reSchedule finds for timers of these expiries, added in this order.
std::string sleep_at(uint32_t now, std::vector<uint32_t> expiries) {
  return scenario([&] {
    start_service_without_thread();
    set_clock(now);
    std::vector<TimerNode> timers(expiries.size());
    for (size_t i = 0; i < timers.size(); i++) {
      timers[i] = timer(static_cast<uint32_t>(i), expiries[i]);
      addTimer(&timers[i]);
    }
    return std::to_string(reSchedule());
  });
}

bool names_itself(const TimerNode &node) {
  return node.node.next == &node.node && node.node.prev == &node.node;
}

} // namespace

TEST(TimerLists, DueTimersRunInTheOrderInWhichTheyWereAdded) {
  EXPECT_EQ("1 2 4 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 990), b = timer(2, 1000), c = timer(3, 1001), d = timer(4, 10);
              for (TimerNode *each : {&a, &b, &c, &d})
                addTimer(each);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, EqualExpiriesRunInTheOrderInWhichTheyWereAdded) {
  EXPECT_EQ("5 3 4 1 2 ", scenario([] {
              start_service_without_thread();
              TimerNode timers[5];
              const uint32_t names[5] = {5, 3, 4, 1, 2};
              for (int i = 0; i < 5; i++) {
                timers[i] = timer(names[i], 1010);
                addTimer(&timers[i]);
              }
              set_clock(1010);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, TimersFoundDueLaterRunAfterThoseFoundDueBefore) {
  EXPECT_EQ("2 3 1 4 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1002), b = timer(2, 1001), c = timer(3, 1001), d = timer(4, 1002);
              for (TimerNode *each : {&a, &b, &c, &d})
                addTimer(each);
              set_clock(1001);
              reSchedule();
              set_clock(1002);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, ATimerIsDueFromItsSecondOn) {
  EXPECT_EQ("1 0 |7 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(7, 1001);
              addTimer(&a);
              const uint32_t before = wake_up();
              const std::string ran_before = fired();
              set_clock(1001);
              const uint32_t then = wake_up();
              return told(before, then) + " " + ran_before + "|" + fired();
            }));
}

TEST(TimerLists, ATimerRunsOncePerArming) {
  EXPECT_EQ("1 1 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000);
              addTimer(&a);
              for (int i = 0; i < 5; i++)
                wake_up();
              modTimer(&a, 1000);
              for (int i = 0; i < 5; i++)
                wake_up();
              return fired();
            }));
}

TEST(TimerLists, CallbacksGetBothArguments) {
  static uint32_t first, second;
  EXPECT_EQ("4294967295 2147483648", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(0xFFFFFFFF, 1000);
              a.arg2 = 0x80000000;
              a.callback = [](uint32_t arg1, uint32_t arg2) {
                first = arg1;
                second = arg2;
              };
              addTimer(&a);
              wake_up();
              return told(first, second);
            }));
}

TEST(TimerLists, ATimerWithoutACallbackRunsNothing) {
  EXPECT_EQ("2 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000);
              a.callback = nullptr;
              addTimer(&a);
              addTimer(&b);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, TheSleepLastsToTheEarliestTimer) {
  EXPECT_EQ("0", sleep_at(1000, {}));
  EXPECT_EQ("5", sleep_at(1000, {1005}));
  EXPECT_EQ("3", sleep_at(1000, {1005, 1003, 1009}));
  EXPECT_EQ("1", sleep_at(1000, {1001, 1001, 1002}));
  EXPECT_EQ("4", sleep_at(1000, {1000, 1004, 900})); // those that are due do not count
  EXPECT_EQ("0", sleep_at(1000, {1000, 900}));
}

TEST(TimerLists, ATimerIsDueForHalfTheRangeOfTheClock) {
  EXPECT_EQ("2147483647", sleep_at(1000, {1000 + 0x7FFFFFFFu}));
  EXPECT_EQ("2147483648", sleep_at(1000, {1000 + 0x80000000u}));
  EXPECT_EQ("0", sleep_at(1000, {1000 + 0x80000001u})); // the longest overdue
  EXPECT_EQ("0", sleep_at(0x80000001u, {2}));
  EXPECT_EQ("2147483647", sleep_at(0x80000002u, {2})); // past the wrap, so one less
}

TEST(TimerLists, ASleepPastTheClocksWrapIsOneSecondLess) {
  EXPECT_EQ("31", sleep_at(0xFFFFFFF0, {0x10}));
  EXPECT_EQ("1", sleep_at(0xFFFFFFFF, {1}));
  EXPECT_EQ("9", sleep_at(0xFFFFFFFA, {4}));
  EXPECT_EQ("10", sleep_at(0xFFFFFFF0, {0xFFFFFFFA})); // not past it
  EXPECT_EQ("15", sleep_at(0xFFFFFFF0, {0xFFFFFFFF}));
}

TEST(TimerLists, TheEarliestIsFoundAcrossTheClocksWrap) {
  EXPECT_EQ("8", sleep_at(0xFFFFFFF0, {5, 0xFFFFFFF8}));
  EXPECT_EQ("8", sleep_at(0xFFFFFFF0, {0xFFFFFFF8, 5}));
  EXPECT_EQ("20", sleep_at(0xFFFFFFF0, {6, 5, 7}));
}

TEST(TimerLists, ExpiryZeroPendingCountsAsNone) {
  EXPECT_EQ("0", sleep_at(0xFFFFFFFF, {0}));
  EXPECT_EQ("0", sleep_at(0xFFFFFFF0, {0}));
  EXPECT_EQ("0", sleep_at(0xFFFFFFF0, {0, 5})); // also in front of others
  EXPECT_EQ("0", sleep_at(0xFFFFFFF0, {5, 0}));
  EXPECT_EQ("8", sleep_at(0xFFFFFFF0, {0, 0xFFFFFFF8})); // not behind them
}

TEST(TimerLists, ExpiryZeroRunsWhenItsTimeHasCome) {
  EXPECT_EQ("|1 ", scenario([] {
              start_service_without_thread();
              set_clock(0xFFFFFFFF);
              TimerNode a = timer(1, 0);
              addTimer(&a);
              wake_up();
              const std::string before = fired();
              set_clock(0);
              wake_up();
              return before + "|" + fired();
            }));
}

TEST(TimerLists, TimersRunAcrossTheClocksWrap) {
  EXPECT_EQ("|1 |1 2 |1 2 3 ", scenario([] {
              start_service_without_thread();
              set_clock(0xFFFFFFFD);
              TimerNode a = timer(1, 0xFFFFFFFF), b = timer(2, 1), c = timer(3, 2);
              for (TimerNode *each : {&c, &b, &a})
                addTimer(each);
              std::string text;
              wake_up();
              text += fired() + "|";
              set_clock(0xFFFFFFFF);
              wake_up();
              text += fired() + "|";
              set_clock(1);
              wake_up();
              text += fired() + "|";
              set_clock(2);
              wake_up();
              return text + fired();
            }));
}

TEST(TimerLists, ModifyingAWaitingTimerPutsItBehindTheOthers) {
  EXPECT_EQ("0 2 3 1 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1500), b = timer(2, 1000), c = timer(3, 1000);
              for (TimerNode *each : {&a, &b, &c})
                addTimer(each);
              const int result = modTimer(&a, 999);
              wake_up();
              return told(result) + " " + fired();
            }));
}

TEST(TimerLists, ModifyingADueTimerTakesItsRunAway) {
  EXPECT_EQ("2 |2 1 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000);
              addTimer(&a);
              addTimer(&b);
              reSchedule();
              modTimer(&a, 1010);
              wake_up();
              const std::string before = fired();
              set_clock(1010);
              wake_up();
              return before + "|" + fired();
            }));
}

TEST(TimerLists, ModifyingARetiredTimerArmsItAgain) {
  EXPECT_EQ("1 1 1 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000);
              addTimer(&a);
              wake_up();
              for (const uint32_t now : {1001u, 1002u}) {
                modTimer(&a, now);
                wake_up(); // not yet
                set_clock(now);
                wake_up();
              }
              return fired();
            }));
}

TEST(TimerLists, ModifyingADeletedOrNewTimerArmsIt) {
  EXPECT_EQ("1 2 1000", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 77777);
              addTimer(&a);
              delTimer(&a);
              modTimer(&a, 1000);
              modTimer(&b, 1000);
              wake_up();
              return fired() + told(b.expire);
            }));
}

TEST(TimerLists, DeletingTakesATimerOffInEveryState) {
  EXPECT_EQ("0 1 0 1 0 1 9 8 ", scenario([] {
              start_service_without_thread();
              std::string text;
              TimerNode waiting = timer(1, 1010), due = timer(2, 1000), retired = timer(9, 900), last = timer(8, 1010);
              addTimer(&retired);
              wake_up();
              for (TimerNode *each : {&waiting, &due, &last})
                addTimer(each);
              reSchedule();
              for (TimerNode *each : {&waiting, &due, &retired}) {
                const int result = delTimer(each);
                text += told(result, static_cast<int>(names_itself(*each))) + " ";
              }
              set_clock(1010);
              wake_up();
              return text + fired();
            }));
}

TEST(TimerLists, DeletingTwiceIsHarmless) {
  EXPECT_EQ("0 0 1 3 2 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000), c = timer(3, 1000);
              for (TimerNode *each : {&a, &b, &c})
                addTimer(each);
              const int first = delTimer(&b), second = delTimer(&b);
              wake_up();
              addTimer(&b);
              wake_up();
              return told(first, second) + " " + fired();
            }));
}

TEST(TimerLists, DeletingANewTimerIsHarmless) {
  EXPECT_EQ("0 1", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000);
              const int result = delTimer(&a);
              return told(result, static_cast<int>(names_itself(a)));
            }));
}

TEST(TimerLists, ADeletedRecordIsTheOwnersAgain) {
  EXPECT_EQ("2 ", scenario([] {
              start_service_without_thread();
              auto *a = static_cast<TimerNode *>(malloc(sizeof(TimerNode)));
              *a = timer(1, 1000);
              TimerNode b = timer(2, 1000);
              addTimer(a);
              addTimer(&b);
              reSchedule();
              delTimer(a);
              memset(static_cast<void *>(a), 0xAA, sizeof(TimerNode));
              free(a);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, BareDeletionLeavesTheNodesLinks) {
  EXPECT_EQ("1 1 1 3 2 ", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000), c = timer(3, 1000);
              for (TimerNode *each : {&a, &b, &c})
                addTimer(each);
              __delTimer(&b);
              const bool next = b.node.next == &c.node, prev = b.node.prev == &a.node;
              wake_up();
              addTimer(&b);
              wake_up();
              return told(static_cast<int>(next), static_cast<int>(prev)) + " " + fired();
            }));
}

TEST(TimerLists, BareDeletionTwicePutsOldNeighboursBack) {
  EXPECT_EQ("0 1", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000), c = timer(3, 1000);
              for (TimerNode *each : {&a, &b, &c})
                addTimer(each);
              __delTimer(&b);
              delTimer(&a);
              const bool before = c.node.prev == &a.node;
              __delTimer(&b);
              return told(static_cast<int>(before), static_cast<int>(c.node.prev == &a.node));
            }));
}

TEST(TimerLists, ACallbackMayAddModifyAndDelete) {
  static TimerNode a, b, c, gone;
  EXPECT_EQ("1 2 1 3 ", scenario([] {
              start_service_without_thread();
              a = timer(1, 1000);
              b = timer(2, 1000);
              c = timer(3, 1000);
              gone = timer(4, 1000);
              a.callback = [](uint32_t arg1, uint32_t arg2) {
                controls::fire(arg1, arg2);
                if (getCurrentTime(nullptr) == 1000) {
                  addTimer(&b);
                  delTimer(&gone);
                  modTimer(&a, 1001);
                } else {
                  downdown(controls::semaphore, "test", 1, "callback", 0);
                  __delTimer(&a);
                  __modTimer(&c, 1000); // never added
                  upup(controls::semaphore, "test", 1, "callback", 0);
                }
              };
              addTimer(&a);
              addTimer(&gone);
              wake_up();
              wake_up();
              set_clock(1001);
              wake_up();
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, ACallbackMayTakeItsOwnTimerOffAndFreeIt) {
  static TimerNode *own;
  EXPECT_EQ("1 2 ", scenario([] {
              start_service_without_thread();
              own = static_cast<TimerNode *>(malloc(sizeof(TimerNode)));
              *own = timer(1, 1000);
              own->callback = [](uint32_t arg1, uint32_t arg2) {
                delTimer(own);
                free(own);
                controls::fire(arg1, arg2);
              };
              TimerNode b = timer(2, 1000);
              addTimer(own);
              addTimer(&b);
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, NullsAreRefusedUntouched) {
  EXPECT_EQ("1 1 1 0 0", scenario([] {
              start_service_without_thread();
              const int before = controls::semaphore_steps();
              const int added = addTimer(nullptr), deleted = delTimer(nullptr), modified = modTimer(nullptr, 5);
              __delTimer(nullptr);
              __modTimer(nullptr, 5);
              return told(added, deleted, modified, controls::semaphore_steps() - before, controls::sends.load());
            }));
  EXPECT_EQ("", sandbox::console_text());
}

TEST(TimerLists, EachOperationSendsItsCodeUnderTheSemaphore) {
  EXPECT_EQ("1 0 2|1 1 2|1 2 2|1 1 0|1 2 0|", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1010);
              std::string text;
              const auto took = [&](auto operation) {
                const int sends = controls::sent, steps = controls::semaphore_steps();
                operation();
                text +=
                    told(controls::sent - sends, controls::last_code.load(), controls::semaphore_steps() - steps) + "|";
              };
              took([&] { addTimer(&a); });
              took([&] { delTimer(&a); });
              took([&] { modTimer(&a, 1010); });
              took([&] { __delTimer(&a); });
              addTimer(&a);
              took([&] { __modTimer(&a, 1010); });
              return text;
            }));
}

TEST(TimerLists, TheSemaphoreIsFreeAfterwards) {
  EXPECT_EQ("1 1 1 1 1 1", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000);
              addTimer(&a);
              const int added = controls::semaphore_value();
              modTimer(&a, 1000);
              const int modified = controls::semaphore_value();
              reSchedule();
              const int rescheduled = controls::semaphore_value();
              processTimerListThread(nullptr);
              const int processed = controls::semaphore_value();
              delTimer(&a);
              const int deleted = controls::semaphore_value();
              destoryTimerThread();
              return told(added, modified, rescheduled, processed, deleted, controls::semaphore_value());
            }));
}

TEST(TimerLists, WithoutTheSemaphoreTheWorkIsDoneAndTheFailureTold) {
  std::string errors;
  {
    sandbox::Captured captured(STDERR_FILENO);
    EXPECT_EQ("1 1 1 1 2 1 ", scenario([] {
                start_service_without_thread();
                sem_delete(controls::semaphore);
                TimerNode a = timer(1, 1000), b = timer(2, 1000), c = timer(3, 1000);
                const int added = addTimer(&a);
                addTimer(&b);
                addTimer(&c);
                const int modified = modTimer(&a, 1000), deleted = delTimer(&c);
                wake_up();
                return told(added, modified, deleted, destoryTimerThread()) + " " + fired();
              }));
    errors = captured.text();
  }
  EXPECT_NE(std::string::npos, errors.find("sem down: ")) << errors;
  EXPECT_NE(std::string::npos, errors.find("sem up: ")) << errors;
  std::vector<std::string> told_functions;
  for (const std::string &message : sandbox::console_messages()) {
    static const std::regex form("quorra_timer:\\d+:::(\\w+):::semid=-?\\d+ (down|up) fail\n");
    std::smatch parts;
    EXPECT_TRUE(std::regex_match(message, parts, form)) << message;
    told_functions.push_back(std::string(parts[1]) + " " + std::string(parts[2]));
  }
  const std::vector<std::string> expected = {
      "addTimer down", "addTimer up", "addTimer down", "addTimer up", "addTimer down", "addTimer up", "modTimer down",
      "modTimer up", "delTimer down", "delTimer up", "reSchedule down", "reSchedule up",
      // once for each of the two timers, once to see that there is none
      "processTimerListThread down", "processTimerListThread up", "processTimerListThread down",
      "processTimerListThread up", "processTimerListThread down", "processTimerListThread up",
      "destoryTimerThread down", "destoryTimerThread up"};
  EXPECT_EQ(expected, told_functions);
}

TEST(TimerLists, DestroyingRetiresTheWaitingThenTheDueInOrder) {
  EXPECT_EQ("0 1 1 1 1 1", scenario([] {
              start_service_without_thread();
              TimerNode old = timer(1, 1000), c = timer(2, 1010), d = timer(3, 1020), a = timer(4, 1005),
                        b = timer(5, 1005);
              addTimer(&old);
              wake_up();
              for (TimerNode *each : {&c, &d, &a, &b})
                addTimer(each);
              set_clock(1005);
              reSchedule();
              const int result = destoryTimerThread();
              const TimerNode *order[] = {&old, &c, &d, &a, &b};
              std::string text = told(result);
              for (int i = 0; i < 4; i++)
                text += order[i]->node.next == &order[i + 1]->node && order[i + 1]->node.prev == &order[i]->node ? " 1"
                                                                                                                 : " 0";
              const list_node *head = b.node.next; // of the retired
              text += head->next == &old.node && head->prev == &b.node ? " 1" : " 0";
              return text;
            }));
}

TEST(TimerLists, NothingRunsOnceTheServiceWasDestroyed) {
  EXPECT_EQ("", scenario([] {
              start_service_without_thread();
              TimerNode waiting = timer(1, 1000), due = timer(2, 1000);
              addTimer(&due);
              reSchedule();
              addTimer(&waiting);
              destoryTimerThread();
              wake_up();
              return fired();
            }));
}

TEST(TimerLists, RetiredByDestructionATimerCanBeDeleted) {
  EXPECT_EQ("0 1 0 1", scenario([] {
              start_service_without_thread();
              TimerNode a = timer(1, 1000), b = timer(2, 1000);
              addTimer(&a);
              addTimer(&b);
              destoryTimerThread();
              const int first = delTimer(&a), second = delTimer(&b);
              return told(first, static_cast<int>(names_itself(a)), second, static_cast<int>(names_itself(b)));
            }));
}
