// The services beside quality of service run on the router's own kernel and with its own tools: flash, name server,
// system logger, semaphores, sockets.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "router/network.h"

namespace {

class Flash : public testing::Test {
 protected:
  // The kernel was started with these partitions.
  void SetUp() override {
    if (!getenv("TORVANE_ROUTER"))
      GTEST_SKIP() << "only on the router of tests/router/run";
    constexpr unsigned mtd_major = 90, partitions = 11;
    for (unsigned i = 0; i < partitions; i++) {
      const std::string n = std::to_string(i);
      mknod(("/dev/mtd" + n).c_str(), S_IFCHR | 0600, makedev(mtd_major, 2 * i));
    }
  }
};

TEST_F(Flash, IsWhatTheKernelWasToldOfIt) {
  EXPECT_EQ(
      "dev:    size   erasesize  name\n"
      "mtd0: 00020000 00010000 \"boot\"\n"
      "mtd1: 00100000 00010000 \"kernel\"\n"
      "mtd2: 00010000 00010000 \"config\"\n"
      "mtd3: 00010000 00010000 \"config-backup\"\n",
      network::must("head -n 5 /proc/mtd"));
}

TEST_F(Flash, AnswersEveryKindOfQuestion) {
  struct mtd_query all;
  memset(&all, 0xEE, sizeof(all));
  ASSERT_EQ(1, getMtdInfoByName("kernel", &all, sizeof(all), MTD_QUERY_ALL));
  EXPECT_STREQ("/dev/mtd1", all.dev);
  EXPECT_STREQ("/dev/mtdblock1", all.block_dev);
  EXPECT_STREQ("mtd1", all.name);
  EXPECT_STREQ("mtdblock1", all.block_name);
  EXPECT_EQ(1u, all.num);
  EXPECT_EQ(0x100000u, all.size);

  char text[33] = "";
  EXPECT_EQ(1, getMtdInfoByName("boot", text, 32, MTD_QUERY_DEV));
  EXPECT_STREQ("/dev/mtd0", text);
  EXPECT_EQ(1, getMtdInfoByName("boot", text, 32, MTD_QUERY_BLOCK_DEV));
  EXPECT_STREQ("/dev/mtdblock0", text);
  EXPECT_EQ(1, getMtdInfoByName("p5", text, 32, MTD_QUERY_NAME));
  EXPECT_STREQ("mtd5", text);
  EXPECT_EQ(1, getMtdInfoByName("p9", text, 32, MTD_QUERY_BLOCK_NAME));
  EXPECT_STREQ("mtdblock9", text);
  uint32_t number = 0;
  EXPECT_EQ(1, getMtdInfoByName("config-backup", &number, sizeof(number), MTD_QUERY_NUM));
  EXPECT_EQ(3u, number);
  EXPECT_EQ(1, getMtdInfoByName("boot", &number, sizeof(number), MTD_QUERY_SIZE));
  EXPECT_EQ(0x20000u, number);
}

TEST_F(Flash, FindsOnlyTheFirstTenAndRunsSharedNamesTogether) {
  uint32_t number = 99;
  EXPECT_EQ(1, getMtdInfoByName("board", &number, sizeof(number), MTD_QUERY_SIZE)); // mtd10 is read as mtd1
  EXPECT_EQ(0x100000u, number);
  EXPECT_EQ(1, parseMtdNumByCmd("config", &number)); // the digits of mtd2 and mtd3 run together
  EXPECT_EQ(23u, number);
  sandbox::Captured output(1);
  EXPECT_EQ(0, getMtdInfoByName("config", &number, sizeof(number), MTD_QUERY_SIZE));
  EXPECT_EQ(0u, output.text().find("open mtd device fail!! reason:")) << output.text();
}

class Services : public network::Whole {};

TEST_F(Services, NamesAreResolvedByTheNameServerOfTheLine) {
  sandbox::write_file("/run/dnsd.conf", "box.example 192.0.2.7\nother.example 192.0.2.8\n");
  const pid_t server = network::start_in("far", [] {
    execlp("dnsd", "dnsd", "-c", "/run/dnsd.conf", "-i", "203.0.113.2", static_cast<char *>(nullptr));
    return 127;
  });
  const std::string wanted = "203.0.113.2:53 ";
  for (int i = 0; i < 100 && sandbox::run("ip netns exec far netstat -uln").output.find(wanted) == std::string::npos;
       i++)
    usleep(50 * 1000);

  DnsQuery query = {};
  query.servers[0] = inet_addr("203.0.113.2");
  query.servers[1] = inet_addr("203.0.113.77"); // no server has this address
  query.serverCount = 2;
  strcpy(query.names[0], "box.example");
  strcpy(query.names[1], "other.example");
  query.nameCount = 2;
  query.timeoutSec = 1;
  EXPECT_EQ(1, dnsQuery4(&query));
  EXPECT_EQ(inet_addr("192.0.2.7"), query.ipv4Result[0][0]);
  EXPECT_EQ(inet_addr("192.0.2.8"), query.ipv4Result[0][1]);
  EXPECT_EQ(0u, query.ipv4Result[1][0]);
  kill(server, SIGKILL);
  sandbox::end_of_child(server);
}

TEST_F(Services, EventsReachTheSystemLogger) {
  const pid_t logger = sandbox::start_child([] {
    execlp("syslogd", "syslogd", "-n", "-O", "/run/messages", static_cast<char *>(nullptr));
    return 127;
  });
  for (int i = 0; i < 100 && !sandbox::exists("/dev/log"); i++)
    usleep(50 * 1000);
  int semaphore;
  ASSERT_EQ(0, sem_create(0x7101, &semaphore));
  const char *priorities[] = {"info", "debug", "warn", "warn", "notice"};
  const char *names[] = {"ltSystemActivity", "ltDebugInformation", "ltAttacks", "ltDroppedPackets", "ltNotice"};
  for (int type = 0; type < 5; type++)
    EXPECT_EQ(0, __syslogprintf(semaphore, "router", "services_test", 1, "TestBody", type, "event %d", type));
  std::string messages;
  for (int i = 0; i < 100 && messages.find("event 4") == std::string::npos; i++) {
    usleep(50 * 1000);
    messages = sandbox::exists("/run/messages") ? sandbox::read_file("/run/messages") : "";
  }
  for (int type = 0; type < 5; type++) {
    const std::string entry = std::string(" user.") + priorities[type] + " router[" + std::to_string(getpid()) +
                              "]: [" + names[type] + "]event " + std::to_string(type) + "\n";
    EXPECT_NE(std::string::npos, messages.find(entry)) << entry << messages;
  }
  sem_delete(semaphore);
  kill(logger, SIGKILL);
  sandbox::end_of_child(logger);
}

TEST_F(Services, ALockOutlivesTheProcessThatIsKilledWithIt) {
  int semaphore, segment;
  ASSERT_EQ(0, sem_create(0x7102, &semaphore));
  ASSERT_EQ(0, shm_create(0x7103, 64, &segment));
  int *counter = static_cast<int *>(shmat(segment, nullptr, 0));
  sandbox::Handshake holding;
  const pid_t holder = sandbox::start_child([&] {
    int *shared = static_cast<int *>(shmat(segment, nullptr, 0));
    downdown(semaphore, "services_test", 1, "holder", 0);
    *shared = 1;
    holding.give();
    pause();
    return 0;
  });
  ASSERT_TRUE(holding.take());
  kill(holder, SIGKILL);
  EXPECT_EQ(-1, sandbox::end_of_child(holder));
  ASSERT_EQ(0, downdown(semaphore, "services_test", 1, "TestBody", 0));
  EXPECT_EQ(1, *counter);
  EXPECT_EQ(0, upup(semaphore, "services_test", 1, "TestBody", 0));
  shmdt(counter);
  shmctl(segment, IPC_RMID, nullptr);
  sem_delete(semaphore);
}

// The echo service runs on the router's side of the line.
namespace echo {

constexpr int clients = 20;
int closed;

void on_accept(int, int, ipport *, int) {}

void on_data(int, int fd, uint8_t *) {
  char bytes[64];
  const ssize_t count = recv(fd, bytes, sizeof(bytes), 0);
  int length = static_cast<int>(count);
  if (count > 0)
    socket_send(fd, SOCKET_OPT_NOSIGNAL, bytes, &length, nullptr);
}

void on_close(int, int fd) {
  socket_close(fd);
  closed++;
}

void on_cycle(int, fd_set *, int *exit_flag) {
  *exit_flag = closed == clients;
}

void on_error(int, int) {}

int ended = -1;

void on_exit(int, int code) {
  __atomic_store_n(&ended, code, __ATOMIC_SEQ_CST);
}

// Runs one client on a far host.
int talk(int number) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in server = network::address_of("203.0.113.1", 7777);
  if (connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) != 0)
    return 1;
  for (int i = 0; i < 20; i++) {
    char sent[16], received[16];
    const int length = snprintf(sent, sizeof(sent), "%d.%d", number, i);
    int count = length;
    if (socket_send(fd, SOCKET_OPT_NOSIGNAL, sent, &count, nullptr) != 0)
      return 2;
    if (socket_recv_tcp(fd, 0, received, &count) != 0 || memcmp(sent, received, static_cast<size_t>(length)) != 0)
      return 3;
  }
  close(fd);
  return 0;
}

} // namespace echo

TEST_F(Services, ClientsOfOtherHostsAreServedAllAtOnce) {
  ipport local = {inet_addr("203.0.113.1"), htons(7777)};
  int fd;
  ASSERT_EQ(0, socket_listen(&local, SOCKET_OPT_TCP, echo::clients, &fd));
  const socket_handler_set handlers = {echo::on_accept, echo::on_data,  echo::on_close, echo::on_cycle,
                                       nullptr,         echo::on_error, echo::on_exit};
  pthread_t thread;
  ASSERT_EQ(0, socket_select(fd, 0, 0, 0, &handlers, &thread));
  std::vector<pid_t> clients;
  for (int i = 0; i < echo::clients; i++)
    clients.push_back(network::start_in("far" + std::to_string(i % 3 + 1), [i] { return echo::talk(i); }));
  for (const pid_t client : clients)
    EXPECT_EQ(0, sandbox::end_of_child(client));
  for (int i = 0; i < 200 && __atomic_load_n(&echo::ended, __ATOMIC_SEQ_CST) == -1; i++)
    usleep(50 * 1000);
  EXPECT_EQ(0, __atomic_load_n(&echo::ended, __ATOMIC_SEQ_CST));
  socket_close(fd);
}

} // namespace
