/// @file
/// A plugin that reports a simulated sensor over MQTT and obeys the agent's commands.
#pragma once

#include <atomic>
#include <set>
#include <string>

#include "CommandAcksPluginJson.h"
#include "MqttClient.h"
#include "SensorModel.h"

namespace demo::mqtt {

/// Who reports: assigned to every builder.
struct Identity {
  std::string appGUID;
  std::string version;
  std::string accessKey;  ///< under "v2"
};

/// What plugins have sent; one for all that run together. Safe for concurrent use.
struct Traffic {
  std::atomic<long> sent{0};       ///< messages of every kind
  std::atomic<long> reports{0};    ///< those of them that tell a state, a metric or an event
  std::atomic<long> corrupted{0};  ///< reports changed after they had been signed
  std::atomic<long> refused{0};    ///< messages that the broker did not take
};

/// One thread at a time, its connection included; distinct plugins may run on distinct threads. Throws what
/// the builders (CPluginException) and the connection throw.
class SensorPlugin final : private ClientOwner {
 public:
  /// @param corruptEvery changes one byte of every n-th report after it was signed; 0 for none
  SensorPlugin(const Broker& broker, const Identity& identity, long corruptEvery, Traffic& traffic);

  /// Registers as soon as it is connected; obeys commands while it is served.
  MqttClient& Connection() { return m_client; }

  /// Sends the next report: a state, a metric and an event in turn.
  void Report();
  long Reports() const { return m_reports; }

 private:
  void Subscribed() override { Register(); }
  void Received(const std::string& topic, const std::string& text) override;
  void Refused(const std::string& reason) override;

  void Register();
  void Obey(const std::string& text);
  void Execute(const CCommandPluginJson& request);
  void Acknowledge(CCommandPluginJson& request, bool isKnown);
  void Send(const std::string& text);

  const Identity m_identity;
  const long m_corruptEvery;
  Traffic& m_traffic;
  SensorModel m_model;
  long m_reports = 0;
  std::string m_mode = "idle";
  std::set<std::string> m_obeyed;  ///< ids of the commands executed
  MqttClient m_client;             ///< last: nothing that it calls back for is gone before it
};

}  // namespace demo::mqtt
