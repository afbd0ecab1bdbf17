#include "MetricsPluginJson.h"

#include "RequestBuild_internal.h"
#include "UpdatePluginJson.h"

using namespace pluginsdk::internal;

cJSON* CMetricsPluginJson::CreateMetricsItemJson(const char* name, double value) {
  return CreateBaseValueItemJson(name, value);
}

cJSON* CMetricsPluginJson::CreateMetricsParamsObj(cJSON* metrics) {
  return BuildReportParams(*this, DataTypes::metrics, metrics);
}

cJSON* CMetricsPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  constexpr bool kLimited = true;
  return BuildRequest(*this, {AgentPluginApi::notifyPluginMetric, kLimited}, params, unformatted);
}

cJSON* CMetricsPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}
