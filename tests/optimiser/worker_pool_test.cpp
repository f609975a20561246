// Jobs on threads: results, bounds and failures.

#include "optimiser/worker_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <new>
#include <stdexcept>
#include <thread>

#include "support/failing_memory.h"

namespace morlu::tests {
namespace {

using osg::worker_pool;

void take_some_time(unsigned amount) {
  std::this_thread::sleep_for(std::chrono::microseconds(amount));
}

TEST(WorkerPool, RunsEveryJobAndNoMoreAtATimeThanMay) {
  for (const int numthreads : {-1, 1, 2, 3, 8, 64}) {
    SCOPED_TRACE(numthreads);
    std::atomic<int> at_work = 0, most = 0;
    std::vector<std::size_t> results(200);
    worker_pool pool("TEST_POOL", numthreads);
    pool.run(results.size(), [&](std::size_t i) {
      const int now = ++at_work;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      take_some_time(static_cast<unsigned>(i * 37 % 200));
      results[i] = i + 1;
      --at_work;
    });
    pool.rethrow();
    for (std::size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], i + 1);
    EXPECT_LE(most, std::max(numthreads, 1));
    EXPECT_EQ(pool.uses_threads(), numthreads >= 2);
  }
}

/// While the first job still runs, those before the last are over and their threads joined.
TEST(WorkerPool, ParksFewThreads) {
  constexpr std::size_t jobs = 50;
  std::atomic<bool> may_end = false;
  worker_pool pool("TEST_PARKED", 2);
  pool.run(jobs, [&](std::size_t i) {
    while (i == 0 && !may_end) take_some_time(50);
    if (i < jobs - 1) return;
    auto* const early = ::osg::ThreadManager::the()->findThread(osg::threadName("TEST_PARKED", 5));
    ASSERT_TRUE(early);
    early->terminate();  // would wait for ever if its worker stood at its barrier
    may_end = true;
  });
  EXPECT_EQ(osg::threadName("P", 3), "P_Thread_3");
  EXPECT_EQ(osg::barrierName("P", 3), "P_Barrier_3");
}

void fail(int kind) {
  if (kind == 0) throw std::bad_alloc();
  if (kind == 1) throw std::runtime_error("no good");
  throw 7;
}

void expect_rethrown(const worker_pool& pool, int kind) {
  if (kind == 0) {
    EXPECT_THROW(pool.rethrow(), std::bad_alloc);
  } else if (kind == 1) {
    EXPECT_THROW(pool.rethrow(), std::runtime_error);
  } else {
    EXPECT_THROW(pool.rethrow(), int);
  }
}

TEST(WorkerPool, KeepsWhatJobsThrow) {
  for (const int numthreads : {1, 2, 4, 64})
    for (int kind = 0; kind < 3; ++kind)
      for (std::size_t failing = 0; failing < 12; ++failing) {
        std::atomic<int> done = 0;
        worker_pool pool("TEST_POOL", numthreads);
        pool.run(12, [&](std::size_t i) {
          take_some_time(static_cast<unsigned>((i * 31 + failing * 17) % 60));
          if (i == failing) fail(kind);
          if (i > failing && i % 3 == 0) fail((kind + 1) % 3);  // a later one does not count
          ++done;
        });
        const int later = static_cast<int>(11 - failing - (11 / 3 - failing / 3));
        EXPECT_EQ(done, static_cast<int>(failing) + (numthreads > 1 ? later : 0));
        expect_rethrown(pool, kind);
      }
}

/// Jobs run on the calling thread where there is no memory for a thread's names; or none has run.
TEST(WorkerPool, EndsWhateverMemoryIsMissing) {
  for (const bool all_later : {false, true})
    for (int nth = 0;; ++nth) {
      std::atomic<int> done = 0;
      worker_pool pool("TEST_MEMORY_" + std::to_string(2 * nth + all_later), 3);
      const std::function<void(std::size_t)> work = [&](std::size_t) { ++done; };
      const test::failing_memory memory(nth, all_later);
      bool thrown = false;
      try {
        pool.run(6, work);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      EXPECT_EQ(done, thrown ? 0 : 6);
      pool.rethrow();
      if (!memory.met()) break;
    }
}

}  // namespace
}  // namespace morlu::tests
