#include "VerifyCauses.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <new>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "BasePluginObject.h"
#include "JsonBuild_internal.h"
#include "JsonTokens.h"

namespace tool {

namespace {

using namespace pluginsdk::internal;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kCapitalHex = "0123456789ABCDEF";

// Fewer than 400 attempts are made: a fraction of a second with the system's own signatures. It is more for
// costly ones and for very long texts.
constexpr std::chrono::seconds kPatience(3);

// ---- Changes of the text

std::string Replaced(std::string text, std::string_view what, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string_view Trimmed(std::string_view text, std::string_view front, std::string_view end) {
  text.remove_prefix(std::min(text.find_first_not_of(front), text.size()));
  const std::size_t last = text.find_last_not_of(end);
  return last == std::string_view::npos ? "" : text.substr(0, last + 1);
}

std::string Printed(const cJSON* tree, bool indented) {
  const JsonText text = Print(tree, indented);
  if (text == nullptr) throw std::bad_alloc();
  return text.get();
}

std::string WithMethod(const Suspect& suspect, const std::string& text, const std::string& method) {
  return Replaced(text, '"' + suspect.method + '"', '"' + method + '"');
}

std::string NameOf(const std::string& method) {
  const std::size_t slash = method.rfind('/');
  return slash == std::string::npos ? method : method.substr(slash + 1);
}

// The changes of a pair are made in this order; two of the same step are no pair.
enum class Step { kPrinting, kMethod, kSpelling, kEnds };

// `undo` makes what was signed of what came.
struct TextRow {
  Step step;
  const char* cause;
  const char* remedy;
  std::string (*undo)(const Suspect& suspect, const std::string& text);
};
using S = const Suspect&;
using Text = const std::string&;

constexpr const char* kSendAsSigned = "send the very bytes that were signed";
constexpr const char* kNothingBehind = "send the text with nothing behind it (printf %s, not echo)";
constexpr const char* kSignAsSent = "sign the text as it is sent";
constexpr const char* kSignAsReceived =
    "sign the message as receivers see it, with the version in the method";

// A row stands before those that undo its cause and more, so that the narrowest cause is told.
constexpr std::array<TextRow, 23> kTextRows = {{
    {Step::kEnds, "a newline or blanks came behind the text after signing", kNothingBehind,
     [](S, Text text) { return std::string(Trimmed(text, "", kBlanks)); }},
    {Step::kEnds, "a newline or blanks came in front of the text after signing", kSendAsSigned,
     [](S, Text text) { return std::string(Trimmed(text, kBlanks, "")); }},
    {Step::kEnds, "a byte order mark came in front of the text after signing", kSendAsSigned,
     [](S, Text text) { return std::string(Trimmed(text, kByteOrderMark, "")); }},
    {Step::kEnds, "a newline behind the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return text + "\n"; }},
    {Step::kEnds, "CR LF behind the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return text + "\r\n"; }},
    {Step::kEnds, "a byte order mark was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return std::string(kByteOrderMark) + text; }},
    {Step::kEnds, "line ends became CR LF after signing", kSendAsSigned,
     [](S, Text text) { return Replaced(text, "\r\n", "\n"); }},
    {Step::kEnds, "line ends were CR LF when it was signed", kSignAsSent,
     [](S, Text text) { return Replaced(text, "\n", "\r\n"); }},
    {Step::kSpelling, "slashes were escaped as \\/ after signing", "send slashes as they are",
     [](S, Text text) { return WithPlainSlashes(text); }},
    {Step::kSpelling, "slashes were escaped as \\/ when it was signed", "sign slashes as they are sent",
     [](S, Text text) { return WithEscapedSlashes(text); }},
    {Step::kSpelling, "characters were escaped as \\uXXXX after signing", "send characters as they are",
     [](S, Text text) { return WithPlainUnicode(text); }},
    {Step::kSpelling, "characters beyond ASCII were escaped as \\uxxxx when it was signed", kSignAsSent,
     [](S, Text text) { return WithEscapedUnicode(text, kHex); }},
    {Step::kSpelling, "characters beyond ASCII were escaped as \\uXXXX (capital digits) when it was signed",
     kSignAsSent, [](S, Text text) { return WithEscapedUnicode(text, kCapitalHex); }},
    {Step::kSpelling, "slashes and characters were escaped after signing", "send them as they are",
     [](S, Text text) { return WithPlainUnicode(WithPlainSlashes(text)); }},
    {Step::kSpelling, "slashes and characters beyond ASCII were escaped when it was signed", kSignAsSent,
     [](S, Text text) { return WithEscapedUnicode(WithEscapedSlashes(text), kHex); }},
    {Step::kPrinting, "the compact printing was signed, and another one came",
     "send the text that cJSON_PrintUnformatted gives",
     [](S suspect, Text) { return Printed(suspect.tree, false); }},
    {Step::kPrinting, "the indented printing was signed, and another one came",
     "send the text that cJSON_Print gives", [](S suspect, Text) { return Printed(suspect.tree, true); }},
    {Step::kPrinting, "a text without blanks was signed, and another writer printed it again", kSendAsSigned,
     [](S, Text text) {
       return Respaced(text, {"", ""});
     }},
    {Step::kPrinting, "a text with a blank behind each comma and colon was signed, and another one came",
     kSendAsSigned,
     [](S, Text text) {
       return Respaced(text, {"", " "});
     }},
    {Step::kPrinting, "a text indented by two blanks was signed, and another one came", kSendAsSigned,
     [](S, Text text) {
       return Respaced(text, {"  ", " "});
     }},
    {Step::kPrinting, "a text indented by four blanks was signed, and another one came", kSendAsSigned,
     [](S, Text text) {
       return Respaced(text, {"    ", " "});
     }},
    {Step::kMethod, "it was signed with version v1 in the method", kSignAsReceived,
     [](S suspect, Text text) { return WithMethod(suspect, text, "v1/" + NameOf(suspect.method)); }},
    {Step::kMethod, "it was signed without a version in the method", kSignAsReceived,
     [](S suspect, Text text) { return WithMethod(suspect, text, NameOf(suspect.method)); }},
}};

// ---- Changes of the key

struct KeyRow {
  const char* cause;
  const char* remedy;
  std::string_view front;  // bytes that are cut off in front
  std::string_view end;    // and at the end
  std::string_view more;   // what is put behind
};

constexpr std::array<KeyRow, 6> kKeyRows = {{
    {"the key file ends in a newline that is no part of the key", "write it without (printf %s, not echo)",
     "", "\r\n", ""},
    {"the signer's key ends in a newline", "let the signer read its key without it", "", "", "\n"},
    {"the signer's key ends in CR LF", "let the signer read its key without it", "", "", "\r\n"},
    {"the key file has blanks around the key", "write it without", kBlanks, kBlanks, ""},
    {"the key file begins with a byte order mark", "write it without", kByteOrderMark, "", ""},
    {"the key file begins with a byte order mark and ends in a newline", "write it without either",
     kByteOrderMark, "\r\n", ""},
}};

// ---- The search

class Searcher {
 public:
  Searcher(const Suspect& suspect, const AccessKey& key, const Fits& fits)
      : m_suspect(suspect), m_fits(fits) {
    m_keys.emplace_back(key.Bytes());
    for (const KeyRow& row : kKeyRows) {
      m_keys.emplace_back(Trimmed(key.Bytes(), row.front, row.end), row.more);
    }
  }

  bool Complete() const { return m_complete; }

  std::optional<Cause> One() {
    for (const TextRow& row : kTextRows) {
      if (!InTime()) return std::nullopt;
      if (Try(row.undo(m_suspect, m_suspect.text), 0)) return Cause{row.cause, row.remedy};
    }
    for (std::size_t key = 0; key < kKeyRows.size(); ++key) {
      if (Try(m_suspect.text, key + 1)) return Cause{kKeyRows[key].cause, kKeyRows[key].remedy};
    }
    return std::nullopt;
  }

  std::optional<Cause> Pair() {
    for (std::size_t i = 0; i < kTextRows.size(); ++i) {
      const TextRow& row = kTextRows[i];
      const std::string text = row.undo(m_suspect, m_suspect.text);
      for (std::size_t key = 0; key < kKeyRows.size(); ++key) {
        if (!InTime()) return std::nullopt;
        if (Try(text, key + 1)) return Both(row, kKeyRows[key]);
      }
      for (std::size_t j = i + 1; j < kTextRows.size(); ++j) {
        if (TryBoth(row, kTextRows[j])) return Both(row, kTextRows[j]);
      }
    }
    return std::nullopt;
  }

 private:
  template <typename First, typename Second>
  static Cause Both(const First& first, const Second& second) {
    return {std::string(first.cause) + "; and " + second.cause,
            std::string(first.remedy) + "; and " + second.remedy};
  }

  bool TryBoth(const TextRow& one, const TextRow& other) {
    if (one.step == other.step || !InTime()) return false;
    const auto& [first, second] = one.step < other.step ? std::tie(one, other) : std::tie(other, one);
    return Try(second.undo(m_suspect, first.undo(m_suspect, m_suspect.text)), 0);
  }

  bool InTime() {
    m_complete = m_complete && std::chrono::steady_clock::now() - m_start < kPatience;
    return m_complete;
  }

  // Most changes change nothing of a given text or key; what was tried is not tried again.
  bool Try(const std::string& text, std::size_t key) {
    std::string digest;
    if (!CPluginUtil::GetSignDigest(text, &digest)) return false;
    if (m_keys[key].Bytes() == m_keys[0].Bytes()) key = 0;
    if (m_keys[key].Bytes().empty() || !m_tried.emplace(digest, key).second) return false;
    return m_fits(digest, m_keys[key]);
  }

  const Suspect& m_suspect;
  const Fits& m_fits;
  std::deque<AccessKey> m_keys;  // as it is, then one for each row
  std::set<std::pair<std::string, std::size_t>> m_tried;
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  bool m_complete = true;
};

}  // namespace

Search FindCause(const Suspect& suspect, const AccessKey& key, const Fits& fits) {
  Searcher searcher(suspect, key, fits);
  Search search;
  search.cause = searcher.One();
  if (!search.cause) search.cause = searcher.Pair();
  search.complete = searcher.Complete();
  return search;
}

}  // namespace tool
