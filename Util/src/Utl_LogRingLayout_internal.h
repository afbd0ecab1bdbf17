/// @file
/// Internal, not installed: the bytes of the in-memory log, shared by the facility that writes them and by
/// the tool that reads them after a crash. The layout is a contract with readers outside this process.
#pragma once

#include <array>
#include <atomic>
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

/// The fields that change with every line, as one reader saw them.
struct State {
  std::uint32_t readPosition = kRingStart;
  std::uint32_t writePosition = kRingStart;
  std::uint8_t wrapped = 0;
  std::int32_t bytesStored = 0;  ///< stays at INT32_MAX once that many are stored
};

/// Whether the write position is where that many bytes end. The count stops at its largest value, and then it
/// tells no more; a line that ends exactly at the end leaves the position there, not at the start.
constexpr bool PositionFitsCount(const State& state) {
  return state.bytesStored == INT32_MAX || (state.writePosition - kRingStart) % kCapacity ==
                                               static_cast<std::uint32_t>(state.bytesStored) % kCapacity;
}

/// Whether storing lines can have led to this state.
constexpr bool CanBeTrue(const State& state) {
  if (state.wrapped == 0) {
    return state.readPosition == kRingStart && state.bytesStored >= 0 &&
           static_cast<std::uint32_t>(state.bytesStored) <= kCapacity &&
           state.writePosition == kRingStart + static_cast<std::uint32_t>(state.bytesStored);
  }
  return state.wrapped == 1 && state.readPosition == state.writePosition &&
         state.writePosition >= kRingStart && state.writePosition <= kSegmentSize &&
         state.bytesStored > static_cast<std::int32_t>(kCapacity) && PositionFitsCount(state);
}

// The words of a mapped header are shared with other processes, which may write them at any moment. Each is
// loaded and stored once and as a whole; OrderBarrier keeps what stands before it before what stands behind
// it.

inline void OrderBarrier() {
#if defined(__SANITIZE_THREAD__)
  std::atomic_signal_fence(
      std::memory_order_seq_cst);  // GCC's ThreadSanitizer knows no fence between threads
#else
  std::atomic_thread_fence(std::memory_order_acq_rel);
#endif
}

inline State LoadState(const Header& header) {
  State state;
  state.readPosition = __atomic_load_n(&header.readPosition, __ATOMIC_RELAXED);
  state.writePosition = __atomic_load_n(&header.writePosition, __ATOMIC_RELAXED);
  state.wrapped = __atomic_load_n(&header.wrapped, __ATOMIC_RELAXED);
  state.bytesStored = __atomic_load_n(&header.bytesStored, __ATOMIC_RELAXED);
  return state;
}

inline void StoreState(Header& header, const State& state) {
  __atomic_store_n(&header.readPosition, state.readPosition, __ATOMIC_RELAXED);
  __atomic_store_n(&header.writePosition, state.writePosition, __ATOMIC_RELAXED);
  __atomic_store_n(&header.wrapped, state.wrapped, __ATOMIC_RELAXED);
  __atomic_store_n(&header.bytesStored, state.bytesStored, __ATOMIC_RELAXED);
}

/// The four words at once: a process that is killed leaves all of them or none, where the processor has
/// registers of this size.
using MagicWords = std::uint32_t __attribute__((vector_size(16), aligned(4), may_alias));

inline std::array<std::uint32_t, 4> LoadMagic(const Header& header) {
  const MagicWords words = *reinterpret_cast<const volatile MagicWords*>(header.magic);
  return {words[0], words[1], words[2], words[3]};
}

inline void StoreMagic(Header& header, const std::array<std::uint32_t, 4>& magic) {
  *reinterpret_cast<volatile MagicWords*>(header.magic) = MagicWords{magic[0], magic[1], magic[2], magic[3]};
}

/// To be called before anything of the segment changes, and after it has changed.
inline void BeginChange(Header& header) {
  StoreMagic(header, {});
  OrderBarrier();
}

inline void EndChange(Header& header) {
  OrderBarrier();
  StoreMagic(header, kMagic);
}

}  // namespace pluginsdk::ring
