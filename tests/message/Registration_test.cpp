// The builder of the registration request: what the description model does not reach, ownership, renewal.
#include <memory>

#include "MessageTestSupport.h"

using namespace message_test;

namespace {

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
}

// Deletion and renewal in either order; AddressSanitizer looks for what is shared or lost.
TEST(RegistrationRenewal, ResultsAndBuilderAreIndependent) {
  for (const bool builderFirst : {true, false}) {
    auto builder = std::make_unique<Update>();
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
