// CCommandPluginJson on arbitrary text, without a key, with one, and with limits.
#include <cjson/cJSON.h>

#include <stdexcept>

#include "CommandAcksPluginJson.h"
#include "FuzzSupport.h"
#include "JsonHandle_internal.h"

namespace {

using pluginsdk::internal::Children;
using pluginsdk::internal::JsonPtr;

bool Contains(const std::string& text, const char* word) {
  return text.find(word) != std::string::npos;
}

void CheckInvalidIsEmpty(const CCommandPluginJson& command) {
  if (command.m_validSignature) return;
  FUZZ_CHECK(command.m_commandId.empty() && command.m_commandSource.empty());
  FUZZ_CHECK(command.m_moduleName.empty() && command.m_commands.empty());
}

std::size_t CountCommands(const cJSON* document) {
  const cJSON* commands = cJSON_GetObjectItem(cJSON_GetObjectItem(document, "params"), "commands");
  return cJSON_IsArray(commands) ? static_cast<std::size_t>(cJSON_GetArraySize(commands)) : 0;
}

void Check(const std::string& text, const std::string& key) {
  const JsonPtr document(cJSON_Parse(text.c_str()));
  const std::string method = CPluginUtil::GetJSONStringFieldValue(document.get(), "method");
  try {
    const CCommandPluginJson command(text.c_str(), key);
    CheckInvalidIsEmpty(command);
    if (!command.m_validSignature) return;
    FUZZ_CHECK(Contains(method, "v1") || (!key.empty() && Contains(method, "v2")));
    FUZZ_CHECK(command.m_commands.size() == CountCommands(document.get()));
    for (const cJSON* tree : command.m_commands) FUZZ_CHECK(tree->next == nullptr && tree->prev == nullptr);
  } catch (const std::out_of_range&) {
    // Allowed only where the method does not stand in the text as it was parsed.
    FUZZ_CHECK(!Contains(method, "v1") && Contains(method, "v2") && !key.empty());
    FUZZ_CHECK(text.c_str() == nullptr || std::string(text.c_str()).find(method) == std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool silenced = (SilenceLog(), true);
  (void)silenced;  // only its initialisation matters
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!IsAffordable(text)) return 0;
  Check(text, "");
  Check(text, "key");
  return 0;
}
