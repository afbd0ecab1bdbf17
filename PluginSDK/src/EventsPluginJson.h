/// @file
/// Event reports: something happened in a module (a button press, a motion, a finished job).
#pragma once

#include "BasePluginObject.h"

/// Builds `notifyPluginEvent` requests, in the same three steps as CStatesPluginJson:
///
///     {"jsonrpc":"2.0","params":{"appGUID":"a1b2","epoch":"1700000000","moduleName":"camera",
///      "events":[{"name":"motion","value":"left"}]},"method":"v1/notifyPluginEvent"}
///
/// Several events of one name may stand in a report. One thread at a time. Ownership as said at
/// CBasePluginObject, unless said otherwise.
class PLUGINSDK_API CEventsPluginJson final : public CBasePluginObject {
 public:
  /// {"name", "value"} with a text of at most 512 bytes; same as CreateBaseValueItemJson, exceptions
  /// included.
  cJSON* CreateEventsItemJson(const char* name, const char* value);

  /// {"appGUID", "epoch", "moduleName", "events"}, as CStatesPluginJson::CreateStatesParamsObj. Owns
  /// `events`; a null one is left out.
  cJSON* CreateEventsParamsObj(cJSON* events);

  /// The request around `params`, with the limit, the exceptions and the ownership of
  /// CStatesPluginJson::GetJsonrpcRequest.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};
