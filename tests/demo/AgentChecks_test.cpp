#include "AgentChecks.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "Program.h"
#include "StatesPluginJson.h"

namespace demo {
namespace {

const std::string kKey = "the key of both";

std::string StateReport(const std::string& version) {
  CStatesPluginJson builder;
  builder.m_appGUID = "a1";
  builder.m_moduleName = "host";
  builder.m_version = version;
  builder.m_accessKey = kKey;
  JsonTree states = Owned(cJSON_CreateArray());
  Append(states, Owned(builder.CreateStatesItemJson("power", "on")));
  JsonTree params = Owned(builder.CreateStatesParamsObj(states.get()));
  HandedOver(states);
  const JsonTree request = Owned(builder.GetJsonrpcRequest(params.get()));
  HandedOver(params);
  return Compact(request.get());
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), by);
}

TEST(AgentVerification, BelievesOnlyWhatWasSignedAsItIs) {
  const std::string v1 = StateReport("v1");
  const std::string v2 = StateReport("v2");
  const std::string otherSalt = StateReport("v2");
  const std::string bad = "its signature does not match its text";
  struct Row {
    const char* name;
    std::string text;
    const char* version;
    std::string key;
    std::string refusal;
  };
  const Row rows[] = {
      {"signed", v2, "v2", kKey, ""},
      {"signed again", otherSalt, "v2", kKey, ""},
      {"other key", v2, "v2", "another key", bad},
      {"no key", v2, "v2", "", bad},
      {"value changed", Replaced(v2, R"("on")", R"("no")"), "v2", kKey, bad},
      {"blank added", v2 + " ", "v2", kKey, bad},
      {"method changed", Replaced(v2, "notifyPluginState", "notifyPluginEvent"), "v2", kKey, bad},
      {"signature of nothing", Replaced(v2, "$argon2id", "$argon2xx"), "v2", kKey, bad},
      {"signature that takes a gigabyte", Replaced(v2, "m=64,", "m=1048576,"), "v2", kKey, bad},
      {"signature left out", Replaced(v1, "v1/", "v2/"), "v2", kKey, bad},
      {"version that is not signed", v1, "v2", kKey, "not of version v2"},
      {"v1 in front of a signature", Replaced(v2, R"("v2/)", R"("v1/)"), "v2", kKey, "not of version v2"},
      {"unsigned", v1, "v1", "", ""},
      {"signed where nothing is", v2, "v1", "", "not of version v1"},
      {"no version", Replaced(v1, "v1/", ""), "v1", "", "not of version v1"},
      {"no params", Replaced(v1, "params", "other"), "v1", "", "no params"},
      {"no JSON", v1.substr(0, v1.size() - 1), "v1", "", "not JSON"},
      {"text behind a zero byte", v1 + std::string(1, '\0') + "x", "v1", "", "not JSON"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Examine(row.text, row.version, row.key).refusal, row.refusal);
  }
  EXPECT_EQ(Examine(v2, "v2", kKey).kind, "notifyPluginState");
}

constexpr char kRegistration[] = R"({"appGUID":"a1","epoch":"1000","modules":[
  {"moduleName":"host","states":[{"name":"power","displayType":"string"},{"name":"disks","displayType":"table"}],
   "metrics":[{"name":"load"}],"events":[{"name":"started"}],"alarms":[{"name":"hot"}],
   "commands":[{"name":"reboot","params":[{"name":"delay"}]},{"name":"stop"}]},
  {"moduleName":"empty"}]})";

std::string Take(Registration& registration, const std::string& params) {
  const JsonTree tree = Owned(cJSON_Parse(params.c_str()));
  std::string outcome;
  return (registration.Take(tree.get(), &outcome) ? "" : "refused: ") + outcome;
}

std::string Check(const Registration& registration, const std::string& kind, const std::string& rest) {
  const JsonTree tree = Owned(cJSON_Parse((R"({"appGUID":"a1","epoch":"1001",)" + rest + "}").c_str()));
  return registration.Check(kind, tree.get());
}

