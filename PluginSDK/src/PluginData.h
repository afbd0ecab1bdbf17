/// @file
/// Descriptions that an application fills in, and from which the library builds whole requests: what a
/// plugin is and offers (CUpdateParams and below), and commands that it received locally
/// (CLocalCommandParams and below).
///
/// @code
/// CUpdateState power("power", "Status", "Power", "", DisplayType::string);
/// CUpdateModule camera("camera", "Camera", "", {}, {&power}, {}, {}, {}, {});
/// CUpdateParams plugin("a1b2", "Watcher", "", AppType::ib, "1.0.0", "", "", {&camera});
/// std::unique_ptr<CUpdatePluginJson> builder(plugin.GetNotifyPluginUpdate("v1", ""));
/// char* text = cJSON_PrintUnformatted(builder->m_request);
/// @endcode
///
/// The classes hold values and check nothing; every rule is checked when a request is built. An empty text is
/// absent. All of them may be copied; a copy points to the same items, and to the same builder.
///
/// Ownership: lists of pointers do not own what they point to, and neither does the pointer to a builder.
/// Nothing here is ever deleted by a destructor of these classes: the application deletes the items after
/// what points to them was last used, and deletes the builder. The items must be alive while a request is
/// built; a built request does not refer to them. Null pointers in lists are skipped.
///
/// One thread at a time, together with everything that an object points to.
#pragma once

#include <cjson/cJSON.h>

#include <list>
#include <map>
#include <string>

#include "LocalCommandPluginJson.h"
#include "PluginSDK_export.h"
#include "UpdatePluginJson.h"

/// What every named item has. Mind the order: the display category comes second.
class PLUGINSDK_API CUpdateInfo {
 public:
  std::string m_name;             ///< required; at most 32 bytes, matching StringFormatter::nameFormat
  std::string m_displayCategory;  ///< matching StringFormatter::nameFormat
  std::string m_displayName;      ///< what people read
  std::string m_description;      ///< free text

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateInfo();
  CUpdateInfo(std::string name, std::string displayCategory, std::string displayName,
              std::string description);
  ///@}
};

/// A property. Its display type says which of its values is written, and how:
///
/// | m_displayType | written "displayType" | written "value" |
/// |---|---|---|
/// | "string" | "string" | m_value; left out when empty |
/// | "displayOn" | "string" | m_value; left out when empty |
/// | "table" | "table" | an array of objects, one for each row; left out without rows |
/// | "link" | "link" | an object with "url": key, "alias": value for each entry of the first row |
/// | "valueFromProperty" | "valueFromProperty" | an object: "defaultValue" the first text under that key,
/// "displayValues" all texts under that key |
///
/// A link without rows, a value-from-property with an empty map and a property of any other display type are
/// left out of the request without an error. Map entries are written in the order of their keys.
class PLUGINSDK_API CUpdateProperty : public CUpdateInfo {
 public:
  std::string m_displayType;  ///< decides, by the table above
  std::string m_value;        ///< for "string" and "displayOn"
  /// For "table", a map for each row; for "link", a first row with an alias for each address.
  std::list<std::map<std::string, std::string>> m_rows;
  /// For "valueFromProperty": the keys "defaultValue" and "displayValues", others are not written.
  std::map<std::string, std::list<std::string>> m_valueFromProperty;

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateProperty();
  CUpdateProperty(std::string name, std::string displayCategory, std::string displayName,
                  std::string description, std::string displayType, std::string value,
                  const std::list<std::map<std::string, std::string>>& rows,
                  const std::map<std::string, std::list<std::string>>& valueFromProperty);
  ///@}
};

/// A state: a value that reports of CStatesPluginJson keep up to date.
class PLUGINSDK_API CUpdateState : public CUpdateInfo {
 public:
  std::string m_displayType;  ///< required; any text

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateState();
  CUpdateState(std::string name, std::string displayCategory, std::string displayName,
               std::string description, std::string displayType);
  ///@}
};

/// A metric: a number that reports of CMetricsPluginJson keep up to date. Mind the order: type, then unit.
class PLUGINSDK_API CUpdateMetric : public CUpdateInfo {
 public:
  std::string m_displayType;  ///< any text; left out when empty
  std::string m_displayUnit;  ///< required; any text, such as "%"

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateMetric();
  CUpdateMetric(std::string name, std::string displayCategory, std::string displayName,
                std::string description, std::string displayType, std::string displayUnit);
  ///@}
};

/// An event that CEventsPluginJson may report.
class PLUGINSDK_API CUpdateEvent : public CUpdateInfo {
 public:
  /// All empty, or copies of the arguments.
  ///@{
  CUpdateEvent();
  CUpdateEvent(std::string name, std::string displayCategory, std::string displayName,
               std::string description);
  ///@}
};

