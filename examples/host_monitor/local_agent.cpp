// A small agent: the other end of host_monitor_plugin. It takes one plugin's connection, verifies every
// message, holds it against what the plugin declared, and goes through a script of commands and alarm
// updates; one of them is tampered with, for the plugin to refuse. README.md shows how to build
// it by hand.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "AgentChecks.h"
#include "AgentMessages.h"
#include "BasePluginObject.h"
#include "Framing.h"
#include "JsonTree.h"
#include "Program.h"
#include "UpdatePluginJson.h"

namespace demo {
namespace {

using std::chrono::milliseconds;

constexpr char kModule[] = "host";
constexpr char kAlarm[] = "memoryHigh";
constexpr char kMeasuredMetric[] = "memoryUsed";
constexpr milliseconds kStepTimeout{10000};

struct Settings {
  std::string socketPath;
  std::string version;
  std::string accessKey;
  std::string ticket;
  int rounds = 0;
  milliseconds timeout{0};
};

/// The key of the items of a message, and that of their value.
struct Shape {
  const char* items;
  const char* value;
};

Shape ShapeOf(const std::string& kind) {
  static const std::map<std::string, Shape> shapes = {
      {AgentPluginApi::notifyPluginUpdate, {"modules", "displayName"}},
      {AgentPluginApi::notifyPluginState, {"states", "value"}},
      {AgentPluginApi::notifyPluginMetric, {"metrics", "value"}},
      {AgentPluginApi::notifyPluginEvent, {"events", "value"}},
      {AgentPluginApi::notifyPluginAlert, {"alarms", "message"}},
      {AgentPluginApi::notifyPluginCommandAck, {"commandAcks", "result"}},
      {AgentPluginApi::notifyPluginLocalCommand, {"commands", "params"}},
  };
  const auto found = shapes.find(kind);
  return found == shapes.end() ? Shape{"", ""} : found->second;
}

std::string Names(const cJSON* items) {
  std::string names;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, items) {
    names += (names.empty() ? "" : ",") + TextOf(item, "name");
  }
  return names;
}

std::string TextOrPrinted(const cJSON* value) {
  return cJSON_IsString(value) ? value->valuestring : value == nullptr ? "" : Compact(value);
}

/// A value for the reader; a table in one line.
std::string ShownValue(const cJSON* value) {
  if (!cJSON_IsArray(value)) {
    return TextOrPrinted(value);
  }
  std::string text;
  const cJSON* row = nullptr;
  cJSON_ArrayForEach(row, value) {
    text += (text.empty() ? "" : ", ") + TextOf(row, "name") + "=" +
            TextOrPrinted(cJSON_GetObjectItem(row, "value"));
  }
  return "[" + text + "]";
}

/// name=value, name=value, ...
std::string Shown(const cJSON* items, const char* valueKey) {
  std::string text;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, items) {
    const std::string name = TextOf(item, "name") + TextOf(item, "moduleName");  // a module has the latter
    text += (text.empty() ? "" : ", ") + name + "=" + ShownValue(cJSON_GetObjectItem(item, valueKey));
  }
  return text;
}

std::string Fixed(double value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.2f", value);
  return text;
}

/// What was found about a message that is verified.
struct Judgement {
  std::string fault;  ///< empty when everything is as declared
  std::string about;  ///< module, or what else tells messages of one kind apart
  std::string names;  ///< names of the items reported
};

class LocalAgent {
 public:
  LocalAgent(const Settings& settings, Transcript& transcript);

  /// Accepts one plugin and goes through the script with it. Throws when anything is not as it should be.
  void Run();

 private:
  using Act = void (LocalAgent::*)();
  /// One step of the script: what the agent does, and what it then waits for.
  struct Step {
    const char* remark;
    Act act;
    std::vector<std::string> awaited;  ///< "<kind> <outcome>", each to be seen at least once
  };
  static const std::vector<Step>& Script();

  void Welcome();
  void Play(const Step& step);
  void Part();
  bool Seen(const std::string& what, int times = 1) const;

  /// Handles the next message, or returns when the time is over. False when the plugin has hung up.
  bool HandleNext(Clock::time_point until);
  /// The same within a step, where neither hanging up nor the end of all time is allowed.
  void Await(Clock::time_point until);
  void Handle(const std::string& text);
  Judgement Judge(const Examined& message);
  void Refuse(const Examined& message, const std::string& reason);
  std::string AnsweredCommand(const cJSON* params) const;
  void RememberMemory(const cJSON* params);

  std::string ComposeCommand(const std::string& version, const std::string& name, const char* param,
                             const std::string& value);
  void SendCommand(const std::string& name, const char* param, const std::string& value);
  void SendThreshold(double percent);

