/// Takes a byte stream apart into the frames that ProtocolToString (oxu/CApi.h) packs.
///
///     oxu::FrameReader reader;  // one per connection
///     const bool isSound = reader.add(data, size);
///     for (oxu::Frame frame; reader.next(frame);) handle(frame);
///     if (!isSound) closeTheConnection();
///
/// | state  | reached by              | add                             | next                             |
/// |--------|-------------------------|---------------------------------|----------------------------------|
/// | sound  | construction            | true; false where it breaks     | a whole frame, or false          |
/// | broken | an add that broke it    | false, takes nothing            | the frames before, then false    |
///
/// A stream breaks at the first frame
/// - whose length field is below 3, or which is longer than the limit: known from the first 4 bytes of the frame;
/// - whose length field is below 3 + the length of its name: known from the first 7 bytes.
///
/// Nobody knows where the next frame would begin, so a broken reader stays broken.
///
/// Work is proportional to the bytes that arrive, memory to the bytes that are kept, wherever the stream is split.
/// Whole frames are kept until next gives them. A host that takes all of them after each add keeps one unfinished frame
/// at most.
///
/// Where memory runs out, std::bad_alloc passes to the caller. An add that throws has taken nothing; a next that throws
/// leaves its frame in the reader.
///
/// Threads: a reader is used by one thread at a time. A copy is independent.
#ifndef OXU_FRAMEREADER_H
#define OXU_FRAMEREADER_H

#include <cstddef>
#include <string>

#include "oxu/Export.h"

namespace oxu {

struct Frame {
  int type = 0;  ///< 0 to 255
  std::string name;
  std::string body;
};

class OXU_EXPORT FrameReader {
 public:
  /// `maxFrameBytes` is the size of the longest frame that is accepted, its length field included.
  FrameReader(std::size_t maxFrameBytes = 1 << 20);

  // Copied even where it could be moved: a move would leave the source with positions in an empty text.
  FrameReader(const FrameReader&) = default;
  FrameReader& operator=(const FrameReader&) = default;

  /// Takes a copy of the next `size` bytes of the stream. False when these bytes, or earlier ones, break the stream.
  /// Whole frames in front of the break are kept for next.
  bool add(const char* data, std::size_t size);

  /// Gives the next whole frame, in the order of the stream. False when there is none; `frame` is then left as it was.
  bool next(Frame& frame);

  /// True once an add has broken the stream, even while next still has frames to give.
  bool isBroken() const { return m_isBroken; }

  /// The number of bytes after the last whole frame. At the end of a stream they are what has arrived of a frame that
  /// was cut off.
  std::size_t unfinishedBytes() const { return m_bytes.size() - m_wholeEnd; }

 private:
  bool findFrame();
  void dropTaken();

  std::size_t m_maxFrameBytes;
  bool m_isBroken = false;
  std::string m_bytes;
  std::size_t m_taken = 0;     // up to here: frames that next has given
  std::size_t m_wholeEnd = 0;  // up to here: whole frames that next has yet to give; behind it: an unfinished one
};

}  // namespace oxu

#endif
