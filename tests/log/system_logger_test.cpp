// Messages to the system logger.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"

namespace {

// A socket where the system logger would listen.
class SystemLogger {
 public:
  SystemLogger() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
      perror("/dev/log");
  }
  ~SystemLogger() {
    close(fd_);
    unlink("/dev/log");
  }
  SystemLogger(const SystemLogger &) = delete;
  SystemLogger &operator=(const SystemLogger &) = delete;

  // Returns the next message, an empty text if there is none.
  std::string next() const {
    std::vector<char> bytes(70000);
    const ssize_t length = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return length < 0 ? "" : std::string(bytes.data(), static_cast<size_t>(length));
  }
  // Fills the queue, so that the next sender has to wait.
  void fill() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    while (sendto(sender, "x", 1, 0, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 1) {
    }
    close(sender);
  }

 private:
  int fd_;
};

// Checks the form of the time in a message and returns the message without it.
std::string without_time(const std::string &message) {
  static const std::regex form("^(<\\d+>)[A-Z][a-z]{2} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d ");
  EXPECT_TRUE(std::regex_search(message, form)) << message;
  return std::regex_replace(message, form, "$1", std::regex_constants::format_first_only);
}

// Returns what the console shows of a message of this thread.
std::string echo(const std::string &file, const std::string &line, const std::string &func, const std::string &text) {
  const int id = static_cast<int>(syscall(SYS_gettid));
  char header[4096];
  snprintf(header, sizeof(header), "[SYS]\033[1m\033[40;%dm[%5d %-20s:%5s %16s()]:::\033[0m", 31 + id % 8, id,
           file.c_str(), line.c_str(), func.c_str());
  return header + text;
}

class SysLog : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    ASSERT_EQ(0, sem_create(key, &semid));
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    sem_delete(semid);
  }

  int counter() const {
    return semctl(semid, 0, GETVAL);
  }
  std::string pid() const {
    return std::to_string(getpid());
  }

  static constexpr int key = 0x109;
  SystemLogger logger;
  int semid = -1;
  int descriptors = 0;
};

} // namespace

TEST_F(SysLog, EveryTypeHasItsNameAndPriority) {
  const struct {
    int type;
    const char *start;
  } cases[] = {{0, "<14>router[%]: [ltSystemActivity]"},
               {1, "<15>router[%]: [ltDebugInformation]"},
               {2, "<12>router[%]: [ltAttacks]"},
               {3, "<12>router[%]: [ltDroppedPackets]"},
               {4, "<13>router[%]: [ltNotice]"}};
  for (const auto &c : cases) {
    EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", c.type, "%s is %d", "wan0", -3));
    std::string expected = c.start;
    expected.replace(expected.find('%'), 1, pid());
    EXPECT_EQ(expected + "wan0 is -3\n", without_time(logger.next()));
    EXPECT_EQ("", logger.next());
    EXPECT_EQ(1, counter());
  }
}

TEST_F(SysLog, OtherTypesReachTheConsoleAlone) {
  for (const int type : {5, -1, 6, INT_MAX, INT_MIN}) {
    sandbox::clear_console();
    EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", type, "hello\n"));
    EXPECT_EQ("", logger.next());
    EXPECT_EQ(echo("caller", "7", "main", "hello\n"), sandbox::console_text());
    EXPECT_EQ(1, counter());
  }
}

TEST_F(SysLog, TheConsoleShowsTheMessageAfterItsOwnHeader) {
  sandbox::ConsoleWatch watch;
  EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 4, "100%%|%s\n", "%s%n"));
  EXPECT_EQ(1, watch.counts().opens);
  EXPECT_EQ(1, watch.counts().closes);
  const std::string first = echo("caller", "7", "main", "100%|%s%n\n");
  EXPECT_EQ(first, sandbox::console_text());
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]100%|%s%n\n\n", without_time(logger.next()));

  // No newline is added, and wide names are shown whole.
  EXPECT_EQ(0, __syslogprintf(semid, "router", "a_file_name_of_30_characters_xx", -123456,
                              "a_function_of_many_characters", 4, "no newline"));
  EXPECT_EQ(first + echo("a_file_name_of_30_characters_xx", "-123456", "a_function_of_many_characters", "no newline"),
            sandbox::console_text());
}

