#include "HostModel.h"

#include <algorithm>
#include <map>

#include "HostReadings.h"

namespace demo {
namespace {

using Row = std::map<std::string, std::string>;

// Fields of the description that a particular item leaves empty.
const std::string kNone;
const std::list<Row> kNoRows;
const std::list<std::string> kNoTexts;
const std::map<std::string, std::list<std::string>> kNoSource;

template <typename Item>
std::list<Item*> PointersTo(std::list<Item>& items) {
  std::list<Item*> pointers;
  for (Item& item : items) {
    pointers.push_back(&item);
  }
  return pointers;
}

}  // namespace

HostModel::HostModel(const std::string& appGUID, const std::string& mountPoint)
    : m_inodes(kInodesMetric, "Usage", "Inodes used", "Files the disk holds, of those it can hold", kNone,
               "%") {
  DescribeHostProperties();
  DescribeHostReports();
  DescribeHostCommands();
  DescribeHostAlarms();
  DescribeDisk(mountPoint);
  m_host = Module(kHostModule, "Host", "Load, memory and uptime of this machine", m_hostItems);
  m_disk = Module(kDiskModule, "Disk", "One disk of this machine", m_diskItems);
  m_root = CUpdateParams(appGUID, "HostMonitor", "Host monitor", AppType::ib, "1.0.0", kNone, kNone,
                         {&m_host, &m_disk});
}

HostModel::~HostModel() {
  // The builder belongs to whoever took it. Asking the root for it again finds it even after a first build
  // that threw.
  delete m_root.GetNotifyPluginUpdate();
}

CUpdateModule HostModel::Module(const char* name, const char* displayName, const char* description,
                                Items& items) {
  return {name,
          displayName,
          description,
          PointersTo(items.properties),
          PointersTo(items.states),
          PointersTo(items.metrics),
          PointersTo(items.events),
          PointersTo(items.commands),
          PointersTo(items.alarms)};
}

void HostModel::DescribeHostProperties() {
  auto& properties = m_hostItems.properties;
  // Mind the order: the second text is the category, the display name comes third.
  properties.emplace_back("hostName", "System", "Host name", kNone, DisplayType::string, HostName(), kNoRows,
                          kNoSource);
  properties.emplace_back("kernel", "System", "Kernel", kNone, DisplayType::displayOn, KernelRelease(),
                          kNoRows, kNoSource);
  const std::list<Row> sources = {{{"name", "load"}, {"file", "/proc/loadavg"}},
                                  {{"name", "memory"}, {"file", "/proc/meminfo"}},
                                  {{"name", "uptime"}, {"file", "/proc/uptime"}}};
  properties.emplace_back("sources", "System", "Sources", "Where the values come from", DisplayType::table,
                          kNone, sources, kNoSource);
  properties.emplace_back("manual", "System", "Manual", kNone, DisplayType::link, kNone,
                          std::list<Row>{{{"file:///usr/share/doc", "Documents on this machine"}}},
                          kNoSource);
  // Not shown by itself: the parameter of a command takes its choices from here.
  const std::map<std::string, std::list<std::string>> choices = {
      {"defaultValue", {"all"}}, {"displayValues", {"all", "load", "memory"}}};
  properties.emplace_back("sections", "System", "Sections", kNone, DisplayType::valueFromProperty, kNone,
                          kNoRows, choices);
}

void HostModel::DescribeHostReports() {
  auto& states = m_hostItems.states;
  states.emplace_back(kHealthState, "Status", "Health", "ok, or what is wrong", DisplayType::string);
  states.emplace_back(kUptimeState, "Status", "Uptime", kNone, DisplayType::string);
  states.emplace_back(kMemoryState, "Status", "Memory", "MiB, by kind", DisplayType::table);

  auto& metrics = m_hostItems.metrics;
  metrics.emplace_back(kLoadMetric, "Usage", "Load", "Average of the last minute", kNone, "processes");
  metrics.emplace_back(kMemoryMetric, "Usage", "Memory used", kNone, kNone, "%");

  auto& events = m_hostItems.events;
  events.emplace_back(kMeasuredEvent, "Activity", "Measured", "A round of measurements is done");
  events.emplace_back(kSettingsEvent, "Activity", "Settings changed", kNone);
}

void HostModel::DescribeHostCommands() {
  auto& params = m_hostItems.commandParams;
  CUpdateCommandParam& section = params.emplace_back(
      kSection, "Section", kNone, DisplayType::ilist, false, kNone, kNone, kNoTexts, "all",
      "sections");  // no values of its own: they come from the property
  CUpdateCommandParam& interval =
      params.emplace_back(kIntervalMs, "Interval", "Milliseconds from 50 to 60000", DisplayType::string, true,
                          kNone, kNone, kNoTexts, "1000", kNone);
  CUpdateCommandParam& level =
      params.emplace_back(kLevel, "Level", kNone, DisplayType::ilist, true, kNone, kNone,
                          std::list<std::string>{"basic", "full"}, "basic", kNone);

  using Params = std::list<CUpdateCommandParam*>;
  auto& commands = m_hostItems.commands;
  commands.emplace_back(kCollectCommand, "Control", "Collect now", "Measures and reports at once", kNone,
                        Params{&section}, kNoSource);
  commands.emplace_back(kIntervalCommand, "Control", "Set interval", "Time between two rounds", kNone,
                        Params{&interval}, kNoSource);
  commands.emplace_back(kDetailCommand, "Control", "Set detail", "Which metrics the disk has", kNone,
                        Params{&level}, kNoSource);
}

void HostModel::DescribeHostAlarms() {
  auto& params = m_hostItems.alarmParams;
  CUpdateAlarmParam& threshold = params.emplace_back(kThreshold, "Threshold", "Percent of memory used",
                                                     DisplayType::string, true, kNone, kNone, kNoTexts);
  CUpdateAlarmParam& severity =
      params.emplace_back("severity", "Severity", kNone, DisplayType::ilist, false, kNone, kNone,
                          std::list<std::string>{"warning", "critical"});
  m_hostItems.alarms.emplace_back(kMemoryAlarm, "Usage", "Memory high", "More memory is used than allowed",
                                  std::list<CUpdateAlarmParam*>{&threshold, &severity});
}

void HostModel::DescribeDisk(const std::string& mountPoint) {
  m_diskItems.properties.emplace_back("mountPoint", "System", "Mount point", kNone, DisplayType::string,
                                      mountPoint, kNoRows, kNoSource);
  m_diskItems.states.emplace_back(kSpaceState, "Status", "Space", "MiB, by kind", DisplayType::table);
  m_diskItems.metrics.emplace_back(kDiskMetric, "Usage", "Disk used", kNone, kNone, "%");
}

const cJSON* HostModel::Register(const std::string& version, const std::string& accessKey) {
  return m_root.GetNotifyPluginUpdate(version.c_str(), accessKey.c_str())->m_request;
}

JsonTree HostModel::Renew() {
  return Owned(m_root.GetNotifyPluginUpdate()->RenewUpdateJsonObject(true));
}

bool HostModel::ShowInodes(bool show) {
  if (show == ShowsInodes()) {
    return false;
  }
  if (show) {
    m_disk.m_metrics.push_back(&m_inodes);
  } else {
    m_disk.m_metrics.remove(&m_inodes);
  }
  return true;
}

bool HostModel::ShowsInodes() const {
  const auto& metrics = m_disk.m_metrics;
  return std::find(metrics.begin(), metrics.end(), &m_inodes) != metrics.end();
}

const cJSON* HostModel::Rebuild() {
  CUpdatePluginJson* builder = m_root.GetNotifyPluginUpdate();
  cJSON* const previous = builder->m_request;
  m_root.UpdateNotifyPluginUpdateData();
  // Only now: had the build thrown, the builder would still hold the previous request.
  cJSON_Delete(previous);
  return builder->m_request;
}

}  // namespace demo
