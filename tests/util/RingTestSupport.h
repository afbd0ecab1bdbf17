/// @file
/// A segment of the in-memory log for one test, seen as another process sees it.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "../../tools/RingReader.h"
#include "../../tools/RingSegment.h"

namespace logtest {

/// An identifier that no other test uses; its segment is removed in the end, whoever made it.
class TestRing {
 public:
  ~TestRing() { ::shm_unlink(name.c_str()); }

  ringtool::Reading Read() const {
    const auto segment = ringtool::RingSegment::OfName(name);
    return segment.Bytes() == nullptr ? ringtool::Reading() : ringtool::ReadRing(segment.Bytes());
  }

  static inline int made = ::getpid() * 100;
  const int id = made++;
  const std::string name = ringtool::SegmentName(id);
  const std::string path = "/dev/shm" + name;
};

/// The bytes of a segment with a valid magic.
inline std::string SegmentBytes(const pluginsdk::ring::State& state, const std::string& ringBytes) {
  std::string bytes(pluginsdk::ring::kSegmentSize, '\0');
  auto& header = *reinterpret_cast<pluginsdk::ring::Header*>(bytes.data());
  pluginsdk::ring::StoreState(header, state);
  pluginsdk::ring::StoreMagic(header, pluginsdk::ring::kMagic);
  return bytes.replace(pluginsdk::ring::kRingStart, ringBytes.size(), ringBytes);
}

}  // namespace logtest
