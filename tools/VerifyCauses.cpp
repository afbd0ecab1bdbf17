#include "VerifyCauses.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <iterator>
#include <new>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "BasePluginObject.h"
#include "JsonBuild_internal.h"
#include "JsonFault.h"
#include "JsonTokens.h"

namespace tool {

namespace {

using namespace pluginsdk::internal;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kCapitalHex = "0123456789ABCDEF";

// At most some hundred attempts are made: a fraction of a second with the system's own signatures. It is more
// for costly ones and for very long texts.
constexpr std::chrono::seconds kPatience(3);

// ---- Changes of the text

std::string Replaced(std::string_view text, std::string_view what, std::string_view by) {
  std::string out;
  std::size_t done = 0;
  for (std::size_t at = 0; (at = text.find(what, done)) != std::string_view::npos; done = at + what.size()) {
    out.append(text, done, at - done).append(by);
  }
  return out.append(text, done);
}

std::string_view Trimmed(std::string_view text, std::string_view front, std::string_view end) {
  text.remove_prefix(std::min(text.find_first_not_of(front), text.size()));
  const std::size_t last = text.find_last_not_of(end);
  return last == std::string_view::npos ? "" : text.substr(0, last + 1);
}

std::string Printed(const Suspect& suspect, const std::string& text, bool indented) {
  const JsonPtr changed = text == suspect.text ? nullptr : pluginsdk::internal::Parse(text.c_str());
  const JsonText printed = Print(changed == nullptr ? suspect.tree : changed.get(), indented);
  if (printed == nullptr) throw std::bad_alloc();
  return printed.get();
}

std::string WithMethod(const Suspect& suspect, const std::string& text, const std::string& method) {
  return Replaced(text, '"' + suspect.method + '"', '"' + method + '"');
}

std::string NameOf(const std::string& method) {
  const std::size_t slash = method.rfind('/');
  return slash == std::string::npos ? method : method.substr(slash + 1);
}

// The changes of a pair are made in this order; two of the same step exclude each other.
enum class Step {
  kOrder,
  kPrinting,
  kMethod,
  kPlainSlashes,
  kPlainCharacters,
  kEscapedSlashes,
  kEscapedCharacters,
  kLineEnds,
  kFrontCut,
  kFrontAdded,
  kBehindCut,
  kBehindAdded
};

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
constexpr TextRow kTextRows[] = {
    {Step::kBehindCut, "a newline or blanks came behind the text after signing", kNothingBehind,
     [](S, Text text) { return std::string(Trimmed(text, "", kBlanks)); }},
    {Step::kBehindCut, "something that is no part of the document came behind it after signing",
     kSendAsSigned, [](S, Text text) { return text.substr(0, EndOfDocument(text)); }},
    {Step::kFrontCut, "a newline or blanks came in front of the text after signing", kSendAsSigned,
     [](S, Text text) { return std::string(Trimmed(text, kBlanks, "")); }},
    {Step::kFrontCut, "a byte order mark came in front of the text after signing", kSendAsSigned,
     [](S, Text text) { return std::string(Trimmed(text, kByteOrderMark, "")); }},
    {Step::kBehindAdded, "a newline behind the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return text + "\n"; }},
    {Step::kBehindAdded, "CR LF behind the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return text + "\r\n"; }},
    {Step::kBehindAdded, "a blank behind the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return text + " "; }},
    {Step::kFrontAdded, "a newline in front of the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return "\n" + text; }},
    {Step::kFrontAdded, "a blank in front of the text was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return " " + text; }},
    {Step::kFrontAdded, "a byte order mark was signed too, and did not come", kSignAsSent,
     [](S, Text text) { return std::string(kByteOrderMark) + text; }},
    {Step::kLineEnds, "line ends became CR LF after signing", kSendAsSigned,
     [](S, Text text) { return Replaced(text, "\r\n", "\n"); }},
    {Step::kLineEnds, "line ends were CR LF when it was signed", kSignAsSent,
     [](S, Text text) { return Replaced(text, "\n", "\r\n"); }},
    {Step::kPlainSlashes, "slashes were escaped as \\/ after signing", "send slashes as they are",
     [](S, Text text) { return WithPlainSlashes(text); }},
    {Step::kEscapedSlashes, "slashes were escaped as \\/ when it was signed", "sign slashes as they are sent",
     [](S, Text text) { return WithEscapedSlashes(text); }},
    {Step::kPlainCharacters, "characters were escaped as \\uXXXX after signing",
     "send characters as they are", [](S, Text text) { return WithPlainUnicode(text); }},
    {Step::kEscapedCharacters, "characters beyond ASCII were escaped as \\uxxxx when it was signed",
     kSignAsSent, [](S, Text text) { return WithEscapedUnicode(text, kHex); }},
    {Step::kEscapedCharacters,
     "characters beyond ASCII were escaped as \\uXXXX (capital digits) when it was signed", kSignAsSent,
     [](S, Text text) { return WithEscapedUnicode(text, kCapitalHex); }},
    {Step::kEscapedCharacters, "<, > and & were escaped as \\u003c and the like when it was signed",
     kSignAsSent, [](S, Text text) { return WithEscapedHtml(text); }},
    {Step::kPlainSlashes, "slashes and characters were escaped after signing", "send them as they are",
     [](S, Text text) { return WithPlainUnicode(WithPlainSlashes(text)); }},
    {Step::kEscapedSlashes, "slashes and characters beyond ASCII were escaped when it was signed",
     kSignAsSent, [](S, Text text) { return WithEscapedUnicode(WithEscapedSlashes(text), kHex); }},
    {Step::kPrinting, "the compact printing was signed, and another one came",
     "send the text that cJSON_PrintUnformatted gives",
     [](S suspect, Text text) { return Printed(suspect, text, false); }},
    {Step::kPrinting, "the indented printing was signed, and another one came",
     "send the text that cJSON_Print gives",
     [](S suspect, Text text) { return Printed(suspect, text, true); }},
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
    {Step::kPrinting, "a text indented by tabs, a blank behind each colon, was signed, and another one came",
     kSendAsSigned,
     [](S, Text text) {
       return Respaced(text, {"\t", " "});
     }},
    {Step::kMethod, "it was signed with version v1 in the method", kSignAsReceived,
     [](S suspect, Text text) { return WithMethod(suspect, text, "v1/" + NameOf(suspect.method)); }},
    {Step::kMethod, "it was signed without a version in the method", kSignAsReceived,
     [](S suspect, Text text) { return WithMethod(suspect, text, NameOf(suspect.method)); }},
    {Step::kOrder, "a text with sorted keys was signed, and another order came", kSendAsSigned,
     [](S, Text text) { return WithSortedKeys(text); }},
};

// ---- Changes of the key

// The key file is to blame: these bytes are cut off.
struct KeyCut {
  const char* cause;
  const char* remedy;
  std::string_view front;
  std::string_view end;
};
constexpr KeyCut kKeyCuts[] = {
    {"", "", "", ""},
    {"the key file ends in a newline that is no part of the key", "write it without (printf %s, not echo)",
     "", "\r\n"},
    {"the key file has blanks around the key", "write it without", kBlanks, kBlanks},
    {"the key file begins with a byte order mark", "write it without", kByteOrderMark, ""},
    {"the key file begins with a byte order mark and ends in a newline", "write it without either",
     kByteOrderMark, "\r\n"},
};

// The signer is to blame: it took these bytes for a part of the key.
struct KeyMore {
  const char* cause;
  std::string_view front;
  std::string_view end;
};
constexpr const char* kReadWithout = "let the signer read its key without it";
constexpr KeyMore kKeyMores[] = {
    {"", "", ""},
    {"the signer's key ends in a newline", "", "\n"},
    {"the signer's key ends in CR LF", "", "\r\n"},
    {"the signer's key ends in a blank", "", " "},
    {"the signer's key begins with a blank", " ", ""},
    {"the signer's key begins with a byte order mark", kByteOrderMark, ""},
    {"the signer's key begins with a byte order mark and ends in a newline", kByteOrderMark, "\n"},
};

Cause Both(const Cause& one, const Cause& other) {
  if (one.what.empty() || other.what.empty()) return one.what.empty() ? other : one;
  const std::string remedy = one.remedy == other.remedy ? one.remedy : one.remedy + "; and " + other.remedy;
  return {one.what + "; and " + other.what, remedy};
}

// ---- The search

struct KeyVariant {
  AccessKey key;
  Cause cause;

  KeyVariant(std::string_view bytes, const KeyCut& cut, const KeyMore& more)
      : key(more.front, Trimmed(bytes, cut.front, cut.end), more.end),
        cause(Both({cut.cause, cut.remedy}, {more.cause, *more.cause == '\0' ? "" : kReadWithout})) {}
};

class Searcher {
 public:
  Searcher(const Suspect& suspect, const AccessKey& key, const Fits& fits)
      : m_suspect(suspect), m_fits(fits), m_digest(DigestOf(suspect.text)) {
    for (const KeyCut& cut : kKeyCuts) AddKey(key, cut, kKeyMores[0]);
    for (const KeyMore& more : kKeyMores) AddKey(key, kKeyCuts[0], more);
    m_changedOnce = m_keys.size();
    for (const KeyCut& cut : kKeyCuts) {
      for (const KeyMore& more : kKeyMores) AddKey(key, cut, more);
    }
    m_tried.emplace(m_digest, 0);  // that it does not fit is why there is a search
  }

  bool Complete() const { return m_complete; }

  std::optional<Cause> One() {
    for (const TextRow& row : kTextRows) {
      if (!InTime()) return std::nullopt;
      m_digests.push_back(DigestOf(row.undo(m_suspect, m_suspect.text)));
      if (Try(m_digests.back(), 0)) return CauseOf(row);
    }
    return OfKeys(m_digest, 1, m_changedOnce);
  }

  std::optional<Cause> Two() {
    for (std::size_t i = 0; i < m_digests.size(); ++i) {
      const auto cause = OfKeys(m_digests[i], 1, m_changedOnce);
      if (cause) return Both(CauseOf(kTextRows[i]), *cause);
    }
    const auto cause = OfKeys(m_digest, m_changedOnce, m_keys.size());
    return cause ? cause : OfTexts();
  }

 private:
  static Cause CauseOf(const TextRow& row) { return {row.cause, row.remedy}; }

  static std::string DigestOf(const std::string& text) {
    std::string digest;
    CPluginUtil::GetSignDigest(text, &digest);
    return digest;  // empty for an empty text, which nobody signed
  }

  // Most changes change nothing of a given key.
  void AddKey(const AccessKey& key, const KeyCut& cut, const KeyMore& more) {
    if (Trimmed(key.Bytes(), cut.front, cut.end).empty()) return;
    m_keys.emplace_back(key.Bytes(), cut, more);
    const auto isSame = [this](const KeyVariant& known) {
      return known.key.Bytes() == m_keys.back().key.Bytes();
    };
    if (std::any_of(m_keys.begin(), std::prev(m_keys.end()), isSame)) m_keys.pop_back();
  }

  std::optional<Cause> OfKeys(const std::string& digest, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      if (Try(digest, i)) return m_keys[i].cause;
    }
    return std::nullopt;
  }

  std::optional<Cause> OfTexts() {
    for (const TextRow& one : kTextRows) {
      if (!InTime()) return std::nullopt;
      const std::string text = one.undo(m_suspect, m_suspect.text);
      if (text == m_suspect.text) continue;
      for (const TextRow& next : kTextRows) {
        if (next.step <= one.step || !InTime()) continue;
        if (!Try(DigestOf(next.undo(m_suspect, text)), 0)) continue;
        return &one < &next ? Both(CauseOf(one), CauseOf(next)) : Both(CauseOf(next), CauseOf(one));
      }
    }
    return std::nullopt;
  }

  bool InTime() {
    m_complete = m_complete && std::chrono::steady_clock::now() - m_start < kPatience;
    return m_complete;
  }

  // Most changes change nothing of a given text either; what was tried is not tried again.
  bool Try(const std::string& digest, std::size_t key) {
    if (digest.empty() || !m_tried.emplace(digest, key).second || !InTime()) return false;
    return m_fits(digest, m_keys[key].key);
  }

  const Suspect& m_suspect;
  const Fits& m_fits;
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  std::deque<KeyVariant> m_keys;       // as it is, with one change, with two
  std::size_t m_changedOnce = 0;       // where those with two begin
  const std::string m_digest;          // of the text as it is
  std::vector<std::string> m_digests;  // of the text with one change, for each row
  std::set<std::pair<std::string, std::size_t>> m_tried;
  bool m_complete = true;
};

}  // namespace

Search FindCause(const Suspect& suspect, const AccessKey& key, const Fits& fits) {
  Searcher searcher(suspect, key, fits);
  Search search;
  search.cause = searcher.One();
  if (!search.cause) search.cause = searcher.Two();
  search.complete = searcher.Complete();
  return search;
}

}  // namespace tool
