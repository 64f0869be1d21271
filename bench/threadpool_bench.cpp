// Three pools with the same number of workers run the same tiny tasks. The time runs from the first task queued until
// all have run and the workers have ended.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include "torvane.h"

namespace {

constexpr int tasks = 100000;

std::atomic<int> ran;

void *count(void *) {
  ran.fetch_add(1, std::memory_order_relaxed);
  return nullptr;
}

void finish(benchmark::State &state) {
  if (ran != tasks)
    state.SkipWithError("not every task has run");
  ran = 0;
  state.SetItemsProcessed(state.iterations() * tasks);
}

// The queue has room for every task, like the queues of the others.
void torvane_pool(benchmark::State &state) {
  for (auto _ : state) {
    ran = 0;
    ThreadPool *pool = threadpool_init(static_cast<int>(state.range(0)), tasks, 0);
    for (int i = 0; i < tasks; i++)
      task_enqueue(pool, count, nullptr);
    threadpool_destroy(pool, 1);
  }
  finish(state);
}

void glib_pool(benchmark::State &state) {
  for (auto _ : state) {
    ran = 0;
    GThreadPool *pool = g_thread_pool_new([](gpointer, gpointer) { count(nullptr); }, nullptr,
                                          static_cast<gint>(state.range(0)), TRUE, nullptr);
    for (int i = 0; i < tasks; i++)
      g_thread_pool_push(pool, &ran, nullptr);
    g_thread_pool_free(pool, FALSE, TRUE);
  }
  finish(state);
}

void asio_pool(benchmark::State &state) {
  for (auto _ : state) {
    ran = 0;
    boost::asio::thread_pool pool(static_cast<size_t>(state.range(0)));
    for (int i = 0; i < tasks; i++)
      boost::asio::post(pool, [] { count(nullptr); });
    pool.join();
  }
  finish(state);
}

} // namespace

BENCHMARK(torvane_pool)->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(glib_pool)->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(asio_pool)->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
