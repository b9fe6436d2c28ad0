// Forwards what the commands write to a log service.
#ifndef SUPERVISOR_FORWARDER_H
#define SUPERVISOR_FORWARDER_H

#include <atomic>
#include <string>
#include <thread>

#include "common/Address.h"
#include "common/Queue.h"
#include "oxu/LogServiceClient.h"

namespace supervisor {

// A connection can take seconds to come about, and a command must not lose output meanwhile: a thread of its own
// connects and sends. While there is no connection, it keeps up to 1 MiB, and tries again every few seconds, with a new
// client, for a client cannot be used again.
class Forwarder {
 public:
  // Without a port it forwards nothing.
  explicit Forwarder(const common::Address& service);

  // Sends what waits, as long as the service takes it, and for a few seconds at the most.
  ~Forwarder();

  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // From any thread. With `mayWait` it waits for a service that is slower than the command; without, and where there is
  // no service, what finds no room is dropped.
  void forward(const std::string& name, const std::string& chunk, bool mayWait);

  // From now on nothing waits.
  void stopWaiting();

 private:
  void run();
  bool serve(LogServiceClient& client);

  const common::Address m_service;
  common::Queue<std::string> m_frames;
  std::atomic<bool> m_may_wait{true};
  std::atomic<unsigned long> m_dropped{0};  // chunks
  std::thread m_thread;                     // last: it uses the others
};

}  // namespace supervisor

#endif
