// Launches as hosts make them: no system call is replaced in this program.
#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "tests/support/Launched.h"
#include "tests/support/Test.h"

namespace {

using oxu::StartProcess;
using support::Launched;

TEST(StartProcess, DeliversWhatTheCommandWritesUnchangedAndInOrder) {
  std::string more;
  for (int i = 1; i <= 200000; ++i) more += std::to_string(i) + "\n";
  const struct {
    const char* command;
    unsigned long bufferSize;
    std::string output;
  } rows[] = {
      {"printf 'no line end'", 4096, "no line end"},
      {"echo out; echo err >&2", 1, "out\nerr\n"},
      {"printf 'a\\0b\\nc'", 4096, std::string("a\0b\nc", 5)},
      {"exec >/dev/stdout 2>&1; seq 200000", 100, more},  // far more than the pipe holds
      {"echo $SU_PASSWD$ $__SU_PASSWD__", 4096, "secret secret\n"},
      {"pwd; echo \"$OXU_VALUE\"", 4096, "/\nof the host\n"},
      {"read -r _ _ _ _ group _ < /proc/$$/stat; [ $group = $$ ] && echo leader", 4096, "leader\n"},
  };
  ::setenv("OXU_VALUE", "\"of the host\"", 1);
  for (const auto& row : rows) {
    Launched child(row.command, row.bufferSize, "OXU_VALUE", "/");
    EXPECT_TRUE(child.process.isRunning());
    EXPECT_TRUE(child.eventuallyContains(row.output)) << child.get();
    EXPECT_EQ(child.wait(), 0);
  }
}

TEST(StartProcess, EndWakesTheReaderAndLeavesTheChildToFailOnItsNextWrite) {
  support::SharedText output;
  const auto collect = [&](const std::string& chunk) { output.append(chunk); };
  auto unread = std::make_unique<StartProcess>("", "", "seq 100000 200000", "", nullptr, 4096, false);
  auto process = std::make_unique<StartProcess>("", "", "echo ready; sleep 0.3; echo more", "", collect, 4096, false);
  const int pid = process->pid();
  EXPECT_TRUE(output.eventuallyContains("ready\n"));
  EXPECT_EQ(::waitpid(unread->pid(), nullptr, 0), unread->pid());
  process.reset();
  EXPECT_TRUE(output.get() == "ready\nStop Process!\n" || output.get() == "ready\n") << output.get();
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

// What the child prints before the shell starts depends on how the host's stdout is buffered. What the host has printed
// and not flushed appears once, and not in the capture.
TEST(StartProcess, AnnouncesWhatItRunsWhereStdoutLetsLinesOutAtOnce) {
  const std::string value(1500, 'v');
  const std::string announcements = "export OXU_A=" + value + ";\ncd /;\necho done\n";
  const struct {
    const char* what;
    int mode;  // of setvbuf, -1 where it is not called
    bool announces;
  } rows[] = {
      {"never used", -1, false},
      {"fully buffered", _IOFBF, false},
      {"line-buffered", _IOLBF, true},
      {"unbuffered", _IONBF, true},
  };
  ::setenv("OXU_A", value.c_str(), 1);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const support::DescriptorCapture terminal(STDOUT_FILENO);
    EXPECT_TRUE(support::holdsInChild([&] {
      stdout = ::fdopen(STDOUT_FILENO, "w");
      if (row.mode != -1) {
        std::setvbuf(stdout, nullptr, row.mode, BUFSIZ);
        std::printf("half a line of the host");
      }
      Launched child("echo done", 4096, "OXU_A", "/");
      const std::string text = (row.announces ? announcements : "") + "done\n";
      const bool isCaptured = child.eventuallyContains(text) && child.get() == text;
      return isCaptured && std::fflush(stdout) == 0;
    }));
    EXPECT_EQ(terminal.text(), row.mode == -1 ? "" : "half a line of the host");
  }
}

TEST(StartProcess, GivesNoCommandADescriptorOfAnotherObject) {
  Launched first("readlink /proc/$$/fd/1"), second("readlink /proc/$$/fd/*; echo end");
  ASSERT_TRUE(first.eventuallyContains("]\n") && second.eventuallyContains("end\n"));
  EXPECT_EQ(second.get().find(first.get()), std::string::npos);
}

TEST(StartProcess, WorksWhateverTheHostsDescriptorsAre) {
  const auto captures = [] {
    Launched child("echo out && echo err >&2 && echo end");
    std::fputs("text of the host\n", stderr);
    return child.eventuallyContains("out\nerr\nend\n") && child.get().find("host") == std::string::npos;
  };
  EXPECT_TRUE(support::holdsInChild([&] {
    const rlimit limit{4096, 4096};
    for (::setrlimit(RLIMIT_NOFILE, &limit); ::dup(STDERR_FILENO) < 2000;) continue;
    return captures();
  }));
  EXPECT_TRUE(support::holdsWithPipe([&](int readEnd) {
    ::close(readEnd);
    std::printf("text that waits for a reader who has gone");
    const bool isCaptured = captures();
    // A sanitizer flushes stdout when the process ends.
    return ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO) != -1 && isCaptured;
  }));
  for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    const auto body = [&] { return std::for_each(closed.begin(), closed.end(), ::close), captures(); };
    EXPECT_TRUE(support::holdsInChild(body)) << closed.size() << " from " << closed[0];
  }
}

