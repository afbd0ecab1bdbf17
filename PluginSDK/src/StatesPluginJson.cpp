#include "StatesPluginJson.h"

#include "RequestBuild_internal.h"
#include "UpdatePluginJson.h"

using namespace pluginsdk::internal;

cJSON* CStatesPluginJson::CreateStatesItemJson(const char* name, const char* value) {
  return CreateBaseValueItemJson(name, value);
}

cJSON* CStatesPluginJson::CreateStatesItemJson(const char* name, cJSON* value) {
  return CreateBaseValueItemJson(name, value);
}

cJSON* CStatesPluginJson::CreateStatesParamsObj(cJSON* states) {
  return BuildReportParams(*this, DataTypes::states, states);
}

cJSON* CStatesPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  constexpr bool kLimited = true;
  return BuildRequest(*this, {AgentPluginApi::notifyPluginState, kLimited}, params, unformatted);
}

cJSON* CStatesPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}