  void AskToCollect() { SendCommand("collectNow", "section", "all"); }
  void ChangeInterval() { SendCommand("setInterval", "intervalMs", "300"); }
  void AskTheUnknown() { SendCommand("selfDestruct", "delay", "0"); }
  void AskForNonsense() { SendCommand("setInterval", "intervalMs", "soon"); }
  void ShowDetail() { SendCommand("setDetail", "level", "full"); }
  void SendWhatIsRefused();
  std::string ComposeTampered();
  void LowerThreshold() { SendThreshold(m_memoryUsed / 2); }
  void RaiseThreshold() { SendThreshold((m_memoryUsed + 100) / 2); }
  void GoOnline();
  void AwaitRounds();

  const Settings& m_settings;
  Transcript& m_transcript;
  Listener m_listener;
  Connection m_connection;
  Clock::time_point m_deadline;
  Registration m_registration;
  std::map<std::string, int> m_seen;              ///< how often, by "<kind> <outcome>"
  std::map<std::string, std::string> m_commands;  ///< names of the commands sent, by id
  int m_idsUsed = 0;
  double m_memoryUsed = 0;  ///< as last reported, percent
};

LocalAgent::LocalAgent(const Settings& settings, Transcript& transcript)
    : m_settings(settings),
      m_transcript(transcript),
      m_listener(settings.socketPath),
      m_connection(m_listener.Accept(settings.timeout)),
      m_deadline(Clock::now() + settings.timeout) {}

const std::vector<LocalAgent::Step>& LocalAgent::Script() {
  static const std::vector<Step> script = {
      {"waits for the plugin to register and to report",
       nullptr,
       {"notifyPluginUpdate registered", "notifyPluginState host health,uptime,memory",
        "notifyPluginState disk space", "notifyPluginMetric host load1,memoryUsed",
        "notifyPluginMetric disk diskUsed", "notifyPluginEvent host measured"}},
      {"sends a command",
       &LocalAgent::AskToCollect,
       {"notifyPluginCommandAck collectNow ACCEPTED", "notifyPluginCommandAck collectNow ACKED"}},
      {"sends a command that changes a setting",
       &LocalAgent::ChangeInterval,
       {"notifyPluginCommandAck setInterval ACKED", "notifyPluginEvent host settingsChanged"}},
      {"sends a command that the plugin does not know",
       &LocalAgent::AskTheUnknown,
       {"notifyPluginCommandAck selfDestruct REJECTED"}},
      {"sends a command with a bad parameter",
       &LocalAgent::AskForNonsense,
       {"notifyPluginCommandAck setInterval ERRORED"}},
      {"sends a command that must not be executed, and expects no answer",
       &LocalAgent::SendWhatIsRefused,
       {}},
      {"lowers the threshold below what is used",
       &LocalAgent::LowerThreshold,
       {"notifyPluginAlert memoryHigh trigger"}},
      {"raises the threshold above what is used",
       &LocalAgent::RaiseThreshold,
       {"notifyPluginAlert memoryHigh resolve"}},
      {"tells that the server can be reached again", &LocalAgent::GoOnline, {"notifyPluginUpdate renewed"}},
      {"sends a command that changes the plugin's model",
       &LocalAgent::ShowDetail,
       {"notifyPluginUpdate changed", "notifyPluginCommandAck setDetail ACKED",
        "notifyPluginMetric disk diskUsed,inodesUsed"}},
      {"waits for the rounds to come", &LocalAgent::AwaitRounds, {}},
  };
  return script;
}

void LocalAgent::Run() {
  Welcome();
  for (const Step& step : Script()) {
    Play(step);
  }
  Part();
}

void LocalAgent::Welcome() {
  std::string header;
  if (m_connection.Receive(&header, kStepTimeout) != Received::Frame || header.rfind("HELLO", 0) != 0) {
    throw std::runtime_error("no plugin said hello");
  }
  Util_LogSensitiveString("received header: ", header.c_str(), "", __FILE__, __LINE__, __func__);
  if (HeaderValue(header, "accessTicket") != m_settings.ticket ||
      HeaderValue(header, "version") != m_settings.version) {
    throw std::runtime_error("the plugin has another ticket or another version");
  }
  m_connection.Send("WELCOME local_agent\nversion: " + m_settings.version + "\n");
}

void LocalAgent::Play(const Step& step) {
  m_transcript.Remark(step.remark);
  if (step.act != nullptr) {
    (this->*step.act)();
  }
  const auto deadline = Clock::now() + kStepTimeout;
  for (const std::string& awaited : step.awaited) {
    while (!Seen(awaited)) {
      if (Clock::now() >= deadline) {
        throw std::runtime_error("did not come: " + awaited);
      }
      Await(deadline);
    }
  }
}

