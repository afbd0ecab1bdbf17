#include "RingReader.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace ringtool {

namespace ring = pluginsdk::ring;

namespace {

struct Look {
  HeaderVerdict verdict;
  ring::State state;
};

// Storing a line takes far less than a microsecond, a flush some milliseconds.
constexpr int kQuickLooks = 200;
constexpr int kSlowLooks = 25;
constexpr std::chrono::milliseconds kBetweenSlowLooks(2);

// Readings that a busy process spoils, by storing more than a whole ring meanwhile, before we give up.
constexpr int kReadings = 20;

const char* RingBytes(const void* segment) {
  return static_cast<const char*>(segment) + ring::kRingStart;
}

// The magic before and behind the fields, and the fields twice: a whole change in between would show in the
// count.
Look LookOnce(const ring::Header& header) {
  const auto magic = ring::LoadMagic(header);
  ring::OrderBarrier();
  const ring::State state = ring::LoadState(header);
  ring::OrderBarrier();
  const ring::State again = ring::LoadState(header);
  ring::OrderBarrier();
  const bool steady = ring::LoadMagic(header) == magic && again.readPosition == state.readPosition &&
                      again.writePosition == state.writePosition && again.wrapped == state.wrapped &&
                      again.bytesStored == state.bytesStored;
  if (!steady || magic == decltype(magic){}) {
    return {HeaderVerdict::kBeingChanged, state};
  }
  if (magic != ring::kMagic) {
    return {HeaderVerdict::kForeign, state};
  }
  return {ring::CanBeTrue(state) ? HeaderVerdict::kConsistent : HeaderVerdict::kContradictory, state};
}

Look LookAt(const void* segment) {
  const auto& header = *static_cast<const ring::Header*>(segment);
  Look look = LookOnce(header);
  for (int i = 0; look.verdict == HeaderVerdict::kBeingChanged && i < kQuickLooks + kSlowLooks; ++i) {
    if (i < kQuickLooks) {
      std::this_thread::yield();
    } else {
      std::this_thread::sleep_for(kBetweenSlowLooks);
    }
    look = LookOnce(header);
  }
  return look;
}

// The facility begins each line with the time of day, "09:05:01.000042".
bool BeginsWithTime(std::string_view text) {
  constexpr std::string_view pattern = "dd:dd:dd.dddddd";
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(), [](char expected, char actual) {
           return expected == 'd' ? actual >= '0' && actual <= '9' : actual == expected;
         });
}

bool EndsALine(std::string_view text) {
  return text.empty() || text.back() == '\n';
}

// Brings the ring's bytes into the order in which they were stored. `storedMeanwhile` bytes were stored
// while they were copied and may stand where the oldest ones were.
Reading Extract(std::string_view bytes, const ring::State& state, std::int64_t storedMeanwhile) {
  Reading reading;
  reading.verdict = HeaderVerdict::kConsistent;
  reading.state = state;
  const std::size_t end = state.writePosition - ring::kRingStart;
  if (state.wrapped == 1) {
    reading.contents = bytes.substr(end);
  }
  reading.contents += bytes.substr(0, end);

  const auto unused = static_cast<std::int64_t>(bytes.size() - reading.contents.size());
  const auto overwritten = static_cast<std::size_t>(std::max<std::int64_t>(0, storedMeanwhile - unused));
  reading.contents.erase(0, overwritten);
  reading.frontCut = (state.wrapped == 1 || overwritten > 0) && !BeginsWithTime(reading.contents);
  return reading;
}

// One copy of the ring, taken between two looks at the header. A ring that was emptied and filled again
// between them, further than before, goes unnoticed.
Reading ReadOnce(const void* segment) {
  Look before = LookAt(segment);
  for (int i = 0; i < kReadings && before.verdict == HeaderVerdict::kConsistent; ++i) {
    const std::string bytes(RingBytes(segment), ring::kCapacity);
    ring::OrderBarrier();
    const Look after = LookAt(segment);
    if (after.verdict == HeaderVerdict::kConsistent) {
      const auto stored = StoredBetween(before.state, after.state);
      if (stored && *stored <= ring::kCapacity) {
        return Extract(bytes, before.state, *stored);
      }
    }
    before = after;
  }
  Reading reading;
  reading.verdict =
      before.verdict == HeaderVerdict::kConsistent ? HeaderVerdict::kBeingChanged : before.verdict;
  reading.state = before.state;
  return reading;
}

