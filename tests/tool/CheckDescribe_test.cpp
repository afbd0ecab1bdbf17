// What check finds wrong with requests, and how describe shows a registration.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "message/MessageTestSupport.h"
#include "message/WatcherPlugin.h"

namespace {

using message_test::Printed;
using Answer = std::pair<int, std::string>;  // exit status and standard output

std::string Output(FILE* tool) {
  std::string text;
  for (int c; (c = std::fgetc(tool)) != EOF;) text += static_cast<char>(c);
  return text;
}

Answer RunTool(const std::string& arguments, const std::string& input) {
  const std::string path = testing::TempDir() + "tool_input_" + std::to_string(::getpid());
  std::ofstream(path, std::ios::binary) << input;
  FILE* const tool = ::popen(("LC_ALL=C.UTF-8 " PLUGINSDK_TOOL " " + arguments + " <" + path).c_str(), "r");
  const std::string text = Output(tool);
  return {WEXITSTATUS(::pclose(tool)), text};
}

// With as many x as "<n>" says in its place.
std::string Filled(std::string text) {
  for (std::smatch found; std::regex_search(text, found, std::regex("<([0-9]+)>"));) {
    text = found.prefix().str() + std::string(std::stoul(found[1]), 'x') + found.suffix().str();
  }
  return text;
}

TEST(Check, TellsEveryFaultOfARegistrationInItsPlace) {
  const std::string request =
      Filled(R"({"jsonrpc":"2.0","params":{"appGUID":"g","epoch":1,"appName":"é","type":"ib",
"modules":[{"moduleName":"<64>","events":[{"name":"<32>"},{"name":"<33>"},{"name":"<31>é"},5],
  "metrics":[{"name":"1","displayCategory":"a b"}],"a/b~c":1,
  "properties":[{"Name":"b","displayType":"string"},{"name":"c","displayType":"string","value":[]},
    {"name":"c","displayType":"link","value":[]},{"name":"e","displayType":"displayOn"}]},
 {"moduleName":"<65>","commands":[{"name":"n","type":"x","params":[{"name":"n","displayType":"datetime"},
    {"name":"o","displayType":"switch","required":true,"displayFormat":"f"}]}]}]},
"method":"v1/notifyPluginUpdate"})");
  EXPECT_EQ(RunTool("check", request),
            Answer(1, Filled(R"(/params/version: version is required parameter. (4) [1:27]
/params/epoch: must be a string, is a number [1:50]
/params/appName: Invalid appName format: é (1) [1:62]
/params/modules/0/events/1/name: The length of "<33>" exceeds the maximum name length, i.e. 32 Bytes. (2) [2:155]
/params/modules/0/events/2/name: The length of "<31>é" exceeds the maximum name length, i.e. 32 Bytes. (2) [2:200]
/params/modules/0/events/2/name: Invalid name format: "<31>é" (1) [2:200]
/params/modules/0/events/3: must be an object, is a number [2:236]
/params/modules/0/metrics/0/displayUnit: displayUnit is required parameter. (4) [3:14]
/params/modules/0/metrics/0/name: Invalid name format: "1" (1) [3:22]
/params/modules/0/metrics/0/displayCategory: Invalid displayCategory format: "a b" (1) [3:44]
warning: /params/modules/0/a~1b~0c: unknown member [3:60]
warning: /params/modules/0/properties/0/Name: is read as "name", which differs in letter case [4:25]
/params/modules/0/properties/1/displayType: displayType is inconsistant its value. (4) [4:79]
warning: /params/modules/0/properties/2/name: a second "c" in the same list [5:13]
warning: /params/modules/0/properties/2/value: is an array, which the library allows: usual is an object [5:46]
/params/modules/1/moduleName: The length of "<65>" exceeds the maximum module name length, i.e. 64 Bytes. (2) [6:16]
/params/modules/1/commands/0/type: must be "asynchronous" [6:115]
/params/modules/1/commands/0/params/0/required: is missing [6:129]
/params/modules/1/commands/0/params/0/displayFormat: displayFormat is required parameter for datetime displayType. (5) [6:129]
/params/modules/1/commands/0/params/1/displayValues: displayValues is required parameter for switch displayType. (5) [7:5]
warning: /params/modules/1/commands/0/params/1/displayFormat: is not written for display type "switch" [7:72]
notifyPluginUpdate request: 16 faults, 5 warnings; 1199 bytes in indented printing, 1288 when signed
)")));
}

TEST(Check, TellsWhatIsWrongWithReportsAndEnvelopes) {
  const std::string stamp = R"({"appGUID":"g","epoch":"1","moduleName":"m",)";
  const std::string around = R"({"jsonrpc":"2.0","params":)" + stamp + R"("events":[]},"method":")";
  const std::string large = R"({"jsonrpc":"2.0","method":"v1/notifyPluginState","params":{"states":[],)"
                            R"("epoch":"1","moduleName":"m","appGUID":")";
  const std::string tooLarge = "The data size exceeds the maximum name length, i.e. 2048 Bytes. (2)\n";
  const std::string longHeader = "\" exceeds the maximum header length, i.e. 128 Bytes. (2)\n";
  const std::string order = "warning: /params: the order is \"jsonrpc\", \"params\", \"method\"\n";
  message_test::WatcherPlugin plugin;
  // What stands before the summary, without positions. The rest of a large request takes 142 bytes.
  const std::pair<std::string, std::string> rows[] = {
      {Printed(plugin.Build("v2")->m_request), ""},
      {large + "<1817>\"}}", order},
      {large + "<1818>\"}}", "warning: (document): is too large once it is signed: " + tooLarge + order},
      {large + "<1907>\"}}", "(document): " + tooLarge + order},
      {stamp +
           R"("states":[{"name":"1","value":"<512>"},{"value":"<513>"},{"name":"n","value":["<1020>"]},)" +
           R"({"name":"o","value":["<1021>"]},{"name":"p","value":[{"name":"<128>"},{"name":"<129>"}]}]})",
       "(document): " + tooLarge +
           "warning: /states/0/name: cannot have been declared: Invalid name format: \"1\" (1)\n"
           "/states/1/name: name is NULL (3)\n"
           "/states/1/value: The length of \"<513>\" exceeds the maximum string length, i.e. 512 Bytes. (2)\n"
           "/states/3/value: The length of \"o\" exceeds the maximum table length, i.e. 1024 Bytes. (2)\n"
           "/states/4/value/1/name: The length of \"<129>" +
           longHeader},
      {stamp +
           R"("metrics":[{"name":"a","value":1.005},{"name":"a","value":1e15},{"name":"b","value":"5"},{}]})",
       "warning: /metrics/0/value: is sent with two decimals: 1\n"
       "warning: /metrics/1/name: a second \"a\" in the same list\n"
       "/metrics/1/value: The number 1e+15 exceeds at most fifteen digits limitation. (3)\n"
       "/metrics/2/value: must be a number, is a string\n"
       "/metrics/3/value: is missing\n/metrics/3/name: name is NULL (3)\n"},
      {stamp + R"("states":[{"name":"o","value":[{"name":"<1030>"}]}]})",
       "/states/0/value: The length of \"o\" exceeds the maximum table length, i.e. 1024 Bytes. (2)\n"
       "/states/0/value/0/name: The length of \"<1030>" +
           longHeader},
      {R"({"epoch":"1","appGUID":"g","moduleName":"","alarms":[{"name":"a","action":"trigger","time":"1"}],"id":5})",
       "warning: /moduleName: ModuleName is missing. (4)\n"
       "warning: /alarms/0/message: is missing, which the library allows\nwarning: /id: unknown member\n"},
      {stamp +
           R"("commandState":"ACKED","commandId":"i","commandAcks":[{"name":"a"},{"name":5,"result":1}]})",
       "warning: /commandSource: is missing, which the library allows\n"
       "warning: /commandAcks/0/result: is missing, which the library allows\n"
       "/commandAcks/1/name: must be a string, is a number\n"},
      {stamp +
           R"("clientAppGUID":"c","commandId":"i","commandSource":"local","commands":{"name":"n","params":[{}]}})",
       "/commands/params/0/name: name is NULL (3)\n/commands/params/0/value: value is NULL (3)\n"},
      {around + R"(v3/notifyPluginEvent","id":1})",
       "warning: /method: unknown version \"v3\"\n"
       "/id: makes it a request that waits for an answer; messages are notifications\n"},
      {around + "v2/notifyPluginEvent?authorization=$argon2id$v=19$m=64,t=16,p=8$<22>$<21>\"}",
       "/method: what follows the method is no signature of this system\n"},
      {R"({"jsonrpc":"2.0","params":{},"method":"v1/notifyPluginCommand"})",
       "/method: the agent sends this, a plugin never does\n"},
  };
  for (const auto& [input, findings] : rows) {
    SCOPED_TRACE(input);
    const auto [status, text] = RunTool("check -", Filled(input));
    EXPECT_EQ(std::regex_replace(text, std::regex(" \\[[0-9:]+\\](\n)|[^\n]*\n$"), "$1"), Filled(findings));
    EXPECT_EQ(status, text.find(": no faults, ") == std::string::npos ? 1 : 0);
  }
  EXPECT_EQ(
      Printed(message_test::Json(RunTool("check --json", stamp + "\"events\":[{}]}").second).get()),
      R"({"valid":false,"document":"params","method":"notifyPluginEvent","size":{"indented":149,"signed":238,)"
      R"("limit":2048},"faults":[{"pointer":"/events/0/name","text":"name is NULL","number":3,"line":1,)"
      R"("column":55},{"pointer":"/events/0/value","text":"value is NULL","number":3,"line":1,"column":55}],)"
      R"("warnings":[]})");
}

