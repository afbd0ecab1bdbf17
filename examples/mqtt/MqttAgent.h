/// @file
/// A simulated agent: verifies what plugins send over MQTT, and sends them commands.
#pragma once

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <unordered_set>

#include "AgentChecks.h"
#include "MqttClient.h"

namespace demo::mqtt {

/// What an agent has found. Safe for concurrent use: another thread may look on.
struct Verdicts {
  std::atomic<long> received{0};  ///< messages of known plugins, whatever was found about them
  std::atomic<long> repeated{0};  ///< delivered more than once; not counted among the received
  std::atomic<long> failures{0};  ///< not signed by the plugin of their topic
  std::atomic<long> registrations{0};
  std::atomic<long> reports{0};
  std::atomic<long> commands{0};      ///< sent
  std::atomic<long> acknowledged{0};  ///< commands answered with "ACKED"
};

/// One thread at a time, its connection included.
class MqttAgent final : private ClientOwner {
 public:
  /// @param keys access key of each plugin, by its GUID
  /// @param commandEvery a plugin gets a command after each n-th of its reports
  MqttAgent(const Broker& broker, const std::string& version, const std::map<std::string, std::string>& keys,
            long commandEvery, Verdicts& verdicts);

  MqttClient& Connection() { return m_client; }

 private:
  struct Plugin {
    std::string accessKey;
    long reports = 0;
    std::set<std::string> open;  ///< ids of commands that are not answered yet
  };

  void Subscribed() override;
  void Received(const std::string& topic, const std::string& text) override;
  void Refused(const std::string& reason) override;

  void Judge(const std::string& appGUID, Plugin& plugin, const std::string& text);
  void Take(const std::string& appGUID, Plugin& plugin, const Examined& message);
  void SendCommand(const std::string& appGUID, Plugin& plugin);

  const std::string m_version;
  const long m_commandEvery;
  Verdicts& m_verdicts;
  std::map<std::string, Plugin> m_plugins;
  std::unordered_set<std::size_t> m_seen;  ///< hashes of the texts received
  MqttClient m_client;
};

}  // namespace demo::mqtt
