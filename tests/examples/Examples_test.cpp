// Runs the small programs and judges what they print; under the address sanitizer their status tells a leak.
#include <gtest/gtest.h>

#include "AgentMessages.h"
#include "AlertsPluginJson.h"
#include "util/LogTestSupport.h"

namespace {
using Keys = std::set<std::string>;
using Rows = std::vector<std::pair<std::string, std::string>>;
constexpr char kKey[] = "the key of both";
constexpr char kCommand[] = R"({"moduleName":"$1","commandId":"$2","commands":[
  {"name":"dim","params":[{"name":"percent","value":"$2"}]},{"name":"$3"}]})";
constexpr char kUpdate[] = R"({"modules":[{"moduleName":"o","epoch":"$1","alarms":[
  {"name":"$2","params":[{"name":"threshold","value":"$3"},{"name":"clear","value":"$5"}]}]}]})";

/// A line of the agent: the form with words for $1, $2 and so on.
std::string Sent(const char* form, const char* words, const char* version = "v2", const char* key = kKey) {
  const std::string params = std::regex_replace(words, std::regex(R"((\S+) (\S+) (\S+)( (\S+))?)"), form);
  const char* api = form == kCommand ? "notifyPluginCommand" : "notifyPluginAlarmUpdate";
  return demo::ComposeRequest(version, key, api, demo::Owned(cJSON_Parse(params.c_str()))) + "\n";
}
std::string Untrusted(const char* form, const char* words) {
  return Sent(form, words, "v1") + Sent(form, words, "v2", "another key");
}

/// Of every member that has one of the keys, the text or the number of elements.
std::string Told(const cJSON* tree, const Keys& keys) {
  std::string told;
  for (const cJSON* child = tree->child; child != nullptr; told += Told(child, keys), child = child->next) {
    if (child->string == nullptr || keys.count(child->string) == 0) continue;
    told += (child->valuestring ? child->valuestring : std::to_string(cJSON_GetArraySize(child))) + " ";
  }
  return told;
}

class Examples : public ::testing::Test {
 protected:
  Examples() {
    std::filesystem::current_path(m_directory.path());
    std::ofstream("key") << kKey;
    std::filesystem::permissions("key", std::filesystem::perms::owner_read);
  }
  /// Each row is input, and what is told because of it. All is signed exactly if the key is an argument.
  static void Run(int status, std::string command, const Keys& keys = {}, const Rows& rows = {}) {
    std::string input, expected, told;
    for (const auto& row : rows) input += row.first, expected += row.second;
    std::ofstream("input") << input;
    EXPECT_EQ(std::system(("exec " PROGRAMS + command + " <input >out 2>err").c_str()), status) << command;
    std::ifstream lines("out");
    for (std::string line; std::getline(lines, line);) {
      const CAlarmUpdatePluginJson checked(line.c_str(), kKey, VerificationLimits());
      EXPECT_EQ(checked.m_validSignature, command.find(" key") != std::string::npos) << line;
      told += Told(demo::Owned(cJSON_Parse(line.c_str())).get(), keys) + "| ";
    }
    EXPECT_EQ(told, expected) << command << logtest::ReadFile("err");
  }
  const logtest::TemporaryDirectory m_directory;
};

TEST_F(Examples, ReportsAndRegistrations) {
  Run(0, "state_report", {"name", "value"}, {{"", "power on mode automatic | "}});
  Run(0, "state_report key", {"moduleName"}, {{"", "lamp | "}});
  Run(W_EXITCODE(1, 0), "state_report /etc/passwd");  // which everybody can read
  Run(0, "raii_handles key", {"states"}, {{"", "1 | 10 | 10 | 10 | 10 | "}});
  EXPECT_NE(logtest::ReadFile("err").find("slots: the last "), std::string::npos);
  const std::string oven = "oven 5 2 1 2 2 1 ", all = oven + "timer 1 | ";
  const Keys keys = {"moduleName", "properties", "states", "events", "metrics", "commands", "alarms"};
  Run(0, "registration_from_file " DESCRIPTION " key", keys, {{"", all + all + oven + "| "}});
}

