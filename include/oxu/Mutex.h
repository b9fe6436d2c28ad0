/// A recursive mutex that std::lock_guard accepts. It has no try_lock.
#ifndef OXU_MUTEX_H
#define OXU_MUTEX_H

#include <cstdint>

#include "oxu/Export.h"

namespace OS {

/// Owns the mutex that a derived class creates. lock and unlock may be called from any thread. No thread holds the
/// mutex when the object is destroyed.
class OXU_EXPORT TBaseMutex {
 public:
  virtual ~TBaseMutex();
  TBaseMutex(const TBaseMutex&) = delete;
  TBaseMutex& operator=(const TBaseMutex&) = delete;

  void lock();
  void unlock();

 protected:
  TBaseMutex() = default;

  std::uint64_t m_handle = 0;
};

/// The thread that holds the mutex may lock it again. It unlocks the mutex as often as it has locked it. Where the
/// system gives no mutex, lock and unlock do nothing.
class OXU_EXPORT TRecursiveMutex : public TBaseMutex {
 public:
  TRecursiveMutex();
  ~TRecursiveMutex() override;
};

}  // namespace OS

#endif
