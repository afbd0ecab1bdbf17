/// @file
/// The description of a plugin as a file holds it, and the model that the library builds registrations from.
#pragma once

#include <list>
#include <string>

#include "JsonPlace.h"
#include "JsonTree.h"
#include "PluginData.h"

namespace demo {

/// Owns what the model only points to: its items, in lists because their elements never move, and its
/// builder.
class Description {
 public:
  explicit Description(const JsonPlace& file);
  // There is a builder after a first build that threw, too.
  ~Description() { delete m_root.GetNotifyPluginUpdate(); }
  Description(const Description&) = delete;
  Description& operator=(const Description&) = delete;

  /// The registration; it stays the builder's.
  const cJSON* Register(const std::string& version, const std::string& accessKey) {
    return m_root.GetNotifyPluginUpdate(version.c_str(), accessKey.c_str())->m_request;
  }
  /// The same registration, stamped with the present time.
  JsonTree Renew() { return Owned(m_root.GetNotifyPluginUpdate()->RenewUpdateJsonObject(true)); }
  /// The registration without one of the modules.
  const cJSON* Withdraw(const std::string& moduleName) {
    cJSON* former = m_root.GetNotifyPluginUpdate()->m_request;
    m_root.m_modules.remove_if(
        [&](const CUpdateModule* module) { return module->m_moduleName == moduleName; });
    m_root.UpdateNotifyPluginUpdateData();  // overwrites the former request; keeps it after an exception
    cJSON_Delete(former);
    return m_root.GetNotifyPluginUpdate()->m_request;
  }

 private:
  // Members are assigned by name: the constructors take many texts, whose order differs between the classes.
  void ReadModule(const JsonPlace& place);
  template <class Item>
  void ReadItems(const JsonPlace& array, std::list<Item>& items, std::list<Item*> CUpdateModule::*list);
  template <class Item, class Param>
  void ReadParams(const JsonPlace& array, std::list<Param>& params, Item& item,
                  std::list<Item*> CUpdateModule::*list);

  static void Fill(CUpdateProperty& property, const JsonPlace& place);
  static void Fill(CUpdateEvent&, const JsonPlace&) {}
  static void Fill(CUpdateState& state, const JsonPlace& place) {
    state.m_displayType = place.Text("displayType");
  }
  static void Fill(CUpdateMetric& metric, const JsonPlace& place) {
    metric.m_displayType = place.Text("displayType");
    metric.m_displayUnit = place.Text("displayUnit");
  }
  void Fill(CUpdateCommand& command, const JsonPlace& place) {
    ReadParams(place.At("params"), m_commandParams, command, &CUpdateModule::m_commands);
  }
  void Fill(CUpdateAlarm& alarm, const JsonPlace& place) {
    ReadParams(place.At("params"), m_alarmParams, alarm, &CUpdateModule::m_alarms);
  }
  static void Fill(CUpdateAlarmParam&, const JsonPlace&) {}
  static void Fill(CUpdateCommandParam& param, const JsonPlace& place) {
    param.m_defaultValue = place.Text("defaultValue");
    param.m_valueFromProperty = place.Text("valueFromProperty");
  }

