/// @file
/// Registration: the notifyPluginUpdate request, by which a plugin declares itself, its modules and all
/// that they offer. CUpdateParams (PluginData.h) fills it from a description; the functions here build it
/// by hand, bottom-up: items, collections, modules, params, request.
#pragma once

#include <cjson/cJSON.h>

#include <string>

#include "BasePluginObject.h"
#include "PluginSDK_export.h"

/// How a client shows a value.
namespace DisplayType {
PLUGINSDK_API extern const std::string string;             ///< "string"
PLUGINSDK_API extern const std::string table;              ///< "table"
PLUGINSDK_API extern const std::string link;               ///< "link"
PLUGINSDK_API extern const std::string datetime;           ///< "datetime"
PLUGINSDK_API extern const std::string iswitch;            ///< "switch"
PLUGINSDK_API extern const std::string icheckbox;          ///< "checkbox"
PLUGINSDK_API extern const std::string ilist;              ///< "list"
PLUGINSDK_API extern const std::string file;               ///< "file"
PLUGINSDK_API extern const std::string temperature;        ///< "temperature"
PLUGINSDK_API extern const std::string displayOn;          ///< "displayOn"
PLUGINSDK_API extern const std::string valueFromProperty;  ///< "valueFromProperty"
}  // namespace DisplayType

/// Keys of a module's collections; each holds its own name.
namespace DataTypes {
PLUGINSDK_API extern const std::string properties;  ///< "properties"
PLUGINSDK_API extern const std::string states;      ///< "states"
PLUGINSDK_API extern const std::string events;      ///< "events"
PLUGINSDK_API extern const std::string metrics;     ///< "metrics"
PLUGINSDK_API extern const std::string commands;    ///< "commands"
PLUGINSDK_API extern const std::string alarms;      ///< "alarms"
}  // namespace DataTypes

/// Usual application types.
namespace AppType {
PLUGINSDK_API extern const std::string ib;   ///< "ib"
PLUGINSDK_API extern const std::string oob;  ///< "oob"
}  // namespace AppType

/// Builds the registration request, and keeps the one that CUpdateParams built through it, to be sent again
/// with a fresh time stamp. One thread at a time; the static functions are safe for concurrent use.
///
/// Texts that may be null are absent when null; std::string arguments are absent when empty.
///
/// Ownership: every result is the caller's. A tree argument is owned by the result once the function has
/// returned; after any exception, std::bad_alloc included, it is still the caller's, and nothing leaks. Null
/// trees add nothing.
///
/// Errors: CPluginException. Every item is made by CreateBaseDataItemJson first, whose checks come first and
/// throw its own texts; then the checks of the function, in the order listed. The first failing one wins.
class PLUGINSDK_API CUpdatePluginJson final : public CBasePluginObject {
 public:
  /// The request that CUpdateParams built through this builder; null until then and after a build that
  /// failed. Owned: the destructor deletes it. To keep it longer, take the pointer and set this one to null.
  cJSON* m_request = nullptr;

  /// Version "v1", no request; the other members empty.
  CUpdatePluginJson();
  /// Deletes m_request.
  ~CUpdatePluginJson();
  /// Not copied: two builders would delete the same request.
  ///@{
  CUpdatePluginJson(const CUpdatePluginJson&) = delete;
  CUpdatePluginJson& operator=(const CUpdatePluginJson&) = delete;
  ///@}

  // Items of a module.

  /// {base item, "displayType", "value"}; a null value leaves "value" out. The two forms take different
  /// display types: a text "string" and "displayOn"; a tree "table", "link" and "valueFromProperty".
  /// @throws CPluginException "displayType is required parameter." (4),
  /// "displayType is inconsistant its value." (4) for a type that the form does not take.
  ///@{
  static cJSON* CreateUpdatePropertiesItemJson(const char* name, const char* displayName,
                                               const char* description, const std::string& displayType,
                                               const char* displayCategory, const char* value);
  static cJSON* CreateUpdatePropertiesItemJson(const char* name, const char* displayName,
                                               const char* description, const std::string& displayType,
                                               const char* displayCategory, cJSON* value);
  ///@}

  /// {base item, "displayType"}; any display type is accepted.
  /// @throws CPluginException "displayType is required parameter." (4)
  static cJSON* CreateUpdateStatesItemJson(const char* name, const char* displayName, const char* description,
                                           const std::string& displayType, const char* displayCategory);

  /// {base item}
  static cJSON* CreateUpdateEventsItemJson(const char* name, const char* displayName, const char* description,
                                           const char* displayCategory);

  /// {base item, "displayUnit", "displayType" unless empty}
  /// @throws CPluginException "displayUnit is required parameter." (4)
  static cJSON* CreateUpdateMetricsItemJson(const char* name, const char* displayName,
                                            const char* description, const char* displayUnit,
                                            const std::string& displayType, const char* displayCategory);

