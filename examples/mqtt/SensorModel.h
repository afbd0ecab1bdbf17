/// @file
/// What the sensor plugin tells the agent about itself: one module with one item of each kind.
#pragma once

#include <string>

#include "PluginData.h"

namespace demo::mqtt {

// Names of the model. Reports and commands use the same constants.
constexpr char kSensorModule[] = "sensor";
constexpr char kModeState[] = "mode";
constexpr char kReadingsMetric[] = "readings";
constexpr char kTickEvent[] = "tick";
constexpr char kIdentifyCommand[] = "identify";
constexpr char kBlinks[] = "blinks";

/// Owns the description, whose classes point to each other, and the registration built from it.
/// One thread at a time.
class SensorModel {
 public:
  explicit SensorModel(const std::string& appGUID);
  ~SensorModel();
  SensorModel(const SensorModel&) = delete;
  SensorModel& operator=(const SensorModel&) = delete;

  /// The registration as it is sent: built on the first call, renewed with the present time on each later
  /// one. The arguments of the first call stay in force.
  /// @throws CPluginException when the description breaks a rule
  std::string Registration(const std::string& version, const std::string& accessKey);

 private:
  CUpdateState m_mode;
  CUpdateMetric m_readings;
  CUpdateEvent m_tick;
  CUpdateCommandParam m_blinks;
  CUpdateCommand m_identify;
  CUpdateModule m_sensor;
  CUpdateParams m_root;
};

}  // namespace demo::mqtt
