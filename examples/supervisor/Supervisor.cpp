#include "Supervisor.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "common/Log.h"
#include "oxu/LogLevel.h"

namespace supervisor {

using common::logLine;

// The queue has room for one end per job, which is as many as can wait.
Supervisor::Supervisor(const Config& config)
    : m_password(config.password), m_forwarder(config.logService), m_quits(config.jobs.size()) {
  for (const JobConfig& job : config.jobs) m_jobs.emplace_back(job, m_forwarder);
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void Supervisor::run(const std::function<int()>& stopSignals) {
  for (Job& job : m_jobs) start(job);
  while (!std::all_of(m_jobs.begin(), m_jobs.end(), [](const Job& job) { return job.isIdle(); })) {
    if (const int signals = stopSignals(); signals > m_stop_signals) stop(signals);
    Quit quit;
    if (m_quits.take(quit, std::chrono::milliseconds(100))) quit.job->noteQuit(quit.status, quit.time);
    collectOrphans();
    for (Job& job : m_jobs) advance(job);
  }
}

void Supervisor::start(Job& job) {
  if (!job.start(m_password)) {
    logLine(oxu::ERROR, job.name() + " could not be started");
    return;
  }
  logLine(oxu::DEBUG, job.name() + " started as process " + std::to_string(job.pid()));
  oxu::ProcessInfo info(job.pid(), nullptr);
  info.setExitCallback([this, &job](int status) { m_quits.add({&job, status, Job::Clock::now()}, 1); });
  m_monitor.addProcess(job.name(), info);
}

// Ends a job that is to end, and starts a job that is due.
void Supervisor::advance(Job& job) {
  const bool isStopping = m_stop_signals > 0;
  if (job.isGone()) {
    const std::string line = job.finish(!isStopping);
    logLine(isStopping || job.hasSucceeded() ? oxu::INFO : oxu::WARNING, line);
  }
  if (job.hasQuit() || (job.isRunning() && isStopping)) job.end(m_stop_signals > 1);
  if (job.isDue()) start(job);
}

void Supervisor::stop(int signals) {
  m_stop_signals = signals;
  std::string names;
  for (Job& job : m_jobs) {
    job.cancelRestart();
    if (!job.isIdle()) names += (names.empty() ? " " : ", ") + job.name();
  }
  logLine(oxu::INFO, (signals > 1 ? "killing what still runs:" : "ending what still runs:") + names);
  m_forwarder.stopWaiting();
}

// Collects all children that have ended, but for those that the monitor is about to collect.
void Supervisor::collectOrphans() {
  const auto isMonitored = [this](int pid) {
    return std::any_of(m_jobs.begin(), m_jobs.end(),
                       [pid](const Job& job) { return job.isRunning() && job.pid() == pid; });
  };
  siginfo_t ended{};
  while (::waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid != 0 &&
         !isMonitored(ended.si_pid)) {
    ::waitpid(ended.si_pid, nullptr, WNOHANG);
  }
}

oxu::json::Json Supervisor::report() const {
  oxu::json::Json report(oxu::json::Json::Array);
  for (const Job& job : m_jobs) report.append(job.report());
  return report;
}

}  // namespace supervisor
