#pragma once

#include <mutex>

// Clang's thread-safety analysis: which lock guards what is written beside the member, and the compiler
// checks it.
#define VARK_CAPABILITY(x) __attribute__((capability(x)))
#define VARK_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define VARK_GUARDED_BY(x) __attribute__((guarded_by(x)))
#define VARK_REQUIRES(...) __attribute__((requires_capability(__VA_ARGS__)))
#define VARK_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define VARK_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
#define VARK_EXCLUDES(...) __attribute__((locks_excluded(__VA_ARGS__)))
#define VARK_NO_ANALYSIS __attribute__((no_thread_safety_analysis))

namespace vark {

/// A `std::mutex` that the analysis knows.
class VARK_CAPABILITY("mutex") Mutex {
  public:
    void lock() VARK_ACQUIRE() { mutex_.lock(); }
    void unlock() VARK_RELEASE() { mutex_.unlock(); }

  private:
    std::mutex mutex_;
};

/// Holds a `Mutex` from here to the end of the block. `condition_variable_any` may wait on the mutex
/// meanwhile.
class VARK_SCOPED_CAPABILITY Locked {
  public:
    explicit Locked(Mutex& mutex) VARK_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Locked() VARK_RELEASE() { mutex_.unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace vark
