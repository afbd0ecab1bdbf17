/// @file
/// Faults on demand: programs that link FaultEngine.cpp allocate memory, call the system and read the clock
/// through it. For programs of one thread.
#pragma once

#include <cstdint>

namespace faults {

/// As an error: the call succeeds in an odd way. A write is cut in half, an entry of a directory has no type;
/// all others fail with EIO.
constexpr int kOdd = 0;

/// Seconds since 1970 that the clock shows, a new microsecond at each look; 0 for the real time.
inline std::int64_t clock = 0;

/// The `nth` call of `call` inside a Window (from 1; 0 for each of them) fails with `error`, as long as this
/// is the `current` one. "malloc" stands for every way to allocate memory.
struct Fault {
  const char* call = "";
  int error = 0;
  int nth = 0;
  int seen = 0;  ///< how often the call was made
};
inline Fault current;

/// Only calls made while one lives meet the fault.
struct Window {
  Window() { isOpen = true; }
  ~Window() { isOpen = false; }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  static inline bool isOpen = false;
};

/// How often `operation` makes the call, which meets no fault meanwhile.
template <typename Operation>
int CountOf(const char* call, Operation operation) {
  current = {call, 0, -1};
  const Window window;
  operation();
  return current.seen;
}

}  // namespace faults
