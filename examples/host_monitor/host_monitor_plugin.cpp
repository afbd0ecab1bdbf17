// A plugin that watches the machine it runs on. It registers, reports what it measures, executes the agent's
// commands, raises an alert when too much memory is used, and logs what it does. local_agent is the other
// end; scripts/demo.sh runs both. README.md shows how to build it by
// hand.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "Framing.h"
#include "HostModel.h"
#include "HostReadings.h"
#include "JsonTree.h"
#include "Parameters.h"
#include "Program.h"
#include "Reporter.h"

namespace demo {
namespace {

using std::chrono::milliseconds;

constexpr char kAppGUID[] = "5b0c3b9e-2f64-4f0e-9d0a-6f3b1c0d7e21";
constexpr char kConsoleGUID[] = "c0a1d6f2-77f1-4c58-8d1e-0b9f4a6e2c35";  // client of the local command
constexpr double kFirstThreshold = 95.0;                                 // percent of memory
constexpr int kLargestRing = std::numeric_limits<int>::max();

/// Copies all log lines of its lifetime to a file of their own, at most 64 KiB,
/// with debug lines among them.
class SpecialLog {
 public:
  explicit SpecialLog(const char* name) {
    UTL_LOGStartSpecialLog(name, 64 * 1024);
    UTL_LOGSetLevel(UTL_LOG_DBG, 1);
  }
  ~SpecialLog() {
    UTL_LOGSetLevel(UTL_LOG_DBG, 0);
    UTL_LOGStopSpecialLogs();
  }
  SpecialLog(const SpecialLog&) = delete;
  SpecialLog& operator=(const SpecialLog&) = delete;
};

struct Settings {
  std::string socketPath;
  std::string ticket;  ///< opens the connection; the access key signs messages and never travels
  std::string mountPoint;
  std::string localCommand;  ///< name of a command that the console gives at the start
  bool hasLogRoot = false;
  int rounds = 0;
  milliseconds interval{0};
  milliseconds timeout{0};
};

/// A value from outside is used only when it is exactly what was declared.
template <typename Number>
Number NumberFrom(const Parameters& parameters, const char* name, Number least, Number most) {
  const auto found = parameters.find(name);
  const std::string text = found == parameters.end() ? "" : found->second;
  try {
    return demo::NumberFrom(text, least, most);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument(std::string(name) + " is not a number in range: \"" + Printable(text, 32) +
                                "\"");
  }
}

std::string Fixed(double value) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  return text.data();
}

class HostMonitor {
 public:
  HostMonitor(const Settings& settings, const Identity& identity, Transcript& transcript);

  /// Goes through one conversation with the agent, from greeting to goodbye.
  void Run();

 private:
  using CommandFunction = void (HostMonitor::*)(const Parameters& parameters, const JsonTree& results);
  static CommandFunction Find(const std::string& commandName);

  void SendHeader(const char* word);
  void AwaitWelcome();
  void Register();
  void ExecuteLocally(const std::string& name);
  void ReportRound();
  milliseconds TimeToNextRound() const;
  void EvaluateAlarm(const HostReadings& readings);

  void Handle(const std::string& text);
  template <class Parser>
  std::unique_ptr<Parser> Trusted(const std::string& text, const std::string& kind);
  const char* Verdict() const { return m_identity.version == ApiVersion::v2 ? "verified" : "unsigned"; }
  void HandleCommand(const std::string& text);
  void HandleAlarmUpdate(const std::string& text);
  void HandleAgentEvent(const char* params);

  bool Acceptable(const CCommandPluginJson& request) const;
  void CollectNow(const Parameters& parameters, const JsonTree& results);
  void SetInterval(const Parameters& parameters, const JsonTree& results);
  void SetDetail(const Parameters& parameters, const JsonTree& results);

