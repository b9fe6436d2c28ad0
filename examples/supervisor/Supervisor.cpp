#include "Supervisor.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

#include "Report.h"
#include "common/Log.h"
#include "oxu/LogLevel.h"

namespace supervisor {

using common::logLine;

Supervisor::Supervisor(const Config& config) : m_password(config.password), m_forwarder(config.logService) {
  for (const JobConfig& job : config.jobs) m_jobs.emplace_back(job, m_forwarder);
}

void Supervisor::run(const std::function<bool()>& stopRequested) {
  for (Job& job : m_jobs) start(job);
  while (!aliveJobs().empty()) {
    if (stopRequested()) killAll();
    Quit quit;
    if (nextQuit(quit)) handleQuit(quit);
  }
}

void Supervisor::start(Job& job) {
  if (!job.start(m_password)) {
    logLine(oxu::ERROR, job.name() + " could not be started");
    return;
  }
  logLine(oxu::DEBUG, job.name() + " started as process " + std::to_string(job.pid()));
  const auto onQuit = [this, &job] {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_quits.push_back({&job, Job::Clock::now()});
    m_wake_up.notify_one();
    return 0;
  };
  m_monitor.addProcess(job.name(), oxu::ProcessInfo(job.pid(), onQuit));
}

void Supervisor::handleQuit(const Quit& quit) {
  Job& job = *quit.job;
  job.finish(quit.time);
  const bool again = !m_stopping && job.mayRestart();
  logLine(oxu::WARNING, job.name() + " has quit" + (again ? ", starting it again" : ""));
  if (again) start(job);
}

// The library's kill ends groups, through sudo where the caller is not root, and one group a call then. An ordinary
// user ends what is his own by himself. A command that has left its group for another, the supervisor's own for
// example, is ended alone.
void Supervisor::killAll() {
  const std::vector<const Job*> jobs = aliveJobs();
  logLine(oxu::WARNING,
          "stopping, with " + std::to_string(jobs.size()) + " of " + std::to_string(m_jobs.size()) + " commands alive");
  m_stopping = true;
  m_forwarder.stopWaiting();
  std::vector<int> groups;
  for (const Job* job : jobs) {
    if (::getpgid(job->pid()) != job->pid()) {
      ::kill(job->pid(), SIGKILL);
    } else if (::geteuid() == 0) {
      groups.push_back(job->pid());
    } else if (job->runsThroughSudo()) {
      oxu::StartProcess::kill(job->pid());
    } else {
      ::kill(-job->pid(), SIGKILL);
    }
  }
  if (!groups.empty()) oxu::StartProcess::kill(groups);
}

// Those whose end has not been reported yet.
std::vector<const Job*> Supervisor::aliveJobs() const {
  std::vector<const Job*> jobs;
  for (const Job& job : m_jobs) {
    if (job.isAlive()) jobs.push_back(&job);
  }
  return jobs;
}

// False when no job quits for a tenth of a second.
bool Supervisor::nextQuit(Quit& quit) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto hasQuit = [this] { return !m_quits.empty(); };
  if (!m_wake_up.wait_for(lock, std::chrono::milliseconds(100), hasQuit)) return false;
  quit = m_quits.front();
  m_quits.pop_front();
  return true;
}

oxu::json::Json Supervisor::report() const {
  oxu::json::Json report(oxu::json::Json::Array);
  for (const Job& job : m_jobs) report.append(reportOf(job));
  return report;
}

}  // namespace supervisor
