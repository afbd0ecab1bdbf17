#include "JsonTokens.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace tool {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kPunctuation = "{}[],:";

// Bytes of the string that begins `text`, both quotes included; all of it when the closing one is missing.
std::size_t StringLength(std::string_view text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      return i + 1;
    }
  }
  return text.size();
}

std::size_t TokenLength(std::string_view text) {
  if (text.front() == '"') return StringLength(text);
  if (kPunctuation.find(text.front()) != std::string_view::npos) return 1;
  return std::min(text.find_first_of(" \t\r\n{}[],:\""), text.size());
}

// The text with `change(out, rest)` for what is left of each string; it returns how many bytes it dealt with.
template <typename Change>
std::string WithStrings(std::string_view text, Change change) {
  std::string out;
  out.reserve(text.size());
  std::size_t done = 0;
  for (std::string_view token : Tokens(text)) {
    const auto begin = static_cast<std::size_t>(token.data() - text.data());
    out.append(text, done, begin - done);
    done = begin + token.size();
    if (token.front() != '"') {
      out.append(token);
      continue;
    }
    while (!token.empty()) token.remove_prefix(change(out, token));
  }
  return out.append(text, done);
}

// One character as it stands: an escape is two bytes, of which the second is not looked at.
std::size_t Keep(std::string& out, std::string_view rest) {
  const std::size_t size = rest.front() == '\\' && rest.size() > 1 ? 2 : 1;
  out.append(rest, 0, size);
  return size;
}

bool IsSurrogate(std::uint32_t code, std::uint32_t first) {
  return (code & 0xfffffc00U) == first;
}

void Encode(std::string& out, std::uint32_t code) {
  const auto add = [&](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  const auto tail = [&](int shift) { add(0x80U | (code >> shift & 0x3fU)); };
  if (code < 0x80) return add(code);
  if (code < 0x800) {
    add(0xc0U | code >> 6);
  } else if (code < 0x10000) {
    add(0xe0U | code >> 12);
    tail(6);
  } else {
    add(0xf0U | code >> 18);
    tail(12);
    tail(6);
  }
  tail(0);
}

void AppendEscape(std::string& out, std::uint32_t half, std::string_view digits) {
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += digits[half >> shift & 15U];
}

// Each token is looked at by the object it stands in only, so that deep documents are no slower.
class Sorter {
 public:
  explicit Sorter(std::string_view text) : m_tokens(Tokens(text)), m_closing(m_tokens.size()) {
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < m_tokens.size(); ++i) {
      const char c = m_tokens[i].front();
      if (c == '{' || c == '[') open.push_back(i);
      if ((c != '}' && c != ']') || open.empty()) continue;
      m_closing[open.back()] = i;
      open.pop_back();
    }
  }

  std::string Sorted() {
    if (!m_tokens.empty()) Append(0);
    return std::move(m_out);
  }

 private:
  // The index behind the value that begins at `at`.
  std::size_t Behind(std::size_t at) const { return std::max(at, m_closing[at]) + 1; }

  // As deep as the document, which is not deeper than cJSON allows.
  void Append(std::size_t at) {
    const char c = m_tokens[at].front();
    m_out += m_tokens[at];
    if (c != '{' && c != '[') return;
    const std::size_t step = c == '{' ? 2 : 0;  // from a name to its value
    std::vector<std::size_t> members;
    for (std::size_t i = at + 1; i + step < m_closing[at]; i = Behind(i + step) + 1) members.push_back(i);
    if (c == '{') {
      std::stable_sort(members.begin(), members.end(), [this](std::size_t one, std::size_t other) {
        return m_tokens[one] < m_tokens[other];
      });
    }
    for (const std::size_t member : members) {
      if (member != members.front()) m_out += ',';
      if (c == '{') m_out.append(m_tokens[member]).append(":");
      Append(member + step);
    }
    m_out += c == '{' ? '}' : ']';
  }

  std::vector<std::string_view> m_tokens;
  std::vector<std::size_t> m_closing;  // of each opening bracket, the index of its closing one
  std::string m_out;
};

}  // namespace

