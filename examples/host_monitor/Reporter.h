/// @file
/// Builds and sends everything the host monitor reports.
#pragma once

#include <map>
#include <string>

#include "CommandAcksPluginJson.h"
#include "Framing.h"
#include "HostReadings.h"
#include "JsonTree.h"

namespace demo {

/// Who reports: assigned to every builder.
struct Identity {
  std::string appGUID;
  std::string version;
  std::string accessKey;
};

/// A member of the acknowledgement builder that makes the params of one state, such as
/// &CCommandAcksPluginJson::CreateCommandAcksAckedParamsObj.
using AckParams = cJSON* (CCommandAcksPluginJson::*)(cJSON*);

/// One thread at a time. Throws what the builders (CPluginException) and the connection throw.
class Reporter {
 public:
  Reporter(const Identity& identity, Connection& connection);

  void States(const HostReadings& readings, const std::string& health);
  void Metrics(const HostReadings& readings, bool withInodes);
  void Event(const char* name, const std::string& value);
  /// @param action Action::trigger or Action::resolve
  void Alert(const char* name, const std::string& action, const std::string& message);
  /// @param results array of result items, null for none
  void Acknowledge(CCommandPluginJson& command, AckParams state, JsonTree results);
  /// A command that another program of this machine gave to the plugin directly.
  void LocalCommand(const std::string& clientGUID, const std::string& name,
                    const std::map<std::string, std::string>& params);

  void Send(const cJSON* request);

 private:
  template <class Builder>
  Builder& Identified(Builder& builder, const char* moduleName);
  template <class Builder>
  void Report(Builder& builder, cJSON* (Builder::*createParams)(cJSON*), JsonTree items);

  const Identity& m_identity;
  Connection& m_connection;
};

}  // namespace demo
