#include "PluginData.h"

#include <memory>
#include <new>
#include <utility>

#include "JsonBuild_internal.h"
#include "Utl_Log.h"

using namespace pluginsdk::internal;

namespace {

constexpr const char* kSource = "PluginSDK/src/PluginData";
constexpr const char* kFunction = "GetUpdateModule";

// ---- Steps that all conversions share

// The builders know an absent text as a null one.
const char* TextOf(const std::string& field) {
  return field.empty() ? nullptr : field.c_str();
}

JsonPtr StringItem(const std::string& text) {
  JsonPtr item(cJSON_CreateString(text.c_str()));
  if (!item) throw std::bad_alloc();
  return item;
}

JsonPtr StringArray(const std::list<std::string>& texts) {
  JsonPtr array = NewArray();
  for (const std::string& text : texts) Append(array.get(), StringItem(text));
  return array;
}

// An array of the converted items, in order; null for an empty list, so that its key is left out. An item
// that converts to null is left out.
template <typename Item, typename Convert>
JsonPtr ConvertAll(const std::list<Item*>& items, Convert convert) {
  if (items.empty()) return nullptr;
  JsonPtr array = NewArray();
  for (const Item* item : items) {
    if (item != nullptr) Append(array.get(), convert(*item));
  }
  return array;
}

// A builder takes some trees only under conditions of its own. Gives up `tree` where `taker` has it.
void ReleaseIfTaken(JsonPtr& tree, const cJSON* taker, const char* key) {
  if (tree && cJSON_GetObjectItem(taker, key) == tree.get()) tree.release();
}

cJSON* RequestOf(CBasePluginObject& builder, JsonPtr params) {
  cJSON* request = builder.GetJsonrpcRequest(params.get());
  if (request == nullptr) throw std::bad_alloc();
  params.release();
  return request;
}

// ---- Properties

JsonPtr TextProperty(const CUpdateProperty& property) {
  // Agents know no "displayOn" properties; such a property is declared as the text that it holds.
  return JsonPtr(CUpdatePluginJson::CreateUpdatePropertiesItemJson(
      TextOf(property.m_name), TextOf(property.m_displayName), TextOf(property.m_description),
      DisplayType::string, TextOf(property.m_displayCategory), TextOf(property.m_value)));
}

JsonPtr TreeProperty(const CUpdateProperty& property, JsonPtr value) {
  JsonPtr item(CUpdatePluginJson::CreateUpdatePropertiesItemJson(
      TextOf(property.m_name), TextOf(property.m_displayName), TextOf(property.m_description),
      property.m_displayType, TextOf(property.m_displayCategory), value.get()));
  value.release();
  return item;
}

// A table is declared even while it has no rows yet.
JsonPtr TableProperty(const CUpdateProperty& property) {
  if (property.m_rows.empty()) return TreeProperty(property, nullptr);
  JsonPtr table = NewArray();
  for (const auto& row : property.m_rows) {
    JsonPtr entries = NewObject();
    for (const auto& [key, text] : row) AddString(entries.get(), key.c_str(), text);
    Append(table.get(), std::move(entries));
  }
  return TreeProperty(property, std::move(table));
}

JsonPtr LinkProperty(const CUpdateProperty& property) {
  if (property.m_rows.empty()) return nullptr;
  JsonPtr link = NewObject();
  for (const auto& [address, alias] : property.m_rows.front()) {
    AddString(link.get(), "url", address);
    AddString(link.get(), "alias", alias);
  }
  return TreeProperty(property, std::move(link));
}

void LogEntry(const std::string& key, const std::list<std::string>& texts) {
  UTL_LOGPrint(UTL_LOG_INFO, kSource, __LINE__, kFunction, "property: %s", key.c_str());
  for (const std::string& text : texts) {
    UTL_LOGPrint(UTL_LOG_INFO, kSource, __LINE__, kFunction, "value: %s", text.c_str());
  }
}

JsonPtr ValueFromProperty(const CUpdateProperty& property) {
  if (property.m_valueFromProperty.empty()) return nullptr;
  JsonPtr value = NewObject();
  for (const auto& [key, texts] : property.m_valueFromProperty) {
    LogEntry(key, texts);
    if (key == "defaultValue" && !texts.empty()) {
      AddString(value.get(), "defaultValue", texts.front());
    } else if (key == "displayValues") {
      Attach(value.get(), "displayValues", StringArray(texts));
    }
  }
  return TreeProperty(property, std::move(value));
}

struct PropertyKind {
  const std::string& displayType;
  JsonPtr (*convert)(const CUpdateProperty&);
};
// References to the vocabulary, which may be built after this table.
constexpr PropertyKind kPropertyKinds[] = {
    {DisplayType::string, TextProperty},
    {DisplayType::displayOn, TextProperty},
    {DisplayType::table, TableProperty},
    {DisplayType::link, LinkProperty},
    {DisplayType::valueFromProperty, ValueFromProperty},
};

// Null for a property that is left out.
JsonPtr ConvertProperty(const CUpdateProperty& property) {
  UTL_LOGPrint(UTL_LOG_INFO, kSource, __LINE__, kFunction, "properties, displayType: %s",
               property.m_displayType.c_str());
  for (const PropertyKind& kind : kPropertyKinds) {
    if (kind.displayType == property.m_displayType) return kind.convert(property);
  }
  return nullptr;
}

// ---- States, metrics, events

JsonPtr ConvertState(const CUpdateState& state) {
  return JsonPtr(CUpdatePluginJson::CreateUpdateStatesItemJson(
      TextOf(state.m_name), TextOf(state.m_displayName), TextOf(state.m_description), state.m_displayType,
      TextOf(state.m_displayCategory)));
}

JsonPtr ConvertMetric(const CUpdateMetric& metric) {
  return JsonPtr(CUpdatePluginJson::CreateUpdateMetricsItemJson(
      TextOf(metric.m_name), TextOf(metric.m_displayName), TextOf(metric.m_description),
      TextOf(metric.m_displayUnit), metric.m_displayType, TextOf(metric.m_displayCategory)));
}

JsonPtr ConvertEvent(const CUpdateEvent& event) {
  return JsonPtr(CUpdatePluginJson::CreateUpdateEventsItemJson(
      TextOf(event.m_name), TextOf(event.m_displayName), TextOf(event.m_description),
      TextOf(event.m_displayCategory)));
}

// ---- Commands and alarms

// Builds a parameter around its display values, which the builder takes for some display types only.
template <typename Build>
JsonPtr ConvertParam(const CUpdateControlParam& param, Build build) {
  JsonPtr values = param.m_displayValues.empty() ? nullptr : StringArray(param.m_displayValues);
  JsonPtr item(build(values.get()));
  ReleaseIfTaken(values, item.get(), "displayValues");
  return item;
}

JsonPtr ConvertCommandParam(const CUpdateCommandParam& param) {
  return ConvertParam(param, [&](cJSON* values) {
    return CUpdatePluginJson::CreateUpdateCommandParamsItemJson(
        TextOf(param.m_name), TextOf(param.m_displayName), TextOf(param.m_description),
        TextOf(param.m_defaultValue), param.m_displayType, param.m_required, TextOf(param.m_displayFormat),
        values, param.m_valueFromProperty);
  });
}

JsonPtr ConvertAlarmParam(const CUpdateAlarmParam& param) {
  return ConvertParam(param, [&](cJSON* values) {
    return CUpdatePluginJson::CreateUpdateAlarmParamsItemJson(
        TextOf(param.m_name), TextOf(param.m_displayName), TextOf(param.m_description), param.m_displayType,
        param.m_required, TextOf(param.m_displayFormat), values);
  });
}

JsonPtr ConvertCommand(const CUpdateCommand& command) {
  JsonPtr params = ConvertAll(command.m_params, ConvertCommandParam);
  JsonPtr item(CUpdatePluginJson::CreateUpdateCommandsItemJson(
      TextOf(command.m_name), TextOf(command.m_displayName), TextOf(command.m_description),
      TextOf(command.m_displayCategory), params.get(), nullptr));
  params.release();
  return item;
}

JsonPtr ConvertAlarm(const CUpdateAlarm& alarm) {
  JsonPtr params = ConvertAll(alarm.m_params, ConvertAlarmParam);
  JsonPtr item(CUpdatePluginJson::CreateUpdateAlarmsItemJson(
      TextOf(alarm.m_name), TextOf(alarm.m_displayName), TextOf(alarm.m_description),
      TextOf(alarm.m_displayCategory), params.get()));
  params.release();
  return item;
}

// ---- Roots

cJSON* BuildRegistration(const CUpdateParams& model, CUpdatePluginJson& builder) {
  JsonPtr modules = ConvertAll(model.m_modules,
                               [](const CUpdateModule& module) { return JsonPtr(module.GetUpdateModule()); });
  JsonPtr params(builder.CreateUpdateParamsObj(
      TextOf(model.m_appName), TextOf(model.m_displayName), model.m_type, TextOf(model.m_version),
      TextOf(model.m_startCommand), TextOf(model.m_stopCommand), modules.get()));
  modules.release();
  return RequestOf(builder, std::move(params));
}

JsonPtr ConvertLocalParam(const CLocalCommandParam& param) {
  return JsonPtr(
      CLocalCommandPluginJson::CreateCommandParamsItemJson(param.m_name.c_str(), param.m_value.c_str()));
}

// The commands before the first one without parameters; null for an empty list.
JsonPtr ConvertLocalCommands(const std::list<CLocalCommand*>& commands) {
  if (commands.empty()) return nullptr;
  JsonPtr array = NewArray();
  for (const CLocalCommand* command : commands) {
    if (command == nullptr) continue;
    if (command->m_params.empty()) break;
    JsonPtr item = NewObject();
    AddString(item.get(), "name", command->m_name);
    Attach(item.get(), "params", ConvertAll(command->m_params, ConvertLocalParam));
    Append(array.get(), std::move(item));
  }
  return array;
}

void FillBuilder(const CLocalCommandParams& model, const char* apiVersion, const char* accessKey,
                 CLocalCommandPluginJson& builder) {
  builder.m_version = RequireText(apiVersion);
  builder.m_clientAppGUID = model.m_clientAppGUID;
  builder.m_appGUID = model.m_appGUID;
  if (builder.m_version == ApiVersion::v2) builder.m_accessKey = RequireText(accessKey);
  builder.m_moduleName = model.m_moduleName;
  builder.m_serialNumber = model.m_serialNumber;
}

cJSON* BuildLocalCommands(const CLocalCommandParams& model, CLocalCommandPluginJson& builder) {
  JsonPtr commands = ConvertLocalCommands(model.m_commands);
  JsonPtr params(builder.CreateLocalCommandParamsObj(commands.get()));
  ReleaseIfTaken(commands, params.get(), "commands");
  return RequestOf(builder, std::move(params));
}

}  // namespace