const std::string kModel =
    R"({"appName":"W\u001b]0;\u0007","displayName":"\u202e\u009b\ufeff\u200d\udb40\udc41\u061c","version":"1",
"modules":[{"moduleName":"cam","displayName":"門口攝影機","states":[5,{"name":"éééééééééééé"}]}]})";
const std::string kInTwentyColumns = R"(W\u001b]0;\u0007 1 …
└─ cam "門口攝影機"
   └─ states (2)
      ├─ (no object…
      └─ éééééééééé…
)";

TEST(Describe, KeepsToTheWidthAndColorsATerminalOnly) {
  ::setenv("COLUMNS", "20", 1);  // counts for a terminal only
  EXPECT_EQ(RunTool("describe", kModel)
                .second.find(R"(W\u001b]0;\u0007 1 "\u202e\u009b\ufeff\u200d\udb40\udc41\u061c", 1 module)"),
            0U);
  EXPECT_NE(
      Printed(message_test::Json(RunTool("describe --json", kModel).second).get())
          .find(R"("counts":{"properties":0,"states":2,"metrics":0,"events":0,"commands":0,"alarms":0},)"
                R"("properties":[],"states":[{},{"name":"é)"),
      std::string::npos);
  EXPECT_EQ(RunTool("describe --width 20", kModel), Answer(0, kInTwentyColumns));
  EXPECT_NE(RunTool("describe --width 18", kModel).second.find("\n└─ cam \"門口攝影…\n"), std::string::npos);
  const std::string links = R"({"appName":"A","modules":[{"moduleName":"m","properties":[{"name":"l",
"value":{"url":"<60>","alias":"b","url":"c","alias":"d"},"displayOnProperty":{"n":1}}]}]})";
  EXPECT_NE(RunTool("describe --width 60", Filled(links))
                .second.find("\n      └─ l to \"xxxxxxxxxxxxx… \"b\", \"c\" \"d\", shown on {\"n\":1}\n"),
            std::string::npos);
  EXPECT_EQ(RunTool("2>&1 describe --width 10001", kModel).second.find("--width: must be 1 to 10000\n"), 0U);
  const Answer none = RunTool("describe --json", R"({"method":"v1/x","params":{"modules":[]}})");
  EXPECT_TRUE(none.first == 1 && none.second.find("{\n\t\"registration\":\tfalse") == 0) << none.second;
  for (const std::string environment : {"A=b", "NO_COLOR=1", "TERM=dumb"}) {
    winsize size = {24, 20, 0, 0};  // lines, columns
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    const std::string command =
        "printf '%s' \"$0\" | env TERM=linux LC_ALL=C.UTF-8 " + environment + " " PLUGINSDK_TOOL " describe";
    if (child == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), kModel.c_str(), nullptr));
    const std::string text = std::regex_replace(Output(::fdopen(terminal, "r")), std::regex("\r"), "");
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(text == kInTwentyColumns, environment != "A=b") << text;
    EXPECT_EQ(std::regex_replace(text, std::regex("\x1b\\[[0-9]*m"), ""), kInTwentyColumns);
  }
}

}  // namespace
