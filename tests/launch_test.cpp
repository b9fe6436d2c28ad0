// Launches as hosts make them: no system call is replaced in this program.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"
#include "tests/support/Launched.h"

namespace {

using oxu::StartProcess;
using support::Launched;

int waitStatusOf(int pid) {
  int status = -1;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return status;
}

TEST(StartProcess, RunsTheCommandAsAskedAndDeliversAllItWrites) {
  std::string more;
  for (int i = 1; i <= 200000; ++i) more += std::to_string(i) + "\n";
  const struct {
    const char* command;
    unsigned long bufferSize;
    std::string output;
    bool blockingOutput = false;
  } rows[] = {
      {"printf 'no line end'", 4096, "no line end"},
      {"echo out; echo err >&2", 1, "out\nerr\n"},
      {"printf 'a\\0b\\nc'", 4096, std::string("a\0b\nc", 5)},
      {"seq 200000", 100, more, true},  // far more than the pipe holds
      {"echo $SU_PASSWD$ $__SU_PASSWD__", 4096, "secret secret\n"},
      {"pwd; echo \"$OXU_VALUE\"", 4096, "/\nof the host\n"},
      {"read -r _ _ _ _ group _ < /proc/$$/stat; [ $group = $$ ] && echo leader", 4096, "leader\n"},
  };
  ::setenv("OXU_VALUE", "\"of the host\"", 1);
  for (const auto& row : rows) {
    Launched child(row.command, row.bufferSize, "OXU_VALUE", "/", row.blockingOutput);
    EXPECT_TRUE(child.process.isRunning());
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_TRUE(child.process.flushOutput(-1));
    EXPECT_EQ(child.get(), row.output);
  }
}

TEST(StartProcess, EndWakesTheReaderAndLeavesTheChildToFailOnItsNextWrite) {
  support::SharedText output;
  const auto collect = [&](const std::string& chunk) { output.append(chunk); };
  auto process = std::make_unique<StartProcess>("", "", "echo ready; sleep 0.8; echo more", "", collect, 4096, false);
  const int pid = process->pid();
  EXPECT_TRUE(output.eventuallyContains("ready\n"));
  process.reset();
  const std::string text = output.get();
  EXPECT_TRUE(text == "ready\nStop Process!\n" || text == "ready\n") << text;
  EXPECT_EQ(WTERMSIG(waitStatusOf(pid)), SIGPIPE);
}

// What the child prints before the shell starts depends on how the host's stdout is buffered. What the host has printed
// and not flushed appears once, and not in the capture.
TEST(StartProcess, AnnouncesWhatItRunsWhereStdoutLetsLinesOutAtOnce) {
  const std::string value(1500, 'v');
  const std::string announcements = "export OXU_A=" + value + ";\ncd /;\necho done\n";
  constexpr int kNotSet = -1;
  const struct {
    const char* what;
    int mode;
    std::string announcements, ofTheHost;
  } rows[] = {
      {"never used", kNotSet, "", ""},
      {"fully buffered", _IOFBF, "", "half a line"},
      {"line-buffered", _IOLBF, announcements, "half a line"},
      {"unbuffered", _IONBF, announcements, "half a line"},
  };
  ::setenv("OXU_A", value.c_str(), 1);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const support::DescriptorCapture terminal(STDOUT_FILENO);
    support::inChild([&] {
      stdout = ::fdopen(STDOUT_FILENO, "w");
      if (row.mode != kNotSet) std::setvbuf(stdout, nullptr, row.mode, BUFSIZ);
      if (row.mode != kNotSet) std::printf("half a line");
      Launched child("echo done", 4096, "OXU_A", "/");
      EXPECT_EQ(child.exitStatus(), 0);
      EXPECT_TRUE(child.process.flushOutput(-1));
      EXPECT_EQ(child.get(), row.announcements + "done\n");
      std::fflush(stdout);
    });
    EXPECT_EQ(terminal.text(), row.ofTheHost);
  }
}

TEST(StartProcess, GivesNoCommandThePipeOfAnother) {
  Launched first("readlink /proc/$$/fd/1"), second("readlink /proc/$$/fd/*; echo end");
  ASSERT_TRUE(first.eventuallyContains("]\n"));
  ASSERT_TRUE(second.eventuallyContains("end\n"));
  EXPECT_EQ(second.get().find(first.get()), std::string::npos);
}

void expectCapture() {
  Launched child("echo out && echo err >&2 && echo end");
  std::fputs("text of the host\n", stderr);
  EXPECT_TRUE(child.eventuallyContains("end\n"));
  EXPECT_EQ(child.get(), "out\nerr\nend\n");
}

TEST(StartProcess, CapturesInAHostWithClosedOrThousandsOfDescriptors) {
  for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    SCOPED_TRACE("closed: " + testing::PrintToString(closed));
    support::inChild([&closed] {
      std::for_each(closed.begin(), closed.end(), ::close);
      expectCapture();
    });
  }
  support::inChild([] {
    const rlimit limit{4096, 4096};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    while (::dup(STDERR_FILENO) < 2000) continue;
    expectCapture();
  });
}

TEST(StartProcess, StartsTheShellWithNoSignalBlockedAndSigpipeAtItsDefault) {
  support::inChild([] {
    sigset_t blocked, mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
    for (const int signal : {SIGPIPE, SIGHUP}) std::signal(signal, SIG_IGN);
    Launched child("kill -HUP $$; grep SigBlk /proc/self/status; kill -PIPE $$");
    EXPECT_EQ(child.endingSignal(), SIGPIPE);
    EXPECT_TRUE(child.process.flushOutput(-1));
    EXPECT_EQ(child.get(), "SigBlk:\t0000000000000000\n");
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 1);
  });
}