// ---- Items

CUpdateInfo::CUpdateInfo() = default;
CUpdateInfo::CUpdateInfo(std::string name, std::string displayCategory, std::string displayName,
                         std::string description)
    : m_name(std::move(name)),
      m_displayCategory(std::move(displayCategory)),
      m_displayName(std::move(displayName)),
      m_description(std::move(description)) {}

CUpdateProperty::CUpdateProperty() = default;
CUpdateProperty::CUpdateProperty(std::string name, std::string displayCategory, std::string displayName,
                                 std::string description, std::string displayType, std::string value,
                                 const std::list<std::map<std::string, std::string>>& rows,
                                 const std::map<std::string, std::list<std::string>>& valueFromProperty)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)),
      m_displayType(std::move(displayType)),
      m_value(std::move(value)),
      m_rows(rows),
      m_valueFromProperty(valueFromProperty) {}

CUpdateState::CUpdateState() = default;
CUpdateState::CUpdateState(std::string name, std::string displayCategory, std::string displayName,
                           std::string description, std::string displayType)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)),
      m_displayType(std::move(displayType)) {}

CUpdateMetric::CUpdateMetric() = default;
CUpdateMetric::CUpdateMetric(std::string name, std::string displayCategory, std::string displayName,
                             std::string description, std::string displayType, std::string displayUnit)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)),
      m_displayType(std::move(displayType)),
      m_displayUnit(std::move(displayUnit)) {}