TEST_F(SysLog, AThreadShowsItsOwnIdAndColour) {
  std::string expected;
  std::thread([&] {
    expected = echo("caller", "7", "main", "hello\n");
    EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 0, "hello\n"));
  }).join();
  EXPECT_EQ(expected, sandbox::console_text());
}

TEST_F(SysLog, TheIdentityIsTheCallsOwn) {
  openlog("program", 0, LOG_DAEMON);
  EXPECT_EQ(0, __syslogprintf(semid, "first", "caller", 7, "main", 0, "a"));
  EXPECT_EQ(0, __syslogprintf(semid, "second", "caller", 7, "main", 0, "b"));
  EXPECT_EQ("<14>first[" + pid() + "]: [ltSystemActivity]a\n", without_time(logger.next()));
  EXPECT_EQ("<14>second[" + pid() + "]: [ltSystemActivity]b\n", without_time(logger.next()));
}

TEST_F(SysLog, MessagesAreCutAt1023Characters) {
  const std::string fits(1023, 'm');
  for (const std::string &message : {fits, fits + "n", std::string(5000, 'm')}) {
    sandbox::clear_console();
    EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 4, "%s", message.c_str()));
    EXPECT_EQ(echo("caller", "7", "main", fits), sandbox::console_text());
    EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]" + fits + "\n", without_time(logger.next()));
  }
}

TEST_F(SysLog, AConsoleThatCannotBeOpenedIsSkipped) {
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello"));
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]hello\n", without_time(logger.next()));
  EXPECT_EQ(1, counter());
}

TEST_F(SysLog, ASemaphoreThatFailsIsReportedAndTheMessageIsSent) {
  ASSERT_EQ(0, sem_delete(semid));
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello\n"));
  EXPECT_EQ("sem down: Invalid argument\nsem up: Invalid argument\n", errors.text());
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]hello\n\n", without_time(logger.next()));
  const std::string shown = sandbox::console_text(), expected = echo("caller", "7", "main", "hello\n");
  ASSERT_EQ(0u, shown.find(expected));
  sandbox::write_file("/dev/console", shown.substr(expected.size()));
  const auto traces = sandbox::console();
  ASSERT_EQ(2u, traces.size());
  const std::regex down("quorra_log:\\d+:::__syslogprintf:::semid=" + std::to_string(semid) + " down fail\n");
  const std::regex up("quorra_log:\\d+:::__syslogprintf:::semid=" + std::to_string(semid) + " up fail\n");
  EXPECT_TRUE(std::regex_match(traces[0].message, down)) << traces[0].message;
  EXPECT_TRUE(std::regex_match(traces[1].message, up)) << traces[1].message;
}

