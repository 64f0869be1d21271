// Everything that opens something does the same with standard input, output and error closed as with them open. Flash
// devices, which no machine of the tests has, are in the tests of their module.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <sstream>
#include <string>

#include "support/dns_message.h"
#include "support/dns_server.h"
#include "support/sandbox.h"
#include "support/semaphore_order.h"
#include "support/standard_descriptors.h"
#include "torvane.h"

INTERPOSE(semop, 3, sandbox::ordered_semop);

using sandbox::read_file;

namespace {

constexpr char outcome_path[] = "/run/outcome";
constexpr int all_open = 3;

// Identities of processes and threads differ from one run to the next, and so do times.
std::string without_numbers(const std::string &text) {
  return std::regex_replace(text, std::regex("[0-9]+"), "N");
}

// Runs `body` with the descriptors from `first_closed` to 2 closed. Returns what it wrote to its stream, then the
// traces.
template <typename Body>
std::string outcome_of(int first_closed, Body body) {
  unlink(outcome_path);
  sandbox::clear_console();
  EXPECT_EQ(0, sandbox::without_standard_descriptors(first_closed, [&] {
              std::ostringstream outcome;
              body(outcome);
              if (!sandbox::standard_descriptors_are_closed(first_closed))
                outcome << "a descriptor is left open";
              sandbox::write_file(outcome_path, outcome.str());
              return 0;
            }));
  std::string outcome = read_file(outcome_path);
  for (const std::string &message : sandbox::console_messages())
    outcome += "\n" + without_numbers(message);
  return outcome;
}

// Expects the same outcome whichever descriptor is the lowest that is free.
template <typename Body>
void expect_no_difference(Body body) {
  const std::string usual = outcome_of(all_open, body);
  EXPECT_NE("", usual);
  for (int first_closed = 0; first_closed < all_open; first_closed++)
    EXPECT_EQ(usual, outcome_of(first_closed, body)) << "closed from " << first_closed;
}

void wait_until(const std::atomic<bool> &happened) {
  while (!happened)
    usleep(1000);
}

ipport loopback(uint16_t port) {
  ipport end;
  ipport_string_convert_n2n("127.0.0.1", htons(port), &end);
  return end;
}

void add_tree(const char *ifname) {
  const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
  const root_params_tree root = {3, {}};
  add_root_qdisc(speeds, ifname, QOS_ROOT_HTB, &root);
}

} // namespace