  const Settings& m_settings;
  const Identity& m_identity;
  Transcript& m_transcript;
  Connection m_connection;
  Reporter m_reporter;
  HostModel m_model;
  milliseconds m_interval;
  Clock::time_point m_nextRound = Clock::now();
  int m_roundsDone = 0;
  double m_threshold = kFirstThreshold;
  bool m_alarmRaised = false;
  long m_alarmEpoch = 0;  ///< time of the newest alarm update obeyed
  bool m_finished = false;
};

HostMonitor::HostMonitor(const Settings& settings, const Identity& identity, Transcript& transcript)
    : m_settings(settings),
      m_identity(identity),
      m_transcript(transcript),
      m_connection(Connection::Open(settings.socketPath, milliseconds(5000))),
      m_reporter(identity, m_connection),
      m_model(kAppGUID, settings.mountPoint),
      m_interval(settings.interval) {}

void HostMonitor::Run() {
  const auto deadline = Clock::now() + m_settings.timeout;
  SendHeader("HELLO");
  AwaitWelcome();
  Register();
  std::string text;
  while (!m_finished) {
    if (Clock::now() >= deadline) {
      throw std::runtime_error("the agent did not end the conversation in time");
    }
    if (m_roundsDone < m_settings.rounds && Clock::now() >= m_nextRound) {
      ReportRound();
    }
    switch (m_connection.Receive(&text, TimeToNextRound())) {
      case Received::Frame:
        Handle(text);
        break;
      case Received::TimedOut:
        break;
      case Received::Closed:
        throw std::runtime_error("the agent hung up");
    }
  }
  SendHeader("GOODBYE");
}

milliseconds HostMonitor::TimeToNextRound() const {
  constexpr milliseconds kPause{100};  // how late the deadline may be noticed
  const auto left = std::chrono::ceil<milliseconds>(m_nextRound - Clock::now());
  return m_roundsDone < m_settings.rounds ? std::clamp(left, milliseconds(0), kPause) : kPause;
}

// Opening and closing the conversation.

void HostMonitor::SendHeader(const char* word) {
  const std::string header = std::string(word) + " host_monitor\nversion: " + m_identity.version +
                             "\naccessTicket: " + m_settings.ticket + "\n";
  // A text that carries a credential is logged through masking, or not at all.
  Util_LogSensitiveString("sent header: ", header.c_str(), "", __FILE__, __LINE__, __func__);
  m_connection.Send(header);
}

void HostMonitor::AwaitWelcome() {
  std::string header;
  if (m_connection.Receive(&header, milliseconds(5000)) != Received::Frame ||
      header.rfind("WELCOME", 0) != 0) {
    throw std::runtime_error("the agent did not welcome us");
  }
  Util_LogSensitiveString("received header: ", header.c_str(), "", __FILE__, __LINE__, __func__);
}

void HostMonitor::Register() {
  m_reporter.Send(m_model.Register(m_identity.version, m_identity.accessKey));
  DEMO_LOG(UTL_LOG_INFO, "registered as %s", kAppGUID);
  if (!m_settings.localCommand.empty()) {
    ExecuteLocally(m_settings.localCommand);
  }
}

/// The console of this machine gives a command without the agent: it is executed, and the agent is told.
void HostMonitor::ExecuteLocally(const std::string& name) {
  const CommandFunction execute = Find(name);
  if (execute == nullptr) {
    throw UsageError("no such command: " + name);
  }
  const Parameters parameters = {{kSection, "all"}};
  const JsonTree results = Owned(cJSON_CreateArray());
  (this->*execute)(parameters, results);
  m_reporter.LocalCommand(kConsoleGUID, name, parameters);
}

// Reports.

void HostMonitor::ReportRound() {
  const auto start = Clock::now();
  m_nextRound = start + m_interval;
  ++m_roundsDone;
  const HostReadings readings = ReadHost(m_settings.mountPoint);
  EvaluateAlarm(readings);
  m_reporter.States(readings, m_alarmRaised ? "memory above threshold" : "ok");
  m_reporter.Metrics(readings, m_model.ShowsInodes());
  const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  m_reporter.Event(kMeasuredEvent,
                   "round " + std::to_string(m_roundsDone) + " in " + std::to_string(took.count()) + " us");
  DEMO_LOG(UTL_LOG_INFO, "round %d: load %.2f, memory %.2f %%, disk %.2f %%", m_roundsDone, readings.load1,
           readings.MemoryUsedPercent(), readings.DiskUsedPercent());
}

/// An alert is told once when it begins and once when it ends, not in every round in between.
void HostMonitor::EvaluateAlarm(const HostReadings& readings) {
  const double used = readings.MemoryUsedPercent();
  const bool above = used > m_threshold;
  if (above == m_alarmRaised) {
    return;
  }
  m_alarmRaised = above;
  const std::string message = Fixed(used) + " % used, threshold " + Fixed(m_threshold) + " %";
  DEMO_LOG(UTL_LOG_WRN, "alarm %s %s: %s", kMemoryAlarm, above ? "raised" : "resolved", message.c_str());
  m_reporter.Alert(kMemoryAlarm, above ? Action::trigger : Action::resolve, message);
}

// Messages of the agent.

void HostMonitor::Handle(const std::string& text) {
  std::string type;
  const std::unique_ptr<char, void (*)(void*)> extra(CPluginUtil::GetMessageType(text.c_str(), &type),
                                                     cJSON_free);
  if (type == MessageType::api_notifyPluginCommand) {
    HandleCommand(text);
  } else if (type == MessageType::api_notifyPluginAlarmUpdate) {
    HandleAlarmUpdate(text);
  } else if (type == MessageType::api_notifyAgentEvent) {
    HandleAgentEvent(extra.get());
  } else if (type == MessageType::error) {
    m_transcript.Message("error", "noted", "error", extra == nullptr ? "" : extra.get());
  } else if (text.rfind("GOODBYE", 0) == 0) {
    m_finished = true;
  } else {
    m_transcript.Message("?", "refused", "unknown", text);
  }
}

/// Parses a request that may change something, and hands it out only if it may be trusted.
template <class Parser>
std::unique_ptr<Parser> HostMonitor::Trusted(const std::string& text, const std::string& kind) {
  std::string reason = m_identity.version == ApiVersion::v2 ? "its signature does not match its text"
                                                            : "it is not of version v1";
  try {
    // The limits close two doors that the parsers leave open by default: a request that calls itself v1 to
    // get around the signature, and a signature that takes gigabytes to verify.
    auto request = std::make_unique<Parser>(text.c_str(), m_identity.accessKey, VerificationLimits());
    if (request->m_validSignature) {
      return request;
    }
  } catch (const std::out_of_range&) {
    reason = "its method is escaped";  // the one input that makes the parsers throw
  }
  DEMO_LOG(UTL_LOG_WRN, "refused a %s: %s", kind.c_str(), reason.c_str());
  m_transcript.Message(kind, "refused", "untrusted", "not executed: " + reason);
  return nullptr;
}

void HostMonitor::HandleCommand(const std::string& text) {
  const auto request = Trusted<CCommandPluginJson>(text, AgentPluginApi::notifyPluginCommand);
  if (request == nullptr) {
    return;
  }
  std::string names;
  for (cJSON* command : request->m_commands) {
    names += (names.empty() ? "" : ", ") + CPluginUtil::GetJSONStringFieldValue(command, "name");
  }
  m_transcript.Message(AgentPluginApi::notifyPluginCommand, Verdict(), names,
                       request->m_commandId + ": " + names);
  JsonTree results = Owned(cJSON_CreateArray());
  if (!Acceptable(*request)) {
    Append(results,
           Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(names.c_str(), "unknown command")));
    m_reporter.Acknowledge(*request, &CCommandAcksPluginJson::CreateCommandAcksRejectedParamsObj,
                           std::move(results));
    return;
  }
  m_reporter.Acknowledge(*request, &CCommandAcksPluginJson::CreateCommandAcksAcceptedParamsObj, nullptr);
  std::string current;
  try {
    for (cJSON* command : request->m_commands) {
      current = CPluginUtil::GetJSONStringFieldValue(command, "name");
      (this->*Find(current))(ParametersOf(command), results);
    }
  } catch (const std::invalid_argument& error) {
    Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(current.c_str(), error.what())));
    m_reporter.Acknowledge(*request, &CCommandAcksPluginJson::CreateCommandAcksErroredParamsObj,
                           std::move(results));
    return;
  }
  m_reporter.Acknowledge(*request, &CCommandAcksPluginJson::CreateCommandAcksAckedParamsObj,
                         std::move(results));
}