void LocalAgent::Part() {
  m_connection.Send("GOODBYE local_agent\n");
  const auto deadline = Clock::now() + kStepTimeout;
  while (Clock::now() < deadline && HandleNext(deadline)) {
  }
  if (!Seen("GOODBYE ticket")) {
    throw std::runtime_error("the plugin left without a goodbye");
  }
}

bool LocalAgent::Seen(const std::string& what, int times) const {
  const auto found = m_seen.find(what);
  return found != m_seen.end() && found->second >= times;
}

// What the plugin sends.

void LocalAgent::Await(Clock::time_point until) {
  if (Clock::now() >= m_deadline || !HandleNext(std::min(until, m_deadline))) {
    throw std::runtime_error("the plugin hung up, or the time is over");
  }
}

bool LocalAgent::HandleNext(Clock::time_point until) {
  std::string text;
  const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
  switch (m_connection.Receive(&text, std::max(left, milliseconds(0)))) {
    case Received::Frame:
      Handle(text);
      return true;
    case Received::TimedOut:
      return true;
    case Received::Closed:
      break;
  }
  return false;
}

void LocalAgent::Handle(const std::string& text) {
  if (text.rfind("GOODBYE", 0) == 0) {
    Util_LogSensitiveString("received header: ", text.c_str(), "", __FILE__, __LINE__, __func__);
    m_seen["GOODBYE ticket"] += HeaderValue(text, "accessTicket") == m_settings.ticket ? 1 : 0;
    return;
  }
  const Examined message = Examine(text, m_settings.version, m_settings.accessKey);
  if (!message.refusal.empty()) {
    Refuse(message, message.refusal);
  }
  const Judgement judgement = Judge(message);
  if (!judgement.fault.empty()) {
    Refuse(message, judgement.fault);
  }
  const char* verdict = m_settings.version == ApiVersion::v2 ? "verified" : "unsigned";
  const std::string outcome = judgement.about + (judgement.names.empty() ? "" : " ") + judgement.names;
  const Shape shape = ShapeOf(message.kind);
  const std::string shown = Shown(cJSON_GetObjectItem(message.params, shape.items), shape.value);
  m_transcript.Message(message.kind, verdict, outcome, judgement.about + (shown.empty() ? "" : ": ") + shown);
  DEMO_LOG(UTL_LOG_INFO, "%s %s: %s", verdict, message.kind.c_str(), outcome.c_str());
  ++m_seen[message.kind + " " + outcome];
}

/// Holds a verified message against the registration.
Judgement LocalAgent::Judge(const Examined& message) {
  Judgement result;
  if (message.kind == AgentPluginApi::notifyPluginUpdate) {
    std::string outcome;
    (m_registration.Take(message.params, &outcome) ? result.about : result.fault) = outcome;
    return result;
  }
  result.fault = m_registration.Check(message.kind, message.params);
  if (!result.fault.empty()) {
    return result;
  }
  const cJSON* items = cJSON_GetObjectItem(message.params, ShapeOf(message.kind).items);
  if (message.kind == AgentPluginApi::notifyPluginCommandAck) {
    const std::string command = AnsweredCommand(message.params);
    result.fault = command.empty() ? "it answers no command of ours" : "";
    result.about = command + " " + TextOf(message.params, "commandState");
  } else if (message.kind == AgentPluginApi::notifyPluginAlert) {
    const cJSON* first = cJSON_GetArrayItem(items, 0);
    result.about = TextOf(first, "name") + " " + TextOf(first, "action");
  } else {
    result.about = TextOf(message.params, "moduleName");
    result.names = Names(items);
  }
  RememberMemory(message.params);
  return result;
}

void LocalAgent::RememberMemory(const cJSON* params) {
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, cJSON_GetObjectItem(params, "metrics")) {
    if (TextOf(item, "name") == kMeasuredMetric) {
      m_memoryUsed = cJSON_GetObjectItem(item, "value")->valuedouble;  // a number: the check has seen to it
    }
  }
}

std::string LocalAgent::AnsweredCommand(const cJSON* params) const {
  const auto found = m_commands.find(TextOf(params, "commandId"));
  return found == m_commands.end() ? "" : found->second;
}

/// Tells the plugin, and ends the conversation: whoever sends this is not to be talked to.
void LocalAgent::Refuse(const Examined& message, const std::string& reason) {
  m_transcript.Message(message.kind, "refused", "refused", reason);
  DEMO_LOG(UTL_LOG_WRN, "refused %s: %s", Printable(message.kind).c_str(), reason.c_str());
  JsonTree error = Owned(cJSON_CreateObject());
  Attach(error, "code", Owned(cJSON_CreateNumber(-32600)));  // "Invalid Request" of JSON-RPC
  AttachText(error, "message", reason);
  JsonTree answer = Owned(cJSON_CreateObject());
  AttachText(answer, "jsonrpc", "2.0");
  Attach(answer, "error", std::move(error));
  m_connection.Send(Compact(answer.get()));
  throw std::runtime_error("refused a " + Printable(message.kind) + ": " + reason);
}

