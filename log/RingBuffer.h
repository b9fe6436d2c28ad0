// A bounded lock-free ring of fixed-size records for any number of producers.
//
// | storage | push                       | pop                                       |
// |---------|----------------------------|-------------------------------------------|
// | present | false only when it is full | false only when no committed record waits |
// | none    | false                      | false                                     |
//
// push may be called from any number of threads at once, pop from one thread. Neither waits for room or for records. A
// push waits only for producers that have reserved a slot before it and are still copying. In a forked child those
// producers do not exist, and a push may wait for ever.
//
// The owner destroys the ring when no thread uses it any more; the records in it are dropped.
#ifndef LOG_RINGBUFFER_H
#define LOG_RINGBUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "os/os_clock.h"
#include "os/os_sharememory.h"
#include "os/os_thread.h"

// The start of the storage block; the records follow it.
//
// Invariants. The indices only grow, by one at a time; a slot's position is its number masked with capacity - 1.
//   I1  readIndex <= commitIndex <= reserveIndex
//   I2  reserveIndex - readIndex <= capacity - 1: one slot stays empty, which tells full from empty.
//   I3  Slots from readIndex up to commitIndex hold whole records, which nobody changes.
//   I4  Each slot from commitIndex up to reserveIndex belongs to the producer that reserved it.
struct RingHeader {
  // Records that are committed and not yet popped. A pop may come between a commit and its count, so this may be off,
  // and even below zero, for a moment: for observers only.
  std::uint64_t count;
  std::uint64_t capacity;
  std::uint64_t reserveIndex;  // next slot for a producer
  std::uint64_t readIndex;     // next slot for the consumer
  std::uint64_t commitIndex;   // slots below it hold whole records
  std::uint32_t itemSize;
  std::uint32_t magic;
};

static_assert(offsetof(RingHeader, capacity) == 8);
static_assert(offsetof(RingHeader, reserveIndex) == 16);
static_assert(offsetof(RingHeader, readIndex) == 24);
static_assert(offsetof(RingHeader, commitIndex) == 32);
static_assert(offsetof(RingHeader, itemSize) == 40);
static_assert(offsetof(RingHeader, magic) == 44);
static_assert(sizeof(RingHeader) == 48);

template <class Item>
class CRingBuffer {
 public:
  static constexpr std::uint32_t kMagic = 20231020;
  static constexpr std::uint64_t kDefaultCapacity = 128;

  // Makes a ring of `requested` slots, rounded down to a power of two; of 128 slots for a request of 0 or 1. The ring
  // holds one record less than it has slots. Where memory runs out, it has no storage.
  explicit CRingBuffer(std::uint64_t requested) { createStorage(capacityFor(requested)); }

  virtual ~CRingBuffer() { releaseStorage(); }

  CRingBuffer(const CRingBuffer&) = delete;
  CRingBuffer& operator=(const CRingBuffer&) = delete;

  // A hint from a producer that will push: the slot next in turn gets ready while the producer fills its record.
  void prepareSlot() const;

  bool push(const Item& item);
  bool pop(Item& item);

  // How many records wait at the moment of the call; 0 without storage.
  std::uint64_t waiting() const;

  // Null without storage.
  const RingHeader* header() const { return m_header; }

 private:
  static_assert(std::is_trivially_copyable_v<Item>, "records are copied as blocks");

  // Hands out the next slot; false when the ring is full.
  bool reserve(std::uint64_t& slot);
  static std::uint64_t capacityFor(std::uint64_t requested);
  void awaitTurn(std::uint64_t slot) const;
  static void pauseForEarlierProducers();
  void createStorage(std::uint64_t capacity);
  void releaseStorage();
  std::uint64_t positionOf(std::uint64_t slot) const { return slot & (m_header->capacity - 1); }

  char* m_block = nullptr;
  os_sharememory_handle m_shared_memory = nullptr;
  bool m_is_owner = false;
  RingHeader* m_header = nullptr;
  Item* m_items = nullptr;
};

template <class Item>
void CRingBuffer<Item>::prepareSlot() const {
  if (m_header == nullptr) return;
  const Item& slot = m_items[positionOf(os_thread_sync_load(&m_header->reserveIndex))];
  os_thread_prepare_write(reinterpret_cast<const char*>(&slot), sizeof slot);
}

template <class Item>
bool CRingBuffer<Item>::push(const Item& item) {
  std::uint64_t slot = 0;
  if (m_header == nullptr || !reserve(slot)) return false;
  std::memcpy(&m_items[positionOf(slot)], &item, sizeof(Item));
  awaitTurn(slot);
  // Publishes the record, in the order of reservation: a consumer that loads slot + 1 sees the whole copy.
  while (!os_thread_sync_compare_and_swap(&m_header->commitIndex, slot, slot + 1)) {
    pauseForEarlierProducers();
    awaitTurn(slot);
  }
  os_thread_sync_fetch_add(&m_header->count);
  return true;
}

