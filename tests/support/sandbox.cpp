#include "support/sandbox.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>

namespace sandbox {

namespace {

constexpr char console_path[] = "/dev/console";
constexpr char stand_in_dir[] = "/run/stand-in";

std::string reason(const char *what) {
  return std::string(what) + ": " + strerror(errno);
}

// The private /dev has the harmless devices of the machine, and a plain file where the console would be.
std::string mount_dev() {
  if (mount("tmpfs", "/mnt", "tmpfs", 0, "mode=755") != 0)
    return reason("tmpfs");
  for (const char *name : {"null", "zero", "full", "random", "urandom", "tty"}) {
    const std::string from = std::string("/dev/") + name, to = std::string("/mnt/") + name;
    write_file(to, "");
    mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr);
  }
  mkdir("/mnt/shm", 01777);
  write_file("/mnt/console", "");
  return mount("/mnt", "/dev", nullptr, MS_MOVE, nullptr) == 0 ? "" : reason("moving a private /dev");
}

void bring_up_loopback() {
  ifreq request = {};
  strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ioctl(fd, SIOCSIFFLAGS, &request);
  close(fd);
}

[[noreturn]] void exit_as(int status) {
  if (WIFSIGNALED(status))
    fprintf(stderr, "*** ended by signal %d: %s\n", WTERMSIG(status), strsignal(WTERMSIG(status)));
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

// Waits for one child, reaps others meanwhile, and ends as the child ended.
[[noreturn]] void live_and_die_with(pid_t child) {
  int status;
  for (;;) {
    const pid_t ended = wait(&status);
    if (ended == child)
      exit_as(status);
    if (ended == -1 && errno != EINTR)
      _exit(1);
  }
}

} // namespace

std::string enter() {
  const uid_t uid = getuid();
  const gid_t gid = getgid();
  const int flags = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;
  if (unshare(flags) != 0) {
    if (unshare(flags | CLONE_NEWUSER) != 0)
      return reason("private namespaces");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }

  // The first process of the new world only reaps, so that tests see their own children and no others.
  if (const pid_t init = fork())
    live_and_die_with(init);
  prctl(PR_SET_PDEATHSIG, SIGKILL); // the world ends with its first process
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return reason("private mounts");
  mount("proc", "/proc", "proc", 0, nullptr); // if this is refused, the machine's own /proc shows no wrong process
  for (const char *empty : {"/var/tmp", "/run"})
    if (mount("tmpfs", empty, "tmpfs", 0, "mode=1777") != 0)
      return reason(empty);
  const std::string dev = mount_dev();
  if (!dev.empty())
    return dev;
  bring_up_loopback();
  if (const pid_t tests = fork())
    live_and_die_with(tests);
  return "";
}

std::string all_of(FILE *stream) {
  std::string text;
  for (int byte; (byte = getc(stream)) != EOF;)
    text += static_cast<char>(byte);
  return text;
}

Outcome run(const std::string &command) {
  FILE *pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  const std::string output = all_of(pipe);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write_file(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

bool exists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

int mode_of(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

std::string console_text() {
  return read_file(console_path);
}

std::vector<Trace> console() {
  static const std::regex header(
      "\x1b\\[1m\x1b\\[40;(\\d+)m\\[(?:(-?\\d+) *\\|(\\d+) *| *(\\d+)) ([^\\s:]+) *: *(\\d+) "
      "+([^\\s(]+)\\(\\)\\]:::\x1b\\[0m");
  std::vector<Trace> traces;
  const std::string text = console_text();
  std::smatch at;
  std::string::const_iterator from = text.begin();
  while (std::regex_search(from, text.cend(), at, header, std::regex_constants::match_continuous)) {
    const std::string::const_iterator body = at[0].second;
    const std::string::size_type end = text.find("\x1b[1m", static_cast<size_t>(body - text.cbegin()));
    const std::string::const_iterator next =
        end == std::string::npos ? text.cend() : text.cbegin() + static_cast<std::ptrdiff_t>(end);
    Trace trace;
    trace.has_process = at[2].matched;
    trace.colour = std::stoi(at[1]);
    trace.process = trace.has_process ? std::stoi(at[2]) : -1;
    trace.thread = std::stoi(trace.has_process ? at[3] : at[4]);
    trace.file = at[5];
    trace.line = std::stoi(at[6]);
    trace.func = at[7];
    trace.message = std::string(body, next);
    traces.push_back(trace);
    from = next;
  }
  EXPECT_TRUE(from == text.cend()) << "no trace header at: " << std::string(from, text.cend());
  return traces;
}

std::vector<std::string> console_messages() {
  std::vector<std::string> messages;
  for (const Trace &trace : console())
    messages.push_back(trace.message);
  return messages;
}

void clear_console() {
  write_file(console_path, "");
}

UnopenableConsole::UnopenableConsole() {
  rename(console_path, "/dev/console.away");
  mkdir(console_path, 0700); // not even root can write to a directory
}

UnopenableConsole::~UnopenableConsole() {
  rmdir(console_path);
  rename("/dev/console.away", console_path);
}

ConsoleWatch::ConsoleWatch() : watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  inotify_add_watch(watch_, console_path, IN_OPEN | IN_CLOSE);
}

ConsoleWatch::~ConsoleWatch() {
  close(watch_);
}

ConsoleWatch::Counts ConsoleWatch::counts() {
  alignas(inotify_event) char events[4096];
  ssize_t length;
  while ((length = read(watch_, events, sizeof(events))) > 0) {
    for (ssize_t at = 0; at < length;) {
      inotify_event event;
      memcpy(&event, events + at, sizeof(event));
      counts_.opens += (event.mask & IN_OPEN) != 0;
      counts_.closes += (event.mask & IN_CLOSE) != 0;
      at += static_cast<ssize_t>(sizeof(event) + event.len);
    }
  }
  return counts_;
}

StandIns::StandIns(const std::vector<std::string> &tools) : old_path_(getenv("PATH")) {
  const std::string dir = stand_in_dir;
  mkdir(dir.c_str(), 0700);
  write_file(dir + "/calls", "");
  for (const std::string &tool : tools) {
    const std::string path = dir + "/" + tool;
    write_file(path, "#!/bin/sh\n{ printf '%s' \"${0##*/}\"; for a; do printf ' [%s]' \"$a\"; done; echo; } >>" + dir +
                         "/calls\n");
    chmod(path.c_str(), 0700);
  }
  setenv("PATH", (dir + ":" + old_path_).c_str(), 1);
}

StandIns::~StandIns() {
  setenv("PATH", old_path_.c_str(), 1);
  DIR *dir = opendir(stand_in_dir);
  while (const dirent *entry = readdir(dir))
    unlink((std::string(stand_in_dir) + "/" + entry->d_name).c_str());
  closedir(dir);
  rmdir(stand_in_dir);
}

std::vector<std::string> StandIns::calls() const {
  std::istringstream in(read_file(std::string(stand_in_dir) + "/calls"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

Captured::Captured(int fd) : fd_(fd), saved_(dup(fd)) {
  fflush(nullptr);
  const int file = open("/run/captured", O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
  dup2(file, fd);
  close(file);
}

Captured::~Captured() {
  fflush(nullptr);
  dup2(saved_, fd_);
  close(saved_);
}

std::string Captured::text() {
  fflush(nullptr);
  return read_file("/run/captured");
}

int open_descriptors() {
  int count = 0;
  DIR *dir = opendir("/proc/self/fd");
  while (readdir(dir))
    count++;
  closedir(dir);
  return count;
}

std::vector<int> descriptors_of(const std::string &path) {
  std::vector<int> found;
  DIR *dir = opendir("/proc/self/fd");
  while (const dirent *entry = readdir(dir)) {
    char file[PATH_MAX];
    const ssize_t length = readlinkat(dirfd(dir), entry->d_name, file, sizeof(file));
    if (length > 0 && path == std::string(file, static_cast<size_t>(length)))
      found.push_back(std::stoi(entry->d_name));
  }
  closedir(dir);
  return found;
}

NoDescriptors::NoDescriptors() {
  getrlimit(RLIMIT_NOFILE, &usual_);
  const rlimit none = {0, usual_.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
}

NoDescriptors::~NoDescriptors() {
  setrlimit(RLIMIT_NOFILE, &usual_);
}

} // namespace sandbox
