// A small agent: the other end of mqtt_plugin. It verifies what one plugin sends, gives it commands, and ends
// when it has seen a message of each kind and enough acknowledgements.
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "BasePluginObject.h"
#include "CommandLine.h"
#include "MqttAgent.h"
#include "Program.h"

namespace demo::mqtt {
namespace {

using std::chrono::milliseconds;

constexpr long kReportsOfEachKind = 3;  // a state, a metric and an event, in turn

/// Whether the plugin did in time what a plugin does, and nothing else.
bool Watch(MqttAgent& agent, const Verdicts& verdicts, long acknowledgements, milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const auto isComplete = [&] {
    return verdicts.registrations > 0 && verdicts.reports >= kReportsOfEachKind &&
           verdicts.acknowledged >= acknowledgements;
  };
  while (!isComplete() && verdicts.failures == 0 && std::chrono::steady_clock::now() < deadline) {
    Serve({&agent.Connection()}, milliseconds(20));
  }
  std::printf("registrations %ld, reports %ld, commands acknowledged %ld of %ld, verification failures %ld\n",
              verdicts.registrations.load(), verdicts.reports.load(), verdicts.acknowledged.load(),
              verdicts.commands.load(), verdicts.failures.load());
  return isComplete() && verdicts.failures == 0;
}

int Main(int argc, char** argv) {
  BrokerOptions broker;
  std::string version = "v2";
  std::string appGUID = "0b8f6c1e-4d52-4a7b-9c33-7e1d5f20a9b4";
  std::string keyFile;
  std::string commands = "1";
  std::string timeoutMs = "30000";
  std::string logRoot;
  std::vector<Option> options = {
      {"version", &version, "API version: v1 (unsigned) or v2 (signed, the default)"},
      {"app-guid", &appGUID, "GUID of the plugin"},
      {"key-file", &keyFile, "file (chmod 600) with the access key shared with the plugin (v2)"},
      {"commands", &commands, "commands to be acknowledged; there is one for each third report (1)"},
      {"timeout-ms", &timeoutMs, "milliseconds after which to give up (30000)"},
      {"log-root", &logRoot, "directory for log files; without it the verdicts go to standard output"},
  };
  broker.AddTo(&options);
  if (!ParseOptions(argc, argv, "verifies what one plugin sends over MQTT", options)) {
    return 0;
  }
  CheckVersion(version);
  SetUpProcess(argv[0], logRoot);
  UTL_LOGSetWriteToStdout(logRoot.empty());
  Verdicts verdicts;
  MqttAgent agent(broker.Checked(), version,
                  {{appGUID, version == ApiVersion::v2 ? ReadSecret(keyFile) : ""}}, kReportsOfEachKind,
                  verdicts);
  return Watch(agent, verdicts, ParseNumber(commands, "--commands", 0, 1000000),
               milliseconds(ParseNumber(timeoutMs, "--timeout-ms", 1, 86400000)))
             ? 0
             : 1;
}

}  // namespace
}  // namespace demo::mqtt

int main(int argc, char** argv) {
  return demo::mqtt::RunMain(demo::mqtt::Main, argc, argv);
}
