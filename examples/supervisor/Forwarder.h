// Forwards what the commands write to a log service.
#ifndef SUPERVISOR_FORWARDER_H
#define SUPERVISOR_FORWARDER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "common/Address.h"
#include "oxu/LogServiceClient.h"

namespace supervisor {

// A connection can take seconds to come about, and a command must not lose output meanwhile: a thread of its own
// connects and sends. While there is no connection, chunks are counted and dropped; the thread tries again every few
// seconds, with a new client, for a client cannot be used again.
class Forwarder {
 public:
  // Without a port it forwards nothing.
  explicit Forwarder(const common::Address& service);

  // Sends what waits, as long as the service takes it, and for a few seconds at the most.
  ~Forwarder();

  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // From any thread. With `mayWait` it waits for a service that is slower than the command; without, what finds no
  // room is dropped.
  void forward(const std::string& name, const std::string& chunk, bool mayWait);

  // From now on nothing waits.
  void stopWaiting();

 private:
  enum class State { kConnecting, kConnected, kDown };

  void run();
  bool serve(LogServiceClient& client);
  bool takeNext(std::string& frame);
  void enter(State state);
  bool isToStopWithin(std::chrono::seconds time);

  const common::Address m_service;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = State::kConnecting;  // guarded by the mutex, as are the frames
  std::deque<std::string> m_frames;
  std::size_t m_bytes = 0;  // of all frames
  bool m_may_wait = true;
  std::chrono::steady_clock::time_point m_deadline;
  std::atomic<bool> m_is_stopping{false};
  std::atomic<unsigned long> m_dropped{0};  // chunks
  std::thread m_thread;                     // last: it uses the others
};

}  // namespace supervisor

#endif