TEST(AgentRegistration, HoldsReportsAgainstWhatWasDeclared) {
  Registration registration;
  EXPECT_EQ(Check(registration, "notifyPluginState", R"("moduleName":"host")"),
            "not from the plugin that registered");
  ASSERT_EQ(Take(registration, kRegistration), "registered");
  struct Row {
    const char* kind;
    const char* rest;  // of the params, behind appGUID and epoch
    const char* fault;
  };
  const Row rows[] = {
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"power","value":"on"}])", ""},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"disks","value":[{"name":"a"}]}])", ""},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"disks","value":[]}])", ""},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"disks","value":"none"}])",
       R"(the value of "disks" is not of its declared type)"},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"disks","value":[{"size":"1"}]}])",
       R"(the value of "disks" is not of its declared type)"},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"power","value":1}])",
       R"(the value of "power" is not of its declared type)"},
      {"notifyPluginState", R"("moduleName":"host","states":[{"name":"power","value":"on"},{"name":"load"}])",
       R"("load" is not declared among the states)"},
      {"notifyPluginState", R"("moduleName":"empty","states":[{"name":"power","value":"on"}])",
       R"("power" is not declared among the states)"},
      {"notifyPluginState", R"("moduleName":"other","states":[])", R"(module "other" is not declared)"},
      {"notifyPluginMetric", R"("moduleName":"host","metrics":[{"name":"load","value":1.5}])", ""},
      {"notifyPluginMetric", R"("moduleName":"host","metrics":[{"name":"load","value":"1.5"}])",
       R"(the value of "load" is not of its declared type)"},
      {"notifyPluginEvent", R"("moduleName":"host","events":[{"name":"started","value":""}])", ""},
      {"notifyPluginEvent", R"("moduleName":"host","events":[{"name":"started"}])",
       R"(the value of "started" is not of its declared type)"},
      {"notifyPluginAlert", R"("moduleName":"host","alarms":[{"name":"hot","action":"resolve"}])", ""},
      {"notifyPluginAlert", R"("moduleName":"host","alarms":[{"name":"hot","action":"maybe"}])",
       R"(the value of "hot" is not of its declared type)"},
      {"notifyPluginCommandAck", R"("moduleName":"host","commandState":"ACKED")", ""},
      {"notifyPluginCommandAck", R"("moduleName":"host","commandState":"acked")",
       R"(no such command state: "acked")"},
      {"notifyPluginLocalCommand",
       R"("moduleName":"host","commands":[{"name":"stop"},{"name":"reboot","params":[{"name":"delay"}]}])",
       ""},
      {"notifyPluginLocalCommand", R"("moduleName":"host","commands":[{"name":"format"}])",
       R"("format" is not declared among the commands)"},
      {"notifyPluginLocalCommand",
       R"("moduleName":"host","commands":[{"name":"stop","params":[{"name":"delay"}]}])",
       R"("delay" is not declared among the parameters of "stop")"},
      {"notifyPluginMagic", R"("moduleName":"host")", "not a message of a plugin"},
      {"notifyPluginState", R"("moduleName":"host","EPOCH":"","appGUID":"b2")",
       ""},  // the first of a name counts
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.rest);
    EXPECT_EQ(Check(registration, row.kind, row.rest), row.fault);
  }
}

TEST(AgentRegistration, IsReplacedOnlyByWhatIsNewAndSound) {
  const std::string first = kRegistration;
  const std::string changed = Replaced(first, "load", "load5");
  Registration registration;
  EXPECT_EQ(Take(registration, first), "registered");
  EXPECT_EQ(Take(registration, first), "refused: the time is not newer than that of the registration before");
  EXPECT_EQ(Take(registration, Replaced(first, "1000", "soon")),
            "refused: the time is not newer than that of the registration before");
  EXPECT_EQ(Take(registration, Replaced(first, "1000", "1001")), "renewed");
  EXPECT_EQ(registration.Epoch(), 1001);
  EXPECT_EQ(Take(registration, Replaced(changed, "empty", "host")),
            R"(refused: a module without a name of its own: "host")");
  EXPECT_EQ(Take(registration, Replaced(changed, "started", "1st")), R"(refused: not a name: "1st")");
  const char* oldName = R"("moduleName":"host","metrics":[{"name":"load","value":1}])";
  EXPECT_EQ(Check(registration, "notifyPluginMetric", oldName), "");  // what was refused has left no trace
  EXPECT_EQ(Take(registration, changed), "changed");
  EXPECT_EQ(Check(registration, "notifyPluginMetric", oldName),
            R"("load" is not declared among the metrics)");
}

TEST(Program, TextsFromOutside) {
  EXPECT_EQ(Printable("ok \x1b[2J\n\x7f"), "ok .[2J..");
  EXPECT_EQ(Printable("12345", 5), "12345");
  EXPECT_EQ(Printable("123456", 5), "12345...");
  for (const char* bad : {"", "0", "101", "5 ", " 5", "5x", "99999999999999999999"}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(ParseNumber(bad, "it", 1, 100), UsageError);
  }
  EXPECT_EQ(ParseNumber("1", "it", 1, 100), 1);
  EXPECT_EQ(ParseNumber("100", "it", 1, 100), 100);
}

}  // namespace
}  // namespace demo
