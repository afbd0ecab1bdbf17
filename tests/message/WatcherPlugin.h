// Descriptions that own what an application would have to delete.
#pragma once

#include "PluginData.h"

namespace message_test {

// The plugin whose registration docs/messages.md shows, with every kind of item.
struct WatcherPlugin {
  CUpdateProperty model{"model", "General", "Model", "As printed on the case", "string", "C-7", {}, {}};
  CUpdateProperty lamp{"lamp", "", "Lamp", "", "displayOn", "on", {}, {}};
  CUpdateProperty lenses{"lenses", "", "", "", "table", "", {{{"name", "wide"}, {"mm", "24"}}}, {}};
  CUpdateProperty visitors{"visitors", "", "", "", "table", "", {}, {}};
  CUpdateProperty manual{"manual", "", "", "", "link", "", {{{"http://host/c7", "C-7"}}}, {}};
  CUpdateProperty zones{"zones", "", "", "", "valueFromProperty", "", {}, {}};
  CUpdateProperty built{"not a name", "", "", "", "datetime", "", {}, {}};  // left out, therefore unchecked
  CUpdateState power{"power", "Status", "Power", "Whether it runs", "string"};
  CUpdateMetric fps{"fps", "Status", "Frame rate", "", "", "1/s"};
  CUpdateEvent motion{"motion", "Status", "Motion", "Side on which something moved"};
  CUpdateCommandParam delay{"delay", "Delay", "Seconds", "string", false, "", "", {"unused"}, "5", ""};
  CUpdateCommandParam zone{"zone", "", "", "list", true, "", "", {}, "", "zones"};
  CUpdateCommandParam until{"until", "", "", "datetime", false, "", "YYYY-MM-DD", {}, "", ""};
  CUpdateCommand reboot{"reboot", "Service", "Reboot", "Starts anew", "unused", {&delay, &zone, &until}, {}};
  CUpdateCommand halt{"halt", "", "", "", "", {}, {{"lamp", {"off"}}}};
  CUpdateAlarmParam level{"level", "Level", "", "switch", true, "", "", {"low", "high"}};
  CUpdateAlarm overheat{"overheat", "Service", "Overheating", "Too warm", {&level}};
  CUpdateModule camera{"camera", "Camera", "Door camera", {}, {&power}, {&fps}, {&motion}, {}, {&overheat}};
  CUpdateModule spare{"spare", "", "", {&built}, {}, {}, {}, {}, {}};
  CUpdateParams root{"a1b2",  "Watcher", "Door watcher", AppType::ib,
                     "1.0.0", "run",     "halt",         {&camera, &spare}};

  WatcherPlugin() {
    zones.m_valueFromProperty = {
        {"displayValues", {"door", "yard"}}, {"defaultValue", {"door"}}, {"x", {"y"}}};
    camera.m_properties = {&model, &lamp, &lenses, &visitors, &manual, &zones, &built};
    camera.m_commands = {&reboot, &halt};
  }
  ~WatcherPlugin() { delete root.m_updatePluginJson; }
  CUpdatePluginJson* Build(const char* version = "v1") { return root.GetNotifyPluginUpdate(version, "key"); }
};

struct LocalReport {
  CLocalCommandParam delay{"delay", "5"};
  CLocalCommandParam blank;
  CLocalCommand reboot{"reboot", {&delay, &blank}};
  CLocalCommand bare{"bare", {}};
  CLocalCommandParams root{"c3d4", "a1b2", "", "camera", {}};

  ~LocalReport() {
    if (root.m_localCommandPluginJson != nullptr) cJSON_Delete(root.m_localCommandPluginJson->m_request);
    delete root.m_localCommandPluginJson;
  }
};

}  // namespace message_test