CUpdateEvent::CUpdateEvent() = default;
CUpdateEvent::CUpdateEvent(std::string name, std::string displayCategory, std::string displayName,
                           std::string description)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)) {}

CUpdateControlParam::CUpdateControlParam() = default;
CUpdateControlParam::CUpdateControlParam(std::string name, std::string displayName, std::string description,
                                         std::string displayType, bool required, std::string type,
                                         std::string displayFormat,
                                         const std::list<std::string>& displayValues)
    : m_name(std::move(name)),
      m_displayName(std::move(displayName)),
      m_description(std::move(description)),
      m_displayType(std::move(displayType)),
      m_required(required),
      m_type(std::move(type)),
      m_displayFormat(std::move(displayFormat)),
      m_displayValues(displayValues) {}

CUpdateCommandParam::CUpdateCommandParam() = default;
CUpdateCommandParam::CUpdateCommandParam(std::string name, std::string displayName, std::string description,
                                         std::string displayType, bool required, std::string type,
                                         std::string displayFormat,
                                         const std::list<std::string>& displayValues,
                                         std::string defaultValue, std::string valueFromProperty)
    : CUpdateControlParam(std::move(name), std::move(displayName), std::move(description),
                          std::move(displayType), required, std::move(type), std::move(displayFormat),
                          displayValues),
      m_defaultValue(std::move(defaultValue)),
      m_valueFromProperty(std::move(valueFromProperty)) {}

