// The model of local commands: the cut-off, the cached builder, what a failed build leaves.
#include "MessageTestSupport.h"
#include "PluginData.h"
#include "Thrown.h"

using namespace message_test;

namespace {

// Owns what the application has to delete: the builder, and its request.
struct Report {
  CLocalCommandParam delay{"delay", "5"};
  CLocalCommandParam blank;
  CLocalCommand reboot{"reboot", {&delay, &blank}};
  CLocalCommand bare{"bare", {}};
  CLocalCommandParams root{"c3d4", "a1b2", "", "camera", {}};

  ~Report() {
    if (root.m_localCommandPluginJson != nullptr) cJSON_Delete(root.m_localCommandPluginJson->m_request);
    delete root.m_localCommandPluginJson;
  }
};

TEST(LocalCommandModel, WalkStopsAtTheFirstCommandWithoutParameters) {
  Report report;
  CLocalCommand* reboot = &report.reboot;
  CLocalCommand* bare = &report.bare;
  const std::string head =
      R"({"jsonrpc":"2.0","params":{"epoch":"NOW","clientAppGUID":"c3d4","serialNumber":"","appGUID":"a1b2",)"
      R"("commandId":"c3d4|)";
  const std::string item =
      R"({"name":"reboot","params":[{"name":"delay","value":"5"},{"name":"","value":""}]})";
  const std::pair<std::list<CLocalCommand*>, std::string> rows[] = {
      {{reboot, nullptr, reboot}, R"(,"commands":[@,@])"},
      {{reboot, bare, reboot}, R"(,"commands":[@])"},
      {{bare, reboot}, ""},
      {{}, ""},
  };
  for (const auto& [commands, printed] : rows) {
    Report next;
    next.root.m_commands = commands;
    const std::string text =
        Stamped(cJSON_Duplicate(next.root.GetNotifyPluginLocalCommand("v1", nullptr)->m_request, true));
    EXPECT_EQ(text.substr(0, head.size()), head);
    const std::string tail = R"(","commandSource":"local","moduleName":"camera")" +
                             Replaced(Replaced(printed, "@", item), "@", item) +
                             R"(},"method":"v1/notifyPluginLocalCommand"})";
    EXPECT_EQ(text.substr(text.find('"', head.size())), tail);
  }
}

TEST(LocalCommandModel, FirstArgumentsStayAndAFailedBuildLeavesNoRequest) {
  const std::string text513(513, 't');
  const std::string nullText = "- basic_string::_M_construct null not valid";
  const struct {
    const char* version;
    const char* key;
    std::string value, thrown, keptKey;
  } rows[] = {
      {"v2", "key", std::string(512, 't'), "nothing", "key"},
      {"v1", "key", "", "nothing", ""},
      {nullptr, "key", "", nullText, ""},
      {"v2", nullptr, text513, nullText, ""},
      {"v2", "", text513,
       "2 The length of \"" + text513 + "\" exceeds the maximum string length, i.e. 512 Bytes.", ""},
      {"v2", "", "", "6 AccessKey is missing.", ""},
  };
  for (const auto& row : rows) {
    Report report;
    report.root.m_serialNumber = "sn";
    report.root.m_commands = {&report.reboot};
    report.delay.m_value = row.value;
    EXPECT_EQ(report.root.GetNotifyPluginLocalCommand(), nullptr);
    EXPECT_EQ(Thrown([&] { return report.root.GetNotifyPluginLocalCommand(row.version, row.key), nullptr; }),
              row.thrown);
    const CLocalCommandPluginJson* builder = report.root.GetNotifyPluginLocalCommand();
    ASSERT_NE(builder, nullptr);
    const cJSON* request = builder->m_request;
    EXPECT_EQ(request != nullptr, row.thrown == "nothing");
    EXPECT_EQ(builder->m_accessKey, row.keptKey);
    report.delay.m_value = "5";
    EXPECT_EQ(report.root.GetNotifyPluginLocalCommand("v1", "other"), builder);
    EXPECT_EQ(builder->m_request, request);
  }
}

}  // namespace
