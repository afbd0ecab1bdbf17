// Outgoing messages: texts, size limit, signature, and who owns what after a failure.
#include <functional>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "IncomingRequest_internal.h"
#include "JsonBuild_internal.h"
#include "LocalCommandPluginJson.h"
#include "MessageTestSupport.h"
#include "MetricsPluginJson.h"
#include "StatesPluginJson.h"
#include "Thrown.h"

using namespace message_test;
using pluginsdk::internal::kLargestLimit;
using pluginsdk::internal::PrintsLongerThan;

namespace {

using Acks = CCommandAcksPluginJson;
using Alerts = CAlertsPluginJson;
using Local = CLocalCommandPluginJson;

template <typename Builder>
Builder Named() {
  Builder builder;
  builder.m_appGUID = "a1b2";
  builder.m_moduleName = "camera";
  return builder;
}

// The whole messages of every builder stand in the guide, whose examples are checked too.
TEST(Requests, AreBuiltFromWhateverIsGiven) {
  CStatesPluginJson states;
  states.m_version = "v3";
  const struct {
    cJSON* tree;
    const char* text;
  } rows[] = {
      {states.GetJsonrpcRequest(states.CreateStatesParamsObj(cJSON_CreateArray())),
       R"({"jsonrpc":"2.0","params":{"appGUID":"","epoch":"NOW","moduleName":"","states":[]},)"
       R"("method":"v3/notifyPluginState"})"},
      {CEventsPluginJson().CreateEventsParamsObj(nullptr), R"({"appGUID":"","epoch":"NOW","moduleName":""})"},
      {CMetricsPluginJson().GetJsonrpcRequest(nullptr),
       R"({"jsonrpc":"2.0","method":"v1/notifyPluginMetric"})"},
      {Alerts::CreateAlarmsItemJson(nullptr, "any", nullptr), R"({"action":"any","time":"NOW"})"},
      {Alerts::CreateAlarmsParamsObj("g", "", cJSON_CreateNull()),
       R"({"epoch":"NOW","appGUID":"g","moduleName":"","alarms":null})"},
      {Acks::CreateCommandAcksItemJson("n", cJSON_CreateTrue()), R"({"name":"n","result":true})"},
      {Local::CreateCommandsItemJson("", cJSON_CreateArray()), R"({"name":"","params":[]})"},
  };
  for (const auto& row : rows) EXPECT_EQ(Stamped(row.tree), row.text);
}

using Build = std::function<cJSON*(cJSON*)>;

// The sanitizers object when a collection has changed hands without being attached, or the other way round.
void ExpectUsableAttached(const std::string& fields, const std::string& key, const Build& build) {
  const std::string start = R"({"epoch":"NOW",)" + fields;
  for (const char* unusable : {"no JSON", "[]", "\"[1]\"", "5", "null", "true"})
    EXPECT_EQ(Stamped(build(Json(unusable).get())), start + "}") << unusable;
  const std::string attached = start + ",\"" + key + "\":@}";
  for (const char* usable : {"{}", "[0]", R"({"a":[]})"})
    EXPECT_EQ(Stamped(build(Json(usable).release())), Replaced(attached, "@", usable));
}

TEST(Requests, OnlyUsableCollectionsAreAttached) {
  const struct {
    const char* word;
    cJSON* (*build)(char const*, char const*, char const*, char const*, cJSON*);
    cJSON* (Acks::*echo)(cJSON*);
  } states[] = {
      {"ACCEPTED", &Acks::CreateCommandAcksAcceptedParamsObj, &Acks::CreateCommandAcksAcceptedParamsObj},
      {"ACKED", &Acks::CreateCommandAcksAckedParamsObj, &Acks::CreateCommandAcksAckedParamsObj},
      {"REJECTED", &Acks::CreateCommandAcksRejectedParamsObj, &Acks::CreateCommandAcksRejectedParamsObj},
      {"ERRORED", &Acks::CreateCommandAcksErroredParamsObj, &Acks::CreateCommandAcksErroredParamsObj}};
  CCommandPluginJson request(R"({"params":{"commandId":"7","commandSource":"remote"},"method":"v1"})", "");
  CCommandPluginJson refused(R"({"params":{"commandId":"7"},"method":"v3"})", "");
  for (const auto& state : states) {
    auto acks = Named<Acks>();
    const auto echo = [&](cJSON* tree) { return (acks.*state.echo)(tree); };
    EXPECT_EQ(echo(Json("[0]").get()), nullptr);
    const auto expect = [&](const char* fields, const Build& build) {
      ExpectUsableAttached(Replaced(fields, "@", state.word), "commandAcks", build);
    };
    expect(R"("appGUID":"g","commandId":"","commandSource":"any","commandState":"@")",
           [&](cJSON* tree) { return state.build("g", "", "any", nullptr, tree); });
    acks.m_commandPluginJson = &request;
    expect(R"("appGUID":"a1b2","commandId":"7","commandSource":"remote","moduleName":"","commandState":"@")",
           echo);
    acks.m_commandPluginJson = &refused;
    expect(R"("appGUID":"a1b2","commandId":"","commandSource":"","moduleName":"","commandState":"@")", echo);
  }
  ExpectUsableAttached(
      R"("clientAppGUID":"c","appGUID":"g","commandId":"i","commandSource":"any","moduleName":"")",
      "commands", [](cJSON* tree) {
        return Local::CreateLocalCommandParamsObj("c", nullptr, "g", "i", "any", "", tree);
      });
  std::srand(7);
  const std::string id = std::to_string(std::rand() / 1000 + 1);
  ExpectUsableAttached(R"("clientAppGUID":"","serialNumber":"","appGUID":"a1b2","commandId":"|)" + id +
                           R"(","commandSource":"local","moduleName":"camera")",
                       "commands", [](cJSON* tree) {
                         return std::srand(7), Named<Local>().CreateLocalCommandParamsObj(tree);
                       });
}

