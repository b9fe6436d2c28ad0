// A queue from any threads to one, with room for so many bytes.
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

  // Adds an item of so many bytes. Where there is no room it waits, unless waiting is off, here or for all; false then.
  bool add(Item item, std::size_t bytes, bool mayWait = true) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_bytes < m_room || !mayWait || !m_may_wait; });
    if (m_bytes >= m_room) return false;
    m_items.emplace_back(bytes, std::move(item));
    m_bytes += bytes;
    m_changed.notify_all();
    return true;
  }

  // Waits for the next item. False when the time is over, and when the queue is finished and empty, or its deadline
  // over.
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

  void allowWaiting(bool isAllowed) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_may_wait = isAllowed;
    m_changed.notify_all();
  }

  // Nothing may be added any more.
  void finish(Clock::time_point deadline = Clock::time_point::max()) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_is_finished = true;
    m_deadline = deadline;
    m_changed.notify_all();
  }

  // Waits for that.
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