TEST_F(Examples, FaultsOfADescriptionAreToldWithTheirPlace) {
  const std::string m = R"({"modules":[{"name":"m"},{"name":)";
  const Rows rows = {
      {"", "/dev/stdin: cannot be read, or is empty"},
      {"{\n \"modules\": [\n ]]", "/dev/stdin:3: not JSON"},
      {m + R"("1m"}]})", R"(at /modules/1: Invalid moduleName format: "1m")"},
      {m + R"("m","properties":[{"name":"p","displayType":"file"}]}]})", "/properties/0: a property of"},
      {m + R"("m","properties":[{"rows":[{"a":"b"},{"a":1}]}]}]})", "/properties/0/rows/1/a: a text"},
      {m + R"("m","alarms":[{"params":[{"name":"p"}]}]}]})", "/params/0: displayType is required"}};
  for (const auto& [text, error] : rows) {
    Run(W_EXITCODE(1, 0), "registration_from_file /dev/stdin", {}, {{text, ""}});
    EXPECT_NE(logtest::ReadFile("err").find(error), std::string::npos) << text << logtest::ReadFile("err");
  }
}

TEST_F(Examples, CommandLoopOutlivesWhateverComes) {
  const std::string most = Sent(kCommand, "lamp 100 blink");
  const Rows rows = {
      {most, "ACCEPTED | ACKED dim dimmed to 100 blink blinked | "},
      {most, "ACKED request executed before | "},
      {Sent(kCommand, "lamp 101 blink"), "ACCEPTED | ERRORED dim no number in range: \"101\" | "},
      {Sent(kCommand, "lamp 101 blink"), "ERRORED request executed before | "},
      {Sent(kCommand, "lamp -1 blink"), "ACCEPTED | ERRORED dim no number in range: \"-1\" | "},
      {Sent(kCommand, "lamp 0 fly"), "REJECTED request unknown command | "},
      {Sent(kCommand, "oven 0 blink"), "REJECTED request no such module | "},
      {Untrusted(kCommand, "lamp 0 blink") + most.substr(0, 99) + "\n", ""},
      {std::string(most).insert(most.find("v2/") + 2, "\\"), ""},
      {"{\"method\":\"v1/notifyAgentEvent\",\"params\":{}}\n{\"error\":{\"code\":1}}\n5\n", ""},
      {Sent(kCommand, "lamp 0 blink"), "ACCEPTED | ACKED dim dimmed to 0 blink blinked | "}};
  Run(0, "command_loop key", {"commandState", "name", "result"}, rows);
}

TEST_F(Examples, AlarmsAreRaisedAboveOneValueAndClearedBelowAnother) {
  const Rows rows = {
      {Sent(kUpdate, "1000 heat 80 70") + "o heat 80\n", ""},
      {"o heat 80.01\no heat 80.02\no heat nan\no heat 70\n", "o heat trigger value 80.01 | "},
      {"o heat 69.99\nx heat 1\n", "o heat resolve value 69.99 | "},
      {Sent(kUpdate, "999 heat 9 5") + Sent(kUpdate, "2000 heat 9 9.01") + "o heat 78\n", ""},
      {Sent(kUpdate, "soon heat 9 5") + Untrusted(kUpdate, "2000 heat 9 5") + "o heat 79\n", ""},
      {Sent(kUpdate, "1000 heat 60 60") + "o heat 80\n", "o heat trigger value 80 | "},
      {Sent(kUpdate, "1001 heat 9 5") + "o heat 81\n" + Sent(kUpdate, "1002 smoke 1 1"),
       "o heat resolve no longer watched | "}};
  Run(0, "alarm_thresholds key", {"moduleName", "name", "action", "message"}, rows);
  EXPECT_NE(logtest::ReadFile("err").find("module \"x\" has no alarm \"heat\""), std::string::npos);
}

TEST_F(Examples, ARunFindsTheLinesOfTheKilledOne) {
  const std::string run = "logging_setup . " + std::to_string(::getpid()), step = "step 3 of 3\n";
  Run(SIGKILL, run + " --crash");
  Run(0, run);
  const auto files = logtest::FilesIn("logs/logging_setup");
  EXPECT_EQ(logtest::ReadFile(files.at(0)).find(step), std::string::npos);
  const std::string next = logtest::ReadFile(files.at(1));
  EXPECT_NE(next.find(step), next.rfind(step)) << next;
  const std::regex between(
      R"(if anything, follows\n.*step 1 of 3\n.*step 2 of 3\n.*step 3 of 3\n.*end of what)");
  EXPECT_TRUE(std::regex_search(next, between)) << next;
  const std::string special = logtest::ReadFile("logs/logging_setup/special_logs/exchange.log");
  EXPECT_NE(special.find("sent login: plugin\npassword: *\n"), std::string::npos) << special;
}
}  // namespace
