/// @file
/// Segments and saved copies of segments, opened for reading only.
#pragma once

#include <string>
#include <vector>

namespace ringtool {

/// A mapping of a whole segment. One thread at a time.
class RingSegment {
 public:
  /// Opens the shared-memory segment of this name, "/LOG_Shm_3" say. After a failure Bytes() is null and
  /// Problem() says why.
  static RingSegment OfName(const std::string& name);
  /// Opens a file that holds the bytes of a segment.
  static RingSegment OfFile(const std::string& path);

  RingSegment(RingSegment&& other) noexcept;
  RingSegment(const RingSegment&) = delete;
  RingSegment& operator=(const RingSegment&) = delete;
  RingSegment& operator=(RingSegment&&) = delete;
  ~RingSegment();

  /// pluginsdk::ring::kSegmentSize bytes, which their owner may change at any moment.
  const void* Bytes() const { return m_bytes; }
  /// Whether it could be opened but is smaller than a segment.
  bool TooShort() const { return m_tooShort; }
  const std::string& Problem() const { return m_problem; }
  /// Whether nobody can open it any more: its name was removed.
  bool Removed() const;

 private:
  explicit RingSegment(int fd);

  int m_fd;
  const void* m_bytes = nullptr;
  bool m_tooShort = false;
  std::string m_problem;
};

/// "/LOG_Shm_3" for 3.
std::string SegmentName(int id);

/// Names of the segments on this machine, sorted.
std::vector<std::string> ListSegments();

}  // namespace ringtool
