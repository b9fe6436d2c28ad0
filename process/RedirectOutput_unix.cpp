#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include "os/os_descriptor.h"
#include "os/os_print.h"
#include "oxu/OutputRedirector.h"

namespace oxu {

namespace {

constexpr std::size_t kChunkBytes = 1024;

void closeBoth(const int (&fds)[2]) {
  ::close(fds[0]);
  ::close(fds[1]);
}

// Makes a pipe whose ends are above 2: the redirection would overwrite or close an end with a standard number.
bool makePipe(int (&fds)[2]) {
  if (!os_descriptor_pipe(fds)) return false;
  if (std::min(fds[0], fds[1]) > STDERR_FILENO) return true;
  const int error = errno;
  closeBoth(fds);
  errno = error;
  return false;
}

// Where standard output led when this was made.
class SavedStdout {
 public:
  SavedStdout() : m_fd(::fileno(stdout)), m_copy(::fcntl(m_fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {}

  ~SavedStdout() {
    if (m_copy != -1) ::close(m_copy);
  }

  SavedStdout(const SavedStdout&) = delete;
  SavedStdout& operator=(const SavedStdout&) = delete;

  int fd() const { return m_fd; }

  // Closes a standard output that was closed before, or that cannot be put back: a write to a closed descriptor fails,
  // while a write to a pipe without a reader would end the host. Flushes nothing: text in the host's buffer stays there
  // and goes to the old place.
  void putBack() const {
    if (::dup2(m_copy, m_fd) == -1) ::close(m_fd);
  }

 private:
  int m_fd;
  int m_copy;
};

// Repeats a read that a signal interrupts.
ssize_t readChunk(int fd, char (&buffer)[kChunkBytes]) {
  ssize_t size = -1;
  do {
    size = ::read(fd, buffer, sizeof buffer);
  } while (size == -1 && errno == EINTR);
  return size;
}

}  // namespace

void OutputRedirector::open() {
  int fds[2];
  if (!makePipe(fds)) {
    os_print_error("pipe error");
    return;
  }
  os_print(stdout, "Redirecting stdout/stderr to pipes:%d\n", fds[0]);
  if (!redirectStdoutToPipe(fds[1])) {
    // The read end of an earlier redirection stays open: the standard descriptors still lead into that pipe, and a
    // write to a pipe without a reader would end the host.
    closeBoth(fds);
    m_read_fd = -1;
    return;
  }
  ::close(fds[1]);
  // Nothing leads into the earlier pipe any more.
  if (m_read_fd != -1) ::close(m_read_fd);
  m_read_fd = fds[0];
}

bool OutputRedirector::redirectStdoutToPipe(int fd) {
  const SavedStdout saved;
  const bool isReplaced = ::dup2(fd, saved.fd()) != -1;
  if (!isReplaced || ::dup2(fd, ::fileno(stderr)) == -1) {
    os_print(stdout, "Failed to redirect stdout/stderr\n");
    if (isReplaced) saved.putBack();
    return false;
  }
  // By number: a host can have given its streams other descriptors.
  ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
  ::fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
  m_redirected = true;
  return true;
}

void* OutputRedirector::sendOutToNetwork(void* redirector) {
  const auto* self = static_cast<OutputRedirector*>(redirector);
  char buffer[kChunkBytes];
  ssize_t size = readChunk(self->m_read_fd, buffer);
  while (self->m_forwarding && size > 0) {
    if (self->m_output_callback) self->m_output_callback(std::string(buffer, static_cast<std::size_t>(size)));
    size = readChunk(self->m_read_fd, buffer);
  }
  return nullptr;
}

}  // namespace oxu