Character ReadEscape(std::string_view text) {
  constexpr std::size_t kEscape = 6;  // \uXXXX
  if (text.size() < kEscape || text.substr(0, 2) != "\\u") return {};
  std::uint32_t code = 0;
  const auto [stop, error] = std::from_chars(text.data() + 2, text.data() + kEscape, code, 16);
  if (error != std::errc() || stop != text.data() + kEscape) return {};
  return {code, kEscape};
}

std::vector<std::string_view> Tokens(std::string_view text) {
  std::vector<std::string_view> tokens;
  while (true) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return tokens;
    text.remove_prefix(begin);
    tokens.push_back(text.substr(0, TokenLength(text)));
    text.remove_prefix(tokens.back().size());
  }
}

std::string Respaced(std::string_view text, const Spacing& spacing) {
  std::string out;
  std::size_t depth = 0;
  char previous = '\0';
  const auto startLine = [&] {
    if (spacing.indent.empty()) return;
    out += '\n';
    for (std::size_t i = 0; i < depth; ++i) out += spacing.indent;
  };
  for (const std::string_view token : Tokens(text)) {
    const char c = token.front();
    const bool opened = previous == '{' || previous == '[';
    if (c == '}' || c == ']') {
      depth -= depth > 0 ? 1 : 0;
      if (!opened) startLine();
    } else if (opened || (previous == ',' && !spacing.indent.empty())) {
      startLine();
    } else if (previous == ',' || previous == ':') {
      out += spacing.gap;
    }
    out += token;
    depth += c == '{' || c == '[' ? 1 : 0;
    previous = c;
  }
  return out;
}

std::string WithSortedKeys(std::string_view text) {
  return Sorter(text).Sorted();
}

std::string WithEscapedSlashes(std::string_view text) {
  return WithStrings(text, [](std::string& out, std::string_view rest) {
    if (rest.front() == '/') out += '\\';
    return Keep(out, rest);
  });
}

std::string WithPlainSlashes(std::string_view text) {
  return WithStrings(text, [](std::string& out, std::string_view rest) -> std::size_t {
    if (rest.substr(0, 2) != "\\/") return Keep(out, rest);
    out += '/';
    return 2;
  });
}

std::string WithEscapedUnicode(std::string_view text, std::string_view digits) {
  return WithStrings(text, [digits](std::string& out, std::string_view rest) {
    const Character character = Decode(rest);
    if (character.size <= 1) return Keep(out, rest);
    if (character.size < 4) {
      AppendEscape(out, character.code, digits);
    } else {
      const std::uint32_t beyond = character.code - 0x10000;
      AppendEscape(out, 0xd800 + (beyond >> 10), digits);
      AppendEscape(out, 0xdc00 + (beyond & 0x3ffU), digits);
    }
    return character.size;
  });
}

std::string WithEscapedHtml(std::string_view text) {
  return WithStrings(text, [](std::string& out, std::string_view rest) {
    const Character character = Decode(rest);
    const std::uint32_t code = character.code;
    if (code != '<' && code != '>' && code != '&' && code != 0x2028 && code != 0x2029) return Keep(out, rest);
    AppendEscape(out, code, "0123456789abcdef");
    return character.size;
  });
}

std::string WithPlainUnicode(std::string_view text) {
  return WithStrings(text, [](std::string& out, std::string_view rest) {
    Character character = ReadEscape(rest);
    if (IsSurrogate(character.code, 0xd800)) {
      const Character low = ReadEscape(rest.substr(character.size));
      const bool pair = IsSurrogate(low.code, 0xdc00);
      character.code = 0x10000 + ((character.code & 0x3ffU) << 10) + (low.code & 0x3ffU);
      character.size = pair ? character.size + low.size : 0;
    }
    const bool kept = character.code < ' ' || character.code == '"' || character.code == '\\';
    if (character.size == 0 || kept || IsSurrogate(character.code, 0xdc00)) return Keep(out, rest);
    Encode(out, character.code);
    return character.size;
  });
}

std::string ValidUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = Decode(text).size;
    out.append(size == 0 ? "\xef\xbf\xbd" : text.substr(0, size));
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return out;
}

}  // namespace tool
