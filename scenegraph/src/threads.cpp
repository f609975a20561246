#include "osg/threads.h"

#include <functional>
#include <map>
#include <memory>
#include <system_error>

namespace osg {
namespace {

/// Objects by name, each made on first use. Registries are never destroyed: a worker may still
/// stand at a barrier while the process' static objects go.
template <class T>
class NamedRegistry {
 public:
  /// `make` is called under the registry's lock, once a name.
  template <class Make>
  T* get(std::string_view name, Make make) {
    const std::lock_guard guard(mutex_);
    auto found = objects_.find(name);
    if (found == objects_.end()) found = objects_.emplace(name, make()).first;
    return found->second.get();
  }

  T* find(std::string_view name) {
    const std::lock_guard guard(mutex_);
    const auto found = objects_.find(name);
    return found == objects_.end() ? nullptr : found->second.get();
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<T>, std::less<>> objects_;
};

template <class T>
NamedRegistry<T>& registry_of() {
  static NamedRegistry<T>& registry = *new NamedRegistry<T>;
  return registry;
}

thread_local Thread* current_thread = nullptr;
thread_local UInt32 current_aspect = 0;

}  // namespace

Lock* Lock::get(std::string_view name) {
  return registry_of<Lock>().get(name, std::make_unique<Lock>);
}

Barrier* Barrier::get(std::string_view name) {
  return registry_of<Barrier>().get(name, std::make_unique<Barrier>);
}

void Barrier::enter(UInt32 count) {
  std::unique_lock guard(mutex_);
  if (++waiting_ >= count) {
    waiting_ = 0;
    ++round_;
    round_over_.notify_all();
    return;
  }
  // The round's number, not the count, tells the sleepers that they are free: the first of them
  // may be back for the next round before the last has woken up.
  const UInt64 entered = round_;
  round_over_.wait(guard, [&] { return round_ != entered; });
}

BaseThread::~BaseThread() = default;

Thread::~Thread() {
  terminate();
}

void Thread::runFunction(Function* function, UInt32 aspect, void* argument) {
  if (function == nullptr) return;
  if (current_thread == this) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                            "thread " + getName() + " can't restart itself");
  }
  const std::lock_guard guard(mutex_);
  if (worker_.joinable()) worker_.join();
  worker_ = std::thread([this, function, aspect, argument] {
    current_thread = this;
    current_aspect = aspect;
    function(argument);
  });
}

void Thread::terminate() {
  if (current_thread == this) return;
  const std::lock_guard guard(mutex_);
  if (worker_.joinable()) worker_.join();
}

Thread* Thread::getCurrent() {
  return current_thread;
}

UInt32 Thread::getCurrentAspect() {
  return current_aspect;
}

ThreadManager* ThreadManager::the() {
  static ThreadManager& manager = *new ThreadManager;
  return &manager;
}

BaseThread* ThreadManager::getThread(std::string_view name, std::string_view type) {
  if (type != "OSGThread") return nullptr;
  return registry_of<Thread>().get(name, [&] { return std::make_unique<Thread>(name); });
}

BaseThread* ThreadManager::findThread(std::string_view name) {
  return registry_of<Thread>().find(name);
}

}  // namespace osg
