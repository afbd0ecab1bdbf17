#include "SensorPlugin.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "EventsPluginJson.h"
#include "JsonTree.h"
#include "MetricsPluginJson.h"
#include "Program.h"
#include "Request.h"
#include "StatesPluginJson.h"
#include "Topics.h"

namespace demo::mqtt {
namespace {

template <class Builder>
Builder Identified(const Identity& identity) {
  Builder builder;
  builder.m_appGUID = identity.appGUID;
  builder.m_version = identity.version;
  builder.m_accessKey = identity.accessKey;
  builder.m_moduleName = kSensorModule;
  return builder;
}

/// The steps that all reports share: item, params, request, text.
template <class Builder, class Value>
std::string ReportText(const Identity& identity, cJSON* (Builder::*createItem)(const char*, Value),
                       cJSON* (Builder::*createParams)(cJSON*), const char* name, Value value) {
  auto builder = Identified<Builder>(identity);
  JsonTree items = Owned(cJSON_CreateArray());
  Append(items, Owned((builder.*createItem)(name, value)));
  JsonTree params = Owned((builder.*createParams)(items.get()));
  HandedOver(items);
  // Compact, because the builders sign the compact printing unless told otherwise.
  return Compact(Wrapped(builder, params).get());
}

/// Makes another number of the one reported: one byte, and nothing but the signature can tell.
void Corrupt(std::string& text) {
  char& digit = text[text.find_last_of("0123456789", text.rfind("\"method\""))];
  digit = static_cast<char>(digit ^ 1);  // 0 and 1, 2 and 3, ... change places
}

bool IsKnown(const CCommandPluginJson& request) {
  return request.m_moduleName == kSensorModule &&
         std::all_of(request.m_commands.begin(), request.m_commands.end(), [](cJSON* command) {
           return CPluginUtil::GetJSONStringFieldValue(command, "name") == kIdentifyCommand;
         });
}

}  // namespace

SensorPlugin::SensorPlugin(const Broker& broker, const Identity& identity, long corruptEvery,
                           Traffic& traffic)
    : m_identity(identity),
      m_corruptEvery(corruptEvery),
      m_traffic(traffic),
      m_model(identity.appGUID),
      m_client(broker, identity.appGUID, TopicDown(identity.appGUID), *this) {}

void SensorPlugin::Report() {
  const long number = ++m_reports;
  std::string text;
  switch (number % 3) {
    case 1:
      text = ReportText<CStatesPluginJson, const char*>(
          m_identity, &CStatesPluginJson::CreateStatesItemJson, &CStatesPluginJson::CreateStatesParamsObj,
          kModeState, (m_mode + ", reading " + std::to_string(number)).c_str());
      break;
    case 2:
      text = ReportText(m_identity, &CMetricsPluginJson::CreateMetricsItemJson,
                        &CMetricsPluginJson::CreateMetricsParamsObj, kReadingsMetric,
                        static_cast<double>(number));
      break;
    default:
      text = ReportText<CEventsPluginJson, const char*>(m_identity, &CEventsPluginJson::CreateEventsItemJson,
                                                        &CEventsPluginJson::CreateEventsParamsObj, kTickEvent,
                                                        ("reading " + std::to_string(number)).c_str());
  }
  if (m_corruptEvery != 0 && number % m_corruptEvery == 0) {
    Corrupt(text);
    ++m_traffic.corrupted;
  }
  Send(text);
  ++m_traffic.reports;
}

void SensorPlugin::Register() {
  Send(m_model.Registration(m_identity.version, m_identity.accessKey));
}

/// Counts first: the receiver may have a message before this function returns.
void SensorPlugin::Send(const std::string& text) {
  ++m_traffic.sent;
  m_client.Publish(TopicUp(m_identity.appGUID), text);
}

void SensorPlugin::Refused(const std::string& reason) {
  ++m_traffic.refused;
  DEMO_LOG(UTL_LOG_ERR, "the broker refused a message: %s", reason.c_str());
}

// Messages of the agent.

void SensorPlugin::Received(const std::string& /*there is one topic*/, const std::string& text) {
  std::string type;
  const std::unique_ptr<char, void (*)(void*)> extra(CPluginUtil::GetMessageType(text.c_str(), &type),
                                                     cJSON_free);
  if (type == MessageType::api_notifyPluginCommand) {
    Obey(text);
  } else if (type == MessageType::api_notifyAgentEvent) {
    // An agent that has just come does not know us. The library does not verify these events, which is why
    // nothing more than a registration may come of one.
    Register();
  } else {
    DEMO_LOG(UTL_LOG_WRN, "ignored a message: %s", Printable(text).c_str());
  }
}

void SensorPlugin::Obey(const std::string& text) {
  std::unique_ptr<CCommandPluginJson> request;
  try {
    // With the limits an access key makes signatures compulsory, and none may cost more than our own.
    request = std::make_unique<CCommandPluginJson>(text.c_str(), m_identity.accessKey, VerificationLimits());
  } catch (const std::out_of_range&) {
    // The method is escaped in the text: the one input that makes the parser throw.
  }
  if (request == nullptr || !request->m_validSignature) {
    DEMO_LOG(UTL_LOG_WRN, "refused a command: %s", Printable(text).c_str());
    return;
  }
  const bool isKnown = IsKnown(*request);
  // A command may come twice, because the broker delivers at least once or because somebody replays it. It is
  // answered each time and executed once; therefore the ids are kept for as long as the key is in use.
  if (isKnown && m_obeyed.insert(request->m_commandId).second) {
    Execute(*request);
  }
  Acknowledge(*request, isKnown);
}

void SensorPlugin::Execute(const CCommandPluginJson& request) {
  m_mode = "identified by " + request.m_commandId.substr(0, 64);  // a state holds at most 512 bytes
  DEMO_LOG(UTL_LOG_INFO, "executed command %s", Printable(request.m_commandId).c_str());
}

void SensorPlugin::Acknowledge(CCommandPluginJson& request, bool isKnown) {
  auto builder = Identified<CCommandAcksPluginJson>(m_identity);
  builder.m_commandPluginJson = &request;
  JsonTree results = Owned(cJSON_CreateArray());
  for (cJSON* command : request.m_commands) {
    const std::string name = CPluginUtil::GetJSONStringFieldValue(command, "name");
    Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(
                        name.c_str(), isKnown ? "the lamp blinks" : "not executed")));
  }
  JsonTree params = Owned(isKnown ? builder.CreateCommandAcksAckedParamsObj(results.get())
                                  : builder.CreateCommandAcksRejectedParamsObj(results.get()));
  if (cJSON_HasObjectItem(params.get(), "commandAcks")) {
    HandedOver(results);  // an empty array is not attached and stays ours
  }
  Send(Compact(Wrapped(builder, params).get()));
}

}  // namespace demo::mqtt
