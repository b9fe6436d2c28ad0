#include "config/LineReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace oxu {

namespace {

// Opening a named pipe waits for a writer, and a signal can interrupt that. Opening a directory succeeds; its first
// read fails. No command that the host launches inherits the descriptor.
int openForReading(const std::string& path) {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd == -1 && errno == EINTR);
  return fd;
}

ssize_t readSome(int fd, char* data, std::size_t size) {
  ssize_t received = -1;
  do {
    received = ::read(fd, data, size);
  } while (received == -1 && errno == EINTR);
  return received;
}

}  // namespace

LineReader::LineReader(const std::string& path) : m_fd(openForReading(path)) {}

LineReader::~LineReader() {
  if (isOpen()) ::close(m_fd);
}

bool LineReader::isOpen() const { return m_fd != -1; }

// Each search goes on where the previous one ended, so that each byte is looked at once.
bool LineReader::next(std::string_view& line) {
  do {
    m_searched = std::min(std::string_view(m_buffer.data(), m_end).find('\n', m_searched), m_end);
  } while (m_searched == m_end && fill());
  const bool atTheEnd = m_searched == m_end;
  if (atTheEnd && (m_failed || m_begin == m_end)) return false;
  line = {m_buffer.data() + m_begin, m_searched - m_begin};
  m_begin = m_searched = atTheEnd ? m_end : m_searched + 1;
  return true;
}

// Reads more bytes behind those in the buffer; false when there are none.
bool LineReader::fill() {
  makeRoom();
  const ssize_t received = readSome(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
  m_failed = received < 0;
  if (received <= 0) return false;
  m_end += static_cast<std::size_t>(received);
  return true;
}

// Moves the current line to the front of the buffer, at most once per line. Doubles the buffer where the line fills it.
// So the work stays proportional to the bytes, however long a line is and however small its pieces are.
void LineReader::makeRoom() {
  if (m_begin > 0) std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
  m_searched -= m_begin;
  m_end -= m_begin;
  m_begin = 0;
  if (m_end == m_buffer.size()) m_buffer.resize(std::max(kBlockBytes, 2 * m_buffer.size()));
}

}  // namespace oxu
