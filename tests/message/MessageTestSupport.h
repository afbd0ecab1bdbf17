// Helpers of the message tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "IncomingRequest_internal.h"
#include "JsonHandle_internal.h"
#include "MetricsPluginJson.h"
#include "PluginData.h"
#include "StatesPluginJson.h"
#include "util/LogTestSupport.h"

namespace message_test {

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

using Base = CBasePluginObject;
using States = CStatesPluginJson;
using Metrics = CMetricsPluginJson;
using Events = CEventsPluginJson;
using Alerts = CAlertsPluginJson;
using Acks = CCommandAcksPluginJson;
using Local = CLocalCommandPluginJson;
using Update = CUpdatePluginJson;
constexpr const char* kNone = nullptr;
constexpr cJSON* kNoTree = nullptr;

inline JsonPtr Json(const std::string& text) {
  return JsonPtr(cJSON_Parse(text.c_str()));
}

inline std::string Printed(const cJSON* tree, bool compact = true) {
  const JsonText text(compact ? cJSON_PrintUnformatted(tree) : cJSON_Print(tree));
  return text ? text.get() : "(null)";
}

// Whether the signature of a request holds for this printing of it, which no "v1" in it replaces.
inline bool IsSigned(cJSON* request, bool compact, const char* key = "key") {
  const VerificationLimits limits;
  const std::string method = CPluginUtil::GetJSONStringFieldValue(request, "method");
  return pluginsdk::internal::IsAuthentic(Printed(request, compact).c_str(), method, key, &limits);
}

inline std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

// Compact printing in which time stamps (ten digits) read NOW; deletes the tree.
inline std::string Stamped(cJSON* tree) {
  std::string text = Printed(JsonPtr(tree).get());
  for (const std::string key : {R"("epoch":")", R"("time":")"}) {
    for (std::size_t at = 0; (at = text.find(key, at)) != std::string::npos; at += key.size()) {
      const std::size_t digits = at + key.size();
      if (text.find_first_not_of("0123456789", digits) == digits + 10) text.replace(digits, 10, "NOW");
    }
  }
  return text;
}

// Before anything logs, so that no test meets the warning about a late initialisation.
inline const bool kLogReady = (UTL_LOGInit("message_test", nullptr), true);

// The lines that `action` logs, each from its level tag on, without thread and line number.
template <typename Action>
std::vector<std::string> Logged(Action action) {
  testing::internal::CaptureStdout();
  action();
  std::vector<std::string> lines;
  for (const auto& line : logtest::ParseLines(testing::internal::GetCapturedStdout()))
    lines.push_back(line.tag + "|" + line.file + ":" + line.function + "| " + line.message);
  return lines;
}

// "<number> <text>" of a CPluginException, "- <text>" of any other exception, "nothing" without one; then the
// tree that the call returns is freed.
template <typename Call>
std::string Thrown(Call call) {
  try {
    cJSON_Delete(call());
  } catch (const CPluginException& exception) {
    return std::to_string(exception.getErrorNumber()) + " " + exception.what();
  } catch (const std::exception& exception) {
    return std::string("- ") + exception.what();
  }
  return "nothing";
}

}  // namespace message_test