// What the agent sends.

std::string LocalAgent::ComposeCommand(const std::string& version, const std::string& name, const char* param,
                                       const std::string& value) {
  JsonTree commands = Owned(cJSON_CreateArray());
  Append(commands, Setting(name, param, value));
  const std::string id = "cmd-" + std::to_string(++m_idsUsed);
  return ComposeRequest(version, m_settings.accessKey, AgentPluginApi::notifyPluginCommand,
                        CommandParams(id, kModule, std::move(commands)));
}

void LocalAgent::SendCommand(const std::string& name, const char* param, const std::string& value) {
  m_connection.Send(ComposeCommand(m_settings.version, name, param, value));
  m_commands["cmd-" + std::to_string(m_idsUsed)] = name;
}

/// The id is not kept: an answer would count as one to nothing, and end the conversation.
void LocalAgent::SendWhatIsRefused() {
  // Without signatures no change can be noticed: under v1 it is a version that the plugin does not speak.
  m_connection.Send(m_settings.version == ApiVersion::v2
                        ? ComposeTampered()
                        : ComposeCommand("v3", "setInterval", "intervalMs", "400"));
  const auto end = Clock::now() + milliseconds(300);
  while (Clock::now() < end) {
    Await(end);
  }
}

/// A command that somebody changed on its way.
std::string LocalAgent::ComposeTampered() {
  std::string text = ComposeCommand(ApiVersion::v2, "setInterval", "intervalMs", "400");
  const std::string signedValue = "\"400\"";
  return text.replace(text.find(signedValue), signedValue.size(), "\"50\"");
}

void LocalAgent::SendThreshold(double percent) {
  JsonTree alarms = Owned(cJSON_CreateArray());
  Append(alarms, Setting(kAlarm, "threshold", Fixed(percent)));
  m_connection.Send(ComposeRequest(m_settings.version, m_settings.accessKey,
                                   AgentPluginApi::notifyPluginAlarmUpdate,
                                   AlarmParams(kModule, std::time(nullptr), std::move(alarms))));
}

void LocalAgent::GoOnline() {
  // Times are whole seconds: within the second of the registration its renewal could not be told from it.
  while (std::time(nullptr) <= m_registration.Epoch()) {
    Await(Clock::now() + milliseconds(50));
  }
  JsonTree params = Owned(cJSON_CreateObject());
  AttachText(params, MessageType::agentEventServerConnectivity.c_str(), MessageType::online);
  m_connection.Send(ComposeRequest(m_settings.version, m_settings.accessKey, AgentPluginApi::notifyAgentEvent,
                                   std::move(params)));
}

void LocalAgent::AwaitRounds() {
  while (!Seen("notifyPluginEvent host measured", m_settings.rounds)) {
    Await(m_deadline);
  }
}

int Main(int argc, char** argv) {
  Settings settings;
  std::string version = "v2";
  std::string keyFile;
  std::string ticketFile;
  std::string rounds = "5";
  std::string timeoutMs = "30000";
  std::string logRoot;
  std::string outcome;
  const std::vector<Option> options = {
      {"socket", &settings.socketPath, "path of the socket to listen on"},
      {"version", &version, "API version: v1 (unsigned) or v2 (signed, the default)"},
      {"key-file", &keyFile, "file (chmod 600) with the access key shared with the plugin (v2)"},
      {"ticket-file", &ticketFile, "file (chmod 600) with the ticket that opens the connection"},
      {"rounds", &rounds, "rounds of reports to wait for (5)"},
      {"timeout-ms", &timeoutMs, "milliseconds after which to give up (30000)"},
      {"log-root", &logRoot, "directory for log files; without it nothing is logged"},
      {"outcome", &outcome, "file that receives the verdicts"},
  };
  if (!ParseOptions(argc, argv, "talks to one plugin and judges it", options)) {
    return 0;
  }
  if (version != ApiVersion::v1 && version != ApiVersion::v2) {
    throw UsageError("--version must be v1 or v2");
  }
  settings.version = version;
  settings.accessKey = version == ApiVersion::v2 ? ReadSecret(keyFile) : "";
  settings.ticket = ReadSecret(ticketFile);
  settings.rounds = ParseNumber(rounds, "--rounds", 1, 1000000);
  settings.timeout = milliseconds(ParseNumber(timeoutMs, "--timeout-ms", 1000, 86400000));

  SetUpProcess(argv[0], logRoot);
  Transcript transcript("plugin", "agent", outcome);
  LocalAgent(settings, transcript).Run();
  return 0;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  try {
    return demo::Main(argc, argv);
  } catch (const demo::UsageError& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  }
  return 1;
}
