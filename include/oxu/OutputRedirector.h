/// Captures what the host process itself prints: standard output and standard error lead into a pipe, and each chunk
/// that is read from it goes to a callback.
///
///     static oxu::OutputRedirector redirector;  // lives as long as the thread
///     redirector.m_output_callback = [](const std::string& chunk) { sendSomewhere(chunk); };
///     redirector.m_forwarding = true;
///     redirector.open();
///     if (redirector.isRedirected()) std::thread(oxu::OutputRedirector::sendOutToNetwork, &redirector).detach();
///
/// | state          | reached by                     | isRedirected() | readFd() | what the host prints goes     |
/// |----------------|--------------------------------|----------------|----------|-------------------------------|
/// | not redirected | construction, failed open      | false          | -1       | where it went before          |
/// | redirected     | successful open                | true           | read end | into the pipe, and waits      |
/// | forwarding     | sendOutToNetwork               | true           | read end | to the callback               |
/// | cut off        | later open, failed redirection | true           | -1       | into the earlier pipe, unread |
///
/// Threads: open and redirectStdoutToPipe are called by one thread, while no sendOutToNetwork runs and no thread
/// launches a command, which might inherit an end of the pipe that is being made. sendOutToNetwork runs on a thread of
/// the host's, one at a time, and calls the callback there. m_output_callback is not changed meanwhile; m_forwarding
/// may be written by any thread at any time. The callback must not throw, and the object must live until
/// sendOutToNetwork has returned.
///
/// Traps:
/// - The redirection is never undone. The object's end leaves the read end open on purpose: without it, the next
///   thing that the host prints would raise SIGPIPE.
/// - What the callback itself prints comes back to it, without end.
/// - The pipe never waits for its reader. Once it is full (64 KiB, usually), a write fails with EAGAIN and stdio loses
///   the text. Commands that the host launches with its own standard output meet the same.
/// - Chunks end anywhere, also inside a line or a character. Text that stdio holds back arrives when it is flushed.
/// - m_forwarding is looked at between two reads only: clearing it takes effect with the output that follows, and
///   that output is dropped. Where it is false at the start, the first chunk is dropped.
#ifndef OXU_OUTPUTREDIRECTOR_H
#define OXU_OUTPUTREDIRECTOR_H

#include <atomic>
#include <functional>
#include <string>

#include "oxu/Export.h"

namespace oxu {

class OXU_EXPORT OutputRedirector {
 public:
  /// Makes the pipe and redirects standard output and standard error into it. Success shows as isRedirected() and a
  /// readFd() other than -1.
  ///
  /// Prints "Redirecting stdout/stderr to pipes:N", where N is the read end, before it redirects; a fully buffered
  /// standard output delivers that line into the pipe. Where the pipe cannot be made, "pipe error: ..." is on
  /// standard error and nothing has changed, also for an earlier redirection; for any other failure see
  /// redirectStdoutToPipe. A second successful call closes the read end of the first; what was not read from it is
  /// lost.
  void open();

  /// Makes standard output and standard error copies of `fd`, which stays the caller's, and sets them non-blocking.
  /// The file's other status flags are cleared. False when that fails: both lead where they did before (standard
  /// output is closed where no descriptor was free to keep it), and "Failed to redirect stdout/stderr" has been
  /// printed. A line-buffered standard output that was replaced already has taken this message to `fd`.
  bool redirectStdoutToPipe(int fd);

  /// Hands what arrives in the pipe of `redirector`, an OutputRedirector*, to its callback, in chunks of 1 to 1024
  /// bytes, until m_forwarding is found false or the read fails or ends (at once where there is no pipe). An empty
  /// callback discards the output. Returns null. The signature is that of a thread function.
  static void* sendOutToNetwork(void* redirector);

  /// True from the first successful redirection on.
  bool isRedirected() const { return m_redirected; }

  /// The read end of the pipe; -1 before the first open and after a failed redirection.
  int readFd() const { return m_read_fd; }

 private:
  int m_read_fd = -1;
  bool m_redirected = false;

 public:
  /// sendOutToNetwork goes on while this is true; the host sets it before it starts that.
  std::atomic<bool> m_forwarding{false};

  /// Gets each chunk of bytes as read.
  std::function<void(const std::string&)> m_output_callback;
};

}  // namespace oxu

#endif
