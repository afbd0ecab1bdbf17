/// @file
/// Reads the in-memory log of another process, alive or dead, out of the bytes of its segment. Nothing here
/// writes to a segment. Safe for concurrent use with the process that stores lines in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Utl_LogRingLayout_internal.h"

namespace ringtool {

enum class HeaderVerdict {
  kConsistent,
  kBeingChanged,   ///< magic all zero: a line was being stored, or a flush under way
  kForeign,        ///< neither the magic nor zero
  kContradictory,  ///< the magic, with positions and count that storing lines cannot lead to
};

/// A sentence's end: "the header is ...".
const char* Describe(HeaderVerdict verdict);

/// One look at a ring.
struct Reading {
  HeaderVerdict verdict = HeaderVerdict::kForeign;
  pluginsdk::ring::State state;
  std::string contents;   ///< stored bytes, oldest first; empty unless the header is consistent
  bool frontCut = false;  ///< the first line of `contents` lacks its beginning
};

/// Reads a segment of pluginsdk::ring::kSegmentSize bytes. A process may go on storing in it: bytes that are
/// overwritten during the look are left out. Waits up to a twentieth of a second for a header that is being
/// changed.
Reading ReadRing(const void* segment);

/// Every byte that the ring holds, whatever the header says, from the write position on and without zeros.
/// The lines in it may be torn, and older than the last flush.
std::string Salvage(const void* segment);

/// What a later reading of the same ring shows for the first time.
struct Fresh {
  std::string_view bytes;   ///< into the contents of the later reading
  bool flushed = false;     ///< the ring was emptied in between
  std::int64_t missed = 0;  ///< bytes that were stored and overwritten in between
};

/// Both readings are consistent ones. The result refers to `current`.
Fresh FreshSince(const Reading& previous, const Reading& current);

/// How many bytes were stored between two states; none when the ring was emptied in between.
std::optional<std::int64_t> StoredBetween(const pluginsdk::ring::State& before,
                                          const pluginsdk::ring::State& after);

}  // namespace ringtool
