// The lines of a file, one after the other, read in large blocks.
#ifndef CONFIG_LINEREADER_H
#define CONFIG_LINEREADER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace oxu {

// Owns the descriptor from the constructor to the destructor. For one thread.
class LineReader {
 public:
  // What is read at once, and more where a line is longer.
  static constexpr std::size_t kBlockBytes = std::size_t{128} * 1024;

  explicit LineReader(const std::string& path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool isOpen() const;

  // The bytes up to the next line feed, or up to the end of the file when any are left there. The line is
  // valid until the next call. False at the end and on a read error; the error takes the line that it
  // interrupts with it, since half a value is worse than none.
  bool next(std::string_view& line);

 private:
  bool fill();
  void makeRoom();

  // The buffer holds the lines that were handed out, from m_begin the start of the current line, in which
  // there is no line feed before m_searched, and up to m_end what was read.
  std::vector<char> m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_searched = 0;
  std::size_t m_end = 0;
  bool m_failed = false;
  const int m_fd;
};

}  // namespace oxu

#endif