TEST(StartProcess, LaunchesWhileAnotherThreadHoldsTheLocksOfAllStreams) {
  EXPECT_TRUE(support::holdsInChild([] {
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    std::atomic<bool> stop{false};
    std::thread flusher([&] {
      while (!stop) std::fflush(nullptr);
    });
    bool complete = true;
    for (int i = 0; i < 200; ++i) complete = complete && Launched("exit 0").wait() == 0;
    stop = true;
    flusher.join();
    return complete;
  }));
}

std::atomic<int> handled{0};

void install(int signal, void (*action)(int)) {
  struct sigaction how {};
  how.sa_handler = action;
  how.sa_flags = SA_RESTART;
  ::sigaction(signal, &how, nullptr);
}

// The signal comes as soon as there is a child. Its handler, a wake-up of the host's main loop, is not for the child.
TEST(StartProcess, EndsByASignalRightAfterTheLaunchWithoutAHandlerOfTheHost) {
  EXPECT_TRUE(support::holdsInChild([] {
    install(SIGTERM, [](int) { ++handled; });
    bool allEnded = true;
    for (int i = 0; i < 100; ++i) {
      Launched child("sleep 100");
      ::kill(-child.process.pid(), SIGTERM);
      allEnded = allEnded && WIFSIGNALED(child.wait()) && WTERMSIG(child.wait()) == SIGTERM;
    }
    return allEnded && handled == 0;
  }));
}

TEST(StartProcess, StartsTheShellWithNoSignalBlockedAndSigpipeAtItsDefault) {
  EXPECT_TRUE(support::holdsInChild([] {
    sigset_t all, mask;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    install(SIGPIPE, SIG_IGN);
    install(SIGHUP, SIG_IGN);
    Launched child("grep -E 'SigBlk|SigIgn' /proc/self/status; echo end");
    if (!child.eventuallyContains("end\n")) return false;
    unsigned long blocked = 0, ignored = 0;
    std::sscanf(child.get().c_str(), "SigBlk: %lx SigIgn: %lx", &blocked, &ignored);
    const auto isIgnored = [ignored](int signal) { return (ignored >> (signal - 1) & 1) != 0; };
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return blocked == 0 && isIgnored(SIGHUP) && !isIgnored(SIGPIPE) && sigismember(&mask, SIGTERM) == 1;
  }));
}

// The logger's thread waits for the console with stdout's lock held.
TEST(StartProcess, LaunchesCapturesAndKillsWhileTheConsoleStandsStill) {
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    const std::string pipeful(4096, 'f');
    ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, pipeful.size());
    if (::write(STDOUT_FILENO, pipeful.data(), pipeful.size()) != 4096) return false;
    install_log_task();
    push_log(oxu::INFO, "waits for the console");
    ::usleep(50000);
    bool isCaptured = false;
    {
      Launched child("echo captured; sleep 100");
      isCaptured = child.eventuallyContains("captured\n");
      ::kill(-child.process.pid(), SIGKILL);
    }
    ::close(readEnd);  // the console goes on
    return isCaptured;
  }));
}

TEST(StartProcess, LaunchesFromAThreadThatIsBeingCancelled) {
  EXPECT_TRUE(support::holdsInChild([] {
    int status = -1;
    std::thread([&status] {
      ::pthread_cancel(::pthread_self());
      const StartProcess process("", "", "exit 7", "", nullptr, 4096, false);
      ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
      ::waitpid(process.pid(), &status, 0);
    }).join();
    return WEXITSTATUS(status) == 7;
  }));
}

// Ctrl-Z reaches the child while it is still in the host's group. The launching thread, which waits for the child to
// become the shell, must not wait for a child that is stopped.
TEST(StartProcess, LaunchesWhileTheTerminalStopsAndContinuesTheHost) {
  EXPECT_TRUE(support::holdsInChild([] {
    ::setpgid(0, 0);
    install(SIGTSTP, [](int) {});
    const pid_t terminal = ::fork();
    if (terminal == 0) {
      install(SIGTSTP, SIG_IGN);
      for (::alarm(20);; ::usleep(100)) ::kill(0, SIGTSTP);
    }
    bool allEnded = true;
    for (int i = 0; i < 300; ++i) allEnded = allEnded && Launched("exit 0").wait() == 0;
    ::kill(terminal, SIGKILL);
    ::waitpid(terminal, nullptr, 0);
    return allEnded;
  }));
}

