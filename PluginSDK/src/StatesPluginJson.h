/// @file
/// State reports: the current values of a module's states (on or off, a mode, a small table).
#pragma once

#include "BasePluginObject.h"

/// Builds `notifyPluginState` requests:
///
///     {"jsonrpc":"2.0","params":{"appGUID":"a1b2","epoch":"1700000000","moduleName":"camera",
///      "states":[{"name":"power","value":"on"}]},"method":"v1/notifyPluginState"}
///
/// Items first, then the params around an array of them, then the request:
/// @code
/// CStatesPluginJson builder;
/// builder.m_appGUID = "a1b2";
/// builder.m_moduleName = "camera";
/// cJSON* states = cJSON_CreateArray();
/// cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
/// cJSON* request = builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states));
/// @endcode
///
/// One thread at a time. Ownership as said at CBasePluginObject, unless said otherwise.
class PLUGINSDK_API CStatesPluginJson final : public CBasePluginObject {
 public:
  /// {"name", "value"} with a text of at most 512 bytes; same as CreateBaseValueItemJson, exceptions
  /// included.
  cJSON* CreateStatesItemJson(const char* name, const char* value);

  /// {"name", "value"} with any JSON value of at most 1024 bytes in indented printing, often a table; same as
  /// CreateBaseValueItemJson, exceptions included. Owns `value` on return, not after an exception.
  cJSON* CreateStatesItemJson(const char* name, cJSON* value);

  /// {"appGUID", "epoch", "moduleName", "states"}: m_appGUID, the present time in seconds since 1970 as a
  /// decimal text, m_moduleName and `states` as given. Nothing is checked. Owns `states`; a null one is left
  /// out.
  cJSON* CreateStatesParamsObj(cJSON* states);

  /// The request around `params`, signed when m_version is "v2". Send it in the printing that was signed:
  /// compact when `unformatted`, else indented. Null when there is no memory for the request, `params` stays
  /// the caller's then.
  /// @throws CPluginException
  /// - "AccessKey is missing." (6), under "v2": `params` stays valid and the caller's.
  /// - "The data size exceeds the maximum name length, i.e. 2048 Bytes." (2): the indented printing, 89 bytes
  ///   of signature included, is longer than 2048 bytes, however the request will be sent. Request and
  ///   `params` are deleted.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};
