/// @file
/// A segment of the in-memory log for one test, seen as another process would see it.
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
  TestRing() {
    static int made = 0;
    m_id = ::getpid() * 100 + made++;
  }
  ~TestRing() { ::shm_unlink(name().c_str()); }
  TestRing(const TestRing&) = delete;
  TestRing& operator=(const TestRing&) = delete;

  int id() const { return m_id; }
  std::string name() const { return ringtool::SegmentName(m_id); }

  bool Exists() const { return ringtool::RingSegment::OfName(name()).Bytes() != nullptr; }
  ringtool::Reading Read() const {
    const auto segment = ringtool::RingSegment::OfName(name());
    return segment.Bytes() == nullptr ? ringtool::Reading() : ringtool::ReadRing(segment.Bytes());
  }

 private:
  int m_id;
};

/// The bytes of a segment with this state, magic and all.
inline std::string SegmentBytes(const pluginsdk::ring::State& state, const std::string& ringBytes) {
  std::string bytes(pluginsdk::ring::kSegmentSize, '\0');
  auto& header = *reinterpret_cast<pluginsdk::ring::Header*>(bytes.data());
  header.word = 1;
  pluginsdk::ring::StoreState(header, state);
  pluginsdk::ring::StoreMagic(header, pluginsdk::ring::kMagic);
  bytes.replace(pluginsdk::ring::kRingStart, ringBytes.size(), ringBytes);
  return bytes;
}

}  // namespace logtest
