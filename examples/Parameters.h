/// @file
/// Parameters as the agent sends them with commands and alarms: {"params":[{"name":...,"value":...}]}.
#pragma once

#include <charconv>
#include <map>
#include <stdexcept>
#include <string>

#include "BasePluginObject.h"

namespace demo {

using Parameters = std::map<std::string, std::string>;

/// A value that is no text counts as "".
inline Parameters ParametersOf(const cJSON* entry) {
  Parameters parameters;
  cJSON* param = nullptr;
  cJSON_ArrayForEach(param, cJSON_GetObjectItem(entry, "params")) {
    parameters[CPluginUtil::GetJSONStringFieldValue(param, "name")] =
        CPluginUtil::GetJSONStringFieldValue(param, "value");
  }
  return parameters;
}

/// A number in the closed range, with nothing before or behind it. A signature says who sent a value, not
/// that it is a sensible one.
/// @throws std::invalid_argument
template <typename Number>
Number NumberFrom(const std::string& text, Number least, Number most) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  // Written so that NaN, which is neither below nor above anything, fails too.
  if (parsed.ec != std::errc() || parsed.ptr != end || !(number >= least && number <= most)) {
    throw std::invalid_argument("no number in range: \"" + text + "\"");
  }
  return number;
}

}  // namespace demo
