// The registration: its builder where the models do not reach it, and the models of registration and local
// commands. The whole requests that they become are shown, and compared, in docs/messages.md.
#include <utility>

#include "MessageTestSupport.h"
#include "WatcherPlugin.h"

using namespace message_test;

namespace {

const std::string kNullText = "- basic_string::_M_construct null not valid";

// With what follows the description: type, and before it perhaps a default value.
template <typename... Rest>
cJSON* CommandParam(Rest... rest) {
  return Update::CreateUpdateCommandParamsItemJson("p", kNone, kNone, rest...);
}

TEST(RegistrationItems, KeysStandInOrder) {
  const JsonPtr unused = Json(R"(["a"])");  // of no use to its display type: still the caller's
  const std::string name64(64, 'm');
  const std::pair<cJSON*, std::string> rows[] = {
      {Update::CreateUpdateCommandsItemJson("n", "N", "D", kNone, Json("[1]").release(), cJSON_CreateTrue()),
       R"("n","displayName":"N","description":"D","type":"asynchronous","params":[1],"displayOnProperty":true})"},
      {CommandParam("switch", true, kNone, Json("[1]").release(), "unused"),
       R"("p","displayType":"switch","displayValues":[1],"required":true})"},
      {CommandParam("", "text", true, kNone, kNoTree, ""),
       R"("p","displayType":"text","required":true,"defaultValue":""})"},
      {CommandParam(2.5, "text", true, kNone, kNoTree, ""),
       R"("p","displayType":"text","required":true,"defaultValue":2.5})"},
      {CommandParam(2.5, "file", true, kNone, kNoTree, ""), R"("p","displayType":"file","required":true})"},
      {Update::CreateUpdateAlarmParamsItemJson("p", kNone, kNone, "valueFromProperty", true, kNone,
                                               unused.get()),
       R"("p","displayType":"valueFromProperty","required":true})"},
      {Update::CreateUpdateModulesItemJson(name64.c_str(), kNone, kNone, cJSON_CreateArray(), kNoTree,
                                           kNoTree, kNoTree, kNoTree, kNoTree),
       '"' + name64 + R"(","properties":[]})"},
  };
  for (const auto& [item, printed] : rows)
    EXPECT_EQ(Replaced(Printed(JsonPtr(item).get()), "moduleName", "name"), R"({"name":)" + printed);
}

TEST(RegistrationRenewal, StampsTheStoredParamsAndNothingElse) {
  Update builder;
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  builder.m_request = Json("{}").release();
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  cJSON_AddItemToObject(builder.m_request, "params", Json(R"({"a":1,"epoch":"1","b":[2]})").release());
  builder.m_version = "v2";
  EXPECT_EQ(Thrown([&] { return builder.RenewUpdateJsonObject(true); }), "6 AccessKey is missing.");
  builder.m_version = "v3";  // unsigned like every version but "v2"
  JsonPtr renewed;
  const auto log = Logged([&] { renewed.reset(builder.RenewUpdateJsonObject(true)); });
  cJSON* params = builder.m_request->child;
  const std::string epoch = CPluginUtil::GetJSONStringFieldValue(params, "epoch");
  EXPECT_EQ(log, std::vector{" INFO  |UpdatePluginJson:RenewUpdateJsonObject| renew epoch: " + epoch});
  EXPECT_EQ(Printed(renewed->child->next), Printed(params));
  EXPECT_EQ(Stamped(renewed.release()),
            R"({"jsonrpc":"2.0","params":{"a":1,"epoch":"NOW","b":[2]},"method":"v3/notifyPluginUpdate"})");
  builder.m_version = "v2";
  builder.m_accessKey = "key";
  for (const bool unformatted : {true, false})
    EXPECT_TRUE(IsSigned(JsonPtr(builder.RenewUpdateJsonObject(unformatted)).get(), unformatted));
}

std::string Text(const cJSON* request) {
  return Stamped(cJSON_Duplicate(request, true));
}

