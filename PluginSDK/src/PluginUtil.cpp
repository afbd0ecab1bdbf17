#include <regex.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

#include "BasePluginObject.h"
#include "JsonBuild_internal.h"
#include "Utl_Log.h"

using namespace pluginsdk::internal;

namespace {

constexpr const char* kSource = "PluginSDK/src/BasePluginObject";

// ---- JSON files

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void EndProcess(const char* reason) {
  std::fputs(reason, stderr);
  std::exit(EXIT_FAILURE);
}

// Size of what can be read as one block; 0 for everything that cannot, such as a directory or a pipe. A
// directory opens like a file and may claim any size, which would end in the wrong message.
std::size_t ReadableSize(std::FILE* file) {
  struct stat status {};
  if (fstat(fileno(file), &status) != 0 || S_ISDIR(status.st_mode)) return 0;
  if (std::fseek(file, 0, SEEK_END) != 0) return 0;
  const long size = std::ftell(file);
  std::rewind(file);
  return size < 0 ? 0 : static_cast<std::size_t>(size);
}

// ---- Formats

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::size_t SkipDigits(std::string_view text, std::size_t from) {
  while (from < text.size() && IsDigit(text[from])) ++from;
  return from;
}

bool MatchesName(std::string_view text) {
  if (text.empty() || !IsLetter(text[0])) return false;
  for (const char c : text.substr(1)) {
    if (!IsLetter(c) && !IsDigit(c) && c != '_' && c != '-') return false;
  }
  return true;
}

bool MatchesVersion(std::string_view text) {
  std::size_t at = 0;
  for (int group = 0; group < 3; ++group) {
    if (group > 0 && (at >= text.size() || text[at++] != '.')) return false;
    const std::size_t end = SkipDigits(text, at);
    if (end == at) return false;
    at = end;
  }
  return at == text.size();
}

bool MatchesOtaCommand(std::string_view text) {
  constexpr std::string_view kPrefix = "otav";
  if (text.size() < kPrefix.size()) return false;
  for (std::size_t i = 0; i < kPrefix.size(); ++i) {
    if ((text[i] | 0x20) != kPrefix[i]) return false;
  }
  const std::size_t end = SkipDigits(text, kPrefix.size());
  return end > kPrefix.size() && end < text.size() && text[end] == '_';
}

// The formats of the vocabulary are matched by hand: compiling one takes a hundred times as long as
// matching a name. Verdicts equal those of the POSIX functions for texts of ASCII characters.
struct KnownFormat {
  std::string_view pattern;
  bool (*matches)(std::string_view);
};
constexpr std::array<KnownFormat, 3> kKnownFormats = {{
    {"^[a-zA-Z][a-zA-Z0-9_-]*$", MatchesName},
    {"^[0-9]+[.][0-9]+[.][0-9]+$", MatchesVersion},
    {"^OTAv[0-9]+_", MatchesOtaCommand},
}};

// What case folding makes of other characters depends on the locale; the POSIX functions decide there.
bool IsAscii(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80U) return false;
  }
  return true;
}

enum class Verdict { kMatch, kMismatch, kBadPattern };

Verdict MatchPosix(const char* text, const char* pattern) {
  regex_t expression;
  // A failed compilation leaves nothing to release: regcomp has given back its own memory by then.
  if (regcomp(&expression, pattern, REG_EXTENDED | REG_ICASE) != 0) return Verdict::kBadPattern;
  regmatch_t position;
  const int result = regexec(&expression, text, 1, &position, 0);
  regfree(&expression);
  return result == REG_NOMATCH ? Verdict::kMismatch : Verdict::kMatch;
}

Verdict Match(const char* text, const std::string& pattern) {
  if (text == nullptr) return Verdict::kMismatch;
  for (const KnownFormat& format : kKnownFormats) {
    if (format.pattern != pattern) continue;
    if (!IsAscii(text)) break;
    return format.matches(text) ? Verdict::kMatch : Verdict::kMismatch;
  }
  return MatchPosix(text, pattern.c_str());
}

// ---- Classification

// In the order of the tests: "notifyPluginCommandAck" is classified as a command too.
constexpr std::array<const char*, 3> kIncomingMethods = {"notifyPluginCommand", "notifyPluginAlarmUpdate",
                                                         "notifyAgentEvent"};
constexpr const char* kAgentEvent = kIncomingMethods[2];

// The printed "params" of an agent event that tells of the server's connectivity, else null.
char* ConnectivityText(const cJSON* document) {
  const cJSON* params = cJSON_GetObjectItem(document, "params");
  if (cJSON_GetObjectItem(params, MessageType::agentEventServerConnectivity.c_str()) == nullptr)
    return nullptr;
  return Print(params, true).release();
}