CUpdateAlarmParam::CUpdateAlarmParam() = default;
CUpdateAlarmParam::CUpdateAlarmParam(std::string name, std::string displayName, std::string description,
                                     std::string displayType, bool required, std::string type,
                                     std::string displayFormat, const std::list<std::string>& displayValues)
    : CUpdateControlParam(std::move(name), std::move(displayName), std::move(description),
                          std::move(displayType), required, std::move(type), std::move(displayFormat),
                          displayValues) {}

CUpdateCommand::CUpdateCommand() = default;
CUpdateCommand::CUpdateCommand(std::string name, std::string displayCategory, std::string displayName,
                               std::string description, std::string type,
                               const std::list<CUpdateCommandParam*>& params,
                               const std::map<std::string, std::list<std::string>>& displayOnProperty)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)),
      m_type(std::move(type)),
      m_params(params),
      m_displayOnProperty(displayOnProperty) {}

CUpdateAlarm::CUpdateAlarm() = default;
CUpdateAlarm::CUpdateAlarm(std::string name, std::string displayCategory, std::string displayName,
                           std::string description, const std::list<CUpdateAlarmParam*>& params)
    : CUpdateInfo(std::move(name), std::move(displayCategory), std::move(displayName),
                  std::move(description)),
      m_params(params) {}

// ---- Module

CUpdateModule::CUpdateModule() = default;
CUpdateModule::CUpdateModule(std::string moduleName, std::string displayName, std::string description,
                             const std::list<CUpdateProperty*>& properties,
                             const std::list<CUpdateState*>& states, const std::list<CUpdateMetric*>& metrics,
                             const std::list<CUpdateEvent*>& events,
                             const std::list<CUpdateCommand*>& commands,
                             const std::list<CUpdateAlarm*>& alarms)
    : m_moduleName(std::move(moduleName)),
      m_displayName(std::move(displayName)),
      m_description(std::move(description)),
      m_properties(properties),
      m_states(states),
      m_metrics(metrics),
      m_events(events),
      m_commands(commands),
      m_alarms(alarms) {}

