// Runs the plugin as a process and plays an agent that does everything wrong.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "AgentChecks.h"
#include "AgentMessages.h"
#include "Framing.h"

namespace demo {
namespace {

using std::chrono::milliseconds;

const std::string kKey = "the key of both";

class HostMonitorProcess : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/pluginsdk-monitor.XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    m_directory = name;
    std::ofstream(m_directory + "/key") << kKey << "\n";
    std::ofstream(m_directory + "/ticket") << "ticket\n";
    m_listener.emplace(m_directory + "/socket");
  }

  void TearDown() override {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
    }
    m_listener.reset();
    std::filesystem::remove_all(m_directory);
  }

  void Start(std::vector<std::string> arguments) {
    for (const auto& [option, file] : {std::pair("--socket", "socket"), std::pair("--ticket-file", "ticket"),
                                       std::pair("--outcome", "outcome")}) {
      arguments.insert(arguments.begin(), {option, m_directory + "/" + file});
    }
    arguments.insert(arguments.begin(), HOST_MONITOR_PLUGIN);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);  // with the null at the end
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t quiet;
    ::posix_spawn_file_actions_init(&quiet);
    ::posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, (m_directory + "/errors").c_str(),
                                       O_WRONLY | O_CREAT, 0600);
    ASSERT_EQ(::posix_spawn(&m_pid, HOST_MONITOR_PLUGIN, &quiet, nullptr, argv.data(), environ), 0);
    ::posix_spawn_file_actions_destroy(&quiet);
  }

  Connection Welcome() {
    Connection plugin = m_listener->Accept(milliseconds(10000));
    std::string hello;
    EXPECT_EQ(plugin.Receive(&hello, milliseconds(10000)), Received::Frame);
    EXPECT_EQ(hello.rfind("HELLO host_monitor\n", 0), 0U);
    plugin.Send("WELCOME test\n");
    return plugin;
  }

  /// Exit status, or -1 when the process does not end by itself within ten seconds.
  int Status() {
    int status = 0;
    for (int i = 0; i < 1000; ++i) {
      if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(milliseconds(10));
    }
    return -1;
  }

  std::string File(const char* name) const {
    std::ifstream file(m_directory + "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string m_directory;
  std::optional<Listener> m_listener;
  pid_t m_pid = -1;
};

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), by);
}

JsonTree List(const std::vector<std::pair<const char*, const char*>>& commands) {
  JsonTree list = Owned(cJSON_CreateArray());
  for (const auto& [name, value] : commands) {
    Append(list, Setting(name, name == std::string("setDetail") ? "level" : "intervalMs", value));
  }
  return list;
}

std::string Command(const std::string& version, const std::string& key,
                    const std::vector<std::pair<const char*, const char*>>& commands,
                    const char* module = "host") {
  return ComposeRequest(version, key, "notifyPluginCommand", CommandParams("id", module, List(commands)));
}

std::string Alarm(const char* threshold, std::time_t epoch) {
  JsonTree alarms = Owned(cJSON_CreateArray());
  Append(alarms, Setting("memoryHigh", "threshold", threshold));
  return ComposeRequest("v2", kKey, "notifyPluginAlarmUpdate", AlarmParams("host", epoch, std::move(alarms)));
}

/// All acknowledgements that come before the plugin answers a command that marks the end of a row.
std::string Acknowledged(Connection& plugin) {
  plugin.Send(ComposeRequest("v2", kKey, "notifyPluginCommand", CommandParams("end", "nowhere", List({}))));
  std::string states;
  std::string text;
  while (plugin.Receive(&text, milliseconds(10000)) == Received::Frame) {
    const Examined message = Examine(text, "v2", kKey);
    EXPECT_EQ(message.refusal, "");
    if (TextOf(message.params, "commandId") == "end") {
      return states;
    }
    if (message.kind == "notifyPluginCommandAck") {
      states += (states.empty() ? "" : " ") + TextOf(message.params, "commandState");
    }
  }
  return "no answer";
}

