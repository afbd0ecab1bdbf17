/// @file
/// Metric reports: measured numbers of a module (temperatures, counters, rates).
#pragma once

#include "BasePluginObject.h"

/// Builds `notifyPluginMetric` requests, in the same three steps as CStatesPluginJson:
///
///     {"jsonrpc":"2.0","params":{"appGUID":"a1b2","epoch":"1700000000","moduleName":"camera",
///      "metrics":[{"name":"fps","value":29.97}]},"method":"v1/notifyPluginMetric"}
///
/// One thread at a time. Ownership as said at CBasePluginObject, unless said otherwise.
class PLUGINSDK_API CMetricsPluginJson final : public CBasePluginObject {
 public:
  /// {"name", "value"} with a number of at most fifteen integer digits, rounded to two decimals; same as
  /// CreateBaseValueItemJson, exceptions included.
  cJSON* CreateMetricsItemJson(const char* name, double value);

  /// {"appGUID", "epoch", "moduleName", "metrics"}, as CStatesPluginJson::CreateStatesParamsObj. Owns
  /// `metrics`; a null one is left out.
  cJSON* CreateMetricsParamsObj(cJSON* metrics);

  /// The request around `params`, with the limit, the exceptions and the ownership of
  /// CStatesPluginJson::GetJsonrpcRequest.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};
