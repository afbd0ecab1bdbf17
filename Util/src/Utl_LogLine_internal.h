/// @file
/// Internal, not installed: the text of one line.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <memory>

#include "Utl_Log.h"
#include "Utl_time.h"

namespace pluginsdk::log {

constexpr std::size_t kShortLine = 255;  // a line up to here, its newline aside, needs no heap

/// Where in the program a line comes from.
struct Position {
  UTL_LOGLevel level;  ///< one of the enumeration
  const char* file;
  int line;
  const char* function;
};

/// The kernel's id of a thread in digits.
struct ThreadText {
  char digits[23];  ///< no terminator; the rest is of no account
  unsigned char length;
};

enum class LongLine { kWhole, kCut };

/// A formatted line that ends in a newline. One thread at a time.
class LineText {
 public:
  /// @param longLine whether a line beyond kShortLine may be made on the heap; else, and when there is no
  ///   memory, its first 252 characters and "..." are left.
  LineText(const Position& position, const UTLTime_CalendarTime& now, const ThreadText& thread,
           LongLine longLine, const char* format, va_list arguments) __attribute__((format(printf, 6, 0)));
  LineText(const LineText&) = delete;
  LineText& operator=(const LineText&) = delete;

  const char* data() const { return m_text; }
  std::size_t size() const { return m_size; }

 private:
  void FormatLong(const Position& position, std::size_t prefix, LongLine longLine, const char* format,
                  va_list arguments) __attribute__((format(printf, 5, 0)));

  // Both buffers hold one byte more than the text: vsnprintf's terminator first, and then the newline.
  std::array<char, kShortLine + 1> m_short;
  std::unique_ptr<char[]> m_long;
  char* m_text = m_short.data();
  std::size_t m_size;
};

}  // namespace pluginsdk::log
