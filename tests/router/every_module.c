/*
 * This program calls functions of every module. It is plain C, because the C++ test programs cannot be built with every
 * C library. It prints the text of every_module.txt with each of them.
 */
#include <arpa/inet.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "torvane.h"

static void show(const char *what, long value) {
  printf("%s: %ld\n", what, value);
}

static void quality_of_service(void) {
  const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
  const root_params_tree root = {3, {0}};
  const htb_params calls = {2000, 20000, 3000, 0, 1};
  const uint8_t office_hours[4] = {1, 0, 0, 8};
  qos_match match;
  qos_target target;
  leaf_qdisc leaf;
  root_qdisc *tree;

  memset(&match, 0, sizeof(match));
  memset(&target, 0, sizeof(target));
  memset(&leaf, 0, sizeof(leaf));
  show("root", add_root_qdisc(speeds, "eth9", QOS_ROOT_HTB, &root));
  show("class", add_class("eth9", 1, 4, &calls));
  leaf.type = QOS_LEAF_TBF;
  leaf.params.tbf.latency = 50;
  leaf.params.tbf.rate = 1000;
  leaf.params.tbf.burst = 3000;
  show("leaf", add_leaf_qdisc("eth9", 4, &leaf));
  tree = root_qdisc_find_by_name("eth9");
  do_leaf2cmd(stdout, "eth9", &tree->classes);

  show("schedule", (long)add_sched(office_hours));
  match.match_flags = 1u << QOS_MATCH_PROTOCOL | 1u << QOS_MATCH_IP;
  match.protocol = QOS_PROTO_BOTH;
  match.dport_min = match.dport_max = 5060;
  match.src_ip_start = match.src_ip_end = 0xC0A80102;
  match.sched_index = 1;
  target.target_flags = 1u << QOS_TARGET_MARK;
  target.mark = 4;
  show("rule", (long)add_qos_rule("eth9", 1, &match, &target));
  renew_qos_rule(stdout, "eth9", find_rule_list_by_name("eth9"));
  show("rule gone", (long)del_qos_rule("eth9", 1));
  show("root gone", del_root_qdisc("eth9"));
}

static void strings_and_web(void) {
  char text[4096] = "a-b-c", html[64] = "", path[] = "//a/./b/../c", xml[256] = "";
  char *coded = encodeURIComponent("a b/\xc3\xa9"), *decoded = decodeURIComponent(coded);
  unsigned length = 2;
  char *base64 = encode_base64(&length, "ab");
  cgi_entry entries[2];

  j_replace(text, "-", "::");
  j_html_enc("<a>", html, sizeof(html));
  rm_dotdot(path);
  printf("%s %s %s %s %s %s\n", text, html, path, coded, base64, strcmp(decoded, "a b/\xc3\xa9") ? "not" : "back");
  memset(entries, 0, sizeof(entries));
  show("entries", data_2_entries(entries, 2, 11, "a=%41+b&c=d"));
  printf("%s=%s %s=%s\n", entries[0].name, entries[0].value, entries[1].name, entries[1].value);
  show("injection", hasInjectionString("plain"));
  gen_xml(xml, sizeof(xml), "k", "v", 0);
  gen_xml(xml, sizeof(xml), NULL, NULL, 2);
  puts(xml);
  show("element", get_element_value(xml, text, sizeof(text), "root/k"));
  puts(text);
  free(coded);
  free(decoded);
  free(base64);
}

static void xml_tree(void) {
  xml_doc *doc = xmlNewDoc();
  xml_node *child = xmlNewNode("child");
  doc->root = xmlNewNode("top");
  xmlAddText(child, xmlNewText("a]]>b"));
  xmlAddAttr(child, "id", "1");
  xmlAddChild(doc->root, child);
  fflush(stdout);
  printfXmlDoc(NULL, doc);
  xmlFreeDoc(doc);
}

static void files(void) {
  CfgEntry table[] = {{0, "key", NULL}};
  char word[32] = "";
  FILE *out = fopen("/tmp/every_module.cfg", "w");
  fputs("# comment\n  key = some value \n", out);
  fclose(out);
  show("configuration", cfg_construct("/tmp/every_module.cfg", table, 1));
  puts(table[0].value);
  cfg_destory(table, 1);

  out = fopen("/tmp/every_module.words", "w");
  fputs("5[m]=Hello\n5[d]=World\n", out);
  fclose(out);
  show("word", get_words("/tmp/every_module.words", 5, 1, word, sizeof(word)));
  puts(word);
  close_fp();

  initLogSys();
  show("log", createLog("system", "every_module.log", "/tmp"));
  putlog(0, "one", "two");
  out = fopen("/tmp/every_module.log", "r");
  printf("%.8s\n", fgets(word, sizeof(word), out));
  fclose(out);
}

