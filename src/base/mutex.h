// Locks whose use clang proves: which one guards which member, and which one a function wants held.
//
// The attributes are those of "Thread Safety Analysis" in clang's manual; with another compiler
// they are nothing. A member that a lock guards has PADDOCK_GUARDED_BY behind its name; a function
// that is called with the lock held has PADDOCK_REQUIRES behind its parameters. The analysis sees
// one function at a time, and a lambda is a function of its own: predicates are loops
// ("while (!ready_) changed_.wait(mutex_);"), and a lambda gets what it needs as a variable.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#ifdef __clang__
#define PADDOCK_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define PADDOCK_THREAD_SAFETY(attribute)
#endif

// Of classes.
#define PADDOCK_CAPABILITY(name) PADDOCK_THREAD_SAFETY(capability(name))
#define PADDOCK_SCOPED_CAPABILITY PADDOCK_THREAD_SAFETY(scoped_lockable)
// Of variables.
#define PADDOCK_GUARDED_BY(mutex) PADDOCK_THREAD_SAFETY(guarded_by(mutex))
// Of functions: the lock is held from before until after the call; it is not held.
#define PADDOCK_REQUIRES(...) PADDOCK_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define PADDOCK_EXCLUDES(...) PADDOCK_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
// Of functions that lock and unlock.
#define PADDOCK_ACQUIRE(...) PADDOCK_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define PADDOCK_TRY_ACQUIRE(...) PADDOCK_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define PADDOCK_RELEASE(...) PADDOCK_THREAD_SAFETY(release_capability(__VA_ARGS__))
// Of functions that return a lock.
#define PADDOCK_RETURN_CAPABILITY(mutex) PADDOCK_THREAD_SAFETY(lock_returned(mutex))
// Of functions after which the lock is taken to be held.
#define PADDOCK_ASSERT_CAPABILITY(...) PADDOCK_THREAD_SAFETY(assert_capability(__VA_ARGS__))
// Of functions that the analysis cannot follow; a comment says why.
#define PADDOCK_NO_THREAD_SAFETY_ANALYSIS PADDOCK_THREAD_SAFETY(no_thread_safety_analysis)

namespace paddock {

// A std::mutex. Its operations have the names of that, so that what takes one takes this, too.
class PADDOCK_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() PADDOCK_ACQUIRE() { mutex_.lock(); }
  void unlock() PADDOCK_RELEASE() { mutex_.unlock(); }
  bool try_lock() PADDOCK_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  // Does nothing. Inside a lambda that is called at once it says that the function around it holds
  // the mutex.
  void assertHeld() const PADDOCK_ASSERT_CAPABILITY(this) {}

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

// Holds a mutex until its end, or until it is unlocked before.
class PADDOCK_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) PADDOCK_ACQUIRE(mutex) : lock_(mutex) {}
  // Of one that is held already.
  MutexLock(Mutex& mutex, std::adopt_lock_t held) PADDOCK_REQUIRES(mutex) : lock_(mutex, held) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() PADDOCK_RELEASE() = default;

  void unlock() PADDOCK_RELEASE() { lock_.unlock(); }
  void lock() PADDOCK_ACQUIRE() { lock_.lock(); }

 private:
  std::unique_lock<Mutex> lock_;
};

// A std::condition_variable. The mutex is free while a thread waits, and held again afterwards. A
// wait may end without a reason: callers wait in a loop.
class ConditionVariable {
 public:
  void wait(Mutex& mutex) PADDOCK_REQUIRES(mutex) {
    Native native(mutex);
    condition_.wait(native.lock);
  }
  // False when the time has come.
  template <typename Clock, typename Duration>
  bool wait_until(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& time)
      PADDOCK_REQUIRES(mutex) {
    Native native(mutex);
    return condition_.wait_until(native.lock, time) == std::cv_status::no_timeout;
  }
  void notify_one() noexcept { condition_.notify_one(); }
  void notify_all() noexcept { condition_.notify_all(); }

 private:
  // What a std::condition_variable wants to have of a mutex that is held, and stays so.
  struct Native {
    explicit Native(Mutex& mutex) : lock(mutex.mutex_, std::adopt_lock) {}
    Native(const Native&) = delete;
    Native& operator=(const Native&) = delete;
    ~Native() { lock.release(); }
    std::unique_lock<std::mutex> lock;
  };

  std::condition_variable condition_;
};

}  // namespace paddock