  /// {base item, "type": "asynchronous", "params", "displayOnProperty"}
  static cJSON* CreateUpdateCommandsItemJson(const char* name, const char* displayName,
                                             const char* description, const char* displayCategory,
                                             cJSON* params, cJSON* displayOnProperty);

  /// {base item, "params"}
  static cJSON* CreateUpdateAlarmsItemJson(const char* name, const char* displayName, const char* description,
                                           const char* displayCategory, cJSON* params);

  // Parameters of commands and alarms. They have no display category.

  /// {base item, "displayType", what the display type asks for, "required", "defaultValue"}:
  ///
  /// | display type | adds |
  /// |---|---|
  /// | "datetime" | "displayFormat" |
  /// | "checkbox", "switch", "list" | "displayValues", or without them "valueFromProperty" |
  /// | "valueFromProperty" | "valueFromProperty", be it empty |
  /// | any other | nothing |
  ///
  /// `displayValues` is owned by the result only where this table adds it; else it stays the caller's.
  /// A parameter of display type "file" never carries a default, a null default adds none.
  /// @throws CPluginException "displayType is required parameter." (4),
  /// "displayFormat is required parameter for datetime displayType." (5),
  /// "displayValues is required parameter for <displayType> displayType." (5)
  ///@{
  static cJSON* CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                  const char* description, const std::string& displayType,
                                                  bool required, const char* displayFormat,
                                                  cJSON* displayValues, const std::string& valueFromProperty);
  static cJSON* CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                  const char* description, const char* defaultValue,
                                                  const std::string& displayType, bool required,
                                                  const char* displayFormat, cJSON* displayValues,
                                                  const std::string& valueFromProperty);
  static cJSON* CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                  const char* description, double defaultValue,
                                                  const std::string& displayType, bool required,
                                                  const char* displayFormat, cJSON* displayValues,
                                                  const std::string& valueFromProperty);
  ///@}

  /// The same for an alarm: no default, and no property in the place of values; "valueFromProperty" is a
  /// type like any other.
  /// @throws CPluginException "displayType is required parameter." (4),
  /// "displayFormat is required for datetime displayType." (4),
  /// "displayValues is required parameter for <displayType> displayType." (4)
  static cJSON* CreateUpdateAlarmParamsItemJson(const char* name, const char* displayName,
                                                const char* description, const std::string& displayType,
                                                bool required, const char* displayFormat,
                                                cJSON* displayValues);

  // Modules, params, request.

  /// {"moduleName", "displayName", "description", "properties", "states", "events", "metrics", "commands",
  /// "alarms"}: absent texts and null collections are left out, empty collections are written.
  /// @throws CPluginException "moduleName is required parameter." (4); above 64 bytes
  /// `The length of "<moduleName>" exceeds the maximum module name length, i.e. 64 Bytes.` (2);
  /// against nameFormat `Invalid moduleName format: "<moduleName>"` (1)
  static cJSON* CreateUpdateModulesItemJson(const char* moduleName, const char* displayName,
                                            const char* description, cJSON* properties, cJSON* states,
                                            cJSON* events, cJSON* metrics, cJSON* commands, cJSON* alarms);

  /// {"appGUID", "epoch", "appName", "displayName", "type", "version", "startCommand", "stopCommand",
  /// "modules"}. "appGUID" is m_appGUID, be it empty; "epoch" the current time in whole seconds since 1970,
  /// as a string. Any non-empty `type` is accepted.
  /// @throws CPluginException "appName is required parameter." (4), "Invalid appName format: <appName>" (1),
  /// "appType is required parameter." (4), "version is required parameter." (4),
  /// "Invalid version format: <version>" (1)
  cJSON* CreateUpdateParamsObj(const char* appName, const char* displayName, const std::string& type,
                               const char* version, const char* startCommand, const char* stopCommand,
                               cJSON* modules);

  /// {"jsonrpc", "params", "method"}, signed when m_version is "v2". `unformatted` says in which printing the
  /// request will be sent: true compact, false indented. There is no size limit.
  /// Null when the envelope cannot be allocated; `params` stays the caller's then.
  /// @throws CPluginException "AccessKey is missing." (6)
  cJSON* GetJsonrpcRequest(cJSON* params, bool unformatted);
  /// The same with `unformatted` true.
  cJSON* GetJsonrpcRequest(cJSON* params) override;

  /// The stored request once more, with the current time as "epoch" and, under "v2", a new signature. Gives
  /// the stored params the new "epoch" too and logs it at level INFO, "renew epoch: <epoch>".
  /// The result is an independent copy, wholly the caller's: it, this builder and other results may be
  /// deleted in any order. m_request stays stored, with its old "method".
  /// Null when nothing is stored, or the stored request has no "params".
  /// @throws CPluginException "AccessKey is missing." (6)
  cJSON* RenewUpdateJsonObject(bool unformatted);
};
