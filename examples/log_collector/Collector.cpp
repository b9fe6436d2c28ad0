#include "Collector.h"

#include <memory>
#include <utility>

#include "common/Host.h"
#include "common/LineCutter.h"
#include "common/Log.h"
#include "oxu/LogLevel.h"

namespace collector {

namespace {

constexpr std::size_t kMostNames = 1000;
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kFrameHeaderBytes = 7;
constexpr std::size_t kRoomBytes = 16 << 20;
constexpr std::size_t kBytesOfAnEntry = 256;
const std::string kOthers = "others";

}  // namespace

// Cuts the frames of one connection into lines, and keeps the unfinished line of each name. Used by the worker.
class Collector::Lines {
 public:
  Lines(Collector& collector, std::string peer) : m_collector(collector), m_peer(std::move(peer)) {}

  void take(const oxu::Frame& frame, Clock::time_point time) {
    m_time = time;
    auto& [name, total] = m_collector.entryOf(frame.name.substr(0, kLongestName));
    ++total.frames;
    total.bytes += frame.body.size();
    const auto onLine = [this, &name = name, &lines = total.lines](const std::string& text) {
      ++lines;
      m_collector.m_on_line({m_peer, name, text, m_time});
    };
    m_cutters.try_emplace(name, m_collector.m_longest, onLine).first->second.add(frame.body);
  }

  void finish() {
    for (auto& [name, cutter] : m_cutters) cutter.finish();
  }

 private:
  Collector& m_collector;
  const std::string m_peer;
  Clock::time_point m_time;
  std::map<std::string, common::LineCutter> m_cutters;
};

// One connection, in its thread. Does not wait for the console: a service that reads too late loses its clients.
class Collector::Connection {
 public:
  explicit Connection(Collector& collector) : m_collector(collector) {}

  // Runs when the connection's thread ends.
  ~Connection() {
    m_collector.m_work.add(
        [lines = m_lines, isWithinFrame = m_unfinished_bytes != 0] {
          if (lines != nullptr) lines->finish();
          if (isWithinFrame) common::logLine(oxu::WARNING, "a connection has ended within a frame");
        },
        kBytesOfAnEntry);
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void count(int bytes) { m_unfinished_bytes += static_cast<std::size_t>(bytes); }

  void take(const std::string& peer, const oxu::Frame& frame) {
    const std::size_t bytes = kFrameHeaderBytes + frame.name.size() + frame.body.size();
    m_unfinished_bytes -= bytes;
    if (frame.type != common::kOutputFrame) return;
    if (m_lines == nullptr) m_lines = std::make_shared<Lines>(m_collector, peer);
    m_collector.m_work.add([lines = m_lines, frame, now = Clock::now()] { lines->take(frame, now); },
                           bytes + kBytesOfAnEntry);
  }

 private:
  Collector& m_collector;
  std::shared_ptr<Lines> m_lines;
  std::size_t m_unfinished_bytes = 0;
};

Collector::Collector(std::size_t longest, OnLine onLine)
    : m_longest(longest), m_on_line(std::move(onLine)), m_work(kRoomBytes), m_worker([this] {
        for (std::function<void()> work; m_work.take(work);) work();
      }) {
  // Each connection has a thread of its own, so a thread_local object belongs to one connection.
  const auto connectionOf = [](Collector& collector) -> Connection& {
    thread_local Connection own(collector);
    return own;
  };
  m_service.m_callback = [this, connectionOf](const char*, int length) { connectionOf(*this).count(length); };
  m_service.m_frameCallback = [this, connectionOf](const std::string& peer, const oxu::Frame& frame) {
    connectionOf(*this).take(peer, frame);
  };
}

bool Collector::start(const common::Address& address) {
  m_service.startServer(address.ip, static_cast<short>(address.port));
  return m_service.port() != 0;
}

std::pair<const std::string, Collector::Total>& Collector::entryOf(const std::string& name) {
  const auto entry = m_totals.find(name);
  if (entry != m_totals.end()) return *entry;
  return *m_totals.try_emplace(m_totals.size() < kMostNames ? name : kOthers).first;
}

void Collector::stop() {
  m_service.stopServer();
  m_work.finish();
  if (m_worker.joinable()) m_worker.join();
}

oxu::json::Json Collector::summary() const {
  oxu::json::Json summary(oxu::json::Json::Array);
  for (const auto& [name, total] : m_totals) {
    oxu::json::Json entry;
    entry["name"] = name;
    entry["frames"] = common::number(total.frames);
    entry["bytes"] = common::number(total.bytes);
    entry["lines"] = common::number(total.lines);
    summary.append(entry);
  }
  return summary;
}

}  // namespace collector