char* ErrorText(const cJSON* error) {
  JsonText text = Print(error, true);
  UTL_LOGPrint(UTL_LOG_INFO, kSource, __LINE__, "GetMessageType", "Message type: %s, error: %s",
               MessageType::error.c_str(), text ? text.get() : "");
  return text.release();
}

// The class of `document`, and through `extra` the text that goes with it.
const char* Classify(const cJSON* document, char** extra) {
  if (const cJSON* error = cJSON_GetObjectItem(document, "error")) {
    *extra = ErrorText(error);
    return "error";
  }
  const std::string_view method = StringMember(document, "method");
  for (const char* word : kIncomingMethods) {
    if (method.find(word) == std::string_view::npos) continue;
    if (word == kAgentEvent) *extra = ConnectivityText(document);
    return word;
  }
  return "others";
}

}  // namespace

cJSON* CPluginUtil::GetJsonFromFile(std::string path) {
  if (path.empty()) return nullptr;
  FilePtr file(std::fopen(path.c_str(), "re"));
  if (!file) {
    UTL_LOGPrint(UTL_LOG_WRN, kSource, __LINE__, "GetJsonFromFile", "Cannot open %s\n", path.c_str());
    return nullptr;
  }
  const std::size_t size = ReadableSize(file.get());
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[size + 1]);
  if (!buffer) EndProcess("memory alloc fails");
  // Never more than was measured: a file that grows meanwhile is read up to its former size.
  if (std::fread(buffer.get(), size, 1, file.get()) != 1) EndProcess("entire read fails");
  buffer[size] = '\0';
  file.reset();
  return Parse(buffer.get()).release();
}

char* CPluginUtil::Utilityltoa(long value, char* buffer) {
  if (buffer == nullptr) return nullptr;
  constexpr std::size_t kLongest = std::numeric_limits<long>::digits10 + 2;  // one more digit and the sign
  *std::to_chars(buffer, buffer + kLongest, value).ptr = '\0';
  return buffer;
}

std::string CPluginUtil::GetJSONStringFieldValue(cJSON* object, std::string key) {
  return std::string(StringMember(object, key.c_str()));
}

bool CPluginUtil::GetJSONBooleanFieldValue(cJSON* object, std::string key) {
  return cJSON_IsTrue(cJSON_GetObjectItem(object, key.c_str())) != 0;
}

char* CPluginUtil::GetMessageType(const char* text, std::string* type) {
  const JsonPtr document = text == nullptr ? nullptr : Parse(text);
  char* extra = nullptr;
  const char* word = document ? Classify(document.get(), &extra) : "others";
  JsonText owner(extra);  // freed should the assignment throw
  if (type != nullptr) type->assign(word);
  return owner.release();
}

bool CPluginUtil::RegExMatch(const char* text, std::string pattern, bool logMismatch) {
  const Verdict verdict = Match(text, pattern);
  if (verdict == Verdict::kBadPattern) {
    UTL_LOGPrint(UTL_LOG_WRN, kSource, __LINE__, "RegExMatch", "regexp comp error.");
  } else if (verdict == Verdict::kMismatch && logMismatch) {
    UTL_LOGPrint(UTL_LOG_WRN, kSource, __LINE__, "RegExMatch", "\"%s\" doesn't match to %s format.",
                 text == nullptr ? "(null)" : text, pattern.c_str());
  }
  return verdict == Verdict::kMatch;
}

int CPluginUtil::GetNumberDigitsCount(double value) {
  double rest = std::fabs(value);
  // Infinity never falls below 1; it counts like the largest finite number, the longest there is.
  if (std::isinf(rest)) return std::numeric_limits<double>::max_exponent10 + 1;
  int digits = 0;
  for (; rest >= 1.0; rest /= 10.0) ++digits;
  return digits;
}

std::string CPluginUtil::GenerateRandomString(int length) {
  constexpr long kFirst = ' ';
  constexpr long kCharacters = 94;  // from the space to "}"
  std::string text;
  if (length <= 0) return text;
  text.reserve(static_cast<std::size_t>(length));
  for (int i = 0; i < length; ++i) {
    const long now = static_cast<long>(std::time(nullptr));
    const long drawn = std::rand();
    // The generator may draw zero; any remainder will do then, but not a division by it.
    text += static_cast<char>(kFirst + now % (drawn == 0 ? 1 : drawn) % kCharacters);
  }
  return text;
}
