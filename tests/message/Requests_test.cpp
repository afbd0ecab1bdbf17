// Outgoing messages: texts, size limit, signature, and who owns what after a failure.
#include <array>
#include <functional>

#include "JsonBuild_internal.h"
#include "MessageTestSupport.h"

using namespace message_test;
using pluginsdk::internal::PrintsLongerThan;

namespace {

// The whole messages of every builder stand in the guide, whose examples are checked too.
TEST(Requests, AreBuiltFromWhateverIsGiven) {
  States states;
  states.m_version = "v3";
  const struct {
    cJSON* tree;
    const char* text;
  } rows[] = {
      {states.GetJsonrpcRequest(states.CreateStatesParamsObj(cJSON_CreateArray())),
       R"({"jsonrpc":"2.0","params":{"appGUID":"","epoch":"NOW","moduleName":"","states":[]},)"
       R"("method":"v3/notifyPluginState"})"},
      {Events().CreateEventsParamsObj(nullptr), R"({"appGUID":"","epoch":"NOW","moduleName":""})"},
      {Base().GetJsonrpcRequest(cJSON_CreateArray()), R"({"jsonrpc":"2.0","params":[]})"},
      {Alerts::CreateAlarmsItemJson(nullptr, "any", nullptr), R"({"action":"any","time":"NOW"})"},
      {Alerts::CreateAlarmsParamsObj("g", "", cJSON_CreateNull()),
       R"({"epoch":"NOW","appGUID":"g","moduleName":"","alarms":null})"},
      {Acks::CreateCommandAcksItemJson("n", cJSON_CreateTrue()), R"({"name":"n","result":true})"},
  };
  for (const auto& row : rows) EXPECT_EQ(Stamped(row.tree), row.text);
}

// The sanitizers object when a collection has changed hands without being attached, or the other way round.
void ExpectUsableAttached(const std::string& fields, const std::string& key,
                          const std::function<cJSON*(cJSON*)>& build) {
  const std::string start = R"({"epoch":"NOW",)" + fields;
  for (const char* unusable : {"no JSON", "[]", "\"[1]\"", "5", "null", "true"})
    EXPECT_EQ(Stamped(build(Json(unusable).get())), start + "}") << unusable;
  for (const char* usable : {"{}", "[0]", R"({"a":[]})"})
    EXPECT_EQ(Stamped(build(Json(usable).release())), start + ",\"" + key + "\":" + usable + "}");
}

TEST(Requests, OnlyUsableCollectionsAreAttached) {
  const std::pair<cJSON* (Acks::*)(cJSON*), const char*> states[] = {
      {&Acks::CreateCommandAcksAcceptedParamsObj, "ACCEPTED"},
      {&Acks::CreateCommandAcksAckedParamsObj, "ACKED"},
      {&Acks::CreateCommandAcksRejectedParamsObj, "REJECTED"},
      {&Acks::CreateCommandAcksErroredParamsObj, "ERRORED"}};
  CCommandPluginJson request(
      R"({"params":{"commandId":"7","commandSource":"remote","moduleName":"m"},"method":"v1"})", "");
  for (const auto& [build, word] : states) {
    Acks acks;
    EXPECT_EQ((acks.*build)(Json("[0]").get()), nullptr);
    acks.m_commandPluginJson = &request;
    ExpectUsableAttached(
        R"("appGUID":"","commandId":"7","commandSource":"remote","moduleName":"m","commandState":")" +
            std::string(word) + '"',
        "commandAcks", [&, build = build](cJSON* tree) { return (acks.*build)(tree); });
  }
  ExpectUsableAttached(
      R"("clientAppGUID":"c","appGUID":"g","commandId":"i","commandSource":"any","moduleName":"")",
      "commands", [](cJSON* tree) {
        return Local::CreateLocalCommandParamsObj("c", nullptr, "g", "i", "any", "", tree);
      });
  std::srand(7);
  const std::string id = std::to_string(std::rand() / 1000 + 1);
  ExpectUsableAttached(R"("clientAppGUID":"","serialNumber":"","appGUID":"","commandId":"|)" + id +
                           R"(","commandSource":"local","moduleName":"")",
                       "commands",
                       [](cJSON* tree) { return std::srand(7), Local().CreateLocalCommandParamsObj(tree); });
}

