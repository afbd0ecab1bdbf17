#include "AlertsPluginJson.h"

#include <string_view>
#include <utility>

#include "IncomingRequest_internal.h"
#include "JsonBuild_internal.h"
#include "RequestBuild_internal.h"

namespace Action {
const std::string trigger = "trigger";
const std::string resolve = "resolve";
}  // namespace Action

using namespace pluginsdk::internal;

namespace {

constexpr int kDescriptionError = 4;

void Validate(CAlarmUpdatePluginJson& update, const char* text, const VerificationLimits* limits) {
  const JsonPtr request = Parse(text);
  const cJSON* params = cJSON_GetObjectItem(request.get(), "params");
  if (params == nullptr) return;

  const std::string method(StringMember(request.get(), "method"));
  update.m_validSignature = IsAuthentic(text, method, update.m_accessKey, limits);
  if (!update.m_validSignature) return;

  update.m_alarmVersion = StringMember(params, "version");
  // Last, because an exception in the constructor would leave the trees without an owner.
  TakeChildren(cJSON_GetObjectItem(params, "modules"), update.m_modules);
}

bool IsNamed(const cJSON* module, std::string_view name) {
  return StringMember(module, "moduleName") == name;
}

}  // namespace

cJSON* CAlertsPluginJson::CreateAlarmsItemJson(const char* name, const char* action, const char* message) {
  JsonPtr item = NewObject();
  AddString(item.get(), "name", name);
  AddString(item.get(), "action", action);
  AddEpoch(item.get(), "time");
  AddString(item.get(), "message", message);
  return item.release();
}

cJSON* CAlertsPluginJson::CreateAlarmsParamsObj(const char* appGUID, const char* moduleName, cJSON* alarms) {
  JsonPtr params = NewObject();
  AddEpoch(params.get());
  AddString(params.get(), "appGUID", appGUID);
  AddString(params.get(), "moduleName", moduleName);
  Attach(params.get(), "alarms", alarms);
  return params.release();
}

cJSON* CAlertsPluginJson::CreateAlarmsParamsObj(cJSON* alarms) {
  if (m_moduleName.empty()) throw CPluginException("ModuleName is missing.", kDescriptionError);
  return CreateAlarmsParamsObj(m_appGUID.c_str(), m_moduleName.c_str(), alarms);
}

cJSON* CAlertsPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  return BuildRequest(*this, {AgentPluginApi::notifyPluginAlert}, params, unformatted);
}

cJSON* CAlertsPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}

CAlarmUpdatePluginJson::CAlarmUpdatePluginJson(char const* jsonText, std::string accessKey)
    : m_accessKey(std::move(accessKey)) {
  ValidateAlarms(jsonText);
}

CAlarmUpdatePluginJson::CAlarmUpdatePluginJson(char const* jsonText, std::string accessKey,
                                               const VerificationLimits& limits)
    : m_accessKey(std::move(accessKey)) {
  Validate(*this, jsonText, &limits);
}

CAlarmUpdatePluginJson::~CAlarmUpdatePluginJson() {
  for (cJSON* module : m_modules) cJSON_Delete(module);
}

void CAlarmUpdatePluginJson::ValidateAlarms(char const* jsonText) {
  Validate(*this, jsonText, nullptr);
}

std::list<cJSON*> CAlarmUpdatePluginJson::GetAlarms(std::string moduleName) const {
  std::list<cJSON*> alarms;
  for (const cJSON* module : m_modules) {
    if (!IsNamed(module, moduleName)) continue;
    for (cJSON* alarm : Children(cJSON_GetObjectItem(module, "alarms"))) alarms.push_back(alarm);
  }
  return alarms;
}

char const* CAlarmUpdatePluginJson::GetAlarmsUpdateEpochTime(std::string moduleName) const {
  for (const cJSON* module : m_modules) {
    if (IsNamed(module, moduleName)) return StringMember(module, "epoch").data();
  }
  return nullptr;
}