TEST(Model, OddPropertiesAreWrittenAsTheyAlwaysWere) {
  using Values = std::map<std::string, std::list<std::string>>;
  const std::pair<CUpdateProperty, const char*> rows[] = {
      {{"p", "", "", "", "displayOn", "", {}, {}}, R"([{"name":"p","displayType":"string"}])"},
      {{"p", "", "", "", "table", "v", {{{"b", "2"}, {"a", ""}}, {}}, {}},
       R"([{"name":"p","displayType":"table","value":[{"a":"","b":"2"},{}]}])"},
      {{"p", "", "", "", "link", "", {{{"u2", "b"}, {"u1", "a"}}, {{"u3", "c"}}}, {}},
       R"([{"name":"p","displayType":"link","value":{"url":"u1","alias":"a","url":"u2","alias":"b"}}])"},
      {{"p", "", "", "", "valueFromProperty", "", {}, Values{{"displayValues", {}}, {"defaultValue", {}}}},
       R"([{"name":"p","displayType":"valueFromProperty","value":{"displayValues":[]}}])"},
      {{"left out", "", "", "", "valueFromProperty", "", {}, {}}, "[]"},
      {{"left out", "", "", "", "link", "", {}, {}}, "[]"},
      {{"left out", "", "", "", "", "", {}, {}}, "[]"},
  };
  for (const auto& [property, printed] : rows) {
    CUpdateProperty copy = property;
    const CUpdateModule module("m", "", "", {&copy}, {}, {}, {}, {}, {});
    EXPECT_EQ(Printed(JsonPtr(module.GetUpdateModule()).get()),
              std::string(R"({"moduleName":"m","properties":)") + printed + "}");
  }
}

// Faults are added from the last check to the first, so that each is found before all that were added
// earlier. Mending the model is enough to build the request, with the builder that the failed call left
// behind.
TEST(Model, FirstFaultIsReportedAndCanBeMended) {
  using Plugin = WatcherPlugin;
  const std::pair<void (*)(Plugin&), const char*> rows[] = {
      {[](Plugin& p) { p.spare.m_moduleName = ""; }, "4 moduleName is required parameter."},
      {[](Plugin& p) { p.camera.m_moduleName = "a b"; }, "1 Invalid moduleName format: \"a b\""},
      {[](Plugin& p) { p.overheat.m_name = ""; }, "3 name is required parameter."},
      {[](Plugin& p) { p.fps.m_displayUnit = ""; }, "4 displayUnit is required parameter."},
  };
  Plugin sound, spoiled;
  for (const auto& [spoil, thrown] : rows) {
    spoil(spoiled);
    EXPECT_EQ(Thrown([&] { return spoiled.Build(), nullptr; }), thrown);
    Plugin mended;
    mended.root.m_updatePluginJson = std::exchange(spoiled.root.m_updatePluginJson, nullptr);
    ASSERT_NE(mended.Build("v2"), nullptr);
    EXPECT_EQ(mended.Build("v2")->m_request, nullptr);
    mended.root.UpdateNotifyPluginUpdateData();
    EXPECT_EQ(Text(mended.Build("v2")->m_request), Text(sound.Build()->m_request));
  }
}

