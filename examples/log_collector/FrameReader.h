// Puts the frames of one connection together again.
#ifndef LOG_COLLECTOR_FRAMEREADER_H
#define LOG_COLLECTOR_FRAMEREADER_H

#include <functional>
#include <string>

namespace collector {

struct Frame {
  int type = 0;
  std::string name;
  std::string body;
};

// Used by one thread at a time.
class FrameReader {
 public:
  explicit FrameReader(std::function<void(const Frame&)> onFrame) : m_on_frame(std::move(onFrame)) {}

  // Takes the next bytes of the stream, however it was split, and hands on the frames that they complete. False, from
  // then on, for a stream that cannot be right: a name that is longer than its frame or 255 bytes, or a frame of more
  // than 1 MiB.
  bool feed(const char* data, std::size_t size);

  // How many bytes of an incomplete frame there are.
  std::size_t unfinishedBytes() const { return m_bytes.size(); }

 private:
  bool takeFrame(std::size_t& at);

  std::function<void(const Frame&)> m_on_frame;
  std::string m_bytes;
  bool m_is_sound = true;
};

}  // namespace collector

#endif