template <typename Builder>
cJSON* Request(const std::string& version, const std::string& key, cJSON* params, bool unformatted) {
  Builder builder;
  builder.m_version = version;
  builder.m_accessKey = key;
  CBasePluginObject& base = builder;  // the virtual form stands for compact
  return unformatted ? base.GetJsonrpcRequest(params) : builder.GetJsonrpcRequest(params, false);
}

const struct Family {
  const char* method;
  bool limited;
  const char* logs;  // source of the line about a missing envelope
  cJSON* (*request)(const std::string& version, const std::string& key, cJSON* params, bool unformatted);
} kFamilies[] = {
    {"notifyPluginState", true, nullptr, Request<CStatesPluginJson>},
    {"notifyPluginMetric", true, nullptr, Request<CMetricsPluginJson>},
    {"notifyPluginEvent", true, nullptr, Request<CEventsPluginJson>},
    {"notifyPluginAlert", false, nullptr, Request<Alerts>},
    {"notifyPluginCommandAck", false, "CommandAcksPluginJson", Request<Acks>},
    {"notifyPluginLocalCommand", false, "LocalCommandPluginJson", Request<Local>},
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
  const VerificationLimits limits;  // no trust for a "v1" that the signature holds by chance
  for (const Family& family : kFamilies) {
    cJSON* params = Json(R"({"x":[1,"\"/"]})").release();
    EXPECT_EQ(Thrown([&] { return family.request("v2", "", params, true); }), "6 AccessKey is missing.");
    for (const bool compact : {true, false}) {  // with the params that outlived the missing key
      const JsonPtr request(family.request("v2", "key", cJSON_Duplicate(params, 1), compact));
      const std::string method = cJSON_GetObjectItem(request.get(), "method")->valuestring;
      const auto trusted = [&](bool printedCompact, const char* key) {
        return pluginsdk::internal::IsAuthentic(Printed(request.get(), printedCompact).c_str(), method, key,
                                                &limits);
      };
      EXPECT_TRUE(trusted(compact, "key") && !trusted(!compact, "key") && !trusted(compact, "other"))
          << method;
    }
    EXPECT_EQ(
        Stamped(family.request("v1", "", params, true)),
        std::string(R"({"jsonrpc":"2.0","params":{"x":[1,"\"/"]},"method":"v1/)") + family.method + "\"}");
  }
}

// Refuses each allocation in turn until `build` succeeds. Before, it must throw, or return null when the
// envelope itself cannot be had; either way `tree`, which every result contains, stays the caller's.
void FailEachAllocation(cJSON* tree, bool mayBeNull, const Build& build) {
  for (long failAt = 0;; ++failAt) {
    const CJsonMemory memory(failAt);
    JsonPtr result;
    const std::string thrown = Thrown([&] { return result.reset(build(tree)), nullptr; });
    cJSON_DetachItemViaPointer(result.get(), tree);
    if (memory.Count() <= failAt) return;
    EXPECT_EQ(result, nullptr) << "incomplete without allocation " << failAt;
    EXPECT_EQ(thrown, mayBeNull && failAt == 0 ? "nothing" : "- std::bad_alloc");
  }
}

TEST(Requests, WithoutMemoryNothingIsHalfBuilt) {
  const JsonPtr tree = Json("[1]");
  FailEachAllocation(tree.get(), false,
                     [](cJSON* t) { return CStatesPluginJson().CreateStatesParamsObj(t); });
  FailEachAllocation(tree.get(), false, [](cJSON* t) { return Local().CreateLocalCommandParamsObj(t); });
  for (const Family& family : kFamilies) {
    const Build build = [&](cJSON* t) { return family.request("v1", "", t, true); };
    std::vector<std::string> lines;
    if (family.logs != nullptr)
      lines = {std::string(" INFO  |") + family.logs + ":GetJsonrpcRequest| (null)"};
    EXPECT_EQ(Logged([&] { FailEachAllocation(tree.get(), true, build); }), lines);
  }
}

TEST(PrintedSize, VerdictIsExactForEveryShape) {
  const struct {
    const char *start, *repeated, *middle, *repeatedToo, *end;
  } shapes[] = {{"\"", "x", "", "", "\""},
                {"\"", R"(\u0001)", "", R"(\")", "\""},
                {"\"", R"(\")", "", R"(\\)", "\""},
                {"[", "null,", "0", ",[[]]", "]"},
                {"[", "-1.2345678901234567e-300,", "0", "", "]"},
                {"", R"({"k":)", "0", "}", ""},
                {"{", R"("\n":{},)", R"("a":1)", "", "}"}};
  for (const auto& shape : shapes) {
    std::string start = shape.start;
    std::string end = shape.middle;
    for (int i = 0; i < 100; ++i, start += shape.repeated, end += shape.repeatedToo) {
      const std::string text = (start + end).append(shape.end);
      const JsonPtr tree = Json(text);
      const std::size_t size = Printed(tree.get(), false).size();
      EXPECT_TRUE(PrintsLongerThan(tree.get(), size - 1) && !PrintsLongerThan(tree.get(), size)) << text;
    }
  }
  const JsonPtr largest = Json('"' + std::string(kLargestLimit - 2, 'x') + '"');
  const CJsonMemory memory;
  EXPECT_FALSE(PrintsLongerThan(largest.get(), kLargestLimit));
  EXPECT_EQ(memory.Count(), 0);
}

}  // namespace
