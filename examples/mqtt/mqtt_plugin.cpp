// A plugin that talks to its agent over MQTT: the same builders and parsers as over any other transport.
// Alone it simulates a sensor; with --fleet it becomes many of them, with an agent that verifies what they
// send.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "Fleet.h"
#include "Program.h"
#include "SensorPlugin.h"

namespace demo::mqtt {
namespace {

using std::chrono::milliseconds;

constexpr int kMost = 1000000000;
/// What a plugin alone keeps for a broker that does not confirm. Newer reports are not made then: a state of
/// before is worth less with every second.
constexpr std::size_t kMostUnconfirmed = 100;

std::atomic<bool> isStopped{false};

struct Arguments {
  BrokerOptions broker;
  std::string version = "v2";
  std::string appGUID = "0b8f6c1e-4d52-4a7b-9c33-7e1d5f20a9b4";
  std::string keyFile;
  std::string rounds = "0";
  std::string intervalMs = "1000";
  std::string fleet;
  std::string threads;
  std::string messages = "0";
  std::string seconds = "0";
  std::string corrupt = "0";
  std::string logRoot;

  std::vector<Option> Options() {
    std::vector<Option> options = {
        {"version", &version, "API version: v1 (unsigned) or v2 (signed, the default)"},
        {"app-guid", &appGUID, "GUID of the plugin"},
        {"key-file", &keyFile, "file (chmod 600) with the access key shared with the agent (v2)"},
        {"rounds", &rounds, "rounds of a state, a metric and an event; 0 (the default) until a signal comes"},
        {"interval-ms", &intervalMs, "milliseconds between two rounds (1000)"},
        {"fleet", &fleet, "run so many plugins and an agent instead, with keys of their own"},
        {"threads", &threads, "threads that the fleet's plugins share (all processors but one)"},
        {"messages", &messages, "reports of each plugin of the fleet (100 when no time is given)"},
        {"seconds", &seconds, "time for which the fleet reports, instead of --messages"},
        {"corrupt", &corrupt, "change one byte of every n-th report of each plugin after signing (0: none)"},
        {"log-root", &logRoot, "directory for log files; without it a plugin alone logs to standard output"},
    };
    broker.AddTo(&options);
    return options;
  }
};

FleetSettings FleetOf(const Arguments& arguments) {
  const auto processors = static_cast<int>(std::thread::hardware_concurrency());
  FleetSettings settings;
  settings.version = arguments.version;
  settings.plugins = ParseNumber(arguments.fleet, "--fleet", 1, 10000);
  settings.threads = arguments.threads.empty() ? std::max(1, processors - 1)
                                               : ParseNumber(arguments.threads, "--threads", 1, 1000);
  settings.messages = ParseNumber(arguments.messages, "--messages", 0, kMost);
  settings.time = std::chrono::seconds(ParseNumber(arguments.seconds, "--seconds", 0, 86400));
  settings.corruptEvery = ParseNumber(arguments.corrupt, "--corrupt", 0, kMost);
  if (settings.messages > 0 && settings.time.count() > 0) {
    throw UsageError("give --messages or --seconds, not both");
  }
  if (settings.messages == 0 && settings.time.count() == 0) {
    settings.messages = 100;
  }
  if (settings.corruptEvery != 0 && settings.version == ApiVersion::v1) {
    throw UsageError("--corrupt goes with v2: what is not signed cannot be found to be changed");
  }
  return settings;
}

/// Until all rounds are told and confirmed, or a signal comes.
int RunAlone(const Arguments& arguments) {
  const int rounds = ParseNumber(arguments.rounds, "--rounds", 0, kMost);
  const milliseconds interval(ParseNumber(arguments.intervalMs, "--interval-ms", 10, 86400000));
  const Identity identity{arguments.appGUID, arguments.version,
                          arguments.version == ApiVersion::v2 ? ReadSecret(arguments.keyFile) : ""};
  Traffic traffic;
  SensorPlugin plugin(arguments.broker.Checked(), identity, 0, traffic);
  MqttClient& connection = plugin.Connection();
  auto next = std::chrono::steady_clock::now();
  int done = 0;
  while (!isStopped && (rounds == 0 || done < rounds || connection.Unconfirmed() > 0)) {
    const auto now = std::chrono::steady_clock::now();
    const bool isDue = now >= next && (rounds == 0 || done < rounds);
    if (isDue && connection.IsReady() && connection.Unconfirmed() < kMostUnconfirmed) {
      plugin.Report();
      plugin.Report();
      plugin.Report();
      ++done;
      next = now + interval;
    }
    Serve({&connection}, milliseconds(10));
  }
  return traffic.refused == 0 ? 0 : 1;
}

int Main(int argc, char** argv) {
  Arguments arguments;
  if (!ParseOptions(argc, argv, "reports a simulated sensor over MQTT", arguments.Options())) {
    return 0;
  }
  CheckVersion(arguments.version);
  // Seeds rand(), once and before any other thread runs: all signatures of the process take their salts from
  // that one sequence.
  SetUpProcess(argv[0], arguments.logRoot);
  if (!arguments.fleet.empty()) {
    return Fleet(arguments.broker.Checked(), FleetOf(arguments)).Run() ? 0 : 1;
  }
  UTL_LOGSetWriteToStdout(arguments.logRoot.empty());
  for (const int signal : {SIGINT, SIGTERM}) {
    std::signal(signal, [](int) { isStopped = true; });
  }
  return RunAlone(arguments);
}

}  // namespace
}  // namespace demo::mqtt

int main(int argc, char** argv) {
  return demo::mqtt::RunMain(demo::mqtt::Main, argc, argv);
}
