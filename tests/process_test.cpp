#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "process/LaunchLine.h"
#include "process/RootPrivilege.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

namespace {

using oxu::StartProcess;

// A launched command whose output is collected and whose child is reaped.
class Launched {
 public:
  explicit Launched(const std::string& command, unsigned long bufferSize = 4096,
                    const std::string& envNames = "", const std::string& workDir = "")
      : m_process(
            workDir, envNames, command, "secret",
            [this](const std::string& chunk) {
              if (chunk.size() > m_longest) m_longest = chunk.size();
              m_output += chunk;
            },
            bufferSize, false) {}
  ~Launched() { wait(); }

  int pid() const { return m_process.pid(); }
  bool isRunning() const { return m_process.isRunning(); }
  std::size_t longestChunk() const { return m_longest; }
  bool prints(const std::string& text) const { return m_output.eventuallyContains(text); }
  std::string output() const { return m_output.get(); }

  // The wait status; -1 when there is no child.
  int wait() {
    if (pid() > 0 && !m_reaped) m_reaped = ::waitpid(pid(), &m_status, 0) == pid();
    return m_status;
  }

 private:
  support::SharedText m_output;
  std::atomic<std::size_t> m_longest{0};
  bool m_reaped = false;
  int m_status = -1;
  StartProcess m_process;
};

TEST(LaunchLine, ExportsChangesDirectoryAndRunsTheCommand) {
  ::setenv("OXU_A", "one", 1);
  ::setenv("OXU_B", "t w'o;x", 1);
  ::unsetenv("OXU_NONE");
  const struct {
    const char *workDir, *envNames, *command, *shellLine;
    std::vector<std::string> announcements;
  } rows[] = {
      {"", "", "ls", "ls", {"ls"}},
      {"/opt/x", "", "ls", "cd /opt/x;ls", {"cd /opt/x;", "ls"}},
      {"",
       " OXU_A \r,\tOXU_B\n",
       "ls",
       "export OXU_A=one;export OXU_B=t w'o;x;ls",
       {"export OXU_A=one;", "export OXU_B=t w'o;x;", "ls"}},
      {"d", "OXU_NONE,", "", "export OXU_NONE=;cd d;", {"export OXU_NONE=;", "cd d;", ""}},
      {"", ",OXU_A", "x", "export =;export OXU_A=one;x", {"export =;", "export OXU_A=one;", "x"}},
      {"",
       "OXU_A,,OXU_A",
       "x",
       "export OXU_A=one;export =;export OXU_A=one;x",
       {"export OXU_A=one;", "export =;", "export OXU_A=one;", "x"}},
      {"",
       "",
       "a $SU_PASSWD$ b$SU_PASSWD$SU_PASSWD$",
       "a \"$__SU_PASSWD__\" b\"$__SU_PASSWD__\"SU_PASSWD$",
       {"a $SU_PASSWD$ b$SU_PASSWD$SU_PASSWD$"}},
  };
  for (const auto& row : rows) {
    const auto line = oxu::makeLaunchLine(row.workDir, row.envNames, row.command, false);
    EXPECT_EQ(line.shellLine, row.shellLine);
    EXPECT_EQ(line.announcements, row.announcements);
  }
}

TEST(RootPrivilege, WrapsEachCommandOfTheLineInSudo) {
  const std::string sudo = "echo \"$__SU_PASSWD__\" | sudo -S -E ";
  const struct {
    const char* command;
    std::string wrapped;
  } rows[] = {
      {"run.sh a;stop.sh", sudo + "run.sh a;" + sudo + "stop.sh;"},
      {"a ; b", sudo + "a ;" + sudo + " b;"},
      {";;a;;;b $SU_PASSWD$;", sudo + "a;" + sudo + "b $SU_PASSWD$;"},
      {";;", ""},
      {"", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(oxu::addRootPrivilege(row.command, row.command), row.wrapped);
    EXPECT_STREQ(::getenv("__SU_PASSWD__"), row.command);
  }
  EXPECT_FALSE(oxu::needRootPrivilege(false));
  EXPECT_EQ(oxu::needRootPrivilege(true), ::geteuid() != 0);
}

TEST(StartProcess, DeliversWhatTheCommandWritesUnchanged) {
  const struct {
    const char* command;
    std::string output;
  } rows[] = {
      {"printf 'no line end'", "no line end"},
      {"echo out; echo err >&2", "out\nerr\n"},
      {"printf 'a\\0b\\nc'", std::string("a\0b\nc", 5)},
      {"echo $SU_PASSWD$ $__SU_PASSWD__", "secret secret\n"},
      {"pwd; ls /nonexistent 2>/dev/null || echo failed", "/\nfailed\n"},
      {"echo \"$OXU_VALUE\"", "of the host\n"},
      {"read -r _ _ _ _ group _ < /proc/$$/stat; [ $group = $$ ] && echo leader", "leader\n"},
  };
  ::setenv("OXU_VALUE", "\"of the host\"", 1);
  for (const auto& row : rows) {
    Launched child(row.command, 4096, "OXU_VALUE", "/");
    EXPECT_TRUE(child.isRunning());
    EXPECT_TRUE(child.prints(row.output)) << child.output();
    EXPECT_EQ(child.wait(), 0);
  }
}

TEST(StartProcess, DeliversChunksOfAtMostTheBufferSizeInOrder) {
  Launched child("seq 10000 12000; echo; echo end", 100);
  EXPECT_TRUE(child.prints("\nend\n"));
  EXPECT_LE(child.longestChunk(), 100U);
  std::string expected;
  for (int i = 10000; i <= 12000; ++i) expected += std::to_string(i) + "\n";
  EXPECT_NE(child.output().find(expected), std::string::npos);
}

TEST(StartProcess, ReadsNothingIntoABufferOfNoOrImpossibleSize) {
  const struct {
    unsigned long bufferSize;
    const char* message;
  } rows[] = {{0, "ERROR Pipe closed\n"},
              {~0UL >> 1, "ERROR Read pipe error: Cannot allocate memory\n"}};
  for (const auto& row : rows) {
    support::LogCapture log;
    Launched child("echo lost", row.bufferSize);
    child.wait();
    EXPECT_TRUE(support::eventually([&] { return log.messages() == row.message; }))
        << log.messages();
    EXPECT_EQ(child.output(), "");
  }
}

TEST(StartProcess, IdleObjectHasNeitherChildNorThread) {
  StartProcess idle;
  EXPECT_EQ(idle.pid(), -1);
  EXPECT_FALSE(idle.isRunning());
}

TEST(StartProcess, DiscardsOutputWithoutACallback) {
  StartProcess process("", "", "seq 100000 200000; exit 3", "", nullptr, 4096, false);
  int status = 0;
  EXPECT_EQ(::waitpid(process.pid(), &status, 0), process.pid());
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(StartProcess, EndWakesTheReaderAndLeavesTheChildToFailOnItsNextWrite) {
  support::SharedText output;
  auto process = std::make_unique<StartProcess>(
      "", "", "echo ready; sleep 0.3; echo more; echo not reached >&2", "",
      [&](const std::string& chunk) { output += chunk; }, 4096, false);
  const int pid = process->pid();
  ASSERT_TRUE(output.eventuallyContains("ready\n"));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  process.reset();
  EXPECT_EQ(output.get().find("ready\n") + 6 + 14, output.get().size());
  EXPECT_NE(output.get().find("Stop Process!\n"), std::string::npos);
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

// Line buffering makes the child print its announcements at once, as on a terminal.
TEST(StartProcess, AnnouncesWhatItRunsAndNeverRepeatsTheHostsOwnText) {
  support::DescriptorCapture stdoutCapture(STDOUT_FILENO);
  const int status = support::statusOfChild([] {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::printf("half a line of the host");
    ::setenv("OXU_A", "1", 1);
    Launched child("echo done", 4096, "OXU_A", "/");
    return child.prints("export OXU_A=1;\ncd /;\necho done\ndone\n") &&
           child.output().find("host") == std::string::npos;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(stdoutCapture.text(), "half a line of the host");
}

TEST(StartProcess, GivesNoCommandADescriptorOfAnotherObject) {
  std::vector<std::unique_ptr<Launched>> children;
  std::vector<std::string> pipes;
  for (int i = 0; i < 4; ++i) {
    children.push_back(
        std::make_unique<Launched>("readlink /proc/$$/fd/1 /proc/$$/fd/*; echo end"));
    ASSERT_TRUE(children.back()->prints("end\n"));
    const std::string descriptors = children.back()->output();
    for (const std::string& pipe : pipes) EXPECT_EQ(descriptors.find(pipe), std::string::npos);
    pipes.push_back(descriptors.substr(0, descriptors.find('\n')));
    EXPECT_EQ(pipes.back().substr(0, 6), "pipe:[");
  }
}

TEST(StartProcess, WorksWhereTheHostHasManyOrNoneOfTheStandardDescriptors) {
  const auto manyDescriptors = [] {
    rlimit limit{4096, 4096};
    ::setrlimit(RLIMIT_NOFILE, &limit);
    while (::dup(STDERR_FILENO) < 2000) {
    }
    return true;
  };
  EXPECT_EQ(support::statusOfChild([&] {
              return manyDescriptors() &&
                     Launched("echo far; sleep 0.1; echo out").prints("far\nout\n");
            }),
            0);
  for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    EXPECT_EQ(support::statusOfChild([&] {
                for (const int fd : closed) ::close(fd);
                Launched child("echo out && echo err >&2 && echo end");
                return child.prints("out\nerr\nend\n");
              }),
              0)
        << closed.size() << " from " << closed[0];
  }
}

// What a failing call prints on the host's standard output and error, in the log, and in the
// captured output of the command.
TEST(StartProcess, ReportsEachFailureAndGoesOnWhereItCan) {
  using namespace faults;
  const struct {
    const char* what;
    Call call;
    int error, times, argument;
    bool running;
    const char *terminal, *log, *output;
    int exitStatus;
  } rows[] = {
      {"pipe", kPipe, EMFILE, 1, kAnyArgument, false,
       "pipe failed: Too many open files\nprepatePipe failed\n", "", "", -1},
      {"fork", kFork, EAGAIN, 1, kAnyArgument, false,
       "fork failed: Resource temporarily unavailable\n", nullptr, "", -1},
      {"F_GETFL", kFcntl, EINVAL, 1, F_GETFL, true, "",
       "ERROR fcntl F_GETFL error: Invalid argument\n", "ran\n", 0},
      {"F_SETFL", kFcntl, EBADF, kEveryTime, F_SETFL, true,
       "fcntl set nonblock: Bad file descriptor\n",
       "ERROR fcntl F_SETFL error: Bad file descriptor\n", "ran\n", 0},
      {"F_SETFD", kFcntl, EINVAL, kEveryTime, F_SETFD, true, "", "", "ran\n", 0},
      {"dup2 to 1", kDup2, EBUSY, kEveryTime, 1, true, "dup2 failed: Device or resource busy\n", "",
       "", 1},
      {"dup2 to 2", kDup2, EBUSY, kEveryTime, 2, true, "dup2 failed: Device or resource busy\n", "",
       "", 1},
      {"setpgid", kSetpgid, EPERM, kEveryTime, kAnyArgument, true, "", "", "ran\n", 0},
      {"execvp", kExecvp, ENOENT, 1, kAnyArgument, true, "", "",
       "execvp failed: No such file or directory\n", 1},
      {"select", kSelect, ENOMEM, 1, kAnyArgument, true, "",
       "ERROR Select error: Cannot allocate memory\n", "", 0},
      {"select, by a signal", kSelect, EINTR, 3, kAnyArgument, true, "", "", "ran\n", 0},
      {"read", kRead, EIO, 1, kAnyArgument, true, "", "ERROR Read pipe error: Input/output error\n",
       "", 0},
      {"read, without data", kRead, EAGAIN, 3, kAnyArgument, true, "", "", "ran\n", 0},
      {"wake-up", kWrite, EAGAIN, 1, kAnyArgument, true, "", "ERROR write pipe error\n", "ran\n",
       0},
  };
  for (const auto& row : rows) {
    support::DescriptorCapture standardError(STDERR_FILENO);
    support::LogCapture log;
    int exitStatus = -1;
    std::string output;
    {
      const Fault fault(row.call, row.error, row.times, row.argument);
      Launched child("echo ran");
      EXPECT_EQ(child.isRunning(), row.running) << row.what;
      EXPECT_EQ(child.pid() > 0, row.running) << row.what;
      const int status = child.wait();
      if (status != -1) exitStatus = WEXITSTATUS(status);
      if (*row.output != '\0') {
        EXPECT_TRUE(child.prints(row.output)) << row.what;
      }
      if (row.log != nullptr && row.call != kWrite) {
        EXPECT_TRUE(
            support::eventually([&] { return log.messages().find(row.log) != std::string::npos; }));
      }
      output = child.output();
    }
    const std::string messages = log.messages();
    const std::string puts = messages.substr(0, messages.find("ERROR"));
    EXPECT_EQ(exitStatus, row.exitStatus) << row.what;
    EXPECT_EQ(output, row.output) << row.what;
    EXPECT_EQ(standardError.text() + puts, row.terminal) << row.what;
    if (row.log != nullptr) {
      EXPECT_EQ(messages.substr(puts.size()), row.log) << row.what;
    }
  }
}

TEST(StartProcess, SaysThatItHasNoGroupOfItsOwnWhereStdoutIsLineBuffered) {
  EXPECT_EQ(support::statusOfChild([] {
              std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
              const faults::Fault fault(faults::kSetpgid, EPERM);
              Launched child("echo ran");
              return child.prints("Child process(" + std::to_string(child.pid()) +
                                  ") setpgid failed: Operation not permitted\necho ran\nran\n");
            }),
            0);
}

// The number of the read end is given to another file as soon as it is closed; the reader must not
// read that file.
TEST(StartProcess, ReaderNeverReadsAnotherFileAfterAFailedFork) {
  support::LogCapture log;
  std::atomic<bool> stop{false};
  std::thread opener([&] {
    while (!stop) {
      int fds[2];
      if (::pipe2(fds, O_CLOEXEC) != 0) continue;
      [[maybe_unused]] const ssize_t size = ::write(fds[1], "foreign", 7);
      std::this_thread::yield();
      ::close(fds[0]);
      ::close(fds[1]);
    }
  });
  support::SharedText output;
  for (int i = 0; i < 300; ++i) {
    const faults::Fault fault(faults::kFork, EAGAIN);
    support::DescriptorCapture standardError(STDERR_FILENO);
    StartProcess process(
        "", "", "true", "", [&](const std::string& chunk) { output += chunk; }, 64, false);
    if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  stop = true;
  opener.join();
  EXPECT_EQ(output.get(), "");
  EXPECT_EQ(log.messages().find("Read pipe error"), std::string::npos);
}

TEST(StartProcess, ASecondLaunchThatCannotForkEndsTheCaptureOfTheFirst) {
  support::LogCapture log;
  support::DescriptorCapture standardError(STDERR_FILENO);
  support::SharedText output;
  StartProcess process(
      "", "", "echo first; sleep 0.2; echo more", "",
      [&](const std::string& chunk) { output += chunk; }, 64, false);
  const int pid = process.pid();
  EXPECT_TRUE(output.eventuallyContains("first\n"));
  const faults::Fault fault(faults::kFork, EAGAIN, 1);
  EXPECT_EQ(process.addProcess("", "", "true", "", false), -1);
  EXPECT_EQ(process.pid(), pid);
  EXPECT_TRUE(log.eventuallyContains("Select error: Bad file descriptor"));
  EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
  EXPECT_EQ(output.get(), "first\n");
}

TEST(GetPid, IsTheCallersOwn) { EXPECT_EQ(getPid(), ::getpid()); }

bool isGone(int pid) {
  return support::eventually([pid] { return ::kill(pid, 0) == -1 && errno == ESRCH; });
}

TEST(Kill, EndsTheGroupWithItsGrandchildren) {
  support::LogCapture log;
  Launched child("sleep 1000 & echo $!. ; wait");
  ASSERT_TRUE(child.prints(".\n"));
  const int grandchild = std::stoi(child.output());
  EXPECT_TRUE(StartProcess::kill(child.pid()));
  const int status = child.wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  const std::string pid = std::to_string(child.pid());
  EXPECT_EQ(log.messages(), "INFO Process group " + pid + "(pgid: " + pid + ")killed.\n");
  EXPECT_TRUE(support::eventually([&] { return ::getpgid(grandchild) != child.pid(); }));
}

TEST(Kill, EndsAllGroupsOfAListAndSkipsProcessesThatAreGone) {
  support::LogCapture log;
  int gone = 0;
  {
    Launched child("true");
    gone = child.pid();
  }
  Launched first("sleep 1000");
  Launched zombie("true");
  ASSERT_TRUE(support::eventually([&] {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(zombie.pid()), &info, WEXITED | WNOHANG | WNOWAIT) ==
               0 &&
           info.si_pid == zombie.pid();
  }));
  Launched second("sleep 1000");
  EXPECT_TRUE(StartProcess::kill({first.pid(), gone, zombie.pid(), second.pid()}));
  EXPECT_EQ(WTERMSIG(first.wait()), SIGKILL);
  EXPECT_EQ(WTERMSIG(second.wait()), SIGKILL);
  EXPECT_EQ(zombie.wait(), 0);
  EXPECT_TRUE(isGone(first.pid()));
  EXPECT_EQ(log.messages(), "ERROR Failed to get pgid for pid: " + std::to_string(gone) +
                                ".\n\nINFO All process groups killed.\n");
}

TEST(Kill, ReportsWhatItCannotKill) {
  support::LogCapture log;
  Launched child("sleep 1000");
  const std::string pid = std::to_string(child.pid());
  const int pgid = child.pid();
  EXPECT_FALSE(StartProcess::kill(-1));
  EXPECT_FALSE(StartProcess::kill(INT_MAX));
  EXPECT_FALSE(StartProcess::kill(std::vector<int>{}));
  EXPECT_TRUE(StartProcess::kill(std::vector<int>{INT_MAX}));
  {
    const faults::Fault fault(faults::kSystem, ENOMEM, 2);
    EXPECT_FALSE(StartProcess::kill(child.pid()));
    EXPECT_FALSE(StartProcess::kill({child.pid(), child.pid()}));
  }
  EXPECT_EQ(log.messages(),
            "ERROR Invalid process id: -1.\n\n"
            "ERROR Failed to get pgid for pid: 2147483647.\n\n"
            "ERROR Invalid process id list.\n\n"
            "ERROR Failed to get pgid for pid: 2147483647.\n\n"
            "INFO All process groups killed.\n"
            "ERROR Failed to kill process group " +
                pid + "(pgid: " + pid +
                "): Cannot allocate memory.\n\n"
                "ERROR Failed to kill process groups: Cannot allocate memory.\n\n");
  EXPECT_EQ(::kill(-pgid, SIGKILL), 0);
}

}  // namespace
