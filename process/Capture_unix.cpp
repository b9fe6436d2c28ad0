#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "os/os_descriptor.h"
#include "os/os_print.h"
#include "os/os_wait.h"
#include "oxu/CApi.h"
#include "oxu/StartProcess.h"

namespace oxu {

namespace {

constexpr int kPipeBytes = 256 * 1024;
constexpr int kReaderPauseSeconds = 1;
constexpr char kWakeUpText[] = "Stop Process!\n";

// The mark of a read end that the reader thread uses; far above any descriptor number.
constexpr int kInUse = 1 << 30;

// Marks the read end as in use, so that the number is not closed, and given to another file, while the reader is about
// to select or read on it. A failed launch closes the pipe while the reader runs: closePipe then takes the number away,
// and the end of this use closes the read end. Without a mark closePipe closes the read end itself.
class ReadEndUse {
 public:
  explicit ReadEndUse(std::atomic<int>& readEnd) : m_read_end(readEnd), m_fd(readEnd.load()) {
    while (m_fd >= 0 && !m_read_end.compare_exchange_weak(m_fd, m_fd | kInUse)) {
    }
  }

  ~ReadEndUse() {
    int marked = m_fd | kInUse;
    if (m_fd >= 0 && !m_read_end.compare_exchange_strong(marked, m_fd)) ::close(m_fd);
  }

  ReadEndUse(const ReadEndUse&) = delete;
  ReadEndUse& operator=(const ReadEndUse&) = delete;

  int fd() const { return m_fd; }
  bool isClosed() const { return m_fd < 0 || m_read_end.load() != (m_fd | kInUse); }

 private:
  std::atomic<int>& m_read_end;
  int m_fd;
};

// A read set for one descriptor of any number. An fd_set would end at FD_SETSIZE.
class ReadSet {
 public:
  // Makes `fd` the set's only member.
  void hold(int fd) {
    const std::size_t number = static_cast<std::size_t>(fd);
    m_index = number / kWordBits;
    m_bit = 1UL << (number % kWordBits);
    m_words.assign(m_index + 1, 0);
    m_words[m_index] = m_bit;
  }

  fd_set* get() { return reinterpret_cast<fd_set*>(m_words.data()); }
  bool isReadable() const { return (m_words[m_index] & m_bit) != 0; }

