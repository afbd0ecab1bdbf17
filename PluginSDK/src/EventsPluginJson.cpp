#include "EventsPluginJson.h"

#include "RequestBuild_internal.h"
#include "UpdatePluginJson.h"

using namespace pluginsdk::internal;

cJSON* CEventsPluginJson::CreateEventsItemJson(const char* name, const char* value) {
  return CreateBaseValueItemJson(name, value);
}

cJSON* CEventsPluginJson::CreateEventsParamsObj(cJSON* events) {
  return BuildReportParams(*this, DataTypes::events, events);
}

cJSON* CEventsPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  constexpr bool kLimited = true;
  return BuildRequest(*this, {AgentPluginApi::notifyPluginEvent, kLimited}, params, unformatted);
}

cJSON* CEventsPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}
