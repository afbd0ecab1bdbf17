// maskText against a plain model, and UTLString_strnstr against a search written in one line.
#include <cstring>

#include <vector>

#include "FuzzSupport.h"

namespace {

// Masks value by value, moving the rest of the text each time. Slow, but it reads like the rule.
std::string Model(std::string text, const std::string& key, const std::string& terminator) {
  if (key.empty() || terminator.empty()) return text;
  std::size_t cursor = 0;
  while (cursor < text.size() && (cursor = text.find(key, cursor)) != std::string::npos) {
    const std::size_t value = cursor + key.size();
    if (value >= text.size()) break;
    const std::size_t end = text.find(terminator, value);
    if (end == std::string::npos) return text.substr(0, value) + "*";
    if (end > value) text.replace(value, end - value, "*");
    const std::size_t behind = end > value ? value + 1 : value;
    // A key that reaches beyond the terminator of the value before it counts, one inside it does not.
    cursor = key.size() < terminator.size() ? behind + terminator.size() - key.size() + 1 : behind;
  }
  return text;
}

// Splits the input at its first two zero bytes: key, terminator, text (which may hold more of them).
bool Split(const std::string& input, std::string& key, std::string& terminator, std::string& text) {
  const std::size_t first = input.find('\0');
  const std::size_t second = first == std::string::npos ? first : input.find('\0', first + 1);
  if (second == std::string::npos) return false;
  key = input.substr(0, first);
  terminator = input.substr(first + 1, second - first - 1);
  text = input.substr(second + 1);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string key;
  std::string terminator;
  std::string text;
  if (!Split(std::string(reinterpret_cast<const char*>(data), size), key, terminator, text)) return 0;

  // A heap block of exactly the text's size lets AddressSanitizer see a step beyond it.
  std::vector<char> buffer(text.begin(), text.end());
  const std::size_t found = text.find(key);
  const char* position = UTLString_strnstr(buffer.data(), key.c_str(), buffer.size());
  FUZZ_CHECK(found == std::string::npos ? position == nullptr : position == buffer.data() + found);

  const unsigned long length = maskText(buffer.data(), buffer.size(), key.c_str(), terminator.c_str());
  FUZZ_CHECK(length <= buffer.size());
  FUZZ_CHECK(std::string(buffer.data(), length) == Model(text, key, terminator));
  return 0;
}
