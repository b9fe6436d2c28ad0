#include "Forwarder.h"

#include <memory>

#include "common/Log.h"
#include "oxu/CApi.h"

namespace supervisor {

namespace {

constexpr std::size_t kRoomBytes = 1 << 20;
constexpr std::chrono::seconds kPause(3);
constexpr std::chrono::seconds kLongestEnd(5);

std::string makeFrame(const std::string& name, const std::string& chunk) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(common::kOutputFrame, name, chunk, &data, &length);
  const std::unique_ptr<char[]> owner(data);
  return data == nullptr ? "" : std::string(data, static_cast<std::size_t>(length) + sizeof length);
}

}  // namespace

Forwarder::Forwarder(const common::Address& service) : m_service(service), m_frames(kRoomBytes) {
  if (m_service.port != 0) m_thread = std::thread([this] { run(); });
}

Forwarder::~Forwarder() {
  m_frames.finish(std::chrono::steady_clock::now() + kLongestEnd);
  if (m_thread.joinable()) m_thread.join();
}

void Forwarder::stopWaiting() {
  m_may_wait = false;
  m_frames.allowWaiting(false);
}

void Forwarder::forward(const std::string& name, const std::string& chunk, bool mayWait) {
  if (!m_thread.joinable()) return;
  const std::string frame = makeFrame(name, chunk);
  if (frame.empty() || !m_frames.add(frame, frame.size(), mayWait)) ++m_dropped;
}

void Forwarder::run() {
  const std::string service = "log service " + m_service.ip + ":" + std::to_string(m_service.port);
  bool isReported = false;
  do {
    LogServiceClient client;
    if (client.connect(m_service.ip, m_service.port) == 0) {
      m_frames.allowWaiting(true);
      if (!m_may_wait) m_frames.allowWaiting(false);
      // To a service that hangs, connections succeed and break again and again: that is reported once.
      if (sendFrames(client)) isReported = false;
    }
    m_frames.allowWaiting(false);
    if (!isReported && !m_frames.isFinishedWithin(std::chrono::seconds(0))) {
      common::logLine(oxu::WARNING, service + ": no connection, trying again");
    }
    isReported = true;
  } while (!m_frames.isFinishedWithin(kPause));
  m_dropped += m_frames.size();
  if (m_dropped != 0) common::logLine(oxu::WARNING, service + ": chunks not sent: " + std::to_string(m_dropped));
}

// Sends frames until the connection breaks or the queue is finished. Returns whether any frame was sent.
bool Forwarder::sendFrames(LogServiceClient& client) {
  std::string frame;
  bool hasSent = false;
  for (; m_frames.take(frame); hasSent = true) {
    if (client.send(frame.data(), frame.size()) >= 0) continue;
    ++m_dropped;
    break;
  }
  return hasSent;
}

}  // namespace supervisor
