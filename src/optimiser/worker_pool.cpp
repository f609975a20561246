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

worker_pool::~worker_pool() {
  join();
}

bool worker_pool::run(std::function<void()> work) {
  const std::size_t index = jobs_.size();
  if (!uses_threads()) {
    jobs_.push_back({*this, std::move(work), nullptr});
    do_work(jobs_.back());
    return !jobs_.back().failure;
  }
  parked_.reserve(parked_.size() + 1);
  auto* const barrier = ::osg::Barrier::get(barrierName(name_, index));
  jobs_.push_back({*this, std::move(work), barrier});
  if (start_thread(jobs_.back())) {
    parked_.push_back(&jobs_.back());
    wait_for_room();
  } else {
    do_work(jobs_.back());
  }
  join_finished();
  return true;
}

bool worker_pool::start_thread(job& of) {
  {
    const lock_holder held(lock_);
    ++running_;
  }
  try {
    auto* const manager = ::osg::ThreadManager::the();
    auto* const found = manager->getThread(threadName(name_, jobs_.size() - 1), "OSGThread");
    of.thread = dynamic_cast<::osg::Thread*>(found);
    of.thread->runFunction(run_worker, 0, &of);
    return true;
  } catch (const std::exception&) {  // no thread, or no memory for one
    const lock_holder held(lock_);
    --running_;
    return false;
  }
}

void worker_pool::do_work(job& of) noexcept {
  try {
    of.work();
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

void worker_pool::join() {
  for (job* each : parked_) join(*each);
  parked_.clear();
}

/// The worker's thread has ended when this returns.
void worker_pool::join(job& of) noexcept {
  of.barrier->enter(2);
  of.thread->terminate();
  of.work = nullptr;
}

void worker_pool::rethrow() const {
  for (const job& each : jobs_)
    if (each.failure) std::rethrow_exception(each.failure);
}

}  // namespace morlu::osg
