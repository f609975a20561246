// Jobs on threads: results, bounds and failures.

#include "optimiser/worker_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <new>
#include <random>
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
    const int jobs = 200;
    std::atomic<int> at_work = 0, most = 0;
    std::vector<int> results(jobs);
    worker_pool pool("TEST_POOL", numthreads);
    for (int i = 0; i < jobs; ++i)
      EXPECT_TRUE(pool.run([&, i] {
        const int now = ++at_work;
        for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        take_some_time(static_cast<unsigned>(i * 37 % 200));
        results[static_cast<std::size_t>(i)] = i + 1;
        --at_work;
      }));
    pool.join();
    pool.rethrow();
    for (int i = 0; i < jobs; ++i) EXPECT_EQ(results[static_cast<std::size_t>(i)], i + 1);
    EXPECT_LE(most, std::max(numthreads, 1));
    EXPECT_EQ(pool.uses_threads(), numthreads >= 2);
  }
}

/// Which of a pool's threads are still there: each was joined when its job was over.
TEST(WorkerPool, ParksFewThreads) {
  std::atomic<bool> may_end = false;
  {
    worker_pool pool("TEST_PARKED", 2);
    pool.run([&] {
      while (!may_end) take_some_time(50);
    });
    for (int i = 0; i < 50; ++i) pool.run([] {});
    auto* const early = ::osg::ThreadManager::the()->findThread(osg::threadName("TEST_PARKED", 5));
    ASSERT_TRUE(early);
    early->terminate();  // would wait for ever if its worker stood at its barrier
    may_end = true;
  }
  EXPECT_EQ(osg::threadName("P", 3), "P_Thread_3");
  EXPECT_EQ(osg::barrierName("P", 3), "P_Barrier_3");
}

void fail(int kind) {
  if (kind == 0) throw std::bad_alloc();
  if (kind == 1) throw std::runtime_error("no good");
  throw 7;
}

TEST(WorkerPool, KeepsWhatJobsThrow) {
  const unsigned seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const int numthreads : {2, 4, 64})
    for (int kind = 0; kind < 3; ++kind)
      for (int failing = 0; failing < 12; ++failing) {
        std::atomic<int> done = 0;
        worker_pool pool("TEST_POOL", numthreads);
        for (int i = 0; i < 12; ++i)
          EXPECT_TRUE(pool.run([&, i, pause = static_cast<unsigned>(random() % 60)] {
            take_some_time(pause);
            if (i == failing) fail(kind);
            if (i > failing && i % 3 == 0) fail(2);  // a later one does not count
            ++done;
          }));
        pool.join();
        EXPECT_GE(done, 8 - 1);
        if (kind == 0) {
          EXPECT_THROW(pool.rethrow(), std::bad_alloc);
        } else if (kind == 1) {
          EXPECT_THROW(pool.rethrow(), std::runtime_error);
        } else {
          EXPECT_THROW(pool.rethrow(), int);
        }
      }

  worker_pool alone("TEST_POOL", 1);
  EXPECT_TRUE(alone.run([] {}));
  EXPECT_FALSE(alone.run([] { fail(1); }));
  alone.join();
  EXPECT_THROW(alone.rethrow(), std::runtime_error);
}

TEST(WorkerPool, EndsWhateverMemoryIsMissing) {
  for (int nth = 0;; ++nth) {
    std::atomic<int> done = 0;
    int started = 0;
    bool met = false;
    {
      worker_pool pool("TEST_MEMORY_" + std::to_string(nth), 3);
      const test::failing_memory memory(nth);
      try {
        for (; started < 6; ++started) pool.run([&] { ++done; });
      } catch (const std::bad_alloc&) {
      }
      met = memory.met();
    }
    EXPECT_EQ(done, started);
    if (!met) break;
  }
}

}  // namespace
}  // namespace morlu::tests
