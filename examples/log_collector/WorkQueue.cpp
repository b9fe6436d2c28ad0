#include "WorkQueue.h"

namespace collector {

namespace {

constexpr std::size_t kMostBytes = 16 << 20;
constexpr std::size_t kBytesOfAnEntry = 256;

}  // namespace

void WorkQueue::add(std::size_t bytes, std::function<void()> work) {
  bytes += kBytesOfAnEntry;
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [this] { return m_bytes < kMostBytes; });
  m_work.emplace_back(bytes, std::move(work));
  m_bytes += bytes;
  lock.unlock();
  m_changed.notify_all();
}

void WorkQueue::finish() {
  if (!m_thread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_is_finishing = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void WorkQueue::run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  for (;;) {
    m_changed.wait(lock, [this] { return !m_work.empty() || m_is_finishing; });
    if (m_work.empty()) return;
    auto [bytes, work] = std::move(m_work.front());
    m_work.pop_front();
    lock.unlock();
    work();
    lock.lock();
    m_bytes -= bytes;
    m_changed.notify_all();
  }
}

}  // namespace collector
