#include "Registration.h"

#include <ctime>
#include <string>

namespace bench {

namespace {

void Add(cJSON* object, const char* key, const std::string& value) {
  if (!value.empty()) cJSON_AddStringToObject(object, key, value.c_str());
}

cJSON* BaseItem(const CUpdateInfo& info) {
  cJSON* item = cJSON_CreateObject();
  Add(item, "name", info.m_name);
  Add(item, "displayName", info.m_displayName);
  Add(item, "description", info.m_description);
  Add(item, "displayCategory", info.m_displayCategory);
  return item;
}

cJSON* ToJson(const CUpdateProperty& property) {
  cJSON* item = BaseItem(property);
  Add(item, "displayType", property.m_displayType);
  Add(item, "value", property.m_value);
  return item;
}

cJSON* ToJson(const CUpdateState& state) {
  cJSON* item = BaseItem(state);
  Add(item, "displayType", state.m_displayType);
  return item;
}

cJSON* ToJson(const CUpdateMetric& metric) {
  cJSON* item = BaseItem(metric);
  Add(item, "displayUnit", metric.m_displayUnit);
  Add(item, "displayType", metric.m_displayType);
  return item;
}

cJSON* ToJson(const CUpdateEvent& event) {
  return BaseItem(event);
}

cJSON* ControlParam(const CUpdateControlParam& param) {
  cJSON* item = cJSON_CreateObject();
  Add(item, "name", param.m_name);
  Add(item, "displayName", param.m_displayName);
  Add(item, "description", param.m_description);
  Add(item, "displayType", param.m_displayType);
  cJSON_AddBoolToObject(item, "required", param.m_required);
  return item;
}

cJSON* ToJson(const CUpdateCommandParam& param) {
  cJSON* item = ControlParam(param);
  Add(item, "defaultValue", param.m_defaultValue);
  return item;
}

cJSON* ToJson(const CUpdateAlarmParam& param) {
  return ControlParam(param);
}

template <typename Item>
void AddAll(cJSON* object, const char* key, const std::list<Item*>& items);

cJSON* ToJson(const CUpdateCommand& command) {
  cJSON* item = BaseItem(command);
  cJSON_AddStringToObject(item, "type", "asynchronous");
  AddAll(item, "params", command.m_params);
  return item;
}

cJSON* ToJson(const CUpdateAlarm& alarm) {
  cJSON* item = BaseItem(alarm);
  AddAll(item, "params", alarm.m_params);
  return item;
}

cJSON* ToJson(const CUpdateModule& module) {
  cJSON* item = cJSON_CreateObject();
  Add(item, "moduleName", module.m_moduleName);
  Add(item, "displayName", module.m_displayName);
  Add(item, "description", module.m_description);
  AddAll(item, "properties", module.m_properties);
  AddAll(item, "states", module.m_states);
  AddAll(item, "events", module.m_events);
  AddAll(item, "metrics", module.m_metrics);
  AddAll(item, "commands", module.m_commands);
  AddAll(item, "alarms", module.m_alarms);
  return item;
}

template <typename Item>
void AddAll(cJSON* object, const char* key, const std::list<Item*>& items) {
  cJSON* array = cJSON_CreateArray();
  for (const Item* item : items) cJSON_AddItemToArray(array, ToJson(*item));
  cJSON_AddItemToObject(object, key, array);
}

}  // namespace

/// One of each kind, named in all modules alike.
struct Registration::Items {
  std::list<CUpdateProperty> properties;
  std::list<CUpdateState> states;
  std::list<CUpdateMetric> metrics;
  std::list<CUpdateEvent> events;
  std::list<CUpdateCommand> commands;
  std::list<CUpdateAlarm> alarms;
  std::list<CUpdateCommandParam> commandParams;
  std::list<CUpdateAlarmParam> alarmParams;
  std::list<CUpdateModule> modules;

  void AddModule(const std::string& name, std::size_t itemCount);
};

void Registration::Items::AddModule(const std::string& name, std::size_t itemCount) {
  CUpdateModule& module = modules.emplace_back();
  module.m_moduleName = name;
  module.m_displayName = "Camera";
  module.m_description = "Looks at the street in front of the house";
  const std::string about = "What the item is about, in a sentence";
  const std::list<std::string> none;
  for (std::size_t i = 0; i < itemCount / 5; ++i) {
    const std::string number = std::to_string(i);
    module.m_properties.push_back(&properties.emplace_back(
        "property" + number, "General", "Property " + number, about, "string", "some value",
        std::list<std::map<std::string, std::string>>(), std::map<std::string, std::list<std::string>>()));
    module.m_states.push_back(
        &states.emplace_back("state" + number, "General", "State " + number, about, "string"));
    module.m_metrics.push_back(
        &metrics.emplace_back("metric" + number, "General", "Metric " + number, about, "temperature", "C"));
    module.m_events.push_back(&events.emplace_back("event" + number, "General", "Event " + number, about));
  }
  for (std::size_t i = 0; i < itemCount / 10; ++i) {
    const std::string number = std::to_string(i);
    CUpdateCommandParam& commandParam = commandParams.emplace_back("speed", "Speed", "How fast to move",
                                                                   "string", true, "", "", none, "slow", "");
    module.m_commands.push_back(&commands.emplace_back(
        "command" + number, "General", "Command " + number, about, "",
        std::list<CUpdateCommandParam*>{&commandParam}, std::map<std::string, std::list<std::string>>()));
    CUpdateAlarmParam& alarmParam =
        alarmParams.emplace_back("threshold", "Threshold", "When to alarm", "string", false, "", "", none);
    module.m_alarms.push_back(&alarms.emplace_back("alarm" + number, "General", "Alarm " + number, about,
                                                   std::list<CUpdateAlarmParam*>{&alarmParam}));
  }
}

Registration::Registration(std::size_t modules, std::size_t itemsPerModule)
    : m_items(new Items), m_params(new CUpdateParams) {
  m_params->m_appGUID = "7a1c9f6e-52b0-4f0a-9d53-3f3a51f3c1de";
  m_params->m_appName = "surveillance";
  m_params->m_displayName = "Surveillance";
  m_params->m_type = AppType::ib;
  m_params->m_version = "1.4.12";
  for (std::size_t i = 0; i < modules; ++i) m_items->AddModule("camera" + std::to_string(i), itemsPerModule);
  for (CUpdateModule& module : m_items->modules) m_params->m_modules.push_back(&module);
  cJSON_Delete(m_params->GetNotifyPluginUpdate("v1", "")->m_request);
}

cJSON* Registration::BuildByLibrary() const {
  m_params->UpdateNotifyPluginUpdateData();
  return m_params->GetNotifyPluginUpdate()->m_request;
}

cJSON* Registration::BuildByHand() const {
  cJSON* params = cJSON_CreateObject();
  Add(params, "appGUID", m_params->m_appGUID);
  Add(params, "epoch", std::to_string(std::time(nullptr)));
  Add(params, "appName", m_params->m_appName);
  Add(params, "displayName", m_params->m_displayName);
  Add(params, "type", m_params->m_type);
  Add(params, "version", m_params->m_version);
  AddAll(params, "modules", m_params->m_modules);
  cJSON* request = cJSON_CreateObject();
  cJSON_AddStringToObject(request, "jsonrpc", "2.0");
  cJSON_AddItemToObject(request, "params", params);
  cJSON_AddStringToObject(request, "method", "v1/notifyPluginUpdate");
  return request;
}

}  // namespace bench
