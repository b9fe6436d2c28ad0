/// Takes a byte stream apart into the frames that ProtocolToString packs, however the stream is split.
///
///     oxu::FrameReader reader;  // one per connection
///     const bool isSound = reader.add(data, size);
///     for (oxu::Frame frame; reader.next(frame);) handle(frame);
///     if (!isSound) closeTheConnection();
///
/// | state  | reached by              | add                             | next                             |
/// |--------|-------------------------|---------------------------------|----------------------------------|
/// | sound  | construction            | true; false where it breaks off | a whole frame, or false          |
/// | broken | add, by what it brought | false, and takes nothing        | the frames before, then false    |
///
/// A stream breaks at the first frame whose length field is below 3, or below 3 + its name, or which is longer than
/// the limit. That is known as soon as the field has arrived: with the first four bytes of the frame, or with seven for
/// the name. Nobody knows where the next frame would begin, so a broken reader stays broken.
///
/// Work is proportional to the bytes that arrive, memory to those that are kept, however they are split. Whole frames
/// are kept until next takes them. A host that takes them all after each add keeps one unfinished frame at most.
///
/// Where memory runs out, std::bad_alloc passes to the caller. add has taken nothing then, and the frame that next was
/// to give is still there. Threads: a reader is used by one at a time. A copy is independent.
#ifndef OXU_FRAMEREADER_H
#define OXU_FRAMEREADER_H

#include <cstddef>
#include <string>

#include "oxu/Export.h"

namespace oxu {

struct Frame {
  int type = 0;  ///< 0 to 255.
  std::string name;
  std::string body;
};

class OXU_EXPORT FrameReader {
 public:
  /// The limit is the size of the longest frame that is accepted, its length field included.
  FrameReader(std::size_t maxFrameBytes = 1 << 20);

  // No move: it would leave the source with positions in a text that is empty.
  FrameReader(const FrameReader&) = default;
  FrameReader& operator=(const FrameReader&) = default;

  /// Takes a copy of the next `size` bytes of the stream. False when they break it, though whole frames may be among
  /// them, and ever after.
  bool add(const char* data, std::size_t size);

  /// Gives the next whole frame, in the order of the stream. False, and `frame` as it was, when there is none.
  bool next(Frame& frame);

  /// True from the `add` that broke the stream, even while there are frames for next.
  bool isBroken() const { return m_isBroken; }

  /// How many of the bytes taken stand behind the last whole frame. At the end of a stream: what has arrived of a
  /// frame that was cut off.
  std::size_t unfinishedBytes() const { return m_bytes.size() - m_wholeEnd; }

 private:
  bool findFrame();
  void dropTaken();

  std::size_t m_maxFrameBytes;
  bool m_isBroken = false;
  // Frames that next has given end at m_taken, those that it has yet to give at m_wholeEnd.
  std::string m_bytes;
  std::size_t m_taken = 0;
  std::size_t m_wholeEnd = 0;
};

}  // namespace oxu

#endif
