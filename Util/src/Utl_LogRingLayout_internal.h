/// @file
/// Internal, not installed: the bytes of the in-memory log, shared by the facility that writes them and by
/// the tool that reads them after a crash. The layout is a contract with readers outside this process.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace pluginsdk::ring {

constexpr std::uint32_t kSegmentSize = 524288;  // 512 KiB, the size at which a log file is switched too
constexpr std::uint32_t kRingStart = 164;       // offset of the first ring byte, right behind the header
constexpr std::uint32_t kCapacity = kSegmentSize - kRingStart;
constexpr std::size_t kNameSize = 32;         // segment name with its terminator
constexpr const char* kNameFormat = "%s_%d";  // with kNamePrefix and the caller's identifier
constexpr const char* kNamePrefix = "/LOG_Shm";

/// All integers as the processor stores them (little-endian on every supported one).
struct Header {
  std::uint32_t word;           ///< 1 once initialised; never read
  std::uint32_t magic[4];       ///< kMagic while the header is consistent, else all zero
  std::uint32_t readPosition;   ///< offset in the segment of the oldest stored byte
  std::uint32_t writePosition;  ///< offset of the next byte; may equal kSegmentSize
  std::uint8_t wrapped;         ///< 1 once the ring has wrapped since the last flush
  std::uint8_t reserved1[3];
  std::int32_t bytesStored;  ///< length of all lines since the last flush, wrapped or not
  std::uint8_t reserved2[128];
};

/// The bytes 0a 0a 9a fd d0 a4 76 ec aa b3 6a 2d 9a ba 67 26 as four little-endian words.
constexpr std::array<std::uint32_t, 4> kMagic = {0xfd9a0a0aU, 0xec76a4d0U, 0x2d6ab3aaU, 0x2667ba9aU};

static_assert(offsetof(Header, word) == 0);
static_assert(offsetof(Header, magic) == 4);
static_assert(offsetof(Header, readPosition) == 20);
static_assert(offsetof(Header, writePosition) == 24);
static_assert(offsetof(Header, wrapped) == 28);
static_assert(offsetof(Header, reserved1) == 29);
static_assert(offsetof(Header, bytesStored) == 32);
static_assert(offsetof(Header, reserved2) == 36);
static_assert(sizeof(Header) == kRingStart);
static_assert(kCapacity == 524124);

}  // namespace pluginsdk::ring
