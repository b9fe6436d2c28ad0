/// Launches a shell command line as a child in a process group of its own, captures what it writes, and kills
/// process groups.
///
/// | state      | reached by                        | pid() | isRunning() | destructor                      |
/// |------------|-----------------------------------|-------|-------------|---------------------------------|
/// | idle       | default construction, failed pipe | -1    | false       | returns at once                 |
/// | running    | successful launch                 | child | true        | ends the reader thread          |
/// | not forked | launching construction, no child  | -1    | false       | waits for the reader to end     |
///
/// Threads:
/// - Each launching object has a reader thread, which calls the output callback, one chunk at a time. The callback must
///   not throw, and must not destroy the object.
/// - pid and isRunning may be called from any thread, the callback included.
/// - Only one thread at a time launches (construction, addProcess) or kills: the password is shared, and a command
///   might inherit the pipe that another launch is making.
/// - A launch reads the host's environment, which no thread changes meanwhile.
///
/// A launch costs the same in a host of any size. The launching thread waits until the shell has been executed; the
/// other threads go on. No handler of pthread_atfork runs. The command has the host's standard
/// input and those descriptors of the host that are not close-on-exec. It starts with no signal blocked. SIGPIPE, and
/// each signal that the host handles, has its default action in the command; other signals that the host ignores stay
/// ignored.
///
/// The child belongs to the host: this class never reaps the child, nor looks at its exit status. ProcessMonitor does
/// both.
///
/// The command writes into a non-blocking pipe, unless blockingOutput is true. A command that writes faster than the
/// callback returns loses output once the pipe is full.
#ifndef OXU_STARTPROCESS_H
#define OXU_STARTPROCESS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "oxu/Export.h"

namespace oxu {

class OXU_EXPORT StartProcess {
 public:
  /// Launches nothing: the object is idle.
  StartProcess();

  /// Runs `command` with /bin/bash -c and hands its standard output and error to `outputCallback`.
  ///
  /// - workDir: the directory to run in; empty for the host's own. The shell sees it unquoted. Where it cannot be
  ///   entered, the command runs in the host's directory.
  /// - envNames: comma-separated names of the host's environment variables to export in front of the command. The shell
  ///   sees the values unquoted, and interprets them. A name that is not set is exported empty.
  /// - command: may hold several commands separated by ';'. $SU_PASSWD$ in it stands for the password, unless
  ///   it is between single quotes or the command is run with sudo.
  /// - password: for sudo. The child gets it as the environment variable __SU_PASSWD__, never on the command line. The
  ///   library keeps it for later kills.
  /// - outputCallback: gets each chunk of bytes as read, on the reader thread. Empty: output is discarded. Where the
  ///   host's stdout is line-buffered or unbuffered, the first lines are each export with its value, the cd and the
  ///   command.
  /// - bufferSize: the largest chunk, in bytes. With 0 the capture ends at the first output, and logs a message.
  /// - needRoot: true runs each of the commands with sudo, unless the host is root. The command is split at each ';'
  ///   for that, even inside quotes.
  /// - blockingOutput: true makes a command that outruns the callback wait, so that it loses nothing, even when run
  ///   with sudo. Where the capture has ended early (a bufferSize of 0, a read error), the command waits until the
  ///   object's end.
  ///
  /// There is no result. Where no child could be made, isRunning() is false, and standard error has "pipe failed: ..."
  /// (then "prepatePipe failed" is on standard output as well) or "fork failed: ...". A shell that cannot be executed
  /// is a child that prints "execvp failed: ...". Where the reader thread cannot be started, nothing is captured. Text
  /// that waits in the host's stdout buffer stays there.
  StartProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
               const std::string& password, std::function<void(const std::string&)> outputCallback,
               unsigned long bufferSize, bool needRoot, bool blockingOutput = false);

  /// Stops the reader thread, which may deliver "Stop Process!\n" at the end of its last chunk, and closes the pipe.
  /// Output that was not read yet is discarded. Returns at the latest 1 second after a running callback has returned.
  ///
  /// The child goes on. Its next write, or a write that waits for room, raises SIGPIPE in it.
  ~StartProcess();

  StartProcess(const StartProcess&) = delete;
  StartProcess& operator=(const StartProcess&) = delete;

  /// Launches a further child, into the pipe that the launching constructor made. Returns the child's process id. Where
  /// no child could be made, returns -1 and closes the pipe, which ends the capture. Not for an object without a pipe:
  /// its child prints "dup2 failed: ..." and ends.
  int addProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
                 const std::string& password, bool needRoot);

  /// Waits until the callback has got all that was written into the pipe before the call, and has returned. True then.
  /// False when `milliseconds` are over (0 only looks, a negative number waits without a limit), when the capture has
  /// ended with bytes unread, and for an object without a child.
  ///
  /// From any thread, while no other thread is in addProcess. Never from the callback, whose return it waits for.
  bool flushOutput(int milliseconds) const;

  /// The process id of the latest child, which is also that of its group; -1 until a launch has succeeded. The callback
  /// can get the first output before that, and see -1.
  int pid() const { return m_pid; }

  /// True from a launch until the object's end, however long the child lives.
  bool isRunning() const { return m_running; }

  /// Sends SIGKILL to the process group of `pid` from a background shell; 0 means the caller's own group. True when
  /// that shell could be started; whether the kill succeeded is not known. False, with a logged message, for a negative
  /// or unknown pid.
  /// - Where the caller is not root, the kill goes through sudo. The password of the latest launching constructor is
  ///   put unescaped between single quotes into the shell's command line, and other users can see it in the process
  ///   list meanwhile.
  /// - The host ignores SIGINT and SIGQUIT while the shell is being started.
  /// - In a host that ignores SIGCHLD the group is killed, and the result is false.
  /// - A process that has left the group, as `setsid` makes it do, survives.
  static bool kill(int pid);

  /// The same for all of `pids` with one shell. Unknown ones are logged and skipped, even all of them. False for an
  /// empty list. Where the
  /// caller is not root, sudo runs the kill of the first group only.
  static bool kill(const std::vector<int>& pids);

 private:
  int initializePipe();
  static void* outputThreadFunc(void* self);
  void stopReadPipe();
  void closePipe();

  struct Reader;
  bool readOnce(Reader& reader);
  long readChunk(int fd, Reader& reader);
  bool countWritten(std::uint64_t& bytes) const;
  int readEnd() const;
  int openWriteEnd() const;

  std::atomic<bool> m_running;
  std::uint64_t m_output_thread;
  unsigned long m_buffer_size;
  std::atomic<int> m_pid;
  int m_pipe_write;
  std::atomic<int> m_pipe_read;  // with a mark in it while the reader thread uses the read end
  std::function<void(const std::string&)> m_output_callback;

  bool m_blocking_output = false;

  std::atomic<std::uint64_t> m_read_turn{0};  // odd while the reader takes bytes out of the pipe and counts them
  std::atomic<std::uint64_t> m_read_bytes{0};
  std::atomic<std::uint64_t> m_passed_bytes{0};  // bytes for which the callback has returned
  std::atomic<bool> m_capture_ended{true};       // true also where no capture has begun

  // Made by the first launch and never destroyed: a host's static objects may launch and kill before and after any
  // other static object exists.
  static std::string* m_su_passwd;
};

}  // namespace oxu

#endif