template <typename Builder>
cJSON* Request(const std::string& version, const std::string& key, cJSON* params, bool unformatted) {
  Builder builder;
  builder.m_version = version;
  builder.m_accessKey = key;
  Base& base = builder;  // the virtual form stands for compact
  return unformatted ? base.GetJsonrpcRequest(params) : builder.GetJsonrpcRequest(params, false);
}

const struct Family {
  const char* method;
  bool limited;
  cJSON* (*request)(const std::string& version, const std::string& key, cJSON* params, bool unformatted);
} kFamilies[] = {
    {"notifyPluginState", true, Request<States>},     {"notifyPluginMetric", true, Request<Metrics>},
    {"notifyPluginEvent", true, Request<Events>},     {"notifyPluginAlert", false, Request<Alerts>},
    {"notifyPluginCommandAck", false, Request<Acks>}, {"notifyPluginLocalCommand", false, Request<Local>},
};

TEST(Requests, SizeLimitCountsTheIndentedPrintingWithItsSignature) {
  const std::string params =
      R"({"a":{"b":{"c":{}}},"pad":"@"})";  // nested: the compact printing is much shorter
  for (const Family& family : kFamilies) {
    for (const char* version : {"v1", "v2"}) {
      const auto padded = [&](std::size_t size) {
        return family.request(version, "key", Json(Replaced(params, "@", std::string(size, '.'))).release(),
                              true);
      };
      const std::size_t missing = 2048 - Printed(JsonPtr(padded(0)).get(), false).size();
      EXPECT_EQ(Printed(JsonPtr(padded(missing)).get(), false).size(), 2048U);
      EXPECT_EQ(
          Thrown([&] { return padded(missing + 1); }),
          family.limited ? "2 The data size exceeds the maximum name length, i.e. 2048 Bytes." : "nothing");
    }
  }
}

TEST(Requests, SignatureHoldsForThePrintingThatWasAskedFor) {
  for (const Family& family : kFamilies) {
    const JsonPtr params = Json(R"({"x":[1,"\"/"]})");
    EXPECT_EQ(Thrown([&] { return family.request("v2", "", params.get(), true); }),
              "6 AccessKey is missing.");
    for (const bool compact : {true, false}) {  // with the params that outlived the missing key
      const JsonPtr request(family.request("v2", "key", cJSON_Duplicate(params.get(), 1), compact));
      const std::string method = cJSON_GetObjectItem(request.get(), "method")->valuestring;
      EXPECT_EQ(method.substr(0, method.find('?')), std::string("v2/") + family.method);
      EXPECT_TRUE(IsSigned(request.get(), compact)) << method;
      EXPECT_FALSE(IsSigned(request.get(), !compact) || IsSigned(request.get(), compact, "other"));
    }
  }
}

TEST(PrintedSize, VerdictIsExactForEveryShape) {
  const std::array<std::string, 5> shapes[] = {{"\"", "x\\u0001", "", "\\\"", "\""},
                                               {"[", "-1.2345678901234567e-300,", "0", ",[[]]", "]"},
                                               {"", R"({"k":)", "null", "}", ""},
                                               {"{", R"("\n":{},)", R"("a":1)", "", "}"}};
  for (auto [start, repeated, middle, repeatedToo, end] : shapes) {
    for (int i = 0; i < 100; ++i, start += repeated, middle += repeatedToo) {
      const JsonPtr tree = Json(start + middle + end);
      const std::size_t size = Printed(tree.get(), false).size();
      EXPECT_TRUE(PrintsLongerThan(tree.get(), size - 1) && !PrintsLongerThan(tree.get(), size)) << start;
    }
  }
}

}  // namespace
