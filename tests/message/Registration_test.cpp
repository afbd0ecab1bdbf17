// The builder of the registration request: what the description model does not reach, ownership, renewal.
#include <memory>

#include "IncomingRequest_internal.h"
#include "MessageTestSupport.h"
#include "Thrown.h"
#include "UpdatePluginJson.h"

using namespace message_test;

namespace {

using Builder = CUpdatePluginJson;
constexpr const char* kNone = nullptr;
constexpr cJSON* kNoTree = nullptr;
const std::string kValues = R"(["a","b"])";

cJSON* CommandParam(const char* type, const char* format, cJSON* values, const char* property) {
  return Builder::CreateUpdateCommandParamsItemJson("p", kNone, kNone, type, true, format, values, property);
}
cJSON* AlarmParam(const char* type, cJSON* values) {
  return Builder::CreateUpdateAlarmParamsItemJson("p", kNone, kNone, type, true, kNone, values);
}
template <typename Default>
cJSON* DefaultParam(Default value, const char* type) {
  return Builder::CreateUpdateCommandParamsItemJson("p", kNone, kNone, value, type, true, kNone, kNoTree, "");
}
cJSON* Command(cJSON* params, cJSON* displayOn) {
  return Builder::CreateUpdateCommandsItemJson("n", "N", "D", kNone, params, displayOn);
}
cJSON* Module(const std::string& name, cJSON* first, cJSON* last) {
  return Builder::CreateUpdateModulesItemJson(name.c_str(), kNone, kNone, first, kNoTree, kNoTree, kNoTree,
                                              kNoTree, last);
}

TEST(RegistrationItems, KeysStandInOrder) {
  const JsonPtr unused = Json(kValues);  // of no use to its display type: still the caller's
  const std::string name64(64, 'm');
  const std::pair<cJSON*, std::string> rows[] = {
      {Command(Json(kValues).release(), cJSON_CreateTrue()),
       R"("n","displayName":"N","description":"D","type":"asynchronous","params":["a","b"],"displayOnProperty":true})"},
      {CommandParam("datetime", "", kNoTree, ""),
       R"("p","displayType":"datetime","displayFormat":"","required":true})"},
      {CommandParam("switch", kNone, Json(kValues).release(), "unused"),
       R"("p","displayType":"switch","displayValues":["a","b"],"required":true})"},
      {CommandParam("valueFromProperty", kNone, kNoTree, ""),
       R"("p","displayType":"valueFromProperty","valueFromProperty":"","required":true})"},
      {DefaultParam("", "text"), R"("p","displayType":"text","required":true,"defaultValue":""})"},
      {DefaultParam(2.5, "text"), R"("p","displayType":"text","required":true,"defaultValue":2.5})"},
      {DefaultParam(2.5, "file"), R"("p","displayType":"file","required":true})"},
      {AlarmParam("valueFromProperty", unused.get()),
       R"("p","displayType":"valueFromProperty","required":true})"},
      {Module(name64, cJSON_CreateArray(), kNoTree), '"' + name64 + R"(","properties":[]})"},
  };
  for (const auto& [item, printed] : rows) {
    const std::string text = Printed(JsonPtr(item).get());
    EXPECT_EQ(text.substr(text.find(':') + 1), printed);
  }
}

// Each allocation fails in turn: the arguments stay with the caller, whole, and nothing leaks.
TEST(RegistrationItems, WithoutMemoryArgumentsStayTheCallers) {
  using Build = cJSON* (*)(cJSON*, cJSON*);
  const Build builds[] = {
      Command,
      [](cJSON* a, cJSON* b) { return Module("m", a, b); },
      [](cJSON* a, cJSON*) {
        return Builder::CreateUpdateCommandParamsItemJson("p", "P", "D", "x", "list", true, kNone, a, "");
      },
  };
  for (const Build build : builds) {
    JsonPtr item;
    for (long failAt = 0; !item; ++failAt) {
      JsonPtr trees[] = {Json(kValues), Json(kValues)};
      {
        const CJsonMemory memory(failAt);
        Thrown([&] { return item.reset(build(trees[0].get(), trees[1].get())), nullptr; });
      }
      for (JsonPtr& tree : trees) {
        EXPECT_EQ(Printed(tree.get()), kValues);
        if (item && tree->string != nullptr) tree.release();  // attached under this key
      }
    }
  }
}

bool IsSigned(const cJSON* request, bool compact) {
  const std::string method(cJSON_GetObjectItem(request, "method")->valuestring);
  return pluginsdk::internal::IsAuthentic(Printed(request, compact).c_str(), method, "key", nullptr);
}

TEST(RegistrationRenewal, StampsTheStoredParamsAndNothingElse) {
  Builder builder;
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  const std::string old =
      R"({"jsonrpc":"2.0","params":{"a":1,"epoch":"1","b":[2]},"method":"v3/notifyPluginUpdate"})";
  builder.m_version = "v3";  // unsigned like every version but "v2"
  builder.m_request = Json(old).release();
  JsonPtr renewed;
  const auto log = Logged([&] { renewed.reset(builder.RenewUpdateJsonObject(true)); });
  EXPECT_EQ(Printed(renewed.get()), Printed(builder.m_request));
  const cJSON* params = cJSON_GetObjectItem(renewed.get(), "params");
  const std::string epoch = cJSON_GetObjectItem(params, "epoch")->valuestring;
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log[0].substr(log[0].find("Update")),
            "UpdatePluginJson:RenewUpdateJsonObject| renew epoch: " + epoch);
  EXPECT_EQ(Stamped(renewed.release()), Replaced(old, "\"1\"", "\"NOW\""));
}

// Deletion and renewal in either order; AddressSanitizer looks for what is shared or lost.
TEST(RegistrationRenewal, ResultsAndBuilderAreIndependent) {
  for (const bool builderFirst : {true, false}) {
    auto builder = std::make_unique<Builder>();
    builder->m_version = "v2";
    builder->m_accessKey = "key";
    builder->m_request = builder->GetJsonrpcRequest(
        builder->CreateUpdateParamsObj("app", kNone, "any", "1.0.0", kNone, kNone, kNoTree));
    EXPECT_TRUE(IsSigned(builder->m_request, true));
    JsonPtr first(builder->RenewUpdateJsonObject(true));
    const JsonPtr second(builder->RenewUpdateJsonObject(false));
    if (builderFirst) builder.reset();
    EXPECT_TRUE(IsSigned(first.get(), true));
    first.reset();
    EXPECT_TRUE(IsSigned(second.get(), false));
    if (builder) first.reset(builder->RenewUpdateJsonObject(true));
  }
}

TEST(RegistrationRenewal, SurvivesAStoredRequestThatWasTamperedWith) {
  Builder builder;
  builder.m_request = Json("{}").release();
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  cJSON_AddItemToObject(builder.m_request, "params", Json(R"({"epoch":5})").release());
  EXPECT_EQ(Printed(JsonPtr(builder.RenewUpdateJsonObject(true)).get()),
            R"({"jsonrpc":"2.0","params":{"epoch":5},"method":"v1/notifyPluginUpdate"})");
  builder.m_version = "v2";
  EXPECT_EQ(Thrown([&] { return builder.RenewUpdateJsonObject(true); }), "6 AccessKey is missing.");
}

}  // namespace
