// Shows the rates of interfaces once in every period: as a table on a terminal, as lines elsewhere.
//
//   bandwidth [-p SECONDS] INTERFACE...
//
// After SIGINT or SIGTERM the program ends with the current period. A second signal ends it at once.
#include <sys/ipc.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <torvane/ipc.h>
#include <torvane/list.h>
#include <torvane/monitor.h>

#include "units.h"

namespace {

constexpr unsigned char default_period = 2; // seconds

struct Options {
  unsigned char period = default_period;
  std::vector<std::string> interfaces;
};

int usage() {
  fputs(
      "usage: bandwidth [-p SECONDS] INTERFACE...\n"
      "  -p SECONDS  from one measurement to the next, 1 to 255 (2)\n",
      stderr);
  return 2;
}

bool parse(int argc, char **argv, Options &options) {
  int option;
  while ((option = getopt(argc, argv, "p:")) != -1) {
    if (option != 'p')
      return false;
    char *end;
    const long seconds = strtol(optarg, &end, 10);
    if (end == optarg || *end || seconds < 1 || seconds > 255)
      return false;
    options.period = static_cast<unsigned char>(seconds);
  }
  options.interfaces.assign(argv + optind, argv + argc);
  return !options.interfaces.empty();
}

std::string readable(uint64_t bytes_per_second) {
  static constexpr const char *names[] = {"B/s", "kB/s", "MB/s", "GB/s", "TB/s"};
  return in_units(bytes_per_second, {names, 1000, 999.95}); // 999.95 of a unit would be shown as 1000.0
}

// Writes the table over the previous one.
void show(bm_head &monitor, const Options &options, bool terminal, bool first) {
  if (terminal && !first)
    printf("\033[%zuA", options.interfaces.size() + 1);
  if (terminal)
    printf("%-16s%14s%14s\033[K\n", "interface", "received", "sent");
  for (const std::string &name : options.interfaces) {
    bm_sample rates;
    const bool known = query_bm_by_iface(name.c_str(), &monitor, &rates) == 1;
    const std::string received = known ? readable(rates.rx_rate) : "-", sent = known ? readable(rates.tx_rate) : "-";
    if (terminal)
      printf("%-16s%14s%14s\033[K\n", name.c_str(), received.c_str(), sent.c_str());
    else
      printf("%s received %s sent %s\n", name.c_str(), received.c_str(), sent.c_str());
  }
  fflush(stdout);
}

// Calls `body`, which reads or changes the monitor, with the monitor's semaphore taken. Returns what `body` returns, or
// false when the semaphore cannot be taken.
template <typename Body>
bool locked(const bm_head &monitor, Body body) {
  if (downdown(monitor.semid, "bandwidth", __LINE__, "locked", 0) != 0)
    return false;
  const bool result = body();
  upup(monitor.semid, "bandwidth", __LINE__, "locked", 0);
  return result;
}

// Returns whether one of the signals came before the time `wait` was over.
bool signalled(const sigset_t &signals, timespec wait) {
  return sigtimedwait(&signals, nullptr, &wait) > 0;
}

// Removes the monitor's semaphore, which would outlive the program.
void remove_semaphore(bm_head *monitor) {
  sem_delete(monitor->semid);
}

// Ends the monitor's thread and waits for its end, or for a second signal. The thread looks at its exit bit when its
// sleep is over; it empties the list before it ends.
void end(bm_head &monitor, const sigset_t &signals) {
  locked(monitor, [&monitor] {
    monitor.exit = 1;
    return true;
  });
  fprintf(stderr, "bandwidth: ending with this period\n");
  while (!locked(monitor, [&monitor] { return list_empty(&monitor.link) != 0; }))
    if (signalled(signals, {0, 50'000'000}))
      break;
}

} // namespace

int main(int argc, char **argv) {
  Options options;
  if (!parse(argc, argv, options))
    return usage();

  // The signals are blocked before there is a second thread, because none may interrupt a wait for the semaphore.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  static bm_head monitor; // it is static because its thread may still run while main returns
  if (init_bm(&monitor, IPC_PRIVATE, options.period, 0) != 1) {
    fprintf(stderr, "bandwidth: no semaphore\n");
    return 1;
  }
  const std::unique_ptr<bm_head, decltype(&remove_semaphore)> semaphore(&monitor, remove_semaphore);
  for (const std::string &name : options.interfaces)
    if (add_bm_by_iface(name.c_str(), &monitor) != 1) {
      fprintf(stderr, "bandwidth: %s cannot be listed: too long a name, or no memory\n", name.c_str());
      return 1;
    }
  if (bm_start(&monitor) != 0) {
    fprintf(stderr, "bandwidth: no thread\n");
    return 1;
  }

  const bool terminal = isatty(STDOUT_FILENO);
  for (bool first = true; first || !signalled(signals, {options.period, 0}); first = false)
    show(monitor, options, terminal, first);
  end(monitor, signals);
  return 0;
}