TEST(ClosedDescriptors, MakeNoDifferenceToTheEventLog) {
  expect_no_difference([](std::ostream &outcome) {
    initLogSys();
    outcome << createLog("wan", "wan.log", "/run");
    putlog(0, "ppp", "up");
    putlog(0, "ppp", "down");
    int semid = -1;
    outcome << sem_create(0x5101, &semid) << __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello\n");
    outcome << sem_delete(semid) << without_numbers(read_file("/run/wan.log"));
    sandbox::clear_console(); // its lines have a header of their own
    unlink("/run/wan.log");
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToCommands) {
  expect_no_difference([](std::ostream &outcome) {
    outcome << __system("caller", 1, "run", "echo system >/run/out; exit 3") << _execl("echo execl >>/run/out")
            << exec_system("true") << exec_system("echo unread") << read_file("/run/out");
    unlink("/run/out");
    FILE *const stream = _system_read("echo one; echo two");
    outcome << sandbox::all_of(stream);
    outcome << _system_close(stream);
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToProbes) {
  expect_no_difference([](std::ostream &outcome) {
    outcome << _isFileExist("/run") << _isModuleExist("ip_tables") << (get_random() >= 0);
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToInterfaces) {
  expect_no_difference([](std::ostream &outcome) {
    uint32_t address = 0;
    int32_t flags = 0, channel = 0;
    uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    outcome << get_ip_by_ifname("lo", &address) << get_mask_by_ifname("lo", &address) << address
            << get_bcast_by_ifname("lo", &address) << get_aliasIp_by_ifname("lo", &address)
            << get_flag_by_ifname("lo", &flags) << flags << get_chan_by_ifname("lo", &channel)
            << set_mac_by_ifname("absent", mac) << get_mac_by_ifname("lo", mac, sizeof(mac)) << int{mac[5]};
    char names[256] = {}, name[64] = {};
    rxtx_stats counters = {};
    outcome << get_netdev_name(names, sizeof(names)) << names << check_netdev_name("lo")
            << get_ifname_by_ip(htonl(INADDR_LOOPBACK), name, sizeof(name)) << name
            << get_rxtx_by_ifname("lo", &counters);
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToAddressesOfIpv6) {
  expect_no_difference([](std::ostream &outcome) {
    unsigned short groups[8] = {};
    unsigned char address[16] = {};
    v6_ifaddr entries[4] = {};
    outcome << get_ip6_by_ifname("lo", 0, groups) << j_get_ip6_by_ifname("lo", 0, address) << groups[7] << address[15]
            << get_gw6_by_ifname("lo", address) << getifaddr_netlink("lo", AF_INET6, 0, entries, 4);
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToSockets) {
  expect_no_difference([](std::ostream &outcome) {
    ipport here = loopback(7003), there = here, from = {};
    int receiver = -1, sender = -1, listener = -1, length = 5;
    char bytes[8] = {};
    outcome << socket_open(nullptr, &here, SOCKET_OPT_BIND | SOCKET_OPT_REUSE, &receiver)
            << socket_connect(nullptr, &there, 0, &sender) << socket_listen(&here, SOCKET_OPT_TCP, 5, &listener)
            << socket_send(sender, SOCKET_OPT_NOSIGNAL, "hello", &length, nullptr);
    pollfd arrival = {receiver, POLLIN, 0};
    poll(&arrival, 1, -1);
    outcome << socket_recv(receiver, SOCKET_OPT_RECVFROM, bytes, &length, &from) << bytes;
    for (const int fd : {receiver, sender, listener})
      outcome << socket_close(fd);
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToTheSelectService) {
  static std::string heard;
  static int accepted;
  static std::atomic<bool> ended;
  expect_no_difference([](std::ostream &outcome) {
    ipport here = loopback(7004);
    const ipport there = here;
    int listener = -1, length = 5;
    outcome << socket_listen(&here, SOCKET_OPT_TCP | SOCKET_OPT_REUSE, 5, &listener);
    socket_handler_set handlers = {};
    handlers.on_accept = [](int, int fd, ipport *, int) { accepted = fd; };
    handlers.on_data = [](int, int fd, uint8_t *) {
      char bytes[16];
      heard.append(bytes, static_cast<size_t>(std::max<ssize_t>(read(fd, bytes, sizeof(bytes)), 0)));
    };
    handlers.on_close = [](int, int) {};
    handlers.on_cycle = [](int, fd_set *, int *exit_flag) { *exit_flag = heard == "hello"; };
    handlers.on_timeout = [](int, fd_set *) {};
    handlers.on_error = [](int, int) {};
    handlers.on_exit = [](int, int) { ended = true; };
    pthread_t thread;
    outcome << socket_select(listener, 0, 0, 0, &handlers, &thread);

    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = there.port;
    server.sin_addr.s_addr = there.ip;
    outcome << connect(client, reinterpret_cast<const sockaddr *>(&server), sizeof(server))
            << socket_send(client, SOCKET_OPT_NOSIGNAL, "hello", &length, nullptr);
    wait_until(ended);
    outcome << heard;
    for (const int fd : {client, accepted, listener})
      close(fd);
    sandbox::clear_console(); // the first two traces come in any order
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToTheMonitor) {
  expect_no_difference([](std::ostream &outcome) {
    bm_head head;
    bm_sample sample = {};
    outcome << init_bm(&head, 0x5102, 1, 0) << add_bm_by_iface("lo", &head) << bm_start(&head);
    while (!query_bm_by_iface("lo", &head, &sample))
      usleep(1000);
    bool listed = true;
    for (bool told = false; listed; told = true) {
      downdown(head.semid, "test", 1, "test", 0);
      if (!told)
        head.exit = 1;
      listed = !list_empty(&head.link);
      upup(head.semid, "test", 1, "test", 0);
      usleep(1000);
    }
    sem_delete(head.semid);
    sandbox::clear_console(); // the first two traces come in any order
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToTimers) {
  static std::atomic<bool> called;
  expect_no_difference([](std::ostream &outcome) {
    TimerThreadConfig config = {};
    TimerNode timer = {};
    timer.callback = [](uint32_t, uint32_t) { called = true; };
    timer.expire = getCurrentTime(nullptr);
    outcome << sem_create(0x5103, &config.semid) << createTimerThread(&config) << addTimer(&timer);
    wait_until(called);
    outcome << delTimer(&timer) << destoryTimerThread();
    sandbox::clear_console();
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToTheDnsClient) {
  const dns::Server server("127.0.0.1", [](const dns::Bytes &query) {
    return std::vector<dns::Bytes>{dns::reply(query, 1, dns::a(dns::to_question(), "192.0.2.7"))};
  });
  expect_no_difference([](std::ostream &outcome) {
    DnsQuery query = {};
    int responded = 0;
    query.servers[0] = htonl(INADDR_LOOPBACK);
    strcpy(query.names[0], "router.test");
    query.serverCount = query.nameCount = query.stopOnMatch = 1;
    query.timeoutSec = 30;
    outcome << dnsQuery4_main(&query, &responded, 1) << responded << query.ipv4Count << query.ipv4Result[0][0];
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToFilesThatAreRead) {
  sandbox::write_file("/run/router.cfg", "name = router\nno key\nother = 1\n");
  sandbox::write_file("/run/words", "5[m]=Hello\n5[d]=World\n");
  expect_no_difference([](std::ostream &outcome) {
    CfgEntry table[] = {{0, "name", nullptr}};
    outcome << cfg_construct("/run/router.cfg", table, 1) << table[0].value;
    cfg_destory(table, 1);
    char text[16] = {};
    outcome << get_words("/run/words", 5, 1, text, sizeof(text)) << text;
    close_fp();
    cpu_sample *const sample = cpu_utility_get_stat();
    outcome << (sample != nullptr);
    free(sample);
    list_node disks = {&disks, &disks};
    outcome << vemta_get_disk_info("/run", &disks) << list_empty(&disks);
    vemta_free_disk_info(&disks);
  });
  unlink("/run/router.cfg");
  unlink("/run/words");
}

TEST(ClosedDescriptors, MakeNoDifferenceToScripts) {
  const sandbox::StandIns stand_ins({"tc", "ifconfig", "iptables"});
  expect_no_difference([&](std::ostream &outcome) {
    sandbox::run(": >/run/stand-in/calls");
    add_tree("eth1");
    const qos_match match = {};
    qos_target target = {};
    target.target_flags = 1u << QOS_TARGET_MARK;
    target.mark = 2;
    outcome << add_qos_rule("eth1", 1, &match, &target) << start_qos("eth1") << restart_rule("eth1")
            << stop_qos("eth1");
    for (const char *script : {"/var/tmp/qos_start", "/var/tmp/qos_rule_eth1", "/var/tmp/qos_stop"}) {
      outcome << read_file(script);
      unlink(script);
    }
    for (const std::string &call : stand_ins.calls())
      outcome << call << '\n';
    show_ifqos("eth1");
    del_root_qdisc("eth1");
  });
}

TEST(ClosedDescriptors, MakeNoDifferenceToXml) {
  expect_no_difference([](std::ostream &outcome) {
    xml_doc *const doc = xmlNewDoc();
    doc->root = xmlNewNode("router");
    xmlAddText(xmlAddChild(doc->root, xmlNewNode("name")), xmlNewText("home"));
    char *buffer = xmlPrepareBuf(doc);
    outcome << (buffer ? buffer : "no buffer");
    xmlFreeBuf(buffer);
    xmlFreeDoc(doc);

    xml_doc_file *const file = xmlNewDocFile();
    unsigned length = 0;
    printf("this belongs to standard output\n");
    buffer = xmlFileToBuf(file, &length);
    outcome << (buffer ? buffer : "no buffer") << length;
    xmlFreeBuf(buffer);
    xmlFreeDocFile(file);

    outcome << chdir("/run") << xml_test_main() << read_file("output.txt");
    unlink("output.txt");
  });
}

// A descriptor that a program has closed is no place for a file of the library, also when there is no other.
TEST(ClosedDescriptors, AreNotUsedForFilesWhenThereAreNoOthers) {
  const sandbox::StandIns stand_ins({"tc", "ifconfig", "iptables"});
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors([] {
              add_tree("eth1");
              if (start_qos("eth1") != 0 || stop_qos("eth1") != 0 || restart_rule("eth1") != 0)
                return 1;
              xml_doc *const doc = xmlNewDoc();
              doc->root = xmlNewNode("router");
              if (xmlPrepareBuf(doc) || xmlNewDocFile()->fp)
                return 2;
              return chdir("/run") == 0 && xml_test_main() == 1 ? 0 : 3;
            }));
  for (const char *file : {"/var/tmp/qos_start", "/var/tmp/qos_stop", "/var/tmp/qos_rule_eth1", "/run/output.txt"}) {
    EXPECT_EQ("", read_file(file));
    unlink(file);
  }
  EXPECT_TRUE(stand_ins.calls().empty());
}
