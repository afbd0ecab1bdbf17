// CPluginUtil::GetMessageType on arbitrary text: the verdict must follow from what the text parses to.
#include <cjson/cJSON.h>

#include <array>

#include "BasePluginObject.h"
#include "FuzzSupport.h"
#include "JsonHandle_internal.h"

namespace {

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

// The rule, written as plainly as it can be.
std::string Expected(const cJSON* document) {
  if (document == nullptr) return "others";
  if (cJSON_GetObjectItem(document, "error") != nullptr) return "error";
  const char* method = cJSON_GetStringValue(cJSON_GetObjectItem(document, "method"));
  if (method == nullptr) return "others";
  for (const char* word : {"notifyPluginCommand", "notifyPluginAlarmUpdate", "notifyAgentEvent"}) {
    if (std::string(method).find(word) != std::string::npos) return word;
  }
  return "others";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool silenced = (SilenceLog(), true);
  (void)silenced;  // only its initialisation matters
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string type = "untouched";
  const JsonText extra(CPluginUtil::GetMessageType(text.c_str(), &type));
  const JsonPtr document(cJSON_Parse(text.c_str()));
  FUZZ_CHECK(type == Expected(document.get()));
  if (extra) FUZZ_CHECK(type == "error" || type == "notifyAgentEvent");
  if (type == "error") FUZZ_CHECK(extra != nullptr);
  return 0;
}
