/// @file
/// Commands of the agent: the received request, and the acknowledgements by which a plugin answers it.
#pragma once

#include <cjson/cJSON.h>

#include <list>
#include <string>

#include "BasePluginObject.h"

/// How far a command got: values of "commandState".
namespace AckState {
PLUGINSDK_API extern const std::string ACCEPTED;  ///< "ACCEPTED": received, not executed yet
PLUGINSDK_API extern const std::string ACKED;     ///< "ACKED": executed
PLUGINSDK_API extern const std::string REJECTED;  ///< "REJECTED": not going to be executed
PLUGINSDK_API extern const std::string ERRORED;   ///< "ERRORED": executed, but failed
}  // namespace AckState

/// A received `notifyPluginCommand` request:
///
///     {"jsonrpc":"2.0","params":{"commandId":"77","commandSource":"remote","moduleName":"camera",
///      "commands":[...]},"method":"v2/notifyPluginCommand?authorization=$argon2id$..."}
///
/// Everything happens in the constructor. A text that is null, not JSON, without "params" or not authentic
/// leaves m_validSignature false and everything else empty: test m_validSignature before all else. A field
/// that is absent or of another type is empty in a valid request. Keys are found without regard to letter
/// case.
///
/// Owns the trees in m_commands and cannot be copied. Concurrent const use only.
class PLUGINSDK_API CCommandPluginJson {
 public:
  std::string m_accessKey;        ///< as given; signatures are verified with it
  std::string m_commandId;        ///< echoed by acknowledgements
  std::string m_commandSource;    ///< as sent, by custom one of CommandSource
  std::string m_moduleName;       ///< module that the commands are for
  std::list<cJSON*> m_commands;   ///< the elements of the array "commands", of any type; owned, read only
  bool m_validSignature = false;  ///< the request may be trusted

  /// A method that contains "v1" anywhere is accepted unverified. Any other must contain "v2", `accessKey`
  /// must not be empty, and what follows the last "?authorization=" of the method must be a valid signature
  /// of the text as received, with the method value cut short at its first "?".
  ///
  /// Logs at level INFO, source "PluginSDK/src/CommandAcksPluginJson": "is valid signature? <0 or 1>" once
  /// "params" was found, then id, source and module of a valid request.
  /// @throws std::out_of_range ("basic_string::replace ...") when the value of a "v2" method does not stand
  /// in the text as it is, for instance because the sender escaped a slash. No other input throws. Without
  /// memory std::bad_alloc leaves, or the text counts as not JSON.
  CCommandPluginJson(char const* jsonText, std::string accessKey);
  /// The same within limits on what the verification may cost and accept.
  CCommandPluginJson(char const* jsonText, std::string accessKey, const VerificationLimits& limits);
  /// Deletes the trees in m_commands.
  ~CCommandPluginJson();
  /// Not copied: two objects would delete the same trees.
  ///@{
  CCommandPluginJson(const CCommandPluginJson&) = delete;
  CCommandPluginJson& operator=(const CCommandPluginJson&) = delete;
  ///@}

  /// What the first constructor does with its text; not meant to be called again.
  void ValidateCommands(char const* jsonText);
};

/// Builds `notifyPluginCommandAck` requests:
///
///     {"jsonrpc":"2.0","params":{"epoch":"1700000000","appGUID":"a1b2","commandId":"77",
///      "commandSource":"remote","moduleName":"camera","commandState":"ACKED",
///      "commandAcks":[{"name":"reboot","result":"done"}]},"method":"v1/notifyPluginCommandAck"}
///
/// For each state there are two params builders. The static one takes its fields as arguments, which are
/// not checked; a null text leaves its key out. The other one echoes the request in m_commandPluginJson,
/// valid or not, and returns null when there is none.
///
/// In both, `commandAcks` is attached when it is an object, or an array with at least one element; the result
/// owns it then. Null, an empty array and every other type leave the key out, and the tree stays the
/// caller's.
///
/// One thread at a time. Ownership as said at CBasePluginObject, unless said otherwise.
class PLUGINSDK_API CCommandAcksPluginJson final : public CBasePluginObject {
 public:
  /// The request being acknowledged; not owned. Set it before using the one-argument builders.
  CCommandPluginJson* m_commandPluginJson = nullptr;

  /// {"epoch", "appGUID", "commandId", "commandSource", "moduleName", "commandState", "commandAcks"} of the
  /// arguments, with the state of the function's name.
  ///@{
  static cJSON* CreateCommandAcksAcceptedParamsObj(char const* appGUID, char const* commandId,
                                                   char const* commandSource, char const* moduleName,
                                                   cJSON* commandAcks);
  static cJSON* CreateCommandAcksAckedParamsObj(char const* appGUID, char const* commandId,
                                                char const* commandSource, char const* moduleName,
                                                cJSON* commandAcks);
  static cJSON* CreateCommandAcksRejectedParamsObj(char const* appGUID, char const* commandId,
                                                   char const* commandSource, char const* moduleName,
                                                   cJSON* commandAcks);
  static cJSON* CreateCommandAcksErroredParamsObj(char const* appGUID, char const* commandId,
                                                  char const* commandSource, char const* moduleName,
                                                  cJSON* commandAcks);
  ///@}

  /// The same of m_appGUID and the request in m_commandPluginJson. Null, with `commandAcks` untouched and the
  /// caller's, when there is none.
  ///@{
  cJSON* CreateCommandAcksAcceptedParamsObj(cJSON* commandAcks);
  cJSON* CreateCommandAcksAckedParamsObj(cJSON* commandAcks);
  cJSON* CreateCommandAcksRejectedParamsObj(cJSON* commandAcks);
  cJSON* CreateCommandAcksErroredParamsObj(cJSON* commandAcks);
  ///@}

  /// {"name", "result"}, one element of "commandAcks". Nothing is checked; a null text leaves its key out.
  static cJSON* CreateCommandAcksItemJson(char const* name, char const* result);

  /// The same with any JSON value, which the item owns; a null one is left out.
  static cJSON* CreateCommandAcksItemJson(char const* name, cJSON* result);

  /// The request around `params`, of any size, signed when m_version is "v2". Send it in the printing that
  /// was signed: compact when `unformatted`, else indented. Null when there is no memory for the request;
  /// that is logged, and `params` stays the caller's.
  /// @throws CPluginException "AccessKey is missing." (6), under "v2": `params` stays valid and the caller's.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};
