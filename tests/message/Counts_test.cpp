// What an operation costs in allocations, beside the least that cJSON needs for the same trees: the part of
// its speed that no machine changes.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "CommandAcksPluginJson.h"
#include "CostSupport.h"
#include "StatesPluginJson.h"
#include "Utl_Log.h"

namespace {

std::string Commands(int count) {
  std::string text = R"({"params":{"commandId":"1","commandSource":"remote","moduleName":"m","commands":[)";
  for (int i = 0; i < count; ++i) text += R"({"name":"move","params":[{"name":"speed","value":21.5}]},)";
  text.back() = ']';
  return text + R"(},"method":"v1/notifyPluginCommand"})";
}

void Parse(const std::string& text) {
  cJSON_Delete(cJSON_Parse(text.c_str()));
}

cJSON* Item(const char* name, double value) {
  cJSON* item = cJSON_CreateObject();
  cJSON_AddStringToObject(item, "name", name);
  cJSON_AddNumberToObject(item, "value", value);
  return item;
}

void StateReport() {
  CStatesPluginJson builder;
  cJSON* states = cJSON_CreateArray();
  for (int i = 0; i < 5; ++i) cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
  cJSON_Delete(builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states)));
}

void StateReportByHand() {
  cJSON* request = cJSON_CreateObject();
  cJSON_AddStringToObject(request, "jsonrpc", "2.0");
  cJSON* params = cJSON_AddObjectToObject(request, "params");
  for (const char* key : {"appGUID", "epoch", "moduleName"}) cJSON_AddStringToObject(params, key, "");
  cJSON* states = cJSON_AddArrayToObject(params, "states");
  for (int i = 0; i < 5; ++i) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "name", "power");
    cJSON_AddStringToObject(item, "value", "on");
    cJSON_AddItemToArray(states, item);
  }
  cJSON_AddStringToObject(request, "method", "v1/notifyPluginState");
  cJSON_Delete(request);
}

struct Case {
  const char* name;
  std::function<void()> ours;
  std::function<void()> least;
  std::size_t more;  ///< allocations on top: texts that are passed by value, and list nodes
};

TEST(Counts, Allocations) {
  UTL_LOGInit("counted", nullptr);
  UTL_LOGSetLevel(UTL_LOG_INFO, 0);
  const std::string ten = Commands(10);
  const std::string hundred = Commands(100);
  const auto read = [](const std::string& text) { const CCommandPluginJson request(text.c_str(), ""); };
  const auto classify = [&] {
    std::string type;
    CPluginUtil::GetMessageType(ten.c_str(), &type);
  };
  const Case cases[] = {
      {"name format", [] { CPluginUtil::RegExMatch("name", StringFormatter::nameFormat, true); }, [] {}, 1},
      {"number item", [] { cJSON_Delete(CBasePluginObject::CreateBaseValueItemJson("n", 21.345)); },
       [] { cJSON_Delete(Item("n", 21.35)); }, 0},
      {"state report with its size check", StateReport, StateReportByHand, 2},
      {"message type: one parse", classify, [&] { Parse(ten); }, 1},
      {"10 commands: one parse", [&] { read(ten); }, [&] { Parse(ten); }, 10 + 1},
      {"100 commands: one parse", [&] { read(hundred); }, [&] { Parse(hundred); }, 100 + 1},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_LE(costtest::AllocationsOf(row.ours), costtest::AllocationsOf(row.least) + row.more);
  }
}

// Threads would cost twenty times the hash that they share.
TEST(Counts, SignaturesStartNoThread) {
  std::string signature;
  const auto sign = [&] { CPluginUtil::GetSignature("digest", "key", &signature); };
  const auto verify = [&] { CPluginUtil::VerifySignature("digest", "key", signature); };
  for (const std::function<void()>& operation :
       {std::function<void()>(sign), std::function<void()>(verify)}) {
    const auto cost = costtest::CostOf(sign, operation);
    if (!cost) GTEST_SKIP() << "processes must not be traced here";
    EXPECT_EQ(std::count(cost->calls.begin(), cost->calls.end(), "clone"), 0);
  }
}

}  // namespace
