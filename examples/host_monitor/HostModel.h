/// @file
/// What the host monitor tells the agent about itself: two modules with everything they report and accept.
#pragma once

#include <list>
#include <string>

#include "JsonTree.h"
#include "PluginData.h"
#include "UpdatePluginJson.h"

namespace demo {

// Names of the model. Reports use the same constants, so that nothing undeclared can be reported.
constexpr char kHostModule[] = "host";
constexpr char kDiskModule[] = "disk";
constexpr char kHealthState[] = "health";
constexpr char kUptimeState[] = "uptime";
constexpr char kMemoryState[] = "memory";
constexpr char kSpaceState[] = "space";
constexpr char kLoadMetric[] = "load1";
constexpr char kMemoryMetric[] = "memoryUsed";
constexpr char kDiskMetric[] = "diskUsed";
constexpr char kInodesMetric[] = "inodesUsed";
constexpr char kMeasuredEvent[] = "measured";
constexpr char kSettingsEvent[] = "settingsChanged";
constexpr char kCollectCommand[] = "collectNow";
constexpr char kIntervalCommand[] = "setInterval";
constexpr char kDetailCommand[] = "setDetail";
constexpr char kSection[] = "section";
constexpr char kIntervalMs[] = "intervalMs";
constexpr char kLevel[] = "level";
constexpr char kMemoryAlarm[] = "memoryHigh";
constexpr char kThreshold[] = "threshold";

/// Owns the description and the registration built from it. The description classes point to their items and
/// never delete them: something has to own the items and to keep their addresses. That is this class.
/// One thread at a time.
class HostModel {
 public:
  HostModel(const std::string& appGUID, const std::string& mountPoint);
  ~HostModel();
  HostModel(const HostModel&) = delete;
  HostModel& operator=(const HostModel&) = delete;

  /// Builds the registration. The returned tree stays the model's, until Rebuild() or the end of the model.
  /// @throws CPluginException when the description breaks a rule
  const cJSON* Register(const std::string& version, const std::string& accessKey);

  /// The registration again, with the present time.
  JsonTree Renew();

  /// Adds the metric of used inodes to the disk module, or takes it away. False when nothing changes.
  bool ShowInodes(bool show);
  bool ShowsInodes() const;

  /// Builds the registration anew after a change. Ownership as with Register.
  const cJSON* Rebuild();

 private:
  /// Lists, because they never move their elements: the description keeps pointers to them.
  struct Items {
    std::list<CUpdateProperty> properties;
    std::list<CUpdateState> states;
    std::list<CUpdateMetric> metrics;
    std::list<CUpdateEvent> events;
    std::list<CUpdateCommandParam> commandParams;
    std::list<CUpdateCommand> commands;
    std::list<CUpdateAlarmParam> alarmParams;
    std::list<CUpdateAlarm> alarms;
  };
  static CUpdateModule Module(const char* name, const char* displayName, const char* description,
                              Items& items);
  void DescribeHostProperties();
  void DescribeHostReports();
  void DescribeHostCommands();
  void DescribeHostAlarms();
  void DescribeDisk(const std::string& mountPoint);

  Items m_hostItems;
  Items m_diskItems;
  CUpdateMetric m_inodes;
  CUpdateModule m_host;
  CUpdateModule m_disk;
  CUpdateParams m_root;
};

}  // namespace demo