// The logger's thread waits for the console with stdout's lock held.
TEST(StartProcess, LaunchesAndCapturesWhileTheConsoleStandsStill) {
  support::inChildWithPipe([](int readEnd) {
    support::fillStandardOutput();
    install_log_task();
    push_log(oxu::INFO, "waits for the console");
    ::usleep(50000);
    Launched child("echo captured");
    EXPECT_TRUE(child.eventuallyContains("captured\n"));
    ::close(readEnd);  // the logger's write fails
  });
}

TEST(StartProcess, LaunchesFromAThreadThatIsBeingCancelled) {
  support::inChild([] {
    int status = -1;
    std::thread([&status] {
      ::pthread_cancel(::pthread_self());
      const StartProcess process("", "", "exit 7", "", nullptr, 4096, false);
      ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
      status = waitStatusOf(process.pid());
    }).join();
    EXPECT_EQ(WEXITSTATUS(status), 7);
  });
}

std::atomic<int> handledByAChild{0};

// Ctrl-Z reaches the child while it is still in the host's group. The launching thread, which waits for the child to
// become the shell, must not wait for a child that is stopped. The child shares the host's memory until then, so a
// handler that ran in it would be counted.
TEST(StartProcess, LaunchesWhileTheTerminalSendsSigtstp) {
  support::inChild([] {
    ::setpgid(0, 0);
    struct sigaction handle {};
    handle.sa_handler = [](int) { handledByAChild += ::getpid() != ::getpgrp(); };
    handle.sa_flags = SA_RESTART;
    ::sigaction(SIGTSTP, &handle, nullptr);
    const pid_t terminal = ::fork();
    ASSERT_NE(terminal, -1);
    if (terminal == 0) {
      std::signal(SIGTSTP, SIG_IGN);
      for (::alarm(20);; ::usleep(100)) ::kill(0, SIGTSTP);
    }
    for (int i = 0; i < 300; ++i) EXPECT_EQ(Launched("exit 0").exitStatus(), 0);
    EXPECT_EQ(handledByAChild, 0);
    ::kill(terminal, SIGKILL);
    waitStatusOf(terminal);
  });
}

// The first command waits for room: behind a callback that does not return or, with a buffer of 0 bytes, in a capture
// that has ended. A further launch, with its announcements, must not wait.
TEST(BlockingOutput, NeverHoldsTheHostUpAndEndsTheCommandBySigpipe) {
  for (const unsigned long bufferSize : {4096UL, 0UL}) {
    SCOPED_TRACE(bufferSize);
    support::inChild([bufferSize] {
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      std::atomic<bool> mayGoOn{false};
      const auto wait = [&](const std::string&) {
        while (!mayGoOn) ::usleep(1000);
      };
      auto process = std::make_unique<StartProcess>("", "", "yes", "", wait, bufferSize, false, true);
      const int first = process->pid();
      ::usleep(100000);
      const int second = process->addProcess("", "", "yes", "", false);
      EXPECT_FALSE(process->flushOutput(50));
      mayGoOn = true;
      process.reset();
      for (const int pid : {first, second}) EXPECT_EQ(WTERMSIG(waitStatusOf(pid)), SIGPIPE);
    });
  }
}

TEST(FlushOutput, IsTrueOnceTheCallbackIsDoneWithAllThatWasWritten) {
  std::atomic<bool> mayGoOn{false};
  support::SharedText output;
  const auto collect = [&](const std::string& chunk) {
    while (!mayGoOn) ::usleep(1000);
    output.append(chunk);
  };
  const StartProcess process("", "", "printf abcdefgh", "", collect, 4096, false);
  waitStatusOf(process.pid());
  EXPECT_FALSE(process.flushOutput(0));
  EXPECT_FALSE(process.flushOutput(20));
  mayGoOn = true;
  EXPECT_TRUE(process.flushOutput(-1));
  EXPECT_EQ(output.get(), "abcdefgh");
  EXPECT_TRUE(process.flushOutput(0));
}

TEST(FlushOutput, IsFalseWhereThereIsNoCaptureOrItHasEndedEarly) {
  StartProcess idle;
  EXPECT_FALSE(idle.flushOutput(-1)) << "there is no child";
  const int pid = idle.addProcess("", "", "exit 0", "", false);
  EXPECT_FALSE(idle.flushOutput(-1)) << "there is no capture";
  waitStatusOf(pid);
  const struct {
    unsigned long bufferSize;
    const char* message;
  } rows[] = {
      {0, "ERROR Pipe closed\n"},
      {~0UL >> 1, "ERROR Read pipe error: Cannot allocate memory\n"},
  };
  for (const auto& row : rows) {
    support::LogCapture log;
    Launched child("echo unread", row.bufferSize);
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_FALSE(child.process.flushOutput(-1));
    EXPECT_EQ(log.messages(), row.message);
  }
}

TEST(FlushOutput, DoesNotWaitForWhatIsWrittenMeanwhile) {
  StartProcess process("", "", "yes", "", nullptr, 4096, false, true);
  const int writer = process.pid();
  waitStatusOf(process.addProcess("", "", "echo behind it", "", false));
  EXPECT_TRUE(process.flushOutput(30000));
  ::kill(writer, SIGKILL);
  waitStatusOf(writer);
}

}  // namespace