/// All or nothing: a request with one command that is not known is not begun.
bool HostMonitor::Acceptable(const CCommandPluginJson& request) const {
  if (request.m_moduleName != kHostModule) {
    return false;
  }
  return std::all_of(request.m_commands.begin(), request.m_commands.end(), [](cJSON* command) {
    return Find(CPluginUtil::GetJSONStringFieldValue(command, "name")) != nullptr;
  });
}

void HostMonitor::HandleAlarmUpdate(const std::string& text) {
  const auto update = Trusted<CAlarmUpdatePluginJson>(text, AgentPluginApi::notifyPluginAlarmUpdate);
  if (update == nullptr) {
    return;
  }
  // A signature says who wrote a message, not when: one that was recorded and sent again still verifies.
  // Its time gives it away.
  const char* epochText = update->GetAlarmsUpdateEpochTime(kHostModule);
  const long epoch = epochText == nullptr ? 0 : std::strtol(epochText, nullptr, 10);
  if (epoch < m_alarmEpoch) {
    m_transcript.Message(AgentPluginApi::notifyPluginAlarmUpdate, "refused", "old",
                         "older than the last one");
    return;
  }
  double threshold = m_threshold;
  try {
    for (cJSON* alarm : update->GetAlarms(kHostModule)) {  // the trees stay the update's
      if (CPluginUtil::GetJSONStringFieldValue(alarm, "name") == kMemoryAlarm) {
        threshold = NumberFrom(ParametersOf(alarm), kThreshold, 0.0, 100.0);
      }
    }
  } catch (const std::invalid_argument& error) {
    m_transcript.Message(AgentPluginApi::notifyPluginAlarmUpdate, "refused", "value", error.what());
    return;
  }
  m_alarmEpoch = epoch;
  m_threshold = threshold;
  m_transcript.Message(AgentPluginApi::notifyPluginAlarmUpdate, Verdict(), kMemoryAlarm,
                       "threshold of " + std::string(kMemoryAlarm) + " is now " + Fixed(m_threshold) + " %");
  m_reporter.Event(kSettingsEvent, "threshold " + Fixed(m_threshold));
  EvaluateAlarm(ReadHost(m_settings.mountPoint));
}

