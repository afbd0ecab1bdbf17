/// @file
/// Reports of local commands: commands that a client application gave the plugin directly.
#pragma once

#include <cjson/cJSON.h>

#include <string>

#include "BasePluginObject.h"

/// Who issued a command: values of "commandSource".
namespace CommandSource {
PLUGINSDK_API extern const std::string local;   ///< "local": a client application, through the plugin
PLUGINSDK_API extern const std::string remote;  ///< "remote": the agent
}  // namespace CommandSource

/// Builds `notifyPluginLocalCommand` requests:
///
///     {"jsonrpc":"2.0","params":{"epoch":"1700000000","clientAppGUID":"c3d4","serialNumber":"",
///      "appGUID":"a1b2","commandId":"c3d4|1804290","commandSource":"local","moduleName":"camera",
///      "commands":[{"name":"reboot","params":[{"name":"delay","value":"5"}]}]},
///      "method":"v1/notifyPluginLocalCommand"}
///
/// Usually driven by CLocalCommandParams; all builders can be called directly too.
///
/// One thread at a time. Ownership as said at CBasePluginObject, unless said otherwise. Deleting the builder
/// does not delete m_request.
class PLUGINSDK_API CLocalCommandPluginJson final : public CBasePluginObject {
 public:
  std::string m_clientAppGUID;  ///< GUID of the client application, and prefix of generated command ids
  std::string m_serialNumber;   ///< of the device; "" for none
  cJSON* m_request = nullptr;   ///< what CLocalCommandParams built last with this object; the application's

  /// {"epoch", "clientAppGUID", "serialNumber", "appGUID", "commandId", "commandSource", "moduleName",
  /// "commands"} of the arguments. Nothing is checked; a null text leaves its key out. `commands` is
  /// attached, and owned by the result, when it is an object, or an array with at least one element; else the
  /// key is left out and the tree stays the caller's.
  static cJSON* CreateLocalCommandParamsObj(char const* clientAppGUID, char const* serialNumber,
                                            char const* appGUID, char const* commandId,
                                            char const* commandSource, char const* moduleName,
                                            cJSON* commands);

  /// The same of the members, with the source "local" and the id m_clientAppGUID + "|" + a number from 1 to
  /// RAND_MAX / 1000 + 1. The number is drawn from rand(), which this library never seeds: ids may repeat.
  /// "serialNumber" is always present, "" when the member is empty.
  cJSON* CreateLocalCommandParamsObj(cJSON* commands);

  /// {"name", "params"}, one element of "commands". Owns `params` on return; after an exception it is still
  /// the caller's.
  /// @throws CPluginException, number 5: "name is NULL", "params is NULL", "params is not a JSON array."
  static cJSON* CreateCommandsItemJson(char const* name, cJSON* params);

  /// {"name", "value"}, one element of a command's "params", with a text of at most 512 bytes; same as
  /// CreateBaseValueItemJson, exceptions included.
  static cJSON* CreateCommandParamsItemJson(char const* name, char const* value);

  /// The request around `params`, of any size, signed when m_version is "v2". Send it in the printing that
  /// was signed: compact when `unformatted`, else indented. Null when there is no memory for the request;
  /// that is logged, and `params` stays the caller's.
  /// @throws CPluginException "AccessKey is missing." (6), under "v2": `params` stays valid and the caller's.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};