TEST_F(SysLog, TheResultIsThatOfGivingTheSemaphoreBack) {
  union {
    int value;
    semid_ds *status;
  } highest = {32767};
  ASSERT_EQ(0, semctl(semid, 0, SETVAL, highest));
  // The down succeeds. Before the up the test sets the counter to its maximum.
  logger.fill();
  int result = -1;
  sandbox::Captured errors(STDERR_FILENO);
  std::thread sender([&] { result = __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello"); });
  while (counter() != 32766)
    usleep(500);
  ASSERT_EQ(0, semctl(semid, 0, SETVAL, highest));
  while (!logger.next().empty()) {
  }
  sender.join();
  EXPECT_EQ(1, result);
  EXPECT_EQ("sem up: Numerical result out of range\n", errors.text());
}

TEST_F(SysLog, HoldsTheSemaphoreWhileTheSystemLoggerTakesTheMessage) {
  logger.fill();
  int result = -1;
  std::thread sender([&] { result = __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello"); });
  while (counter() != 0)
    usleep(500);
  usleep(20000); // a sender that does not wait would have given it back by now
  EXPECT_EQ(0, counter());
  std::string last;
  for (std::string message = logger.next(); !message.empty(); message = logger.next())
    last = message;
  sender.join();
  for (std::string message = logger.next(); !message.empty(); message = logger.next())
    last = message;
  EXPECT_EQ(0, result);
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]hello\n", without_time(last));
  EXPECT_EQ(1, counter());
}

TEST_F(SysLog, WaitsForTheSemaphoreWithTheMessageShownAlready) {
  ASSERT_EQ(0, downdown(semid, "test", 1, "test", 0));
  std::thread sender([&] { EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello")); });
  while (semctl(semid, 0, GETNCNT) == 0)
    usleep(500);
  EXPECT_NE("", sandbox::console_text());
  EXPECT_EQ("", logger.next());
  EXPECT_EQ(0, upup(semid, "test", 1, "test", 0));
  sender.join();
  EXPECT_NE("", logger.next());
}

TEST_F(SysLog, WithoutASystemLoggerTheRestHappens) {
  unlink("/dev/log");
  EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello"));
  EXPECT_EQ(echo("caller", "7", "main", "hello"), sandbox::console_text());
  EXPECT_EQ(1, counter());
}

TEST_F(SysLog, OnlyAFormatOfNullIsRefusedAndWithoutASign) {
  int (*const unchecked)(int, const char *, const char *, int, const char *, int, const char *, ...) = __syslogprintf;
  EXPECT_EQ(1, unchecked(semid, "router", "caller", 7, "main", 4, nullptr));
  EXPECT_EQ("", logger.next());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(SysLog, APositionOfNullIsShownAsSuch) {
  EXPECT_EQ(0, __syslogprintf(semid, "router", nullptr, 7, "main", 4, "hello"));
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]hello\n", without_time(logger.next()));
  EXPECT_EQ(0, __syslogprintf(semid, "router", "caller", 7, nullptr, 4, "hello"));
  EXPECT_EQ("<13>router[" + pid() + "]: [ltNotice]hello\n", without_time(logger.next()));
  EXPECT_EQ(echo("(null)", "7", "main", "hello") + echo("caller", "7", "(null)", "hello"), sandbox::console_text());
  EXPECT_EQ(1, counter());
}

TEST_F(SysLog, AnIdentityOfNullIsTheProgramsName) {
  EXPECT_EQ(0, __syslogprintf(semid, nullptr, "caller", 7, "main", 4, "hello"));
  EXPECT_EQ("<13>" + std::string(program_invocation_short_name) + "[" + pid() + "]: [ltNotice]hello\n",
            without_time(logger.next()));
  EXPECT_EQ(echo("caller", "7", "main", "hello"), sandbox::console_text());
  EXPECT_EQ(1, counter());

  ASSERT_EQ(0, sem_delete(semid));
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, __syslogprintf(semid, nullptr, nullptr, 7, nullptr, 5, "hello")); // the result is still that of the up
}

TEST(SysLogType, IsFoundByItsExactName) {
  EXPECT_EQ(LOG_TYPE_SYSTEM_ACTIVITY, syslogType("ltSystemActivity"));
  EXPECT_EQ(LOG_TYPE_DEBUG_INFORMATION, syslogType("ltDebugInformation"));
  EXPECT_EQ(LOG_TYPE_ATTACKS, syslogType("ltAttacks"));
  EXPECT_EQ(LOG_TYPE_DROPPED_PACKETS, syslogType("ltDroppedPackets"));
  EXPECT_EQ(LOG_TYPE_NOTICE, syslogType("ltNotice"));
  for (const char *unknown : {"", "ltnotice", "ltNotice ", "Notice", "UNKNOWN"})
    EXPECT_EQ(-1, syslogType(unknown)) << unknown;
  EXPECT_EQ(-1, syslogType(nullptr));
  const int values[] = {LOG_TYPE_SYSTEM_ACTIVITY, LOG_TYPE_DEBUG_INFORMATION, LOG_TYPE_ATTACKS,
                        LOG_TYPE_DROPPED_PACKETS, LOG_TYPE_NOTICE};
  for (int i = 0; i < 5; i++)
    EXPECT_EQ(i, values[i]);
}

TEST(SysLogCortina, DoesNothing) {
  sandbox::clear_console();
  const SystemLogger logger;
  syslogprintf_cortina();
  EXPECT_EQ("", logger.next());
  EXPECT_EQ("", sandbox::console_text());
}
