/// A recursive mutex that std::lock_guard and its kin accept.
#ifndef OXU_MUTEX_H
#define OXU_MUTEX_H

#include <cstdint>

#include "oxu/Export.h"

namespace OS {

/// Owns the mutex that a derived class creates. lock and unlock may be called from any thread;
/// nobody holds the mutex when it is destroyed.
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

/// The thread that holds it may lock it again, and unlocks it as often.
class OXU_EXPORT TRecursiveMutex : public TBaseMutex {
 public:
  TRecursiveMutex();
  ~TRecursiveMutex() override;
};

}  // namespace OS

#endif
