/// @file
/// The text of one line: header and message.

#include <sys/types.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "Utl_LogLine_internal.h"
#include "Utl_Log_internal.h"

using pluginsdk::log::Position;
using pluginsdk::log::ThreadText;

namespace {

// With their blanks, which keep most of them in one column. All copied in one size, which is one store each.
struct Tag {
  char text[15];
  unsigned char length;
};
constexpr std::array<Tag, 7> kTags = {{{" TRACE ", 7},
                                       {" DBG   ", 7},
                                       {" INFO  ", 7},
                                       {"!!WRN!!", 7},
                                       {"##ERR##", 7},
                                       {"##CRITICAL##", 12},
                                       {" ALWAYS", 7}}};

template <typename Word>
void CopyEnds(char* to, const char* from, std::size_t size) {
  Word first;
  Word last;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + size - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + size - sizeof last, &last, sizeof last);
}

// At most 16 bytes, by two copies that may overlap: most pieces of a line are shorter than a call is long.
inline void CopyShort(char* to, const char* from, std::size_t size) {
  if (size >= 8) {
    CopyEnds<std::uint64_t>(to, from, size);
  } else if (size >= 4) {
    CopyEnds<std::uint32_t>(to, from, size);
  } else if (size >= 2) {
    CopyEnds<std::uint16_t>(to, from, size);
  } else if (size == 1) {
    *to = *from;
  }
}

// Text of a fixed capacity that keeps what fits and counts on, as snprintf does. The buffer has one byte
// more.
class BoundedText {
 public:
  // The first `length` characters are in the buffer already.
  BoundedText(char* buffer, std::size_t length, std::size_t capacity)
      : m_begin(buffer), m_to(buffer + length), m_end(buffer + capacity) {}

  void Append(std::string_view text) {
    if (text.size() > Left()) {
      AppendPart(text);
      return;
    }
    if (text.size() <= 16) {
      CopyShort(m_to, text.data(), text.size());
    } else {
      std::memcpy(m_to, text.data(), text.size());
    }
    m_to += text.size();
  }

  template <typename Number>
  void AppendNumber(Number number, int base = 10) {
    constexpr std::size_t kLongest = 20;  // of 64 bits, the sign included
    if (Left() >= kLongest) {
      m_to = std::to_chars(m_to, m_end, number, base).ptr;
      return;
    }
    char digits[kLongest];
    const char* const end = std::to_chars(digits, digits + kLongest, number, base).ptr;
    AppendPart({digits, static_cast<std::size_t>(end - digits)});
  }

  // Appends by printf. The length of what cannot be formatted is 0.
  void AppendFormatted(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
    // What is printed after something was left out is left out too.
    const std::size_t room = m_left == 0 ? Left() + 1 : 0;
    const int length = std::vsnprintf(m_to, room, format, arguments);
    const auto formatted = static_cast<std::size_t>(std::max(length, 0));
    const std::size_t kept = std::min(formatted, Left());
    m_to += kept;
    m_left += formatted - kept;
  }

  std::size_t length() const { return static_cast<std::size_t>(m_to - m_begin) + m_left; }

  // The state to come back to when what follows must be taken back.
  struct Mark {
    char* to;
    std::size_t left;
  };
  Mark GetMark() const { return {m_to, m_left}; }
  void GoBack(const Mark& mark) {
    m_to = mark.to;
    m_left = mark.left;
  }

 private:
  std::size_t Left() const { return static_cast<std::size_t>(m_end - m_to); }

  [[gnu::noinline]] void AppendPart(std::string_view text) {
    const std::size_t kept = std::min(text.size(), Left());
    std::memcpy(m_to, text.data(), kept);
    m_to += kept;
    m_left += text.size() - kept;
  }

  char* const m_begin;
  char* m_to;
  char* const m_end;
  std::size_t m_left = 0;  // characters that were left out
};

// An argument list that can be handed on by reference, which a va_list by itself cannot.
struct ArgumentList {
  explicit ArgumentList(va_list from) { va_copy(list, from); }
  ~ArgumentList() { va_end(list); }
  ArgumentList(const ArgumentList&) = delete;
  ArgumentList& operator=(const ArgumentList&) = delete;

  va_list list;
};