TEST_F(HostMonitorProcess, OutlivesWhateverTheAgentSends) {
  Start({"--key-file", m_directory + "/key", "--rounds", "1"});
  Connection plugin = Welcome();
  const std::string command = Command("v2", kKey, {{"setInterval", "100"}});
  const std::string accepted = "notifyPluginCommand verified setInterval";
  const std::string untrusted = "notifyPluginCommand refused untrusted";
  struct Row {
    const char* name;
    std::string text;
    std::string outcome;  // behind "agent -> plugin "
    std::string states;   // acknowledged
  };
  const Row rows[] = {
      {"least interval", Command("v2", kKey, {{"setInterval", "50"}}), accepted, "ACCEPTED ACKED"},
      {"below the least", Command("v2", kKey, {{"setInterval", "49"}}), accepted, "ACCEPTED ERRORED"},
      {"greatest interval", Command("v2", kKey, {{"setInterval", "60000"}}), accepted, "ACCEPTED ACKED"},
      {"above the greatest", Command("v2", kKey, {{"setInterval", "60001"}}), accepted, "ACCEPTED ERRORED"},
      {"number with a tail", Command("v2", kKey, {{"setInterval", "100 "}}), accepted, "ACCEPTED ERRORED"},
      {"two commands", Command("v2", kKey, {{"setInterval", "100"}, {"setDetail", "full"}}),
       "notifyPluginCommand verified setInterval, setDetail", "ACCEPTED ACKED"},
      {"one of two unknown", Command("v2", kKey, {{"setInterval", "100"}, {"format", "now"}}),
       "notifyPluginCommand verified setInterval, format", "REJECTED"},
      {"command with a special log, but nowhere to write it", Command("v2", kKey, {{"collectNow", ""}}),
       "notifyPluginCommand verified collectNow", "ACCEPTED ACKED"},
      {"module without commands", Command("v2", kKey, {{"setInterval", "100"}}, "disk"), accepted,
       "REJECTED"},
      {"other key", Command("v2", "another key", {{"setInterval", "100"}}), untrusted, ""},
      {"value changed", Replaced(command, "\"100\"", "\"101\""), untrusted, ""},
      {"version that is not signed", Command("v1", "", {{"setInterval", "100"}}), untrusted, ""},
      {"signature that takes a gigabyte", Replaced(command, "m=64,", "m=1048576,"), untrusted, ""},
      {"method written in another way", Replaced(command, "v2/", "v2\\/"), untrusted, ""},
      {"half a command", command.substr(0, command.size() / 2), "? refused unknown", ""},
      {"nothing", "", "? refused unknown", ""},
      {"alarm", Alarm("100", 1000), "notifyPluginAlarmUpdate verified memoryHigh", ""},
      {"alarm again", Alarm("99", 1000), "notifyPluginAlarmUpdate verified memoryHigh", ""},
      {"alarm of before", Alarm("98", 999), "notifyPluginAlarmUpdate refused old", ""},
      {"threshold above all", Alarm("100.1", 2000), "notifyPluginAlarmUpdate refused value", ""},
      {"threshold that is no number", Alarm("nan", 2000), "notifyPluginAlarmUpdate refused value", ""},
      {"time of what was refused does not count", Alarm("97", 1001),
       "notifyPluginAlarmUpdate verified memoryHigh", ""},
      {"fault told by the agent", R"({"error":{"code":1}})", "error noted error", ""},
  };
  std::string expected;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    plugin.Send(row.text);
    EXPECT_EQ(Acknowledged(plugin), row.states);
    expected += "agent -> plugin " + row.outcome + "\nagent -> plugin notifyPluginCommand verified \n";
  }
  EXPECT_EQ(File("outcome"), expected);
  plugin.Send("GOODBYE test\n");
  EXPECT_EQ(Status(), 0);
  EXPECT_EQ(File("errors"), "");
  EXPECT_FALSE(std::filesystem::exists("/host_monitor_plugin"));  // where special logs go without a log root
}

TEST_F(HostMonitorProcess, EndsWhenTheAgentIsOfNoUse) {
  struct Row {
    const char* name;
    void (*agent)(Connection plugin);
    const char* error;
  };
  const Row rows[] = {
      {"hangs up", [](Connection) {}, ""},  // seen while sending or while receiving: either text
      {"stays and says nothing more", [](Connection) { std::this_thread::sleep_for(milliseconds(1500)); },
       "the agent did not end the conversation in time\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Start({"--key-file", m_directory + "/key", "--rounds", "1", "--timeout-ms", "1000"});
    row.agent(Welcome());
    EXPECT_EQ(Status(), 1);
    EXPECT_NE(File("errors").find(row.error), std::string::npos) << File("errors");
  }
}

TEST_F(HostMonitorProcess, RefusesCommandLinesThatCannotWork) {
  const std::ofstream empty(m_directory + "/empty");
  const std::vector<std::vector<std::string>> lines = {
      {"--version", "v3"},
      {"--rounds", "0"},
      {"--interval-ms", "fast"},
      {"--key-file", m_directory + "/absent"},
      {"--key-file", m_directory + "/empty"},
      {"--unknown", "x"},
      {"stray"},
      {"--crash-after", "5"},  // without --ring
  };
  for (const std::vector<std::string>& line : lines) {
    SCOPED_TRACE(line.front());
    Start(line);
    EXPECT_EQ(Status(), 2);
    EXPECT_EQ(File("errors").find("the key"), std::string::npos);
  }
}

}  // namespace
}  // namespace demo
