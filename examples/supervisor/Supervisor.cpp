#include "Supervisor.h"

#include <csignal>
#include <cstdio>

#include "oxu/CApi.h"

namespace supervisor {

namespace {
constexpr std::chrono::seconds kTimeToDie(1);
}

void Supervisor::run(const std::function<bool()>& stopRequested) {
  for (Job& job : m_jobs) start(job);
  while (!alivePids().empty()) {
    if (stopRequested()) killAll();
    if (m_stopping && Clock::now() > m_deadline) killThoseLeft();
    if (Job* job = nextQuit()) handleQuit(*job);
  }
}

void Supervisor::start(Job& job) {
  if (!job.start()) {
    push_log(oxu::ERROR, "%s could not be started", job.name().c_str());
    return;
  }
  push_log(oxu::DEBUG, "%s started as process %d", job.name().c_str(), job.pid());
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
  push_log(oxu::WARNING, "%s has quit%s", job.name().c_str(), again ? ", starting it again" : "");
  if (again) start(job);
}

void Supervisor::killAll() {
  const std::vector<int> pids = alivePids();
  push_log(oxu::WARNING, "stopping, with %zu of %zu commands alive", pids.size(), m_jobs.size());
  oxu::StartProcess::kill(pids);
  m_stopping = true;
  m_deadline = Clock::now() + kTimeToDie;
}

// An ordinary user's kill goes through sudo, which may refuse. The commands are the caller's own,
// though.
void Supervisor::killThoseLeft() {
  for (const int pid : alivePids()) ::kill(-pid, SIGKILL);
  m_deadline = Clock::now() + kTimeToDie;
}

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
