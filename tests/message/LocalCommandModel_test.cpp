// The model of local commands: the cut-off, the cached builder, what a failed build leaves.
#include "MessageTestSupport.h"
#include "WatcherPlugin.h"

using namespace message_test;

namespace {

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
  const std::string nullText = "- basic_string::_M_construct null not valid";
  const struct {
    const char *version, *key;
    std::size_t valueSize;
    std::string thrown;
  } rows[] = {{"v2", "key", 512, "nothing"},
              {nullptr, "key", 0, nullText},
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
