// Keeps docs/messages.md true: its examples are what the builders print and the parsers accept, and its
// tables hold exactly the exceptions that are thrown, each with its number and a remedy.
#include <fstream>
#include <functional>
#include <map>
#include <set>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "MessageTestSupport.h"
#include "MetricsPluginJson.h"
#include "StatesPluginJson.h"
#include "WatcherPlugin.h"

using namespace message_test;

namespace {

struct Guide {
  std::map<std::string, std::string> examples;  // by heading
  std::set<std::string> faults;                 // "<number> <text>"

  Guide() {
    std::ifstream file(PLUGINSDK_GUIDE);
    std::string heading;
    for (std::string line; std::getline(file, line);) {
      if (line[0] == '#') heading = line.substr(line.find(' ') + 1);
      if (line.rfind("| `", 0) == 0) AddFault(line);
      if (line != "```json") continue;
      while (std::getline(file, line) && line != "```") examples[heading] += line + "\n";
    }
  }

  // | `text` | number | remedy |
  void AddFault(const std::string& line) {
    const std::size_t number = line.find("` | ") + 4;
    EXPECT_GT(line.size(), number + 10) << "no remedy: " << line;
    faults.insert(line.substr(number, 2) + line.substr(3, number - 7));
  }
};

cJSON* ArrayOf(cJSON* item) {
  cJSON* array = cJSON_CreateArray();
  cJSON_AddItemToArray(array, item);
  return array;
}

template <typename Builder>
Builder Camera(const char* version = "v1") {
  Builder builder;
  builder.m_appGUID = "a1b2";
  builder.m_moduleName = "camera";
  builder.m_version = version;
  builder.m_accessKey = "key";
  return builder;
}

using Acks = CCommandAcksPluginJson;
cJSON* Answer(cJSON* (*create)(const char*, const char*, const char*, const char*, cJSON*), const char* name,
              const char* result) {
  cJSON* acks = name == nullptr ? nullptr : ArrayOf(Acks::CreateCommandAcksItemJson(name, result));
  return Acks().GetJsonrpcRequest(create("a1b2", "77", "remote", "camera", acks));
}

// As the guide shows it: indented, with a fixed time and without the random part of a signature.
std::string Shown(cJSON* tree) {
  std::string text = Stamped(tree);
  while (text.find("NOW") != std::string::npos) text = Replaced(text, "NOW", "1700000000");
  const std::size_t salt = text.find("p=8$");
  if (salt != std::string::npos) text.replace(salt + 4, 45, "<salt>$<hash>");
  return Printed(Json(text).get(), false) + "\n";
}

TEST(MessagesGuide, ExamplesAreWhatTheBuildersPrint) {
  using Local = CLocalCommandPluginJson;
  auto states = Camera<CStatesPluginJson>("v2");
  auto metrics = Camera<CMetricsPluginJson>();
  auto events = Camera<CEventsPluginJson>();
  auto alerts = Camera<CAlertsPluginJson>();
  cJSON* disks = Json(R"([{"name":"sda","free":"12 GiB"}])").release();
  cJSON* delay = ArrayOf(Local::CreateCommandParamsItemJson("delay", "5"));
  WatcherPlugin plugin;
  WatcherPlugin small;
  small.root.m_modules = {&small.spare};
  const std::pair<const char*, cJSON*> messages[] = {
      {"State report", states.GetJsonrpcRequest(states.CreateStatesParamsObj(
                           ArrayOf(states.CreateStatesItemJson("disks", disks))))},
      {"Metric report", metrics.GetJsonrpcRequest(metrics.CreateMetricsParamsObj(
                            ArrayOf(metrics.CreateMetricsItemJson("fps", 29.974))))},
      {"Event report", events.GetJsonrpcRequest(events.CreateEventsParamsObj(
                           ArrayOf(events.CreateEventsItemJson("motion", "left"))))},
      {"Alert", alerts.GetJsonrpcRequest(alerts.CreateAlarmsParamsObj(
                    ArrayOf(CAlertsPluginJson::CreateAlarmsItemJson("overheat", "trigger", "above 80 C"))))},
      {"Accepted", Answer(Acks::CreateCommandAcksAcceptedParamsObj, nullptr, nullptr)},
      {"Acked", Answer(Acks::CreateCommandAcksAckedParamsObj, "reboot", "done")},
      {"Rejected", Answer(Acks::CreateCommandAcksRejectedParamsObj, "fly", "unknown command")},
      {"Errored", Answer(Acks::CreateCommandAcksErroredParamsObj, "reboot", "delay is no number")},
      {"Local command", Local().GetJsonrpcRequest(Local::CreateLocalCommandParamsObj(
                            "c3d4", "", "a1b2", "c3d4|1804290", "local", "camera",
                            ArrayOf(Local::CreateCommandsItemJson("reboot", delay))))},
      {"Registration", cJSON_Duplicate(plugin.Build()->m_request, true)},
      {"Renewed registration", small.Build()->RenewUpdateJsonObject(true)},
  };
  Guide guide;
  for (const auto& [heading, tree] : messages) EXPECT_EQ(guide.examples[heading], Shown(tree)) << heading;
}

TEST(MessagesGuide, IncomingExamplesAreAccepted) {
  Guide guide;
  const CCommandPluginJson command(guide.examples["Command"].c_str(), "");
  EXPECT_EQ(command.m_commandId + command.m_commandSource + command.m_moduleName, "77remotecamera");
  EXPECT_EQ(command.m_commands.size(), 1U);
  const CAlarmUpdatePluginJson update(guide.examples["Alarm update"].c_str(), "");
  EXPECT_EQ(update.m_alarmVersion, "2");
  EXPECT_EQ(update.GetAlarms("camera").size(), 1U);
  EXPECT_STREQ(update.GetAlarmsUpdateEpochTime("camera"), "1700000000");
}

TEST(MessagesGuide, TablesHoldEveryExceptionWithItsNumber) {
  using Base = CBasePluginObject;
  using Update = CUpdatePluginJson;
  using Local = CLocalCommandPluginJson;
  constexpr const char* none = nullptr;
  constexpr cJSON* noTree = nullptr;
  const std::string name = "9" + std::string(32, 'n');
  const std::string module = "9" + std::string(64, 'm');
  const std::string header(129, 'h');
  const std::string value(513, 't');
  const JsonPtr table = Json(R"([{"name":")" + header + "\"}]");
  const JsonPtr large(cJSON_CreateString(std::string(2048, 's').c_str()));
  const auto property = [&](const char* n, const char* type, const char* category) {
    return Update::CreateUpdatePropertiesItemJson(n, none, none, type, category, large.get());
  };
  const auto params = [&](const char* n, const char* type, const char* version) {
    return Update().CreateUpdateParamsObj(n, none, type, version, none, none, large.get());
  };
  const auto moduleItem = [&](const char* n) {
    return Update::CreateUpdateModulesItemJson(n, none, none, large.get(), noTree, noTree, noTree, noTree,
                                               noTree);
  };
  const auto command = [&](const char* type, cJSON* values) {
    return Update::CreateUpdateCommandParamsItemJson("p", none, none, type, true, none, values, "");
  };
  const auto alarm = [&](const char* type, cJSON* values) {
    return Update::CreateUpdateAlarmParamsItemJson("p", none, none, type, true, none, values);
  };
  // Many a row has later faults too, and an argument that is still the caller's after the exception. The
  // guide has a placeholder where the text quotes what it was given.
  struct Fault {
    std::function<cJSON*()> provoke;
    std::string given{}, placeholder{};
  };
  const Fault faults[] = {
      {[] { return CUpdateParams().GetNotifyPluginUpdate(none, none), noTree; }},
      {[] { return Base().GetSignedRequestJson("", noTree, true); }},
      {[&] { return property(none, "", "a b"); }},
      {[&] { return property(name.c_str(), "", "a b"); }, name, "<name>"},
      {[&] { return property("<name>", "", "a b"); }},
      {[&] { return property("n", "", "<displayCategory>"); }},
      {[&] { return property("n", "", none); }},
      {[&] { return property("n", "displayOn", none); }},
      {[] { return Update::CreateUpdatePropertiesItemJson("n", none, none, "table", none, none); }},
      {[] { return Update::CreateUpdateMetricsItemJson("n", none, none, none, "", none); }},
      {[&] { return Base::CreateBaseValueItemJson(none, large.get()); }},
      {[] { return Base::CreateBaseValueItemJson("n", noTree); }},
      {[&] { return Base::CreateBaseValueItemJson("n", value.c_str()); }, value, "<value>"},
      {[&] { return Base::CreateBaseValueItemJson("<name>", large.get()); }},
      {[&] { return Base::CreateBaseValueItemJson("n", table.get()); }, header, "<header>"},
      {[] { return Base::CreateBaseValueItemJson("n", 1e15); }, "1e+15", "<number>"},
      {[&] { return CStatesPluginJson().GetJsonrpcRequest(cJSON_Duplicate(large.get(), true)); }},
      {[&] { return CAlertsPluginJson().CreateAlarmsParamsObj(large.get()); }},
      {[&] { return Local::CreateCommandsItemJson(none, large.get()); }},
      {[] { return Local::CreateCommandsItemJson("n", noTree); }},
      {[&] { return Local::CreateCommandsItemJson("n", large.get()); }},
      {[&] { return params(none, "", "1"); }},
      {[&] { return params("<appName>", "", "1"); }},
      {[&] { return params("app", "", "1"); }},
      {[&] { return params("app", "any", none); }},
      {[&] { return params("app", "any", "<version>"); }},
      {[&] { return moduleItem(none); }},
      {[&] { return moduleItem(module.c_str()); }, module, "<moduleName>"},
      {[&] { return moduleItem("<moduleName>"); }},
      {[&] { return command("", large.get()); }},
      {[&] { return command("datetime", large.get()); }},
      {[&] { return alarm("datetime", large.get()); }},
      {[&] { return command("list", noTree); }, "list", "<displayType>"},
      {[&] { return alarm("list", noTree); }, "list", "<displayType>"},
  };
  std::set<std::string> thrown;
  for (const Fault& fault : faults)
    thrown.insert(Replaced(Thrown(fault.provoke), fault.given, fault.placeholder));
  EXPECT_EQ(Guide().faults, thrown);
}

}  // namespace
