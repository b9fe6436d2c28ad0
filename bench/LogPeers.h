// The logger and its peers, as the benchmarks of logging drive them.
#ifndef BENCH_LOGPEERS_H
#define BENCH_LOGPEERS_H

#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "oxu/CApi.h"

#ifdef OXU_HAVE_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace bench {

// With `file` as its console.
class Oxu {
 public:
  explicit Oxu(int file) {
    ::dup2(file, STDOUT_FILENO);
    install_log_task();
  }
  bool push(int producer, long record) {
    return push_log(oxu::INFO, "producer %d record %ld served in %d us", producer, record, 423);
  }
  void pushOrRetry(int producer, long record) {
    while (!push(producer, record)) std::this_thread::yield();
  }
  void finish() {
    flush_log(-1);
    uninstall_log_task();
  }
};

#ifdef OXU_HAVE_SPDLOG
// Gives lines as long as those of the logger.
constexpr const char* kSpdlogPattern = "\x1b[0m%l [%Y-%m-%d %T.%e]  %v\x1b[0m";

// Asynchronous, with as many slots. A full queue blocks pushOrRetry, and drops its oldest record for push.
class Spdlog {
 public:
  explicit Spdlog(int file) {
    spdlog::init_thread_pool(128, 1);
    m_sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>("/proc/self/fd/" + std::to_string(file));
    m_dropping = make(spdlog::async_overflow_policy::overrun_oldest);
    m_blocking = make(spdlog::async_overflow_policy::block);
  }
  bool push(int producer, long record) {
    m_dropping->info("producer {} record {} served in {} us", producer, record, 423);
    return true;
  }
  void pushOrRetry(int producer, long record) {
    m_blocking->info("producer {} record {} served in {} us", producer, record, 423);
  }
  void finish() {
    m_blocking->flush();
    m_dropping.reset();
    m_blocking.reset();
    spdlog::shutdown();
  }

 private:
  std::shared_ptr<spdlog::async_logger> make(spdlog::async_overflow_policy policy) {
    auto logger = std::make_shared<spdlog::async_logger>("log", m_sink, spdlog::thread_pool(), policy);
    logger->set_pattern(kSpdlogPattern);
    return logger;
  }

  std::shared_ptr<spdlog::sinks::sink> m_sink;
  std::shared_ptr<spdlog::async_logger> m_dropping, m_blocking;
};
#endif

}  // namespace bench

#endif