// Whether two readings show the same bytes where both show any; leaves in `first` what both show. Lines end
// in a newline, so a reading that does not is right only if nothing moves.
bool Confirm(Reading& first, const Reading& second) {
  const bool unmoved = second.contents == first.contents;
  const Fresh fresh = FreshSince(first, second);
  if (fresh.flushed || fresh.missed > 0 || (!unmoved && !EndsALine(first.contents))) {
    return false;
  }
  const std::size_t shared = second.contents.size() - fresh.bytes.size();
  if (shared < first.contents.size()) {
    first.contents.erase(0, first.contents.size() - shared);
    first.frontCut = !BeginsWithTime(first.contents);
  }
  return true;
}

}  // namespace

const char* Describe(HeaderVerdict verdict) {
  switch (verdict) {
    case HeaderVerdict::kConsistent:
      return "consistent";
    case HeaderVerdict::kBeingChanged:
      return "not consistent: a line was being stored or the ring flushed";
    case HeaderVerdict::kForeign:
      return "not consistent: it does not carry the magic of an in-memory log";
    case HeaderVerdict::kContradictory:
      break;
  }
  return "not consistent: its positions and its count contradict each other";
}

Reading ReadRing(const void* segment) {
  Reading first = ReadOnce(segment);
  for (int i = 0; i < kReadings && first.verdict == HeaderVerdict::kConsistent; ++i) {
    Reading second = ReadOnce(segment);
    if (second.verdict == HeaderVerdict::kConsistent && Confirm(first, second)) {
      return first;
    }
    first = std::move(second);
  }
  first.contents.clear();
  if (first.verdict == HeaderVerdict::kConsistent) {
    first.verdict = HeaderVerdict::kBeingChanged;
  }
  return first;
}

std::string Salvage(const void* segment) {
  const std::string bytes(RingBytes(segment), ring::kCapacity);
  const std::uint32_t position = ring::LoadState(*static_cast<const ring::Header*>(segment)).writePosition;
  const bool usable = position >= ring::kRingStart && position <= ring::kSegmentSize;
  const std::size_t oldest = usable ? position - ring::kRingStart : 0;
  std::string text = bytes.substr(oldest) + bytes.substr(0, oldest);
  text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
  return text;
}

std::optional<std::int64_t> StoredBetween(const ring::State& before, const ring::State& after) {
  if (before.bytesStored == INT32_MAX && after.bytesStored == INT32_MAX) {
    // The count stands still; the positions tell as long as less than a whole ring was stored.
    return (std::int64_t{after.writePosition} - before.writePosition + ring::kCapacity) % ring::kCapacity;
  }
  const std::int64_t stored = std::int64_t{after.bytesStored} - before.bytesStored;
  return stored < 0 ? std::nullopt : std::optional(stored);
}

Fresh FreshSince(const Reading& previous, const Reading& current) {
  const std::string_view old = previous.contents;
  const std::string_view now = current.contents;
  const auto stored = StoredBetween(previous.state, current.state);
  if (!stored) {
    return {now, true, 0};
  }
  const auto size = static_cast<std::int64_t>(now.size());
  if (*stored > size) {
    return {now, false, *stored - size};
  }
  // What both readings show must be the same bytes; otherwise the ring was emptied and filled again.
  const auto shared = now.size() - static_cast<std::size_t>(*stored);
  const std::size_t compared = std::min(shared, old.size());
  if (old.substr(old.size() - compared) != now.substr(shared - compared, compared)) {
    return {now, true, 0};
  }
  return {now.substr(shared), false, 0};
}

}  // namespace ringtool