/// What parameters of commands and of alarms share. Unlike the named items they have no display category,
/// so the display name comes second.
class PLUGINSDK_API CUpdateControlParam {
 public:
  std::string m_name;           ///< required; at most 32 bytes, matching StringFormatter::nameFormat
  std::string m_displayName;    ///< what people read
  std::string m_description;    ///< free text
  std::string m_displayType;    ///< required
  bool m_required = false;      ///< whether a value must be given; always written
  std::string m_type;           ///< for the application; not written
  std::string m_displayFormat;  ///< required for "datetime"
  std::list<std::string> m_displayValues;  ///< for "checkbox", "switch" and "list"

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateControlParam();
  CUpdateControlParam(std::string name, std::string displayName, std::string description,
                      std::string displayType, bool required, std::string type, std::string displayFormat,
                      const std::list<std::string>& displayValues);
  ///@}
};

/// A parameter of a command; "checkbox", "switch" and "list" need display values or a property here.
class PLUGINSDK_API CUpdateCommandParam : public CUpdateControlParam {
 public:
  std::string m_defaultValue;       ///< left out when empty, and for the display type "file"
  std::string m_valueFromProperty;  ///< property that supplies the values where there are no display values

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateCommandParam();
  CUpdateCommandParam(std::string name, std::string displayName, std::string description,
                      std::string displayType, bool required, std::string type, std::string displayFormat,
                      const std::list<std::string>& displayValues, std::string defaultValue,
                      std::string valueFromProperty);
  ///@}
};

/// A parameter of an alarm; "checkbox", "switch" and "list" need display values here.
class PLUGINSDK_API CUpdateAlarmParam : public CUpdateControlParam {
 public:
  /// All empty, or copies of the arguments.
  ///@{
  CUpdateAlarmParam();
  CUpdateAlarmParam(std::string name, std::string displayName, std::string description,
                    std::string displayType, bool required, std::string type, std::string displayFormat,
                    const std::list<std::string>& displayValues);
  ///@}
};

/// A command, always written with "type": "asynchronous".
class PLUGINSDK_API CUpdateCommand : public CUpdateInfo {
 public:
  std::string m_type;                        ///< for the application; not written
  std::list<CUpdateCommandParam*> m_params;  ///< not owned; "params" is left out when empty
  std::map<std::string, std::list<std::string>> m_displayOnProperty;  ///< for the application; not written

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateCommand();
  CUpdateCommand(std::string name, std::string displayCategory, std::string displayName,
                 std::string description, std::string type, const std::list<CUpdateCommandParam*>& params,
                 const std::map<std::string, std::list<std::string>>& displayOnProperty);
  ///@}
};

/// An alarm that CAlertsPluginJson may raise and the agent may set up (CAlarmUpdatePluginJson).
class PLUGINSDK_API CUpdateAlarm : public CUpdateInfo {
 public:
  std::list<CUpdateAlarmParam*> m_params;  ///< not owned; "params" is left out when empty

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateAlarm();
  CUpdateAlarm(std::string name, std::string displayCategory, std::string displayName,
               std::string description, const std::list<CUpdateAlarmParam*>& params);
  ///@}
};

/// A module and what it offers. The order of the lists is the order of the request's arrays; the key of an
/// empty list is left out.
class PLUGINSDK_API CUpdateModule {
 public:
  std::string m_moduleName;   ///< required; at most 64 bytes, matching StringFormatter::nameFormat
  std::string m_displayName;  ///< what people read
  std::string m_description;  ///< free text
  std::list<CUpdateProperty*> m_properties;  ///< not owned
  std::list<CUpdateState*> m_states;         ///< reported by CStatesPluginJson; not owned
  std::list<CUpdateMetric*> m_metrics;       ///< reported by CMetricsPluginJson; not owned
  std::list<CUpdateEvent*> m_events;         ///< reported by CEventsPluginJson; not owned
  std::list<CUpdateCommand*> m_commands;     ///< received by CCommandPluginJson; not owned
  std::list<CUpdateAlarm*> m_alarms;         ///< raised by CAlertsPluginJson; not owned

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateModule();
  CUpdateModule(std::string moduleName, std::string displayName, std::string description,
                const std::list<CUpdateProperty*>& properties, const std::list<CUpdateState*>& states,
                const std::list<CUpdateMetric*>& metrics, const std::list<CUpdateEvent*>& events,
                const std::list<CUpdateCommand*>& commands, const std::list<CUpdateAlarm*>& alarms);
  ///@}

  /// The module object of the registration request; the caller deletes it. Keys as in
  /// CUpdatePluginJson::CreateUpdateModulesItemJson. A collection whose items are all left out is written as
  /// [].
  /// @throws CPluginException with the texts and numbers of the item builders of CUpdatePluginJson. The first
  /// fault in the order properties, states, metrics, events, commands, alarms, module name is reported; in a
  /// command or alarm the parameters come first. Nothing leaks.
  cJSON* GetUpdateModule() const;
};

