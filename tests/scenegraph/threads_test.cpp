#include "osg/threads.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/run_threads.h"

// Shared data of these tests is deliberately plain: under the thread sanitizer a missing edge
// between two threads shows as a race.
namespace osg {
namespace {

Thread* thread_named(const std::string& name) {
  return dynamic_cast<Thread*>(ThreadManager::the()->getThread(name, "OSGThread"));
}

// Runs a callable on the thread of that name.
void start(Thread* thread, std::function<void()>& work) {
  thread->runFunction([](void* argument) { (*static_cast<std::function<void()>*>(argument))(); }, 0,
                      &work);
}

TEST(Registry, RacingThreadsGetOneObjectAName) {
  constexpr int racers = 8, names = 200;
  struct Found {
    Lock* lock;
    Barrier* barrier;
    BaseThread* thread;
    bool operator==(const Found&) const = default;
  };
  std::vector<std::array<Found, names>> found(racers);
  support::run_threads(racers, [&](int racer) {
    Barrier::get("registry start")->enter(racers);
    for (int i = 0; i < names; ++i) {
      const std::string name = "registry " + std::to_string(i);
      found[static_cast<size_t>(racer)][static_cast<size_t>(i)] = {
          Lock::get(name), Barrier::get(name), ThreadManager::the()->getThread(name, "OSGThread")};
    }
  });
  for (const auto& of_racer : found) EXPECT_EQ(of_racer, found[0]);
  EXPECT_NE(Lock::get("registry 1"), Lock::get("registry 2"));
  EXPECT_EQ(Lock::get("registry 1"), found[0][1].lock);
}

TEST(Lock, AdmitsOneThreadAtATime) {
  int counter = 0;
  support::run_threads(4, [&](int) {
    for (int i = 0; i < 10000; ++i) {
      Lock::get("counter")->aquire();
      ++counter;
      Lock::get("counter")->release();
    }
  });
  EXPECT_EQ(counter, 40000);
}

TEST(Barrier, TenThousandTwoPartyRoundsOnOneName) {
  constexpr int rounds = 10000;
  int written = 0, wrong = 0;
  support::run_threads(2, [&](int party) {
    Barrier* barrier = Barrier::get("two parties");
    for (int i = 0; i < rounds; ++i) {
      if (party == 0) written = i;
      barrier->enter(2);
      if (party == 1 && written != i) ++wrong;
      barrier->enter(2);
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(Barrier, CountMayChangeFromRoundToRound) {
  // Round r is for the first 1 + r % 5 threads; each leaves only when all of them have come. A
  // thread that sits rounds out is brought back by the round of all five.
  constexpr int parties = 5, rounds = 5000;
  std::array<std::atomic<int>, rounds> arrived{};
  std::atomic<int> early = 0;
  support::run_threads(parties, [&](int party) {
    Barrier* barrier = Barrier::get("changing count");
    for (int round = 0; round < rounds; ++round) {
      const int count = 1 + round % parties;
      if (party < count) {
        ++arrived[static_cast<size_t>(round)];
        barrier->enter(static_cast<UInt32>(count));
        if (arrived[static_cast<size_t>(round)] != count) ++early;
      }
      // Keeps a thread of the next, larger round out of this one.
      Barrier::get("changing count, next")->enter(parties);
    }
  });
  EXPECT_EQ(early, 0);
  Barrier::get("alone")->enter(0);
  Barrier::get("alone")->enter(1);
}

TEST(Thread, RunsOnItsOwnThreadAndRestartsByName) {
  EXPECT_EQ(ThreadManager::the()->findThread("restart"), nullptr);
  EXPECT_EQ(ThreadManager::the()->getThread("restart", "NoSuchType"), nullptr);
  EXPECT_EQ(ThreadManager::the()->findThread("restart"), nullptr);
  Thread* thread = thread_named("restart");
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(ThreadManager::the()->findThread("restart"), thread);
  EXPECT_EQ(thread->getName(), "restart");
  EXPECT_EQ(Thread::getCurrent(), nullptr);
  thread->terminate();  // idle

  int runs = 0;
  std::function<void()> work = [&, caller = std::this_thread::get_id()] {
    EXPECT_NE(std::this_thread::get_id(), caller);
    EXPECT_EQ(Thread::getCurrent(), thread);
    EXPECT_EQ(Thread::getCurrentAspect(), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ++runs;
  };
  for (int i = 1; i <= 50; ++i) {
    start(thread_named("restart"), work);
    ThreadManager::the()->findThread("restart")->terminate();
    EXPECT_EQ(runs, i);  // terminate waits
  }
  for (int i = 0; i < 50; ++i) start(thread, work);  // as does a start on a busy thread
  thread->terminate();
  EXPECT_EQ(runs, 100);
  thread->runFunction(nullptr, 0, nullptr);
  thread->terminate();
}

TEST(Thread, RefusesWhatWouldWaitForItself) {
  Thread* thread = thread_named("itself");
  bool refused = false;
  std::function<void()> work = [&] {
    thread->terminate();
    try {
      start(thread, work);
    } catch (const std::system_error&) {
      refused = true;
    }
  };
  start(thread, work);
  thread->terminate();
  EXPECT_TRUE(refused);
}

TEST(Thread, HundredsMayParkAtOnce) {
  constexpr UInt32 parked = 400;
  int left = 0;
  std::function<void()> work = [&] {
    Barrier::get("parking")->enter(parked + 1);
    Lock::get("parking")->aquire();
    ++left;
    Lock::get("parking")->release();
  };
  for (UInt32 i = 0; i < parked; ++i) start(thread_named("parked " + std::to_string(i)), work);
  Barrier::get("parking")->enter(parked + 1);
  for (UInt32 i = 0; i < parked; ++i) thread_named("parked " + std::to_string(i))->terminate();
  EXPECT_EQ(left, static_cast<int>(parked));
}

TEST(Thread, FailedCreationIsAnExceptionAndLeavesTheThreadUsable) {
  // A default stack that no address space can hold makes every creation fail.
  pthread_attr_t usual, impossible;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  ASSERT_EQ(pthread_attr_init(&impossible), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, size_t{1} << 50), 0);
  Thread* thread = thread_named("failing");
  int runs = 0;
  std::function<void()> work = [&] { ++runs; };

  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  EXPECT_THROW(start(thread, work), std::system_error);
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
  pthread_attr_destroy(&impossible);
  pthread_attr_destroy(&usual);

  thread->terminate();
  EXPECT_EQ(runs, 0);
  start(thread, work);
  thread->terminate();
  EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace osg