/// The library only classifies agent events, it does not verify them: they must not do anything that needs
/// trust. Registering once more is harmless.
void HostMonitor::HandleAgentEvent(const char* params) {
  const JsonTree event(params == nullptr ? nullptr : cJSON_Parse(params));
  const std::string connectivity =
      CPluginUtil::GetJSONStringFieldValue(event.get(), MessageType::agentEventServerConnectivity);
  m_transcript.Message(AgentPluginApi::notifyAgentEvent, "noted", connectivity,
                       "the server is " + connectivity);
  if (connectivity == MessageType::online) {
    m_reporter.Send(m_model.Renew().get());
  }
}

// Commands.

HostMonitor::CommandFunction HostMonitor::Find(const std::string& commandName) {
  static const std::map<std::string, CommandFunction> commands = {
      {kCollectCommand, &HostMonitor::CollectNow},
      {kIntervalCommand, &HostMonitor::SetInterval},
      {kDetailCommand, &HostMonitor::SetDetail},
  };
  const auto found = commands.find(commandName);
  return found == commands.end() ? nullptr : found->second;
}

void HostMonitor::CollectNow(const Parameters& parameters, const JsonTree& results) {
  std::optional<SpecialLog> capture;
  if (m_settings.hasLogRoot) {  // without one, special logs would begin at the root of the file system
    // A fixed name: one that came with the command could lead out of the log directory.
    capture.emplace("collectNow.log");
  }
  const auto found = parameters.find(kSection);
  const std::string section = found == parameters.end() ? "all" : found->second;
  if (section != "all" && section != "load" && section != "memory") {
    throw std::invalid_argument("section is none of all, load, memory");
  }
  DEMO_LOG(UTL_LOG_INFO, "collecting %s", section.c_str());
  const HostReadings readings = ReadHost(m_settings.mountPoint);
  DEMO_LOG(UTL_LOG_DBG, "load averages %.2f %.2f %.2f", readings.load1, readings.load5, readings.load15);
  DEMO_LOG(UTL_LOG_DBG, "memory %llu KiB, available %llu KiB",
           static_cast<unsigned long long>(readings.memoryTotalKiB),
           static_cast<unsigned long long>(readings.memoryAvailableKiB));
  if (section != "memory") {
    JsonTree load = Owned(cJSON_CreateObject());
    Attach(load, "1min", Owned(cJSON_CreateNumber(readings.load1)));
    Attach(load, "15min", Owned(cJSON_CreateNumber(readings.load15)));
    JsonTree item = Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson("load", load.get()));
    HandedOver(load);
    Append(results, std::move(item));
  }
  if (section != "load") {
    const std::string memory = Fixed(readings.MemoryUsedPercent()) + " %";
    Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson("memory", memory.c_str())));
  }
  m_reporter.Metrics(readings, m_model.ShowsInodes());
  DEMO_LOG(UTL_LOG_INFO, "collected %s: load %.2f, memory %.2f %%", section.c_str(), readings.load1,
           readings.MemoryUsedPercent());
}