/// A plugin and its modules: the root of the description.
class PLUGINSDK_API CUpdateParams {
 public:
  std::string m_appGUID;                ///< written even when empty
  std::string m_appName;                ///< required; matching StringFormatter::nameFormat
  std::string m_displayName;            ///< what people read
  std::string m_type;                   ///< required; the application type, such as AppType::ib
  std::string m_version;                ///< required; matching StringFormatter::versionFormat
  std::string m_startCommand;           ///< for the agent; any text
  std::string m_stopCommand;            ///< for the agent; any text
  std::list<CUpdateModule*> m_modules;  ///< not owned; "modules" is left out when empty

  /// The builder that the first GetNotifyPluginUpdate made; null before. Whoever deletes it while this object
  /// is still used sets this to null, and may then ask for a new one.
  CUpdatePluginJson* m_updatePluginJson = nullptr;

  /// All empty, or copies of the arguments.
  ///@{
  CUpdateParams();
  CUpdateParams(std::string appGUID, std::string appName, std::string displayName, std::string type,
                std::string version, std::string startCommand, std::string stopCommand,
                const std::list<CUpdateModule*>& modules);
  ///@}

  /// Builds the registration request, once. The first call makes a builder, keeps it in m_updatePluginJson
  /// and stores the request in its m_request, signed when `apiVersion` is "v2". Every later call returns that
  /// builder as it is, whatever its arguments.
  /// @return the builder; the application deletes it, and the stored request with it.
  /// @throws CPluginException from the checks of the modules, of CUpdatePluginJson::CreateUpdateParamsObj
  /// and, under "v2" with an empty key, "AccessKey is missing." (6). The builder is kept without a request
  /// then, so that a second call returns it without building; mend the description and call
  /// UpdateNotifyPluginUpdateData.
  /// @throws std::logic_error "basic_string::_M_construct null not valid" for a null text; nothing is kept.
  CUpdatePluginJson* GetNotifyPluginUpdate(const char* apiVersion, const char* accessKey);

  /// The builder, null when none was made yet.
  CUpdatePluginJson* GetNotifyPluginUpdate() const;

  /// Builds the request again from the present description, with the API version, GUID and access key that
  /// the builder has, and stores it in the builder. Does nothing when there is no builder.
  /// The former request is overwritten, not deleted: take the builder's m_request before this call and delete
  /// it afterwards, or go on using it.
  /// @throws CPluginException as GetNotifyPluginUpdate does; the former request stays stored.
  void UpdateNotifyPluginUpdateData();
};

/// One parameter of a local command.
class PLUGINSDK_API CLocalCommandParam {
 public:
  std::string m_name;   ///< written as it is
  std::string m_value;  ///< at most 512 bytes; written even when empty

  /// All empty, or copies of the arguments.
  ///@{
  CLocalCommandParam();
  CLocalCommandParam(std::string name, std::string value);
  ///@}
};

/// One local command.
class PLUGINSDK_API CLocalCommand {
 public:
  std::string m_name;                       ///< written as it is
  std::list<CLocalCommandParam*> m_params;  ///< not owned; a command without parameters ends the report

  /// All empty, or copies of the arguments.
  ///@{
  CLocalCommand();
  CLocalCommand(std::string name, const std::list<CLocalCommandParam*>& params);
  ///@}
};

/// A report of commands that a client application gave the plugin locally. Built once; make a new object for
/// the next report.
class PLUGINSDK_API CLocalCommandParams {
 public:
  std::string m_clientAppGUID;           ///< GUID of the client application
  std::string m_appGUID;                 ///< GUID of the plugin application
  std::string m_serialNumber;            ///< "serialNumber" is written even when empty
  std::string m_moduleName;              ///< module that the commands are for
  std::list<CLocalCommand*> m_commands;  ///< in the order of the report; not owned

  /// The builder that the first GetNotifyPluginLocalCommand made; null before.
  CLocalCommandPluginJson* m_localCommandPluginJson = nullptr;

  /// All empty, or copies of the arguments.
  ///@{
  CLocalCommandParams();
  CLocalCommandParams(std::string clientAppGUID, std::string appGUID, std::string serialNumber,
                      std::string moduleName, const std::list<CLocalCommand*>& commands);
  ///@}

  /// Builds the request, once. The first call makes a builder, keeps it in m_localCommandPluginJson and
  /// stores the request in its m_request, signed when `apiVersion` is "v2". Every later call returns that
  /// builder as it is, whatever its arguments and whether the first call threw.
  /// The walk over m_commands stops at the first command without parameters: it and all behind it are left
  /// out. Without any command the request has no "commands".
  /// @param accessKey looked at under "v2" only.
  /// @return the builder. The application deletes it, and its m_request, which the builder does not delete.
  /// @throws CPluginException for a parameter value above 512 bytes (2) and, under "v2" with an empty key,
  /// "AccessKey is missing." (6); std::logic_error "basic_string::_M_construct null not valid" for a null
  /// `apiVersion`, or a null `accessKey` under "v2". The builder is kept without a request in all these
  /// cases.
  CLocalCommandPluginJson* GetNotifyPluginLocalCommand(const char* apiVersion, const char* accessKey);

  /// The builder, null when none was made yet.
  CLocalCommandPluginJson* GetNotifyPluginLocalCommand() const;
};
