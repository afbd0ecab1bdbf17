// What an operation costs in allocations, beside the least that cJSON needs for the same trees: the part of
// its speed that no machine changes.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "CommandAcksPluginJson.h"
#include "FaultEngine.h"
#include "StatesPluginJson.h"
#include "Utl_Log.h"

namespace {

std::string Commands(int count) {
  std::string text = R"({"params":{"commandId":"1","commandSource":"remote","moduleName":"m","commands":[)";
  for (int i = 0; i < count; ++i) text += R"({"name":"move","params":[{"name":"speed","value":21.5}]},)";
  text.back() = ']';
  return text + R"(},"method":"v1/notifyPluginCommand"})";
}

std::function<void()> Parse(const std::string& text) {
  return [text] { cJSON_Delete(cJSON_Parse(text.c_str())); };
}

std::function<void()> Read(const std::string& text) {
  return [text] { const CCommandPluginJson request(text.c_str(), ""); };
}

// The builder is to allocate no more than a parse, which takes what the tree consists of.
constexpr char kStateReport[] =
    R"({"jsonrpc":"2.0","params":{"appGUID":"","epoch":"","moduleName":"","states":[)"
    R"({"name":"power","value":"on"},{"name":"power","value":"on"}]},"method":"v1/notifyPluginState"})";

void StateReport() {
  CStatesPluginJson builder;
  cJSON* states = cJSON_CreateArray();
  for (int i = 0; i < 2; ++i) cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
  cJSON_Delete(builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states)));
}

int AllocationsOf(const std::function<void()>& operation) {
  faults::current = {"malloc", 0, -1};  // is counted and meets nothing
  const faults::Window window;
  operation();
  return faults::current.seen;
}

TEST(Memory, EachOperationAllocatesWhatItsTreesConsistOf) {
  UTL_LOGSetLevel(UTL_LOG_INFO, 0);
  const std::string ten = Commands(10);
  const std::string hundred = Commands(100);
  std::string type;
  std::string signature;
  const auto sign = [&] { CPluginUtil::GetSignature("digest", "key", &signature); };
  const auto verify = [&] { CPluginUtil::VerifySignature("digest", "key", signature); };
  sign();
  const struct {
    const char* name;
    std::function<void()> ours;
    std::function<void()> least;
    int more;  // allocations on top: texts that are passed by value, and list nodes
  } rows[] = {
      {"name format", [] { CPluginUtil::RegExMatch("name", StringFormatter::nameFormat, true); }, [] {}, 1},
      {"state report with its size check", StateReport, Parse(kStateReport), 2},
      {"message type", [&] { CPluginUtil::GetMessageType(ten.c_str(), &type); }, Parse(ten), 1},
      {"10 commands: one parse", Read(ten), Parse(ten), 10 + 1},
      {"100 commands: one parse", Read(hundred), Parse(hundred), 100 + 1},
      {"signature: no thread", sign, [] {}, 3},
      {"verification: no thread", verify, [] {}, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_LE(AllocationsOf(row.ours), AllocationsOf(row.least) + row.more);
  }
}

}  // namespace