 private:
  static constexpr std::size_t kWordBits = 8 * sizeof(unsigned long);
  std::vector<unsigned long> m_words;
  std::size_t m_index = 0;
  unsigned long m_bit = 0;
};

bool failReader(const char* format, int error) {
  push_log(ERROR, format, std::strerror(error));
  return false;
}

}  // namespace

int StartProcess::initializePipe() {
  int fds[2];
  if (!os_descriptor_pipe(fds)) {
    os_print_error("pipe failed");
    return -1;
  }
  m_pipe_write = fds[1];
  m_pipe_read = fds[0];

  int flags = ::fcntl(fds[0], F_GETFL, 0);
  if (flags == -1) {
    push_log(ERROR, "fcntl F_GETFL error: %s", std::strerror(errno));
    flags = 0;
  }
  if (::fcntl(fds[0], F_SETFL, flags | O_NONBLOCK) == -1) {
    push_log(ERROR, "fcntl F_SETFL error: %s", std::strerror(errno));
  }
  // Best effort: the pipe takes larger bursts.
  ::fcntl(fds[1], F_SETPIPE_SZ, kPipeBytes);
  return 0;
}

// What the reader thread owns.
struct StartProcess::Reader {
  std::unique_ptr<char[]> buffer;
  ReadSet set;
};

void* StartProcess::outputThreadFunc(void* argument) {
  auto* self = static_cast<StartProcess*>(argument);
  Reader reader{std::unique_ptr<char[]>(new (std::nothrow) char[self->m_buffer_size]), {}};
  if (!reader.buffer) failReader("Read pipe error: %s", ENOMEM);
  while (reader.buffer && self->m_running && self->readOnce(reader)) {
  }
  self->m_capture_ended = true;
  return nullptr;
}

// One iteration of the reader; false when it is to end.
bool StartProcess::readOnce(Reader& reader) {
  const ReadEndUse readEnd(m_pipe_read);
  if (readEnd.isClosed()) return failReader("Select error: %s", EBADF);

  reader.set.hold(readEnd.fd());
  timeval pause{kReaderPauseSeconds, 0};
  const int ready = ::select(readEnd.fd() + 1, reader.set.get(), nullptr, nullptr, &pause);
  if (ready == -1) return errno == EINTR || failReader("Select error: %s", errno);
  if (ready == 0 || !reader.set.isReadable()) return true;
  if (readEnd.isClosed()) return failReader("Select error: %s", EBADF);

  const long size = readChunk(readEnd.fd(), reader);
  if (size < 0) return errno == EAGAIN || failReader("Read pipe error: %s", errno);
  if (size == 0) {
    push_log(ERROR, "Pipe closed");
    return false;
  }
  if (m_output_callback) {
    m_output_callback(std::string(reader.buffer.get(), static_cast<std::size_t>(size)));
  }
  m_passed_bytes += static_cast<std::uint64_t>(size);
  return true;
}

long StartProcess::readChunk(int fd, Reader& reader) {
  ++m_read_turn;
  const ssize_t size = ::read(fd, reader.buffer.get(), m_buffer_size);
  if (size > 0) m_read_bytes += static_cast<std::uint64_t>(size);
  ++m_read_turn;
  return size;
}

// Stores the number of bytes that have been written into the pipe: those in it and those that were read. False where
// the reader took bytes out meanwhile, which might be in neither number.
bool StartProcess::countWritten(std::uint64_t& bytes) const {
  const std::uint64_t turn = m_read_turn;
  const std::uint64_t read = m_read_bytes;
  int unread = 0;
  if (::ioctl(readEnd(), FIONREAD, &unread) == -1) return false;
  bytes = read + static_cast<std::uint64_t>(unread);
  return turn % 2 == 0 && turn == m_read_turn;
}

bool StartProcess::flushOutput(int milliseconds) const {
  if (m_pid == -1) return false;
  bool isCounted = false;
  bool isPassed = false;
  std::uint64_t written = 0;
  os_wait_until(milliseconds, [&] {
    const bool isOver = m_capture_ended;
    isCounted = isCounted || countWritten(written);
    isPassed = isCounted && m_passed_bytes >= written;
    return isPassed || isOver;
  });
  return isPassed;
}

int StartProcess::readEnd() const { return m_pipe_read & ~kInUse; }

// A write end for the host alone, which never blocks. The flags of m_pipe_write are shared with the commands, which can
// change them. Where the system gives no further end, the result is a copy of m_pipe_write, or -1 where that one is
// meant to block.
int StartProcess::openWriteEnd() const {
  const std::string path = "/proc/self/fd/" + std::to_string(m_pipe_write);
  const int own = os_descriptor_off_standard(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (own != -1 || m_blocking_output) return own;
  ::fcntl(m_pipe_write, F_SETFL, O_NONBLOCK);
  return ::fcntl(m_pipe_write, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

void StartProcess::stopReadPipe() {
  if (::fcntl(m_pipe_write, F_GETFL) == -1) return;
  // A full pipe must not block this thread: a reader that has seen m_running would not empty it any more.
  int writeEnd = openWriteEnd();
  if (::write(writeEnd, kWakeUpText, sizeof kWakeUpText - 1) == -1) push_log(ERROR, "write pipe error");
  os_descriptor_close(writeEnd);
}

void StartProcess::closePipe() {
  int readEnd = m_pipe_read.exchange(-1);
  os_descriptor_close(m_pipe_write);
  // The reader closes a read end in use at the end of its iteration. -1 has every bit set, so a pipe closed before also
  // counts as in use.
  if ((readEnd & kInUse) == 0) os_descriptor_close(readEnd);
}

}  // namespace oxu