void HostMonitor::SetInterval(const Parameters& parameters, const JsonTree& results) {
  m_interval = milliseconds(NumberFrom(parameters, kIntervalMs, 50, 60000));
  m_nextRound = Clock::now() + m_interval;
  const std::string text = std::to_string(m_interval.count()) + " ms";
  Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(kIntervalCommand, text.c_str())));
  m_reporter.Event(kSettingsEvent, "interval " + text);
}

/// Changes the model, so the agent is told anew what this plugin has.
void HostMonitor::SetDetail(const Parameters& parameters, const JsonTree& results) {
  const auto found = parameters.find(kLevel);
  const std::string level = found == parameters.end() ? "" : found->second;
  if (level != "basic" && level != "full") {
    throw std::invalid_argument("level is neither basic nor full");
  }
  if (m_model.ShowInodes(level == "full")) {
    m_reporter.Send(m_model.Rebuild());
    m_reporter.Metrics(ReadHost(m_settings.mountPoint), m_model.ShowsInodes());  // not before it is declared
  }
  Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(kDetailCommand, level.c_str())));
}

// In-memory logging.

/// Logs into shared memory and dies without warning, as a crash would make it.
[[noreturn]] void LogIntoRingAndDie(int ringId, int lines) {
  DEMO_LOG(UTL_LOG_INFO, "this run will be killed after %d lines", lines);  // opens the log file: the ring
                                                                            // takes lines only behind one
  if (UTL_LOGSetEnableInMemoryLogging(true, ringId) != 0) {
    throw std::runtime_error("no shared memory for in-memory logging");
  }
  for (int line = 1; line <= lines; ++line) {
    DEMO_LOG(UTL_LOG_INFO, "ring line %d: load %.2f", line, ReadHost("/").load1);
  }
  ::kill(::getpid(), SIGKILL);  // no handler runs, nothing is flushed
  for (;;) {
    ::pause();
  }
}

