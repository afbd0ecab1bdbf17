#include "Reporter.h"

#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <utility>

#include "AlertsPluginJson.h"
#include "EventsPluginJson.h"
#include "HostModel.h"
#include "LocalCommandPluginJson.h"
#include "MetricsPluginJson.h"
#include "Request.h"
#include "StatesPluginJson.h"

namespace demo {
namespace {

/// A table: one object for each row, with its name and an amount.
JsonTree Table(std::initializer_list<std::pair<const char*, std::uint64_t>> rows) {
  JsonTree table = Owned(cJSON_CreateArray());
  for (const auto& row : rows) {
    JsonTree entry = Owned(cJSON_CreateObject());
    AttachText(entry, "name", row.first);
    AttachText(entry, "value", std::to_string(row.second));
    Append(table, std::move(entry));
  }
  return table;
}

JsonTree TableItem(CStatesPluginJson& builder, const char* name, JsonTree table) {
  JsonTree item = Owned(builder.CreateStatesItemJson(name, table.get()));
  HandedOver(table);  // had the builder thrown, the table would still be ours to delete
  return item;
}

std::string UptimeText(double seconds) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.0f h %02.0f min", std::floor(seconds / 3600),
                std::floor(std::fmod(seconds, 3600) / 60));
  return text;
}

/// Frees what a report of local commands leaves to the application: its builder and the stored request.
struct LocalReport : CLocalCommandParams {
  using CLocalCommandParams::CLocalCommandParams;
  LocalReport(const LocalReport&) = delete;
  LocalReport& operator=(const LocalReport&) = delete;
  ~LocalReport() {
    if (CLocalCommandPluginJson* builder = GetNotifyPluginLocalCommand()) {
      cJSON_Delete(builder->m_request);
      delete builder;
    }
  }
};

}  // namespace

Reporter::Reporter(const Identity& identity, Connection& connection)
    : m_identity(identity), m_connection(connection) {}

template <class Builder>
Builder& Reporter::Identified(Builder& builder, const char* moduleName) {
  builder.m_appGUID = m_identity.appGUID;
  builder.m_version = m_identity.version;
  builder.m_accessKey = m_identity.accessKey;
  builder.m_moduleName = moduleName;
  return builder;
}

/// The steps that all reports share: items, params, request, text.
template <class Builder>
void Reporter::Report(Builder& builder, cJSON* (Builder::*createParams)(cJSON*), JsonTree items) {
  JsonTree params = Owned((builder.*createParams)(items.get()));
  HandedOver(items);
  Send(Wrapped(builder, params).get());
}

void Reporter::Send(const cJSON* request) {
  // Compact, because the default of the builders signs the compact printing: any other printing of the same
  // request would not verify.
  m_connection.Send(Compact(request));
}

void Reporter::States(const HostReadings& readings, const std::string& health) {
  CStatesPluginJson host;
  Identified(host, kHostModule);
  JsonTree items = Owned(cJSON_CreateArray());
  Append(items, Owned(host.CreateStatesItemJson(kHealthState, health.c_str())));
  Append(items, Owned(host.CreateStatesItemJson(kUptimeState, UptimeText(readings.uptimeSeconds).c_str())));
  Append(items, TableItem(host, kMemoryState,
                          Table({{"total", readings.memoryTotalKiB / 1024},
                                 {"available", readings.memoryAvailableKiB / 1024}})));
  Report(host, &CStatesPluginJson::CreateStatesParamsObj, std::move(items));

  CStatesPluginJson disk;
  Identified(disk, kDiskModule);
  items = Owned(cJSON_CreateArray());
  Append(items,
         TableItem(disk, kSpaceState,
                   Table({{"total", readings.diskTotalMiB}, {"available", readings.diskAvailableMiB}})));
  Report(disk, &CStatesPluginJson::CreateStatesParamsObj, std::move(items));
}

void Reporter::Metrics(const HostReadings& readings, bool withInodes) {
  CMetricsPluginJson host;
  Identified(host, kHostModule);
  JsonTree items = Owned(cJSON_CreateArray());
  Append(items, Owned(host.CreateMetricsItemJson(kLoadMetric, readings.load1)));
  Append(items, Owned(host.CreateMetricsItemJson(kMemoryMetric, readings.MemoryUsedPercent())));
  Report(host, &CMetricsPluginJson::CreateMetricsParamsObj, std::move(items));

  CMetricsPluginJson disk;
  Identified(disk, kDiskModule);
  items = Owned(cJSON_CreateArray());
  Append(items, Owned(disk.CreateMetricsItemJson(kDiskMetric, readings.DiskUsedPercent())));
  if (withInodes) {
    Append(items, Owned(disk.CreateMetricsItemJson(kInodesMetric, readings.InodesUsedPercent())));
  }
  Report(disk, &CMetricsPluginJson::CreateMetricsParamsObj, std::move(items));
}

void Reporter::Event(const char* name, const std::string& value) {
  CEventsPluginJson builder;
  Identified(builder, kHostModule);
  JsonTree items = Owned(cJSON_CreateArray());
  Append(items, Owned(builder.CreateEventsItemJson(name, value.c_str())));
  Report(builder, &CEventsPluginJson::CreateEventsParamsObj, std::move(items));
}

void Reporter::Alert(const char* name, const std::string& action, const std::string& message) {
  CAlertsPluginJson builder;
  Identified(builder, kHostModule);
  JsonTree items = Owned(cJSON_CreateArray());
  Append(items, Owned(CAlertsPluginJson::CreateAlarmsItemJson(name, action.c_str(), message.c_str())));
  Report<CAlertsPluginJson>(builder, &CAlertsPluginJson::CreateAlarmsParamsObj, std::move(items));
}

void Reporter::Acknowledge(CCommandPluginJson& command, AckParams state, JsonTree results) {
  CCommandAcksPluginJson builder;
  Identified(builder, command.m_moduleName.c_str()).m_commandPluginJson = &command;
  JsonTree params = Owned((builder.*state)(results.get()));
  if (cJSON_HasObjectItem(params.get(), "commandAcks")) {
    HandedOver(results);  // an empty array is not attached and stays ours
  }
  Send(Wrapped(builder, params).get());
}

void Reporter::LocalCommand(const std::string& clientGUID, const std::string& name,
                            const std::map<std::string, std::string>& params) {
  std::list<CLocalCommandParam> values;
  std::list<CLocalCommandParam*> pointers;
  for (const auto& [key, value] : params) {
    pointers.push_back(&values.emplace_back(key, value));
  }
  CLocalCommand command(name, pointers);
  std::list<CLocalCommand*> commands = {&command};
  LocalReport report(clientGUID, m_identity.appGUID, "", kHostModule, commands);
  Send(report.GetNotifyPluginLocalCommand(m_identity.version.c_str(), m_identity.accessKey.c_str())
           ->m_request);
}

}  // namespace demo