// Waits until the producers of all slots before `slot` have committed, for a bounded number of looks. No decision rests
// on it: the swap that follows reserves or commits, or fails.
//
// Before the reservation it prevents a convoy: a producer that loses its processor with a slot in hand holds up all
// that reserved behind it, and each of them holds up the next until it runs again. That is a context switch per record.
// Before the commit it spares the caller the pause after a failed swap.
//
// The first looks wait for a copy that runs on another processor. The others let producers on this processor go on.
// Together they take longer than that pause: one producer in its pause does not send all later ones into theirs, one
// behind the other.
template <class Item>
void CRingBuffer<Item>::awaitTurn(std::uint64_t slot) const {
  constexpr int kLooks = 64;
  constexpr int kYields = 512;
  for (int look = 0; look < kLooks + kYields && os_thread_sync_load(&m_header->commitIndex) < slot; ++look) {
    if (look < kLooks) {
      os_thread_relax();
    } else {
      os_thread_yield();
    }
  }
}

template <class Item>
bool CRingBuffer<Item>::reserve(std::uint64_t& slot) {
  for (;;) {
    slot = os_thread_sync_load(&m_header->reserveIndex);
    const std::uint64_t read = os_thread_sync_load(&m_header->readIndex);
    if (positionOf(slot + 1) != positionOf(read)) {
      awaitTurn(slot);
      // Success means that reserveIndex stood at `slot` since its load. So `read`, loaded after it, was no later than
      // `slot`, and the slot was free. readIndex has only grown since. From here the slot is ours (I4).
      if (os_thread_sync_compare_and_swap(&m_header->reserveIndex, slot, slot + 1)) return true;
    } else if (os_thread_sync_load(&m_header->reserveIndex) == slot) {
      // The ring is full, unless others overtook this producer between its first two loads: `read` may lie beyond
      // `slot` then, and the match says nothing. But reserveIndex only grows. Unchanged in this third load, it stood at
      // `slot` when `read` was loaded, and by I2 the ring was full at that moment.
      return false;
    }
  }
}

template <class Item>
bool CRingBuffer<Item>::pop(Item& item) {
  if (m_header == nullptr) return false;
  std::uint64_t slot = 0;
  do {
    slot = os_thread_sync_load(&m_header->readIndex);
    // Observes every copy below commitIndex (I3).
    const std::uint64_t committed = os_thread_sync_load(&m_header->commitIndex);
    if (positionOf(slot) == positionOf(committed)) return false;
    std::memcpy(&item, &m_items[positionOf(slot)], sizeof(Item));
    // The swap gives the slot up after the copy: no producer reuses a slot that is being read.
  } while (!os_thread_sync_compare_and_swap(&m_header->readIndex, slot, slot + 1));
  os_thread_sync_fetch_sub(&m_header->count);
  return true;
}

template <class Item>
std::uint64_t CRingBuffer<Item>::waiting() const {
  if (m_header == nullptr) return 0;
  // readIndex is loaded first, so that the difference is never negative.
  const std::uint64_t read = os_thread_sync_load(&m_header->readIndex);
  return os_thread_sync_load(&m_header->commitIndex) - read;
}

template <class Item>
std::uint64_t CRingBuffer<Item>::capacityFor(std::uint64_t requested) {
  std::uint64_t capacity = std::uint64_t{1} << 63;
  while (capacity != 0 && (requested & capacity) == 0) capacity >>= 1;
  return capacity < 2 ? kDefaultCapacity : capacity;
}

template <class Item>
void CRingBuffer<Item>::pauseForEarlierProducers() {
  constexpr std::int64_t kPauseNs = 100000;
  os_clock_time deadline{};
  os_clock_get_time(kOsClockMonotonic, &deadline, kOsClockAbsolute);
  deadline.nanoseconds += kPauseNs;
  os_clock_adjust_clock_time(&deadline);
  os_clock_nano_sleep(&deadline, kOsClockAbsolute);
}

template <class Item>
void CRingBuffer<Item>::createStorage(std::uint64_t capacity) {
  constexpr std::uint64_t kMaxBytes = std::numeric_limits<std::ptrdiff_t>::max();
  if (capacity > (kMaxBytes - sizeof(RingHeader)) / sizeof(Item)) return;
  m_block = new (std::nothrow) char[sizeof(RingHeader) + capacity * sizeof(Item)]();
  if (m_block == nullptr) return;
  m_header = new (m_block) RingHeader{0, capacity, 0, 0, 0, sizeof(Item), kMagic};
  m_items = reinterpret_cast<Item*>(m_block + sizeof(RingHeader));
  m_is_owner = true;
}

template <class Item>
void CRingBuffer<Item>::releaseStorage() {
  if (m_shared_memory != nullptr) {
    os_sharememory_close(m_shared_memory, m_is_owner ? 1 : 0);
    os_sharememory_destroy(&m_shared_memory);
  } else if (m_is_owner) {
    delete[] m_block;
  }
}

#endif
