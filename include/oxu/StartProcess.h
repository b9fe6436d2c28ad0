/// Launches a shell command line as a child in a process group of its own, captures what it writes, and kills
/// process groups.
///
/// | state      | reached by                          | pid() | isRunning() | destructor                   |
/// |------------|-------------------------------------|-------|-------------|------------------------------|
/// | idle       | default construction, failed pipe   | -1    | false       | returns at once              |
/// | running    | successful launch                   | child | true        | ends the reader thread       |
/// | not forked | launching construction, no child    | -1    | false       | waits for the reader to end  |
///
/// Threads: each launching object has a reader thread, which calls the output callback, one chunk at a time. pid
/// and isRunning may be called from any thread, the callback included. Launching constructions and kills share
/// the password and are not made concurrently. The object stays at its address. Its callback must not throw, and
/// must not destroy it. A launch reads the host's environment, which no thread changes meanwhile.
///
/// A launch costs the same in a host of any size. The launching thread waits until the shell has been executed; the
/// others go on. No handler of pthread_atfork runs. The command starts with no signal blocked, with the default action
/// for SIGPIPE and for each signal that the host handles, and ignores what the host ignores otherwise.
///
/// The child belongs to the host: neither the object's end nor the child's own end reaps it (ProcessMonitor does).
/// Its exit status is not looked at.
///
/// What the command writes goes through a non-blocking pipe, unless blockingOutput is asked for. A command that writes
/// faster than the callback returns loses output once the pipe is full.
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
  /// Launches nothing; such an object is idle.
  StartProcess();

  /// Runs `command` with /bin/bash -c and hands its standard output and error to `outputCallback`.
  ///
  /// - workDir: the directory to run in; empty for the host's own. Put in unquoted; where it cannot be entered, the
  ///   command runs in the host's.
  /// - envNames: comma-separated names of the host's environment variables to export in front of the command.
  ///   Values are put in unquoted, so the shell interprets them; a name that is not set is exported empty.
  /// - command: may hold several commands separated by ';'. $SU_PASSWD$ in it stands for the password, unless it
  ///   is run with sudo.
  /// - password: for sudo. It reaches the child as the environment variable __SU_PASSWD__, never on the command
  ///   line, and stays in the process for later kills.
  /// - outputCallback: gets each chunk of bytes as read, on the reader thread. Empty: output is discarded.
  /// - bufferSize: the largest chunk, in bytes. With 0 the capture ends, with a logged message, at the first output.
  /// - needRoot: runs each of the commands with sudo unless the host is root. The command is split at each ';' for
  ///   that, inside quotes as well.
  /// - blockingOutput: a command that outruns the callback waits for it and loses nothing, through sudo as well. Where
  ///   the capture has ended early (a bufferSize of 0, a read error), the command waits until the object's end.
  ///
  /// There is no result: where no child could be made, isRunning() is false afterwards, and "pipe failed: ..." or
  /// "fork failed: ..." is on standard error (and "prepatePipe failed" on standard output for the former). A shell
  /// that cannot be executed is a child that prints "execvp failed: ...". Text that waits in the host's stdout stays
  /// there.
  StartProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
               const std::string& password, std::function<void(const std::string&)> outputCallback,
               unsigned long bufferSize, bool needRoot, bool blockingOutput = false);

  /// Stops the reader thread, which may deliver "Stop Process!\n" as its last chunk, and closes the pipe; output
  /// that was not read yet is discarded. Returns at the latest 1 second after a running callback has returned. The
  /// child goes on; its next write, or the one that waits for room, fails with SIGPIPE.
  ~StartProcess();

  StartProcess(const StartProcess&) = delete;
  StartProcess& operator=(const StartProcess&) = delete;

  /// Launches a further child, into the pipe that the launching constructor made. Returns the child's process id, or -1
  /// when none could be made; the pipe is closed then, which ends the capture.
  int addProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
                 const std::string& password, bool needRoot);

  /// Waits until all that was written into the pipe before the call has been passed to the callback, which has
  /// returned. True then; false when `milliseconds` are over (0 only looks, a negative number waits without a limit),
  /// when the capture has ended with bytes unread, and for an object without a child. From any thread, but never from
  /// the callback itself, whose return it waits for; not while another thread is in addProcess.
  bool flushOutput(int milliseconds) const;

  /// The child's process id, which is also its group's; -1 until a launch succeeded. The first output can reach the
  /// callback before that: its pid() may be -1 still.
  int pid() const { return m_pid; }

  /// True from a launch until the object's end, however long the child lives.
  bool isRunning() const { return m_running; }

  /// Sends SIGKILL to the process group of `pid` from a background shell, through sudo with the password of the
  /// latest launch when the caller is not root. The password stands unescaped between single quotes there, and
  /// other users see it in the process list meanwhile. True when the shell could be started; whether the kill
  /// succeeded is not known. A pid of 0 means the caller's own group. False, with a logged message, for a negative
  /// or unknown pid. The host ignores SIGINT and SIGQUIT while the shell is being started. In a host that ignores
  /// SIGCHLD the group is killed and the result is false. What has left the group, as `setsid` does, survives.
  static bool kill(int pid);

  /// The same for all of `pids` with one shell; unknown ones are logged and skipped. False for an empty list. When
  /// the caller is not root, sudo runs the kill of the first group only.
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
  std::atomic<int> m_pipe_read;  // the reader thread sets a mark in it while it uses it
  std::function<void(const std::string&)> m_output_callback;

  bool m_blocking_output = false;

  std::atomic<std::uint64_t> m_read_turn{0};  // odd while the reader takes bytes out of the pipe and counts them
  std::atomic<std::uint64_t> m_read_bytes{0};
  std::atomic<std::uint64_t> m_passed_bytes{0};  // of those read: the callback has returned
  std::atomic<bool> m_capture_ended{true};       // also where there never was one

  // Made by the first launch, and never destroyed: static objects of a host may launch and kill before and after any
  // other static object exists.
  static std::string* m_su_passwd;
};

}  // namespace oxu

#endif