/// Turning in-memory logging on finds what a killed run left behind; turning it off writes that to the log
/// file and removes the segment.
void RecoverRing(int ringId) {
  DEMO_LOG(UTL_LOG_INFO, "recovering ring %d", ringId);
  if (UTL_LOGSetEnableInMemoryLogging(true, ringId) != 0) {
    DEMO_LOG(UTL_LOG_ERR, "no shared memory for in-memory logging");
    return;
  }
  UTL_LOGSetEnableInMemoryLogging(false, ringId);
  DEMO_LOG(UTL_LOG_INFO, "recovered ring %d", ringId);
}

/// The command line, as text until it has been checked.
struct Arguments {
  std::string socketPath;
  std::string version = "v2";
  std::string keyFile;
  std::string ticketFile;
  std::string mountPoint = "/";
  std::string rounds = "5";
  std::string intervalMs = "600";
  std::string timeoutMs = "30000";
  std::string localCommand;
  std::string logRoot;
  std::string ring;
  std::string crashAfter;
  std::string outcome;

  std::vector<Option> Options() {
    return {
        {"socket", &socketPath, "path of the agent's socket"},
        {"version", &version, "API version: v1 (unsigned) or v2 (signed, the default)"},
        {"key-file", &keyFile, "file (chmod 600) with the access key shared with the agent (v2)"},
        {"ticket-file", &ticketFile, "file (chmod 600) with the ticket that opens the connection"},
        {"mount-point", &mountPoint, "disk to watch (/)"},
        {"rounds", &rounds, "rounds of reports (5)"},
        {"interval-ms", &intervalMs, "milliseconds between two rounds (600)"},
        {"timeout-ms", &timeoutMs, "milliseconds after which to give up (30000)"},
        {"local-command", &localCommand, "a command that the console of this machine gives at the start"},
        {"log-root", &logRoot, "directory for log files; without it nothing is logged"},
        {"ring", &ring, "recover what a killed run left in the ring of this number"},
        {"crash-after", &crashAfter, "log this many lines into the ring, then die"},
        {"outcome", &outcome, "file that receives the verdicts"},
    };
  }
};

int Converse(const Arguments& arguments) {
  const std::string& version = arguments.version;
  if (version != ApiVersion::v1 && version != ApiVersion::v2) {
    throw UsageError("--version must be v1 or v2");
  }
  Settings settings;
  settings.socketPath = arguments.socketPath;
  settings.ticket = ReadSecret(arguments.ticketFile);
  settings.mountPoint = arguments.mountPoint;
  settings.localCommand = arguments.localCommand;
  settings.hasLogRoot = !arguments.logRoot.empty();
  settings.rounds = ParseNumber(arguments.rounds, "--rounds", 1, 1000000);
  settings.interval = milliseconds(ParseNumber(arguments.intervalMs, "--interval-ms", 50, 60000));
  settings.timeout = milliseconds(ParseNumber(arguments.timeoutMs, "--timeout-ms", 1000, 86400000));
  const Identity identity{kAppGUID, version, version == ApiVersion::v2 ? ReadSecret(arguments.keyFile) : ""};
  Transcript transcript("agent", "plugin", arguments.outcome);
  HostMonitor(settings, identity, transcript).Run();
  return 0;
}

int Main(int argc, char** argv) {
  Arguments arguments;
  if (!ParseOptions(argc, argv, "reports this machine to an agent", arguments.Options())) {
    return 0;
  }
  SetUpProcess(argv[0], arguments.logRoot);
  if (!arguments.crashAfter.empty()) {
    LogIntoRingAndDie(ParseNumber(arguments.ring, "--ring", 0, kLargestRing),
                      ParseNumber(arguments.crashAfter, "--crash-after", 1, 1000));
  }
  if (!arguments.ring.empty()) {
    RecoverRing(ParseNumber(arguments.ring, "--ring", 0, kLargestRing));
  }
  return Converse(arguments);
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  try {
    return demo::Main(argc, argv);
  } catch (const demo::UsageError& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  } catch (const CPluginException& error) {
    std::fprintf(stderr, "%s: rule %d broken: %s\n", argv[0], error.getErrorNumber(), error.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  }
  return 1;
}
