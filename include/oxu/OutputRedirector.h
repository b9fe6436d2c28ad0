/// Captures what the host process itself prints: standard output and standard error lead into a pipe, and each chunk
/// that is read from the pipe goes to a callback.
///
///     static oxu::OutputRedirector redirector;  // lives as long as the thread
///     redirector.m_output_callback = [](const std::string& chunk) { sendSomewhere(chunk); };
///     redirector.m_forwarding = true;
///     redirector.open();
///     if (redirector.isRedirected()) std::thread(oxu::OutputRedirector::sendOutToNetwork, &redirector).detach();
///
/// | state          | reached by                         | isRedirected() | readFd() | what the host prints goes     |
/// |----------------|------------------------------------|----------------|----------|-------------------------------|
/// | not redirected | construction, a failed open        | false          | -1       | where it went before          |
/// | redirected     | a successful open                  | true           | read end | into the pipe, and waits      |
/// | forwarding     | sendOutToNetwork                   | true           | read end | to the callback               |
/// | cut off        | a later open that fails            | true           | -1       | into the earlier pipe, unread |
///
/// Threads:
/// - open and redirectStdoutToPipe are called by one thread, while no sendOutToNetwork runs. No other thread launches a
///   command meanwhile: the command might inherit an end of the pipe that is being made.
/// - sendOutToNetwork runs on one thread of the host at a time, and calls the callback there. m_output_callback is not
///   changed meanwhile. The callback must not throw, and the object lives until sendOutToNetwork has returned.
/// - m_forwarding may be written by any thread at any time.
///
/// Traps:
/// - The redirection is never undone. The end of the object leaves the read end open on purpose: without a reader, the
///   next thing that the host prints would raise SIGPIPE.
/// - What the callback itself prints comes back to the callback, without end.
/// - A write never waits for the reader. Once the pipe is full (usually at 64 KiB), a write fails with EAGAIN and stdio
///   loses the text. The same holds for commands that the host launches with its own standard output.
/// - A chunk may end inside a line or a character. Text that stdio holds back arrives when stdio flushes it.
/// - m_forwarding is looked at only after each read. So a host that sets it to false also prints something: that chunk
///   ends the thread, and is dropped.
#ifndef OXU_OUTPUTREDIRECTOR_H
#define OXU_OUTPUTREDIRECTOR_H

#include <atomic>
#include <functional>
#include <string>

#include "oxu/Export.h"

namespace oxu {

class OXU_EXPORT OutputRedirector {
 public:
  /// Makes the pipe and redirects standard output and standard error into it. A second successful call closes the read
  /// end of the first; what was not read from there is lost.
  ///
  /// Prints "Redirecting stdout/stderr to pipes:N", where N is the read end, before it redirects. A fully buffered
  /// standard output delivers that line into the pipe.
  ///
  /// Where the pipe cannot be made, "pipe error: ..." is on standard error and nothing has changed; an earlier
  /// redirection goes on. For any other failure see redirectStdoutToPipe.
  void open();

  /// Makes standard output and standard error copies of `fd`, which stays the caller's, and sets the file behind
  /// `fd` non-blocking. Its other status flags are cleared. The caller's `fd` changes as well.
  ///
  /// False when that fails: "Failed to redirect stdout/stderr" has been printed, and both lead where they did before.
  /// Where only standard error failed, a line-buffered standard output has sent this message to `fd`, and standard
  /// output is closed if there was no free descriptor to save it in.
  bool redirectStdoutToPipe(int fd);

  /// A thread function: hands what arrives in the pipe of `redirector`, an OutputRedirector*, to its callback, in
  /// chunks of 1 to 1024 bytes. Returns null once m_forwarding is found false, once a read fails or finds the end, or
  /// at once where there is no pipe. An empty callback discards the output.
  static void* sendOutToNetwork(void* redirector);

  /// True from the first successful redirection on.
  bool isRedirected() const { return m_redirected; }

  /// The read end of the pipe; -1 before the first open and after a failed redirection.
  int readFd() const { return m_read_fd; }

 private:
  int m_read_fd = -1;
  bool m_redirected = false;

 public:
  /// sendOutToNetwork goes on while this is true. The host sets it before it starts that thread.
  std::atomic<bool> m_forwarding{false};

  /// Gets each chunk of bytes as it was read.
  std::function<void(const std::string&)> m_output_callback;
};

}  // namespace oxu

#endif
