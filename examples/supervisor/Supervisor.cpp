#include "Supervisor.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "Log.h"
#include "oxu/LogLevel.h"

namespace supervisor {

void Supervisor::run(const std::function<bool()>& stopRequested) {
  for (Job& job : m_jobs) start(job);
  while (!alivePids().empty()) {
    if (stopRequested()) killAll();
    if (Job* job = nextQuit()) handleQuit(*job);
  }
}

void Supervisor::start(Job& job) {
  if (!job.start()) {
    logLine(oxu::ERROR, job.name() + " could not be started");
    return;
  }
  logLine(oxu::DEBUG, job.name() + " started as process " + std::to_string(job.pid()));
  m_monitor.addProcess(job.name(), oxu::ProcessInfo(job.pid(), [this, &job] {
                         const std::lock_guard<std::mutex> lock(m_mutex);
                         m_quits.push_back(&job);
                         m_wake_up.notify_one();
                         return 0;
                       }));
}

void Supervisor::handleQuit(Job& job) {
  job.finish();
  const bool again = !m_stopping && job.starts() <= m_restarts;
  logLine(oxu::WARNING, job.name() + " has quit" + (again ? ", starting it again" : ""));
  if (again) start(job);
}

// The library's kill goes through sudo where the caller is not root; the commands being the caller's own, it can
// then end them by itself.
void Supervisor::killAll() {
  const std::vector<int> pids = alivePids();
  logLine(oxu::WARNING,
          "stopping, with " + std::to_string(pids.size()) + " of " + std::to_string(m_jobs.size()) + " commands alive");
  m_stopping = true;
  if (::geteuid() == 0) {
    oxu::StartProcess::kill(pids);
  } else {
    for (const int pid : pids) ::kill(-pid, SIGKILL);
  }
}

// Of the commands whose end has not been reported yet.
std::vector<int> Supervisor::alivePids() const {
  std::vector<int> pids;
  for (const Job& job : m_jobs) {
    if (job.isAlive()) pids.push_back(job.pid());
  }
  return pids;
}

// The next job that has quit; null when there is none for a tenth of a second.
Job* Supervisor::nextQuit() {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto hasQuit = [this] { return !m_quits.empty(); };
  if (!m_wake_up.wait_for(lock, std::chrono::milliseconds(100), hasQuit)) return nullptr;
  Job* job = m_quits.front();
  m_quits.pop_front();
  return job;
}

void Supervisor::printSummary() const {
  std::printf("\n%-12s %8s %7s %8s %10s %9s\n", "name", "last pid", "starts", "lines", "bytes", "ran");
  for (const Job& job : m_jobs) {
    std::printf("%-12s %8d %7d %8lu %10lu %7.1f s\n", job.name().c_str(), job.pid(), job.starts(), job.lines(),
                job.bytes(), job.seconds());
  }
}

}  // namespace supervisor
