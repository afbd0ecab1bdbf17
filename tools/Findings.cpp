#include "Findings.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace tool {

using pluginsdk::internal::Children;

// Walks a tree and the text that it was parsed from side by side: cJSON does not keep where a value stood.
class Locator {
 public:
  Locator(std::vector<Findings::Entry>& entries, std::string_view text) : m_entries(entries), m_text(text) {
    std::stable_sort(entries.begin(), entries.end(), Before);
    m_found.reserve(entries.size());
  }

  std::vector<Finding> Walk(const cJSON* root) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (m_text.substr(0, kByteOrderMark.size()) == kByteOrderMark) m_at = kByteOrderMark.size();
    Visit(root);
    return std::move(m_found);
  }

 private:
  static bool Before(const Findings::Entry& left, const Findings::Entry& right) {
    return std::less<>()(left.place.node, right.place.node);
  }

  void Visit(const cJSON* item) {
    SkipSpace();
    Tell(item);
    if (cJSON_IsArray(item) || cJSON_IsObject(item)) {
      VisitChildren(item);
    } else if (cJSON_IsString(item)) {
      SkipString();
    } else {
      while (m_at < m_text.size() && !IsSpace() && !IsPunctuation()) ++m_at;
    }
  }

  void VisitChildren(const cJSON* parent) {
    std::size_t index = 0;
    const std::size_t length = m_pointer.size();
    ++m_at;  // the opening bracket
    for (const cJSON* child : Children(parent)) {
      if (cJSON_IsObject(parent)) {
        SkipSpace();
        SkipString();
        SkipSpace();
        ++m_at;  // the colon
        AppendToken(child->string);
      } else {
        AppendToken(std::to_string(index++));
      }
      Visit(child);
      m_pointer.resize(length);
      SkipSpace();
      ++m_at;  // the comma, or the closing bracket
    }
    if (parent->child != nullptr) return;
    SkipSpace();
    ++m_at;
  }

  // "~" and "/" have a meaning in pointers.
  void AppendToken(std::string_view token) {
    m_pointer += '/';
    for (const char c : token) {
      if (c == '~') {
        m_pointer += "~0";
      } else if (c == '/') {
        m_pointer += "~1";
      } else {
        m_pointer += c;
      }
    }
  }

  void Tell(const cJSON* item) {
    Findings::Entry wanted;
    wanted.place.node = item;
    const auto [first, last] = std::equal_range(m_entries.begin(), m_entries.end(), wanted, Before);
    if (first == last) return;
    CountLines();
    const std::size_t length = m_pointer.size();
    for (auto entry = first; entry != last; ++entry) {
      if (entry->place.missing != nullptr) AppendToken(entry->place.missing);
      entry->finding.pointer = m_pointer;
      entry->finding.position = m_position;
      m_found.push_back(std::move(entry->finding));
      m_pointer.resize(length);
    }
  }

  // Goes on from the last position told, so that many of them do not make the walk quadratic.
  void CountLines() {
    const Position further = PositionAt(m_text.substr(m_counted, m_at - m_counted), m_at - m_counted);
    if (further.line > 1) m_position.column = 1;
    m_position.line += further.line - 1;
    m_position.column += further.column - 1;
    m_counted = m_at;
  }

  bool IsSpace() const { return static_cast<unsigned char>(m_text[m_at]) <= ' '; }
  bool IsPunctuation() const { return std::string_view(",]}").find(m_text[m_at]) != std::string_view::npos; }

  void SkipSpace() {
    while (m_at < m_text.size() && IsSpace()) ++m_at;
  }

  void SkipString() {
    for (++m_at; m_at < m_text.size() && m_text[m_at] != '"'; ++m_at) {
      if (m_text[m_at] == '\\') ++m_at;
    }
    ++m_at;
  }

  std::vector<Findings::Entry>& m_entries;
  std::string_view m_text;
  std::size_t m_at = 0;
  std::size_t m_counted = 0;
  Position m_position;
  std::string m_pointer;
  std::vector<Finding> m_found;
};

void Findings::Add(const Place& place, Complaint complaint, bool isWarning) {
  m_entries.push_back({place, {isWarning, std::move(complaint), {}, {}}});
}

std::vector<Finding> Findings::InOrder(const cJSON* root, std::string_view text) && {
  if (m_entries.empty()) return {};
  return Locator(m_entries, text).Walk(root);
}

}  // namespace tool
