#include "Forwarder.h"

#include <memory>

#include "common/Log.h"
#include "oxu/CApi.h"

namespace supervisor {

namespace {

constexpr std::size_t kMostWaitingBytes = 1 << 20;
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

Forwarder::Forwarder(const common::Address& service) : m_service(service) {
  if (m_service.port != 0) m_thread = std::thread([this] { run(); });
}

Forwarder::~Forwarder() {
  if (!m_thread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_is_stopping = true;
    m_deadline = std::chrono::steady_clock::now() + kLongestEnd;
  }
  m_changed.notify_all();
  m_thread.join();
}

void Forwarder::stopWaiting() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_may_wait = false;
  m_changed.notify_all();
}

void Forwarder::forward(const std::string& name, const std::string& chunk, bool mayWait) {
  if (!m_thread.joinable()) return;
  std::string frame = makeFrame(name, chunk);
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(
      lock, [&] { return m_bytes < kMostWaitingBytes || m_state != State::kConnected || !mayWait || !m_may_wait; });
  if (m_state == State::kDown || m_bytes >= kMostWaitingBytes || frame.empty()) {
    ++m_dropped;
    return;
  }
  m_bytes += frame.size();
  m_frames.push_back(std::move(frame));
  lock.unlock();
  m_changed.notify_all();
}

void Forwarder::run() {
  const std::string service = "log service " + m_service.ip + ":" + std::to_string(m_service.port);
  bool isReported = false;
  do {
    LogServiceClient client;
    if (client.connect(m_service.ip, m_service.port) == 0) {
      enter(State::kConnected);
      // A service that hangs is connected to and lost again and again.
      if (serve(client)) isReported = false;
    }
    enter(State::kDown);
    if (!isReported && !m_is_stopping) common::logLine(oxu::WARNING, service + ": no connection, trying again");
    isReported = true;
  } while (!isToStopWithin(kPause));
  if (m_dropped != 0) common::logLine(oxu::WARNING, service + ": chunks not sent: " + std::to_string(m_dropped));
}

// Until the connection breaks, or all is sent at the end. Returns whether anything could be sent.
bool Forwarder::serve(LogServiceClient& client) {
  std::string frame;
  bool hasSent = false;
  for (; takeNext(frame); hasSent = true) {
    if (client.send(frame.data(), frame.size()) >= 0) continue;
    ++m_dropped;
    break;
  }
  return hasSent;
}

bool Forwarder::takeNext(std::string& frame) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [this] { return !m_frames.empty() || m_is_stopping; });
  if (m_frames.empty() || (m_is_stopping && std::chrono::steady_clock::now() > m_deadline)) return false;
  frame = std::move(m_frames.front());
  m_frames.pop_front();
  m_bytes -= frame.size();
  lock.unlock();
  m_changed.notify_all();
  return true;
}

// What waits is dropped where there is no connection.
void Forwarder::enter(State state) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_state = state;
  m_changed.notify_all();
  if (state == State::kConnected) return;
  m_dropped += m_frames.size();
  m_frames.clear();
  m_bytes = 0;
}

bool Forwarder::isToStopWithin(std::chrono::seconds time) {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_changed.wait_for(lock, time, [this] { return m_is_stopping.load(); });
}

}  // namespace supervisor