// "00" to "99", one behind the other: a pair of digits is one copy of two bytes.
constexpr std::array<char, 200> MakePairs() {
  std::array<char, 200> pairs = {};
  for (std::size_t i = 0; i < pairs.size(); i += 2) {
    pairs[i] = static_cast<char>('0' + i / 20);
    pairs[i + 1] = static_cast<char>('0' + i / 2 % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kPairs = MakePairs();

// `number` is below 100.
char* PutPair(char* to, unsigned number) {
  std::memcpy(to, &kPairs[std::size_t{2} * number], 2);
  return to + 2;
}

// "%02d:%02d:%02d.%06u". The pairs of the fraction do not wait for each other, as single digits would.
char* PutTime(char* to, const UTLTime_CalendarTime& now) {
  const auto micros = static_cast<unsigned>(now.usec) % 1000000;
  to = PutPair(to, static_cast<unsigned>(now.hour) % 100);
  *to++ = ':';
  to = PutPair(to, static_cast<unsigned>(now.min) % 100);
  *to++ = ':';
  to = PutPair(to, static_cast<unsigned>(now.sec) % 100);
  *to++ = '.';
  to = PutPair(to, micros / 10000);
  to = PutPair(to, micros / 100 % 100);
  return PutPair(to, micros % 100);
}

// Copies all of `from`, though only `length` characters of it count: a copy of a fixed size is no call.
template <std::size_t Size>
char* PutPadded(char* to, const char (&from)[Size], std::size_t length) {
  std::memcpy(to, from, Size);
  return to + length;
}

// "%02d:%02d:%02d.%06u%s|%lu|", at most 49 characters. `to` has room for 255.
char* PutPrefix(char* to, UTL_LOGLevel level, const UTLTime_CalendarTime& now, const ThreadText& thread) {
  const Tag& tag = kTags[static_cast<std::size_t>(level)];
  to = PutTime(to, now);
  to = PutPadded(to, tag.text, tag.length);
  *to++ = '|';
  to = PutPadded(to, thread.digits, thread.length);
  *to++ = '|';
  return to;
}

// Which of the eight bytes of `word` equal `wanted`: the top bit of each that does.
constexpr std::uint64_t BytesEqual(std::uint64_t word, unsigned char wanted) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kLowBits = 0x7f7f7f7f7f7f7f7f;
  const std::uint64_t different = word ^ (kOnes * wanted);
  return ~(((different & kLowBits) + kLowBits) | different | kLowBits);
}

// Looks at eight bytes at a time, from the end: names are short, and either separator counts.
std::string_view FilePart(std::string_view path) {
  std::size_t begin = path.size();
  for (std::uint64_t word = 0; begin >= sizeof word; begin -= sizeof word) {
    std::memcpy(&word, path.data() + begin - sizeof word, sizeof word);
    const std::uint64_t separators = BytesEqual(word, '/') | BytesEqual(word, '\\');
    if (separators != 0) {  // the last byte of the text is the highest of the word
      return path.substr(begin - static_cast<std::size_t>(__builtin_clzll(separators)) / 8);
    }
  }
  while (begin > 0 && path[begin - 1] != '/' && path[begin - 1] != '\\') {
    --begin;
  }
  return path.substr(begin);
}

// "%s:%d:%s| "
void AppendPosition(BoundedText& text, const Position& position) {
  text.Append(position.file == nullptr ? "*" : FilePart(position.file));
  text.Append(":");
  text.AppendNumber(position.line);
  text.Append(":");
  text.Append(position.function == nullptr ? "<n/a>" : position.function);
  text.Append("| ");
}

enum class Length { kInt, kLong, kLongLong, kSize };

// Reads the length of a conversion and leaves `at` behind it.
Length ReadLength(const char*& at) {
  if (*at == 'z') {
    ++at;
    return Length::kSize;
  }
  if (*at != 'l') {
    return Length::kInt;
  }
  ++at;
  if (*at != 'l') {
    return Length::kLong;
  }
  ++at;
  return Length::kLongLong;
}

// The argument of this length, signed or unsigned as the types are.
template <typename Int, typename Long, typename LongLong, typename Size>
LongLong NumberOf(Length length, ArgumentList& arguments) {
  if (length == Length::kInt) {
    return va_arg(arguments.list, Int);
  }
  if (length == Length::kLong) {
    return va_arg(arguments.list, Long);
  }
  if (length == Length::kSize) {
    return va_arg(arguments.list, Size);
  }
  return va_arg(arguments.list, LongLong);
}

long long SignedOf(Length length, ArgumentList& arguments) {
  return NumberOf<int, long, long long, ssize_t>(length, arguments);
}

unsigned long long UnsignedOf(Length length, ArgumentList& arguments) {
  return NumberOf<unsigned, unsigned long, unsigned long long, std::size_t>(length, arguments);
}

// Prints the conversion at `at`, behind its '%', and leaves `at` behind it. False for one that is left to
// vsnprintf, which is any with a flag, a width or a precision, and any but these.
bool AppendConversion(BoundedText& text, const char*& at, ArgumentList& arguments) {
  if (at[0] == '.' && at[1] == '*' && at[2] == 's') {
    at += 3;
    const int precision = va_arg(arguments.list, int);
    const char* const string = va_arg(arguments.list, const char*);
    if (string == nullptr || precision < 0) {
      return false;
    }
    text.Append({string, strnlen(string, static_cast<std::size_t>(precision))});
    return true;
  }
  const Length length = ReadLength(at);
  const char conversion = *at++;
  switch (conversion) {
    case 'd':
    case 'i':
      text.AppendNumber(SignedOf(length, arguments));
      return true;
    case 'u':
      text.AppendNumber(UnsignedOf(length, arguments));
      return true;
    case 'x':
      text.AppendNumber(UnsignedOf(length, arguments), 16);
      return true;
    case 's': {
      if (length != Length::kInt) {
        return false;
      }
      const char* const string = va_arg(arguments.list, const char*);
      text.Append(string == nullptr ? "(null)" : string);
      return true;
    }
    default:
      return false;
  }
}

// A message of plain conversions, which most messages consist of, in a quarter of the time that vsnprintf
// needs. False, with something appended, when there is another one.
bool AppendPlainMessage(BoundedText& text, const char* format, ArgumentList& arguments) {
  for (;;) {
    const char* at = strchrnul(format, '%');
    text.Append({format, static_cast<std::size_t>(at - format)});
    if (*at == '\0') {
      return true;
    }
    if (!AppendConversion(text, ++at, arguments)) {
      return false;
    }
    format = at;
  }
}

// A message without a format is empty.
void AppendMessage(BoundedText& text, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
void AppendMessage(BoundedText& text, const char* format, va_list arguments) {
  if (format == nullptr) {
    return;
  }
  const BoundedText::Mark begin = text.GetMark();
  ArgumentList plainArguments(arguments);
  if (!AppendPlainMessage(text, format, plainArguments)) {
    text.GoBack(begin);
    text.AppendFormatted(format, arguments);
  }
}

}  // namespace

const char* UTL_String_GetFilenamePart(const char* path) {
  return FilePart(path).data();
}

namespace pluginsdk::log {

LineText::LineText(const Position& position, const UTLTime_CalendarTime& now, const ThreadText& thread,
                   LongLine longLine, const char* format, va_list arguments) {
  ArgumentList again(arguments);
  const auto prefix = static_cast<std::size_t>(PutPrefix(m_text, position.level, now, thread) - m_text);
  BoundedText text(m_text, prefix, kShortLine);
  AppendPosition(text, position);
  AppendMessage(text, format, arguments);
  m_size = text.length();
  if (m_size > kShortLine) {
    FormatLong(position, prefix, longLine, format, again.list);
  }
  if (m_text[m_size - 1] != '\n') {  // a header is never empty
    m_text[m_size++] = '\n';
  }
}

// Formats again in full or, when that may not or cannot be, marks what is there as cut.
void LineText::FormatLong(const Position& position, std::size_t prefix, LongLine longLine, const char* format,
                          va_list arguments) {
  if (longLine == LongLine::kWhole) {
    m_long.reset(new (std::nothrow) char[m_size + 1]);
  }
  if (m_long == nullptr) {
    m_size = kShortLine;
    std::memset(m_text + m_size - 3, '.', 3);
    return;
  }
  std::memcpy(m_long.get(), m_text, prefix);
  m_text = m_long.get();
  BoundedText text(m_text, prefix, m_size);
  AppendPosition(text, position);
  AppendMessage(text, format, arguments);
  // Another thread may have changed a text that is printed; what it grew by is not here.
  m_size = std::min(m_size, text.length());
}

}  // namespace pluginsdk::log
