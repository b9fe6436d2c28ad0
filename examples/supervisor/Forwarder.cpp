#include "Forwarder.h"

#include <memory>

#include "common/Log.h"
#include "oxu/CApi.h"

namespace supervisor {

namespace {

constexpr int kOutputFrame = 1;
constexpr std::size_t kMostWaitingBytes = 1 << 20;
constexpr std::chrono::seconds kPause(3);
constexpr std::chrono::seconds kLongestEnd(5);

std::string makeFrame(const std::string& name, const std::string& chunk) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(kOutputFrame, name, chunk, &data, &length);
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

void Forwarder::forward(const std::string& name, const std::string& chunk) {
  if (!m_thread.joinable()) return;
  std::string frame = makeFrame(name, chunk);
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [this] { return m_bytes < kMostWaitingBytes || m_state != State::kConnected; });
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
      common::logLine(oxu::INFO, service + ": connected");
      isReported = false;
      serve(client);
    }
    const unsigned long dropped = enter(State::kDown);
    if (dropped != 0) common::logLine(oxu::WARNING, service + ": chunks not sent: " + std::to_string(dropped));
    if (!isReported && !m_is_stopping) common::logLine(oxu::WARNING, service + ": no connection, trying again");
    isReported = true;
  } while (!isToStopWithin(kPause));
}

// Until the connection breaks, or all is sent at the end.
void Forwarder::serve(LogServiceClient& client) {
  std::string frame;
  while (takeNext(frame)) {
    if (client.send(frame.data(), frame.size()) >= 0) continue;
    ++m_dropped;
    return;
  }
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

// Returns how many chunks were dropped since the last time; what waits is dropped as well where there is no
// connection.
unsigned long Forwarder::enter(State state) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_state = state;
  m_changed.notify_all();
  if (state == State::kConnected) return 0;
  m_dropped += m_frames.size();
  m_frames.clear();
  m_bytes = 0;
  return m_dropped.exchange(0);
}

bool Forwarder::isToStopWithin(std::chrono::seconds time) {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_changed.wait_for(lock, time, [this] { return m_is_stopping.load(); });
}

}  // namespace supervisor
