#include "optimiser/worker_pool.h"

#include <algorithm>

#include "optimiser/id_map_handler.h"

namespace morlu::osg {

std::string barrierName(const std::string& pool, std::size_t index) {
  return pool + "_Barrier_" + std::to_string(index);
}
std::string threadName(const std::string& pool, std::size_t index) {
  return pool + "_Thread_" + std::to_string(index);
}

worker_pool::worker_pool(const std::string& name, std::int32_t numthreads)
    : name_(name),
      max_running_(static_cast<std::uint32_t>(std::max(numthreads, 1))),
      lock_(*::osg::Lock::get(name)),
      wait_barrier_(*::osg::Barrier::get(name + "_WAITBARRIER")),
      unlock_barrier_(*::osg::Barrier::get(name + "_WAITBARRIER_UNLOCK")) {
  ::osg::Lock::get(name + "_WAITLOCK");  // part of the pool's names, taken by nobody
}

/// All memory that the jobs themselves need is there before the first is started.
void worker_pool::run(std::size_t count, const std::function<void(std::size_t)>& work) {
  jobs_.reserve(count);
  parked_.reserve(uses_threads() ? count : 0);
  for (std::size_t i = 0; i < count; ++i) jobs_.push_back({*this, work, i});
  uses_threads() ? run_on_threads() : run_here();
}

void worker_pool::run_here() noexcept {
  for (job& each : jobs_) {
    do_work(each);
    if (each.failure) return;
  }
}

void worker_pool::run_on_threads() noexcept {
  for (job& each : jobs_) {
    if (start_thread(each)) {
      parked_.push_back(&each);
      wait_for_room();
    } else {
      do_work(each);
    }
    join_finished();
  }
  for (job* each : parked_) join(*each);
  parked_.clear();
}

/// False without a thread, or without memory for what it needs.
bool worker_pool::start_thread(job& of) noexcept {
  {
    const lock_holder held(lock_);
    ++running_;
  }
  try {
    of.barrier = ::osg::Barrier::get(barrierName(name_, of.index));
    auto* const found = ::osg::ThreadManager::the()->getThread(threadName(name_, of.index));
    of.thread = dynamic_cast<::osg::Thread*>(found);
    of.thread->runFunction(run_worker, 0, &of);
    return true;
  } catch (const std::exception&) {
    const lock_holder held(lock_);
    --running_;
    return false;
  }
}

void worker_pool::do_work(job& of) noexcept {
  try {
    of.work(of.index);
  } catch (...) {
    of.failure = std::current_exception();
  }
}

/// A worker always passes its barriers.
void worker_pool::run_worker(void* argument) {
  job& own = *static_cast<job*>(argument);
  do_work(own);
  own.pool.leave(own);
  own.barrier->enter(2);
}

/// The lock is held while the pool's own thread is let go: others that are over meanwhile wait, so
/// that it is let go once.
void worker_pool::leave(job& of) {
  const lock_holder held(lock_);
  --running_;
  of.is_over = true;
  if (!waiting_) return;
  wait_barrier_.enter(2);
  unlock_barrier_.enter(2);
}

void worker_pool::wait_for_room() {
  {
    const lock_holder held(lock_);
    if (running_ < max_running_) return;
    waiting_ = true;
  }
  wait_barrier_.enter(2);
  waiting_ = false;
  unlock_barrier_.enter(2);
}

/// So that few threads are parked, however many jobs there are.
void worker_pool::join_finished() {
  std::erase_if(parked_, [this](job* each) {
    if (!is_over(*each)) return false;
    join(*each);
    return true;
  });
}

bool worker_pool::is_over(const job& of) const {
  const lock_holder held(lock_);
  return of.is_over;
}

/// The worker's thread has ended when this returns.
void worker_pool::join(job& of) {
  of.barrier->enter(2);
  of.thread->terminate();
}

void worker_pool::rethrow() const {
  for (const job& each : jobs_)
    if (each.failure) std::rethrow_exception(each.failure);
}

}  // namespace morlu::osg
