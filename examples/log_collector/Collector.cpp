#include "Collector.h"

#include <memory>

#include "FrameReader.h"
#include "common/JsonText.h"
#include "common/LinePrinter.h"
#include "common/Log.h"
#include "oxu/LogLevel.h"

namespace collector {

namespace {

constexpr std::size_t kMostNames = 1000;
const std::string kOthers = "others";

}  // namespace

// What the frames of one connection bring: under each name the line that is not complete yet. Used by the thread of the
// queue.
class Collector::Lines {
 public:
  explicit Lines(Collector& collector) : m_collector(collector) {}

  void take(const Frame& frame) {
    const std::string name = m_collector.admitted(frame.name);
    common::LinePrinter& printer = m_printers.try_emplace(name, name, common::Controls::kReplaced).first->second;
    const unsigned long before = printer.lines();
    printer.add(frame.body);
    m_collector.count(name, {1, frame.body.size(), printer.lines() - before});
  }

  void finish() {
    for (auto& [name, printer] : m_printers) {
      const unsigned long before = printer.lines();
      printer.finish();
      m_collector.count(name, {0, 0, printer.lines() - before});
    }
  }

 private:
  Collector& m_collector;
  std::map<std::string, common::LinePrinter> m_printers;
};

// The stream of one connection, which its thread takes apart. A service that reads too late loses its clients: nothing
// waits for the console here.
class Collector::Connection {
 public:
  explicit Connection(Collector& collector)
      : m_queue(collector.m_queue),
        m_lines(std::make_shared<Lines>(collector)),
        m_reader([this](const Frame& frame) { take(frame); }) {}

  // Runs when the connection's thread ends.
  ~Connection() {
    m_queue.add(0, [lines = m_lines, isWithinFrame = m_reader.unfinishedBytes() != 0] {
      lines->finish();
      if (isWithinFrame) common::logLine(oxu::WARNING, "a connection has ended within a frame");
    });
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void take(const char* data, int length) {
    if (m_is_refused || m_reader.feed(data, static_cast<std::size_t>(length))) return;
    m_is_refused = true;
    m_queue.add(0, [] { common::logLine(oxu::ERROR, "a connection brings no frames, the rest of it is ignored"); });
  }

 private:
  void take(const Frame& frame) {
    if (frame.type != common::kOutputFrame) return;
    m_queue.add(frame.name.size() + frame.body.size(), [lines = m_lines, frame] { lines->take(frame); });
  }

  WorkQueue& m_queue;
  std::shared_ptr<Lines> m_lines;
  FrameReader m_reader;
  bool m_is_refused = false;
};

Collector::Collector() {
  // Each connection has a thread of its own, so an object of the thread is one of the connection.
  m_service.m_callback = [this](const char* data, int length) {
    thread_local Connection connection(*this);
    connection.take(data, length);
  };
}

bool Collector::start(const common::Address& address) {
  m_service.startServer(address.ip, static_cast<short>(address.port));
  return m_service.port() != 0;
}

std::string Collector::admitted(const std::string& name) {
  if (m_totals.size() < kMostNames) m_totals[name];
  return m_totals.count(name) != 0 ? name : kOthers;
}

void Collector::stop() {
  m_service.stopServer();
  m_queue.finish();
}

void Collector::count(const std::string& name, const Total& more) {
  Total& total = m_totals[name];
  total.frames += more.frames;
  total.bytes += more.bytes;
  total.lines += more.lines;
}

oxu::json::Json Collector::summary() {
  oxu::json::Json summary(oxu::json::Json::Array);
  for (const auto& [name, total] : m_totals) {
    oxu::json::Json entry;
    entry["name"] = common::escaped(name);
    entry["frames"] = common::number(total.frames);
    entry["bytes"] = common::number(total.bytes);
    entry["lines"] = common::number(total.lines);
    summary.append(entry);
  }
  return summary;
}

}  // namespace collector
