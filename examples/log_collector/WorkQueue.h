// Work that is done later, on a thread of its own: those who bring it do not wait for a slow console.
#ifndef LOG_COLLECTOR_WORKQUEUE_H
#define LOG_COLLECTOR_WORKQUEUE_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace collector {

class WorkQueue {
 public:
  WorkQueue() : m_thread([this] { run(); }) {}
  ~WorkQueue() { finish(); }
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  // Does the work after what was added before. Waits while 16 MiB are queued; `bytes` is what the work holds. From any
  // thread.
  void add(std::size_t bytes, std::function<void()> work);

  // Returns when all is done. Nothing may be added any more.
  void finish();

 private:
  void run();

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::pair<std::size_t, std::function<void()>>> m_work;
  std::size_t m_bytes = 0;
  bool m_is_finishing = false;
  std::thread m_thread;  // last: it uses the others
};

}  // namespace collector

#endif
