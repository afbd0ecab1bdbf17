#include "SensorModel.h"

#include "JsonTree.h"

namespace demo::mqtt {

SensorModel::SensorModel(const std::string& appGUID)
    // Mind the order: the second text of an item is its category, that of a parameter its display name.
    : m_mode(kModeState, "Status", "Mode", "", DisplayType::string),
      m_readings(kReadingsMetric, "Activity", "Readings", "Readings taken so far", "", "readings"),
      m_tick(kTickEvent, "Activity", "Tick", "A reading was taken"),
      m_blinks(kBlinks, "Blinks", "", DisplayType::string, true, "", "", {}, "3", ""),
      m_identify(kIdentifyCommand, "Control", "Identify", "Blinks the lamp", "", {&m_blinks}, {}),
      m_sensor(kSensorModule, "Sensor", "A simulated sensor", {}, {&m_mode}, {&m_readings}, {&m_tick},
               {&m_identify}, {}),
      m_root(appGUID, "Sensor", "Sensor over MQTT", AppType::ib, "1.0.0", "", "", {&m_sensor}) {}

SensorModel::~SensorModel() {
  delete m_root.GetNotifyPluginUpdate();  // the root keeps the builder, but does not own it
}

std::string SensorModel::Registration(const std::string& version, const std::string& accessKey) {
  if (CUpdatePluginJson* builder = m_root.GetNotifyPluginUpdate()) {
    return Compact(Owned(builder->RenewUpdateJsonObject(true)).get());
  }
  return Compact(m_root.GetNotifyPluginUpdate(version.c_str(), accessKey.c_str())->m_request);
}

}  // namespace demo::mqtt
