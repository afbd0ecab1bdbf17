// Keeps docs/messages.md true: its examples are what the builders print and the parsers accept, and its
// tables hold exactly the exceptions that are thrown, each with its number and a remedy.
#include <functional>
#include <set>

#include "MessageTestSupport.h"
#include "WatcherPlugin.h"

using namespace message_test;

namespace {

const std::string kGuide = logtest::ReadFile(PLUGINSDK_GUIDE);

// The example below a heading.
std::string Example(const std::string& heading) {
  const std::string fence = "```json\n";
  const std::size_t begin = kGuide.find(fence, kGuide.find("# " + heading + "\n")) + fence.size();
  return kGuide.substr(begin, kGuide.find("```", begin) - begin);
}

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
  auto states = Camera<States>("v2");
  auto metrics = Camera<Metrics>();
  auto events = Camera<Events>();
  auto alerts = Camera<Alerts>();
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
                    ArrayOf(Alerts::CreateAlarmsItemJson("overheat", "trigger", "above 80 C"))))},
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
  for (const auto& [heading, tree] : messages) EXPECT_EQ(Example(heading), Shown(tree)) << heading;
}

TEST(MessagesGuide, IncomingExamplesAreAccepted) {
  const CCommandPluginJson command(Example("Command").c_str(), "");
  EXPECT_EQ(command.m_commandId + command.m_commandSource + command.m_moduleName, "77remotecamera");
  EXPECT_EQ(command.m_commands.size(), 1U);
  const CAlarmUpdatePluginJson update(Example("Alarm update").c_str(), "");
  EXPECT_EQ(update.m_alarmVersion, "2");
  EXPECT_EQ(update.GetAlarms("camera").size(), 1U);
  EXPECT_STREQ(update.GetAlarmsUpdateEpochTime("camera"), "1700000000");
}

TEST(MessagesGuide, TablesHoldEveryExceptionWithItsNumber) {
  const std::string name = "9" + std::string(32, 'n');
  const std::string module = "9" + std::string(64, 'm');
  const std::string header(129, 'h');
  const std::string value(513, 't');
  const JsonPtr table = Json(R"([{"name":")" + header + "\"}]");
  const JsonPtr large(cJSON_CreateString(std::string(2048, 's').c_str()));
  const auto property = [&](const char* n, const char* type, const char* category) {
    return Update::CreateUpdatePropertiesItemJson(n, kNone, kNone, type, category, large.get());
  };
  const auto params = [&](const char* n, const char* type, const char* version) {
    return Update().CreateUpdateParamsObj(n, kNone, type, version, kNone, kNone, large.get());
  };
  const auto moduleItem = [&](const char* n) {
    return Update::CreateUpdateModulesItemJson(n, kNone, kNone, large.get(), kNoTree, kNoTree, kNoTree,
                                               kNoTree, kNoTree);
  };
  const auto command = [&](const char* type, cJSON* values) {
    return Update::CreateUpdateCommandParamsItemJson("p", kNone, kNone, type, true, kNone, values, "");
  };
  const auto alarm = [&](const char* type, cJSON* values) {
    return Update::CreateUpdateAlarmParamsItemJson("p", kNone, kNone, type, true, kNone, values);
  };
  // Many a row has later faults too, and an argument that is still the caller's after the exception. The
  // guide has a placeholder where the text quotes what it was given.
  struct Fault {
    std::function<cJSON*()> provoke;
    std::string given{}, placeholder{};
  };
  const Fault faults[] = {
      {[] { return CUpdateParams().GetNotifyPluginUpdate(kNone, kNone), kNoTree; }},
      {[] { return Base().GetSignedRequestJson("", kNoTree, true); }},
      {[&] { return property(kNone, "", "a b"); }},
      {[&] { return property(name.c_str(), "", "a b"); }, name, "<name>"},
      {[&] { return property("<name>", "", "a b"); }},
      {[&] { return property("n", "", "<displayCategory>"); }},
      {[&] { return property("n", "", kNone); }},
      {[&] { return property("n", "displayOn", kNone); }},
      {[] { return Update::CreateUpdatePropertiesItemJson("n", kNone, kNone, "table", kNone, kNone); }},
      {[] { return Update::CreateUpdateMetricsItemJson("n", kNone, kNone, kNone, "", kNone); }},
      {[&] { return Base::CreateBaseValueItemJson(kNone, large.get()); }},
      {[] { return Base::CreateBaseValueItemJson("n", kNoTree); }},
      {[&] { return Base::CreateBaseValueItemJson("n", value.c_str()); }, value, "<value>"},
      {[&] { return Base::CreateBaseValueItemJson("<name>", large.get()); }},
      {[&] { return Base::CreateBaseValueItemJson("n", table.get()); }, header, "<header>"},
      {[] { return Base::CreateBaseValueItemJson("n", 1e15); }, "1e+15", "<number>"},
      {[&] { return States().GetJsonrpcRequest(cJSON_Duplicate(large.get(), true)); }},
      {[&] { return Alerts().CreateAlarmsParamsObj(large.get()); }},
      {[&] { return Local::CreateCommandsItemJson(kNone, large.get()); }},
      {[] { return Local::CreateCommandsItemJson("n", kNoTree); }},
      {[&] { return Local::CreateCommandsItemJson("n", large.get()); }},
      {[&] { return params(kNone, "", "1"); }},
      {[&] { return params("<appName>", "", "1"); }},
      {[&] { return params("app", "", "1"); }},
      {[&] { return params("app", "any", kNone); }},
      {[&] { return params("app", "any", "<version>"); }},
      {[&] { return moduleItem(kNone); }},
      {[&] { return moduleItem(module.c_str()); }, module, "<moduleName>"},
      {[&] { return moduleItem("<moduleName>"); }},
      {[&] { return command("", large.get()); }},
      {[&] { return command("datetime", large.get()); }},
      {[&] { return alarm("datetime", large.get()); }},
      {[&] { return command("list", kNoTree); }, "list", "<displayType>"},
      {[&] { return alarm("list", kNoTree); }, "list", "<displayType>"},
  };
  std::set<std::string> thrown;
  for (const Fault& fault : faults)
    thrown.insert(Replaced(Thrown(fault.provoke), fault.given, fault.placeholder));
  const std::regex row(R"(\n\| `(.*)` \| (.) \| .{10})");  // | `text` | number | remedy
  std::set<std::string> documented;
  for (std::sregex_iterator at(kGuide.begin(), kGuide.end(), row), end; at != end; ++at)
    documented.insert((*at)[2].str() + " " + (*at)[1].str());
  EXPECT_EQ(documented, thrown);
}

}  // namespace
