// The builder of the registration request: what the description model does not reach, ownership, renewal.
#include <memory>

#include "IncomingRequest_internal.h"
#include "MessageTestSupport.h"
#include "UpdatePluginJson.h"

using namespace message_test;

namespace {

using Builder = CUpdatePluginJson;
constexpr const char* kNone = nullptr;
constexpr cJSON* kNoTree = nullptr;

cJSON* CommandParam(const char* type, const char* format, cJSON* values, const char* property) {
  return Builder::CreateUpdateCommandParamsItemJson("p", kNone, kNone, type, true, format, values, property);
}
template <typename Default>
cJSON* DefaultParam(Default value, const char* type) {
  return Builder::CreateUpdateCommandParamsItemJson("p", kNone, kNone, value, type, true, kNone, kNoTree, "");
}

TEST(RegistrationItems, KeysStandInOrder) {
  const JsonPtr unused = Json(R"(["a"])");  // of no use to its display type: still the caller's
  const std::string name64(64, 'm');
  const std::pair<cJSON*, std::string> rows[] = {
      {Builder::CreateUpdateCommandsItemJson("n", "N", "D", kNone, Json("[1]").release(), cJSON_CreateTrue()),
       R"("n","displayName":"N","description":"D","type":"asynchronous","params":[1],"displayOnProperty":true})"},
      {CommandParam("datetime", "", kNoTree, ""),
       R"("p","displayType":"datetime","displayFormat":"","required":true})"},
      {CommandParam("switch", kNone, Json("[1]").release(), "unused"),
       R"("p","displayType":"switch","displayValues":[1],"required":true})"},
      {CommandParam("valueFromProperty", kNone, kNoTree, ""),
       R"("p","displayType":"valueFromProperty","valueFromProperty":"","required":true})"},
      {DefaultParam("", "text"), R"("p","displayType":"text","required":true,"defaultValue":""})"},
      {DefaultParam(2.5, "text"), R"("p","displayType":"text","required":true,"defaultValue":2.5})"},
      {DefaultParam(2.5, "file"), R"("p","displayType":"file","required":true})"},
      {Builder::CreateUpdateAlarmParamsItemJson("p", kNone, kNone, "valueFromProperty", true, kNone,
                                                unused.get()),
       R"("p","displayType":"valueFromProperty","required":true})"},
      {Builder::CreateUpdateModulesItemJson(name64.c_str(), kNone, kNone, cJSON_CreateArray(), kNoTree,
                                            kNoTree, kNoTree, kNoTree, kNoTree),
       '"' + name64 + R"(","properties":[]})"},
  };
  for (const auto& [item, printed] : rows)
    EXPECT_EQ(Replaced(Printed(JsonPtr(item).get()), "moduleName", "name"), R"({"name":)" + printed);
}

bool IsSigned(const cJSON* request, bool compact) {
  const std::string method(cJSON_GetObjectItem(request, "method")->valuestring);
  return pluginsdk::internal::IsAuthentic(Printed(request, compact).c_str(), method, "key", nullptr);
}

TEST(RegistrationRenewal, StampsTheStoredParamsAndNothingElse) {
  Builder builder;
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  builder.m_request = Json("{}").release();
  EXPECT_EQ(builder.RenewUpdateJsonObject(true), nullptr);
  cJSON_AddItemToObject(builder.m_request, "params", Json(R"({"a":1,"epoch":"1","b":[2]})").release());
  builder.m_version = "v2";
  EXPECT_EQ(Thrown([&] { return builder.RenewUpdateJsonObject(true); }), "6 AccessKey is missing.");
  builder.m_version = "v3";  // unsigned like every version but "v2"
  JsonPtr renewed;
  const auto log = Logged([&] { renewed.reset(builder.RenewUpdateJsonObject(true)); });
  const cJSON* params = cJSON_GetObjectItem(renewed.get(), "params");
  EXPECT_EQ(Printed(params), Printed(builder.m_request->child));
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log[0].substr(log[0].find("Update")),
            std::string("UpdatePluginJson:RenewUpdateJsonObject| renew epoch: ") +
                cJSON_GetObjectItem(params, "epoch")->valuestring);
  EXPECT_EQ(Stamped(renewed.release()),
            R"({"jsonrpc":"2.0","params":{"a":1,"epoch":"NOW","b":[2]},"method":"v3/notifyPluginUpdate"})");
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

}  // namespace