cJSON* CUpdateModule::GetUpdateModule() const {
  // In this order, because the first fault is the one reported; the request has the events first.
  JsonPtr properties = ConvertAll(m_properties, ConvertProperty);
  JsonPtr states = ConvertAll(m_states, ConvertState);
  JsonPtr metrics = ConvertAll(m_metrics, ConvertMetric);
  JsonPtr events = ConvertAll(m_events, ConvertEvent);
  JsonPtr commands = ConvertAll(m_commands, ConvertCommand);
  JsonPtr alarms = ConvertAll(m_alarms, ConvertAlarm);
  cJSON* module = CUpdatePluginJson::CreateUpdateModulesItemJson(
      TextOf(m_moduleName), TextOf(m_displayName), TextOf(m_description), properties.get(), states.get(),
      events.get(), metrics.get(), commands.get(), alarms.get());
  for (JsonPtr* taken : {&properties, &states, &metrics, &events, &commands, &alarms}) taken->release();
  return module;
}

// ---- Root of the registration

CUpdateParams::CUpdateParams() = default;
CUpdateParams::CUpdateParams(std::string appGUID, std::string appName, std::string displayName,
                             std::string type, std::string version, std::string startCommand,
                             std::string stopCommand, const std::list<CUpdateModule*>& modules)
    : m_appGUID(std::move(appGUID)),
      m_appName(std::move(appName)),
      m_displayName(std::move(displayName)),
      m_type(std::move(type)),
      m_version(std::move(version)),
      m_startCommand(std::move(startCommand)),
      m_stopCommand(std::move(stopCommand)),
      m_modules(modules) {}

CUpdatePluginJson* CUpdateParams::GetNotifyPluginUpdate(const char* apiVersion, const char* accessKey) {
  if (m_updatePluginJson != nullptr) return m_updatePluginJson;
  auto builder = std::make_unique<CUpdatePluginJson>();
  builder->m_version = RequireText(apiVersion);
  builder->m_appGUID = m_appGUID;
  builder->m_accessKey = RequireText(accessKey);
  m_updatePluginJson = builder.release();
  m_updatePluginJson->m_request = BuildRegistration(*this, *m_updatePluginJson);
  return m_updatePluginJson;
}

CUpdatePluginJson* CUpdateParams::GetNotifyPluginUpdate() const {
  return m_updatePluginJson;
}

void CUpdateParams::UpdateNotifyPluginUpdateData() {
  if (m_updatePluginJson == nullptr) return;
  // The former request may be in the application's hands; it is overwritten, never deleted here.
  m_updatePluginJson->m_request = BuildRegistration(*this, *m_updatePluginJson);
}

// ---- Local commands

CLocalCommandParam::CLocalCommandParam() = default;
CLocalCommandParam::CLocalCommandParam(std::string name, std::string value)
    : m_name(std::move(name)), m_value(std::move(value)) {}

CLocalCommand::CLocalCommand() = default;
CLocalCommand::CLocalCommand(std::string name, const std::list<CLocalCommandParam*>& params)
    : m_name(std::move(name)), m_params(params) {}

CLocalCommandParams::CLocalCommandParams() = default;
CLocalCommandParams::CLocalCommandParams(std::string clientAppGUID, std::string appGUID,
                                         std::string serialNumber, std::string moduleName,
                                         const std::list<CLocalCommand*>& commands)
    : m_clientAppGUID(std::move(clientAppGUID)),
      m_appGUID(std::move(appGUID)),
      m_serialNumber(std::move(serialNumber)),
      m_moduleName(std::move(moduleName)),
      m_commands(commands) {}

CLocalCommandPluginJson* CLocalCommandParams::GetNotifyPluginLocalCommand(const char* apiVersion,
                                                                          const char* accessKey) {
  if (m_localCommandPluginJson != nullptr) return m_localCommandPluginJson;
  m_localCommandPluginJson = new CLocalCommandPluginJson();
  FillBuilder(*this, apiVersion, accessKey, *m_localCommandPluginJson);
  m_localCommandPluginJson->m_request = BuildLocalCommands(*this, *m_localCommandPluginJson);
  return m_localCommandPluginJson;
}

CLocalCommandPluginJson* CLocalCommandParams::GetNotifyPluginLocalCommand() const {
  return m_localCommandPluginJson;
}
