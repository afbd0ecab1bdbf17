// The description model. The whole request that it becomes is shown, and compared, in docs/messages.md.
#include <utility>

#include "MessageTestSupport.h"
#include "WatcherPlugin.h"

using namespace message_test;

namespace {

constexpr const char* kNullText = "- basic_string::_M_construct null not valid";

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

}  // namespace