TEST(Model, FirstArgumentsStayAndFormerRequestsAreTheCallers) {
  WatcherPlugin plugin;
  plugin.root.UpdateNotifyPluginUpdateData();  // nothing to update yet
  EXPECT_EQ(Thrown([&] { return plugin.Build(nullptr), nullptr; }), kNullText);
  EXPECT_EQ(Thrown([&] { return plugin.root.GetNotifyPluginUpdate("v1", nullptr), nullptr; }), kNullText);
  EXPECT_EQ(plugin.root.GetNotifyPluginUpdate(), nullptr);

  CUpdatePluginJson* builder = plugin.Build("v2");
  const JsonPtr former(builder->m_request);
  EXPECT_EQ(plugin.root.GetNotifyPluginUpdate("v1", nullptr), builder);
  plugin.root.m_appGUID = "other";  // the builder keeps the one that it has
  plugin.root.m_modules = {nullptr, &plugin.spare};
  plugin.spare.m_moduleName = "";
  EXPECT_EQ(Thrown([&] { return plugin.root.UpdateNotifyPluginUpdateData(), nullptr; }),
            "4 moduleName is required parameter.");
  EXPECT_EQ(builder->m_request, former.get());
  plugin.spare.m_moduleName = "renamed";
  plugin.root.UpdateNotifyPluginUpdateData();
  const std::string renamed = Text(builder->m_request);
  EXPECT_EQ(renamed.find(R"({"jsonrpc":"2.0","params":{"appGUID":"a1b2","epoch":"NOW","appName":)"), 0U);
  EXPECT_NE(renamed.find(R"("modules":[{"moduleName":"renamed","properties":[]}]},)"
                         R"("method":"v2/notifyPluginUpdate?authorization=$argon2id$v=19$)"),
            std::string::npos);
  EXPECT_NE(Text(former.get()).find(R"("moduleName":"spare")"), std::string::npos);
}

TEST(LocalCommandModel, WalkStopsAtTheFirstCommandWithoutParameters) {
  for (const auto& [list, printed] :
       {std::pair{"r0r", R"(,"commands":[@,@])"}, {"rbr", R"(,"commands":[@])"}, {"br", ""}, {"", ""}}) {
    LocalReport report;
    for (const char c : std::string(list))
      report.root.m_commands.push_back(c == 'r' ? &report.reboot : c == 'b' ? &report.bare : nullptr);
    const std::string item =
        R"({"name":"reboot","params":[{"name":"delay","value":"5"},{"name":"","value":""}]})";
    std::string text =
        Stamped(cJSON_Duplicate(report.root.GetNotifyPluginLocalCommand("v1", nullptr)->m_request, true));
    text.erase(text.find('|'), text.find(R"(","commandSource)") - text.find('|'));  // random digits
    EXPECT_EQ(text, R"({"jsonrpc":"2.0","params":{"epoch":"NOW","clientAppGUID":"c3d4","serialNumber":"",)"
                    R"("appGUID":"a1b2","commandId":"c3d4","commandSource":"local","moduleName":"camera")" +
                        Replaced(Replaced(printed, "@", item), "@", item) +
                        R"(},"method":"v1/notifyPluginLocalCommand"})");
  }
}

TEST(LocalCommandModel, FirstArgumentsStayAndAFailedBuildLeavesNoRequest) {
  const struct {
    const char *version, *key;
    std::size_t valueSize;
    std::string thrown;
  } rows[] = {{"v2", "key", 512, "nothing"},
              {nullptr, "key", 0, kNullText},
              {"v2", "", 513, "2 The length of \"tttt"},
              {"v2", "", 0, "6 AccessKey is missing."}};
  for (const auto& row : rows) {
    LocalReport report;
    report.root.m_commands = {&report.reboot};
    report.delay.m_value = std::string(row.valueSize, 't');
    const std::string thrown =
        Thrown([&] { return report.root.GetNotifyPluginLocalCommand(row.version, row.key), nullptr; });
    EXPECT_EQ(thrown.substr(0, row.thrown.size()), row.thrown);
    const CLocalCommandPluginJson* builder = report.root.GetNotifyPluginLocalCommand();
    ASSERT_NE(builder, nullptr);
    const cJSON* request = builder->m_request;
    EXPECT_EQ(request != nullptr, row.thrown == "nothing");
    EXPECT_EQ(builder->m_accessKey, request != nullptr ? "key" : "");
    report.delay.m_value = "5";
    EXPECT_EQ(report.root.GetNotifyPluginLocalCommand("v1", "other"), builder);
    EXPECT_EQ(builder->m_request, request);
  }
}

}  // namespace
