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
  // The size of the buffer, as long as no line is longer.
  static constexpr std::size_t kBlockBytes = std::size_t{128} * 1024;

  explicit LineReader(const std::string& path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool isOpen() const;

  // Gives the next line, without its line feed. The last line need not have one. The line is valid until the next call.
  // False at the end of the file and on a read error. A line that the error interrupts is lost: half a value would be
  // worse than none.
  bool next(std::string_view& line);

 private:
  bool fill();
  void makeRoom();

  // The buffer holds, one after the other:
  //   0 to m_begin            lines that next has given
  //   m_begin to m_searched   the start of the current line: no line feed is in it
  //   m_searched to m_end     bytes that were read and not searched yet
  //   m_end to its size       room
  std::vector<char> m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_searched = 0;
  std::size_t m_end = 0;
  bool m_failed = false;
  const int m_fd;
};

}  // namespace oxu

#endif
