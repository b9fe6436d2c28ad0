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

// A thread of its own connects and sends: a connection can take seconds, and a command must not lose output meanwhile.
// While there is no connection, up to 1 MiB of output is kept, and the thread tries again every few seconds. Each
// attempt takes a new client, since a client connects only once.
class Forwarder {
 public:
  // Forwards nothing where the address has no port.
  explicit Forwarder(const common::Address& service);

  // Sends what waits, for a few seconds at the most.
  ~Forwarder();

  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // From any thread. With `mayWait` the call waits for a service that is slower than the command. Without `mayWait`,
  // and while there is no connection, output that finds no room is dropped.
  void forward(const std::string& name, const std::string& chunk, bool mayWait);

  // From now on no call of forward waits.
  void stopWaiting();

 private:
  void run();
  bool sendFrames(LogServiceClient& client);

  const common::Address m_service;
  common::Queue<std::string> m_frames;
  std::atomic<bool> m_may_wait{true};
  std::atomic<unsigned long> m_dropped{0};  // chunks
  std::thread m_thread;                     // last: it uses the others
};

}  // namespace supervisor

#endif