  std::list<CUpdateProperty> m_properties;
  std::list<CUpdateState> m_states;
  std::list<CUpdateMetric> m_metrics;
  std::list<CUpdateEvent> m_events;
  std::list<CUpdateCommandParam> m_commandParams;
  std::list<CUpdateCommand> m_commands;
  std::list<CUpdateAlarmParam> m_alarmParams;
  std::list<CUpdateAlarm> m_alarms;
  std::list<CUpdateModule> m_modules;
  CUpdateParams m_root;
};

/// The library checks an item when a request is built, and does not say which one it was. So each is built by
/// itself as soon as it is read.
template <class Item>
void CheckAlone(const JsonPlace& place, Item& item, std::list<Item*> CUpdateModule::*list) {
  CUpdateModule module;
  module.m_moduleName = "alone";
  (module.*list).push_back(&item);
  try {
    const JsonTree built = Owned(module.GetUpdateModule());
    const cJSON* collection = cJSON_GetArrayItem(built.get(), 1);  // behind the name
    if (cJSON_GetArraySize(collection) == 0) {
      place.Refuse("a property of this display type, or without its rows or choices, is not written");
    }
  } catch (const CPluginException& error) {
    place.Refuse(error.what());
  }
}

inline void Description::Fill(CUpdateProperty& property, const JsonPlace& place) {
  property.m_displayType = place.Text("displayType");
  property.m_value = place.Text("value");
  place.At("rows").Elements([&](const JsonPlace& row) {
    auto& cells = property.m_rows.emplace_back();
    row.Members([&](const char* key, const JsonPlace&) { cells[key] = row.Text(key); });
  });
  place.At("choices").Members(
      [&](const char* key, const JsonPlace& texts) { property.m_valueFromProperty[key] = texts.Texts(); });
}

template <class Item, class Param>
void Description::ReadParams(const JsonPlace& array, std::list<Param>& params, Item& item,
                             std::list<Item*> CUpdateModule::*list) {
  array.Elements([&](const JsonPlace& place) {
    Param& param = params.emplace_back();
    param.m_name = place.Text("name");
    param.m_displayName = place.Text("displayName");
    param.m_description = place.Text("description");
    param.m_displayType = place.Text("displayType");
    param.m_required = place.Flag("required");
    param.m_displayFormat = place.Text("displayFormat");
    param.m_displayValues = place.At("displayValues").Texts();
    Fill(param, place);
    Item alone;
    alone.m_name = "alone";
    alone.m_params.push_back(&param);
    CheckAlone(place, alone, list);
    item.m_params.push_back(&param);
  });
}

template <class Item>
void Description::ReadItems(const JsonPlace& array, std::list<Item>& items,
                            std::list<Item*> CUpdateModule::*list) {
  array.Elements([&](const JsonPlace& place) {
    Item& item = items.emplace_back();
    item.m_name = place.Text("name");
    item.m_displayCategory = place.Text("category");
    item.m_displayName = place.Text("displayName");
    item.m_description = place.Text("description");
    Fill(item, place);
    CheckAlone(place, item, list);
    (m_modules.back().*list).push_back(&item);
  });
}

inline void Description::ReadModule(const JsonPlace& place) {
  CUpdateModule& module = m_modules.emplace_back();
  module.m_moduleName = place.Text("name");
  module.m_displayName = place.Text("displayName");
  module.m_description = place.Text("description");
  ReadItems(place.At("properties"), m_properties, &CUpdateModule::m_properties);
  ReadItems(place.At("states"), m_states, &CUpdateModule::m_states);
  ReadItems(place.At("metrics"), m_metrics, &CUpdateModule::m_metrics);
  ReadItems(place.At("events"), m_events, &CUpdateModule::m_events);
  ReadItems(place.At("commands"), m_commands, &CUpdateModule::m_commands);
  ReadItems(place.At("alarms"), m_alarms, &CUpdateModule::m_alarms);
  try {
    Owned(module.GetUpdateModule()).reset();  // only its name is still unchecked
  } catch (const CPluginException& error) {
    place.Refuse(error.what());
  }
  m_root.m_modules.push_back(&module);
}

inline Description::Description(const JsonPlace& file) {
  m_root.m_appGUID = file.Text("appGUID");
  m_root.m_appName = file.Text("appName");
  m_root.m_displayName = file.Text("displayName");
  m_root.m_type = file.Text("type");
  m_root.m_version = file.Text("version");
  m_root.m_startCommand = file.Text("startCommand");
  m_root.m_stopCommand = file.Text("stopCommand");
  file.At("modules").Elements([this](const JsonPlace& place) { ReadModule(place); });
}

}  // namespace demo
