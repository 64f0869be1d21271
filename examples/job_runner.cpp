// Runs the commands of a job file, each at its time. Every job has a timer, which hands it to a pool of workers.
//
//   job_runner [-w WORKERS] [FILE]
//
// The file, or standard input, holds one job per line: the delay in whole seconds, blanks, the command for the shell.
// Empty lines and lines that begin with "#" are skipped. The program ends after the last job.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <torvane.h>

namespace {

constexpr unsigned long longest_delay = 86400; // seconds: one day
constexpr unsigned long most_workers = 64;
constexpr size_t longest_command = 1000; // bytes; __system holds a little more
constexpr int worker_stack = 256;        // KiB; some C libraries refuse less than 128

struct Job {
  unsigned line;  // number of its line in the file
  uint32_t delay; // seconds
  std::string command;
  TimerNode timer;
};

std::vector<Job> jobs; // it does not change once timers and workers run
ThreadPool *pool;
uint32_t start_time; // seconds of getCurrentTime's clock
int timer_lock;

pthread_mutex_t count_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t all_handed_over = PTHREAD_COND_INITIALIZER;
size_t handed_over; // number of jobs that the pool has got so far

uint32_t seconds_so_far() {
  return getCurrentTime(nullptr) - start_time;
}

// Returns whether the whole text is a number from 0 to `most`, and stores the number.
bool read_number(const std::string &text, unsigned long most, unsigned long *number) {
  if (text.empty() || text.size() > 9 || !is_number(text.c_str()))
    return false;
  *number = strtoul(text.c_str(), nullptr, 10);
  return *number <= most;
}

// Appends the job of a line to `jobs`. Returns null, or the mistake in the line. An empty line and a comment are no
// mistakes.
const char *read_job(unsigned number, const std::string &line) {
  constexpr char blanks[] = " \t\r";
  const size_t start = line.find_first_not_of(blanks);
  if (start == std::string::npos || line[start] == '#')
    return nullptr;
  const size_t delay_end = std::min(line.find_first_of(blanks, start), line.size());
  unsigned long delay;
  if (!read_number(line.substr(start, delay_end - start), longest_delay, &delay))
    return "the delay is no number of seconds up to 86400";
  const size_t command_start = line.find_first_not_of(blanks, delay_end);
  if (command_start == std::string::npos)
    return "no command";
  const std::string command = line.substr(command_start, line.find_last_not_of(blanks) + 1 - command_start);
  if (command.size() > longest_command)
    return "the command is longer than 1000 bytes";
  if (command.find('\0') != std::string::npos)
    return "not a line of text";
  jobs.push_back({number, static_cast<uint32_t>(delay), command, {}});
  return nullptr;
}

// Returns whether the file could be read and is without mistakes, and reports every line that has one.
bool read_jobs(FILE *in, const char *name) {
  bool good = true;
  char *line = nullptr;
  size_t size = 0;
  unsigned number = 0;
  for (ssize_t length; (length = getline(&line, &size, in)) != -1;) {
    std::string text(line, static_cast<size_t>(length));
    if (!text.empty() && text.back() == '\n')
      text.pop_back();
    if (const char *mistake = read_job(++number, text)) {
      fprintf(stderr, "%s:%u: %s\n", name, number, mistake);
      good = false;
    }
  }
  free(line);
  if (ferror(in)) {
    fprintf(stderr, "%s: %s\n", name, strerror(errno));
    return false;
  }
  return good;
}

// Runs a job in a worker.
void *run_job(void *argument) {
  const auto *job = static_cast<Job *>(argument);
  printf("%4us  line %u  start  %s\n", seconds_so_far(), job->line, job->command.c_str());
  const int status = __system("job_runner", __LINE__, __func__, "%s", job->command.c_str());
  if (status == -1)
    printf("%4us  line %u  end    not started\n", seconds_so_far(), job->line);
  else if (WIFEXITED(status))
    printf("%4us  line %u  end    status %d\n", seconds_so_far(), job->line, WEXITSTATUS(status));
  else
    printf("%4us  line %u  end    signal %d\n", seconds_so_far(), job->line, WTERMSIG(status));
  return nullptr;
}

// A thread of the timer service calls this when a timer is due. The pool's queue has a slot for every job, so that a
// full queue cannot happen.
void hand_over(uint32_t index, uint32_t) {
  Job &job = jobs[index];
  const int result = task_enqueue(pool, run_job, &job);
  if (result != 0)
    fprintf(stderr, "line %u: not run (%d)\n", job.line, result);
  pthread_mutex_lock(&count_lock);
  if (++handed_over == jobs.size())
    pthread_cond_signal(&all_handed_over);
  pthread_mutex_unlock(&count_lock);
}

bool start_timers() {
  // A signal would interrupt a wait for the timers' semaphore, so that this thread and those of the service, which
  // inherit its mask, block them all. The workers exist already and take them, the SIGCHLD of their commands too.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  TimerThreadConfig config = {};
  config.semid = timer_lock;
  return createTimerThread(&config) == 1;
}

void run_all() {
  getCurrentTime(&start_time);
  for (size_t i = 0; i < jobs.size(); i++) {
    TimerNode &timer = jobs[i].timer;
    timer.callback = hand_over;
    timer.arg1 = static_cast<uint32_t>(i);
    timer.expire = start_time + jobs[i].delay;
    addTimer(&timer);
  }
  pthread_mutex_lock(&count_lock);
  while (handed_over < jobs.size())
    pthread_cond_wait(&all_handed_over, &count_lock);
  pthread_mutex_unlock(&count_lock);
  destoryTimerThread();
  threadpool_destroy(pool, 1); // this returns after the last job
}

// Runs all jobs in a process of its own. Returns its exit status.
int work(int workers) {
  pool = threadpool_init(workers, static_cast<int>(jobs.size()), worker_stack);
  if (!pool) {
    fputs("no workers\n", stderr);
    return 1;
  }
  if (!start_timers()) {
    fputs("no timers\n", stderr);
    return 1;
  }
  run_all();
  return 0;
}

volatile sig_atomic_t working; // id of the process that runs the jobs

void pass_on(int signal) {
  kill(working, signal);
}

// A semaphore stays until it is removed, and the timers' semaphore must not be removed before the last thread of the
// timer service has ended. These threads cannot be joined. So a child process runs the jobs, and this one removes the
// semaphore when the child has ended, however it did.
int work_and_clean_up(int workers) {
  if (sem_create(IPC_PRIVATE, &timer_lock) != 0) {
    fputs("no semaphore\n", stderr);
    return 1;
  }
  const pid_t child = fork();
  if (child == 0)
    exit(work(workers));
  int status = 0;
  if (child > 0) {
    working = child;
    signal(SIGINT, SIG_IGN); // the terminal sends it to the child as well
    signal(SIGTERM, pass_on);
    signal(SIGHUP, pass_on);
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
  }
  sem_delete(timer_lock);
  if (child == -1) {
    perror("fork");
    return 1;
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  unsigned long workers = 2;
  bool good = true;
  for (int option; (option = getopt(argc, argv, "w:")) != -1;)
    good = good && option == 'w' && read_number(optarg, most_workers, &workers) && workers > 0;
  if (!good || argc - optind > 1) {
    fprintf(stderr, "usage: %s [-w WORKERS] [FILE]\n1 to 64 workers; FILE, or standard input: DELAY COMMAND...\n",
            argv[0]);
    return 2;
  }

  const char *name = optind < argc ? argv[optind] : "standard input";
  FILE *in = optind < argc ? fopen(name, "re") : stdin;
  if (!in) {
    fprintf(stderr, "%s: %s\n", name, strerror(errno));
    return 1;
  }
  good = read_jobs(in, name);
  if (in != stdin)
    fclose(in);
  if (!good)
    return 1;
  if (jobs.empty())
    return 0;
  return work_and_clean_up(static_cast<int>(workers));
}
