// Runs the plugin as a process and plays an agent that does everything wrong.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <string>
#include <utility>

#include "AgentChecks.h"
#include "AgentMessages.h"
#include "Framing.h"
#include "util/LogTestSupport.h"

namespace demo {
namespace {

using std::chrono::milliseconds;

constexpr char kKey[] = "the key of both";

/// Runs the plugin in `directory`; its exit status.
std::future<int> StartPlugin(const std::string& directory) {
  std::ofstream(directory + "/key") << kKey;
  const std::string command =
      "cd " + directory + " && chmod 600 key && timeout 60 " HOST_MONITOR_PLUGIN +
      " --socket socket --ticket-file key --key-file key --outcome outcome --rounds 1 >/dev/null";
  return std::async(std::launch::async, [=] { return WEXITSTATUS(std::system(command.c_str())); });
}

std::string Command(const std::string& version, const std::string& key, const std::string& interval) {
  JsonTree list = Owned(cJSON_CreateArray());
  Append(list, Setting("setInterval", "intervalMs", interval));
  return ComposeRequest(version, key, "notifyPluginCommand", CommandParams("id", "host", std::move(list)));
}

std::string Alarm(const char* threshold, std::time_t epoch) {
  JsonTree alarms = Owned(cJSON_CreateArray());
  Append(alarms, Setting("memoryHigh", "threshold", threshold));
  return ComposeRequest("v2", kKey, "notifyPluginAlarmUpdate", AlarmParams("host", epoch, std::move(alarms)));
}

/// All acknowledgements that come before the plugin answers a command that marks the end of a row.
std::string Acknowledged(Connection& plugin) {
  JsonTree end = CommandParams("end", "nowhere", Owned(cJSON_CreateArray()));
  plugin.Send(ComposeRequest("v2", kKey, "notifyPluginCommand", std::move(end)));
  std::string states;
  std::string text;
  while (plugin.Receive(&text, milliseconds(10000)) == Received::Frame) {
    const Examined message = Examine(text, "v2", kKey);
    if (TextOf(message.params, "commandId") == "end") return states;
    if (message.kind == "notifyPluginCommandAck") states += TextOf(message.params, "commandState") + " ";
  }
  return "no answer";
}

TEST(HostMonitor, OutlivesWhateverTheAgentSends) {
  const logtest::TemporaryDirectory directory;
  Listener listener(directory.path() + "/socket");
  std::future<int> status = StartPlugin(directory.path());
  Connection plugin = listener.Accept(milliseconds(10000));
  plugin.Send("WELCOME test\n");
  const std::string command = Command("v2", kKey, "100");
  const std::string accepted = "notifyPluginCommand verified setInterval";
  const std::string untrusted = "notifyPluginCommand refused untrusted";
  const std::string alarm = "notifyPluginAlarmUpdate ";
  const struct {
    const char* name;
    std::string text;
    std::string outcome;  // behind "agent -> plugin "
    const char* states;   // acknowledged
  } rows[] = {
      {"least interval", Command("v2", kKey, "50"), accepted, "ACCEPTED ACKED "},
      {"below the least", Command("v2", kKey, "49"), accepted, "ACCEPTED ERRORED "},
      {"greatest interval", Command("v2", kKey, "60000"), accepted, "ACCEPTED ACKED "},
      {"above the greatest", Command("v2", kKey, "60001"), accepted, "ACCEPTED ERRORED "},
      {"number with a tail", Command("v2", kKey, "100 "), accepted, "ACCEPTED ERRORED "},
      {"other key", Command("v2", "another key", "100"), untrusted, ""},
      {"value changed", std::regex_replace(command, std::regex("100"), "101"), untrusted, ""},
      {"version that is not signed", Command("v1", "", "100"), untrusted, ""},
      {"takes a gigabyte", std::regex_replace(command, std::regex("m=64"), "m=1048576"), untrusted, ""},
      {"half a command", command.substr(0, command.size() / 2), "? refused unknown", ""},
      {"nothing", "", "? refused unknown", ""},
      {"alarm", Alarm("100", 1000), alarm + "verified memoryHigh", ""},
      {"alarm of before", Alarm("98", 999), alarm + "refused old", ""},
      {"threshold above all", Alarm("100.1", 2000), alarm + "refused value", ""},
      {"threshold that is no number", Alarm("nan", 2000), alarm + "refused value", ""},
      {"time of what was refused does not count", Alarm("97", 1001), alarm + "verified memoryHigh", ""},
  };
  std::string expected;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    plugin.Send(row.text);
    EXPECT_EQ(Acknowledged(plugin), row.states);
    expected += "agent -> plugin " + row.outcome + "\nagent -> plugin notifyPluginCommand verified \n";
  }
  std::ifstream outcome(directory.path() + "/outcome");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(outcome), {}), expected);
  plugin.Send("GOODBYE test\n");
  EXPECT_EQ(status.get(), 0);
}

TEST(Framing, StreamIsCutAnywhere) {
  const struct {
    std::string stream;
    const char* received;  // each frame with a bar behind it, then the end
  } rows[] = {
      {std::string("\0\0\0\0\0\0\0\2ab", 10), "|ab|closed"},
      {std::string("\0\0\0\1a\0\0", 7), "a|the peer closed in the middle of a frame"},
      {std::string("\0\4\0\0a", 5), "the peer closed in the middle of a frame"},
      {std::string("\0\4\0\1a", 5), "the peer announces a frame of 262145 bytes"},
  };
  for (const auto& row : rows) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Connection connection{FileDescriptor(ends[1])};
    std::string received;
    std::string text;
    try {
      for (const char byte : row.stream) {
        ASSERT_EQ(::send(ends[0], &byte, 1, MSG_NOSIGNAL), 1);
        if (connection.Receive(&text, milliseconds(0)) == Received::Frame) received += text + "|";
      }
      ::close(ends[0]);
      if (connection.Receive(&text, milliseconds(0)) == Received::Closed) received += "closed";
    } catch (const std::runtime_error& error) {
      received += error.what();
    }
    EXPECT_EQ(received, row.received);
  }
}

}  // namespace
}  // namespace demo