TEST(BlockingOutput, LosesNothingOfACommandThatOutrunsTheCallback) {
  std::atomic<std::size_t> lines{0};
  const auto count = [&lines](const std::string& chunk) {
    lines += static_cast<std::size_t>(std::count(chunk.begin(), chunk.end(), '\n'));
    if (chunk.size() % 16 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
  };
  StartProcess process("", "", "seq 200000", "", count, 1 << 16, false, true);
  ::waitpid(process.pid(), nullptr, 0);
  EXPECT_TRUE(process.flushOutput(-1));
  EXPECT_EQ(lines, 200000U);
  const int second = process.addProcess("", "", "seq 100000", "", false);
  ::waitpid(second, nullptr, 0);
  EXPECT_TRUE(process.flushOutput(-1));
  EXPECT_EQ(lines, 300000U);
}

// The command waits for room: in the callback's way, or, with a buffer of no bytes, because the capture has ended. The
// launch of a further one, with its announcements, does not wait.
TEST(BlockingOutput, NeverHoldsTheHostUpAndEndsTheCommandBySigpipe) {
  for (const unsigned long bufferSize : {4096UL, 0UL}) {
    EXPECT_TRUE(support::holdsInChild([bufferSize] {
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      std::atomic<bool> mayGoOn{false};
      const auto wait = [&](const std::string&) {
        while (!mayGoOn) ::usleep(1000);
      };
      auto process = std::make_unique<StartProcess>("", "", "yes", "", wait, bufferSize, false, true);
      const int first = process->pid();
      ::usleep(100000);
      const int second = process->addProcess("", "", "yes", "", false);
      const bool isFlushed = process->flushOutput(50);
      mayGoOn = true;
      const auto begin = std::chrono::steady_clock::now();
      process.reset();
      const bool isQuick = std::chrono::steady_clock::now() - begin < std::chrono::seconds(10);
      int status = 0;
      bool isPiped = true;
      for (const int pid : {first, second}) {
        ::waitpid(pid, &status, 0);
        isPiped = isPiped && WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE;
      }
      return isQuick && isPiped && !isFlushed;
    })) << bufferSize;
  }
}

TEST(FlushOutput, IsTrueOnceTheCallbackIsDoneWithAllThatWasWritten) {
  StartProcess idle;
  EXPECT_FALSE(idle.flushOutput(-1)) << "there is no child";
  const int pid = idle.addProcess("", "", "exit 0", "", false);
  EXPECT_FALSE(idle.flushOutput(-1)) << "there is no capture";
  ::waitpid(pid, nullptr, 0);
  std::atomic<bool> mayGoOn{false};
  support::SharedText output;
  const auto collect = [&](const std::string& chunk) {
    while (!mayGoOn) ::usleep(1000);
    output.append(chunk);
  };
  const StartProcess process("", "", "printf abcdefgh", "", collect, 3, false);
  ::waitpid(process.pid(), nullptr, 0);
  EXPECT_FALSE(process.flushOutput(0));
  EXPECT_FALSE(process.flushOutput(20));
  mayGoOn = true;
  EXPECT_TRUE(process.flushOutput(-1));
  EXPECT_EQ(output.get(), "abcdefgh");
  EXPECT_TRUE(process.flushOutput(0));

  const StartProcess ended("", "", "echo unread", "", collect, 0, false);
  ::waitpid(ended.pid(), nullptr, 0);
  EXPECT_FALSE(ended.flushOutput(-1));
}

// What comes meanwhile is not waited for.
TEST(FlushOutput, EndsWhileOtherCommandsGoOnWriting) {
  std::atomic<bool> isHeard{false};
  const auto listen = [&isHeard](const std::string& chunk) {
    isHeard = isHeard || chunk.find('#') != std::string::npos;
  };
  StartProcess process("", "", "yes", "", listen, 4096, false, true);
  const int writer = process.pid();
  for (int i = 0; i < 20; ++i) {
    isHeard = false;
    const int pid = process.addProcess("", "", "echo '#'", "", false);
    ::waitpid(pid, nullptr, 0);
    EXPECT_TRUE(process.flushOutput(-1));
    EXPECT_TRUE(isHeard);
  }
  ::kill(writer, SIGKILL);
  ::waitpid(writer, nullptr, 0);
}

}  // namespace
