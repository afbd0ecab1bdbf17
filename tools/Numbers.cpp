#include "Numbers.h"

#include <charconv>
#include <optional>

#include "JsonBuild_internal.h"
#include "JsonTokens.h"

namespace tool {

namespace {

using namespace pluginsdk::internal;

// The value 0.<digits> * 10^exponent in the one form that has neither leading nor trailing zeros.
struct Decimal {
  bool negative = false;
  std::string digits;
  long exponent = 0;

  bool operator==(const Decimal& other) const {
    return negative == other.negative && digits == other.digits && exponent == other.exponent;
  }
};

std::optional<Decimal> ReadDecimal(std::string_view literal) {
  Decimal value;
  value.negative = literal.substr(0, 1) == "-";
  literal.remove_prefix(value.negative ? 1 : 0);
  const std::size_t end = std::min(literal.find_first_of("eE"), literal.size());
  if (end < literal.size()) {
    std::string_view power = literal.substr(end + 1);
    power.remove_prefix(power.substr(0, 1) == "+" ? 1 : 0);
    const auto [stop, error] = std::from_chars(power.data(), power.data() + power.size(), value.exponent);
    if (error != std::errc() || stop != power.data() + power.size()) return std::nullopt;
  }
  const std::size_t whole = std::min(literal.find('.'), end);
  value.digits.append(literal, 0, whole);
  if (whole < end) value.digits.append(literal, whole + 1, end - whole - 1);
  if (value.digits.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  const std::size_t first = value.digits.find_first_not_of('0');
  if (first == std::string::npos) return Decimal();
  value.exponent += static_cast<long>(whole) - static_cast<long>(first);
  value.digits.erase(0, first);
  value.digits.erase(value.digits.find_last_not_of('0') + 1);
  return value;
}

bool IsNumber(std::string_view token) {
  return token.find_first_of("-0123456789") == 0;
}

}  // namespace

std::vector<ChangedNumber> ChangedNumbers(std::string_view text) {
  std::vector<ChangedNumber> changed;
  for (const std::string_view token : Tokens(text)) {
    if (!IsNumber(token)) continue;
    const std::string literal(token);
    const JsonPtr tree(cJSON_Parse(literal.c_str()));
    const JsonText printed = Print(tree.get(), false);
    if (printed == nullptr) continue;
    const auto before = ReadDecimal(token);
    if (before.has_value() && before == ReadDecimal(printed.get())) continue;
    changed.push_back({static_cast<std::size_t>(token.data() - text.data()), literal, printed.get()});
  }
  return changed;
}

}  // namespace tool
