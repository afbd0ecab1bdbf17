// Masking: credentials in logged texts become a single asterisk each.

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Utl_Log.h"
#include "Utl_LogMask_internal.h"
#include "Utl_Log_internal.h"

namespace {

struct MaskRow {
  std::string_view key;
  std::string_view terminator;
};

// Applied in this order, each to what the row before left. Names in headers occur in either case, so each
// spelling has a row of its own.
constexpr std::array<MaskRow, 17> kMaskRows = {{
    {"accessTicket: ", "\n"},
    {"devSpecAccessTicket: ", "\n"},
    {"password: ", "\n"},
    {"Password: ", ","},
    {R"(\"password\": \")", R"(\")"},  // JSON inside a JSON string, hence the backslashes
    {"service_ticket: ", "\n"},
    {"serPwd=", "&"},
    {"x-kt-serviceTicket: ", "\n"},
    {"X-kt-serviceTicket: ", "\n"},
    {R"("kelCredentialHeader":)", ","},
    {R"("kevCredentialHeader":)", "}"},
    {R"(\"kelCredentialHeader\":)", ","},
    {R"(\"kevCredentialHeader\":)", "}"},
    {"kel_credential: ", "\n"},
    {R"(,"partnerPassword":")", R"(",)"},
    {R"("partnerPassword":)", "\n"},
    {R"("key":)", "\n"},
}};

// Behind a comma only the password inside its quotes is replaced, which keeps the JSON well formed; the
// second row serves texts in which the first finds nothing.
constexpr std::size_t kPartnerPasswordInJson = 14;
constexpr std::size_t kPartnerPassword = 15;

// printf counts a line in an int and gives up on a longer one; the rest of the range is left to the line's
// header, prefix and suffix.
constexpr std::size_t kLongestLogged = INT_MAX - 16 * 1024 * 1024;

const char* OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

// Offset of the first `needle` in the bytes of `text` from `from` on, npos when there is none.
std::size_t Find(std::string_view text, std::size_t from, std::string_view needle) {
  const char* begin = text.data() + from;
  const void* found = needle.size() == 1 ? std::memchr(begin, needle.front(), text.size() - from)
                                         : ::memmem(begin, text.size() - from, needle.data(), needle.size());
  return found == nullptr ? std::string_view::npos
                          : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

// Masks one row in a single pass: `kept` bytes of the result stand at the front of the buffer while
// `taken` bytes of the text have been dealt with. The result never overtakes the text, so everything
// behind `taken` is still as it was.
std::size_t MaskRowIn(char* buffer, std::size_t length, std::string_view key, std::string_view terminator) {
  const std::string_view text(buffer, length);
  std::size_t kept = 0;
  std::size_t taken = 0;
  const auto keepUpTo = [&](std::size_t end) {
    if (kept != taken) {
      std::memmove(buffer + kept, buffer + taken, end - taken);
    }
    kept += end - taken;
    taken = end;
  };

  // A key may begin with the terminator of the value before it, or with the end of that terminator, as long
  // as it reaches beyond; what lies inside a longer terminator is a part of it.
  const std::size_t overlap = key.size() < terminator.size() ? key.size() - 1 : terminator.size();
  std::size_t cursor = 0;
  while (true) {
    const std::size_t found = Find(text, cursor, key);
    if (found == std::string_view::npos || found + key.size() == length) {
      break;
    }
    const std::size_t value = found + key.size();
    const std::size_t end = std::min(Find(text, value, terminator), length);
    if (end != value) {
      keepUpTo(value);
      buffer[kept++] = '*';
      taken = end;
    }
    if (end == length) {
      break;
    }
    cursor = end + terminator.size() - overlap;
  }
  keepUpTo(length);
  ::explicit_bzero(buffer + kept, length - kept);
  return kept;
}

constexpr bool NoKeyHasAsterisk() {
  for (const MaskRow& row : kMaskRows) {
    if (row.key.find('*') != std::string_view::npos) {
      return false;
    }
  }
  return true;
}
static_assert(NoKeyHasAsterisk(), "masking one row could make the key of another appear");

// A part that several keys share: where it does not occur, none of them does.
constexpr std::array<std::string_view, 5> kSharedParts = {"icket: ", "assword", "redential",
                                                          "serPwd=", R"("key":)"};

constexpr std::size_t SharedPartOf(std::string_view key) {
  std::size_t part = 0;
  while (key.find(kSharedParts[part]) == std::string_view::npos) {
    ++part;
  }
  return part;
}

// Bit i: the key of row i occurs. What does not occur now cannot appear by masking.
std::uint32_t RowsIn(std::string_view text) {
  std::array<std::size_t, kSharedParts.size()> first = {};
  for (std::size_t part = 0; part < first.size(); ++part) {
    first[part] = Find(text, 0, kSharedParts[part]);
  }
  std::uint32_t present = 0;
  for (std::size_t row = 0; row < kMaskRows.size(); ++row) {
    const std::size_t at = first[SharedPartOf(kMaskRows[row].key)];
    if (at == std::string_view::npos) {
      continue;
    }
    const std::size_t from = at - std::min(at, kMaskRows[row].key.size());
    if (Find(text, from, kMaskRows[row].key) != std::string_view::npos) {
      present |= 1U << row;
    }
  }
  return present;
}

}  // namespace

std::size_t pluginsdk::log::MaskCredentials(char* buffer, std::size_t length) {
  const std::uint32_t present = RowsIn({buffer, length});
  bool partnerInJson = false;
  for (std::size_t i = 0; i < kMaskRows.size(); ++i) {
    const MaskRow& row = kMaskRows[i];
    if ((present >> i & 1U) == 0) {
      continue;
    }
    if (i == kPartnerPasswordInJson) {  // asked again: a row before may have masked the key itself
      partnerInJson = Find({buffer, length}, 0, row.key) != std::string_view::npos;
    }
    if (i != kPartnerPassword || !partnerInJson) {
      length = MaskRowIn(buffer, length, row.key, row.terminator);
    }
  }
  return length;
}

unsigned long maskText(char* buffer, unsigned long length, const char* key, const char* terminator) {
  const std::string_view keyBytes = OrEmpty(key);
  const std::string_view terminatorBytes = OrEmpty(terminator);
  if (buffer == nullptr) {
    return 0;
  }
  if (keyBytes.empty() || terminatorBytes.empty()) {
    return length;
  }
  return MaskRowIn(buffer, length, keyBytes, terminatorBytes);
}

char* UTLString_strnstr(const char* haystack, const char* needle, unsigned long length) {
  char* const text = const_cast<char*>(haystack);  // like strstr: the caller knows whether it may write
  const std::string_view wanted = OrEmpty(needle);
  if (text == nullptr || wanted.empty()) {
    return text;
  }
  const std::size_t found = Find({text, length}, 0, wanted);
  return found == std::string_view::npos ? nullptr : text + found;
}

// Never inlined: leak checkers know the copy that stays behind by this function's name.
__attribute__((noinline)) void Util_LogSensitiveString(const char* prefix, const char* text,
                                                       const char* suffix, const char* file, int line,
                                                       const char* function) {
  const int callersErrno = errno;
  const std::string_view original = OrEmpty(text);
  std::string_view masked;
  if (!original.empty()) {
    char* const copy = static_cast<char*>(std::malloc(original.size()));
    errno = callersErrno;
    if (copy == nullptr) {
      UTL_LOGPrint(UTL_LOG_ERR, kLogSource, __LINE__, "Util_LogSensitiveString", "Failed to malloc memory");
      return;
    }
    std::memcpy(copy, original.data(), original.size());
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): callers are told that the copy stays allocated
    masked = {copy, pluginsdk::log::MaskCredentials(copy, original.size())};
  }
  UTL_LOGPrint(UTL_LOG_INFO, file, line, function, "%s%.*s%s", OrEmpty(prefix),
               static_cast<int>(std::min(masked.size(), kLongestLogged)), masked.empty() ? "" : masked.data(),
               OrEmpty(suffix));
}
