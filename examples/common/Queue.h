// A queue from any number of threads to one, with a limit in bytes.
#ifndef COMMON_QUEUE_H
#define COMMON_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

namespace common {

template <typename Item>
class Queue {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Queue(std::size_t room) : m_room(room) {}

  // Adds an item that counts as `bytes`. Waits while there is no room, as long as `mayWait` and allowWaiting permit it;
  // false, with the item dropped, where they do not.
  bool add(Item item, std::size_t bytes, bool mayWait = true) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_bytes < m_room || !mayWait || !m_may_wait; });
    if (m_bytes >= m_room) return false;
    m_items.emplace_back(bytes, std::move(item));
    m_bytes += bytes;
    m_changed.notify_all();
    return true;
  }

  // Waits for the next item. False when the time is over, when the queue is finished and empty, and after the deadline
  // of finish.
  bool take(Item& item, Clock::duration longest = kForEver) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, longest, [this] { return !m_items.empty() || m_is_finished; });
    if (m_items.empty() || Clock::now() > m_deadline) return false;
    item = std::move(m_items.front().second);
    m_bytes -= m_items.front().first;
    m_items.pop_front();
    m_changed.notify_all();
    return true;
  }

  // Whether calls of add may wait. Ends the waits that are no longer allowed.
  void allowWaiting(bool isAllowed) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_may_wait = isAllowed;
    m_changed.notify_all();
  }

  // Called when the last item has been added. Items that are left may be taken until the deadline.
  void finish(Clock::time_point deadline = Clock::time_point::max()) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_is_finished = true;
    m_deadline = deadline;
    m_changed.notify_all();
  }

  // Waits for finish; false when the time is over.
  bool isFinishedWithin(std::chrono::seconds time) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, time, [this] { return m_is_finished; });
  }

  std::size_t size() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_items.size();
  }

 private:
  static constexpr std::chrono::hours kForEver{876000};

  const std::size_t m_room;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::pair<std::size_t, Item>> m_items;
  std::size_t m_bytes = 0;
  bool m_may_wait = true;
  bool m_is_finished = false;
  Clock::time_point m_deadline = Clock::time_point::max();
};

}  // namespace common

#endif
