// CAlarmUpdatePluginJson on arbitrary text, and its queries for every module name in it.
#include <cjson/cJSON.h>

#include <cstring>
#include <set>
#include <stdexcept>

#include "AlertsPluginJson.h"
#include "FuzzSupport.h"
#include "JsonHandle_internal.h"

namespace {

using pluginsdk::internal::Children;
using pluginsdk::internal::JsonPtr;

std::size_t CountAlarms(const CAlarmUpdatePluginJson& update) {
  std::size_t count = 0;
  for (const cJSON* module : update.m_modules) {
    for (const cJSON* alarm : Children(cJSON_GetObjectItem(module, "alarms")))
      count += alarm != nullptr ? 1U : 0U;
  }
  return count;
}

// Each alarm belongs to exactly one module name, so the answers for all names add up to all alarms.
void CheckQueries(CAlarmUpdatePluginJson& update) {
  std::set<std::string> names;
  for (cJSON* module : update.m_modules) {
    names.insert(CPluginUtil::GetJSONStringFieldValue(module, "moduleName"));
  }
  std::size_t found = 0;
  for (const std::string& name : names) {
    found += update.GetAlarms(name).size();
    FUZZ_CHECK(update.GetAlarmsUpdateEpochTime(name) != nullptr);
  }
  FUZZ_CHECK(found == CountAlarms(update));
  if (names.count("no such module") == 0) {
    FUZZ_CHECK(update.GetAlarmsUpdateEpochTime("no such module") == nullptr);
    FUZZ_CHECK(update.GetAlarms("no such module").empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool silenced = (SilenceLog(), true);
  (void)silenced;  // only its initialisation matters
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!IsAffordable(text)) return 0;
  for (const char* key : {"", "key"}) {
    try {
      CAlarmUpdatePluginJson update(text.c_str(), key);
      if (!update.m_validSignature) FUZZ_CHECK(update.m_modules.empty() && update.m_alarmVersion.empty());
      CheckQueries(update);
    } catch (const std::out_of_range&) {
      FUZZ_CHECK(*key != '\0' && std::strstr(text.c_str(), "v2") != nullptr);
    }
  }
  return 0;
}
