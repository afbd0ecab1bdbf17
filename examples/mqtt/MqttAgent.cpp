#include "MqttAgent.h"

#include <functional>
#include <utility>

#include "AgentMessages.h"
#include "CommandAcksPluginJson.h"
#include "Program.h"
#include "RandomText.h"
#include "SensorModel.h"
#include "Topics.h"

namespace demo::mqtt {

MqttAgent::MqttAgent(const Broker& broker, const std::string& version,
                     const std::map<std::string, std::string>& keys, long commandEvery, Verdicts& verdicts)
    : m_version(version),
      m_commandEvery(commandEvery),
      m_verdicts(verdicts),
      m_client(broker, "agent-" + RandomHex(8), TopicUp("+"), *this) {
  for (const auto& [appGUID, accessKey] : keys) {
    m_plugins[appGUID].accessKey = accessKey;
  }
}

/// Plugins that are there already have registered before we listened: they do it again.
void MqttAgent::Subscribed() {
  for (const auto& [appGUID, plugin] : m_plugins) {
    JsonTree params = Owned(cJSON_CreateObject());
    AttachText(params, MessageType::agentEventServerConnectivity.c_str(), MessageType::online);
    m_client.Publish(TopicDown(appGUID), ComposeRequest(m_version, plugin.accessKey,
                                                        AgentPluginApi::notifyAgentEvent, std::move(params)));
  }
}

void MqttAgent::Received(const std::string& topic, const std::string& text) {
  const std::string appGUID = GuidOf(topic);
  const auto plugin = m_plugins.find(appGUID);
  if (plugin == m_plugins.end()) {
    return;  // of another agent
  }
  // No two texts of a plugin are equal: their signatures have salts, and unsigned reports are numbered.
  if (!m_seen.insert(std::hash<std::string>{}(text)).second) {
    ++m_verdicts.repeated;
    return;
  }
  Judge(appGUID, plugin->second, text);
  ++m_verdicts.received;  // last: who sees the count sees the verdict too
}

void MqttAgent::Judge(const std::string& appGUID, Plugin& plugin, const std::string& text) {
  const Examined message = Examine(text, m_version, plugin.accessKey);
  std::string refusal = message.refusal;
  if (refusal.empty() && TextOf(message.params, "appGUID") != appGUID) {
    refusal = "not from the plugin of its topic";
  }
  if (!refusal.empty()) {
    ++m_verdicts.failures;
    DEMO_LOG(UTL_LOG_WRN, "refused %s of %s: %s", Printable(message.kind).c_str(), appGUID.c_str(),
             refusal.c_str());
    return;
  }
  DEMO_LOG(UTL_LOG_INFO, "verified %s of %s", Printable(message.kind).c_str(), appGUID.c_str());
  Take(appGUID, plugin, message);
}

void MqttAgent::Take(const std::string& appGUID, Plugin& plugin, const Examined& message) {
  if (message.kind == AgentPluginApi::notifyPluginUpdate) {
    ++m_verdicts.registrations;
  } else if (message.kind == AgentPluginApi::notifyPluginCommandAck) {
    if (TextOf(message.params, "commandState") == AckState::ACKED &&
        plugin.open.erase(TextOf(message.params, "commandId")) != 0) {
      ++m_verdicts.acknowledged;
    }
  } else {
    ++m_verdicts.reports;
    if (++plugin.reports % m_commandEvery == 0) {
      SendCommand(appGUID, plugin);
    }
  }
}

void MqttAgent::SendCommand(const std::string& appGUID, Plugin& plugin) {
  // Random, because a plugin remembers ids for longer than an agent runs.
  const std::string id = RandomHex(8);
  plugin.open.insert(id);
  ++m_verdicts.commands;
  JsonTree commands = Owned(cJSON_CreateArray());
  Append(commands, Setting(kIdentifyCommand, kBlinks, "3"));
  m_client.Publish(TopicDown(appGUID),
                   ComposeRequest(m_version, plugin.accessKey, AgentPluginApi::notifyPluginCommand,
                                  CommandParams(id, kSensorModule, std::move(commands))));
}

void MqttAgent::Refused(const std::string& reason) {
  DEMO_LOG(UTL_LOG_ERR, "the broker refused a message: %s", reason.c_str());
}

}  // namespace demo::mqtt
