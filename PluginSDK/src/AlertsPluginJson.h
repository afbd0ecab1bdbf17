/// @file
/// Alarms in both directions: alerts that a plugin raises and clears, and the agent's updates of the alarm
/// definitions.
#pragma once

#include <cjson/cJSON.h>

#include <list>
#include <string>

#include "BasePluginObject.h"

/// Values of an alert's "action".
namespace Action {
PLUGINSDK_API extern const std::string trigger;  ///< "trigger": raise the alert
PLUGINSDK_API extern const std::string resolve;  ///< "resolve": clear it
}  // namespace Action

/// Builds `notifyPluginAlert` requests:
///
///     {"jsonrpc":"2.0","params":{"epoch":"1700000000","appGUID":"a1b2","moduleName":"camera",
///      "alarms":[{"name":"overheat","action":"trigger","time":"1700000000","message":"above limit"}]},
///      "method":"v1/notifyPluginAlert"}
///
/// Unlike reports, alerts have no size limit, and their "epoch" comes first. One thread at a time. Ownership
/// as said at CBasePluginObject, unless said otherwise.
class PLUGINSDK_API CAlertsPluginJson final : public CBasePluginObject {
 public:
  /// {"name", "action", "time", "message"}; "time" is the present one in seconds since 1970 as a decimal
  /// text. Nothing is checked: any action is sent, and a null text leaves its key out.
  static cJSON* CreateAlarmsItemJson(const char* name, const char* action, const char* message);

  /// {"epoch", "appGUID", "moduleName", "alarms"} of the arguments. Nothing is checked; a null text or tree
  /// leaves its key out. Owns `alarms`.
  static cJSON* CreateAlarmsParamsObj(const char* appGUID, const char* moduleName, cJSON* alarms);

  /// The same of m_appGUID and m_moduleName.
  /// @throws CPluginException "ModuleName is missing." (4) when m_moduleName is empty; `alarms` stays the
  /// caller's.
  cJSON* CreateAlarmsParamsObj(cJSON* alarms);

  /// The request around `params`, of any size, signed when m_version is "v2". Send it in the printing that
  /// was signed: compact when `unformatted`, else indented. Null when there is no memory for the request,
  /// `params` stays the caller's then.
  /// @throws CPluginException "AccessKey is missing." (6), under "v2": `params` stays valid and the caller's.
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);

  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;
};

/// A received `notifyPluginAlarmUpdate` request: the agent's changes of alarm definitions.
///
///     {"jsonrpc":"2.0","params":{"version":"2","modules":[{"moduleName":"camera","epoch":"1700000000",
///      "alarms":[...]}]},"method":"v2/notifyPluginAlarmUpdate?authorization=$argon2id$..."}
///
/// Everything happens in the constructor. A text that is null, not JSON, without "params" or not authentic
/// leaves m_validSignature false and everything else empty; nothing is logged. Test m_validSignature before
/// all else. Keys are found without regard to letter case.
///
/// Owns the trees in m_modules and cannot be copied. Concurrent const use only.
class PLUGINSDK_API CAlarmUpdatePluginJson {
 public:
  std::string m_accessKey;        ///< as given; signatures are verified with it
  std::string m_reserved1;        ///< not used
  std::string m_reserved2;        ///< not used
  std::string m_alarmVersion;     ///< "params"."version"; empty when it is no text
  std::list<cJSON*> m_modules;    ///< the members of "params"."modules" (array or object); owned, read only
  bool m_validSignature = false;  ///< the request may be trusted

  /// Authenticity is decided exactly as by CCommandPluginJson.
  /// @throws std::out_of_range ("basic_string::replace ...") as CCommandPluginJson does.
  CAlarmUpdatePluginJson(char const* jsonText, std::string accessKey);
  /// The same within limits on what the verification may cost and accept.
  CAlarmUpdatePluginJson(char const* jsonText, std::string accessKey, const VerificationLimits& limits);
  /// Deletes the trees in m_modules, and with them what GetAlarms and GetAlarmsUpdateEpochTime returned.
  ~CAlarmUpdatePluginJson();
  /// Not copied: two objects would delete the same trees.
  ///@{
  CAlarmUpdatePluginJson(const CAlarmUpdatePluginJson&) = delete;
  CAlarmUpdatePluginJson& operator=(const CAlarmUpdatePluginJson&) = delete;
  ///@}

  /// What the first constructor does with its text; not meant to be called again.
  void ValidateAlarms(char const* jsonText);

  /// The alarm entries of every module of this name (compared whole, with letter case), in document order; ""
  /// finds modules without a name. The trees stay the object's and live as long as it does.
  std::list<cJSON*> GetAlarms(std::string moduleName) const;

  /// The "epoch" of the first module of this name, "" when it has none; null when no module has the name.
  /// The text lives as long as the object.
  char const* GetAlarmsUpdateEpochTime(std::string moduleName) const;
};
