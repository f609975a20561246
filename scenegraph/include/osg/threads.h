#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "osg/base_types.h"
#include "osg/export.h"

/// Named locks, barriers and threads, global in the process. Each name stands for one object, made
/// on first use and kept until the process ends; nobody deletes one. All of it is safe to call
/// from any thread.
namespace osg {

/// A blocking mutex. Not recursive: the thread that holds it must not take it again, and only
/// that thread releases it.
class OSG_API Lock {
 public:
  /// The lock of that name: the same object for the same name, for ever.
  static Lock* get(std::string_view name);

  /// Blocks until the lock is the calling thread's.
  void aquire() { mutex_.lock(); }
  void release() { mutex_.unlock(); }

  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  std::mutex mutex_;
};

/// A meeting point of threads, reusable at once after each meeting.
class OSG_API Barrier {
 public:
  /// The barrier of that name: the same object for the same name, for ever.
  static Barrier* get(std::string_view name);

  /// Blocks until `count` threads have entered, then lets all of them go on; what each did
  /// before it entered is visible to all afterwards. All threads of one round pass the same
  /// count, the next round may have another one. A count of 0 or 1 returns at once.
  void enter(UInt32 count);

  Barrier() = default;
  Barrier(const Barrier&) = delete;
  Barrier& operator=(const Barrier&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable round_over_;
  UInt32 waiting_ = 0;  // threads that entered the running round
  UInt64 round_ = 0;    // rounds completed
};

/// A named thread as the manager hands it out.
class OSG_API BaseThread {
 public:
  virtual ~BaseThread();

  const std::string& getName() const { return name_; }

  /// Waits until the function that the thread runs has returned; idle threads return at once.
  /// Never ends a function by force. Afterwards the thread may run another function. Called by
  /// the thread itself it does nothing.
  virtual void terminate() = 0;

  BaseThread(const BaseThread&) = delete;
  BaseThread& operator=(const BaseThread&) = delete;

 protected:
  explicit BaseThread(std::string_view name) : name_(name) {}

 private:
  const std::string name_;
};

/// A thread that runs one function at a time, each on an operating-system thread of its own.
class OSG_API Thread final : public BaseThread {
 public:
  using Function = void(void*);

  /// An idle thread. ThreadManager::getThread is where they come from.
  explicit Thread(std::string_view name) : BaseThread(name) {}
  ~Thread() override;

  /// Starts `function(argument)` on a thread of the operating system, with `aspect` as current
  /// one. If a former function still runs, waits for its end first. The function must not
  /// throw. A null function is not started.
  /// Throws std::system_error if no thread can be created, or if the thread calls this on
  /// itself; it is then as before.
  void runFunction(Function* function, UInt32 aspect, void* argument);

  void terminate() override;

  /// The thread of this layer that the caller runs on; null on any other thread.
  static Thread* getCurrent();

  /// Index of the aspect that the calling thread works in: what runFunction was given, 0 on other
  /// threads. Every object has one copy only, which all aspects share.
  static UInt32 getCurrentAspect();

 private:
  std::mutex mutex_;    // guards worker_, and is held while it is joined
  std::thread worker_;  // joinable from start to join
};

/// Finds and makes threads by name.
class OSG_API ThreadManager {
 public:
  static ThreadManager* the();

  /// The thread of that name; if there is none, a new and idle one of the given type. The one
  /// type there is is "OSGThread", whose objects are of class Thread; null for any other.
  BaseThread* getThread(std::string_view name, std::string_view type = "OSGThread");

  /// The thread of that name, or null; makes none.
  BaseThread* findThread(std::string_view name);

  ThreadManager(const ThreadManager&) = delete;
  ThreadManager& operator=(const ThreadManager&) = delete;

 private:
  ThreadManager() = default;
};

}  // namespace osg
