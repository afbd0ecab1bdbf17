#include "JsonFault.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "JsonTokens.h"

namespace tool {

namespace {

// As lenient as cJSON: every byte up to the space is a blank, strings may hold any byte, and numbers are what
// strtod reads. A stricter scanner would tell of faults for which the text was not refused.
class Scanner {
 public:
  Scanner(std::string_view text, bool whole) : m_text(text), m_whole(whole) {}

  std::optional<JsonFault> Scan() {
    if (m_text.substr(0, kByteOrderMark.size()) == kByteOrderMark) m_at = kByteOrderMark.size();
    while (Value()) {
      m_end = m_at;
      while (TakeClosing()) m_end = m_at;
      if (m_open.empty()) break;
      if (!Take(',') || !KeyOfMember()) return m_fault;
    }
    if (!m_fault && m_whole && m_at < m_text.size()) Unexpected();
    return m_fault;
  }

  std::size_t End() const { return m_end; }

 private:
  char Front() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
  bool InObject() const { return m_open.back() == '{'; }

  void SkipBlanks() {
    while (m_at < m_text.size() && static_cast<unsigned char>(m_text[m_at]) <= ' ') ++m_at;
  }

  bool Fail(std::size_t offset, std::string reason) {
    m_fault = JsonFault{offset, std::move(reason)};
    return false;
  }
  bool Unexpected() { return Fail(m_at, UnexpectedAt(m_text, m_at)); }

  bool Take(char c) {
    SkipBlanks();
    if (Front() != c) return Unexpected();
    ++m_at;
    return true;
  }

  bool TakeClosing() {
    SkipBlanks();
    if (m_open.empty() || Front() != (InObject() ? '}' : ']')) return false;
    m_open.pop_back();
    ++m_at;
    return true;
  }

  // Up to the end of the first value that holds no other.
  bool Value() {
    while (true) {
      SkipBlanks();
      const char c = Front();
      if (c != '{' && c != '[') return Scalar(c);
      if (m_open.size() >= CJSON_NESTING_LIMIT) {
        return Fail(m_at, "nested deeper than " + std::to_string(CJSON_NESTING_LIMIT) + " levels");
      }
      m_open += c;
      ++m_at;
      if (TakeClosing()) return true;
      if (!KeyOfMember()) return false;
    }
  }

  bool KeyOfMember() {
    if (!InObject()) return true;
    SkipBlanks();
    return Front() == '"' ? String() && Take(':') : Unexpected();
  }

  bool Scalar(char c) {
    if (c == '"') return String();
    if (c == '-' || (c >= '0' && c <= '9')) return Number();
    for (const std::string_view word : {"null", "true", "false"}) {
      if (m_text.substr(m_at, word.size()) != word) continue;
      m_at += word.size();
      return true;
    }
    return Unexpected();
  }

  bool Number() {
    constexpr std::size_t kLongest = 63;  // bytes of a number that cJSON looks at
    const std::string_view front = m_text.substr(m_at, kLongest);
    const std::string number(front.substr(0, front.find_first_not_of("0123456789+-.eE")));
    char* end = nullptr;
    std::strtod(number.c_str(), &end);
    if (end == number.c_str()) return Unexpected();
    m_at += static_cast<std::size_t>(end - number.c_str());
    return true;
  }

  bool String() {
    const std::size_t begin = m_at++;
    while (m_at < m_text.size()) {
      const char c = m_text[m_at];
      if (c == '\\' && m_at + 1 < m_text.size()) {
        if (!Escape()) return false;
        continue;
      }
      ++m_at;
      if (c == '"') return true;
    }
    return Fail(begin, "not JSON: this string is not closed");
  }

  bool Escape() {
    const std::string_view rest = m_text.substr(m_at);
    if (std::string_view(R"(bfnrt"\/)").find(rest[1]) != std::string_view::npos) {
      m_at += 2;
      return true;
    }
    const Character first = ReadEscape(rest);
    if (first.size == 0) return Fail(m_at, "not JSON: no escape begins like this");
    m_at += first.size;
    const std::uint32_t half = first.code & 0xfc00U;
    if (half != 0xd800 && half != 0xdc00) return true;
    const Character second = ReadEscape(m_text.substr(m_at));
    if (half == 0xdc00 || (second.code & 0xfc00U) != 0xdc00) {
      return Fail(m_at - first.size, "not JSON: half of a surrogate pair");
    }
    m_at += second.size;
    return true;
  }

  std::string_view m_text;
  bool m_whole;
  std::size_t m_at = 0;
  std::size_t m_end = 0;  // of the last value
  std::string m_open;     // the brackets that are
  std::optional<JsonFault> m_fault;
};

}  // namespace

std::optional<JsonFault> FindJsonFault(std::string_view text, bool whole) {
  return Scanner(text, whole).Scan();
}

std::size_t EndOfDocument(std::string_view text) {
  Scanner scanner(text, false);
  scanner.Scan();
  return scanner.End();
}

std::string UnexpectedAt(std::string_view text, std::size_t offset) {
  if (offset >= text.size()) return "not JSON: the text ends";
  const char c = text[offset];
  if (c >= ' ' && c <= '~') return std::string("not JSON: unexpected '") + c + "'";
  std::array<char, sizeof "not JSON: unexpected byte 0xff"> shown;
  std::snprintf(shown.data(), shown.size(), "not JSON: unexpected byte 0x%02x",
                static_cast<unsigned char>(c));
  return shown.data();
}

}  // namespace tool