static void addresses(void) {
  uint32_t ip = 0;
  char text[16], six[40] = "";
  uint8_t prefix = 0, bytes[16];
  unsigned short groups[8] = {0xfe80, 0, 0, 0, 0, 0, 0, 1};
  ipport end;

  show("string2ip", string2ip("192.168.1.2", &ip));
  show("ip2string", ip2string(ip, text, sizeof(text)));
  puts(text);
  show("prefix", netmask_convert_prefix(0xFFFFFF80u, &prefix));
  show("bits", prefix);
  show("endpoint", ipport_string_convert_n2n("10.0.0.1", htons(80), &end));
  show("loopback", get_ip_by_ifname("lo", &ip));
  ip2string(ip, text, sizeof(text));
  puts(text);
  show("six", StringToV6Addr("fe80::1", bytes));
  show("last byte", bytes[15]);
  V6AddrToString(groups, six);
  puts(six);
}

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static int done;

static void *task(void *argument) {
  pthread_mutex_lock(&lock);
  done += *(int *)argument;
  pthread_mutex_unlock(&lock);
  return NULL;
}

static void on_timer(uint32_t a, uint32_t b) {
  pthread_mutex_lock(&lock);
  done += (int)(a * b);
  pthread_mutex_unlock(&lock);
}

static void wait_for(int value) {
  int tries, now = 0;
  for (tries = 0; tries < 500 && now != value; tries++) {
    usleep(20000);
    pthread_mutex_lock(&lock);
    now = done;
    pthread_mutex_unlock(&lock);
  }
  show("done", now);
}

static void threads(void) {
  static TimerNode timer;
  int i, one = 1;
  ThreadPool *pool = threadpool_init(2, 100, 256);
  TimerThreadConfig config;

  for (i = 0; i < 100; i++)
    task_enqueue(pool, task, &one);
  show("pool", threadpool_destroy(pool, 1));
  wait_for(100);

  memset(&config, 0, sizeof(config));
  sem_create(0x7201, &config.semid);
  show("timers", createTimerThread(&config));
  timer.callback = on_timer;
  timer.arg1 = 6;
  timer.arg2 = 7;
  timer.expire = getCurrentTime(NULL);
  show("timer", addTimer(&timer));
  wait_for(142);
  show("timers gone", destoryTimerThread());
  sem_delete(config.semid);
}

static void memory(void) {
  unsigned char *block;
  show("pool of memory", xmem_init(0x7202));
  block = xcalloc(2, 4, 9);
  memset(block, 0xab, 8);
  block = xrealloc(block, 16, 8);
  show("zeroed", block[0] + block[15]);
  xfree(block);
  show("gone", xmalloc(1, 0) == NULL);
}

static void datagrams(void) {
  ipport here = {htonl(INADDR_LOOPBACK), htons(7003)}, there = here;
  int receiver = -1, sender = -1, length = 5;
  char bytes[8] = "";

  show("open", socket_open(NULL, &here, SOCKET_OPT_BIND | SOCKET_OPT_REUSE, &receiver));
  show("connect", socket_connect(NULL, &there, 0, &sender));
  show("send", socket_send(sender, SOCKET_OPT_NOSIGNAL, "hello", &length, NULL));
  show("receive", socket_recv(receiver, SOCKET_OPT_RECVFROM, bytes, &length, &there));
  puts(bytes);
  socket_close(sender);
  socket_close(receiver);
}

static void rates(void) {
  bm_head head;
  bm_sample sample = {0};
  int tries;
  show("monitor", init_bm(&head, 0x7203, 1, 0));
  show("interface", add_bm_by_iface("lo", &head));
  show("start", bm_start(&head));
  for (tries = 0; tries < 200 && !query_bm_by_iface("lo", &head, &sample); tries++)
    usleep(20000);
  show("sampled", query_bm_by_iface("lo", &head, &sample));
  sem_delete(head.semid);
}

static void machine(void) {
  struct list_node disks = {&disks, &disks};
  cpu_sample *sample = cpu_utility_get_stat();
  show("load", sample != NULL && cpu_utility_calculate(NULL, sample) < 0);
  free(sample);
  show("disks", vemta_get_disk_info("/", &disks));
  show("empty", list_empty(&disks));
  vemta_free_disk_info(&disks);
  show("command", __system(__FILE__, __LINE__, "machine", "exit %d", 3) >> 8);
}

static void names(void) {
  unsigned char labels[16];
  dnsNameToLabels(labels, "a.bc");
  printf("%d %c %d %c%c %d\n", labels[0], labels[1], labels[2], labels[3], labels[4], labels[5]);
  puts(TxtMapById(LogStrMap, 4));
}

int main(void) {
  setvbuf(stdout, NULL, _IONBF, 0);
  quality_of_service();
  strings_and_web();
  xml_tree();
  files();
  addresses();
  threads();
  memory();
  datagrams();
  rates();
  machine();
  names();
  return 0;
}
