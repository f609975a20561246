#pragma once

#include <osg/threads.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace morlu::osg {

/// Runs jobs, each on a thread of its own, a bounded number of them at work at a time. With fewer
/// than two at a time jobs run on the calling thread, and no thread is started.
///
/// Locks, barriers and threads bear names that go by the pool's and are global in the process: one
/// pool of a name at a time. All members are for the thread that made the pool.
class worker_pool {
 public:
  worker_pool(const std::string& name, std::int32_t numthreads);
  worker_pool(const worker_pool&) = delete;
  worker_pool& operator=(const worker_pool&) = delete;

  bool uses_threads() const { return max_running_ >= 2; }

  /// Calls `work(index)` for each index below `count`, and returns once all calls have ended and
  /// their threads too. What they throw is kept; without threads the first failure ends the work. A
  /// job whose thread can't be started runs here. To be called once. Throws `std::bad_alloc`, and
  /// then nothing has run.
  void run(std::size_t count, const std::function<void(std::size_t)>& work);
  /// Throws what the first job that failed has thrown.
  void rethrow() const;

 private:
  struct job {
    worker_pool& pool;
    const std::function<void(std::size_t)>& work;
    std::size_t index;
    ::osg::Barrier* barrier = nullptr;  // where its worker meets who joins it
    ::osg::Thread* thread = nullptr;
    bool is_over = false;  // under the lock while its worker runs
    std::exception_ptr failure = nullptr;
  };

  static void run_worker(void* argument);
  static void do_work(job& of) noexcept;

  void run_here() noexcept;
  void run_on_threads() noexcept;
  bool start_thread(job& of) noexcept;
  void leave(job& of);
  void wait_for_room();
  void join_finished();
  bool is_over(const job& of) const;
  void join(job& of);

  const std::string name_;
  const std::uint32_t max_running_;
  ::osg::Lock& lock_;
  ::osg::Barrier& wait_barrier_;
  ::osg::Barrier& unlock_barrier_;
  std::uint32_t running_ = 0;  // workers started and not over
  bool waiting_ = false;       // the pool's own thread waits at `wait_barrier_`
  std::vector<job> jobs_;
  std::vector<job*> parked_;  // whose threads are not joined, in order
};

/// What the worker of job `index` meets its joiner at, and its thread.
std::string barrierName(const std::string& pool, std::size_t index);
std::string threadName(const std::string& pool, std::size_t index);

}  // namespace morlu::osg
